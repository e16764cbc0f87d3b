#include "config/global.h"
#include "release/publish/reply.h"
#include "tests/release/vendor.h"
#include "tests/support/fulldisk.h"
#include "tests/support/testhome.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QTest>
#include <QtGui/private/qzipreader_p.h>

#include <functional>

#ifdef Q_OS_UNIX
#include <sys/stat.h>
#endif

namespace
{

/// Changes what a vendor is about to publish.
using Change = std::function<void(const Vendor &, Request &)>;

/// A row that is refused for @p rules, blanks between them.
void AddRefusal(const char *row, const char *rules, const Change &change)
{
    QTest::newRow(row) << change
                       << QString::fromLatin1(rules).split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

Change HasFile(const QString &path)
{
    return [path](const Vendor &vendor, Request &) { WriteFile(vendor.Client(path), "x"); };
}

Change HasNotes(const QByteArray &notes)
{
    return [notes](const Vendor &vendor, Request &) {
        WriteFile(vendor.Path(QStringLiteral("en.txt")), notes);
    };
}

Change IsInstaller(const Change &change)
{
    return [change](const Vendor &vendor, Request &request) {
        request = vendor.InstallerRequest();
        change(vendor, request);
    };
}

/// What the updater has stored of the tree's answer after reading it.
const Global &ReadByUpdater(const Vendor &vendor, const QString &language)
{
    ResetGlobal();
    Global::instance.language = language;
    Global::instance.ParseServiceReply(ReadFile(vendor.Tree(QStringLiteral("check/offer.json"))));
    return Global::instance;
}

QString HexDigest(const QString &path, QCryptographicHash::Algorithm algorithm)
{
    return QString::fromLatin1(QCryptographicHash::hash(ReadFile(path), algorithm).toHex());
}

void VerifyPublished(const Outcome &outcome)
{
    QVERIFY2(outcome.refusals.isEmpty(), qPrintable(Lines(outcome.refusals)));
}

} // namespace

Q_DECLARE_METATYPE(Change)

class TestPublishRelease : public QObject
{
    Q_OBJECT

private slots:
    void treeHoldsWhatIsServed();
    void updaterReadsTheOffer_data();
    void updaterReadsTheOffer();
    void updaterReadsThatThereIsNothingNewer();
    void foldersStandBeforeTheirFiles();
    void sameContentGivesTheSameBytes();
    void packageWithoutSizeOrTimeOfItsOwn();
    void filesThatArePackedAlreadyStayAsTheyAre();
    void whatIsInstalledIsWhatWasPublished();
    void installerIsPublishedAsItIs();
    void installerThatIsNoProgramIsWarnedOf();
    void installerGetsTheNameThatIsAskedFor();
    void addressPrefixIsAnnounced_data();
    void addressPrefixIsAnnounced();
    void pageShowsNotesAsThePromptDoes();
    void pageRunsAndLoadsNothing();
    void newReleaseKeepsOlderPackages();
    void olderReleaseCanBePublishedAgain();
    void shorterVersionCanBeForced();
    void versionIsLongEnoughForEveryReleaseOfTheTree_data();
    void versionIsLongEnoughForEveryReleaseOfTheTree();
    void refusals_data();
    void refusals();
    void refusalLeavesAnOlderReleaseAlone_data();
    void refusalLeavesAnOlderReleaseAlone();
    void updatersFolderHasToBeAllowed();
    void whatACrashLeftIsCleanedUp();
    void twoAtATimeAreRefused();
#ifdef Q_OS_UNIX
    void linksAndSpecialFilesAreRefused_posix();
    void fullDiskLeavesNothingBehind_posix();
#endif
};

void TestPublishRelease::treeHoldsWhatIsServed()
{
    const Vendor vendor;
    VerifyPublished(Publish(vendor.ZipRequest()));
    QCOMPARE(
        Snapshot(vendor.Tree()).keys(),
        QStringList({QStringLiteral("check/"), QStringLiteral("check/none.json"),
                     QStringLiteral("check/offer.json"), QStringLiteral("index.html"),
                     QStringLiteral("packages/"), QStringLiteral("packages/Client-2.1.3.zip")}));
}

void TestPublishRelease::updaterReadsTheOffer_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<bool>("forced");
    QTest::addColumn<QString>("notes");
    QTest::newRow("Chinese, optional") << "zh" << false << u8"新功能";
    QTest::newRow("English, optional") << "en" << false << "New things\nand more";
    QTest::newRow("English, forced") << "en" << true << "New things\nand more";
}

