#include "config/global.h"
#include "tests/net/workerrun.h"

#include <QDir>
#include <QTest>

namespace
{

/// The address of a port of this machine that nobody listens to.
QString DeadUrl()
{
    return QStringLiteral("http://127.0.0.1:1/check");
}

} // namespace

/// Checks that end with the client started as it is.
class tst_HttpDownLoadFile_NoOffer : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { m_server = std::make_unique<ScriptedServer>(); }
    void cleanupTestCase() { m_server.reset(); }

    void runningClientTakesOverWithoutACheck_data();
    void runningClientTakesOverWithoutACheck();
    void clientIsStartedUnchanged_data();
    void clientIsStartedUnchanged();
    void lostConnectionStartsTheClient_data();
    void lostConnectionStartsTheClient();
    void clientGetsTheArgumentsThatAreNotForTheUpdater();

private:
    std::unique_ptr<ScriptedServer> m_server;
};

void tst_HttpDownLoadFile_NoOffer::runningClientTakesOverWithoutACheck_data()
{
    QTest::addColumn<QString>("argument");
    QTest::addColumn<QString>("handedOver");
    QTest::newRow("started again") << QStringLiteral("-tray") << QStringLiteral("-tray");
    QTest::newRow("handed a meeting link")
        << QStringLiteral("qorb-meeting://abc") << QStringLiteral("--url=abc");
}

void tst_HttpDownLoadFile_NoOffer::runningClientTakesOverWithoutACheck()
{
    QFETCH(QString, argument);
    QFETCH(QString, handedOver);
    UpdateScene scene(*m_server);
    StandIn running(scene.client.Path());
    running.StartAndStay();
    Global::instance.cmdLineArgs = QStringList(argument);

    WorkerRun run;
    QVERIFY(RunUntilQuit());
    run.Shutdown();
    QVERIFY(scene.client.WaitForCalls(2));
    QCOMPARE(scene.client.Calls(), QVector<QStringList>({QStringList(), {handedOver}}));
    QCOMPARE(m_server->Requests().size(), 0);
}

void tst_HttpDownLoadFile_NoOffer::clientIsStartedUnchanged_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QJsonObject>("step");
    QTest::addColumn<QStringList>("linesBefore");
    QTest::addColumn<QStringList>("linesBehind");

    const QStringList none;
    const auto error = [](const char *name) {
        return QStringList(QStringLiteral("[DEBUG] Network Recv Back Error: QNetworkReply::%1")
                               .arg(QLatin1String(name)));
    };
    const auto fails = [&](const char *tag, const QJsonObject &step, const char *name) {
        QTest::newRow(tag) << QString() << step << none << error(name);
    };
    QTest::newRow("nobody listens")
        << DeadUrl() << QJsonObject() << none << error("ConnectionRefusedError");
    QTest::newRow("no address") << QStringLiteral("") << QJsonObject() << none
                                << error("ProtocolUnknownError");
    fails("not found", Sends(Offer(), R"("status":404)"), "ContentNotFoundError");
    fails("server error", Sends(Offer(), R"("status":500)"), "InternalServerError");

    const QString notThere = QStringLiteral("[INFO] isShowUpdataInfo.txt not exists");
    const auto answers = [&](const char *tag, const QJsonObject &step, const QStringList &lines) {
        QTest::newRow(tag) << QString() << step << lines << none;
    };
    const auto says = [](const char *line) { return QStringList(QString::fromUtf8(line)); };
    answers("not JSON", Sends("<html>"), says("[DEBUG]  Recv Services Jsondata Error: 5"));
    answers("empty object", Sends("{}"), says("[DEBUG] Services Jsondata Code Error: \"\""));
    answers("code is a number", Sends(R"({"code":0})"),
            says("[DEBUG] Services Jsondata Code Error: \"\""));
    answers("error code", Sends(R"({"code":"100001","desc":"no"})"),
            says("[DEBUG] Services Jsondata Code Error: \"100001\""));
    answers("same version", Sends(Offer(R"("latestVersion":"1.0.0")")), none);
    answers("no update", Sends(Offer(R"("update":"0")")), QStringList(notThere));
    answers("redirect", Json(R"({"status":302,"headers":[["Location","/elsewhere"]],"body":""})"),
            says("[DEBUG]  Recv Services Jsondata Error: 5"));
    answers("no content", Json(R"({"status":204})"),
            says("[DEBUG]  Recv Services Jsondata Error: 5"));
}

