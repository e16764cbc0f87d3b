// SPDX-License-Identifier: MIT
#include "config/global.h"
#include "tests/support/loglines.h"
#include "tests/support/workerrun.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTest>

#include <algorithm>

namespace
{

/// Whether this process has the file open.
bool IsOpen(const QString &path)
{
#ifdef Q_OS_WIN
    // Windows does not rename an open file.
    const QString other = path + QStringLiteral(".other");
    return !QFile::rename(path, other) || !QFile::rename(other, path);
#else
    const QString wanted = QFileInfo(path).canonicalFilePath();
    const QFileInfoList files = QDir(QStringLiteral("/proc/self/fd")).entryInfoList(QDir::Files);
    return std::any_of(files.begin(), files.end(), [&wanted](const QFileInfo &file) {
        return file.canonicalFilePath() == wanted;
    });
#endif
}

} // namespace

/// Downloads that fail.
class TestHttpDownLoadFileDownloadError : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { m_server = std::make_unique<ScriptedServer>(); }
    void cleanupTestCase() { m_server.reset(); }

    void downloadUnderWayHasItsFileOpen();
    void networkErrorIsOnlyLogged_data();
    void networkErrorIsOnlyLogged();
    void lostConnectionIsNoPackage_data();
    void lostConnectionIsNoPackage();
    void redirectIsNotFollowed();
    void untrustedPackageServerIsToldAfterTheStall();

private:
    std::unique_ptr<ScriptedServer> m_server;
};

void TestHttpDownLoadFileDownloadError::downloadUnderWayHasItsFileOpen()
{
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(Offer()));
    m_server->Script(QStringLiteral("/package/4711"), Sends("gone", R"("hold":"headers")"));

    WorkerRun run;
    QVERIFY(run.StartDownload());
    QVERIFY(m_server->WaitForRequests(2));
    QVERIFY(IsOpen(scene.PackagePath()));
}

void TestHttpDownLoadFileDownloadError::networkErrorIsOnlyLogged_data()
{
    QTest::addColumn<QString>("base");
    QTest::addColumn<QJsonObject>("step");
    QTest::addColumn<QString>("error");
    QTest::addColumn<int>("onDisk");

    const auto row = [](const char *tag, const QString &base, const QJsonObject &step,
                        const char *error, int onDisk) {
        QTest::newRow(tag) << base << step << LogLine::DownloadFailed(QLatin1String(error))
                           << onDisk;
    };
    row("nobody listens", QStringLiteral("http://127.0.0.1:1/package/"), Sends(""),
        "ConnectionRefusedError", 0);
    row("untrusted certificate", QStringLiteral("https"), Sends("abc"), "SslHandshakeFailedError",
        0);
    row("unknown scheme", QStringLiteral("qorb://127.0.0.1/package/"), Sends(""),
        "ProtocolUnknownError", 0);
    row("no address", QStringLiteral(""), Sends(""), "ProtocolUnknownError", 0);
    row("not found", QString(), Sends("gone", R"("status":404)"), "ContentNotFoundError", 4);
    row("server error", QString(), Sends("", R"("status":500)"), "InternalServerError", 0);
}

void TestHttpDownLoadFileDownloadError::networkErrorIsOnlyLogged()
{
    QFETCH(QString, base);
    QFETCH(QJsonObject, step);
    QFETCH(QString, error);
    QFETCH(int, onDisk);
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(Offer()));
    m_server->Script(QStringLiteral("/package/4711"), step);
    if (base == QLatin1String("https"))
        Global::instance.updatePackageUrl = m_server->HttpsUrl(QStringLiteral("/package/"));
    else if (!base.isNull())
        Global::instance.updatePackageUrl = base;

    WorkerRun run;
    QVERIFY(run.StartDownload());
    QVERIFY(run.RunUntilLogged(scene, error));
    QVERIFY(!IsOpen(scene.PackagePath()));

    // The time-out handles the rest: its timer keeps running, and the user sees nothing yet.
    const QVector<int> timers = run.Timers();
    QCOMPARE(timers.size(), 1);
    run.Tick(timers.first());
    QCOMPARE(run.Timers(), timers);
    QCOMPARE(scene.LogAfterAnswer().mid(2), QStringList(error));
    QCOMPARE(run.Errors(), QStringList());
    QCOMPARE(run.ProgressButton(), QStringLiteral("Cancel"));
    QCOMPARE(ReadFile(scene.PackagePath()).size(), onDisk);
    run.Shutdown();
    QCOMPARE(scene.client.Calls().size(), 0);
}