void TestPublishRelease::updaterReadsTheOffer()
{
    QFETCH(QString, language);
    QFETCH(bool, forced);
    const Vendor vendor;
    Request request = vendor.ZipRequest();
    request.forced = forced;
    VerifyPublished(Publish(request));

    const Global &updater = ReadByUpdater(vendor, language);
    QCOMPARE(updater.code, QStringLiteral("000000"));
    QCOMPARE(updater.id, QStringLiteral("Client-2.1.3.zip"));
    QCOMPARE(updater.update, forced ? QStringLiteral("2") : QStringLiteral("1"));
    QCOMPARE(updater.latestVersion, QStringLiteral("2.1.3"));
    QCOMPARE(updater.latestVersionUrl, QStringLiteral("/packages/Client-2.1.3.zip"));
    QCOMPARE(updater.md5, HexDigest(vendor.Package(), QCryptographicHash::Md5));
    QCOMPARE(updater.sha1, HexDigest(vendor.Package(), QCryptographicHash::Sha1));
    QCOMPARE(updater.packageSize, QFileInfo(vendor.Package()).size());
    QCOMPARE(updater.updateType, qint32(Global::ZipPackage));
    QTEST(updater.latestVersionInfo, "notes");
}

void TestPublishRelease::updaterReadsThatThereIsNothingNewer()
{
    const Vendor vendor;
    VerifyPublished(Publish(vendor.ZipRequest()));
    ResetGlobal();
    const QByteArray answer = ReadFile(vendor.Tree(QStringLiteral("check/none.json")));
    QCOMPARE(Global::instance.ParseServiceReply(answer), 0);
    QCOMPARE(Global::instance.update, QStringLiteral("0"));
}

void TestPublishRelease::foldersStandBeforeTheirFiles()
{
    const Vendor vendor;
    WriteFile(vendor.Client(QStringLiteral(".hidden")), "h");
    VerifyPublished(Publish(vendor.ZipRequest()));
    QStringList paths;
    QZipReader reader(vendor.Package());
    for (const QZipReader::FileInfo &entry : reader.fileInfoList())
        paths.append(entry.isDir ? entry.filePath + QLatin1Char('/') : entry.filePath);
    const QString top = QStringLiteral("Client-2.1.3/");
    QCOMPARE(paths,
             QStringList({top, top + QStringLiteral(".hidden"), top + QStringLiteral("a.txt"),
                          top + QStringLiteral("empty/"), top + QStringLiteral("plug ins/"),
                          top + QStringLiteral("plug ins/deep/"),
                          top + QStringLiteral("plug ins/deep/b.txt")}));
}

void TestPublishRelease::sameContentGivesTheSameBytes()
{
    const Vendor one;
    VerifyPublished(Publish(one.ZipRequest()));

    // The same names and contents: made in another order, with other times, in another folder.
    const Vendor other;
    QDir(other.Client()).removeRecursively();
    const QMap<QString, QByteArray> contents = Snapshot(one.Client());
    for (auto item = contents.constEnd(); item != contents.constBegin();) {
        --item;
        const QString path = other.Client() + QLatin1Char('/') + item.key();
        if (path.endsWith(QLatin1Char('/'))) {
            QDir().mkpath(path);
            continue;
        }
        WriteFile(path, item.value());
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadWrite));
        QVERIFY(file.setFileTime(QDateTime(QDate(2001, 2, 3), QTime(4, 5)),
                                 QFileDevice::FileModificationTime));
        QVERIFY(file.setPermissions(QFileDevice::ReadOwner));
    }
    VerifyPublished(Publish(other.ZipRequest()));
    QCOMPARE(Snapshot(other.Tree()), Snapshot(one.Tree()));
}

void TestPublishRelease::packageWithoutSizeOrTimeOfItsOwn()
{
    const Vendor vendor;
    VerifyPublished(Publish(vendor.ZipRequest()));
    QZipReader reader(vendor.Package());
    for (const QZipReader::FileInfo &entry : reader.fileInfoList())
        QCOMPARE(entry.lastModified, QDateTime(QDate(1980, 1, 1), QTime(0, 0)));
}

