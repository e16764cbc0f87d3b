// SPDX-License-Identifier: MIT
#include "config/global.h"
#include "net/httpdownloadfile.h"
#include "tests/support/loglines.h"
#include "tests/support/workerrun.h"
#include "tests/support/zipmaker.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QTest>

namespace
{

const QByteArray kEmptyMd5 = "d41d8cd98f00b204e9800998ecf8427e";
const QByteArray kAbcMd5 = "900150983cd24fb0d6963f7d28e17f72";

QByteArray OfferOf(const QByteArray &md5, int updateType, const QByteArray &more = QByteArray())
{
    return Offer("\"md5\":\"" + md5 + "\",\"updateType\":" + QByteArray::number(updateType) + more);
}

QString CorruptedEnglish()
{
    return QStringLiteral("File conrrupted, update failed.");
}

QString Compared(const QByteArray &announced, const QByteArray &found)
{
    return LogLine::Digests(QString::fromLatin1(announced), QString::fromLatin1(found));
}

/// A package whose top folder has a new file of the client.
QByteArray ClientPackage()
{
    ZipMaker zip;
    zip.AddFolder(QStringLiteral("Package"));
    zip.AddFile(QStringLiteral("Package/new.txt"), "2.1.3");
    return zip.Bytes();
}

} // namespace

/// What happens to a complete package.
class TestHttpDownLoadFileHandOver : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { m_server = std::make_unique<ScriptedServer>(); }
    void cleanupTestCase() { m_server.reset(); }

    void corruptedPackageIsToldAndCanBeRetried_data();
    void corruptedPackageIsToldAndCanBeRetried();
    void digestIsComparedExactly_data();
    void digestIsComparedExactly();
    void packageThatIsNotThereHasAnEmptyDigest_data();
    void packageThatIsNotThereHasAnEmptyDigest();
    void otherUpdateTypesLeaveThePackageAlone_data();
    void otherUpdateTypesLeaveThePackageAlone();
    void installerIsStarted();
    void zipPackageIsInstalledAndTheClientStarted();
    void failedInstallationStartsTheClientAllTheSame();

private:
    std::unique_ptr<ScriptedServer> m_server;
};

void TestHttpDownLoadFileHandOver::corruptedPackageIsToldAndCanBeRetried_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("retry");
    const QString chinese = QStringLiteral("文件损坏，更新失败");
    const QString retryChinese = QStringLiteral("重试");
    QTest::newRow("en") << QStringLiteral("en") << CorruptedEnglish() << QStringLiteral("Retry");
    QTest::newRow("zh") << QStringLiteral("zh") << chinese << retryChinese;
    QTest::newRow("none") << QString() << chinese << retryChinese;
    QTest::newRow("EN") << QStringLiteral("EN") << chinese << retryChinese;
    QTest::newRow("en with a blank") << QStringLiteral("en ") << chinese << retryChinese;
}

void TestHttpDownLoadFileHandOver::corruptedPackageIsToldAndCanBeRetried()
{
    QFETCH(QString, language);
    QFETCH(QString, text);
    QFETCH(QString, retry);
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(OfferOf(kAbcMd5, 2)));
    m_server->Script(QStringLiteral("/package/4711"),
                     QJsonArray{Sends("broken and longer"), Sends("abc")});
    Global::instance.language = language;

    WorkerRun run;
    QVERIFY(run.StartDownload());
    QVERIFY(run.RunUntilError());
    QCOMPARE(run.Errors(), QStringList(text));
    QCOMPARE(run.ProgressLine(), text);
    QCOMPARE(run.ProgressButton(), retry);
    QCOMPARE(run.Timers(), QVector<int>());
    QStringList lines({Compared(kAbcMd5, "c7983b91e946a92c9d0d915a94712190"),
                       LogLine::DigestDiffers(scene.PackagePath())});
    QCOMPARE(scene.LogAfterAnswer().mid(2), lines);
    QCOMPARE(ReadFile(scene.PackagePath()), QByteArray("broken and longer"));
    QCOMPARE(scene.client.Calls().size(), 0);

    run.PressProgressButton();
    lines.append(Compared(kAbcMd5, kAbcMd5));
    QVERIFY(run.RunUntilLogged(scene, lines.last()));
    QCOMPARE(ReadFile(scene.PackagePath()), QByteArray("abc"));
    QCOMPARE(scene.LogAfterAnswer().mid(2), lines);
    QCOMPARE(run.Errors().size(), 1);
}

