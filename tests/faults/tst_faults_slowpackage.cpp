// SPDX-License-Identifier: MIT
#include "tests/faults/faultrun.h"
#include "tests/faults/rawservice.h"

#include <QTest>

/// The package server fails or stalls: what the user sees after six seconds without data.
class TestFaultsSlowPackage : public QObject
{
    Q_OBJECT

private slots:
    void anErrorOfTheServerIsGivenUp_data();
    void anErrorOfTheServerIsGivenUp();
    void aPauseInThePackage_data();
    void aPauseInThePackage();
    void aChunkEveryFiveSecondsIsEnough();
};

namespace
{

const QString kPart = QStringLiteral(", part of the package");
const QString kEmpty = QStringLiteral(", an empty package file");

} // namespace

void TestFaultsSlowPackage::anErrorOfTheServerIsGivenUp_data()
{
    QTest::addColumn<QJsonObject>("step");
    QTest::addColumn<QString>("left");
    const QString body = QStringLiteral("body");
    for (const int status : {403, 404, 500, 503})
        QTest::addRow("package: answer %d", status)
            << QJsonObject{{QStringLiteral("status"), status}, {body, QString()}} << kEmpty;
    QTest::newRow("package: announced longer than it is, connection kept")
        << QJsonObject{{QStringLiteral("length"), FaultRun::Package().size() + 1}}
        << QStringLiteral(", the package");
    QTest::newRow("package: no answer")
        << QJsonObject{{QStringLiteral("hold"), QStringLiteral("before")}} << kEmpty;
    QTest::newRow("package: nothing after the headers")
        << QJsonObject{{QStringLiteral("hold"), QStringLiteral("headers")}} << kEmpty;
}

void TestFaultsSlowPackage::anErrorOfTheServerIsGivenUp()
{
    QFETCH(QJsonObject, step);
    QFETCH(QString, left);
    FaultRun fault(QString::fromLatin1(QTest::currentDataTag()));
    fault.Offer();
    fault.ScriptPackage(step);
    fault.Start();
    fault.WaitForError();
    fault.MustEndWith({FaultRun::NetworkError, FaultRun::Untouched + left, 0});
}

void TestFaultsSlowPackage::aPauseInThePackage_data()
{
    QTest::addColumn<int>("pauseMs");
    QTest::addColumn<bool>("goesOn");
    QTest::newRow("package: stalled for 5.5 s") << 5500 << true;
    QTest::newRow("package: stalled for 8.5 s") << 8500 << false;
}

void TestFaultsSlowPackage::aPauseInThePackage()
{
    QFETCH(int, pauseMs);
    QFETCH(bool, goesOn);
    FaultRun fault(QString::fromLatin1(QTest::currentDataTag()));
    fault.Offer();
    fault.ScriptPackage({{QStringLiteral("hold"), 150000}});
    fault.Start();
    QVERIFY(fault.run.server.WaitForRequests(1, 30000, FaultRun::PackagePage));
    // The length of this pause is the fault itself.
    QTest::qWait(pauseMs);
    fault.run.server.Release(FaultRun::PackagePage);
    if (goesOn) {
        QCOMPARE(fault.run.WaitForEnd(), 0);
        fault.MustEndWith({FaultRun::Progress, FaultRun::Updated, 1});
        return;
    }
    fault.WaitForError();
    fault.MustEndWith({FaultRun::NetworkError, FaultRun::Untouched + kPart, 0});
}

void TestFaultsSlowPackage::aChunkEveryFiveSecondsIsEnough()
{
    FaultRun fault(QStringLiteral("package: a chunk every 5 s"));
    RawService service;
    const QByteArray answer = RawService::Http(FaultRun::Package());
    service.SetAnswer({answer, RawService::End::Stay, RawService::Begin::AfterTheRequestsHead,
                       answer.size() / 4 + 1, 5000});
    fault.Offer({}, {{QStringLiteral("updatePackageUrl"),
                      service.Url(QStringLiteral("http"), QStringLiteral("/"))}});
    fault.RunThrough();
    fault.MustLeadTo({FaultRun::Progress, FaultRun::Updated, 1});
    fault.run.Configure();
    fault.NextRunMustWork();
}

QTEST_GUILESS_MAIN(TestFaultsSlowPackage)
#include "tst_faults_slowpackage.moc"
