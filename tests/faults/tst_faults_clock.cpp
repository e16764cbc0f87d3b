// SPDX-License-Identifier: MIT
#include "tests/faults/faultrun.h"

#include <QFile>
#include <QFileInfo>
#include <QTest>

#include <cstdio>

/// The user or the time service sets the clock while the updater waits.
class TestFaultsClock : public QObject
{
    Q_OBJECT

private slots:
    void aClockSetForwardDuringTheCheck();
    void aClockSetBackDuringTheCheck();
    void aClockSetForwardDuringTheDownload();
    void aClockSetBackDuringTheDownload();
};

namespace
{

const QString kHold = QStringLiteral("hold");

constexpr int kHeldAt = 150000;
constexpr int kLongestCheckMs = 14000;

/// The wall clock of the updater only. It does not affect timers, as when a user sets the clock.
class WallClock
{
public:
    explicit WallClock(FaultRun &fault) : m_file(fault.run.Scratch() + QStringLiteral("/clock"))
    {
        Set("+0");
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("LD_PRELOAD"), QStringLiteral(FAKETIME_LIBRARY));
        environment.insert(QStringLiteral("FAKETIME_TIMESTAMP_FILE"), m_file);
        environment.insert(QStringLiteral("FAKETIME_NO_CACHE"), QStringLiteral("1"));
        environment.insert(QStringLiteral("FAKETIME_DONT_FAKE_MONOTONIC"), QStringLiteral("1"));
        fault.run.process.setProcessEnvironment(environment);
    }

    /// The difference of the clock in seconds, such as "+3600".
    void Set(const QByteArray &offset) const
    {
        // Renamed into place, because the updater may read it at any time.
        WriteFile(m_file + QStringLiteral(".new"), offset + '\n');
        if (std::rename(QFile::encodeName(m_file + QStringLiteral(".new")).constData(),
                        QFile::encodeName(m_file).constData()) != 0)
            qFatal("cannot set the clock");
    }

private:
    QString m_file;
};

void WaitForHeldPackage(const FaultRun &fault)
{
    const QString package = fault.run.PackagePath(FaultRun::PackageName);
    QVERIFY(QTest::qWaitFor([&] { return QFileInfo(package).size() == kHeldAt; }, 30000));
}

} // namespace

void TestFaultsClock::aClockSetForwardDuringTheCheck()
{
    FaultRun fault(QStringLiteral("clock: set an hour forward during the check"));
    const WallClock clock(fault);
    fault.Offer();
    fault.ScriptCheck({{kHold, QStringLiteral("before")}});
    fault.Start();
    QVERIFY(fault.run.server.WaitForRequests(1));
    clock.Set("+3600");
    // Long before the time limit of the check.
    QCOMPARE(fault.run.WaitForEnd(9000), 0);
    fault.MustEndWith({QStringLiteral("nothing"), FaultRun::Untouched, 1});
}

void TestFaultsClock::aClockSetBackDuringTheCheck()
{
    FaultRun fault(QStringLiteral("clock: set an hour back during a check without an answer"));
    const WallClock clock(fault);
    fault.Offer();
    fault.ScriptCheck({{kHold, QStringLiteral("before")}});
    fault.Start();
    QVERIFY(fault.run.server.WaitForRequests(1));
    clock.Set("-3600");
    // The time limit of the check uses this clock; that of the watchdog does not.
    QCOMPARE(fault.run.WaitForEnd(), 0);
    fault.MustLeadTo({QStringLiteral("nothing"), FaultRun::Untouched, 1});
    clock.Set("+0");
    fault.NextRunMustWork();
}

void TestFaultsClock::aClockSetForwardDuringTheDownload()
{
    FaultRun fault(QStringLiteral("clock: set an hour forward during the download"));
    const WallClock clock(fault);
    fault.Offer();
    fault.ScriptPackage({{kHold, kHeldAt}});
    fault.Start();
    WaitForHeldPackage(fault);
    clock.Set("+3600");
    fault.WaitForError();
    fault.MustEndWith(
        {FaultRun::NetworkError, FaultRun::Untouched + QStringLiteral(", part of the package"), 0});
}

void TestFaultsClock::aClockSetBackDuringTheDownload()
{
    FaultRun fault(QStringLiteral("clock: set an hour back during a download that stalls"));
    const WallClock clock(fault);
    fault.Offer();
    fault.ScriptPackage({{kHold, kHeldAt}});
    fault.Start();
    WaitForHeldPackage(fault);
    clock.Set("-3600");
    // Nothing must happen in this time.
    QVERIFY(!QTest::qWaitFor([&] { return fault.run.process.state() == QProcess::NotRunning; },
                             kLongestCheckMs));
    fault.MustLeadTo({FaultRun::Progress,
                      FaultRun::Untouched + QStringLiteral(", part of the package"), 0,
                      QStringLiteral("goes on as soon as data comes; user: Cancel, OK, start the "
                                     "client, or set the clock right")});
    fault.run.server.Release(FaultRun::PackagePage);
    QCOMPARE(fault.run.WaitForEnd(), 0);
    QVERIFY(fault.run.client.WaitForCalls(1));
    fault.StartedSince(1);
    fault.NextRunMustWork();
}

QTEST_GUILESS_MAIN(TestFaultsClock)
#include "tst_faults_clock.moc"