void TestPublishRelease::filesThatArePackedAlreadyStayAsTheyAre()
{
    const Vendor vendor;
    QByteArray noise;
    for (int number = 0; noise.size() < 200 * 1024; ++number) {
        noise += QCryptographicHash::hash(QByteArray::number(number), QCryptographicHash::Sha512);
    }
    WriteFile(vendor.Client(QStringLiteral("noise.bin")), noise);
    // Text with noise before and behind it is worth packing.
    WriteFile(vendor.Client(QStringLiteral("mixed.bin")),
              noise + QByteArray(noise.size(), 'x') + noise);
    VerifyPublished(Publish(vendor.ZipRequest()));
    const qint64 size = QFileInfo(vendor.Package()).size();
    QVERIFY2(size > 3LL * noise.size() && size < 3LL * noise.size() + 10000,
             qPrintable(QString::number(size)));
    QVERIFY(ReadFile(vendor.Package()).contains(noise));
    QVERIFY(Verify(vendor).refusals.isEmpty());
}

void TestPublishRelease::whatIsInstalledIsWhatWasPublished()
{
    const TestHome machine;
    const Vendor vendor;
    WriteFile(vendor.Client(QStringLiteral("nothing")), QByteArray());
    WriteFile(vendor.Client(QStringLiteral("all bytes")), [] {
        QByteArray bytes;
        for (int round = 0; round < 300 * 256; ++round)
            bytes.append(char(round + round / 256));
        return bytes;
    }());
    VerifyPublished(Publish(vendor.ZipRequest()));

    machine.ClientDataFolder();
    machine.WriteUpdateConfig("{}");
    const QString package =
        machine.Home() + QStringLiteral("/AppData/Local/Client/Client-2.1.3.zip");
    WriteFile(package, ReadFile(vendor.Package()));
    Global::instance.ParseServiceReply(ReadFile(vendor.Tree(QStringLiteral("check/offer.json"))));
    QCOMPARE(Global::instance.FileMd5(package), Global::instance.md5);
    QCOMPARE(Global::instance.InstallPackage(package), 0);

    QMap<QString, QByteArray> installed = Snapshot(machine.ClientFolder());
    for (const QString &path : installed.keys()) {
        if (path.startsWith(QLatin1String("AutoUpdate/")))
            installed.remove(path);
    }
    QCOMPARE(installed, Snapshot(vendor.Client()));
}

void TestPublishRelease::installerIsPublishedAsItIs()
{
    const Vendor vendor;
    VerifyPublished(Publish(vendor.InstallerRequest()));
    QCOMPARE(ReadFile(vendor.Tree(QStringLiteral("packages/Setup-2.1.3.exe"))),
             QByteArray("MZ installer"));
    const Global &updater = ReadByUpdater(vendor, QStringLiteral("en"));
    QCOMPARE(updater.id, QStringLiteral("Setup-2.1.3.exe"));
    QCOMPARE(updater.updateType, qint32(Global::InstallerPackage));
    const Outcome verified = Verify(vendor);
    VerifyPublished(verified);
    QVERIFY(verified.warnings.isEmpty());
}

void TestPublishRelease::installerThatIsNoProgramIsWarnedOf()
{
    const Vendor vendor;
    const Request request = vendor.InstallerRequest();
    WriteFile(request.source, "#!/bin/sh");
    const Outcome published = Publish(request);
    VerifyPublished(published);
    const Outcome verified = Verify(vendor);
    VerifyPublished(verified);
    for (const Outcome &outcome : {published, verified})
        QCOMPARE(Rules(outcome.warnings), QStringList(QStringLiteral("not-a-program")));
}

void TestPublishRelease::installerGetsTheNameThatIsAskedFor()
{
    const Vendor vendor;
    Request request = vendor.InstallerRequest();
    request.name = QStringLiteral("NorvaneSetup");
    VerifyPublished(Publish(request));
    QVERIFY(QFile::exists(vendor.Tree(QStringLiteral("packages/NorvaneSetup-2.1.3.exe"))));
}

void TestPublishRelease::addressPrefixIsAnnounced_data()
{
    QTest::addColumn<QString>("prefix");
    QTest::newRow("plain") << "https://updates.example.com";
    QTest::newRow("with a slash") << "https://updates.example.com/";
    QTest::newRow("with the folder") << "https://updates.example.com/packages";
    QTest::newRow("with folder and slash") << "https://updates.example.com/packages/";
}

