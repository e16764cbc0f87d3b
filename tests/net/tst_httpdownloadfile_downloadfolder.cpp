// SPDX-License-Identifier: MIT
#include "config/global.h"
#include "tests/support/loglines.h"
#include "tests/support/workerrun.h"

#include <QDir>
#include <QFile>
#include <QTest>

#ifdef Q_OS_UNIX
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace
{

/// The entries of a folder.
QStringList Entries(const QString &folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System |
                                  QDir::NoDotAndDotDot);
}

#ifdef Q_OS_UNIX
/// Drops the rights of root, which override permissions, while it lives.
class OrdinaryUser
{
public:
    /// The ordinary user becomes the owner of @p home.
    explicit OrdinaryUser(const QString &home)
    {
        if (geteuid() != 0)
            return;
        m_changed = true;
        Open(home + QStringLiteral("/.."));
        Own(home);
        if (seteuid(kNobody) != 0)
            qFatal("cannot become an ordinary user");
    }

    ~OrdinaryUser()
    {
        if (m_changed && seteuid(0) != 0)
            qFatal("cannot become the administrator again");
    }

private:
    Q_DISABLE_COPY(OrdinaryUser)

    static constexpr uid_t kNobody = 65534;

    static void Open(const QString &folder)
    {
        if (chmod(QFile::encodeName(folder).constData(), 0755) != 0)
            qFatal("cannot open a folder");
    }

    static void Own(const QString &path)
    {
        if (chown(QFile::encodeName(path).constData(), kNobody, gid_t(-1)) != 0)
            qFatal("cannot give a file away");
        for (const QString &entry : Entries(path))
            Own(path + QLatin1Char('/') + entry);
    }

    bool m_changed = false;
};

/// A folder whose entries cannot be removed while it lives.
class LockedFolder
{
public:
    explicit LockedFolder(const QString &path) : m_path(path)
    {
        WriteFile(path + QStringLiteral("/kept.txt"), "kept");
        Lock(true);
    }

    ~LockedFolder() { Lock(false); }

    QByteArray Content() const { return ReadFile(m_path + QStringLiteral("/kept.txt")); }

private:
    Q_DISABLE_COPY(LockedFolder)

    void Lock(bool locked)
    {
        if (chmod(QFile::encodeName(m_path).constData(), locked ? 0500 : 0700) != 0)
            qFatal("cannot lock a folder");
    }

    QString m_path;
};
#endif

} // namespace

/// The download folder.
class TestHttpDownLoadFileDownloadFolder : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { m_server = std::make_unique<ScriptedServer>(); }
    void cleanupTestCase() { m_server.reset(); }

    void folderIsEmptiedBeforeADownload();
    void readOnlyEntriesDoNotHinderADownload();
    void missingNameEndsTheRun();
    void missingFolderEndsTheRun();
    void namelessClientNeverEmptiesTheSharedFolder_data();
    void namelessClientNeverEmptiesTheSharedFolder();
#ifdef Q_OS_UNIX
    void unixLinksAreRemovedButNotFollowed();
    void unixLockedSubFolderStays();
    void unixLockedSubFolderInPlaceOfThePackageEndsTheRun();
#endif

private:
    std::unique_ptr<ScriptedServer> m_server;
};

void TestHttpDownLoadFileDownloadFolder::folderIsEmptiedBeforeADownload()
{
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(OfferOf("abc")));
    m_server->Script(QStringLiteral("/package/4711"), Sends("abc"));
    const QString neighbour = scene.DownloadFolder() + QStringLiteral("-2/kept.txt");
    WriteFile(neighbour, "kept");
    for (const char *name : {"Package.zip", "old.zip", ".hidden", "no suffix", "sub/a.txt",
                             "sub/deeper/and deeper/b.txt", ".hidden folder/c.txt", "安装包/d.txt"})
        WriteFile(scene.DownloadFolder() + QLatin1Char('/') + QString::fromUtf8(name),
                  "an older and longer package");
    QVERIFY(QDir(scene.DownloadFolder()).mkpath(QStringLiteral("empty/folder")));
    const int held = Entries(scene.DownloadFolder()).size();
    QCOMPARE(held, 8);

    WorkerRun run;
    QVERIFY(run.RunUntilPrompt());
    QCOMPARE(Entries(scene.DownloadFolder()).size(), held);

    QVERIFY(run.StartDownload());
    QVERIFY(run.RunUntilLogged(scene, Verified("abc")));
    QCOMPARE(Entries(scene.DownloadFolder()), QStringList(QStringLiteral("Package.zip")));
    QCOMPARE(ReadFile(scene.PackagePath()), QByteArray("abc"));
    QCOMPARE(ReadFile(neighbour), QByteArray("kept"));
}

