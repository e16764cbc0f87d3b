// SPDX-License-Identifier: MIT
#include "net/httpdownloadfile.h"
#include "tests/support/loglines.h"
#include "tests/support/workerrun.h"

#include <QTest>

/// Servers that ask for credentials. Windows would send those of the user without asking, so no
/// request may carry any.
class TestHttpDownLoadFileChallenge : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { m_server = std::make_unique<ScriptedServer>(); }
    void cleanupTestCase() { m_server.reset(); }

    void checkIsSentOnceAndWithoutCredentials_data() { AddChallenges(); }
    void checkIsSentOnceAndWithoutCredentials();
    void packageIsRequestedOnceAndWithoutCredentials_data() { AddChallenges(); }
    void packageIsRequestedOnceAndWithoutCredentials();

private:
    static void AddChallenges();
    void Challenge(const QString &path);
    void VerifyOnlyRequest(const QByteArray &target);

    std::unique_ptr<ScriptedServer> m_server;
};

void TestHttpDownLoadFileChallenge::AddChallenges()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("challenge");
    QTest::addColumn<QString>("error");
    const auto row = [](const char *name, const char *challenge) {
        QTest::addRow("401 %s", name) << 401 << QString::fromLatin1(challenge)
                                      << QStringLiteral("AuthenticationRequiredError");
        QTest::addRow("407 %s", name) << 407 << QString::fromLatin1(challenge)
                                      << QStringLiteral("ProxyAuthenticationRequiredError");
    };
    row("Basic", "Basic realm=\"updates\"");
    row("Digest", R"(Digest realm="updates", nonce="4711", qop="auth", algorithm=MD5)");
    row("NTLM", "NTLM");
    row("Negotiate", "Negotiate");
    row("NTLM, second step", "NTLM TlRMTVNTUAACAAAAAAAAADgAAAABAoECAAAAAAAAAAA=");
}

void TestHttpDownLoadFileChallenge::Challenge(const QString &path)
{
    QFETCH(int, status);
    QFETCH(QString, challenge);
    const QString header =
        status == 401 ? QStringLiteral("WWW-Authenticate") : QStringLiteral("Proxy-Authenticate");
    m_server->Script(
        path, QJsonObject{{QStringLiteral("status"), status},
                          {QStringLiteral("headers"), QJsonArray{QJsonArray{header, challenge}}}});
}

void TestHttpDownLoadFileChallenge::VerifyOnlyRequest(const QByteArray &target)
{
    int count = 0;
    for (const ScriptedServer::Request &request : m_server->Requests()) {
        QVERIFY(request.Header("Authorization").isNull());
        QVERIFY(request.Header("Proxy-Authorization").isNull());
        if (request.target == target)
            ++count;
    }
    QCOMPARE(count, 1);
}

void TestHttpDownLoadFileChallenge::checkIsSentOnceAndWithoutCredentials()
{
    QFETCH(QString, error);
    const UpdateScene scene(*m_server);
    Challenge(QStringLiteral("/check"));

    WorkerRun run;
    QVERIFY(RunUntilQuit());
    run.Shutdown();
    QVERIFY(scene.client.WaitForCalls(1));
    QCOMPARE(scene.client.Calls().size(), 1);
    QCOMPARE(scene.Log(),
             QStringList({LogLine::Starting(scene.ClientName()), LogLine::CheckFailed(error)}));
    VerifyOnlyRequest("/check");
}

void TestHttpDownLoadFileChallenge::packageIsRequestedOnceAndWithoutCredentials()
{
    QFETCH(QString, error);
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(Offer()));
    Challenge(QStringLiteral("/package/4711"));

    WorkerRun run;
    QVERIFY(run.StartDownload());
    QVERIFY(run.RunUntilLogged(scene, LogLine::DownloadFailed(error)));
    run.Shutdown();
    VerifyOnlyRequest("/package/4711");
    QCOMPARE(scene.client.Calls().size(), 0);
}

QTEST_MAIN(TestHttpDownLoadFileChallenge)
#include "tst_httpdownloadfile_challenge.moc"