void TestPublishRelease::addressPrefixIsAnnounced()
{
    const Vendor vendor;
    Request request = vendor.ZipRequest();
    QFETCH(QString, prefix);
    request.urlPrefix = prefix;
    VerifyPublished(Publish(request));
    QCOMPARE(ReadByUpdater(vendor, QStringLiteral("en")).latestVersionUrl,
             QStringLiteral("https://updates.example.com/packages/Client-2.1.3.zip"));
}

void TestPublishRelease::pageShowsNotesAsThePromptDoes()
{
    const Vendor vendor;
    WriteFile(vendor.Path(QStringLiteral("zh.txt")), u8"<b>新</b>");
    WriteFile(vendor.Path(QStringLiteral("en.txt")),
              "<b>New</b> <i>\"old\"" + QByteArray("<table><tr><td>").repeated(30));
    VerifyPublished(Publish(vendor.ZipRequest()));
    const QString page = QString::fromUtf8(ReadFile(vendor.Tree(QStringLiteral("index.html"))));
    // Rich where the prompt shows rich text, and with its tags as they stand where it does not.
    QVERIFY2(page.contains(QStringLiteral("&lt;b&gt;新&lt;/b&gt;\"></iframe>")), qPrintable(page));
    QVERIFY2(page.contains(QStringLiteral("lang=\"en\">&lt;b&gt;New&lt;/b&gt; &lt;i&gt;"
                                          "&quot;old&quot;&lt;table&gt;")),
             qPrintable(page));
    QVERIFY(page.contains(HexDigest(vendor.Package(), QCryptographicHash::Sha256)));
    QVERIFY(page.contains(QStringLiteral("href=\"packages/Client-2.1.3.zip\"")));
}

void TestPublishRelease::pageRunsAndLoadsNothing()
{
    const Vendor vendor;
    WriteFile(vendor.Path(QStringLiteral("en.txt")), "<script>alert(1)</script><b>New</b>");
    VerifyPublished(Publish(vendor.ZipRequest()));
    const QByteArray page = ReadFile(vendor.Tree(QStringLiteral("index.html")));
    QVERIFY(!page.contains("<script"));
    QVERIFY(page.contains("\"default-src 'none'; style-src 'unsafe-inline'\""));
    QVERIFY(page.contains(" sandbox srcdoc="));
}

void TestPublishRelease::newReleaseKeepsOlderPackages()
{
    const Vendor vendor;
    VerifyPublished(Publish(vendor.ZipRequest()));
    const QByteArray older = ReadFile(vendor.Package());
    Request request = vendor.ZipRequest();
    request.version = QStringLiteral("2.2.0");
    VerifyPublished(Publish(request));
    QCOMPARE(ReadFile(vendor.Package()), older);
    QCOMPARE(ReadByUpdater(vendor, QStringLiteral("en")).id, QStringLiteral("Client-2.2.0.zip"));
    QVERIFY(Verify(vendor).refusals.isEmpty());
}

void TestPublishRelease::olderReleaseCanBePublishedAgain()
{
    const Vendor vendor;
    Request newer = vendor.ZipRequest();
    newer.version = QStringLiteral("2.2.0");
    VerifyPublished(Publish(vendor.ZipRequest()));
    VerifyPublished(Publish(newer));
    const Outcome outcome = Publish(vendor.ZipRequest());
    VerifyPublished(outcome);
    QCOMPARE(Rules(outcome.warnings), QStringList(QStringLiteral("older-version")));
    QCOMPARE(ReadByUpdater(vendor, QStringLiteral("en")).latestVersion, QStringLiteral("2.1.3"));
    QVERIFY(Verify(vendor).refusals.isEmpty());
}

void TestPublishRelease::shorterVersionCanBeForced()
{
    const Vendor vendor;
    Request request = vendor.ZipRequest();
    request.version = QStringLiteral("2.10.10");
    VerifyPublished(Publish(request));
    request = vendor.ZipRequest();
    QCOMPARE(Rules(Publish(request).refusals), QStringList(QStringLiteral("shorter-version")));
    request.allowShorterVersion = true;
    VerifyPublished(Publish(request));
    QCOMPARE(ReadByUpdater(vendor, QStringLiteral("en")).latestVersion, QStringLiteral("2.1.3"));
}

