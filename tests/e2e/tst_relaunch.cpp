// SPDX-License-Identifier: MIT
#include "tests/support/loglines.h"
#include "tests/support/updaterrun.h"

#include <QDateTime>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

#include <utility>

/// Runs that start the client without an update.
class TestRelaunch : public QObject
{
    Q_OBJECT

private slots:
    void theCheckIsOnePostWithTheInstalledVersion();
    void nothingNewStartsTheClient_data();
    void nothingNewStartsTheClient();
    void aSilencedVersionStartsTheClient();
    void anUnreachableServiceStartsTheClient();
    void aServiceThatNeverAnswersStartsTheClientOnce();
    void anAnswerThatComesWhileTheTimeOutEndsTheRunStartsNoSecondClient();
    void anAnswerThatKeepsTheWorkerBusyStartsTheClientInTime_data();
    void anAnswerThatKeepsTheWorkerBusyStartsTheClientInTime();
    void aHeadWithoutEndStartsTheClientInTime_data();
    void aHeadWithoutEndStartsTheClientInTime();
    void aRunningClientIsStartedAgainWithoutACheck();
    void aRunningClientIsHandedTheMeetingLink();
    void aMeetingLinkReachesAClientThatDoesNotRun();
};

void TestRelaunch::theCheckIsOnePostWithTheInstalledVersion()
{
    UpdaterRun run;
    run.Configure();
    run.AnswerCheck({{QStringLiteral("latestVersion"), QStringLiteral("1.0.0")}});
    QCOMPARE(run.Run(), 0);

    const auto requests = run.server.Requests();
    QCOMPARE(requests.size(), 1);
    const auto &request = requests.first();
    QVERIFY(request.https);
    QCOMPARE(request.method, QByteArray("POST"));
    QCOMPARE(request.target, QByteArray("/check"));
    QCOMPARE(request.Header("X-Request-From"), QByteArray("internal"));
    QCOMPARE(request.Header("Content-Type"), QByteArray("application/json;charset=UTF-8"));
    QCOMPARE(request.body,
             QByteArray(R"({"clientVersion":"1.0.0","deviceType":"Windows","platform":6})"));
}

void TestRelaunch::nothingNewStartsTheClient_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("reason");
    QTest::newRow("the same version")
        << QByteArray(R"({"code":"000000","biz":{"latestVersion":"1.0.0"}})") << QString();
    QTest::newRow("no update")
        << QByteArray(R"({"code":"000000","biz":{"latestVersion":"2.0.0","update":"0"}})")
        << LogLine::MarkerMissing();
    QTest::newRow("an error code")
        << QByteArray(R"({"code":"000001"})") << LogLine::AnswerRefused(QStringLiteral("000001"));
    QTest::newRow("an empty object") << QByteArray("{}") << LogLine::AnswerRefused(QString());
    QTest::newRow("a numeric code")
        << QByteArray(R"({"code":0})") << LogLine::AnswerRefused(QString());
    QTest::newRow("not JSON") << QByteArray("<html>") << LogLine::AnswerDamaged(5);
}

void TestRelaunch::nothingNewStartsTheClient()
{
    QFETCH(QByteArray, body);
    QFETCH(QString, reason);
    UpdaterRun run;
    run.Configure();
    run.server.Script(QStringLiteral("/check"),
                      QJsonObject{{QStringLiteral("body"), QString::fromUtf8(body)}});
    QCOMPARE(run.Run(), 0);
    QVERIFY(run.client.WaitForCalls(1));
    QCOMPARE(run.client.Calls(), QVector<QStringList>{{QStringLiteral("-autoupdate")}});

    QStringList log{run.ConfigurationLine()};
    log.append(LogLine::Answer(LogLine::Quoted(QString::fromUtf8(body))));
    if (!reason.isEmpty())
        log.append(reason);
    log.append(LogLine::Starting(run.ClientName()));
    QCOMPARE(run.Log(), log);
}

void TestRelaunch::aSilencedVersionStartsTheClient()
{
    UpdaterRun run;
    run.Configure({{QStringLiteral("noRemind"), 1},
                   {QStringLiteral("noRemindVersion"), QStringLiteral("2.0.0")}});
    run.AnswerCheck({{QStringLiteral("latestVersion"), QStringLiteral("2.0.0")},
                     {QStringLiteral("update"), QStringLiteral("1")}});
    QCOMPARE(run.Run(), 0);
    QVERIFY(run.client.WaitForCalls(1));
    QCOMPARE(run.client.Calls(), QVector<QStringList>{{QStringLiteral("-autoupdate")}});
    QVERIFY(run.Log().filter(QStringLiteral("update fileName")).isEmpty());
}

