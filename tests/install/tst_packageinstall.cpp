// SPDX-License-Identifier: MIT
#include "config/global.h"
#include "install/zipdirectory.h"
#include "tests/install/damagedarchives.h"
#include "tests/support/compression.h"
#include "tests/support/damageddisk.h"
#include "tests/support/logcapture.h"
#include "tests/support/loglines.h"
#include "tests/support/peakmemory.h"
#include "tests/support/resourcelimits.h"
#include "tests/support/standinfile.h"
#include "tests/support/testhome.h"
#include "tests/support/zipmaker.h"

#include <QBuffer>
#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QTest>
#include <QThread>

#include <functional>
#include <memory>
#include <utility>

namespace
{

/// A machine with client 1.0.0, to which 2.1.3 is offered. There is no package yet.
class OfferMachine : public TestHome
{
public:
    OfferMachine()
    {
        WriteUpdateConfig(R"({"currentVersion": "1.0.0"})");
        ClientDataFolder();
        QDir().mkpath(DownloadFolder());
        Global::instance.latestVersion = QStringLiteral("2.1.3");
        Global::instance.latestVersionInfo = QStringLiteral("1. New\n2. 更新");
    }

    QString DownloadFolder() const { return Home() + QStringLiteral("/AppData/Local/Client"); }
    QString Package() const { return DownloadFolder() + QStringLiteral("/pkg.zip"); }
    QString Downloaded(const QString &path) const
    {
        return DownloadFolder() + QLatin1Char('/') + path;
    }
    QString Xcopy() const { return CommandsFolder() + QStringLiteral("/xcopy"); }

    QStringList Messages() const { return m_log.Messages(); }

    /// The messages without the warnings of Qt itself.
    QStringList OwnMessages() const
    {
        QStringList own;
        for (const QString &message : Messages()) {
            if (!message.startsWith(QLatin1String("[WARNING] Q")))
                own.append(message);
        }
        return own;
    }

    /// All other files in the folder of the package, with their sizes.
    QStringList Unpacked() const
    {
        QStringList files;
        QDirIterator it(DownloadFolder(), QDir::Files | QDir::Hidden | QDir::System,
                        QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString path = it.next();
            if (path != Package())
                files.append(QDir(DownloadFolder()).relativeFilePath(path) + QLatin1Char(' ') +
                             QString::number(it.fileInfo().size()));
        }
        files.sort();
        return files;
    }

    /// All files of this machine with their sizes, and all folders.
    QStringList Everything() const
    {
        QStringList paths;
        QDirIterator it(QFileInfo(ClientFolder()).path(),
                        QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                        QDirIterator::Subdirectories);
        while (it.hasNext()) {
            it.next();
            paths.append(it.filePath() + QLatin1Char(' ') +
                         QString::number(it.fileInfo().isDir() ? -1 : it.fileInfo().size()));
        }
        paths.sort();
        return paths;
    }

private:
    LogCapture m_log;
};

QString WithBackSlashes(QString path)
{
    return path.replace(QLatin1Char('/'), QLatin1Char('\\'));
}

QString UnzipFailure(const QString &target)
{
    return LogLine::UnpackFailed(target, 5);
}

QStringList SuccessMessages(const OfferMachine &machine, const QString &package)
{
    return {LogLine::Unpacked(package), LogLine::NotesWritten(), LogLine::MarkerWritten(),
            LogLine::ClientCopied(machine.ProgramFolder()), LogLine::VersionRecorded()};
}

/// Verifies that the installation ended with the extraction.
void VerifyNothingInstalled(const OfferMachine &machine, const StandIn &xcopy)
{
    QVERIFY(!QFile::exists(machine.NotesFile()));
    QVERIFY(!QFile::exists(machine.MarkerFile()));
    QCOMPARE(xcopy.Calls().size(), 0);
    QCOMPARE(ReadFile(machine.UpdateConfigFile()), QByteArray(R"({"currentVersion": "1.0.0"})"));
}

/// The size in the header of the entry at @p index.
qint64 DeclaredSize(QByteArray archive, int index)
{
    QBuffer buffer(&archive);
    buffer.open(QIODevice::ReadOnly);
    return qint64(ReadZipDirectory(buffer).value(index).size);
}

/// Makes a package of one stored file, pkg/noise, and returns its data.
QByteArray PackNoise(const OfferMachine &machine)
{
    const QByteArray noise = SomeNoise(500000);
    ZipMaker zip;
    zip.AddFolder(QStringLiteral("pkg"));
    zip.AddFile(QStringLiteral("pkg/noise"), noise, ZipMaker::Stored);
    zip.WriteTo(machine.Package());
    return noise;
}

#ifdef Q_OS_LINUX
/// An archive whose central directory has at least @p size bytes.
QByteArray ZipWithListOf(int size)
{
    const QByteArray name(60000, 'n');
    const int count = size / name.size() + 1;
    ZipMaker zip;
    zip.AddRawName(name, "data");
    zip.SetEnd(ZipMaker::EntriesHere, quint32(count)).SetEnd(ZipMaker::Entries, quint32(count));
    const QByteArray archive = zip.Bytes();
    const int list = archive.indexOf("PK\x01\x02");
    const int end = archive.indexOf("PK\x05\x06");
    return archive.left(list) + archive.mid(list, end - list).repeated(count) + archive.mid(end);
}
#endif

/// While it lives, the second write to a file fails, but no other.
class OneFailedWrite : public QAbstractFileEngineHandler
{
public:
    explicit OneFailedWrite(QString path) : m_path(std::move(path)) {}

    QAbstractFileEngine *create(const QString &fileName) const override
    {
        return fileName == m_path ? new Engine(fileName) : nullptr;
    }

private:
    class Engine : public QFSFileEngine
    {
    public:
        using QFSFileEngine::QFSFileEngine;

        qint64 write(const char *data, qint64 size) override
        {
            return ++m_writes == 2 ? -1 : QFSFileEngine::write(data, size);
        }

    private:
        int m_writes = 0;
    };

    QString m_path;
};

using Fill = std::function<void(ZipMaker &)>;

/// Adds a row with the column "archive".
void AddArchive(const char *name, const Fill &fill)
{
    ZipMaker zip;
    fill(zip);
    QTest::newRow(name) << zip.Bytes();
}

} // namespace

class TestPackageInstall : public QObject
{
    Q_OBJECT

private slots:
    void packageReplacesTheClient();
    void restOfTheClientStays();
    void packageInAFolderWithBlanksAndChinese();
    void extractedFileReplacesAnOlderOne();
    void largeFilesArriveWhole();
    void linksAreSkipped();
#ifdef Q_OS_UNIX
    void modesAndTimesOfTheArchiveAreNotApplied_posix();
    void failedWritesAreNotNoticed_posix_data();
    void failedWritesAreNotNoticed_posix();
#endif
    void nothingFollowsAFailedWrite();
    void fileWithoutItsFolderFails_data();
    void fileWithoutItsFolderFails();
    void earlierEntriesStayWhenOneFails();
    void fileInThePlaceOfAFolderFails();
    void folderInThePlaceOfAFileFails();
    void damagedEntryFails_data();
    void damagedEntryFails();
    void damagedDiskFails();
    void entryThatTheReaderRefusesFails_data();
    void entryThatTheReaderRefusesFails();
    void secondEntryOfTheSameNameFails();
    void entryInThePlaceOfThePackageFails_data();
    void entryInThePlaceOfThePackageFails();
    void hostileArchives_data();
    void hostileArchives();
    void largestEntryIsInstalledWithoutMemory();
#ifdef Q_OS_LINUX
    void listBeyondTheMachinesMemoryFails_posix();
#endif
    void nameThatIsNoHarmlessFileFails_data();
    void nameThatIsNoHarmlessFileFails();
    void batchFileIsInstalled();
    void moreEntriesThanTheCountHolds_data();
    void moreEntriesThanTheCountHolds();
    void nameThatLeavesTheFolderFails_data();
    void nameThatLeavesTheFolderFails();
    void nameWithoutUtf8MarkStaysInTheFolder();
    void leadingDotsAndSlashesAreDropped_data();
    void leadingDotsAndSlashesAreDropped();
    void unusualArchivesAreInstalled_data();
    void unusualArchivesAreInstalled();
    void unreadableArchiveInstallsNothingAndSucceeds_data();
    void unreadableArchiveInstallsNothingAndSucceeds();
    void packageWithoutItsTopFolderCopiesNothingAndSucceeds();
    void notesAreReplaced_data();
    void notesAreReplaced();
    void markerIsReplaced();
    void missingClientDataFolderFails();
    void notesThatCannotBeOpenedFail();
    void markerThatCannotBeOpenedFails();
    void xcopyIsCalledWithSourceAndDestination_data();
    void xcopyIsCalledWithSourceAndDestination();
    void relativePackagePath();
    void destinationIsTheParentOfTheWorkingFolder();
    void xcopyIsWaitedForWithoutLimit();
    void exitCodeOfXcopyIsNotExamined_data();
    void exitCodeOfXcopyIsNotExamined();
#ifdef Q_OS_UNIX
    void crashOfXcopyIsNotExamined_posix();
    void xcopyThatCannotBeStartedFails_posix();
    void xcopyRunsInTheWorkingFolder_posix();
#endif
    void versionThatCannotBeRecordedStillSucceeds();
    void missingUpdateConfigIsMade();
    void scriptIsWritten();
    void scriptIsReplaced();
    void scriptThatCannotBeOpenedIsLogged_data();
    void scriptThatCannotBeOpenedIsLogged();
};

