// SPDX-License-Identifier: MIT
#include "tests/faults/faultrun.h"
#include "tests/support/loglines.h"

#include <QFileInfo>
#include <QTest>

/// The offer is unusual, or the user declines it.
class TestFaultsOffer : public QObject
{
    Q_OBJECT

private slots:
    void anAnnouncedSizeIsNotThePackages_data();
    void anAnnouncedSizeIsNotThePackages();
    void anUnknownKindOfPackageStandsStill();
    void aCancelThatIsConfirmedEndsTheRun();
    void aForcedPromptThatIsClosedEndsTheRun();
    void aPackageThatIsNoArchiveStartsTheClient();
    void anInstallerThatDoesNotStartEndsTheRun();
};

void TestFaultsOffer::anAnnouncedSizeIsNotThePackages_data()
{
    QTest::addColumn<int>("size");
    QTest::newRow("check: announces the package as smaller than it is") << 1;
    QTest::newRow("check: announces the package as larger than it is") << 100000000;
    QTest::newRow("check: announces the package as smaller than nothing") << -5;
}

void TestFaultsOffer::anAnnouncedSizeIsNotThePackages()
{
    QFETCH(int, size);
    FaultRun fault(QString::fromLatin1(QTest::currentDataTag()));
    fault.Offer({{QStringLiteral("packageSize"), size}});
    fault.RunThrough();
    fault.MustEndWith({FaultRun::Progress, FaultRun::Updated, 1});
}

void TestFaultsOffer::anUnknownKindOfPackageStandsStill()
{
    FaultRun fault(QStringLiteral("check: announces an updateType of neither kind"));
    fault.Offer({{QStringLiteral("updateType"), 2}});
    fault.Start();
    QVERIFY(QTest::qWaitFor(
        [&] { return !fault.run.Log().filter(LogLine::DigestsBegin()).isEmpty(); }, 30000));
    fault.MustEndWith({FaultRun::Progress, FaultRun::Untouched + QStringLiteral(", the package"), 0,
                       QStringLiteral("user: Cancel, OK, start the client; vendor: publish 0 or "
                                      "1, nothing else")});
}

void TestFaultsOffer::aCancelThatIsConfirmedEndsTheRun()
{
    FaultRun fault(QStringLiteral("user: cancels the download and confirms it"));
    fault.Offer();
    fault.ScriptPackage({{QStringLiteral("hold"), 1000}});
    fault.Start();
    QVERIFY(fault.run.server.WaitForRequests(1, 30000, FaultRun::PackagePage));
    QVERIFY(QTest::qWaitFor(
        [&] { return QFileInfo(fault.run.PackagePath(FaultRun::PackageName)).size() == 1000; },
        30000));
    fault.Press(FaultRun::CancelOrRetryButton);
    fault.WaitForWidget(FaultRun::ConfirmCancelButton);
    fault.Press(FaultRun::ConfirmCancelButton);
    QCOMPARE(fault.run.WaitForEnd(), 0);
    fault.MustEndWith({QStringLiteral("progress, then the question whether to cancel"),
                       FaultRun::Untouched + QStringLiteral(", part of the package"), 0,
                       QStringLiteral("user: start the client")});
}

void TestFaultsOffer::aForcedPromptThatIsClosedEndsTheRun()
{
    FaultRun fault(QStringLiteral("user: closes the forced prompt"));
    fault.Offer({{QStringLiteral("update"), QStringLiteral("2")}});
    fault.run.Start();
    fault.WaitForWidget(FaultRun::UpdateButton);
    fault.Press(FaultRun::Prompt);
    QCOMPARE(fault.run.WaitForEnd(), 0);
    fault.MustEndWith({QStringLiteral("forced prompt"), FaultRun::Untouched, 0,
                       QStringLiteral("user: start again and update; vendor: offer it as "
                                      "optional")});
}

void TestFaultsOffer::aPackageThatIsNoArchiveStartsTheClient()
{
    FaultRun fault(QStringLiteral("package: verified, but no archive"));
    const QByteArray noArchive("no archive");
    fault.Offer();
    fault.run.Publish(noArchive, FaultRun::PackageName);
    fault.RunThrough();
    fault.MustEndWith(
        {FaultRun::Progress,
         FaultRun::Untouched +
             QStringLiteral(", another file as the package, notes, marker, version recorded"),
         1});
}

void TestFaultsOffer::anInstallerThatDoesNotStartEndsTheRun()
{
    FaultRun fault(QStringLiteral("package: verified, but an installer that does not start"));
    fault.Offer();
    fault.run.Publish(QByteArray("\x7f"
                                 "ELF, and nothing else"),
                      FaultRun::PackageName, {{QStringLiteral("updateType"), 0}});
    fault.RunThrough();
    fault.MustEndWith({FaultRun::Progress,
                       FaultRun::Untouched + QStringLiteral(", another file as the package"), 0,
                       QStringLiteral("user: start the client; vendor: try what is published")});
}

QTEST_GUILESS_MAIN(TestFaultsOffer)
#include "tst_faults_offer.moc"