void TestHttpDownLoadFileDownloadFolder::readOnlyEntriesDoNotHinderADownload()
{
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(OfferOf("abc")));
    m_server->Script(QStringLiteral("/package/4711"), Sends("abc"));
    for (const char *name : {"/read-only.zip", "/folder/read-only.txt"}) {
        const QString path = scene.DownloadFolder() + QLatin1String(name);
        WriteFile(path, "x");
        QVERIFY(QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::ReadUser));
    }

    WorkerRun run;
    QVERIFY(run.StartDownload());
    QVERIFY(run.RunUntilLogged(scene, Verified("abc")));
    QCOMPARE(ReadFile(scene.PackagePath()), QByteArray("abc"));
    QCOMPARE(run.Errors(), QStringList());
}

void TestHttpDownLoadFileDownloadFolder::missingNameEndsTheRun()
{
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"),
                     Sends(Offer("\"latestVersionUrl\":\"https://packages.example/\"")));
    WriteFile(scene.DownloadFolder() + QStringLiteral("/old.zip"), "old");
    const QString neighbour = scene.Home() + QStringLiteral("/AppData/Local/kept.txt");
    WriteFile(neighbour, "kept");

    WorkerRun run;
    QVERIFY(run.DownloadUntilQuit());
    QCOMPARE(run.Timers(), QVector<int>());
    run.Shutdown();
    QCOMPARE(scene.LogAfterAnswer().mid(2),
             QStringList(LogLine::PackageOpenFailed(scene.DownloadFolder() + QLatin1Char('/'))));
    QCOMPARE(Entries(scene.DownloadFolder()), QStringList());
    QCOMPARE(ReadFile(neighbour), QByteArray("kept"));
    QCOMPARE(Entries(scene.Home() + QStringLiteral("/AppData/Local")).size(), 2);
    QCOMPARE(m_server->Requests().size(), 1);
    QCOMPARE(run.Errors(), QStringList());
    QCOMPARE(scene.client.Calls().size(), 0);
}

void TestHttpDownLoadFileDownloadFolder::missingFolderEndsTheRun()
{
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(Offer()));

    WorkerRun run;
    QVERIFY(run.RunUntilPrompt());
    QVERIFY(QDir(scene.DownloadFolder()).removeRecursively());
    QVERIFY(run.DownloadUntilQuit());
    run.Shutdown();
    QCOMPARE(scene.LogAfterAnswer().mid(2),
             QStringList(LogLine::PackageOpenFailed(scene.PackagePath())));
    QCOMPARE(m_server->Requests().size(), 1);
    QCOMPARE(scene.client.Calls().size(), 0);
}

void TestHttpDownLoadFileDownloadFolder::namelessClientNeverEmptiesTheSharedFolder_data()
{
    QTest::addColumn<QString>("appName");
    QTest::addColumn<QString>("folder");
    QTest::newRow("none") << QString() << QString();
    QTest::newRow("only a suffix") << QStringLiteral(".exe") << QString();
    QTest::newRow("a blank") << QStringLiteral(" .exe") << QStringLiteral(" ");
}

void TestHttpDownLoadFileDownloadFolder::namelessClientNeverEmptiesTheSharedFolder()
{
    QFETCH(QString, appName);
    QFETCH(QString, folder);
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(Offer()));
    Global::instance.appName = appName;
    // Without it the check would end, because every process list contains an empty name.
    Global::instance.cmdLineArgs = QStringList(QStringLiteral("-noremid"));
    const QString shared = scene.Home() + QStringLiteral("/AppData/Local/");
    WriteFile(shared + QStringLiteral("another program/settings.txt"), "kept");
    WriteFile(shared + QStringLiteral("kept.txt"), "kept");

    WorkerRun run;
    QVERIFY(run.DownloadUntilQuit());
    run.Shutdown();
    QCOMPARE(scene.LogAfterAnswer().last(),
             LogLine::PackageOpenFailed(shared + folder + QStringLiteral("/Package.zip")));
    QCOMPARE(ReadFile(shared + QStringLiteral("another program/settings.txt")), QByteArray("kept"));
    QCOMPARE(ReadFile(shared + QStringLiteral("kept.txt")), QByteArray("kept"));
    QCOMPARE(m_server->Requests().size(), 1);
}

