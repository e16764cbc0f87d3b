// SPDX-License-Identifier: MIT
#include "tests/faults/faultrun.h"
#include "tests/faults/rawservice.h"

#include <QTest>

/// The connection of the check fails.
class TestFaultsService : public QObject
{
    Q_OBJECT

private slots:
    void aHostWithoutAnAddressStartsTheClient();
    void aClosedPortStartsTheClient();
    void aResetStartsTheClient_data();
    void aResetStartsTheClient();
    void anAnswerByteByByteInTimeUpdates();
};

namespace
{

const QString kCheck = QStringLiteral("/check");

} // namespace

void TestFaultsService::aHostWithoutAnAddressStartsTheClient()
{
    FaultRun fault(QStringLiteral("check: the service's name has no address"));
    fault.Offer({}, {{QStringLiteral("updateCheckUrl"), QStringLiteral("https://down.invalid/")}});
    fault.RunThrough();
    fault.MustLeadTo({QStringLiteral("nothing"), FaultRun::Untouched, 1});
    fault.run.Configure();
    fault.NextRunMustWork();
}

void TestFaultsService::aClosedPortStartsTheClient()
{
    FaultRun fault(QStringLiteral("check: the service refuses connections"));
    RawService service;
    fault.Offer({},
                {{QStringLiteral("updateCheckUrl"), service.Url(QStringLiteral("https"), kCheck)}});
    service.close();
    fault.RunThrough();
    fault.MustLeadTo({QStringLiteral("nothing"), FaultRun::Untouched, 1});
    fault.run.Configure();
    fault.NextRunMustWork();
}

void TestFaultsService::aResetStartsTheClient_data()
{
    QTest::addColumn<QString>("scheme");
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("check: connection reset as TLS begins")
        << QStringLiteral("https") << QByteArray();
    QTest::newRow("check: connection reset before the answer")
        << QStringLiteral("http") << QByteArray();
    QTest::newRow("check: connection reset in the headers")
        << QStringLiteral("http") << QByteArray("HTTP/1.1 200 OK\r\nContent-Le");
    QTest::newRow("check: answer is not HTTP")
        << QStringLiteral("http") << QByteArray("\0\1\2SMTP ready\r\n\r\n", 17);
}

void TestFaultsService::aResetStartsTheClient()
{
    QFETCH(QString, scheme);
    QFETCH(QByteArray, bytes);
    FaultRun fault(QString::fromLatin1(QTest::currentDataTag()));
    RawService service;
    service.SetAnswer({bytes, RawService::End::Reset,
                       scheme == QLatin1String("https") ? RawService::Begin::AtTheFirstByte
                                                        : RawService::Begin::AfterTheRequestsHead});
    fault.Offer({}, {{QStringLiteral("updateCheckUrl"), service.Url(scheme, kCheck)}});
    fault.RunThrough();
    fault.MustLeadTo({QStringLiteral("nothing"), FaultRun::Untouched, 1});
    fault.run.Configure();
    fault.NextRunMustWork();
}

void TestFaultsService::anAnswerByteByByteInTimeUpdates()
{
    FaultRun fault(QStringLiteral("check: answer byte by byte, whole within 5 s"));
    RawService service;
    service.SetAnswer({RawService::Http(FaultRun::CheckAnswer()), RawService::End::Stay,
                       RawService::Begin::AfterTheRequestsHead, 1, 5});
    fault.Offer({},
                {{QStringLiteral("updateCheckUrl"), service.Url(QStringLiteral("http"), kCheck)}});
    fault.RunThrough();
    fault.MustLeadTo({FaultRun::Progress, FaultRun::Updated, 1});
    fault.run.Configure();
    fault.NextRunMustWork();
}

QTEST_GUILESS_MAIN(TestFaultsService)
#include "tst_faults_service.moc"
