// SPDX-License-Identifier: MIT
#include "config/global.h"
#include "tests/support/loglines.h"
#include "tests/support/workerrun.h"

#include <QDir>
#include <QTest>

/// The path of an offered package.
class TestHttpDownLoadFilePackagePath : public QObject
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

void TestHttpDownLoadFilePackagePath::packageIsNamedAfterItsAddress_data()
{
    QTest::addColumn<QByteArray>("url");
    QTest::addColumn<QString>("logged");
    const auto row = [](const char *tag, const char *url, const char *logged) {
        QTest::newRow(tag) << QByteArray(url) << QString::fromUtf8(logged);
    };
    row("usual", "https://packages.example/a/Package-2.1.3.zip", "Package-2.1.3.zip");
    row("ends with a slash", "https://packages.example/a/", "");
    row("Chinese", u8"https://packages.example/安装包.zip", u8"安装包.zip");
}

void TestHttpDownLoadFilePackagePath::packageIsNamedAfterItsAddress()
{
    QFETCH(QByteArray, url);
    QFETCH(QString, logged);
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(Offer("\"latestVersionUrl\":\"" + url + '"')));
    QVERIFY(!QDir(scene.DownloadFolder()).exists());

    WorkerRun run;
    QVERIFY(run.RunUntilPrompt());
    QCOMPARE(scene.LogAfterAnswer().value(1),
             LogLine::PackageFile(scene.DownloadFolder() + QLatin1Char('/') + logged));
    QVERIFY(QDir(scene.DownloadFolder()).exists());
    QCOMPARE(m_server->Requests().size(), 1);
}

void TestHttpDownLoadFilePackagePath::nameThatIsNoHarmlessFileStartsTheClient_data()
{
    QTest::addColumn<QString>("name");
    const auto row = [](const char *tag, const char *name) {
        QTest::newRow(tag) << QString::fromUtf8(name);
    };
    row("batch file", "setup.bat");
    row("parent folder", "..");
    row("back-slash", R"(..\\evil.zip)");
    row("control character", R"(Package\u0007.zip)");
    row("reversed direction", R"(Package\u202epiz.exe)");
}

void TestHttpDownLoadFilePackagePath::nameThatIsNoHarmlessFileStartsTheClient()
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
    QCOMPARE(log.at(1), LogLine::Starting(scene.ClientName()));
    QVERIFY2(log.at(2).startsWith(LogLine::PackageNameRefusedBegin()), qPrintable(log.at(2)));
    QVERIFY(!QDir(scene.DownloadFolder()).exists());
    QCOMPARE(run.Announced(), QStringList());
}

void TestHttpDownLoadFilePackagePath::downloadFolderIsNamedAfterTheClient_data()
{
    QTest::addColumn<QString>("appName");
    QTest::addColumn<QString>("folder");
    QTest::newRow("with blanks") << QStringLiteral("My Client.exe")
                                 << QStringLiteral("/AppData/Local/My Client");
    QTest::newRow("nothing before the dot")
        << QStringLiteral(".exe") << QStringLiteral("/AppData/Local/");
}

void TestHttpDownLoadFilePackagePath::downloadFolderIsNamedAfterTheClient()
{
    QFETCH(QString, appName);
    QFETCH(QString, folder);
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(Offer()));
    Global::instance.appName = appName;

    WorkerRun run;
    QVERIFY(run.RunUntilPrompt());
    const QString path = scene.Home() + folder;
    QCOMPARE(scene.LogAfterAnswer().value(1),
             LogLine::PackageFile(path + QStringLiteral("/Package.zip")));
    QVERIFY(QDir(path).exists());
}

QTEST_MAIN(TestHttpDownLoadFilePackagePath)
#include "tst_httpdownloadfile_packagepath.moc"