void TestPackageInstall::packageReplacesTheClient()
{
    const OfferMachine machine;
    WriteFile(machine.Installed(QStringLiteral("app.txt")), "old and longer than the new one");
    ZipMaker zip;
    zip.AddFolder(QStringLiteral("pkg"));
    zip.AddFile(QStringLiteral("pkg/app.txt"), "new");
    zip.AddFolder(QStringLiteral("pkg/lib"));
    zip.AddFile(QStringLiteral("pkg/lib/库.txt"), SomeText(), ZipMaker::Stored);
    zip.AddFolder(QStringLiteral("pkg/empty/deep"));
    zip.AddFile(QStringLiteral("pkg/nothing.txt"), QByteArray());
    zip.WriteTo(machine.Package());

    QCOMPARE(Global::instance.InstallPackage(machine.Package()), 0);

    QCOMPARE(ReadFile(machine.Installed(QStringLiteral("app.txt"))), QByteArray("new"));
    QCOMPARE(ReadFile(machine.Installed(QStringLiteral("lib/库.txt"))), SomeText());
    QVERIFY(QFileInfo(machine.Installed(QStringLiteral("empty/deep"))).isDir());
    QCOMPARE(ReadFile(machine.Installed(QStringLiteral("nothing.txt"))), QByteArray());

    QCOMPARE(ReadFile(machine.NotesFile()), QByteArray(u8"1. New\n2. 更新"));
    QCOMPARE(ReadFile(machine.MarkerFile()), QByteArray("1"));
    QCOMPARE(ReadFile(machine.UpdateConfigFile()),
             QByteArray("{\n    \"currentVersion\": \"2.1.3\"\n}\n"));

    // The package and the extracted folder stay.
    QCOMPARE(ReadFile(machine.Package()), zip.Bytes());
    QCOMPARE(ReadFile(machine.Downloaded(QStringLiteral("pkg/app.txt"))), QByteArray("new"));
    QCOMPARE(Global::instance.packageDir,
             WithBackSlashes(machine.Downloaded(QStringLiteral("pkg/*"))));
    QCOMPARE(machine.Messages(), SuccessMessages(machine, machine.Package()));
}

void TestPackageInstall::restOfTheClientStays()
{
    const OfferMachine machine;
    WriteFile(machine.Installed(QStringLiteral("settings.ini")), "mine");
    WriteFile(machine.Installed(QStringLiteral("lib/plugin.txt")), "mine too");
    ZipMaker zip;
    zip.AddFolder(QStringLiteral("pkg"));
    zip.AddFolder(QStringLiteral("pkg/lib"));
    zip.AddFile(QStringLiteral("pkg/lib/new.txt"), "new");
    zip.WriteTo(machine.Package());

    QCOMPARE(Global::instance.InstallPackage(machine.Package()), 0);
    QCOMPARE(ReadFile(machine.Installed(QStringLiteral("settings.ini"))), QByteArray("mine"));
    QCOMPARE(ReadFile(machine.Installed(QStringLiteral("lib/plugin.txt"))), QByteArray("mine too"));
    QCOMPARE(ReadFile(machine.Installed(QStringLiteral("lib/new.txt"))), QByteArray("new"));
    QVERIFY(QFile::exists(machine.UpdateConfigFile()));
    // The top folder of the package is not created in the client's folder.
    QVERIFY(!QFile::exists(machine.Installed(QStringLiteral("pkg"))));
}

void TestPackageInstall::packageInAFolderWithBlanksAndChinese()
{
    const OfferMachine machine;
    const QString package = machine.Home() + QStringLiteral("/我的 文件/客户端 2.1.3.zip");
    ZipMaker zip;
    zip.AddFolder(QStringLiteral("客户端 2.1.3"));
    zip.AddFile(QStringLiteral("客户端 2.1.3/说明 书.txt"), "new");
    zip.WriteTo(package);

    QCOMPARE(Global::instance.InstallPackage(package), 0);
    QCOMPARE(ReadFile(machine.Installed(QStringLiteral("说明 书.txt"))), QByteArray("new"));
    QCOMPARE(machine.Messages(), SuccessMessages(machine, package));
}

void TestPackageInstall::extractedFileReplacesAnOlderOne()
{
    const OfferMachine machine;
    WriteFile(machine.Downloaded(QStringLiteral("pkg/app.txt")), QByteArray(1000, 'o'));
    ZipMaker zip;
    zip.AddFolder(QStringLiteral("pkg"));
    zip.AddFile(QStringLiteral("pkg/app.txt"), "new");
    zip.WriteTo(machine.Package());
    QCOMPARE(Global::instance.InstallPackage(machine.Package()), 0);
    QCOMPARE(ReadFile(machine.Downloaded(QStringLiteral("pkg/app.txt"))), QByteArray("new"));
}

void TestPackageInstall::largeFilesArriveWhole()
{
    const OfferMachine machine;
    const QByteArray noise = SomeNoise(5 << 20);
    const QByteArray zeros(20 << 20, '\0');
    ZipMaker zip;
    zip.AddFolder(QStringLiteral("pkg"));
    zip.AddFile(QStringLiteral("pkg/stored"), noise, ZipMaker::Stored);
    zip.AddFile(QStringLiteral("pkg/deflated"), noise);
    zip.AddFile(QStringLiteral("pkg/zeros"), zeros);
    zip.WriteTo(machine.Package());
    QCOMPARE(Global::instance.InstallPackage(machine.Package()), 0);
    QVERIFY(ReadFile(machine.Installed(QStringLiteral("stored"))) == noise);
    QVERIFY(ReadFile(machine.Installed(QStringLiteral("deflated"))) == noise);
    QVERIFY(ReadFile(machine.Installed(QStringLiteral("zeros"))) == zeros);
}

void TestPackageInstall::linksAreSkipped()
{
    const OfferMachine machine;
    ZipMaker zip;
    zip.AddFolder(QStringLiteral("pkg"));
    zip.AddLink(QStringLiteral("pkg/link"), machine.UpdateConfigFile());
    zip.AddLink(QStringLiteral("pkg/folder"), machine.Home());
    zip.AddLink(QStringLiteral("missing/link"), QStringLiteral("app.txt"));
    zip.AddFile(QStringLiteral("pkg/app.txt"), "new");
    zip.WriteTo(machine.Package());

    QCOMPARE(Global::instance.InstallPackage(machine.Package()), 0);
    QCOMPARE(QDir(machine.Downloaded(QStringLiteral("pkg")))
                 .entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot),
             QStringList(QStringLiteral("app.txt")));
    QCOMPARE(machine.Messages(), SuccessMessages(machine, machine.Package()));
}

