// SPDX-License-Identifier: MIT
#include "tests/faults/faultrun.h"
#include "tests/faults/owndisk.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QTest>

/// Disks that are full or read-only, and folders and files that are missing or in use.
class TestFaultsDisk : public QObject
{
    Q_OBJECT

private slots:
    void aDiskThatIsFullForThePackage();
    void aPackageWithoutAnEnd();
    void aDiskThatIsFullForTheUnpackedPackage();
    void aDiskThatIsFullForTheClient();
    void aDiskThatIsFullForTheConfiguration();
    void aDiskThatIsFullForTheLog();
    void tooLittleSpaceForThePackage();
    void aFolderThatTakesNoChanges_data();
    void aFolderThatTakesNoChanges();
    void aHomeThatTakesNoChangesEndsTheRun();
    void aChoiceThatCannotBeSavedEndsTheRun();
    void aMissingFolderIsMadeWhereItIsOurs_data();
    void aMissingFolderIsMadeWhereItIsOurs();
    void aConfigurationThatCannotBeReadEndsTheRun_data();
    void aConfigurationThatCannotBeReadEndsTheRun();
    void aPackageThatIsHeldOpen();
    void aMarkerThatIsHeldOpen();
    void aProgramOfTheClientThatIsHeldOpen();
};

namespace
{

constexpr qint64 kPageBytes = 4096;

QString DownloadFolder(const FaultRun &fault)
{
    return QFileInfo(fault.run.PackagePath(FaultRun::PackageName)).path();
}

QString ConfigFile(const FaultRun &fault)
{
    return fault.run.UpdateConfigFile();
}

/// Fills a small file system.
void Fill(const QString &folder)
{
    QFile filler(folder + QStringLiteral("/filler"));
    if (!filler.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        qFatal("cannot fill %s: %s", qPrintable(folder), qPrintable(filler.errorString()));
    while (filler.write(QByteArray(int(kPageBytes), 'x')) > 0)
        continue;
}

} // namespace

void TestFaultsDisk::aDiskThatIsFullForThePackage()
{
    FaultRun fault(QStringLiteral("disk: full during the download"));
    fault.Offer();
    {
        const Mount small = Mount::Empty(DownloadFolder(fault), 16 * kPageBytes);
        fault.Start();
        fault.WaitForError();
        fault.MustLeadTo({FaultRun::Corrupted,
                          FaultRun::Untouched + QStringLiteral(", part of the package"), 0});
        fault.GiveUp();
    }
    fault.NextRunMustWork();
}

void TestFaultsDisk::aPackageWithoutAnEnd()
{
    FaultRun fault(QStringLiteral("package: without an end, and the disk gets full"));
    fault.Offer();
    fault.ScriptPackage(
        {{QStringLiteral("fill"), 1LL << 40}, {QStringLiteral("length"), QStringLiteral("none")}});
    {
        const Mount small = Mount::Empty(DownloadFolder(fault), 16 * kPageBytes);
        fault.Start();
        const QString package = fault.run.PackagePath(FaultRun::PackageName);
        QVERIFY(
            QTest::qWaitFor([&] { return QFileInfo(package).size() == 16 * kPageBytes; }, 30000));
        fault.Press(FaultRun::CancelOrRetryButton);
        fault.WaitForWidget(FaultRun::ConfirmCancelButton);
        fault.Press(FaultRun::ConfirmCancelButton);
        QCOMPARE(fault.run.WaitForEnd(), 0);
        fault.MustLeadTo(
            {QStringLiteral("progress, then the question whether to cancel"),
             FaultRun::Untouched + QStringLiteral(", another file as the package"), 0,
             QStringLiteral("it goes on until the user cancels; user: Cancel, OK, start the "
                            "client; vendor: let the package server send a length")});
    }
    fault.NextRunMustWork();
}

void TestFaultsDisk::aDiskThatIsFullForTheUnpackedPackage()
{
    FaultRun fault(QStringLiteral("disk: full while the package is unpacked"));
    fault.Offer();
    {
        const Mount small =
            Mount::Empty(DownloadFolder(fault), FaultRun::Package().size() + 16 * kPageBytes);
        fault.RunThrough();
        fault.MustLeadTo(
            {FaultRun::Progress,
             QStringLiteral("part of the new client, the package, part of it unpacked, notes, "
                            "marker, version recorded"),
             1,
             QStringLiteral("user: free some disk space and install the client again; vendor: "
                            "announce the package's real size, three times that must be free")});
    }
    fault.NextRunMustWork();
}

void TestFaultsDisk::aDiskThatIsFullForTheClient()
{
    FaultRun fault(QStringLiteral("disk: full while the client is copied"));
    fault.Offer();
    {
        const QString folder = fault.run.Installed(QStringLiteral("plug ins"));
        const Mount small = Mount::Empty(folder, kPageBytes);
        Fill(folder);
        fault.RunThrough();
        fault.MustLeadTo(
            {FaultRun::Progress,
             QStringLiteral("part of the new client, the package, unpacked package, notes, "
                            "marker, version recorded"),
             1, QStringLiteral("user: free some disk space; vendor: offer a further version")});
    }
    fault.NextRunMustWork();
}

void TestFaultsDisk::aDiskThatIsFullForTheConfiguration()
{
    FaultRun fault(QStringLiteral("disk: full when the version is recorded"));
    fault.Offer();
    const QByteArray usual = ReadFile(ConfigFile(fault));
    {
        // One page, which is too small for the recorded version.
        const QString folder = fault.run.Scratch() + QStringLiteral("/small");
        const Mount small = Mount::Empty(folder, 2 * kPageBytes);
        QJsonObject config = QJsonDocument::fromJson(usual).object();
        config.insert(QStringLiteral("padding"), QString());
        const int rest = int(kPageBytes) - QJsonDocument(config).toJson().size();
        config.insert(QStringLiteral("padding"), QString(rest, QLatin1Char('x')));
        WriteFile(folder + QStringLiteral("/config"), QJsonDocument(config).toJson());
        Fill(folder);
        const Mount over = Mount::Over(ConfigFile(fault), folder + QStringLiteral("/config"));
        fault.RunThrough();
        fault.MustLeadTo(
            {FaultRun::Progress,
             QStringLiteral("new client, the package, unpacked package, notes, "
                            "marker, damaged updateconfig.json"),
             1,
             QStringLiteral("user: free some disk space and install the updater again; "
                            "vendor: keep updateconfig.json below 4 KiB")});
    }
    fault.run.WriteUpdateConfig(usual);
    fault.NextRunMustWork();
}

void TestFaultsDisk::aDiskThatIsFullForTheLog()
{
    FaultRun fault(QStringLiteral("disk: full for the log"));
    fault.Offer();
    const QString folder = fault.run.Home() + QStringLiteral("/AppData/Local/AutoUpdate");
    {
        const Mount small = Mount::Empty(folder, kPageBytes);
        Fill(folder);
        fault.RunThrough();
        QCOMPARE(fault.run.Log(), QStringList());
        fault.MustLeadTo({FaultRun::Progress, FaultRun::Updated, 1});
    }
    fault.NextRunMustWork();
}

void TestFaultsDisk::tooLittleSpaceForThePackage()
{
    FaultRun fault(QStringLiteral("disk: less free than three times the package"));
    fault.Offer();
    // On Linux the name of the drive leads to this folder in the working folder.
    const QString drive = fault.run.ProgramFolder() + QStringLiteral("/C:\\");
    {
        const Mount small =
            Mount::Empty(drive, 3 * (FaultRun::Package().size() / kPageBytes) * kPageBytes);
        fault.Start();
        fault.WaitForError();
        QCOMPARE(fault.run.server.Requests().size(), 1);
        fault.MustLeadTo(
            {QStringLiteral("progress, then \"Disk out of space on C, update failed.\""),
             FaultRun::Untouched, 0});
        fault.GiveUp();
    }
    QDir().rmdir(drive);
    fault.NextRunMustWork();
}

void TestFaultsDisk::aFolderThatTakesNoChanges_data()
{
    QTest::addColumn<QString>("folder");
    QTest::addColumn<QString>("left");
    QTest::addColumn<QString>("note");
    const QString unpacked = QStringLiteral(", the package, unpacked package");
    QTest::newRow("read-only: the log's folder")
        << QStringLiteral("home/AppData/Local/AutoUpdate") << FaultRun::Updated << QString();
    QTest::newRow("read-only: the client's data folder")
        << QStringLiteral("home/AppData/Roaming/norvaneAssistant") << FaultRun::Untouched + unpacked
        << QString();
    QTest::newRow("read-only: the client's folder")
        << QStringLiteral("Client/plug ins")
        << QStringLiteral("part of the new client") + unpacked +
               QStringLiteral(", notes, marker, version recorded")
        << QStringLiteral("user: make the folder writable; vendor: offer a further version");
    QTest::newRow("read-only: updateconfig.json")
        << QStringLiteral("Client/AutoUpdate/updateconfig.json")
        << QStringLiteral("new client") + unpacked + QStringLiteral(", notes, marker") << QString();
}

void TestFaultsDisk::aFolderThatTakesNoChanges()
{
    QFETCH(QString, folder);
    QFETCH(QString, left);
    QFETCH(QString, note);
    FaultRun fault(QString::fromLatin1(QTest::currentDataTag()));
    fault.Offer();
    const QString path = QFileInfo(fault.run.ClientFolder()).path() + QLatin1Char('/') + folder;
    if (!QFile::exists(path))
        QDir().mkpath(path);
    {
        const Mount still = Mount::ReadOnly(path);
        fault.RunThrough();
        fault.MustLeadTo({FaultRun::Progress, left, 1, note});
    }
    fault.NextRunMustWork();
}

void TestFaultsDisk::aHomeThatTakesNoChangesEndsTheRun()
{
    FaultRun fault(QStringLiteral("read-only: the download folder"));
    fault.Offer();
    QDir().mkpath(DownloadFolder(fault));
    {
        const Mount still = Mount::ReadOnly(DownloadFolder(fault));
        fault.RunThrough();
        fault.MustLeadTo(
            {FaultRun::Progress, FaultRun::Untouched, 0,
             QStringLiteral("user: make AppData/Local writable, start the client; the log says "
                            "\"Open failed\"")});
    }
    fault.NextRunMustWork();
}

void TestFaultsDisk::aChoiceThatCannotBeSavedEndsTheRun()
{
    FaultRun fault(QStringLiteral("read-only: updateconfig.json, and \"Never Prompt\" chosen"));
    fault.Offer();
    {
        const Mount still = Mount::ReadOnly(ConfigFile(fault));
        fault.run.Start();
        fault.WaitForWidget(FaultRun::NeverPromptBox);
        fault.Press(FaultRun::NeverPromptBox);
        fault.Press(FaultRun::LaterButton);
        QCOMPARE(fault.run.WaitForEnd(), 0);
        fault.MustLeadTo({QStringLiteral("prompt"), FaultRun::Untouched, 0,
                          QStringLiteral("user: start the client, choose \"Later\" alone; vendor: "
                                         "make the updater's folder writable for users")});
    }
    fault.NextRunMustWork();
}

void TestFaultsDisk::aMissingFolderIsMadeWhereItIsOurs_data()
{
    QTest::addColumn<QString>("folder");
    QTest::addColumn<QString>("left");
    QTest::newRow("missing: AppData/Local")
        << QStringLiteral("/AppData/Local") << FaultRun::Updated;
    QTest::newRow("missing: the client's data folder")
        << QStringLiteral("/AppData/Roaming/norvaneAssistant")
        << FaultRun::Untouched + QStringLiteral(", the package, unpacked package");
}

void TestFaultsDisk::aMissingFolderIsMadeWhereItIsOurs()
{
    QFETCH(QString, folder);
    QFETCH(QString, left);
    FaultRun fault(QString::fromLatin1(QTest::currentDataTag()));
    fault.Offer();
    QDir(fault.run.Home() + folder).removeRecursively();
    fault.RunThrough();
    // Left() creates the client's data folder again.
    fault.MustEndWith({FaultRun::Progress, left, 1});
}

void TestFaultsDisk::aConfigurationThatCannotBeReadEndsTheRun_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("left");
    const QByteArray cut("{\"appName\": \"Cli");
    const QString own = QStringLiteral("/AutoUpdate/updateconfig.json");
    const QString clients = QStringLiteral("/config.json");
    QTest::newRow("missing: updateconfig.json")
        << own << QByteArray() << FaultRun::Untouched + QStringLiteral(", no updateconfig.json");
    QTest::newRow("damaged: updateconfig.json")
        << own << cut << FaultRun::Untouched + QStringLiteral(", damaged updateconfig.json");
    QTest::newRow("missing: the client's configuration")
        << clients << QByteArray()
        << FaultRun::Untouched + QStringLiteral(" without its configuration");
    QTest::newRow("damaged: the client's configuration")
        << clients << cut << FaultRun::Untouched + QStringLiteral(" with a damaged configuration");
}

