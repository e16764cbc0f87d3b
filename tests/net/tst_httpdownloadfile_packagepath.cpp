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
    void nameThatIsNoHarmlessFileStartsTheClient_data();
    void nameThatIsNoHarmlessFileStartsTheClient();
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
    row("slash in the query", "https://packages.example/p.zip?next=/q.zip", "q.zip");
    row("stays encoded", "https://packages.example/a%20b%2Fc.zip", "a%20b%2Fc.zip");
    row("Chinese", u8"https://packages.example/安装包.zip", u8"安装包.zip");
    row("batch file in the middle", "https://packages.example/setup.bat.exe", "setup.bat.exe");
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

void tst_HttpDownLoadFile_PackagePath::nameThatIsNoHarmlessFileStartsTheClient_data()
{
    QTest::addColumn<QString>("name");
    const auto row = [](const char *tag, const char *name) {
        QTest::newRow(tag) << QString::fromUtf8(name);
    };
    row("batch file", "setup.bat");
    row("command file", "setup.cmd");
    row("command file as Windows keeps it", "Setup.CMD. ");
    row("device", "NUL");
    row("device with an extension", "com1.zip");
    row("parent folder", "..");
    row("folder itself", ". ");
    row("back-slash", R"(..\\evil.zip)");
    row("drive", "C:evil.exe");
    row("stream of a file", "Package.zip:hidden");
    row("query", "p.zip?x=1&y=2");
    row("control character", R"(Package\u0007.zip)");
    row("reversed direction", R"(Package\u202epiz.exe)");
}

void tst_HttpDownLoadFile_PackagePath::nameThatIsNoHarmlessFileStartsTheClient()
{
    QFETCH(QString, name);
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"),
                     Sends(Offer(R"("updateType":0,"latestVersionUrl":"https://packages.example/)" +
                                 name.toUtf8() + '"')));

    WorkerRun run;
    QVERIFY(RunUntilQuit());
    run.Shutdown();
    QVERIFY(scene.client.WaitForCalls(1));
    const QStringList log = scene.LogAfterAnswer();
    QCOMPARE(log.size(), 3);
    QCOMPARE(log.at(1), scene.ClientStarts());
    QVERIFY2(log.at(2).startsWith(QLatin1String("[DEBUG] package name cannot be used: \"")),
             qPrintable(log.at(2)));
    QVERIFY(!QDir(scene.DownloadFolder()).exists());
    QCOMPARE(run.Announced(), QStringList());
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