#ifdef Q_OS_UNIX
void TestPackageInstall::modesAndTimesOfTheArchiveAreNotApplied_posix()
{
    const OfferMachine machine;
    ZipMaker zip;
    zip.SetPermissions(QFileDevice::ReadOwner | QFileDevice::ExeOwner | QFileDevice::ExeOther);
    zip.AddFolder(QStringLiteral("pkg"));
    zip.AddFile(QStringLiteral("pkg/app.txt"), "new");
    zip.WriteTo(machine.Package());
    const QString other = machine.Downloaded(QStringLiteral("other"));
    WriteFile(other, "an ordinary file");

    QCOMPARE(Global::instance.InstallPackage(machine.Package()), 0);
    const QFileInfo extracted(machine.Downloaded(QStringLiteral("pkg/app.txt")));
    QCOMPARE(extracted.permissions(), QFileInfo(other).permissions());
    QVERIFY(extracted.lastModified() >= QFileInfo(other).lastModified());
}

void TestPackageInstall::failedWritesAreNotNoticed_posix_data()
{
    QTest::addColumn<int>("room");
    QTest::newRow("full") << 0;
    // In the middle of a single write.
    QTest::newRow("full after 100,000 bytes of each file") << 100000;
}

void TestPackageInstall::failedWritesAreNotNoticed_posix()
{
    QFETCH(int, room);
    const OfferMachine machine;
    const QByteArray noise = SomeNoise(500000);
    ZipMaker zip;
    zip.AddFolder(QStringLiteral("pkg"));
    zip.AddFile(QStringLiteral("pkg/stored"), noise, ZipMaker::Stored);
    zip.AddFile(QStringLiteral("pkg/deflated"), noise);
    zip.AddFile(QStringLiteral("pkg/small"), "small");
    zip.WriteTo(machine.Package());
    int result = 1;
    {
        const FullDisk full{rlim_t(room)};
        result = Global::instance.InstallPackage(machine.Package());
    }
    QCOMPARE(result, 0);
    const auto unpacked = [&machine](const char *name) {
        return ReadFile(machine.Downloaded(QStringLiteral("pkg/") + QLatin1String(name)));
    };
    QVERIFY(unpacked("stored") == noise.left(room));
    QVERIFY(unpacked("deflated") == noise.left(room));
    QCOMPARE(unpacked("small"), QByteArray("small").left(room));
    QCOMPARE(ReadFile(machine.NotesFile()), Global::instance.latestVersionInfo.toUtf8().left(room));
    QCOMPARE(ReadFile(machine.MarkerFile()), QByteArray("1").left(room));
    QCOMPARE(machine.Messages(), SuccessMessages(machine, machine.Package()));
}
#endif

void TestPackageInstall::nothingFollowsAFailedWrite()
{
    const OfferMachine machine;
    const QByteArray noise = PackNoise(machine);
    const QString target = machine.Downloaded(QStringLiteral("pkg/noise"));
    {
        // Space is available again at once, as if another program had freed some.
        const OneFailedWrite disk(target);
        QCOMPARE(Global::instance.InstallPackage(machine.Package()), 0);
    }
    const QByteArray unpacked = ReadFile(target);
    QVERIFY(!unpacked.isEmpty());
    QVERIFY(unpacked.size() < noise.size());
    QVERIFY(noise.startsWith(unpacked));
    QCOMPARE(machine.Messages(), SuccessMessages(machine, machine.Package()));
}

void TestPackageInstall::fileWithoutItsFolderFails_data()
{
    QTest::addColumn<QByteArray>("archive");
    AddArchive("file before its folder", [](ZipMaker &zip) {
        zip.AddFile(QStringLiteral("pkg/app.txt"), "new");
        zip.AddFolder(QStringLiteral("pkg"));
    });
    AddArchive("no folders at all", [](ZipMaker &zip) {
        zip.AddFile(QStringLiteral("pkg/app.txt"), "new");
        zip.AddFile(QStringLiteral("pkg/after.txt"), "new");
    });
    AddArchive("another folder", [](ZipMaker &zip) {
        zip.AddFolder(QStringLiteral("pkg2"));
        zip.AddFile(QStringLiteral("pkg/app.txt"), "new");
    });
}

void TestPackageInstall::fileWithoutItsFolderFails()
{
    QFETCH(QByteArray, archive);
    const OfferMachine machine;
    WriteFile(machine.Package(), archive);
    const StandIn xcopy(machine.Xcopy());

    QCOMPARE(Global::instance.InstallPackage(machine.Package()), -1);
    QCOMPARE(machine.Messages(),
             QStringList(UnzipFailure(machine.Downloaded(QStringLiteral("pkg/app.txt")))));
    QVERIFY(!QFile::exists(machine.Downloaded(QStringLiteral("pkg"))));
    QCOMPARE(Global::instance.packageDir, machine.DownloadFolder() + QLatin1Char('/'));
    VerifyNothingInstalled(machine, xcopy);
}

void TestPackageInstall::earlierEntriesStayWhenOneFails()
{
    const OfferMachine machine;
    ZipMaker zip;
    zip.AddFolder(QStringLiteral("pkg"));
    zip.AddFile(QStringLiteral("pkg/first.txt"), "first");
    zip.AddFile(QStringLiteral("missing/second.txt"), "second");
    zip.AddFile(QStringLiteral("pkg/third.txt"), "third");
    zip.WriteTo(machine.Package());
    const StandIn xcopy(machine.Xcopy());

    QCOMPARE(Global::instance.InstallPackage(machine.Package()), -1);
    QCOMPARE(machine.Messages(),
             QStringList(UnzipFailure(machine.Downloaded(QStringLiteral("missing/second.txt")))));
    QCOMPARE(ReadFile(machine.Downloaded(QStringLiteral("pkg/first.txt"))), QByteArray("first"));
    QVERIFY(!QFile::exists(machine.Downloaded(QStringLiteral("pkg/third.txt"))));
    // The archive was closed: Windows does not remove an open file.
    QVERIFY(QFile::remove(machine.Package()));
    VerifyNothingInstalled(machine, xcopy);
}

void TestPackageInstall::fileInThePlaceOfAFolderFails()
{
    const OfferMachine machine;
    WriteFile(machine.Downloaded(QStringLiteral("pkg")), "a file");
    ZipMaker zip;
    AddThreeEntries(zip);
    zip.WriteTo(machine.Package());

    // The failure to create the folder is ignored, but its first file cannot be created.
    QCOMPARE(Global::instance.InstallPackage(machine.Package()), -1);
    QCOMPARE(machine.Messages(),
             QStringList(UnzipFailure(machine.Downloaded(QStringLiteral("pkg/app.txt")))));
    QCOMPARE(ReadFile(machine.Downloaded(QStringLiteral("pkg"))), QByteArray("a file"));
}

void TestPackageInstall::folderInThePlaceOfAFileFails()
{
    const OfferMachine machine;
    QDir().mkpath(machine.Downloaded(QStringLiteral("pkg/app.txt")));
    ZipMaker zip;
    AddThreeEntries(zip);
    zip.WriteTo(machine.Package());
    QCOMPARE(Global::instance.InstallPackage(machine.Package()), -1);
    QCOMPARE(machine.Messages(),
             QStringList(UnzipFailure(machine.Downloaded(QStringLiteral("pkg/app.txt")))));
}

void TestPackageInstall::damagedEntryFails_data()
{
    AddDamagedArchives();
}