void TestPublishRelease::versionIsLongEnoughForEveryReleaseOfTheTree_data()
{
    QTest::addColumn<Change>("change");
    // Each takes one record of the long version away, and the other one is left.
    QTest::newRow("offer and package") << Change([](const Vendor &, Request &) {});
    QTest::newRow("package of a replaced release") << Change([](const Vendor &vendor, Request &) {
        QVERIFY(QFile::remove(vendor.Tree(QStringLiteral("check/offer.json"))));
    });
    QTest::newRow("offer whose package was withdrawn")
        << Change([](const Vendor &vendor, Request &) {
               QVERIFY(QFile::remove(vendor.Tree(QStringLiteral("packages/Client-2.10.10.zip"))));
           });
    QTest::newRow("offer that was kept under another name")
        << Change([](const Vendor &vendor, Request &) {
               QVERIFY(QFile::rename(vendor.Tree(QStringLiteral("check/offer.json")),
                                     vendor.Tree(QStringLiteral("check/offer-2.10.10.json"))));
               QVERIFY(QFile::remove(vendor.Tree(QStringLiteral("packages/Client-2.10.10.zip"))));
           });
    QTest::newRow("package of another kind") << Change([](const Vendor &vendor, Request &request) {
        request = vendor.InstallerRequest();
        QVERIFY(QFile::remove(vendor.Tree(QStringLiteral("check/offer.json"))));
    });
}

void TestPublishRelease::versionIsLongEnoughForEveryReleaseOfTheTree()
{
    QFETCH(Change, change);
    const Vendor vendor;
    Request request = vendor.ZipRequest();
    request.version = QStringLiteral("2.10.10");
    VerifyPublished(Publish(request));
    request = vendor.ZipRequest();
    change(vendor, request);
    const QMap<QString, QByteArray> before = Snapshot(vendor.Tree());

    const Findings refusals = Publish(request).refusals;
    QCOMPARE(Rules(refusals), QStringList(QStringLiteral("shorter-version")));
    QVERIFY2(refusals.first().message.contains(QLatin1String("2.1.3.0")),
             qPrintable(Lines(refusals)));
    QCOMPARE(Snapshot(vendor.Tree()), before);

    request.version = QStringLiteral("2.1.30");
    VerifyPublished(Publish(request));
}

