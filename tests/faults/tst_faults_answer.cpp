// SPDX-License-Identifier: MIT
#include "tests/faults/faultrun.h"

#include <QTest>

/// The service gives a wrong or an unusual answer to the check.
class TestFaultsAnswer : public QObject
{
    Q_OBJECT

private slots:
    void theAnswerStartsTheClientAsItIs_data();
    void theAnswerStartsTheClientAsItIs();
    void anAnswerThatAsksForCredentialsGetsNone_data();
    void anAnswerThatAsksForCredentialsGetsNone();
    void anOddAnswerStillUpdates_data();
    void anOddAnswerStillUpdates();
    void anEndlessVersionIsPromptedFor();
};

namespace
{

const QString kStatus = QStringLiteral("status");
const QString kBody = QStringLiteral("body");
const QString kLength = QStringLiteral("length");
const QString kThen = QStringLiteral("then");
const QString kSendBytes = QStringLiteral("sendBytes");
const QString kHeaders = QStringLiteral("headers");
const QString kClose = QStringLiteral("close");

QJsonArray Header(const char *name, const char *value)
{
    return {QJsonArray{QString::fromLatin1(name), QString::fromLatin1(value)}};
}

/// The answer in the zlib format, which "deflate" means.
QString Deflated(const QByteArray &bytes)
{
    return QString::fromLatin1(qCompress(bytes).mid(4).toBase64());
}

void AddStep(const char *fault, const QJsonObject &step)
{
    QTest::newRow(fault) << step;
}

} // namespace

void TestFaultsAnswer::theAnswerStartsTheClientAsItIs_data()
{
    QTest::addColumn<QJsonObject>("step");
    for (const int status : {301, 302, 307})
        QTest::addRow("check: answer %d to another page", status) << QJsonObject{
            {kStatus, status}, {kBody, QString()}, {kHeaders, Header("Location", "/elsewhere")}};
    for (const int status : {400, 401, 403, 404, 407, 429, 500, 503})
        QTest::addRow("check: answer %d", status) << QJsonObject{{kStatus, status}};
    for (const int status : {204, 304})
        QTest::addRow("check: answer %d, no body", status)
            << QJsonObject{{kStatus, status}, {kBody, QString()}};
    AddStep("check: empty answer", {{kBody, QString()}});
    AddStep("check: answer is a page of a hotel's network",
            {{kBody, QStringLiteral("<html><body>Log in</body></html>")}});
    AddStep("check: answer with another code",
            {{kBody, QStringLiteral(R"({"code":"000001","desc":"maintenance"})")}});
    AddStep("check: answer announced longer than it is, connection closed",
            {{kLength, 100000}, {kThen, kClose}});
    AddStep("check: answer announced shorter than it is", {{kLength, 100}, {kThen, kClose}});
    AddStep("check: answer cut in the middle, connection closed",
            {{kSendBytes, 100}, {kThen, kClose}});
    AddStep("check: answer cut in the middle, connection reset",
            {{kSendBytes, 100}, {kThen, QStringLiteral("reset")}});
    AddStep("check: answer in chunks, cut in the middle",
            {{QStringLiteral("chunked"), true}, {kSendBytes, 100}, {kThen, kClose}});
    AddStep("check: answer said to be compressed, but is not",
            {{kHeaders, Header("Content-Encoding", "gzip")}});
    AddStep("check: compressed answer of 64 MiB in 64 KiB",
            {{kHeaders, Header("Content-Encoding", "deflate")},
             {QStringLiteral("bodyBase64"), Deflated(QByteArray(64 * 1024 * 1024, ' '))}});
    AddStep("check: answer of 9 MiB", {{QStringLiteral("fill"), 9 * 1024 * 1024}});
    AddStep("check: answer of 8 MiB of control characters",
            {{kBody, QString(8 * 1024 * 1024, QChar(1))}});
    AddStep("check: answer with 100,000 header lines",
            {{kHeaders, UpdaterRun::ManyHeaders(QStringLiteral("X-%1"), 100000)}});
    AddStep("check: answer with 20,000 cookies",
            {{kHeaders, UpdaterRun::ManyHeaders(QStringLiteral("Set-Cookie"), 20000)}});
    AddStep("check: names the package after a batch file",
            {{kBody, QString::fromUtf8(FaultRun::CheckAnswer(
                         {{QStringLiteral("latestVersionUrl"),
                           QStringLiteral("https://example.invalid/setup.bat")}}))}});
}

