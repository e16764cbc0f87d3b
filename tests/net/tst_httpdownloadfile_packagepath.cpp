#include "config/global.h"
#include "tests/net/workerrun.h"

#include <QDir>
#include <QTest>

/// Where the package of an offer is going to be put.
class tst_HttpDownLoadFile_PackagePath : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { m_server = std::make_unique<ScriptedServer>(); }
    void cleanupTestCase() { m_server.reset(); }

    void packageIsNamedAfterItsAddress_data();
    void packageIsNamedAfterItsAddress();
    void downloadFolderIsNamedAfterTheClient_data();
    void downloadFolderIsNamedAfterTheClient();

private:
    std::unique_ptr<ScriptedServer> m_server;
};

void tst_HttpDownLoadFile_PackagePath::packageIsNamedAfterItsAddress_data()
{
    QTest::addColumn<QByteArray>("url");
    QTest::addColumn<QString>("logged");
    const auto row = [](const char *tag, const char *url, const char *logged) {
        QTest::newRow(tag) << QByteArray(url) << QString::fromUtf8(logged);
    };
    row("usual", "https://packages.example/a/Package-2.1.3.zip", "Package-2.1.3.zip");
    row("nothing but a name", "Package.zip", "Package.zip");
    row("ends with a slash", "https://packages.example/a/", "");
    row("empty", "", "");
    row("query is part of it", "https://packages.example/p.zip?x=1&y=2", "p.zip?x=1&y=2");
    row("slash in the query", "https://packages.example/p.zip?next=/q.zip", "q.zip");
    row("stays encoded", "https://packages.example/a%20b%2Fc.zip", "a%20b%2Fc.zip");
    row("Chinese", u8"https://packages.example/安装包.zip", u8"安装包.zip");
    row("back-slash stays", R"(https://packages.example/..\\evil.zip)", R"(..\\evil.zip)");
    row("parent folder stays", "https://packages.example/..", "..");
}

void tst_HttpDownLoadFile_PackagePath::packageIsNamedAfterItsAddress()
{
    QFETCH(QByteArray, url);
    QFETCH(QString, logged);
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(Offer("\"latestVersionUrl\":\"" + url + '"')));
    QVERIFY(!QDir(scene.DownloadFolder()).exists());

    WorkerRun run;
    QVERIFY(run.RunUntilPrompt());
    QCOMPARE(
        scene.LogAfterAnswer().value(1),
        QStringLiteral("[INFO] update fileName:  \"%1/%2\"").arg(scene.DownloadFolder(), logged));
    QVERIFY(QDir(scene.DownloadFolder()).exists());
    QCOMPARE(m_server->Requests().size(), 1);
}

void tst_HttpDownLoadFile_PackagePath::downloadFolderIsNamedAfterTheClient_data()
{
    QTest::addColumn<QString>("appName");
    QTest::addColumn<QString>("folder");
    QTest::newRow("up to the first dot")
        << QStringLiteral("My.Client.exe") << QStringLiteral("/AppData/Local/My");
    QTest::newRow("without a dot")
        << QStringLiteral("MyClient") << QStringLiteral("/AppData/Local/MyClient");
    QTest::newRow("with blanks") << QStringLiteral("My Client.exe")
                                 << QStringLiteral("/AppData/Local/My Client");
    QTest::newRow("Chinese") << QStringLiteral("客户端.exe")
                             << QStringLiteral("/AppData/Local/客户端");
    QTest::newRow("nothing before the dot")
        << QStringLiteral(".exe") << QStringLiteral("/AppData/Local/");
}

void tst_HttpDownLoadFile_PackagePath::downloadFolderIsNamedAfterTheClient()
{
    QFETCH(QString, appName);
    QFETCH(QString, folder);
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(Offer()));
    Global::instance.appName = appName;

    WorkerRun run;
    QVERIFY(run.RunUntilPrompt());
    const QString path = scene.home.Home() + folder;
    QCOMPARE(scene.LogAfterAnswer().value(1),
             QStringLiteral("[INFO] update fileName:  \"%1/Package.zip\"").arg(path));
    QVERIFY(QDir(path).exists());
}

QTEST_MAIN(tst_HttpDownLoadFile_PackagePath)
#include "tst_httpdownloadfile_packagepath.moc"
