// SPDX-License-Identifier: MIT
#include "tests/support/loglines.h"
#include "tests/support/updaterrun.h"
#include "tests/support/zipmaker.h"

#include <QFile>
#include <QJsonDocument>
#include <QTest>

/// Updates from the start of the program to the start of the new client.
class TestUpdate : public QObject
{
    Q_OBJECT

private slots:
    void aZipPackageIsInstalledAndTheClientStarted();
    void aRelativeClientFolderBeginsAtTheUpdaters();
    void theNotesFollowTheLanguage_data();
    void theNotesFollowTheLanguage();
    void anInstallerIsStartedWithTheArguments();
    void aRunningClientIsStoppedBeforeTheDownload();
    void aCorruptedPackageIsNotInstalled();
    void aDamagedZipPackageStillStartsTheClient();
    void aPackageFromAServerNobodyTrustsIsRefused();
    void anAnnouncedNameThatIsRefusedStartsTheClient_data();
    void anAnnouncedNameThatIsRefusedStartsTheClient();
    void aPackageOfManyMegabytesArrivesWhole();
    void aMuchShorterVersionEndsEveryLaterRun();
    void aLongEnoughVersionEndsNoRun_data();
    void aLongEnoughVersionEndsNoRun();
#ifdef Q_OS_LINUX
    void anInterruptedCopyIsCompletedByTheNextStart_data();
    void anInterruptedCopyIsCompletedByTheNextStart();
#endif
};

namespace
{

const QString kPackage = QStringLiteral("client-2.1.3.zip");
const QStringList kImmediately{QStringLiteral("-immediately")};
const QString kUnreadable = LogLine::UpdateConfigDamaged(QJsonParseError::GarbageAtEnd);

/// A package with a new client configuration, a new file in a folder and an empty folder.
QByteArray NewClient()
{
    return ZipMaker()
        .AddFolder(QStringLiteral("client-2.1.3"))
        .AddFile(QStringLiteral("client-2.1.3/config.json"), R"({"client": {"version": "2.1.3"}})")
        .AddFolder(QStringLiteral("client-2.1.3/plug ins"))
        .AddFile(QStringLiteral("client-2.1.3/plug ins/中文.txt"), "new")
        .AddFolder(QStringLiteral("client-2.1.3/empty"))
        .Bytes();
}

/// Publishes @p version as a zip package that contains only the client's configuration.
void PublishVersion(UpdaterRun &run, const QString &version)
{
    const QString name = QStringLiteral("client-") + version;
    const QByteArray config =
        QStringLiteral(R"({"client": {"version": "%1"}})").arg(version).toUtf8();
    run.Publish(
        ZipMaker().AddFolder(name).AddFile(name + QStringLiteral("/config.json"), config).Bytes(),
        name + QStringLiteral(".zip"), {{QStringLiteral("latestVersion"), version}});
}

/// Installs 2.10.10 and then @p version, which starts the client twice.
void InstallAfterALongVersion(UpdaterRun &run, const QString &version)
{
    run.Configure();
    int calls = 0;
    for (const QString &published : {QStringLiteral("2.10.10"), version}) {
        PublishVersion(run, published);
        QCOMPARE(run.Run(kImmediately), 0);
        QVERIFY(run.client.WaitForCalls(++calls));
        QVERIFY(
            ReadFile(run.Installed(QStringLiteral("config.json"))).contains(published.toUtf8()));
    }
}

/// The log without the line with the service's answer.
QStringList LogWithoutAnswer(const UpdaterRun &run)
{
    QStringList lines = run.Log();
    for (int i = lines.size() - 1; i >= 0; --i) {
        if (lines.at(i).contains(QLatin1String("Service Jsondata:")))
            lines.removeAt(i);
    }
    return lines;
}

} // namespace

