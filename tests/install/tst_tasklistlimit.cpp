// SPDX-License-Identifier: MIT
#include "config/global.h"
#include "install/clientprocess.h"
#include "tests/support/logcapture.h"
#include "tests/support/loglines.h"
#include "tests/support/standinfile.h"
#include "tests/support/testhome.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QTest>
#include <QThread>

#include <memory>

class TestTasklistLimit : public QObject
{
    Q_OBJECT

private slots:
    void outputUntilTheLimitDecides();
};

// Both cases at once, because each takes the whole time limit.
void TestTasklistLimit::outputUntilTheLimitDecides()
{
    const TestHome home;
    const StandIn client(home.ClientFolder() + QLatin1Char('/') + TestHome::UniqueImageName());
    Global::instance.appName = QFileInfo(client.Path()).fileName();
    Global::instance.appPath = home.ClientFolder() + QLatin1Char('/');
    Global::instance.cmdLineArgs = QStringList(QStringLiteral("qorb-meeting://abc"));

    // It prints the client's name but never ends.
    StandIn tasklist(home.CommandsFolder() + QStringLiteral("/tasklist"));
    tasklist.SetScript(StandIn::Prints(Global::instance.appName.toLocal8Bit()) + "stay\n");

    const LogCapture log;
    int result = 99;
    bool otherListed = true;
    QElapsedTimer timer;
    timer.start();
    const std::unique_ptr<QThread> printed(
        QThread::create([&result] { result = Global::instance.CheckClientRunning(); }));
    const std::unique_ptr<QThread> notPrinted(QThread::create(
        [&otherListed] { otherListed = ClientIsListed(QStringLiteral("Other.exe")); }));
    printed->start();
    notPrinted->start();
    QVERIFY(printed->wait(120000));
    QVERIFY(notPrinted->wait(120000));

    QVERIFY2(timer.elapsed() >= 30000, qPrintable(QString::number(timer.elapsed())));
    QCOMPARE(result, 0);
    QVERIFY(!otherListed);
    QCOMPARE(tasklist.Calls().size(), 2);
    QVERIFY(client.WaitForCalls(1));
    QCOMPARE(client.Calls(), QVector<QStringList>({{QStringLiteral("--url=abc")}}));
    QCOMPARE(log.Messages(), QStringList(LogLine::AlreadyRuns(Global::instance.appName)));
}

QTEST_GUILESS_MAIN(TestTasklistLimit)
#include "tst_tasklistlimit.moc"