void TestRelaunch::anUnreachableServiceStartsTheClient()
{
    UpdaterRun run;
    // Nobody listens on the discard port.
    run.Configure(
        {{QStringLiteral("updateCheckUrl"), QStringLiteral("https://127.0.0.1:9/check")}});
    QCOMPARE(run.Run(), 0);
    QVERIFY(run.client.WaitForCalls(1));
    const QStringList log = run.Log();
    QCOMPARE(log.size(), 3);
    QCOMPARE(log.at(1), LogLine::Starting(run.ClientName()));
    QCOMPARE(log.at(2), LogLine::CheckFailed(QStringLiteral("ConnectionRefusedError")));
}

void TestRelaunch::aServiceThatNeverAnswersStartsTheClientOnce()
{
    UpdaterRun run;
    run.Configure();
    run.server.Script(QStringLiteral("/check"),
                      QJsonObject{{QStringLiteral("hold"), QStringLiteral("before")}});
    QCOMPARE(run.Run(), 0);
    QVERIFY(run.client.WaitForCalls(1));
    QCOMPARE(run.Log(), (QStringList{run.ConfigurationLine(), LogLine::CheckTimedOut(),
                                     LogLine::Starting(run.ClientName())}));
    QCOMPARE(run.client.Calls().size(), 1);
}

void TestRelaunch::anAnswerThatComesWhileTheTimeOutEndsTheRunStartsNoSecondClient()
{
    UpdaterRun run;
    run.Configure();
    run.server.Script(QStringLiteral("/check"),
                      QJsonObject{{QStringLiteral("hold"), QStringLiteral("before")},
                                  {QStringLiteral("body"), QStringLiteral("{}")}});
    run.Start();
    // The worker now waits half a second before it starts the client.
    QVERIFY(run.WaitForLog(LogLine::CheckTimedOut()));
    QVERIFY(run.server.Release(QStringLiteral("/check")));
    QCOMPARE(run.WaitForEnd(), 0);
    QVERIFY(run.client.WaitForCalls(1));
    QCOMPARE(run.Log().filter(QStringLiteral("starting...")).size(), 1);
    QVERIFY(run.Log().filter(QStringLiteral("Service Jsondata")).isEmpty());
    QCOMPARE(run.client.Calls().size(), 1);
}

namespace
{

/// A service on 127.0.0.1 that answers with @p head and then with the same letter endlessly.
class EndlessService : public QTcpServer
{
public:
    explicit EndlessService(QByteArray head) : m_head(std::move(head))
    {
        if (!listen(QHostAddress::LocalHost))
            qFatal("no port to listen on: %s", qPrintable(errorString()));
        connect(this, &QTcpServer::newConnection, this, [this] { Serve(nextPendingConnection()); });
    }

    QString Url() const { return QStringLiteral("http://127.0.0.1:%1/check").arg(serverPort()); }

    /// When the request came, in milliseconds since the epoch; 0 before that.
    qint64 RequestMs() const { return m_requestMs; }

private:
    void Serve(QTcpSocket *socket)
    {
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QTcpSocket::bytesWritten, socket, [socket] {
            if (socket->bytesToWrite() == 0)
                socket->write(QByteArray(65536, 'a'));
        });
        connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
            if (!socket->readAll().isEmpty() && m_requestMs == 0) {
                m_requestMs = QDateTime::currentMSecsSinceEpoch();
                socket->write(m_head);
            }
        });
    }

    QByteArray m_head;
    qint64 m_requestMs = 0;
};

/// Verifies that the client starts within 15 seconds of the request and that the updater ends
/// within 2 more seconds.
void VerifyClientAndEndInTime(UpdaterRun &run, qint64 requestMs)
{
    QVERIFY(run.client.WaitForCalls(1, 60000));
    const qint64 clientMs = QDateTime::currentMSecsSinceEpoch();
    QCOMPARE(run.WaitForEnd(), 0);
    const qint64 endMs = QDateTime::currentMSecsSinceEpoch();
    QVERIFY2(clientMs - requestMs <= 15000, qPrintable(QString::number(clientMs - requestMs)));
    QVERIFY2(endMs - clientMs <= 2000, qPrintable(QString::number(endMs - clientMs)));
}

} // namespace