#ifdef Q_OS_UNIX
void TestHttpDownLoadFileDownloadFolder::unixLinksAreRemovedButNotFollowed()
{
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(OfferOf("abc")));
    m_server->Script(QStringLiteral("/package/4711"), Sends("abc"));
    const QString outside = scene.Scratch() + QStringLiteral("/outside");
    WriteFile(outside + QStringLiteral("/sub/kept.txt"), "kept");
    const QDir folder(scene.DownloadFolder());
    QVERIFY(folder.mkpath(QStringLiteral("sub")));
    const auto link = [&](const QString &target, const char *name) {
        return QFile::link(target, folder.filePath(QLatin1String(name)));
    };
    QVERIFY(link(outside, "to a folder"));
    QVERIFY(link(outside + QStringLiteral("/sub/kept.txt"), "to a file"));
    QVERIFY(link(outside + QStringLiteral("/missing"), "to nothing"));
    QVERIFY(link(outside, ".hidden link"));
    QVERIFY(link(outside, "sub/to a folder"));
    QVERIFY(link(outside + QStringLiteral("/sub/kept.txt"), "Package.zip"));

    WorkerRun run;
    QVERIFY(run.StartDownload());
    QVERIFY(run.RunUntilLogged(scene, Verified("abc")));
    QCOMPARE(Entries(scene.DownloadFolder()), QStringList(QStringLiteral("Package.zip")));
    QVERIFY(!QFileInfo(scene.PackagePath()).isSymLink());
    QCOMPARE(ReadFile(outside + QStringLiteral("/sub/kept.txt")), QByteArray("kept"));
}

void TestHttpDownLoadFileDownloadFolder::unixLockedSubFolderStays()
{
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(OfferOf("abc")));
    m_server->Script(QStringLiteral("/package/4711"), Sends("abc"));
    WriteFile(scene.DownloadFolder() + QStringLiteral("/old.zip"), "old");
    WriteFile(scene.DownloadFolder() + QStringLiteral("/zzz.zip"), "old");
    const LockedFolder locked(scene.DownloadFolder() + QStringLiteral("/locked"));
    const OrdinaryUser user(scene.Home());

    WorkerRun run;
    QVERIFY(run.StartDownload());
    QVERIFY(run.RunUntilLogged(scene, Verified("abc")));
    QCOMPARE(ReadFile(scene.PackagePath()), QByteArray("abc"));
    QCOMPARE(Entries(scene.DownloadFolder()),
             QStringList({QStringLiteral("locked"), QStringLiteral("Package.zip")}));
    QCOMPARE(locked.Content(), QByteArray("kept"));
    QCOMPARE(scene.LogAfterAnswer().mid(2), QStringList(Verified("abc")));
}

void TestHttpDownLoadFileDownloadFolder::unixLockedSubFolderInPlaceOfThePackageEndsTheRun()
{
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(Offer()));
    WriteFile(scene.DownloadFolder() + QStringLiteral("/zzz.zip"), "old");
    const LockedFolder locked(scene.PackagePath());
    const OrdinaryUser user(scene.Home());

    WorkerRun run;
    QVERIFY(run.DownloadUntilQuit());
    run.Shutdown();
    QCOMPARE(scene.LogAfterAnswer().mid(2),
             QStringList(LogLine::PackageOpenFailed(scene.PackagePath())));
    QCOMPARE(Entries(scene.DownloadFolder()), QStringList(QStringLiteral("Package.zip")));
    QCOMPARE(locked.Content(), QByteArray("kept"));
    QCOMPARE(m_server->Requests().size(), 1);
}
#endif

QTEST_MAIN(TestHttpDownLoadFileDownloadFolder)
#include "tst_httpdownloadfile_downloadfolder.moc"
