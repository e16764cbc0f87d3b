// SPDX-License-Identifier: MIT
#include "config/global.h"
#include "config/servicecontract.h"
#include "release/publish/tree/reply.h"
#include "tests/release/vendor.h"
#include "tests/support/resourcelimits.h"
#include "tests/support/testhome.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QTest>
#include <QThread>
#include <QtGui/private/qzipreader_p.h>

#include <functional>
#include <memory>

#ifdef Q_OS_UNIX
#include <sys/stat.h>
#endif

namespace
{

/// Changes the request of a vendor.
using Change = std::function<void(const Vendor &, Request &)>;

/// Adds a row that is refused for @p rules, which are separated by blanks.
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

void LoseTheList(const Vendor &vendor)
{
    QVERIFY(QDir(vendor.Tree(QStringLiteral("check"))).removeRecursively());
    QFile::remove(vendor.Tree(QStringLiteral("index.html")));
    QFile::remove(vendor.Tree(QStringLiteral("SHA256SUMS")));
}

Change IsInstaller(const Change &change)
{
    return [change](const Vendor &vendor, Request &request) {
        request = vendor.InstallerRequest();
        change(vendor, request);
    };
}

/// The fields of the updater after it has read the answer of the tree.
const Global &ReadByUpdater(const Vendor &vendor, const QString &language,
                            const QString &answer = QString())
{
    ResetGlobal();
    Global::instance.language = language;
    Global::instance.ParseServiceReply(
        ReadFile(answer.isEmpty() ? vendor.OfferFile() : vendor.Tree(answer)));
    return Global::instance;
}

QString HexDigest(const QString &path, QCryptographicHash::Algorithm algorithm)
{
    return QString::fromLatin1(QCryptographicHash::hash(ReadFile(path), algorithm).toHex());
}

/// Promotes the release of @p from to the tree of @p target.
Request PromoteRequest(const Vendor &from, const Vendor &target)
{
    Request request;
    request.command = Request::Promote;
    request.source = from.Tree();
    request.out = target.Tree();
    request.version = QStringLiteral("2.1.3");
    return request;
}

void VerifyPublished(const Outcome &outcome)
{
    QVERIFY2(outcome.refusals.isEmpty(), qPrintable(LinesOf(outcome.refusals)));
}

} // namespace

Q_DECLARE_METATYPE(Change)