void TestRelaunch::aHeadWithoutEndStartsTheClientInTime_data()
{
    QTest::addColumn<QByteArray>("head");
    QTest::newRow("status line") << QByteArray("HTTP/1.1 200 ");
    QTest::newRow("header line") << QByteArray("HTTP/1.1 200 OK\r\nX-Line: ");
    QTest::newRow("chunk extension")
        << QByteArray("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5;a=");
}

void TestRelaunch::aHeadWithoutEndStartsTheClientInTime()
{
    QFETCH(QByteArray, head);
    UpdaterRun run;
    const EndlessService service(head);
    run.Configure({{QStringLiteral("updateCheckUrl"), service.Url()}});
    run.Start();
    QVERIFY(QTest::qWaitFor([&] { return service.RequestMs() != 0; }, 30000));
    // Runs the event loop, which the service needs.
    QVERIFY(run.WaitForLog(LogLine::Starting(run.ClientName())));
    VerifyClientAndEndInTime(run, service.RequestMs());
    QVERIFY(run.Log().contains(LogLine::CheckTimedOut()));
}

void TestRelaunch::anAnswerThatKeepsTheWorkerBusyStartsTheClientInTime_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("count");
    // Qt needs quadratic time for these.
    QTest::newRow("header lines") << QStringLiteral("X-%1") << 100000;
    QTest::newRow("cookies") << QStringLiteral("Set-Cookie") << 20000;
}

void TestRelaunch::anAnswerThatKeepsTheWorkerBusyStartsTheClientInTime()
{
    QFETCH(QString, name);
    QFETCH(int, count);
    UpdaterRun run;
    run.Configure();
    run.server.Script(QStringLiteral("/check"),
                      QJsonObject{{QStringLiteral("headers"), UpdaterRun::ManyHeaders(name, count)},
                                  {QStringLiteral("body"), QStringLiteral("{}")}});
    run.Start();
    QVERIFY(run.server.WaitForRequests(1));
    VerifyClientAndEndInTime(run, run.server.Requests().first().timeMs);
    QCOMPARE(run.Log().mid(1),
             (QStringList{LogLine::Starting(run.ClientName()), LogLine::CheckStuck()}));

    // The single-instance guard is free for the next run.
    run.AnswerCheck({{QStringLiteral("latestVersion"), QStringLiteral("1.0.0")}});
    QCOMPARE(run.Run(), 0);
    QVERIFY(run.client.WaitForCalls(2));
}

void TestRelaunch::aRunningClientIsStartedAgainWithoutACheck()
{
    UpdaterRun run;
    run.Configure();
    run.client.StartAndStay();
    QCOMPARE(run.Run({QStringLiteral("--profile=two words")}), 0);
    QVERIFY(run.client.WaitForCalls(2));
    QCOMPARE(run.client.Calls().last(), QStringList{QStringLiteral("--profile=two words")});
    QVERIFY(run.server.Requests().isEmpty());
    QCOMPARE(
        run.Log(),
        (QStringList{run.ConfigurationLine(),
                     LogLine::CommandLineParameter(QStringLiteral("--profile=two words")),
                     LogLine::AlreadyRuns(run.ClientName()), LogLine::Starting(run.ClientName())}));
}

void TestRelaunch::aRunningClientIsHandedTheMeetingLink()
{
    UpdaterRun run;
    run.Configure();
    run.client.StartAndStay();
    QCOMPARE(run.Run({QStringLiteral("-noremid"), QStringLiteral("qorb-meeting://abc?d=e f")}), 0);
    QVERIFY(run.client.WaitForCalls(2));
    QCOMPARE(run.client.Calls().last(), QStringList{QStringLiteral("--url=abc?d=e f")});
    QVERIFY(run.server.Requests().isEmpty());
    QCOMPARE(run.Log().last(), LogLine::AlreadyRuns(run.ClientName()));
}

void TestRelaunch::aMeetingLinkReachesAClientThatDoesNotRun()
{
    UpdaterRun run;
    run.Configure();
    run.AnswerCheck({{QStringLiteral("latestVersion"), QStringLiteral("1.0.0")}});
    QCOMPARE(run.Run({QStringLiteral("qorb-meeting://abc"), QStringLiteral("--other")}), 0);
    QVERIFY(run.client.WaitForCalls(1));
    QCOMPARE(run.client.Calls().first(),
             (QStringList{QStringLiteral("--other"), QStringLiteral("--url=abc")}));
}

QTEST_GUILESS_MAIN(TestRelaunch)
#include "tst_relaunch.moc"