void TestFaultsAnswer::theAnswerStartsTheClientAsItIs()
{
    QFETCH(QJsonObject, step);
    FaultRun fault(QString::fromLatin1(QTest::currentDataTag()));
    fault.Offer();
    fault.ScriptCheck(step);
    fault.RunThrough();
    fault.MustEndWith({QStringLiteral("nothing"), FaultRun::Untouched, 1});
}

void TestFaultsAnswer::anAnswerThatAsksForCredentialsGetsNone_data()
{
    QTest::addColumn<QJsonObject>("step");
    const auto row = [](const char *scheme, const char *challenge) {
        QTest::addRow("check: asks for credentials: %s", scheme)
            << QJsonObject{{kStatus, 401}, {kHeaders, Header("WWW-Authenticate", challenge)}};
    };
    row("Basic", "Basic realm=\"a\"");
    row("Digest", "Digest realm=\"a\", nonce=\"b\"");
    row("NTLM", "NTLM");
    row("Negotiate", "Negotiate");
}

void TestFaultsAnswer::anAnswerThatAsksForCredentialsGetsNone()
{
    QFETCH(QJsonObject, step);
    FaultRun fault(QString::fromLatin1(QTest::currentDataTag()));
    fault.Offer();
    fault.ScriptCheck(step);
    fault.RunThrough();
    const auto requests = fault.run.server.Requests();
    QCOMPARE(requests.size(), 1);
    QVERIFY(requests.first().Header("Authorization").isNull());
    fault.MustEndWith({QStringLiteral("nothing"), FaultRun::Untouched, 1});
}

void TestFaultsAnswer::anEndlessVersionIsPromptedFor()
{
    FaultRun fault(QStringLiteral("check: offers a version of a million combining characters"));
    fault.Offer();
    const QString version(1000000, QChar(0x0301));
    fault.ScriptCheck({{kBody, QString::fromUtf8(FaultRun::CheckAnswer(
                                   {{QStringLiteral("latestVersion"), version}}))}});
    fault.run.Start();
    fault.WaitForWidget(FaultRun::LaterButton);
    fault.Press(FaultRun::LaterButton);
    QCOMPARE(fault.run.WaitForEnd(), 0);
    fault.MustEndWith({QStringLiteral("prompt"), FaultRun::Untouched, 1});
}

void TestFaultsAnswer::anOddAnswerStillUpdates_data()
{
    QTest::addColumn<QJsonObject>("step");
    AddStep("check: answer without a length, ended by the connection",
            {{kLength, QStringLiteral("none")}});
    AddStep("check: answer in chunks", {{QStringLiteral("chunked"), true}});
    AddStep("check: answer compressed",
            {{kHeaders, Header("Content-Encoding", "deflate")},
             {QStringLiteral("bodyBase64"), Deflated(FaultRun::CheckAnswer())}});
}

void TestFaultsAnswer::anOddAnswerStillUpdates()
{
    QFETCH(QJsonObject, step);
    FaultRun fault(QString::fromLatin1(QTest::currentDataTag()));
    fault.Offer();
    fault.ScriptCheck(step);
    fault.RunThrough();
    fault.MustEndWith({FaultRun::Progress, FaultRun::Updated, 1});
}

QTEST_GUILESS_MAIN(TestFaultsAnswer)
#include "tst_faults_answer.moc"