void TestPublishRelease::refusals_data()
{
    QTest::addColumn<Change>("change");
    QTest::addColumn<QStringList>("rules");

    AddRefusal("no folder", "source", [](const Vendor &vendor, Request &request) {
        request.source = vendor.Path(QStringLiteral("nothing"));
    });
    AddRefusal("a file for a folder", "source", [](const Vendor &vendor, Request &request) {
        request.source = vendor.Path(QStringLiteral("en.txt"));
    });
    AddRefusal("empty folder", "empty", [](const Vendor &vendor, Request &) {
        QDir(vendor.Client()).removeRecursively();
        QDir().mkpath(vendor.Client());
    });
    AddRefusal("tree in the client", "source", [](const Vendor &vendor, Request &request) {
        request.out = vendor.Client(QStringLiteral("new/site"));
    });
    AddRefusal("tree is the client", "source",
               [](const Vendor &vendor, Request &request) { request.out = vendor.Client(); });
    AddRefusal("tree is a file", "out", [](const Vendor &vendor, Request &request) {
        request.out = vendor.Path(QStringLiteral("en.txt"));
    });

    AddRefusal("file name not ASCII", "name-ascii", HasFile(QStringLiteral("plug ins/中文.txt")));
    AddRefusal("folder name not ASCII", "name-ascii", [](const Vendor &vendor, Request &) {
        QDir().mkpath(vendor.Client(QStringLiteral("中文")));
    });
#ifdef Q_OS_UNIX
    AddRefusal("name that Windows cannot hold", "name-windows", HasFile(QStringLiteral("a:b")));
    AddRefusal("device name", "name-windows", HasFile(QStringLiteral("nul.txt")));
    AddRefusal("trailing dot", "name-windows", HasFile(QStringLiteral("dot.")));
    AddRefusal("case twins", "case-twin", HasFile(QStringLiteral("A.TXT")));
    AddRefusal("long path", "name-length",
               HasFile(QString(120, QLatin1Char('d')) + QLatin1Char('/') +
                       QString(120, QLatin1Char('f'))));
#endif

    const auto named = [](const char *name) -> Change {
        return [name](const Vendor &, Request &request) { request.name = QString::fromUtf8(name); };
    };
    AddRefusal("package name not ASCII", "name-ascii", named("客户端"));
    AddRefusal("query mark in the package's name", "name-windows package-name", named("Client?"));
    AddRefusal("fragment mark in the package's name", "package-name", named("Client#"));
    AddRefusal("zip in the package's name", "package-name", named("Client.zip"));
    AddRefusal("leading dot in the package's name", "package-name", named(".Client"));
    AddRefusal("folder in the package's name", "name-windows", named("a/Client"));

    AddRefusal("folder name with a trailing dot", "package-name",
               [](const Vendor &, Request &request) { request.version = QStringLiteral("2."); });
    AddRefusal("version with a blank", "version", [](const Vendor &, Request &request) {
        request.version = QStringLiteral("2 beta");
    });
    AddRefusal("address prefix", "url-prefix", [](const Vendor &, Request &request) {
        request.urlPrefix = QStringLiteral("updates");
    });

    AddRefusal("no notes file", "notes", [](const Vendor &vendor, Request &request) {
        request.notesZhFile = vendor.Path(QStringLiteral("nothing"));
    });
    AddRefusal("separator in the notes", "notes", HasNotes("this & that"));
    AddRefusal("empty notes", "notes", HasNotes(" \r\n"));
    AddRefusal("notes not UTF-8", "notes", HasNotes("caf\xe9"));
    AddRefusal("endless notes", "notes", HasNotes(QByteArray(2 << 20, 'x')));

    AddRefusal("no installer", "source", IsInstaller([](const Vendor &vendor, Request &request) {
                   request.source = vendor.Path(QStringLiteral("nothing.exe"));
               }));
    AddRefusal("empty installer", "package-size", IsInstaller([](const Vendor &, Request &request) {
                   WriteFile(request.source, "");
               }));
    AddRefusal("installer of 2 GiB", "package-size",
               IsInstaller([](const Vendor &, Request &request) {
                   QFile(request.source).resize(0x80000000); // takes no room
               }));
    AddRefusal("installer that is none", "package-name",
               IsInstaller([](const Vendor &vendor, Request &request) {
                   request.source = vendor.Path(QStringLiteral("en.txt"));
               }));
}

void TestPublishRelease::refusals()
{
    QFETCH(Change, change);
    const Vendor vendor;
    Request request = vendor.ZipRequest();
    change(vendor, request);
    const QMap<QString, QByteArray> before = Snapshot(vendor.Client());

    const Outcome outcome = Publish(request);
    QTEST(Rules(outcome.refusals), "rules");
    QVERIFY2(Lines(outcome.refusals).contains(QLatin1String("; ")),
             qPrintable(Lines(outcome.refusals)));
    QVERIFY(outcome.summary.isEmpty());
    QVERIFY(!QFile::exists(vendor.Tree()));
    QCOMPARE(Snapshot(vendor.Client()), before);
}

void TestPublishRelease::refusalLeavesAnOlderReleaseAlone_data()
{
    QTest::addColumn<Change>("change");
    QTest::addColumn<QStringList>("rules");
    AddRefusal("same version", "same-version", [](const Vendor &, Request &) {});
    AddRefusal("same version of another kind", "same-version",
               IsInstaller([](const Vendor &, Request &) {}));
    AddRefusal("other bytes under a name that is there", "package-exists",
               [](const Vendor &vendor, Request &request) {
                   WriteFile(vendor.Tree(QStringLiteral("packages/Client-2.2.0.zip")), "other");
                   request.version = QStringLiteral("2.2.0");
               });
    AddRefusal("answer that nobody published", "out", [](const Vendor &vendor, Request &request) {
        WriteFile(vendor.Tree(QStringLiteral("check/offer.json")), "{}");
        request.version = QStringLiteral("2.2.0");
    });
    AddRefusal("bad name", "name-ascii", [](const Vendor &vendor, Request &request) {
        WriteFile(vendor.Client(QStringLiteral("中文")), "x");
        request.version = QStringLiteral("2.2.0");
    });
}

void TestPublishRelease::refusalLeavesAnOlderReleaseAlone()
{
    QFETCH(Change, change);
    const Vendor vendor;
    VerifyPublished(Publish(vendor.ZipRequest()));
    Request request = vendor.ZipRequest();
    change(vendor, request);
    const QMap<QString, QByteArray> before = Snapshot(vendor.Tree());

    const Outcome outcome = Publish(request);
    QTEST(Rules(outcome.refusals), "rules");
    QCOMPARE(Snapshot(vendor.Tree()), before);
}