void TestHttpDownLoadFileHandOver::digestIsComparedExactly_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QByteArray>("announced");
    QTest::addColumn<bool>("right");
    const auto row = [](const char *tag, const QByteArray &content, const QByteArray &announced,
                        bool right) { QTest::newRow(tag) << content << announced << right; };
    row("right", "abc", kAbcMd5, true);
    row("upper case", "abc", kAbcMd5.toUpper(), false);
    row("blank at the end", "abc", kAbcMd5 + ' ', false);
    row("cut short", "abc", kAbcMd5.left(31), false);
    row("none announced", "abc", "", false);
    row("empty package", "", kEmptyMd5, true);
    row("empty package, none announced", "", "", false);
}

void TestHttpDownLoadFileHandOver::digestIsComparedExactly()
{
    QFETCH(QByteArray, content);
    QFETCH(QByteArray, announced);
    QFETCH(bool, right);
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(OfferOf(announced, 2)));
    m_server->Script(QStringLiteral("/package/4711"), Sends(content));

    WorkerRun run;
    QVERIFY(run.StartDownload());
    QStringList lines(Compared(announced, Md5(content)));
    if (!right)
        lines.append(LogLine::DigestDiffers(scene.PackagePath()));
    QVERIFY(run.RunUntilLogged(scene, lines.last()));
    run.OnWorkerThread([] {});
    QVERIFY(right || run.RunUntilError());
    QCOMPARE(run.Errors(), right ? QStringList() : QStringList(CorruptedEnglish()));
    QCOMPARE(scene.LogAfterAnswer().mid(2), lines);
    QCOMPARE(ReadFile(scene.PackagePath()), content);
}

void TestHttpDownLoadFileHandOver::packageThatIsNotThereHasAnEmptyDigest_data()
{
    QTest::addColumn<QByteArray>("announced");
    QTest::addColumn<bool>("right");
    QTest::newRow("digest announced") << kAbcMd5 << false;
    QTest::newRow("none announced") << QByteArray() << true;
}

void TestHttpDownLoadFileHandOver::packageThatIsNotThereHasAnEmptyDigest()
{
    QFETCH(QByteArray, announced);
    QFETCH(bool, right);
    const UpdateScene scene(*m_server);
    // A second check names another file, but the download keeps the first name.
    m_server->Script(
        QStringLiteral("/check"),
        QJsonArray{Sends(OfferOf("wrong", 2)),
                   Sends(OfferOf(announced, 2, R"(,"latestVersionUrl":"Other.zip")"))});
    m_server->Script(QStringLiteral("/package/4711"), Sends("abc"));

    WorkerRun run;
    QVERIFY(run.StartDownload());
    QVERIFY(run.RunUntilError());
    run.Worker()->TimerPro();
    QVERIFY(run.RunUntil([&] { return run.Announced().size() == 2; }));
    const int before = scene.Log().size();

    run.PressProgressButton();
    const QString other = scene.DownloadFolder() + QStringLiteral("/Other.zip");
    QStringList lines(LogLine::OpenFailed(other));
    if (!right)
        lines.append(LogLine::DigestDiffers(other));
    QVERIFY(run.RunUntilLogged(scene, lines.last()));
    run.OnWorkerThread([] {});
    QVERIFY(right || run.RunUntilError(2));
    QCOMPARE(scene.Log().mid(before), lines);
    QCOMPARE(run.Errors().size(), right ? 1 : 2);
    QCOMPARE(ReadFile(scene.PackagePath()), QByteArray("abc"));
    QVERIFY(!QFile::exists(other));
}

void TestHttpDownLoadFileHandOver::otherUpdateTypesLeaveThePackageAlone_data()
{
    QTest::addColumn<int>("updateType");
    QTest::newRow("2") << 2;
    QTest::newRow("-1") << -1;
    QTest::newRow("256") << 256;
}

void TestHttpDownLoadFileHandOver::otherUpdateTypesLeaveThePackageAlone()
{
    QFETCH(int, updateType);
    const UpdateScene scene(*m_server);
    const QByteArray package = ClientPackage();
    m_server->Script(QStringLiteral("/check"), Sends(OfferOf(Md5(package), updateType)));
    m_server->Script(QStringLiteral("/package/4711"), Sends(package));

    WorkerRun run;
    QVERIFY(run.StartDownload());
    QVERIFY(run.RunUntilLogged(scene, Verified(package)));
    run.OnWorkerThread([] {});
    // The run continues with an unchanged progress dialog and without activity.
    QVERIFY(run.RunUntil([] { return true; }));
    QCOMPARE(run.Timers(), QVector<int>());
    QCOMPARE(run.Errors(), QStringList());
    QCOMPARE(run.ProgressLine(), QStringLiteral("installing......100%"));
    QCOMPARE(run.ProgressButton(), QStringLiteral("Cancel"));
    run.Shutdown();
    QCOMPARE(scene.LogAfterAnswer().mid(2), QStringList(Verified(package)));
    QCOMPARE(scene.client.Calls().size(), 0);
    QVERIFY(!QFileInfo::exists(scene.Installed(QStringLiteral("new.txt"))));
}

