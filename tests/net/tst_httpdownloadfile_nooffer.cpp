// SPDX-License-Identifier: MIT
#include "config/global.h"
#include "tests/support/loglines.h"
#include "tests/support/workerrun.h"

#include <QDir>
#include <QTest>

namespace
{

/// An address at which nobody listens.
QString DeadUrl()
{
    return QStringLiteral("http://127.0.0.1:1/check");
}

} // namespace

/// Checks that start the client without an update.
class TestHttpDownLoadFileNoOffer : public QObject
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

void TestHttpDownLoadFileNoOffer::runningClientTakesOverWithoutACheck_data()
{
    QTest::addColumn<QString>("argument");
    QTest::addColumn<QString>("handedOver");
    QTest::newRow("started again") << QStringLiteral("-tray") << QStringLiteral("-tray");
    QTest::newRow("handed a meeting link")
        << QStringLiteral("qorb-meeting://abc") << QStringLiteral("--url=abc");
}

void TestHttpDownLoadFileNoOffer::runningClientTakesOverWithoutACheck()
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

void TestHttpDownLoadFileNoOffer::clientIsStartedUnchanged_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QJsonObject>("step");
    QTest::addColumn<QStringList>("linesBefore");
    QTest::addColumn<QStringList>("linesBehind");

    const QStringList none;
    const auto error = [](const char *name) {
        return QStringList(LogLine::CheckFailed(QLatin1String(name)));
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

    const auto answers = [&](const char *tag, const QJsonObject &step, const QStringList &lines) {
        QTest::newRow(tag) << QString() << step << lines << none;
    };
    const QStringList notJson(LogLine::AnswerDamaged(5));
    answers("not JSON", Sends("<html>"), notJson);
    answers("error code", Sends(R"({"code":"100001","desc":"no"})"),
            QStringList(LogLine::AnswerRefused(QStringLiteral("100001"))));
    answers("same version", Sends(Offer(R"("latestVersion":"1.0.0")")), none);
    answers("no update", Sends(Offer(R"("update":"0")")), QStringList(LogLine::MarkerMissing()));
    answers("redirect", Json(R"({"status":302,"headers":[["Location","/elsewhere"]],"body":""})"),
            notJson);
    answers("no content", Json(R"({"status":204})"), notJson);
}

void TestHttpDownLoadFileNoOffer::clientIsStartedUnchanged()
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
    QCOMPARE(log, linesBefore + QStringList(LogLine::Starting(scene.ClientName())) + linesBehind);
    QCOMPARE(run.Announced(), QStringList());
    for (const ScriptedServer::Request &request : m_server->Requests())
        QCOMPARE(request.target, QByteArray("/check"));
    QVERIFY(!QDir(scene.DownloadFolder()).exists());
}

void TestHttpDownLoadFileNoOffer::lostConnectionStartsTheClient_data()
{
    QTest::addColumn<QByteArray>("end");
    QTest::newRow("closed before the first byte") << QByteArray(R"("sendBytes":0,"then":"close")");
    QTest::newRow("closed in the middle") << QByteArray(R"("sendBytes":100,"then":"close")");
    QTest::newRow("reset in the middle") << QByteArray(R"("sendBytes":100,"then":"reset")");
}

void TestHttpDownLoadFileNoOffer::lostConnectionStartsTheClient()
{
    QFETCH(QByteArray, end);
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(Offer(), end));

    WorkerRun run;
    QVERIFY(RunUntilQuit());
    run.Shutdown();
    QVERIFY(scene.client.WaitForCalls(1));
    QCOMPARE(scene.client.Calls().size(), 1);
    // Qt reports a lost connection as an error or as the end of the answer, depending on timing.
    // Neither is an offer.
    QCOMPARE(scene.Log().count(LogLine::Starting(scene.ClientName())), 1);
    const QString error = LogLine::CheckFailed(QStringLiteral("RemoteHostClosedError"));
    QVERIFY(scene.Log().last() == error ||
            scene.Log().last() == LogLine::Starting(scene.ClientName()));
    QCOMPARE(run.Announced(), QStringList());
}

void TestHttpDownLoadFileNoOffer::clientGetsTheArgumentsThatAreNotForTheUpdater()
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

QTEST_MAIN(TestHttpDownLoadFileNoOffer)
#include "tst_httpdownloadfile_nooffer.moc"