void TestUpdate::aZipPackageIsInstalledAndTheClientStarted()
{
    UpdaterRun run;
    run.Configure();
    run.Publish(NewClient(), kPackage);
    WriteFile(run.Installed(QStringLiteral("of the user.txt")), "stays");
    WriteFile(run.MarkerFile(), "old");
    WriteFile(run.PackagePath(QStringLiteral("left over/.hidden")), "old");

    QCOMPARE(run.Run({QStringLiteral("-immediately"), QStringLiteral("--profile=a \"b\" c")}), 0);

    const QString client = run.ClientFolder();
    QCOMPARE(ReadFile(client + QStringLiteral("/config.json")),
             QByteArray(R"({"client": {"version": "2.1.3"}})"));
    QCOMPARE(ReadFile(client + QStringLiteral("/plug ins/中文.txt")), QByteArray("new"));
    QVERIFY(QFileInfo(client + QStringLiteral("/empty")).isDir());
    QCOMPARE(ReadFile(client + QStringLiteral("/of the user.txt")), QByteArray("stays"));
    QVERIFY(!QFile::exists(run.PackagePath(QStringLiteral("left over"))));
    QCOMPARE(ReadFile(run.NotesFile()), QByteArray("New version"));
    QCOMPARE(ReadFile(run.MarkerFile()), QByteArray("1"));

    const QJsonObject config = QJsonDocument::fromJson(ReadFile(run.UpdateConfigFile())).object();
    QCOMPARE(config.value(QStringLiteral("currentVersion")).toString(), QStringLiteral("2.1.3"));
    QCOMPARE(config.value(QStringLiteral("appName")).toString(), run.ClientName());

    QVERIFY(run.client.WaitForCalls(1));
    QCOMPARE(run.client.Calls(), QVector<QStringList>{{QStringLiteral("--profile=a \"b\" c")}});

    const auto requests = run.server.Requests();
    QCOMPARE(requests.size(), 2);
    QCOMPARE(requests.at(1).method, QByteArray("GET"));
    QCOMPARE(requests.at(1).target, QByteArray("/packages/client-2.1.3.zip"));

    const QStringList log = LogWithoutAnswer(run);
    QCOMPARE(
        log.mid(0, 5),
        (QStringList{run.ConfigurationLine(),
                     LogLine::CommandLineParameter(QStringLiteral("-immediately")),
                     LogLine::CommandLineParameter(QStringLiteral("--profile=a \"b\" c")),
                     LogLine::MarkerRemoved(), LogLine::PackageFile(run.PackagePath(kPackage))}));
    QVERIFY2(log.at(5).startsWith(LogLine::DigestsBegin()), qPrintable(log.at(5)));
    QCOMPARE(log.mid(6),
             (QStringList{LogLine::Unpacked(run.PackagePath(kPackage)), LogLine::NotesWritten(),
                          LogLine::MarkerWritten(), LogLine::ClientCopied(run.ProgramFolder()),
                          LogLine::VersionRecorded(), LogLine::Starting(run.ClientName())}));
}

void TestUpdate::aRelativeClientFolderBeginsAtTheUpdaters()
{
    UpdaterRun run;
    run.Configure({{QStringLiteral("appPath"), QStringLiteral("../")}});
    run.Publish(NewClient(), kPackage);
    run.process.setWorkingDirectory(run.Scratch());

    QCOMPARE(run.Run(kImmediately), 0);

    QVERIFY(run.client.WaitForCalls(1));
    QCOMPARE(ReadFile(run.Installed(QStringLiteral("config.json"))),
             QByteArray(R"({"client": {"version": "2.1.3"}})"));
    // The version was read from there, so it is not offered again.
    QCOMPARE(run.Run(), 0);
    QVERIFY(run.client.WaitForCalls(2));
    QVERIFY(run.Log().join(QLatin1Char('\n')).contains(QLatin1String("currentVersion: \"2.1.3\"")));
}

void TestUpdate::theNotesFollowTheLanguage_data()
{
    QTest::addColumn<QByteArray>("language");
    QTest::addColumn<QString>("notes");
    QTest::newRow("en") << QByteArray("en\n") << QStringLiteral("New version");
    QTest::newRow("zh") << QByteArray(" zh ") << QStringLiteral("新版本");
    QTest::newRow("EN is Chinese with English notes")
        << QByteArray("EN") << QStringLiteral("New version");
    QTest::newRow("empty likewise") << QByteArray() << QStringLiteral("New version");
}

void TestUpdate::theNotesFollowTheLanguage()
{
    QFETCH(QByteArray, language);
    QFETCH(QString, notes);
    UpdaterRun run;
    run.SetLanguage(language);
    run.Configure();
    run.Publish(NewClient(), kPackage);
    QCOMPARE(run.Run(kImmediately), 0);
    QCOMPARE(QString::fromUtf8(ReadFile(run.NotesFile())), notes);
    QVERIFY(run.client.WaitForCalls(1));
}

void TestUpdate::anInstallerIsStartedWithTheArguments()
{
    UpdaterRun run;
    run.Configure();
    const StandIn installer(run.Scratch() + QStringLiteral("/Setup.exe"));
    run.Publish(ReadFile(installer.Path()), QStringLiteral("Setup.exe"),
                {{QStringLiteral("updateType"), 0}});
    const QString downloaded = run.PackagePath(QStringLiteral("Setup.exe"));

    QCOMPARE(run.Run({QStringLiteral("-noremid"), QStringLiteral("-immediately"),
                      QStringLiteral("qorb-meeting://abc")}),
             0);
    // An installer gets the link unchanged.
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(downloaded + QStringLiteral(".calls")), 15000);
    QTRY_COMPARE(ReadFile(downloaded + QStringLiteral(".calls")),
                 QByteArray("qorb-meeting://abc").toHex() + " \n");
    QVERIFY(run.client.Calls().isEmpty());
    QCOMPARE(run.Log().last(), LogLine::Starting(downloaded));
}