class TestPublishRelease : public QObject
{
    Q_OBJECT

private slots:
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
    void releaseIsOfferedToNobodyAtFirst();
    void olderVersionIsWarnedOf();
    void sameBytesCanBePublishedAgain_data();
    void sameBytesCanBePublishedAgain();
    void bytesOfAnEarlierTreeAreKnown_data();
    void bytesOfAnEarlierTreeAreKnown();
    void knownDigestsHaveToBeAList_data();
    void knownDigestsHaveToBeAList();
    void versionFileTellsTheVersion();
    void versionFileHasToBeInThePackage_data();
    void versionFileHasToBeInThePackage();
    void versionFileIsRememberedWhenPublishedAgain();
    void shorterVersionCanBeForced();
    void versionIsLongEnoughForEveryReleaseOfTheTree_data();
    void versionIsLongEnoughForEveryReleaseOfTheTree();
    void refusals_data();
    void refusals();
    void otherKindOfTheSameVersionIsNamed();
    void dryRunComparesWhatItNeedNotPack();
    void promotedReleaseGetsTheAddressOfItsTree_data();
    void promotedReleaseGetsTheAddressOfItsTree();
    void promotedReleaseIsNotRolledBack();
    void promotingTwiceIsOneActivity();
    void refusalLeavesAnOlderReleaseAlone_data();
    void refusalLeavesAnOlderReleaseAlone();
    void updatersFolderHasToBeAllowed();
    void whatACrashLeftIsCleanedUp();
    void twoAtATimeAreRefused();
    void lockOfAnotherMachineIsNamed();
    void lockWithoutAnOwnerIsTaken();
    void treeThatIsBeingChangedIsWaitedFor();
#ifdef Q_OS_UNIX
    void treeThatOthersCannotReadIsWarnedOf_posix();
    void treeHoldsWhatIsServed_posix();
    void linksAndSpecialFilesAreRefused_posix();
    void fullDiskLeavesNothingBehind_posix();
#endif
};

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
    QCOMPARE(updater.updateType, qint32(ServiceContract::ZipPackage));
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

    // The same names and contents, created in another order and folder, with other times.
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
    QCOMPARE(Snapshot(other.Tree(QStringLiteral("packages"))),
             Snapshot(one.Tree(QStringLiteral("packages"))));
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
    // Text between noise can be compressed.
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
    Global::instance.ParseServiceReply(ReadFile(vendor.OfferFile()));
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
    const Global &updater = ReadByUpdater(
        vendor, QStringLiteral("en"), QStringLiteral("check/answers/2.1.3/Setup-2.1.3.exe.json"));
    QCOMPARE(updater.id, QStringLiteral("Setup-2.1.3.exe"));
    QCOMPARE(updater.updateType, qint32(ServiceContract::InstallerPackage));
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
    const QString page =
        QString::fromUtf8(ReadFile(vendor.Tree(QStringLiteral("check/now/index.html"))));
    // Rich where the prompt shows rich text, and with visible tags where it does not.
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
    const QByteArray page = ReadFile(vendor.Tree(QStringLiteral("check/now/index.html")));
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
    QCOMPARE(vendor.List().releases.last().id, QStringLiteral("Client-2.2.0.zip"));
    QVERIFY(Verify(vendor).refusals.isEmpty());
}

void TestPublishRelease::releaseIsOfferedToNobodyAtFirst()
{
    const Vendor vendor;
    VerifyPublished(Publish(vendor.ZipRequest()));
    QCOMPARE(vendor.List().releases.size(), 1);
    QVERIFY(!vendor.List().releases.first().IsOffered());
}

void TestPublishRelease::olderVersionIsWarnedOf()
{
    const Vendor vendor;
    Request newer = vendor.ZipRequest();
    newer.version = QStringLiteral("2.2.0");
    VerifyPublished(Publish(newer));
    const Outcome outcome = Publish(vendor.ZipRequest());
    VerifyPublished(outcome);
    QCOMPARE(Rules(outcome.warnings), QStringList(QStringLiteral("older-version")));
    // The order of publishing counts, not the version numbers.
    QCOMPARE(vendor.List().releases.last().version, QStringLiteral("2.1.3"));
}

void TestPublishRelease::sameBytesCanBePublishedAgain_data()
{
    QTest::addColumn<Change>("change");
    QTest::newRow("as it is") << Change([](const Vendor &, Request &) {});
    QTest::newRow("package missing") << Change(
        [](const Vendor &vendor, Request &) { QVERIFY(QFile::remove(vendor.Package())); });
    QTest::newRow("package damaged")
        << Change([](const Vendor &vendor, Request &) { WriteFile(vendor.Package(), "damaged"); });
    QTest::newRow("answer missing") << Change(
        [](const Vendor &vendor, Request &) { QVERIFY(QFile::remove(vendor.OfferFile())); });
}

void TestPublishRelease::sameBytesCanBePublishedAgain()
{
    QFETCH(Change, change);
    const Vendor vendor;
    Request request = vendor.ZipRequest();
    VerifyPublished(Publish(request));
    const QByteArray package = ReadFile(vendor.Package());
    request.version = QStringLiteral("2.2.0");
    VerifyPublished(Publish(request));

    request = vendor.ZipRequest();
    change(vendor, request);
    const Outcome outcome = Publish(request);
    VerifyPublished(outcome);
    QCOMPARE(Rules(outcome.warnings), QStringList());
    QCOMPARE(ReadFile(vendor.Package()), package);
    QCOMPARE(vendor.List().releases.size(), 2);
    QCOMPARE(vendor.List().releases.first().version, QStringLiteral("2.1.3"));
    VerifyPublished(Verify(vendor));
}