void TestHttpDownLoadFileHandOver::installerIsStarted()
{
    const UpdateScene scene(*m_server);
    // Removed when the folder is emptied. It reads the calls of the installer at the same path.
    const StandIn installer(scene.DownloadFolder() + QStringLiteral("/Setup.exe"));
    const QByteArray package = ReadFile(installer.Path());
    m_server->Script(
        QStringLiteral("/check"),
        Sends(OfferOf(Md5(package), 0, R"(,"latestVersionUrl":"https://p.example/Setup.exe")")));
    m_server->Script(QStringLiteral("/package/4711"), Sends(package));
    Global::instance.cmdLineArgs =
        QStringList({QStringLiteral("-noremid"), QStringLiteral("qorb-meeting://abc"),
                     QStringLiteral("-noremid")});

    WorkerRun run;
    QVERIFY(run.DownloadUntilQuit());
    run.Shutdown();
    QVERIFY(installer.WaitForCalls(1));
    QCOMPARE(installer.Calls(),
             QVector<QStringList>{QStringList(QStringLiteral("qorb-meeting://abc"))});
    QCOMPARE(scene.LogAfterAnswer().mid(2),
             QStringList({Verified(package), LogLine::Starting(installer.Path())}));
    QCOMPARE(scene.client.Calls().size(), 0);
}

void TestHttpDownLoadFileHandOver::zipPackageIsInstalledAndTheClientStarted()
{
    const UpdateScene scene(*m_server);
    scene.ClientDataFolder();
    scene.WriteUpdateConfig(R"({"version":"1.0.0"})");
    const QByteArray package = ClientPackage();
    m_server->Script(QStringLiteral("/check"), Sends(OfferOf(Md5(package), 1)));
    m_server->Script(QStringLiteral("/package/4711"), Sends(package));

    WorkerRun run;
    QVERIFY(run.DownloadUntilQuit());
    run.Shutdown();
    QVERIFY(scene.client.WaitForCalls(1));
    QCOMPARE(scene.client.Calls(),
             QVector<QStringList>{QStringList(QStringLiteral("-autoupdate"))});
    QCOMPARE(ReadFile(scene.Installed(QStringLiteral("new.txt"))), QByteArray("2.1.3"));
    QCOMPARE(scene.LogAfterAnswer().value(2), Verified(package));
    QCOMPARE(scene.LogAfterAnswer().value(3), LogLine::Unpacked(scene.PackagePath()));
    QCOMPARE(scene.LogAfterAnswer().last(), LogLine::Starting(scene.ClientName()));
    QCOMPARE(run.Errors(), QStringList());
}

void TestHttpDownLoadFileHandOver::failedInstallationStartsTheClientAllTheSame()
{
    const UpdateScene scene(*m_server);
    // Without the folder the release notes cannot be written.
    const QByteArray package = ClientPackage();
    m_server->Script(QStringLiteral("/check"), Sends(OfferOf(Md5(package), 1)));
    m_server->Script(QStringLiteral("/package/4711"), Sends(package));

    WorkerRun run;
    QVERIFY(run.DownloadUntilQuit());
    run.Shutdown();
    QCOMPARE(scene.LogAfterAnswer().mid(2),
             QStringList({Verified(package), LogLine::Unpacked(scene.PackagePath()),
                          LogLine::NotesWriteFailed(), LogLine::Starting(scene.ClientName())}));
    QVERIFY(scene.client.WaitForCalls(1));
    QCOMPARE(scene.client.Calls(),
             QVector<QStringList>{QStringList(QStringLiteral("-autoupdate"))});
    QCOMPARE(run.Errors(), QStringList());
    QVERIFY(!QFileInfo::exists(scene.Installed(QStringLiteral("new.txt"))));
}

QTEST_MAIN(TestHttpDownLoadFileHandOver)
#include "tst_httpdownloadfile_handover.moc"