void tst_HttpDownLoadFile_NoOffer::clientIsStartedUnchanged()
{
    QFETCH(QString, url);
    QFETCH(QJsonObject, step);
    QFETCH(QStringList, linesBefore);
    QFETCH(QStringList, linesBehind);
    const UpdateScene scene(*m_server);
    if (!step.isEmpty())
        m_server->Script(QStringLiteral("/check"), step);
    m_server->Script(QStringLiteral("/elsewhere"), Sends(Offer()));
    if (!url.isNull())
        Global::instance.updateCheckUrl = url;

    WorkerRun run;
    QVERIFY(RunUntilQuit());
    run.Shutdown();

    QVERIFY(scene.client.WaitForCalls(1));
    QCOMPARE(scene.client.Calls(),
             QVector<QStringList>{QStringList(QStringLiteral("-autoupdate"))});
    QStringList log = scene.Log();
    if (linesBehind.isEmpty())
        log = scene.LogAfterAnswer();
    QCOMPARE(log, linesBefore + QStringList(scene.ClientStarts()) + linesBehind);
    QCOMPARE(run.Announced(), QStringList());
    for (const ScriptedServer::Request &request : m_server->Requests())
        QCOMPARE(request.target, QByteArray("/check"));
    QVERIFY(!QDir(scene.DownloadFolder()).exists());
}

void tst_HttpDownLoadFile_NoOffer::lostConnectionStartsTheClient_data()
{
    QTest::addColumn<QByteArray>("end");
    QTest::newRow("closed before the first byte") << QByteArray(R"("sendBytes":0,"then":"close")");
    QTest::newRow("closed in the middle") << QByteArray(R"("sendBytes":100,"then":"close")");
    QTest::newRow("reset in the middle") << QByteArray(R"("sendBytes":100,"then":"reset")");
}

void tst_HttpDownLoadFile_NoOffer::lostConnectionStartsTheClient()
{
    QFETCH(QByteArray, end);
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(Offer(), end));

    WorkerRun run;
    QVERIFY(RunUntilQuit());
    run.Shutdown();
    QVERIFY(scene.client.WaitForCalls(1));
    QCOMPARE(scene.client.Calls().size(), 1);
    // The framework takes a lost connection for an error or for the end of the answer, as the race
    // between its last data and its end goes. Neither is an offer.
    QCOMPARE(scene.Log().count(scene.ClientStarts()), 1);
    const QString error =
        QStringLiteral("[DEBUG] Network Recv Back Error: QNetworkReply::RemoteHostClosedError");
    QVERIFY(scene.Log().last() == error || scene.Log().last() == scene.ClientStarts());
    QCOMPARE(run.Announced(), QStringList());
}

void tst_HttpDownLoadFile_NoOffer::clientGetsTheArgumentsThatAreNotForTheUpdater()
{
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends("{}"));
    Global::instance.cmdLineArgs =
        QStringList({QStringLiteral("qorb-meeting://abc"), QStringLiteral("-noremid"),
                     QStringLiteral("-tray"), QStringLiteral("-immediately")});

    WorkerRun run;
    QVERIFY(RunUntilQuit());
    run.Shutdown();
    QVERIFY(scene.client.WaitForCalls(1));
    QCOMPARE(scene.client.Calls(),
             QVector<QStringList>({{QStringLiteral("-tray"), QStringLiteral("--url=abc")}}));
}

QTEST_MAIN(tst_HttpDownLoadFile_NoOffer)
#include "tst_httpdownloadfile_nooffer.moc"
