// SPDX-License-Identifier: MIT
#include "tests/faults/faultrun.h"
#include "tests/support/environmentvariable.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTest>

#include <algorithm>
#include <functional>
#include <memory>
#include <sys/stat.h>
#include <vector>

/// The updater is killed or started several times; its commands are missing, fail or hang.
class TestFaultsProcess : public QObject
{
    Q_OBJECT

private slots:
    void killedWhile_data();
    void killedWhile();
    void killedWhileThePackageIsUnpacked();
    void killedWhileXcopyRuns();
    void killedWhileItLooksForTheClient();
    void severalAtOnceRunOnce_data();
    void severalAtOnceRunOnce();
    void aCommandIsMissing_data();
    void aCommandIsMissing();
    void aCommandFails_data();
    void aCommandFails();
    void xcopyHangs();
    void taskkillHangs();
};

namespace
{

const QString kStartAgain = QStringLiteral("user: start it again");
const QString kHold = QStringLiteral("hold");

QString Command(const FaultRun &fault, const QString &name)
{
    return fault.run.CommandsFolder() + QLatin1Char('/') + name;
}

bool WaitedFor(const std::function<bool()> &condition)
{
    return QTest::qWaitFor(condition, 30000);
}

} // namespace

void TestFaultsProcess::killedWhile_data()
{
    QTest::addColumn<QString>("step");
    QTest::addColumn<QString>("seen");
    QTest::addColumn<QString>("left");
    const QString part = QStringLiteral(", part of the package");
    QTest::newRow("killed: before the check")
        << QStringLiteral("start") << QStringLiteral("nothing") << FaultRun::Untouched;
    QTest::newRow("killed: as the check is not answered yet")
        << QStringLiteral("check") << QStringLiteral("nothing") << FaultRun::Untouched;
    QTest::newRow("killed: as the prompt stands")
        << QStringLiteral("prompt") << QStringLiteral("prompt") << FaultRun::Untouched;
    QTest::newRow("killed: in the middle of the download")
        << QStringLiteral("download") << FaultRun::Progress << FaultRun::Untouched + part;
    QTest::newRow("killed: as the error stands")
        << QStringLiteral("error") << FaultRun::Corrupted
        << FaultRun::Untouched + QStringLiteral(", an empty package file");
}

void TestFaultsProcess::killedWhile()
{
    QFETCH(QString, step);
    QFETCH(QString, seen);
    QFETCH(QString, left);
    FaultRun fault(QString::fromLatin1(QTest::currentDataTag()));
    UpdaterRun &run = fault.run;
    fault.Offer();
    if (step == QLatin1String("check"))
        fault.ScriptCheck({{kHold, QStringLiteral("before")}});
    if (step == QLatin1String("download"))
        fault.ScriptPackage({{kHold, 150000}});
    if (step == QLatin1String("error"))
        fault.ScriptPackage({{QStringLiteral("body"), QString()}});
    if (step == QLatin1String("prompt"))
        run.Start();
    else
        fault.Start();

    if (step == QLatin1String("start"))
        QVERIFY(run.WaitForLog(run.ConfigurationLine()));
    else if (step == QLatin1String("check"))
        QVERIFY(run.server.WaitForRequests(1));
    else if (step == QLatin1String("prompt"))
        fault.WaitForWidget(FaultRun::UpdateButton);
    else if (step == QLatin1String("download"))
        QVERIFY(WaitedFor(
            [&] { return QFileInfo(run.PackagePath(FaultRun::PackageName)).size() == 150000; }));
    else
        fault.WaitForError();
    fault.Kill();
    fault.MustEndWith({seen, left, 0, kStartAgain});
}