void TestPublishRelease::bytesOfAnEarlierTreeAreKnown_data()
{
    QTest::addColumn<QString>("line"); // %1 is the digest
    QTest::newRow("as every release writes it") << "%1  packages/Client-2.1.3.zip\n";
    QTest::newRow("from the packages' own folder") << "%1  Client-2.1.3.zip\n";
    QTest::newRow("binary") << "%1 *packages/Client-2.1.3.zip\n";
    QTest::newRow("line ends of Windows") << "%1  packages/Client-2.1.3.zip\r\n";
    QTest::newRow("path of Windows") << "%1 *packages\\Client-2.1.3.zip\r\n";
    QTest::newRow("without a line end") << "%1  ./packages/Client-2.1.3.zip";
}

void TestPublishRelease::bytesOfAnEarlierTreeAreKnown()
{
    QFETCH(QString, line);
    const Vendor earlier;
    VerifyPublished(Publish(earlier.ZipRequest()));
    const Vendor vendor;
    Request request = vendor.ZipRequest();
    request.knownDigests = vendor.Path(QStringLiteral("known"));
    WriteFile(request.knownDigests,
              (QString(64, QLatin1Char('0')) + QStringLiteral("  packages/Client-2.0.0.zip\n") +
               line.arg(HexDigest(earlier.Package(), QCryptographicHash::Sha256).toUpper()))
                  .toUtf8());
    WriteFile(vendor.Client(QStringLiteral("new")), "x");
    QCOMPARE(Rules(Publish(request).refusals), QStringList(QStringLiteral("package-exists")));
    QVERIFY(!QFile::exists(vendor.Tree()));
    QVERIFY(QFile::remove(vendor.Client(QStringLiteral("new"))));
    VerifyPublished(Publish(request));
}

void TestPublishRelease::knownDigestsHaveToBeAList_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("line");
    const QByteArray good = QByteArray(64, '0') + "  packages/Client-2.0.0.zip\n";
    const QString noList = QStringLiteral("is not a list of SHA-256 digests; name the SHA256SUMS");
    QTest::newRow("no file") << QByteArray() << QStringLiteral("; name the SHA256SUMS of an");
    QTest::newRow("empty") << QByteArray("") << noList;
    QTest::newRow("no text") << QByteArray("\x89PNG\r\n\xff\0\0", 9) << noList;
    QTest::newRow("short digest") << good + good.mid(1) << noList;
    QTest::newRow("no name") << QByteArray(64, '0') + "  packages/\n" << noList;
    QTest::newRow("line between") << good + "\n" + good << noList;
    QTest::newRow("MD5") << QByteArray(32, '0') + "  packages/Client-2.0.0.zip\n" << noList;
}

void TestPublishRelease::knownDigestsHaveToBeAList()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, line);
    const Vendor vendor;
    const Vendor from;
    VerifyPublished(Publish(from.ZipRequest()));
    for (Request request :
         {vendor.ZipRequest(), vendor.InstallerRequest(), PromoteRequest(from, vendor)}) {
        request.knownDigests = vendor.Path(QStringLiteral("known"));
        if (!content.isNull())
            WriteFile(request.knownDigests, content);
        for (const bool isDryRun : {true, false}) {
            request.dryRun = isDryRun;
            const Findings refusals = Publish(request).refusals;
            QCOMPARE(Rules(refusals), QStringList(QStringLiteral("known")));
            QVERIFY2(LinesOf(refusals).contains(line), qPrintable(LinesOf(refusals)));
        }
    }
    QVERIFY(!QFile::exists(vendor.Tree()));
}

