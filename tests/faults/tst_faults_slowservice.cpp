// SPDX-License-Identifier: MIT
#include "tests/faults/faultrun.h"
#include "tests/faults/rawservice.h"

#include <QTest>

/// The service answers the check slowly.
class TestFaultsSlowService : public QObject
{
    Q_OBJECT

private slots:
    void anAnswerThatDoesNotEndStartsTheClient_data();
    void anAnswerThatDoesNotEndStartsTheClient();
    void aRawAnswerThatDoesNotEndStartsTheClient_data();
    void aRawAnswerThatDoesNotEndStartsTheClient();
    void aLateAnswerStartsTheClientOnce_data();
    void aLateAnswerStartsTheClientOnce();
};

namespace
{

const QString kHold = QStringLiteral("hold");
const QString kCheck = QStringLiteral("/check");
const QString kCheckUrl = QStringLiteral("updateCheckUrl");

} // namespace

void TestFaultsSlowService::anAnswerThatDoesNotEndStartsTheClient_data()
{
    QTest::addColumn<QJsonObject>("step");
    QTest::newRow("check: no answer") << QJsonObject{{kHold, QStringLiteral("before")}};
    QTest::newRow("check: nothing after the headers")
        << QJsonObject{{kHold, QStringLiteral("headers")}};
    QTest::newRow("check: nothing after the middle of the answer") << QJsonObject{{kHold, 100}};
    QTest::newRow("check: answer without an end") << QJsonObject{
        {QStringLiteral("fill"), 1LL << 40}, {QStringLiteral("length"), QStringLiteral("none")}};
    QTest::newRow("check: answer announced longer than it is, connection kept")
        << QJsonObject{{QStringLiteral("length"), 100000}};
}

void TestFaultsSlowService::anAnswerThatDoesNotEndStartsTheClient()
{
    QFETCH(QJsonObject, step);
    FaultRun fault(QString::fromLatin1(QTest::currentDataTag()));
    fault.Offer();
    fault.ScriptCheck(step);
    fault.RunThrough();
    fault.MustEndWith({QStringLiteral("nothing"), FaultRun::Untouched, 1});
}

void TestFaultsSlowService::aRawAnswerThatDoesNotEndStartsTheClient_data()
{
    QTest::addColumn<QString>("scheme");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("pauseMs");
    QTest::newRow("check: nothing as TLS begins") << QStringLiteral("https") << QByteArray() << 0;
    QTest::newRow("check: nothing after half of the headers")
        << QStringLiteral("http") << QByteArray("HTTP/1.1 200 OK\r\nContent-Le") << 0;
    QTest::newRow("check: answer byte by byte, whole after a minute")
        << QStringLiteral("http") << RawService::Http(FaultRun::CheckAnswer()) << 150;
}

void TestFaultsSlowService::aRawAnswerThatDoesNotEndStartsTheClient()
{
    QFETCH(QString, scheme);
    QFETCH(QByteArray, bytes);
    QFETCH(int, pauseMs);
    FaultRun fault(QString::fromLatin1(QTest::currentDataTag()));
    RawService service;
    service.SetAnswer({bytes, RawService::End::Stay, RawService::Begin::AfterTheRequestsHead,
                       pauseMs > 0 ? 1 : 0, pauseMs});
    fault.Offer({}, {{kCheckUrl, service.Url(scheme, kCheck)}});
    fault.RunThrough();
    fault.MustLeadTo({QStringLiteral("nothing"), FaultRun::Untouched, 1});
    fault.run.Configure();
    fault.NextRunMustWork();
}

void TestFaultsSlowService::aLateAnswerStartsTheClientOnce_data()
{
    QTest::addColumn<int>("afterMs");
    QTest::addColumn<QString>("seen");
    QTest::addColumn<QString>("left");
    QTest::newRow("check: answer after 9.5 s") << 9500 << FaultRun::Progress << FaultRun::Updated;
    QTest::newRow("check: answer after 12.5 s")
        << 12500 << QStringLiteral("nothing") << FaultRun::Untouched;
}

void TestFaultsSlowService::aLateAnswerStartsTheClientOnce()
{
    QFETCH(int, afterMs);
    QFETCH(QString, seen);
    QFETCH(QString, left);
    FaultRun fault(QString::fromLatin1(QTest::currentDataTag()));
    fault.Offer();
    fault.ScriptCheck({{kHold, QStringLiteral("before")}});
    fault.Start();
    QVERIFY(fault.run.server.WaitForRequests(1));
    // The time of the answer is the fault itself.
    QTest::qWait(afterMs);
    fault.run.server.Release(kCheck);
    QCOMPARE(fault.run.WaitForEnd(), 0);
    fault.MustEndWith({seen, left, 1});
}

QTEST_GUILESS_MAIN(TestFaultsSlowService)
#include "tst_faults_slowservice.moc"