void TestPackageInstall::damagedEntryFails()
{
    QFETCH(QByteArray, archive);
    const OfferMachine machine;
    WriteFile(machine.Package(), archive);
    const StandIn xcopy(machine.Xcopy());

    QCOMPARE(Global::instance.InstallPackage(machine.Package()), -1);
    QCOMPARE(machine.OwnMessages(),
             QStringList(UnzipFailure(machine.Downloaded(QStringLiteral("pkg/app.txt")))));
    // Part of it may have been extracted, because the damage shows at the end only.
    QVERIFY(!QFile::exists(machine.Downloaded(QStringLiteral("pkg/after.txt"))));
    QVERIFY(QFileInfo(machine.Downloaded(QStringLiteral("pkg/app.txt"))).size() <=
            DeclaredSize(archive, 1));
    VerifyNothingInstalled(machine, xcopy);
}

void TestPackageInstall::damagedDiskFails()
{
    const OfferMachine machine;
    const QByteArray noise = PackNoise(machine);
    const StandIn xcopy(machine.Xcopy());
    const QString target = machine.Downloaded(QStringLiteral("pkg/noise"));
    {
        const DamagedDisk disk(machine.Package(), 200000, 300000);
        QCOMPARE(Global::instance.InstallPackage(machine.Package()), -1);
    }
    QCOMPARE(machine.Messages(), QStringList(UnzipFailure(target)));
    QVERIFY(noise.startsWith(ReadFile(target)));
    VerifyNothingInstalled(machine, xcopy);
}

void TestPackageInstall::entryThatTheReaderRefusesFails_data()
{
    QTest::addColumn<QByteArray>("archive");
    QTest::addColumn<QString>("target");
    const auto row = [](const char *name, ZipField field, quint32 value, const char *target) {
        ZipMaker zip;
        AddThreeEntries(zip);
        zip.Set(1, field, value);
        QTest::newRow(name) << zip.Bytes() << QString::fromLatin1(target);
    };
    row("zip64 needed", ZipMaker::VersionNeeded, 45, "pkg/app.txt");
    row("latest version needed", ZipMaker::VersionNeeded, 63, "pkg/app.txt");
    // The reader returns no path for an entry from an unknown system.
    row("made on another system", ZipMaker::MadeBy, 5 << 8, "");
}

void TestPackageInstall::entryThatTheReaderRefusesFails()
{
    QFETCH(QByteArray, archive);
    QFETCH(QString, target);
    const OfferMachine machine;
    WriteFile(machine.Package(), archive);
    const StandIn xcopy(machine.Xcopy());

    QCOMPARE(Global::instance.InstallPackage(machine.Package()), -1);
    QCOMPARE(machine.OwnMessages(), QStringList(UnzipFailure(machine.Downloaded(target))));
    QVERIFY(QDir(machine.Downloaded(QStringLiteral("pkg"))).isEmpty());
    VerifyNothingInstalled(machine, xcopy);
}

void TestPackageInstall::secondEntryOfTheSameNameFails()
{
    const OfferMachine machine;
    ZipMaker zip;
    zip.AddFolder(QStringLiteral("pkg"));
    zip.AddFile(QStringLiteral("pkg/app.txt"), "first");
    zip.AddFolder(QStringLiteral("pkg"));
    zip.AddFile(QStringLiteral("pkg/app.txt"), "other");
    zip.WriteTo(machine.Package());
    const StandIn xcopy(machine.Xcopy());

    // The reader would return the data of the first one again.
    QCOMPARE(Global::instance.InstallPackage(machine.Package()), -1);
    QCOMPARE(machine.Messages(),
             QStringList(UnzipFailure(machine.Downloaded(QStringLiteral("pkg/app.txt")))));
    QCOMPARE(ReadFile(machine.Downloaded(QStringLiteral("pkg/app.txt"))), QByteArray("first"));
    VerifyNothingInstalled(machine, xcopy);
}

void TestPackageInstall::entryInThePlaceOfThePackageFails_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QString>("target");
    const auto row = [](const char *name, const char *target) {
        QTest::newRow(name) << QByteArray(name) << QString::fromLatin1(target);
    };
    row("pkg.zip", "pkg.zip");
    row("././pkg.zip", "pkg.zip");
    row("../pkg.zip", "pkg.zip");
    row("/pkg.zip", "pkg.zip");
#ifdef Q_OS_WIN
    row("PKG.ZIP", "PKG.ZIP");
#endif
}

void TestPackageInstall::entryInThePlaceOfThePackageFails()
{
    QFETCH(QByteArray, name);
    QFETCH(QString, target);
    const OfferMachine machine;
    const StandIn xcopy(machine.Xcopy());
    ZipMaker zip;
    zip.AddFolder(QStringLiteral("pkg"));
    zip.AddRawName(name, "mine");
    zip.AddFile(QStringLiteral("pkg/after.txt"), "after");
    zip.WriteTo(machine.Package());

    QCOMPARE(Global::instance.InstallPackage(machine.Package()), -1);
    QCOMPARE(machine.Messages(), QStringList(UnzipFailure(machine.Downloaded(target))));
    QCOMPARE(ReadFile(machine.Package()), zip.Bytes());
    VerifyNothingInstalled(machine, xcopy);
}

/// Archives that are valid but hostile.
void TestPackageInstall::hostileArchives_data()
{
    QTest::addColumn<QByteArray>("archive");
    QTest::addColumn<int>("result");
    QTest::addColumn<QStringList>("unpacked");
    const auto row = [](const char *name, int result, const QStringList &unpacked,
                        const Fill &fill) {
        ZipMaker zip;
        zip.AddFolder(QStringLiteral("pkg"));
        fill(zip);
        QTest::newRow(name) << zip.Bytes() << result << unpacked;
    };
    const QString longestName = QStringLiteral("pkg/") + QString(65531, QLatin1Char('n'));
    constexpr quint32 encrypted = 0x0801;

    // Only the disk limits the size of a package, and 2 GiB that of an entry.
    row("64 MiB from 64 KiB, as it says", 0, {QStringLiteral("pkg/bomb 67108864")},
        [](ZipMaker &zip) { zip.AddFile(QStringLiteral("pkg/bomb"), QByteArray(64 << 20, '\0')); });
    row("data of two entries", 0,
        {QStringLiteral("pkg/one 4000000"), QStringLiteral("pkg/two 4000000")}, [](ZipMaker &zip) {
            zip.AddFile(QStringLiteral("pkg/one"), QByteArray(4000000, '\0'));
            zip.AddFile(QStringLiteral("pkg/two"), "small");
            for (const ZipField &field : {ZipMaker::Crc32, ZipMaker::PackedSize, ZipMaker::Size,
                                          ZipMaker::Method, ZipMaker::HeaderOffset})
                zip.Set(2, field, zip.Get(1, field), ZipMaker::Central);
        });
    row("65,535 entries", 0, {QStringLiteral("pkg/last 4")}, [](ZipMaker &zip) {
        for (int entry = 2; entry < 65535; ++entry)
            zip.AddFolder(QStringLiteral("pkg"));
        zip.AddFile(QStringLiteral("pkg/last"), "last");
    });
    row("name of 64 KiB", -1, {}, [&](ZipMaker &zip) { zip.AddFile(longestName, "long"); });
#ifdef Q_OS_UNIX
    // Wine reports no error for such a path.
    row("name of 64 KiB in short parts", -1, {}, [](ZipMaker &zip) {
        zip.AddRawName("pkg/" + QByteArray("part/").repeated(13105) + "part", "deep");
    });
#endif
    // The failure to create a folder is ignored until a file in it cannot be created.
    row("folder with a name of 64 KiB", 0, {QStringLiteral("pkg/after 5")}, [&](ZipMaker &zip) {
        zip.AddFolder(longestName.chopped(1));
        zip.AddFile(QStringLiteral("pkg/after"), "after");
    });
    row("no name at all", -1, {}, [](ZipMaker &zip) { zip.AddRawName("", "nameless"); });
    row("entries of 0 bytes", 0, {QStringLiteral("pkg/deflated 0"), QStringLiteral("pkg/stored 0")},
        [](ZipMaker &zip) {
            zip.AddFile(QStringLiteral("pkg/stored"), QByteArray(), ZipMaker::Stored);
            zip.AddFile(QStringLiteral("pkg/deflated"), QByteArray());
        });
    row("encrypted entry of 0 bytes", -1, {}, [](ZipMaker &zip) {
        zip.AddFile(QStringLiteral("pkg/secret"), QByteArray(), ZipMaker::Stored);
        zip.Set(1, ZipMaker::Flags, encrypted);
    });
    // A folder has no data that could be unreadable.
    row("encrypted folder", 0, {QStringLiteral("pkg/after 5")}, [](ZipMaker &zip) {
        zip.AddFolder(QStringLiteral("pkg/secret"));
        zip.AddFile(QStringLiteral("pkg/after"), "after");
        zip.Set(1, ZipMaker::Flags, encrypted);
    });
    row("two names for one file", 0, {QStringLiteral("pkg/app 5")}, [](ZipMaker &zip) {
        zip.AddFile(QStringLiteral("pkg/app"), "first, and longer");
        zip.AddRawName("pkg/./app", "other");
    });
    row("a file, then a folder of its name", -1, {QStringLiteral("pkg/app 4")}, [](ZipMaker &zip) {
        zip.AddFile(QStringLiteral("pkg/app"), "file");
        zip.AddFolder(QStringLiteral("pkg/app"));
        zip.AddFile(QStringLiteral("pkg/app/inner"), "inner");
    });
}