void TestPublishRelease::versionFileTellsTheVersion()
{
    const Vendor vendor;
    Request request = vendor.ZipRequest();
    request.configFile = QStringLiteral("plug ins/version.json");
    for (const char *content :
         {"", "{}", R"({"client":{"version":"9.9.9"}})", R"({"client":{"version":2}})"}) {
        WriteFile(vendor.Client(request.configFile), content);
        QCOMPARE(Rules(Publish(request).refusals), QStringList(QStringLiteral("config-version")));
    }
    WriteFile(vendor.Client(request.configFile), R"({"client":{"version":"2.1.3"}})");
    const Outcome outcome = Publish(request);
    VerifyPublished(outcome);
    // plug ins/deep/b.txt follows it.
    QCOMPARE(Rules(outcome.warnings), QStringList(QStringLiteral("config-order")));
    QVERIFY(outcome.warnings.first().message.contains(QLatin1String("before 1 other file")));
    QCOMPARE(Rules(Verify(vendor).warnings), QStringList(QStringLiteral("config-order")));
}

void TestPublishRelease::versionFileHasToBeInThePackage_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("isPacked");
    QTest::newRow("in the folder") << "~version/version.json" << true;
    QTest::newRow("roundabout") << "./~version//version.json" << true;
    QTest::newRow("next to the folder") << "../version.json" << false;
    QTest::newRow("absolute") << "/version.json" << false;
    QTest::newRow("left out") << "debug/version.json" << false;
    QTest::newRow("a folder") << "~version" << false;
    QTest::newRow("nothing") << "no.json" << false;
}

void TestPublishRelease::versionFileHasToBeInThePackage()
{
    QFETCH(QString, path);
    QFETCH(bool, isPacked);
    const Vendor vendor;
    const QByteArray content = R"({"client":{"version":"2.1.3"}})";
    for (const char *file : {"~version/version.json", "../version.json", "debug/version.json"})
        WriteFile(vendor.Client(QLatin1String(file)), content);
    Request request = vendor.ZipRequest();
    request.exclude = QStringList(QStringLiteral("debug"));
    request.configFile = path.startsWith(QLatin1Char('/')) ? vendor.Client(path.mid(1)) : path;
    const Outcome outcome = Publish(request);
    if (!isPacked) {
        QCOMPARE(Rules(outcome.refusals), QStringList(QStringLiteral("config-file")));
        QVERIFY(outcome.refusals.first().message.startsWith(request.configFile));
        return;
    }
    VerifyPublished(outcome);
    QCOMPARE(Rules(outcome.warnings), QStringList());
    QCOMPARE(vendor.List().releases.last().configFile, QStringLiteral("~version/version.json"));
    VerifyPublished(Verify(vendor));
}

void TestPublishRelease::versionFileIsRememberedWhenPublishedAgain()
{
    const Vendor vendor;
    Request request = vendor.ZipRequest();
    for (const char *file : {"~version/version.json", "~version/z.json"})
        WriteFile(vendor.Client(QLatin1String(file)), R"({"client":{"version":"2.1.3"}})");
    request.configFile = QStringLiteral("~version/version.json");
    VerifyPublished(Publish(request));
    VerifyPublished(Publish(vendor.ZipRequest()));
    QCOMPARE(vendor.List().releases.last().configFile, request.configFile);
    request.configFile = QStringLiteral("~version/z.json");
    VerifyPublished(Publish(request));
    QCOMPARE(vendor.List().releases.last().configFile, request.configFile);
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
    QCOMPARE(vendor.List().releases.last().version, QStringLiteral("2.1.3"));
}