void TestUpdate::aRunningClientIsStoppedBeforeTheDownload()
{
    UpdaterRun run;
    run.Configure();
    run.client.StartAndStay();
    run.Publish(NewClient(), kPackage);
    QCOMPARE(run.Run(kImmediately), 0);
    QVERIFY(!run.client.IsRunning());
    QVERIFY(run.client.WaitForCalls(2));
    QCOMPARE(run.client.Calls().last(), QStringList{QStringLiteral("-autoupdate")});
    QVERIFY(run.Log().contains(LogLine::AlreadyRuns(run.ClientName())));
}

void TestUpdate::aCorruptedPackageIsNotInstalled()
{
    UpdaterRun run;
    run.Configure();
    run.Publish(NewClient(), kPackage,
                {{QStringLiteral("md5"), QStringLiteral("D41D8CD98F00B204E9800998ECF8427E")}});
    run.Start(kImmediately);
    QVERIFY(run.WaitForLog(LogLine::DigestDiffers(run.PackagePath(kPackage))));
    // The window stays open with its "Retry" button.
    QCOMPARE(run.process.state(), QProcess::Running);
    QCOMPARE(ReadFile(run.Installed(QStringLiteral("config.json"))),
             QByteArray(R"({"client": {"version": "1.0.0"}})"));
    QVERIFY(run.client.Calls().isEmpty());
    QVERIFY(QFile::exists(run.PackagePath(kPackage)));
}

void TestUpdate::aDamagedZipPackageStillStartsTheClient()
{
    UpdaterRun run;
    run.Configure();
    run.Publish(ZipMaker()
                    .AddFolder(QStringLiteral("client-2.1.3"))
                    .AddFile(QStringLiteral("client-2.1.3/../../../evil.txt"), "evil")
                    .Bytes(),
                kPackage);
    QCOMPARE(run.Run(kImmediately), 0);
    const QString target = run.PackagePath(QStringLiteral("client-2.1.3/../../../evil.txt"));
    QVERIFY(run.Log().contains(LogLine::UnpackFailed(target, 5)));
    QVERIFY(!QFile::exists(target));
    QVERIFY(run.client.WaitForCalls(1));
    QCOMPARE(run.client.Calls(), QVector<QStringList>{{QStringLiteral("-autoupdate")}});
    QVERIFY(run.Log().filter(QStringLiteral("copy file")).isEmpty());
}

void TestUpdate::aPackageFromAServerNobodyTrustsIsRefused()
{
    UpdaterRun run;
    run.Configure(
        {{QStringLiteral("updatePackageUrl"), run.server.HttpsUrl(QStringLiteral("/packages/"))}});
    run.Publish(NewClient(), kPackage);
    run.Start(kImmediately);
    QVERIFY(run.WaitForLog(LogLine::DownloadFailed(QStringLiteral("SslHandshakeFailedError"))));
    QVERIFY(run.WaitForLog(LogLine::DownloadTimedOut()));
    QCOMPARE(run.server.Requests().size(), 1);
    QCOMPARE(ReadFile(run.PackagePath(kPackage)), QByteArray());
}

void TestUpdate::anAnnouncedNameThatIsRefusedStartsTheClient_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("outside the folder") << R"(..\..\evil)";
    QTest::newRow("for the command interpreter") << "Setup.bat";
}

void TestUpdate::anAnnouncedNameThatIsRefusedStartsTheClient()
{
    QFETCH(QString, name);
    UpdaterRun run;
    run.Configure();
    run.Publish(
        NewClient(), kPackage,
        {{QStringLiteral("latestVersionUrl"), QStringLiteral("https://x.invalid/") + name}});
    QCOMPARE(run.Run(kImmediately), 0);
    QVERIFY(run.client.WaitForCalls(1));
    const QStringList log = run.Log();
    QVERIFY2(log.contains(LogLine::PackageNameRefused(name)),
             qPrintable(log.join(QLatin1Char('\n'))));
    QCOMPARE(run.server.Requests().size(), 1);
}

void TestUpdate::aPackageOfManyMegabytesArrivesWhole()
{
    UpdaterRun run;
    run.Configure();
    const QByteArray package =
        ZipMaker()
            .AddFolder(QStringLiteral("client-2.1.3"))
            .AddFile(QStringLiteral("client-2.1.3/data.bin"),
                     ScriptedServer::Fill(24LL * 1024 * 1024), ZipMaker::Stored)
            .Bytes();
    run.Publish(package, kPackage);
    QCOMPARE(run.Run(kImmediately), 0);
    QCOMPARE(ReadFile(run.PackagePath(kPackage)), package);
    QCOMPARE(ReadFile(run.Installed(QStringLiteral("data.bin"))),
             ScriptedServer::Fill(24LL * 1024 * 1024));
    QVERIFY(run.client.WaitForCalls(1));
}