void TestPackageInstall::hostileArchives()
{
    QFETCH(QByteArray, archive);
    QFETCH(int, result);
    const OfferMachine machine;
    WriteFile(machine.Package(), archive);

    QCOMPARE(Global::instance.InstallPackage(machine.Package()), result);
    QTEST(machine.Unpacked(), "unpacked");
    if (result == 0) {
        QCOMPARE(machine.Messages(), SuccessMessages(machine, machine.Package()));
    } else {
        QCOMPARE(machine.Messages().size(), 1);
        QVERIFY(machine.Messages().first().startsWith(LogLine::UnpackFailedBegin()));
    }
}

void TestPackageInstall::largestEntryIsInstalledWithoutMemory()
{
    // The largest size that Qt's reader can return.
    constexpr quint32 size = 0x7fffffff;
    const OfferMachine machine;
    const StandIn xcopy(machine.Xcopy());
    WriteFile(machine.Package(), ZipOfZeros(size));

    const PeakMemory memory;
    QCOMPARE(Global::instance.InstallPackage(machine.Package()), 0);
    const qint64 grown = memory.GrownBy();
    QVERIFY2(grown <= 16LL * 1024 * 1024, qPrintable(QString::number(grown)));
    QCOMPARE(machine.Unpacked(), QStringList(QStringLiteral("pkg/zeros.bin 2147483647")));
    QCOMPARE(machine.Messages(), SuccessMessages(machine, machine.Package()));
    QCOMPARE(xcopy.Calls().size(), 1);
}

#ifdef Q_OS_LINUX
void TestPackageInstall::listBeyondTheMachinesMemoryFails_posix()
{
#ifdef __SANITIZE_ADDRESS__
    QSKIP("The sanitizer reserves more memory than a small machine has.");
#endif
    const OfferMachine machine;
    const StandIn xcopy(machine.Xcopy());
    WriteFile(machine.Package(), ZipWithListOf(120000000));
    {
        const LittleMemory memory(32U << 20);
        QCOMPARE(Global::instance.InstallPackage(machine.Package()), -1);
    }
    QCOMPARE(machine.Unpacked(), QStringList());
    QCOMPARE(machine.Messages(), QStringList(LogLine::UnpackFailed(machine.Package(), 4)));
    VerifyNothingInstalled(machine, xcopy);
}
#endif

void TestPackageInstall::nameThatIsNoHarmlessFileFails_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::newRow("device") << QByteArray("pkg/NUL");
    QTest::newRow("device with an extension") << QByteArray("pkg/com1.txt");
    QTest::newRow("device as a folder") << QByteArray("pkg/aux/file");
    QTest::newRow("control character") << QByteArray("pkg/bell\a.txt");
    QTest::newRow("reversed direction") << "pkg/" + QString(QChar(0x202e)).toUtf8() + "txt.exe";
    QTest::newRow("invisible character") << QByteArray("pkg/app\xe2\x80\x8b.exe");
}

void TestPackageInstall::nameThatIsNoHarmlessFileFails()
{
    QFETCH(QByteArray, name);
    const OfferMachine machine;
    ZipMaker zip;
    zip.AddFolder(QStringLiteral("pkg"));
    zip.AddFolder(QStringLiteral("pkg/aux"));
    zip.AddRawName(name, "harm");
    WriteFile(machine.Package(), zip.Bytes());
    QCOMPARE(Global::instance.InstallPackage(machine.Package()), -1);
    QCOMPARE(machine.Unpacked(), QStringList());
    QCOMPARE(machine.Messages().size(), 1);
}

void TestPackageInstall::batchFileIsInstalled()
{
    const OfferMachine machine;
    ZipMaker zip;
    zip.AddFolder(QStringLiteral("pkg")).AddFile(QStringLiteral("pkg/repair.bat"), "@echo off");
    WriteFile(machine.Package(), zip.Bytes());
    QCOMPARE(Global::instance.InstallPackage(machine.Package()), 0);
    QCOMPARE(machine.Unpacked(), QStringList(QStringLiteral("pkg/repair.bat 9")));
}

void TestPackageInstall::moreEntriesThanTheCountHolds_data()
{
    QTest::addColumn<quint32>("count");
    QTest::addColumn<QStringList>("unpacked");
    // With zip64: a marker here, and the true count in an extra record.
    QTest::newRow("zip64") << 0xffffU << QStringList(QStringLiteral("pkg/first 5"));
    // Without zip64: the count modulo 65536.
    QTest::newRow("65,537, of which 1 is left") << 1U << QStringList();
    QTest::newRow("65,538, of which 2 are left")
        << 2U << QStringList(QStringLiteral("pkg/first 5"));
}

/// Entries beyond the count are silently left out, so vendors must not make such archives.
void TestPackageInstall::moreEntriesThanTheCountHolds()
{
    QFETCH(quint32, count);
    const OfferMachine machine;
    ZipMaker zip;
    zip.AddFolder(QStringLiteral("pkg"));
    zip.AddFile(QStringLiteral("pkg/first"), "first");
    for (int entry = 2; entry < 65537; ++entry)
        zip.AddFolder(QStringLiteral("pkg"));
    zip.AddFile(QStringLiteral("pkg/last"), "last");
    zip.SetEnd(ZipMaker::EntriesHere, count).SetEnd(ZipMaker::Entries, count);
    zip.WriteTo(machine.Package());

    QCOMPARE(Global::instance.InstallPackage(machine.Package()), 0);
    QTEST(machine.Unpacked(), "unpacked");
    QCOMPARE(machine.Messages(), SuccessMessages(machine, machine.Package()));
}

void TestPackageInstall::nameThatLeavesTheFolderFails_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QString>("target");
    const auto row = [](const char *name, const char *target) {
        QTest::newRow(name) << QByteArray(name) << QString::fromLatin1(target);
    };
    const auto same = [&row](const char *name) { row(name, name); };
    same("pkg/../evil.txt");
    same("pkg/../../evil.txt");
    same("pkg/../../../../../scratch/evil.txt");
    same("pkg/..");
    same("C:/evil.txt");
    same("C:evil.txt");
    same("pkg/app.txt:evil");
    same("pkg/.. /evil.txt");
    same("pkg/.../evil.txt");
    // The same with folders.
    row("pkg/../../evil/", "pkg/../../evil");
    row("C:/evil/", "C:/evil");
#ifdef Q_OS_WIN
    row("pkg\\..\\..\\evil.txt", "pkg/../../evil.txt");
    row("C:\\evil.txt", "C:/evil.txt");