void TestFaultsProcess::killedWhileThePackageIsUnpacked()
{
    FaultRun fault(QStringLiteral("killed: while the package is unpacked"));
    fault.Offer();
    fault.ScriptPackage({{kHold, 150000}});
    fault.Start();
    const QString package = fault.run.PackagePath(FaultRun::PackageName);
    QVERIFY(WaitedFor([&] { return QFileInfo(package).size() == 150000; }));
    // Opening a pipe for writing waits for a reader.
    const QString unpacked = fault.run.PackagePath(QStringLiteral("client-2.1.3"));
    QVERIFY(QDir().mkpath(unpacked));
    const QString pipe = unpacked + QStringLiteral("/data.bin");
    QCOMPARE(mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
    fault.run.server.Release(FaultRun::PackagePage);
    QVERIFY(
        WaitedFor([&] { return QFileInfo(unpacked + QStringLiteral("/config.json")).size() > 0; }));
    fault.Kill();
    fault.MustEndWith({FaultRun::Progress,
                       FaultRun::Untouched + QStringLiteral(", the package, part of it unpacked"),
                       0, kStartAgain});
}

void TestFaultsProcess::killedWhileXcopyRuns()
{
    FaultRun fault(QStringLiteral("killed: while the client is copied"));
    fault.Offer();
    {
        StandIn xcopy(Command(fault, QStringLiteral("xcopy")));
        xcopy.SetScript("stay\n");
        fault.Start();
        QVERIFY(xcopy.WaitForCalls(1, 30000));
        fault.Kill();
        fault.MustLeadTo(
            {FaultRun::Progress,
             FaultRun::Untouched + QStringLiteral(", the package, unpacked package, notes, marker"),
             0, kStartAgain});
        QFile::remove(xcopy.Path());
    }
    fault.NextRunMustWork();
}

void TestFaultsProcess::killedWhileItLooksForTheClient()
{
    FaultRun fault(QStringLiteral("killed: while tasklist runs"));
    fault.Offer();
    {
        StandIn tasklist(Command(fault, QStringLiteral("tasklist")));
        tasklist.SetScript("stay\n");
        fault.Start();
        QVERIFY(tasklist.WaitForCalls(1, 30000));
        fault.Kill();
        fault.MustLeadTo({QStringLiteral("nothing"), FaultRun::Untouched, 0, kStartAgain});
        QFile::remove(tasklist.Path());
    }
    fault.NextRunMustWork();
}

void TestFaultsProcess::severalAtOnceRunOnce_data()
{
    QTest::addColumn<int>("count");
    QTest::newRow("started twice at once") << 2;
    QTest::newRow("started ten times at once") << 10;
}

void TestFaultsProcess::severalAtOnceRunOnce()
{
    QFETCH(int, count);
    FaultRun fault(QString::fromLatin1(QTest::currentDataTag()));
    fault.Offer();
    // No run ends before all have started.
    fault.ScriptCheck({{kHold, QStringLiteral("before")}});
    std::vector<std::unique_ptr<QProcess>> all;
    for (int i = 0; i < count; ++i) {
        all.push_back(std::make_unique<QProcess>());
        all.back()->setProcessChannelMode(QProcess::ForwardedChannels);
        all.back()->start(fault.run.ProgramPath(), {QStringLiteral("-immediately")});
    }
    const auto ended = [&] {
        return std::count_if(all.begin(), all.end(), [](const auto &process) {
            return process->state() == QProcess::NotRunning;
        });
    };
    QVERIFY(WaitedFor([&] { return ended() >= count - 1; }));
    QVERIFY(fault.run.server.WaitForRequests(1));
    QCOMPARE(int(ended()), count - 1);
    fault.run.server.Release(QStringLiteral("/check"));
    QVERIFY(WaitedFor([&] { return ended() == count; }));
    int refused = 0;
    for (const auto &process : all)
        refused += process->exitCode() == 255 ? 1 : 0;
    QCOMPARE(refused, count - 1);
    QCOMPARE(fault.run.server.Requests().size(), 2);
    fault.MustEndWith({FaultRun::Progress, FaultRun::Updated, 1,
                       QStringLiteral("all but one end at once, without a word; user: wait")});
}

void TestFaultsProcess::aCommandIsMissing_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<bool>("running");
    QTest::addColumn<QString>("left");
    QTest::addColumn<int>("starts");
    QTest::newRow("missing: xcopy")
        << QStringLiteral("xcopy") << false
        << FaultRun::Untouched + QStringLiteral(", the package, unpacked package, notes, marker")
        << 1;
    QTest::newRow("missing: tasklist")
        << QStringLiteral("tasklist") << false << FaultRun::Updated << 1;
    QTest::newRow("missing: taskkill, while the client runs")
        << QStringLiteral("taskkill") << true << FaultRun::Updated << 2;
}