void TestUpdate::aMuchShorterVersionEndsEveryLaterRun()
{
    UpdaterRun run;
    InstallAfterALongVersion(run, QStringLiteral("3.0.0"));
    QVERIFY(!run.Log().contains(kUnreadable));
    const int requests = run.server.Requests().size();
    const QByteArray left = ReadFile(run.UpdateConfigFile());

    // No switch helps, and nothing fixes the file.
    for (const QStringList &arguments : {QStringList(), kImmediately}) {
        const int lines = run.Log().size();
        QCOMPARE(run.Run(arguments), 0);
        const QStringList log = run.Log().mid(lines);
        QVERIFY2(log.contains(kUnreadable), qPrintable(log.join(QLatin1Char('\n'))));
        QCOMPARE(log.filter(QStringLiteral("starting...")), QStringList());
        QCOMPARE(run.client.Calls().size(), 2);
        QCOMPARE(run.server.Requests().size(), requests);
        QCOMPARE(ReadFile(run.UpdateConfigFile()), left);
    }

    // The manual fix: remove everything after the first line that begins with a brace.
    const QByteArray brace("\n}\n");
    const int length = left.indexOf(brace) + brace.size();
    QVERIFY2(length < left.size(), left.constData());
    WriteFile(run.UpdateConfigFile(), left.left(length));
    QCOMPARE(run.Run(), 0);
    QVERIFY(run.client.WaitForCalls(3));
}

void TestUpdate::aLongEnoughVersionEndsNoRun_data()
{
    QTest::addColumn<QString>("version");
    QTest::newRow("one character shorter") << "3.0.10";
    QTest::newRow("as long") << "3.0.0.0";
}

void TestUpdate::aLongEnoughVersionEndsNoRun()
{
    QFETCH(QString, version);
    UpdaterRun run;
    InstallAfterALongVersion(run, version);
    QCOMPARE(run.Run(), 0);
    QVERIFY(run.client.WaitForCalls(3));
    QVERIFY(!run.Log().contains(kUnreadable));
}

#ifdef Q_OS_LINUX

// The xcopy of Windows stops at the first error. The stand-in does the same; Wine's continues, so
// this test runs only on Linux.
void TestUpdate::anInterruptedCopyIsCompletedByTheNextStart_data()
{
    QTest::addColumn<QString>("versionFile");
    QTest::addColumn<bool>("isCompleted");
    QTest::newRow("version file copied last") << "~version/version.json" << true;
    // From now on the client looks current, although it is only half updated.
    QTest::newRow("version file copied first") << "config.json" << false;
}

void TestUpdate::anInterruptedCopyIsCompletedByTheNextStart()
{
    QFETCH(QString, versionFile);
    QFETCH(bool, isCompleted);
    const QString top = QStringLiteral("client-2.1.3/");
    const QString helper = QStringLiteral("plugins/helper");
    const QByteArray oldVersion = R"({"client": {"version": "1.0.0"}})";
    const QByteArray newVersion = R"({"client": {"version": "2.1.3"}})";
    UpdaterRun run;
    run.Configure({{QStringLiteral("appConfigFile"), versionFile}});
    const QString client = run.ClientFolder() + QLatin1Char('/');
    WriteFile(client + versionFile, oldVersion);
    run.Publish(ZipMaker()
                    .AddFolder(top.chopped(1))
                    .AddFile(top + QStringLiteral("a.txt"), "new")
                    .AddFolder(top + QStringLiteral("plugins"))
                    .AddFile(top + helper, "new")
                    .AddFolder(top + QStringLiteral("~version"))
                    .AddFile(top + versionFile, newVersion)
                    .Bytes(),
                kPackage);
    {
        // A running program cannot be overwritten.
        StandIn running(client + helper);
        running.StartAndStay();
        QCOMPARE(run.Run(kImmediately), 0);
        QVERIFY(run.client.WaitForCalls(1));
    }
    QCOMPARE(ReadFile(client + QStringLiteral("a.txt")), QByteArray("new"));
    QVERIFY(ReadFile(client + helper) != "new");
    QCOMPARE(ReadFile(client + versionFile), isCompleted ? oldVersion : newVersion);

    QCOMPARE(run.Run(kImmediately), 0);
    QVERIFY(run.client.WaitForCalls(2));
    QCOMPARE(ReadFile(client + helper) == "new", isCompleted);
    QCOMPARE(ReadFile(client + versionFile), newVersion);
}

#endif

QTEST_GUILESS_MAIN(TestUpdate)
#include "tst_update.moc"