void TestPublishRelease::updatersFolderHasToBeAllowed()
{
    const Vendor vendor;
    WriteFile(vendor.Client(QStringLiteral("AutoUpdate/AutoUpdate.exe")), "MZ");
    Request request = vendor.ZipRequest();
    const QStringList rule(QStringLiteral("updater-folder"));
    QCOMPARE(Rules(Publish(request).refusals), rule);
    QVERIFY(!QFile::exists(vendor.Tree()));

    request.allowUpdater = true;
    const Outcome outcome = Publish(request);
    VerifyPublished(outcome);
    QCOMPARE(Rules(outcome.warnings), rule);
    QVERIFY(outcome.warnings.first().message.contains(QLatin1String("--updater-folder")));
    QCOMPARE(Rules(Verify(vendor).refusals), rule);
}

void TestPublishRelease::whatACrashLeftIsCleanedUp()
{
    const Vendor vendor;
    for (const char *name : {"package", "offer.json", "index.html"})
        WriteFile(vendor.Tree(QStringLiteral(".publish/")) + QLatin1Char('/') + QLatin1String(name),
                  QByteArray(100000, 'x'));
    VerifyPublished(Publish(vendor.ZipRequest()));
    QVERIFY(!QFile::exists(vendor.Tree(QStringLiteral(".publish"))));
    QVERIFY(Verify(vendor).refusals.isEmpty());
}

void TestPublishRelease::twoAtATimeAreRefused()
{
    const Vendor vendor;
    QDir().mkpath(vendor.Tree(QStringLiteral(".publish")));
    QLockFile other(vendor.Tree(QStringLiteral(".publish/lock")));
    QVERIFY(other.tryLock());
    WriteFile(vendor.Tree(QStringLiteral(".publish/package")), "the other's");
    const QMap<QString, QByteArray> before = Snapshot(vendor.Tree());

    QCOMPARE(Rules(Publish(vendor.ZipRequest()).refusals), QStringList(QStringLiteral("busy")));
    QCOMPARE(Snapshot(vendor.Tree()), before);
}

#ifdef Q_OS_UNIX

void TestPublishRelease::linksAndSpecialFilesAreRefused_posix()
{
    const Vendor vendor;
    QVERIFY(QFile::link(vendor.Path(QStringLiteral("en.txt")),
                        vendor.Client(QStringLiteral("link to a file"))));
    QVERIFY(QFile::link(vendor.Path(QStringLiteral("nothing")),
                        vendor.Client(QStringLiteral("link to nothing"))));
    QVERIFY(QFile::link(vendor.Client(QStringLiteral("plug ins")),
                        vendor.Client(QStringLiteral("link to a folder"))));
    QCOMPARE(mkfifo(QFile::encodeName(vendor.Client(QStringLiteral("pipe"))).constData(), 0600), 0);
    const Outcome outcome = Publish(vendor.ZipRequest());
    QCOMPARE(Rules(outcome.refusals),
             QStringList({QStringLiteral("link"), QStringLiteral("link"), QStringLiteral("link"),
                          QStringLiteral("special-file")}));
    QCOMPARE(outcome.refusals.last().path, QStringLiteral("pipe"));
    QVERIFY(!QFile::exists(vendor.Tree()));
}

void TestPublishRelease::fullDiskLeavesNothingBehind_posix()
{
    const Vendor vendor;
    VerifyPublished(Publish(vendor.ZipRequest()));
    const QMap<QString, QByteArray> before = Snapshot(vendor.Tree());
    Request request = vendor.ZipRequest();
    request.version = QStringLiteral("2.2.0");
    Request installer = vendor.InstallerRequest();
    installer.version = QStringLiteral("2.2.0");
    for (const Request &wanted : {request, installer}) {
        Findings refusals;
        {
            const FullDisk full;
            refusals = Publish(wanted).refusals;
        }
        QCOMPARE(Rules(refusals), QStringList(QStringLiteral("unwritable")));
        QCOMPARE(Snapshot(vendor.Tree()), before);
    }
}

#endif

QTEST_GUILESS_MAIN(TestPublishRelease)
#include "tst_publishrelease.moc"