void TestFaultsProcess::aCommandIsMissing()
{
    QFETCH(QString, command);
    QFETCH(bool, running);
    QFETCH(QString, left);
    QFETCH(int, starts);
    FaultRun fault(QString::fromLatin1(QTest::currentDataTag()));
    fault.Offer();
    if (running)
        fault.run.client.StartAndStay();

    const QString commands = fault.run.CommandsFolder();
    for (const char *name : {"xcopy", "tasklist", "taskkill", "lib.sh"}) {
        if (command != QLatin1String(name))
            QFile::link(QStringLiteral(HOSTTOOLS_DIR "/") + QLatin1String(name),
                        Command(fault, QLatin1String(name)));
    }
    {
        const EnvironmentVariable path("PATH", QFile::encodeName(commands) + ":/usr/bin:/bin");
        fault.RunThrough();
    }
    for (const char *name : {"xcopy", "tasklist", "taskkill", "lib.sh"})
        QFile::remove(Command(fault, QLatin1String(name)));

    fault.MustLeadTo({FaultRun::Progress, left, starts});
    QFile::remove(fault.run.client.Path() + QStringLiteral(".script"));
    QVERIFY(WaitedFor([&] { return !fault.run.client.IsRunning(); }));
    fault.NextRunMustWork();
}

void TestFaultsProcess::aCommandFails_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<bool>("running");
    QTest::addColumn<QString>("left");
    QTest::addColumn<int>("starts");
    QTest::addColumn<QString>("note");
    QTest::newRow("fails: xcopy")
        << QStringLiteral("xcopy") << false
        << FaultRun::Untouched +
               QStringLiteral(", the package, unpacked package, notes, marker, version recorded")
        << 1 << QStringLiteral("vendor: nothing, the client's own version decides the next offer");
    QTest::newRow("fails: tasklist")
        << QStringLiteral("tasklist") << false << FaultRun::Updated << 1 << QString();
    QTest::newRow("fails: taskkill, while the client runs")
        << QStringLiteral("taskkill") << true << FaultRun::Updated << 2 << QString();
}

void TestFaultsProcess::aCommandFails()
{
    QFETCH(QString, command);
    QFETCH(bool, running);
    QFETCH(QString, left);
    QFETCH(int, starts);
    QFETCH(QString, note);
    FaultRun fault(QString::fromLatin1(QTest::currentDataTag()));
    fault.Offer();
    if (running)
        fault.run.client.StartAndStay();
    {
        StandIn failing(Command(fault, command));
        failing.SetScript("exit 1\n");
        fault.RunThrough();
        QVERIFY(!failing.Calls().isEmpty());
        QFile::remove(failing.Path());
    }
    fault.MustLeadTo({FaultRun::Progress, left, starts, note});
    QFile::remove(fault.run.client.Path() + QStringLiteral(".script"));
    QVERIFY(WaitedFor([&] { return !fault.run.client.IsRunning(); }));
    fault.NextRunMustWork();
}

void TestFaultsProcess::xcopyHangs()
{
    FaultRun fault(QStringLiteral("hangs: xcopy"));
    fault.Offer();
    {
        StandIn xcopy(Command(fault, QStringLiteral("xcopy")));
        xcopy.SetScript("stay\n");
        fault.Start();
        QVERIFY(xcopy.WaitForCalls(1, 30000));
        fault.MustLeadTo(
            {FaultRun::Progress,
             FaultRun::Untouched + QStringLiteral(", the package, unpacked package, notes, marker"),
             0,
             QStringLiteral("user: end xcopy in the task manager, the client starts then; vendor: "
                            "nothing")});
        // As the task manager does.
        QFile::remove(xcopy.Path() + QStringLiteral(".script"));
        QCOMPARE(fault.run.WaitForEnd(), 0);
        QVERIFY(fault.run.client.WaitForCalls(1));
        QFile::remove(xcopy.Path());
    }
    fault.StartedSince(1);
    fault.NextRunMustWork();
}

void TestFaultsProcess::taskkillHangs()
{
    FaultRun fault(QStringLiteral("hangs: taskkill, while the client runs"));
    fault.Offer();
    fault.run.client.StartAndStay();
    {
        StandIn taskkill(Command(fault, QStringLiteral("taskkill")));
        taskkill.SetScript("stay\n");
        fault.Start();
        QVERIFY(taskkill.WaitForCalls(1, 30000));
        fault.MustLeadTo({QStringLiteral("nothing"), FaultRun::Untouched, 1,
                          QStringLiteral("the client runs already; user: end taskkill in the task "
                                         "manager, the update goes on then")});
        QFile::remove(taskkill.Path() + QStringLiteral(".script"));
        QCOMPARE(fault.run.WaitForEnd(), 0);
        QFile::remove(taskkill.Path());
    }
    QFile::remove(fault.run.client.Path() + QStringLiteral(".script"));
    QVERIFY(WaitedFor([&] { return !fault.run.client.IsRunning(); }));
    fault.StartedSince(1);
    fault.NextRunMustWork();
}

QTEST_GUILESS_MAIN(TestFaultsProcess)
#include "tst_faults_process.moc"