#else
    same("pkg\\..\\..\\evil.txt");
    same("pkg\\evil.txt");
    row("..\\evil.txt", "\\evil.txt");
    same("\\\\server\\share\\evil.txt");
    same("C:\\evil.txt");
#endif
}

void TestPackageInstall::nameThatLeavesTheFolderFails()
{
    QFETCH(QByteArray, name);
    QFETCH(QString, target);
    const OfferMachine machine;
    const StandIn xcopy(machine.Xcopy());
    QVERIFY(QDir().mkpath(machine.Downloaded(QStringLiteral("pkg"))));
    ZipMaker zip;
    zip.AddFolder(QStringLiteral("pkg"));
    zip.AddRawName(name, "evil");
    zip.AddFile(QStringLiteral("pkg/after.txt"), "after");
    zip.WriteTo(machine.Package());
    // One of the names leads to this path.
    QVERIFY(QFileInfo(machine.Scratch()).isDir());
    const QStringList before = machine.Everything();

    QCOMPARE(Global::instance.InstallPackage(machine.Package()), -1);
    QCOMPARE(machine.Messages(), QStringList(UnzipFailure(machine.Downloaded(target))));
    QCOMPARE(machine.Everything(), before);
}

void TestPackageInstall::nameWithoutUtf8MarkStaysInTheFolder()
{
    const OfferMachine machine;
    ZipMaker zip;
    zip.AddFolder(QStringLiteral("pkg"));
    zip.AddRawName("pkg/\xd6\xd0\xce\xc4.txt", "GBK");
    zip.WriteTo(machine.Package());

    QCOMPARE(Global::instance.InstallPackage(machine.Package()), 0);
    const QFileInfoList files =
        QDir(machine.Downloaded(QStringLiteral("pkg"))).entryInfoList(QDir::Files);
    QCOMPARE(files.size(), 1);
    QVERIFY(files.first().fileName().endsWith(QLatin1String(".txt")));
    QCOMPARE(ReadFile(files.first().filePath()), QByteArray("GBK"));
    QCOMPARE(ReadFile(machine.Installed(files.first().fileName())), QByteArray("GBK"));
}

void TestPackageInstall::leadingDotsAndSlashesAreDropped_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::newRow("parent") << QByteArray("../evil.txt");
    QTest::newRow("far parent") << QByteArray("../../../../evil.txt");
    QTest::newRow("absolute") << QByteArray("/evil.txt");
    QTest::newRow("share") << QByteArray("//evil.txt");
    QTest::newRow("this folder") << QByteArray("./evil.txt");
    QTest::newRow("mixed") << QByteArray("/.././/.../evil.txt");
}

void TestPackageInstall::leadingDotsAndSlashesAreDropped()
{
    QFETCH(QByteArray, name);
    const OfferMachine machine;
    const StandIn xcopy(machine.Xcopy());
    ZipMaker zip;
    zip.AddRawName(name, "evil");
    zip.WriteTo(machine.Package());

    QCOMPARE(Global::instance.InstallPackage(machine.Package()), 0);
    QCOMPARE(ReadFile(machine.Downloaded(QStringLiteral("evil.txt"))), QByteArray("evil"));
    QCOMPARE(machine.Everything().filter(QStringLiteral("evil")).size(), 1);
}

void TestPackageInstall::unusualArchivesAreInstalled_data()
{
    QTest::addColumn<QByteArray>("archive");
    const auto changed = [](const char *name, const Fill &change) {
        AddArchive(name, [&change](ZipMaker &zip) {
            AddThreeEntries(zip);
            change(zip);
        });
    };
    changed("sizes after the data", [](ZipMaker &zip) {
        zip.UseDataDescriptor(1);
        zip.UseDataDescriptor(2);
    });
    changed("no modes", [](ZipMaker &zip) {
        for (int entry = 0; entry < 3; ++entry)
            zip.Set(entry, ZipMaker::Attributes, 0);
    });
    changed("made on another system, no attributes", [](ZipMaker &zip) {
        for (int entry = 0; entry < 3; ++entry)
            zip.Set(entry, ZipMaker::MadeBy, 20).Set(entry, ZipMaker::Attributes, 0);
    });
    changed("made on another system", [](ZipMaker &zip) {
        for (int entry = 0; entry < 3; ++entry)
            zip.Set(entry, ZipMaker::MadeBy, 20).Set(entry, ZipMaker::Attributes, 0x20);
        zip.Set(0, ZipMaker::Attributes, 0x10);
    });
    changed("oldest version needed",
            [](ZipMaker &zip) { zip.Set(1, ZipMaker::VersionNeeded, 10); });
    AddArchive("folder twice", [](ZipMaker &zip) {
        zip.AddFolder(QStringLiteral("pkg"));
        AddThreeEntries(zip);
    });
    AddArchive("deep folder first", [](ZipMaker &zip) {
        zip.AddFolder(QStringLiteral("pkg/a/b/c"));
        zip.AddFile(QStringLiteral("pkg/app.txt"), SomeText());
        zip.AddFile(QStringLiteral("pkg/after.txt"), "after");
    });
    AddArchive("names without UTF-8 mark", [](ZipMaker &zip) {
        zip.AddRawName("pkg/", QByteArray());
        zip.AddRawName("pkg/app.txt", SomeText());
        zip.AddRawName("pkg/after.txt", "after");
    });
}

void TestPackageInstall::unusualArchivesAreInstalled()
{
    QFETCH(QByteArray, archive);
    const OfferMachine machine;
    WriteFile(machine.Package(), archive);
    QCOMPARE(Global::instance.InstallPackage(machine.Package()), 0);
    QCOMPARE(ReadFile(machine.Installed(QStringLiteral("app.txt"))), SomeText());
    QCOMPARE(ReadFile(machine.Installed(QStringLiteral("after.txt"))), QByteArray("after"));
    QCOMPARE(machine.Messages(), SuccessMessages(machine, machine.Package()));
}

void TestPackageInstall::unreadableArchiveInstallsNothingAndSucceeds_data()
{
    QTest::addColumn<QByteArray>("archive");
    QTest::newRow("not there") << QByteArray();
    QTest::newRow("empty file") << QByteArray("");
    QTest::newRow("no entries") << "PK\x05\x06" + QByteArray(18, '\0');
    QTest::newRow("no archive") << QByteArray("<html>404</html>");
    QTest::newRow("noise") << SomeNoise(100000);
    ZipMaker zip;
    AddThreeEntries(zip);
    QTest::newRow("cut in half") << zip.Bytes().left(zip.Bytes().size() / 2);
    QTest::newRow("last byte missing") << zip.Bytes().left(zip.Bytes().size() - 1);
    QTest::newRow("something before it") << "MZ" + zip.Bytes();
    zip.SetEnd(ZipMaker::DirectoryOffset, 0x00100000);
    QTest::newRow("directory beyond the file") << zip.Bytes();
    zip.SetEnd(ZipMaker::DirectoryOffset, 0xffffffff);
    zip.SetEnd(ZipMaker::Entries, 0xffff).SetEnd(ZipMaker::EntriesHere, 0xffff);
    QTest::newRow("zip64 markers in the end record") << zip.Bytes();
}