void TestFaultsDisk::aConfigurationThatCannotBeReadEndsTheRun()
{
    QFETCH(QString, file);
    QFETCH(QByteArray, content);
    QFETCH(QString, left);
    FaultRun fault(QString::fromLatin1(QTest::currentDataTag()));
    fault.Offer();
    const QString path = fault.run.ClientFolder() + file;
    const QByteArray usual = ReadFile(path);
    QFile::remove(path);
    if (!content.isNull())
        WriteFile(path, content);
    fault.RunThrough();
    fault.MustLeadTo({QStringLiteral("nothing"), left, 0,
                      QStringLiteral("user: start the client itself, install it again; the log "
                                     "names the file")});
    WriteFile(path, usual);
    fault.NextRunMustWork();
}

void TestFaultsDisk::aPackageThatIsHeldOpen()
{
    FaultRun fault(QStringLiteral("held: an older and longer package, which cannot be removed"));
    fault.Offer();
    const QString package = fault.run.PackagePath(FaultRun::PackageName);
    WriteFile(package, QByteArray(FaultRun::Package().size() + 1, 'x'));
    {
        const Mount held = Mount::Over(package, package);
        fault.Start();
        fault.WaitForError();
        fault.MustLeadTo({FaultRun::Corrupted,
                          FaultRun::Untouched + QStringLiteral(", another file as the package"),
                          0});
        fault.GiveUp();
    }
    fault.NextRunMustWork();
}