void TestPublishRelease::versionIsLongEnoughForEveryReleaseOfTheTree_data()
{
    QTest::addColumn<Change>("change");
    // Each removes one record of the long version, and the other one stays.
    QTest::newRow("list and package") << Change([](const Vendor &, Request &) {});
    QTest::newRow("package that no list knows")
        << Change([](const Vendor &vendor, Request &) { LoseTheList(vendor); });
    QTest::newRow("list whose package was taken away")
        << Change([](const Vendor &vendor, Request &) {
               QVERIFY(QFile::remove(vendor.Tree(QStringLiteral("packages/Client-2.10.10.zip"))));
           });
    QTest::newRow("package of another kind") << Change([](const Vendor &vendor, Request &request) {
        request = vendor.InstallerRequest();
        LoseTheList(vendor);
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
             qPrintable(LinesOf(refusals)));
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
                   QFile(request.source).resize(0x80000000); // a sparse file
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
    QVERIFY2(LinesOf(outcome.refusals).contains(QLatin1String("; ")),
             qPrintable(LinesOf(outcome.refusals)));
    QVERIFY(outcome.summary.isEmpty());
    QVERIFY(!QFile::exists(vendor.Tree()));
    QCOMPARE(Snapshot(vendor.Client()), before);
}

void TestPublishRelease::otherKindOfTheSameVersionIsNamed()
{
    const Vendor vendor;
    Request request = vendor.InstallerRequest();
    VerifyPublished(Publish(request));
    request = vendor.ZipRequest();
    request.dryRun = true;
    const Findings refusals = Publish(request).refusals;
    QCOMPARE(Rules(refusals), QStringList(QStringLiteral("package-exists")));
    QCOMPARE(refusals.first().message,
             QStringLiteral("version 2.1.3 was published as Setup-2.1.3.exe; give this release a "
                            "new version"));
}

void TestPublishRelease::dryRunComparesWhatItNeedNotPack()
{
    const Vendor vendor;
    const Request installer = vendor.InstallerRequest();
    VerifyPublished(Publish(installer));
    Request again = installer;
    again.dryRun = true;
    VerifyPublished(Publish(again));
    WriteFile(installer.source, "MZ another installer");
    QCOMPARE(Rules(Publish(again).refusals), QStringList(QStringLiteral("package-exists")));

    const Vendor target;
    Request promote = PromoteRequest(vendor, target);
    promote.dryRun = true;
    VerifyPublished(Publish(promote));
    WriteFile(vendor.Tree(QStringLiteral("packages/Setup-2.1.3.exe")), "MZ damaged");
    QCOMPARE(Rules(Publish(promote).refusals), QStringList(QStringLiteral("digest")));
    QVERIFY(!QFile::exists(target.Tree()));
}

void TestPublishRelease::promotedReleaseGetsTheAddressOfItsTree_data()
{
    QTest::addColumn<QString>("targetPrefix"); // null: the tree is empty
    QTest::addColumn<QString>("givenPrefix");
    QTest::addColumn<QString>("address");
    QTest::newRow("as the tree's latest") << "https://x/client"
                                          << ""
                                          << "https://x/client/packages/Client-2.1.3.zip";
    QTest::newRow("as given") << "https://x/client"
                              << "https://y/"
                              << "https://y/packages/Client-2.1.3.zip";
    QTest::newRow("as it was, in an empty tree") << QString() << ""
                                                 << "https://x/beta/packages/Client-2.1.3.zip";
}

void TestPublishRelease::promotedReleaseGetsTheAddressOfItsTree()
{
    QFETCH(QString, targetPrefix);
    QFETCH(QString, givenPrefix);
    const Vendor from;
    Request request = from.ZipRequest();
    request.urlPrefix = QStringLiteral("https://x/beta");
    VerifyPublished(Publish(request));
    const Vendor target;
    if (!targetPrefix.isNull()) {
        request = target.ZipRequest();
        request.version = QStringLiteral("2.1.0");
        request.urlPrefix = targetPrefix;
        VerifyPublished(Publish(request));
    }
    request = PromoteRequest(from, target);
    request.urlPrefix = givenPrefix;
    VerifyPublished(Publish(request));
    QTEST(ReadByUpdater(target, QStringLiteral("en")).latestVersionUrl, "address");
    VerifyPublished(Verify(target));
}

void TestPublishRelease::promotedReleaseIsNotRolledBack()
{
    const Vendor from;
    const Vendor target;
    VerifyPublished(Publish(from.ZipRequest()));
    ReleaseList list = from.List();
    list.releases.first().isStopped = true;
    const QString file = from.Tree(QStringLiteral("check/now/releases.json"));
    WriteFile(file, ToJson(list));
    Request promote = PromoteRequest(from, target);
    promote.dryRun = true;
    const Outcome stopped = Publish(promote);
    VerifyPublished(stopped);
    QCOMPARE(Rules(stopped.warnings), QStringList(QStringLiteral("stopped")));

    list.releases.first().isWithdrawn = true;
    WriteFile(file, ToJson(list));
    QCOMPARE(Rules(Publish(promote).refusals), QStringList(QStringLiteral("withdrawn")));
}

void TestPublishRelease::promotingTwiceIsOneActivity()
{
    const Vendor from;
    const Vendor target;
    VerifyPublished(Publish(from.ZipRequest()));
    VerifyPublished(Publish(PromoteRequest(from, target)));
    QVERIFY(QFile::remove(target.Package()));
    VerifyPublished(Publish(PromoteRequest(from, target)));
    VerifyPublished(Verify(target));
    QCOMPARE(target.List().activity.size(), 1);
    Request forced = target.ZipRequest();
    forced.forced = true;
    VerifyPublished(Publish(forced));
    QCOMPARE(target.List().activity.size(), 2);
}

void TestPublishRelease::refusalLeavesAnOlderReleaseAlone_data()
{
    QTest::addColumn<Change>("change");
    QTest::addColumn<QStringList>("rules");
    AddRefusal("other bytes of the same version", "package-exists",
               [](const Vendor &vendor, Request &) {
                   WriteFile(vendor.Client(QStringLiteral("new")), "x");
               });
    AddRefusal("same version of another kind", "package-exists",
               IsInstaller([](const Vendor &, Request &) {}));
    AddRefusal("other bytes under a name that is there", "package-exists",
               [](const Vendor &vendor, Request &request) {
                   WriteFile(vendor.Tree(QStringLiteral("packages/Client-2.2.0.zip")), "other");
                   request.version = QStringLiteral("2.2.0");
               });
    AddRefusal("list that nobody wrote", "releases", [](const Vendor &vendor, Request &request) {
        WriteFile(vendor.Tree(QStringLiteral("check/now/releases.json")), "{}");
        request.version = QStringLiteral("2.2.0");
    });
#ifdef Q_OS_UNIX
    AddRefusal("link to the list lost", "releases", [](const Vendor &vendor, Request &request) {
        request.version = QStringLiteral("2.2.0");
        VerifyPublished(Publish(request));
        QVERIFY(QFile::remove(vendor.Tree(QStringLiteral("check/now"))));
        QVERIFY(QFile::remove(vendor.Tree(QStringLiteral("index.html"))));
        QVERIFY(QFile::remove(vendor.Tree(QStringLiteral("SHA256SUMS"))));
    });
#endif
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
    QLockFile other(vendor.Tree(QStringLiteral(".publish/publishing")));
    QVERIFY(other.tryLock());
    WriteFile(vendor.Tree(QStringLiteral(".publish/package")), "the other's");
    const QMap<QString, QByteArray> before = Snapshot(vendor.Tree());

    const Findings refusals = Publish(vendor.ZipRequest()).refusals;
    QCOMPARE(Rules(refusals), QStringList(QStringLiteral("busy")));
    const QString message = refusals.first().message;
    QVERIFY2(message.contains(QLatin1String("another process is changing this tree")),
             qPrintable(message));
    QCOMPARE(Snapshot(vendor.Tree()), before);
}

void TestPublishRelease::lockOfAnotherMachineIsNamed()
{
    const Vendor vendor;
    const QString lock = vendor.Tree(QStringLiteral(".publish/publishing"));
    WriteFile(lock, "4711\npublish\nelsewhere\n");
    const Findings refusals = Publish(vendor.ZipRequest()).refusals;
    QCOMPARE(Rules(refusals), QStringList(QStringLiteral("busy")));
    const QString &message = refusals.first().message;
    QVERIFY2(message.endsWith(
                 QStringLiteral(
                     "locked by process 4711 on elsewhere; if that process has ended, remove %1")
                     .arg(lock)),
             qPrintable(message));
}

void TestPublishRelease::lockWithoutAnOwnerIsTaken()
{
    const Vendor vendor;
    WriteFile(vendor.Tree(QStringLiteral(".publish/publishing")), "");
    WriteFile(vendor.Tree(QStringLiteral(".publish/lock")), "");
    VerifyPublished(Publish(vendor.ZipRequest()));
}

void TestPublishRelease::treeThatIsBeingChangedIsWaitedFor()
{
    const Vendor vendor;
    QDir().mkpath(vendor.Tree(QStringLiteral(".publish")));
    QLockFile other(vendor.Tree(QStringLiteral(".publish/lock")));
    QVERIFY(other.tryLock());
    const std::unique_ptr<QThread> thread(QThread::create([&] {
        // The package is made before the tree is locked.
        const QString package = vendor.Tree(QStringLiteral(".publish/package"));
        QTRY_VERIFY(QFileInfo(package).size() > 0);
        other.unlock();
    }));
    thread->start();
    const Outcome outcome = Publish(vendor.ZipRequest());
    QVERIFY(thread->wait());
    VerifyPublished(outcome);
}

#ifdef Q_OS_UNIX

void TestPublishRelease::treeThatOthersCannotReadIsWarnedOf_posix()
{
    const Vendor vendor;
    QVERIFY(QDir().mkpath(vendor.Tree()));
    QVERIFY(QFile::setPermissions(vendor.Tree(),
                                  QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    const QStringList rule(QStringLiteral("mode"));
    Request request = vendor.ZipRequest();
    request.dryRun = true;
    QCOMPARE(Rules(Publish(request).warnings), rule);
    request.dryRun = false;
    const Outcome outcome = Publish(request);
    VerifyPublished(outcome);
    QCOMPARE(Rules(outcome.warnings), rule);
    QCOMPARE(outcome.warnings.first().message,
             vendor.Tree() +
                 QStringLiteral(" cannot be read by other users, such as nginx; run "
                                "chmod -R o+rX ") +
                 vendor.Tree());
}

void TestPublishRelease::treeHoldsWhatIsServed_posix()
{
    const Vendor vendor;
    VerifyPublished(Publish(vendor.ZipRequest()));
    QStringList paths;
    for (const QString &path : Snapshot(vendor.Tree()).keys()) {
        if (!path.startsWith(QLatin1String("check/generations/1-")))
            paths.append(path);
    }
    QCOMPARE(
        paths,
        QStringList({QStringLiteral("SHA256SUMS"), QStringLiteral("check/"),
                     QStringLiteral("check/answers/"), QStringLiteral("check/answers/2.1.3/"),
                     QStringLiteral("check/answers/2.1.3/Client-2.1.3.zip.json"),
                     QStringLiteral("check/generations/"), QStringLiteral("check/none.json"),
                     QStringLiteral("check/now/"), QStringLiteral("index.html"),
                     QStringLiteral("packages/"), QStringLiteral("packages/Client-2.1.3.zip")}));
    QCOMPARE(ReadFile(vendor.Tree(QStringLiteral("SHA256SUMS"))),
             (HexDigest(vendor.Package(), QCryptographicHash::Sha256) +
              QStringLiteral("  packages/Client-2.1.3.zip\n"))
                 .toLatin1());
}

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