void TestHttpDownLoadFileDownloadError::lostConnectionIsNoPackage_data()
{
    QTest::addColumn<QByteArray>("end");
    QTest::newRow("closed before the first byte") << QByteArray(R"("sendBytes":0,"then":"close")");
    QTest::newRow("closed in the middle") << QByteArray(R"("sendBytes":200000,"then":"close")");
    QTest::newRow("reset in the middle") << QByteArray(R"("sendBytes":200000,"then":"reset")");
}

void TestHttpDownLoadFileDownloadError::lostConnectionIsNoPackage()
{
    QFETCH(QByteArray, end);
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(OfferOf(ScriptedServer::Fill(500000))));
    m_server->Script(QStringLiteral("/package/4711"), Json(R"({"fill":500000,)" + end + '}'));

    WorkerRun run;
    QVERIFY(run.StartDownload());
    // Qt reports a lost connection as an error or as the end of the package, depending on timing.
    // The digest detects the latter.
    const QString error = LogLine::DownloadFailed(QStringLiteral("RemoteHostClosedError"));
    QVERIFY(run.RunUntil(
        [&] { return !run.Errors().isEmpty() || scene.log.Messages().contains(error); }));
    if (!run.Errors().isEmpty())
        QCOMPARE(run.Errors(), QStringList(QStringLiteral("File conrrupted, update failed.")));
    QVERIFY(ReadFile(scene.PackagePath()).size() <= 200000);
    QCOMPARE(scene.client.Calls().size(), 0);
}

void TestHttpDownLoadFileDownloadError::redirectIsNotFollowed()
{
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(OfferOf("abc")));
    m_server->Script(
        QStringLiteral("/package/4711"),
        Json(R"({"status":302,"headers":[["Location","/elsewhere"]],"body":"moved"})"));
    m_server->Script(QStringLiteral("/elsewhere"), Sends("abc"));

    WorkerRun run;
    QVERIFY(run.StartDownload());
    QVERIFY(run.RunUntilError());
    QCOMPARE(run.Errors(), QStringList(QStringLiteral("File conrrupted, update failed.")));
    QCOMPARE(m_server->Requests().size(), 2);
    QCOMPARE(m_server->Requests().last().target, QByteArray("/package/4711"));
}

void TestHttpDownLoadFileDownloadError::untrustedPackageServerIsToldAfterTheStall()
{
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(OfferOf("abc")));
    m_server->Script(QStringLiteral("/package/4711"), Sends("abc"));
    Global::instance.updatePackageUrl = m_server->HttpsUrl(QStringLiteral("/package/"));
    const QStringList failed({LogLine::DownloadFailed(QStringLiteral("SslHandshakeFailedError")),
                              LogLine::DownloadTimedOut()});

    WorkerRun run;
    QVERIFY(run.StartDownload());
    QVERIFY(run.RunUntilError(1, 30000));
    const QString text = QStringLiteral("Installation failed. Network exception, please check.");
    QCOMPARE(run.Errors(), QStringList(text));
    QCOMPARE(run.ProgressLine(), text);
    QCOMPARE(run.ProgressButton(), QStringLiteral("Retry"));
    QCOMPARE(scene.LogAfterAnswer().mid(2), failed);
    QCOMPARE(run.Timers(), QVector<int>());
    QCOMPARE(m_server->Requests().size(), 1);

    // The user fixes the certificate, here by using none, and retries.
    Global::instance.updatePackageUrl = m_server->HttpUrl(QStringLiteral("/package/"));
    run.PressProgressButton();
    QVERIFY(run.RunUntilLogged(scene, Verified("abc")));
    QCOMPARE(ReadFile(scene.PackagePath()), QByteArray("abc"));
    QCOMPARE(run.Errors().size(), 1);
    QCOMPARE(scene.LogAfterAnswer().mid(2), failed + QStringList(Verified("abc")));
}

QTEST_MAIN(TestHttpDownLoadFileDownloadError)
#include "tst_httpdownloadfile_downloaderror.moc"
