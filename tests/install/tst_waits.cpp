// SPDX-License-Identifier: MIT
// How long the program waits for other programs and before it starts the client. The linker
// replaces the waiting functions by those of this file, so the test does not have to wait.

#include "config/global.h"
#include "install/clientprocess.h"
#include "tests/support/standinfile.h"
#include "tests/support/testhome.h"

#include <QFileInfo>
#include <QProcess>
#include <QTest>
#include <QTimer>
#include <QVector>

#include <memory>

namespace
{

/// The time limits of the waits for the ends of programs, in milliseconds; -1 is no limit.
QVector<int> g_limits;

/// The pauses, in milliseconds.
QVector<unsigned long> g_pauses;

/// The client, which is installed during the first pause.
QString g_clientPath;
std::unique_ptr<StandIn> g_client;

} // namespace

// The linker's names.
extern "C" void __wrap__ZN8Platform5PauseEm(unsigned long milliseconds);
extern "C" bool __real__ZN8QProcess15waitForFinishedEi(QProcess *process, int limitMs);
extern "C" bool __wrap__ZN8QProcess15waitForFinishedEi(QProcess *process, int limitMs);

extern "C" void __wrap__ZN8Platform5PauseEm(unsigned long milliseconds)
{
    g_pauses.append(milliseconds);
    g_client = std::make_unique<StandIn>(g_clientPath);
}

extern "C" bool __wrap__ZN8QProcess15waitForFinishedEi(QProcess *process, int limitMs)
{
    g_limits.append(limitMs);
    return __real__ZN8QProcess15waitForFinishedEi(process, limitMs);
}

class TestWaits : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void tasklistIsWaitedForUpTo30Seconds();
    void xcopyIsWaitedForWithoutLimit();
    void clientIsStartedAfterHalfASecond();
};

void TestWaits::init()
{
    g_limits.clear();
    g_pauses.clear();
}

void TestWaits::tasklistIsWaitedForUpTo30Seconds()
{
    const TestHome home;
    const StandIn tasklist(home.CommandsFolder() + QStringLiteral("/tasklist"));
    Global::instance.appName = QStringLiteral("Client.exe");

    QCOMPARE(Global::instance.CheckClientRunning(), -1);
    QCOMPARE(g_limits, QVector<int>({30000, 30000}));

    StopRunningClient(Global::instance.appName);
    QCOMPARE(g_limits, QVector<int>({30000, 30000, 30000}));
    QCOMPARE(tasklist.Calls().size(), 3);
}

void TestWaits::xcopyIsWaitedForWithoutLimit()
{
    const TestHome home;
    const StandIn xcopy(home.CommandsFolder() + QStringLiteral("/xcopy"));
    home.ClientDataFolder();

    QCOMPARE(Global::instance.InstallPackage(home.Scratch() + QStringLiteral("/empty.zip")), 0);

    QCOMPARE(g_limits, QVector<int>({-1}));
    QCOMPARE(xcopy.Calls().size(), 1);
}

void TestWaits::clientIsStartedAfterHalfASecond()
{
    const TestHome home;
    const QString program = home.ClientFolder() + QLatin1Char('/') + TestHome::UniqueImageName();
    Global::instance.appPath = home.ClientFolder() + QLatin1Char('/');
    Global::instance.appName = QFileInfo(program).fileName();
    // Nothing could be started before the pause.
    g_clientPath = program;

    QTimer::singleShot(0, [] { Global::instance.LaunchClient(); });
    QVERIFY(RunUntilQuit());

    QCOMPARE(g_pauses, QVector<unsigned long>({500}));
    QVERIFY(g_client->WaitForCalls(1));
    g_client.reset();
}

QTEST_GUILESS_MAIN(TestWaits)
#include "tst_waits.moc"