void TestPackageInstall::unreadableArchiveInstallsNothingAndSucceeds()
{
    QFETCH(QByteArray, archive);
    const OfferMachine machine;
    if (!archive.isNull())
        WriteFile(machine.Package(), archive);
    const StandIn xcopy(machine.Xcopy());

    QCOMPARE(Global::instance.InstallPackage(machine.Package()), 0);
    QCOMPARE(machine.OwnMessages(), SuccessMessages(machine, machine.Package()));
    QCOMPARE(QDir(machine.DownloadFolder()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
             archive.isNull() ? QStringList() : QStringList(QStringLiteral("pkg.zip")));
    QCOMPARE(ReadFile(machine.MarkerFile()), QByteArray("1"));
    QVERIFY(QFile::exists(machine.NotesFile()));
    QCOMPARE(xcopy.Calls().size(), 1);
}

void TestPackageInstall::packageWithoutItsTopFolderCopiesNothingAndSucceeds()
{
    const OfferMachine machine;
    ZipMaker zip;
    zip.AddFolder(QStringLiteral("other"));
    zip.AddFile(QStringLiteral("other/app.txt"), "new");
    zip.AddFile(QStringLiteral("top.txt"), "new");
    zip.WriteTo(machine.Package());

    QCOMPARE(Global::instance.InstallPackage(machine.Package()), 0);
    QCOMPARE(machine.Messages(), SuccessMessages(machine, machine.Package()));
    QVERIFY(QFile::exists(machine.Downloaded(QStringLiteral("other/app.txt"))));
    QCOMPARE(QDir(machine.ClientFolder()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
             QStringList(QStringLiteral("AutoUpdate")));
}

void TestPackageInstall::notesAreReplaced_data()
{
    QTest::addColumn<QString>("notes");
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("empty") << QString() << QByteArray();
    QTest::newRow("one line") << QStringLiteral("Faster.") << QByteArray("Faster.");
    QTest::newRow("lines as they are") << QStringLiteral("a\r\nb\n\n") << QByteArray("a\r\nb\n\n");
    QTest::newRow("UTF-8") << QStringLiteral("修复 é 😀") << QByteArray(u8"修复 é 😀");
}

void TestPackageInstall::notesAreReplaced()
{
    QFETCH(QString, notes);
    const OfferMachine machine;
    WriteFile(machine.NotesFile(), "notes of the version before, which were longer than these");
    ZipMaker zip;
    AddThreeEntries(zip);
    zip.WriteTo(machine.Package());
    Global::instance.latestVersionInfo = notes;
    QCOMPARE(Global::instance.InstallPackage(machine.Package()), 0);
    QTEST(ReadFile(machine.NotesFile()), "content");
}

void TestPackageInstall::markerIsReplaced()
{
    const OfferMachine machine;
    WriteFile(machine.MarkerFile(), "0 from before");
    ZipMaker zip;
    AddThreeEntries(zip);
    zip.WriteTo(machine.Package());
    QCOMPARE(Global::instance.InstallPackage(machine.Package()), 0);
    QCOMPARE(ReadFile(machine.MarkerFile()), QByteArray("1"));
}

void TestPackageInstall::missingClientDataFolderFails()
{
    const OfferMachine machine;
    const QString roaming = machine.Home() + QStringLiteral("/AppData/Roaming");
    QVERIFY(QDir(roaming).removeRecursively());
    const StandIn xcopy(machine.Xcopy());
    ZipMaker zip;
    AddThreeEntries(zip);
    zip.WriteTo(machine.Package());

    QCOMPARE(Global::instance.InstallPackage(machine.Package()), -1);
    QCOMPARE(machine.Messages(), SuccessMessages(machine, machine.Package()).mid(0, 1)
                                     << LogLine::NotesWriteFailed());
    QVERIFY(!QFile::exists(roaming));
    QVERIFY(QFile::exists(machine.Downloaded(QStringLiteral("pkg/after.txt"))));
    VerifyNothingInstalled(machine, xcopy);
    QCOMPARE(Global::instance.packageDir, machine.DownloadFolder() + QLatin1Char('/'));
}

void TestPackageInstall::notesThatCannotBeOpenedFail()
{
    const OfferMachine machine;
    QVERIFY(QDir().mkpath(machine.NotesFile()));
    const StandIn xcopy(machine.Xcopy());
    ZipMaker zip;
    AddThreeEntries(zip);
    zip.WriteTo(machine.Package());

    QCOMPARE(Global::instance.InstallPackage(machine.Package()), -1);
    QCOMPARE(machine.Messages(), SuccessMessages(machine, machine.Package()).mid(0, 1)
                                     << LogLine::NotesWriteFailed());
    QVERIFY(!QFile::exists(machine.MarkerFile()));
    QCOMPARE(xcopy.Calls().size(), 0);
}

void TestPackageInstall::markerThatCannotBeOpenedFails()
{
    const OfferMachine machine;
    QVERIFY(QDir().mkpath(machine.MarkerFile()));
    const StandIn xcopy(machine.Xcopy());
    ZipMaker zip;
    AddThreeEntries(zip);
    zip.WriteTo(machine.Package());

    QCOMPARE(Global::instance.InstallPackage(machine.Package()), -1);
    QCOMPARE(machine.Messages(), SuccessMessages(machine, machine.Package()).mid(0, 2)
                                     << LogLine::MarkerWriteFailed());
    QVERIFY(QFile::exists(machine.NotesFile()));
    QCOMPARE(xcopy.Calls().size(), 0);
    QCOMPARE(ReadFile(machine.UpdateConfigFile()), QByteArray(R"({"currentVersion": "1.0.0"})"));
}

void TestPackageInstall::xcopyIsCalledWithSourceAndDestination_data()
{
    QTest::addColumn<QString>("package");
    QTest::addColumn<QString>("source");
    const auto row = [](const char *package, const char *source) {
        QTest::newRow(package) << QString::fromUtf8(package) << QString::fromUtf8(source);
    };
    row("/pkg.zip", "\\pkg\\*");
    row("/a b/pkg 2.1.zip", "\\a b\\pkg 2.1\\*");
    row(u8"/客户端/包.zip", u8"\\客户端\\包\\*");
    // Cut at the first ".zip".
    row("/my.zips/pkg.zip", "\\my\\*");
    row("/pkg.zip.zip", "\\pkg\\*");
    row("/pkg.zipped.tmp", "\\pkg\\*");
    row("/.zip", "\\\\*");
    // Nothing to cut without ".zip".
    row("/pkg.ZIP", "\\pkg.ZIP\\*");
    row("/pkg.zi", "\\pkg.zi\\*");
}

void TestPackageInstall::xcopyIsCalledWithSourceAndDestination()
{
    QFETCH(QString, package);
    QFETCH(QString, source);
    const OfferMachine machine;
    const StandIn xcopy(machine.Xcopy());
    const QString path = machine.Scratch() + package;
    ZipMaker zip;
    AddThreeEntries(zip);
    zip.WriteTo(path);

    QCOMPARE(Global::instance.InstallPackage(path), 0);
    const QString expectedSource = WithBackSlashes(machine.Scratch()) + source;
    QCOMPARE(xcopy.Calls(),
             QVector<QStringList>({{QStringLiteral("/y"), QStringLiteral("/e"),
                                    QStringLiteral("/i"), QStringLiteral("/q"), expectedSource,
                                    WithBackSlashes(machine.ClientFolder())}}));
    QCOMPARE(Global::instance.packageDir, expectedSource);
    // Unpacked next to the package in any case.
    QVERIFY(QFile::exists(QFileInfo(path).path() + QStringLiteral("/pkg/app.txt")));
}

void TestPackageInstall::relativePackagePath()
{
    const OfferMachine machine;
    const StandIn xcopy(machine.Xcopy());
    ZipMaker zip;
    AddThreeEntries(zip);
    zip.WriteTo(machine.ProgramFolder() + QStringLiteral("/packages/pkg.zip"));

    QCOMPARE(Global::instance.InstallPackage(QStringLiteral("packages/pkg.zip")), 0);
    QCOMPARE(xcopy.Calls().value(0).value(4), QStringLiteral("packages\\pkg\\*"));
    QVERIFY(QFile::exists(machine.ProgramFolder() + QStringLiteral("/packages/pkg/app.txt")));
}

void TestPackageInstall::destinationIsTheParentOfTheWorkingFolder()
{
    const OfferMachine machine;
    ZipMaker zip;
    AddThreeEntries(zip);
    zip.WriteTo(machine.Package());
    const QString parent = machine.Scratch() + QStringLiteral("/客户 端");
    const QString folder = parent + QStringLiteral("/Update Folder");
    QVERIFY(QDir().mkpath(folder));
    QVERIFY(QDir::setCurrent(folder));

    QCOMPARE(Global::instance.InstallPackage(machine.Package()), 0);
    QCOMPARE(ReadFile(parent + QStringLiteral("/app.txt")), SomeText());
    QVERIFY(!QFile::exists(folder + QStringLiteral("/app.txt")));
    QCOMPARE(machine.Messages().value(3), LogLine::ClientCopied(folder));
}

void TestPackageInstall::xcopyIsWaitedForWithoutLimit()
{
    const OfferMachine machine;
    StandIn xcopy(machine.Xcopy());
    xcopy.SetScript("stay\n");
    ZipMaker zip;
    AddThreeEntries(zip);
    zip.WriteTo(machine.Package());

    int result = 1;
    const std::unique_ptr<QThread> worker(
        QThread::create([&] { result = Global::instance.InstallPackage(machine.Package()); }));
    worker->start();
    const bool started = xcopy.WaitForCalls(1);
    const bool ended = worker->wait(300);
    const QStringList before = machine.Messages();
    QVERIFY(QFile::remove(xcopy.Path() + QStringLiteral(".script")));
    QVERIFY(worker->wait(15000));

    QVERIFY(started);
    QVERIFY(!ended);
    QCOMPARE(before, SuccessMessages(machine, machine.Package()).mid(0, 3));
    QCOMPARE(result, 0);
    QCOMPARE(machine.Messages(), SuccessMessages(machine, machine.Package()));
}

void TestPackageInstall::exitCodeOfXcopyIsNotExamined_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::newRow("no files") << QByteArray("exit 1\n");
    QTest::newRow("no memory or no space") << QByteArray("exit 4\n");
    QTest::newRow("write error") << QByteArray("exit 5\n");
    QTest::newRow("with output") << StandIn::Prints("File not found - *\r\n0 File(s) copied\r\n") +
                                        "exit 4\n";
    QTest::newRow("with much output") << StandIn::Prints(SomeNoise(300000)) + "exit 4\n";
}

void TestPackageInstall::exitCodeOfXcopyIsNotExamined()
{
    QFETCH(QByteArray, script);
    const OfferMachine machine;
    StandIn xcopy(machine.Xcopy());
    xcopy.SetScript(script);
    ZipMaker zip;
    AddThreeEntries(zip);
    zip.WriteTo(machine.Package());

    QCOMPARE(Global::instance.InstallPackage(machine.Package()), 0);
    QCOMPARE(xcopy.Calls().size(), 1);
    QCOMPARE(machine.Messages(), SuccessMessages(machine, machine.Package()));
}

#ifdef Q_OS_UNIX

void TestPackageInstall::crashOfXcopyIsNotExamined_posix()
{
    const OfferMachine machine;
    WriteShellScript(machine.Xcopy(), "kill -KILL $$\n");
    ZipMaker zip;
    AddThreeEntries(zip);
    zip.WriteTo(machine.Package());
    QCOMPARE(Global::instance.InstallPackage(machine.Package()), 0);
    QCOMPARE(machine.Messages(), SuccessMessages(machine, machine.Package()));
}

void TestPackageInstall::xcopyThatCannotBeStartedFails_posix()
{
    const OfferMachine machine;
    ZipMaker zip;
    AddThreeEntries(zip);
    zip.WriteTo(machine.Package());
    qputenv("PATH", QFile::encodeName(machine.Scratch()));

    QCOMPARE(Global::instance.InstallPackage(machine.Package()), -1);
    QCOMPARE(machine.Messages(), SuccessMessages(machine, machine.Package()).mid(0, 3)
                                     << LogLine::CopyFailed());
    QCOMPARE(ReadFile(machine.MarkerFile()), QByteArray("1"));
    QCOMPARE(ReadFile(machine.UpdateConfigFile()), QByteArray(R"({"currentVersion": "1.0.0"})"));
}

void TestPackageInstall::xcopyRunsInTheWorkingFolder_posix()
{
    const OfferMachine machine;
    WriteShellScript(machine.Xcopy(), "printf %s \"$(pwd -P)\" > ran-here\n");
    ZipMaker zip;
    AddThreeEntries(zip);
    zip.WriteTo(machine.Package());
    QCOMPARE(Global::instance.InstallPackage(machine.Package()), 0);
    QCOMPARE(QString::fromUtf8(ReadFile(machine.ProgramFolder() + QStringLiteral("/ran-here"))),
             QFileInfo(machine.ProgramFolder()).canonicalFilePath());
}
#endif

void TestPackageInstall::versionThatCannotBeRecordedStillSucceeds()
{
    const OfferMachine machine;
    QVERIFY(QFile::remove(machine.UpdateConfigFile()));
    QVERIFY(QDir().mkpath(machine.UpdateConfigFile()));
    ZipMaker zip;
    AddThreeEntries(zip);
    zip.WriteTo(machine.Package());

    QCOMPARE(Global::instance.InstallPackage(machine.Package()), 0);
    QCOMPARE(machine.Messages(), SuccessMessages(machine, machine.Package()).mid(0, 4)
                                     << LogLine::UpdateConfigWriteFailed(5));
    QCOMPARE(ReadFile(machine.Installed(QStringLiteral("app.txt"))), SomeText());
}

void TestPackageInstall::missingUpdateConfigIsMade()
{
    const OfferMachine machine;
    QVERIFY(QFile::remove(machine.UpdateConfigFile()));
    ZipMaker zip;
    AddThreeEntries(zip);
    zip.WriteTo(machine.Package());

    QCOMPARE(Global::instance.InstallPackage(machine.Package()), 0);
    QCOMPARE(machine.Messages(), SuccessMessages(machine, machine.Package()));
    QCOMPARE(ReadFile(machine.UpdateConfigFile()), QByteArray("{\n"
                                                              "    \"currentVersion\": \"2.1.3\",\n"
                                                              "    \"noRemind\": 0,\n"
                                                              "    \"noRemindVersion\": \"\"\n"
                                                              "}\n"));
}

void TestPackageInstall::scriptIsWritten()
{
    const OfferMachine machine;
    Global::instance.scriptPath = machine.Scratch() + QStringLiteral("/update.scpt");
    Global::instance.WriteScript(QStringLiteral("start \"更新\"\n"));
    QCOMPARE(ReadFile(Global::instance.scriptPath), QByteArray(u8"start \"更新\"\n"));
    QCOMPARE(machine.Messages(), QStringList(LogLine::ScriptWritten()));
}

void TestPackageInstall::scriptIsReplaced()
{
    const OfferMachine machine;
    Global::instance.scriptPath = machine.Scratch() + QStringLiteral("/update.scpt");
    WriteFile(Global::instance.scriptPath, "an older and longer script");
    Global::instance.WriteScript(QStringLiteral("new"));
    QCOMPARE(ReadFile(Global::instance.scriptPath), QByteArray("new"));
    Global::instance.WriteScript(QString());
    QCOMPARE(ReadFile(Global::instance.scriptPath), QByteArray());
    QVERIFY(QFile::remove(Global::instance.scriptPath));
}

void TestPackageInstall::scriptThatCannotBeOpenedIsLogged_data()
{
    QTest::addColumn<QString>("tail");
    QTest::newRow("missing folder") << QStringLiteral("/missing/update.scpt");
    QTest::newRow("a folder") << QStringLiteral("/folder");
}

void TestPackageInstall::scriptThatCannotBeOpenedIsLogged()
{
    QFETCH(QString, tail);
    const OfferMachine machine;
    QVERIFY(QDir(machine.Scratch()).mkdir(QStringLiteral("folder")));
    Global::instance.scriptPath = machine.Scratch() + tail;
    Global::instance.WriteScript(QStringLiteral("the script"));
    QCOMPARE(machine.Messages(),
             QStringList(LogLine::ScriptWriteFailed(QStringLiteral("the script"))));
    QVERIFY(!QFile::exists(machine.Scratch() + QStringLiteral("/missing")));
}

QTEST_GUILESS_MAIN(TestPackageInstall)
#include "tst_packageinstall.moc"