void TestFaultsDisk::aMarkerThatIsHeldOpen()
{
    FaultRun fault(QStringLiteral("held: the marker of the last update, which cannot be removed"));
    fault.Offer();
    const QString marker = fault.run.MarkerFile();
    WriteFile(marker, "1");
    {
        const Mount held = Mount::Over(marker, marker);
        fault.RunThrough();
        fault.MustLeadTo({FaultRun::Progress, FaultRun::Updated, 1});
    }
    fault.NextRunMustWork();
}

void TestFaultsDisk::aProgramOfTheClientThatIsHeldOpen()
{
    FaultRun fault(QStringLiteral("held: a file of the client, by a program that runs it"));
    fault.Offer();
    const QString data = fault.run.Installed(QStringLiteral("data.bin"));
    StandIn helper(data);
    helper.StartAndStay();
    fault.RunThrough();
    fault.MustLeadTo({FaultRun::Progress,
                      QStringLiteral("part of the new client, the package, unpacked package, "
                                     "notes, marker, version recorded"),
                      1,
                      QStringLiteral("user: close the program; vendor: stop helper programs with "
                                     "the client, offer a further version")});
    QFile::remove(data + QStringLiteral(".script"));
    QVERIFY(QTest::qWaitFor([&] { return !helper.IsRunning(); }, 15000));
    fault.NextRunMustWork();
}

int main(int argc, char *argv[])
{
    OwnDisk::EnterNamespace();
    QCoreApplication application(argc, argv);
    TestFaultsDisk test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_faults_disk.moc"
