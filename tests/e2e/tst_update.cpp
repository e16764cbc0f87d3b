#include "tests/e2e/updaterrun.h"
#include "tests/support/zipmaker.h"

#include <QFile>
#include <QJsonDocument>
#include <QTest>

/// Whole updates, from the start of the program to the start of the new client.
class TestUpdate : public QObject
{
    Q_OBJECT

private slots:
    void AZipPackageIsInstalledAndTheClientStarted();
    void TheNotesFollowTheLanguage_data();
    void TheNotesFollowTheLanguage();
    void AnInstallerIsStartedWithTheArguments();
    void ARunningClientIsStoppedBeforeTheDownload();
    void ACorruptedPackageIsNotInstalled();
    void ADamagedZipPackageStillStartsTheClient();
    void APackageFromAServerNobodyTrustsIsRefused();
    void AnAnnouncedNameThatIsRefusedStartsTheClient_data();
    void AnAnnouncedNameThatIsRefusedStartsTheClient();
    void APackageOfManyMegabytesArrivesWhole();
    void AMuchShorterVersionEndsEveryLaterRun();
    void ALongEnoughVersionEndsNoRun_data();
    void ALongEnoughVersionEndsNoRun();
};

namespace
{

const QString kPackage = QStringLiteral("client-2.1.3.zip");
const QStringList kImmediately{QStringLiteral("-immediately")};
const QString kUnreadable =
    QStringLiteral("[DEBUG] (:0)  Auto Jsondata Error: %1").arg(QJsonParseError::GarbageAtEnd);

/// A package with a new client configuration, a new file in a folder, and an empty folder.
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

/// Publishes @p version as a zip package that brings the client's configuration only.
void PublishVersion(UpdaterRun &run, const QString &version)
{
    const QString name = QStringLiteral("client-") + version;
    const QByteArray config =
        QStringLiteral(R"({"client": {"version": "%1"}})").arg(version).toUtf8();
    run.Publish(
        ZipMaker().AddFolder(name).AddFile(name + QStringLiteral("/config.json"), config).Bytes(),
        name + QStringLiteral(".zip"), {{QStringLiteral("latestVersion"), version}});
}

/// Installs 2.10.10 and then @p version. The client has been started twice then.
void InstallAfterALongVersion(UpdaterRun &run, const QString &version)
{
    run.Configure();
    int calls = 0;
    for (const QString &published : {QStringLiteral("2.10.10"), version}) {
        PublishVersion(run, published);
        QCOMPARE(run.Run(kImmediately), 0);
        QVERIFY(run.client.WaitForCalls(++calls));
        QVERIFY(ReadFile(run.home.ClientFolder() + QStringLiteral("/config.json"))
                    .contains(published.toUtf8()));
    }
}

QString UpdateConfigFile(const UpdaterRun &run)
{
    return run.home.ProgramFolder() + QStringLiteral("/updateconfig.json");
}

QString Info(const QString &text)
{
    return QStringLiteral("[INFO] (:0) ") + text;
}

QString Debug(const QString &text)
{
    return QStringLiteral("[DEBUG] (:0) ") + text;
}

QString Quoted(const QString &text)
{
    return QLatin1Char('"') + text + QLatin1Char('"');
}

/// The log without the line that repeats the service's answer.
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

void TestUpdate::AZipPackageIsInstalledAndTheClientStarted()
{
    UpdaterRun run;
    run.Configure();
    run.Publish(NewClient(), kPackage);
    WriteFile(run.home.ClientFolder() + QStringLiteral("/of the user.txt"), "stays");
    WriteFile(run.home.ClientDataFolder() + QStringLiteral("/isShowUpdataInfo.txt"), "old");
    WriteFile(run.PackagePath(QStringLiteral("left over/.hidden")), "old");

    QCOMPARE(run.Run({QStringLiteral("-immediately"), QStringLiteral("--profile=a \"b\" c")}), 0);

    const QString client = run.home.ClientFolder();
    QCOMPARE(ReadFile(client + QStringLiteral("/config.json")),
             QByteArray(R"({"client": {"version": "2.1.3"}})"));
    QCOMPARE(ReadFile(client + QStringLiteral("/plug ins/中文.txt")), QByteArray("new"));
    QVERIFY(QFileInfo(client + QStringLiteral("/empty")).isDir());
    QCOMPARE(ReadFile(client + QStringLiteral("/of the user.txt")), QByteArray("stays"));
    QVERIFY(!QFile::exists(run.PackagePath(QStringLiteral("left over"))));
    QCOMPARE(ReadFile(run.home.ClientDataFolder() + QStringLiteral("/update.log")),
             QByteArray("New version"));
    QCOMPARE(ReadFile(run.home.ClientDataFolder() + QStringLiteral("/isShowUpdataInfo.txt")),
             QByteArray("1"));

    const QJsonObject config =
        QJsonDocument::fromJson(
            ReadFile(run.home.ProgramFolder() + QStringLiteral("/updateconfig.json")))
            .object();
    QCOMPARE(config.value(QStringLiteral("currentVersion")).toString(), QStringLiteral("2.1.3"));
    QCOMPARE(config.value(QStringLiteral("appName")).toString(), run.imageName);

    QVERIFY(run.client.WaitForCalls(1));
    QCOMPARE(run.client.Calls(), QVector<QStringList>{{QStringLiteral("--profile=a \"b\" c")}});

    const auto requests = run.server.Requests();
    QCOMPARE(requests.size(), 2);
    QCOMPARE(requests.at(1).method, QByteArray("GET"));
    QCOMPARE(requests.at(1).target, QByteArray("/packages/client-2.1.3.zip"));

    const QStringList log = LogWithoutAnswer(run);
    QCOMPARE(
        log.mid(0, 5),
        (QStringList{
            run.ConfigurationLine(), Info(QStringLiteral("cmd line parameters : \"-immediately\"")),
            Info(QStringLiteral("cmd line parameters : "
                                "\"--profile=a \\\"b\\\" c\"")),
            Info(QStringLiteral("isShowUpdataInfo.txt is remove")),
            Info(QStringLiteral("update fileName:  ") + Quoted(run.PackagePath(kPackage)))}));
    QVERIFY2(log.at(5).startsWith(Info(QStringLiteral("org: \""))), qPrintable(log.at(5)));
    QCOMPARE(
        log.mid(6),
        (QStringList{
            Info(Quoted(run.PackagePath(kPackage)) + QStringLiteral("  successfully decompressed")),
            Info(QStringLiteral("update.log write successed")),
            Info(QStringLiteral("isShowUpdataInfo.txt write successed")),
            Info(Quoted(run.home.ProgramFolder()) + QStringLiteral("  copy file successed")),
            QStringLiteral("[WARNING] (:0) autoupdate config veison update "
                           "successed"),
            Info(Quoted(run.imageName) + QStringLiteral("  starting..."))}));
}

void TestUpdate::TheNotesFollowTheLanguage_data()
{
    QTest::addColumn<QByteArray>("language");
    QTest::addColumn<QString>("notes");
    QTest::newRow("en") << QByteArray("en\n") << QStringLiteral("New version");
    QTest::newRow("zh") << QByteArray(" zh ") << QStringLiteral("新版本");
    QTest::newRow("EN is Chinese with English notes")
        << QByteArray("EN") << QStringLiteral("New version");
    QTest::newRow("empty likewise") << QByteArray() << QStringLiteral("New version");
}

void TestUpdate::TheNotesFollowTheLanguage()
{
    QFETCH(QByteArray, language);
    QFETCH(QString, notes);
    UpdaterRun run;
    run.SetLanguage(language);
    run.Configure();
    run.Publish(NewClient(), kPackage);
    QCOMPARE(run.Run(kImmediately), 0);
    QCOMPARE(
        QString::fromUtf8(ReadFile(run.home.ClientDataFolder() + QStringLiteral("/update.log"))),
        notes);
    QVERIFY(run.client.WaitForCalls(1));
}

void TestUpdate::AnInstallerIsStartedWithTheArguments()
{
    UpdaterRun run;
    run.Configure();
    const StandIn installer(run.home.Scratch() + QStringLiteral("/Setup.exe"));
    run.Publish(ReadFile(installer.Path()), QStringLiteral("Setup.exe"),
                {{QStringLiteral("updateType"), 0}});
    const QString downloaded = run.PackagePath(QStringLiteral("Setup.exe"));

    QCOMPARE(run.Run({QStringLiteral("-noremid"), QStringLiteral("-immediately"),
                      QStringLiteral("qorb-meeting://abc")}),
             0);
    // Not converted: an installer gets the link as it came.
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(downloaded + QStringLiteral(".calls")), 15000);
    QTRY_COMPARE(ReadFile(downloaded + QStringLiteral(".calls")),
                 QByteArray("qorb-meeting://abc").toHex() + " \n");
    QVERIFY(run.client.Calls().isEmpty());
    QCOMPARE(run.Log().last(), Info(Quoted(downloaded) + QStringLiteral("  starting...")));
}

void TestUpdate::ARunningClientIsStoppedBeforeTheDownload()
{
    UpdaterRun run;
    run.Configure();
    run.client.StartAndStay();
    run.Publish(NewClient(), kPackage);
    QCOMPARE(run.Run(kImmediately), 0);
    QVERIFY(!run.client.IsRunning());
    QVERIFY(run.client.WaitForCalls(2));
    QCOMPARE(run.client.Calls().last(), QStringList{QStringLiteral("-autoupdate")});
    QVERIFY(run.Log().contains(Info(Quoted(run.imageName) + QStringLiteral("  Already Run..."))));
}

void TestUpdate::ACorruptedPackageIsNotInstalled()
{
    UpdaterRun run;
    run.Configure();
    run.Publish(NewClient(), kPackage,
                {{QStringLiteral("md5"), QStringLiteral("D41D8CD98F00B204E9800998ECF8427E")}});
    run.Start(kImmediately);
    QVERIFY(run.WaitForLog(
        Debug(Quoted(run.PackagePath(kPackage)) + QStringLiteral("  md5 check filed"))));
    // The window stays, with its "Retry".
    QCOMPARE(run.process.state(), QProcess::Running);
    QCOMPARE(ReadFile(run.home.ClientFolder() + QStringLiteral("/config.json")),
             QByteArray(R"({"client": {"version": "1.0.0"}})"));
    QVERIFY(run.client.Calls().isEmpty());
    QVERIFY(QFile::exists(run.PackagePath(kPackage)));
}

void TestUpdate::ADamagedZipPackageStillStartsTheClient()
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
    QVERIFY(run.Log().contains(
        Debug(QStringLiteral("unzip  ") + Quoted(target) + QStringLiteral("  failed: 5"))));
    QVERIFY(!QFile::exists(target));
    QVERIFY(run.client.WaitForCalls(1));
    QCOMPARE(run.client.Calls(), QVector<QStringList>{{QStringLiteral("-autoupdate")}});
    QVERIFY(run.Log().filter(QStringLiteral("copy file")).isEmpty());
}

void TestUpdate::APackageFromAServerNobodyTrustsIsRefused()
{
    UpdaterRun run;
    run.Configure(
        {{QStringLiteral("updatePackageUrl"), run.server.HttpsUrl(QStringLiteral("/packages/"))}});
    run.Publish(NewClient(), kPackage);
    run.Start(kImmediately);
    QVERIFY(run.WaitForLog(
        Debug(QStringLiteral("Download Network Error: QNetworkReply::SslHandshakeFailedError"))));
    QVERIFY(run.WaitForLog(Debug(QStringLiteral("NetworkReply Get TimerOut"))));
    QCOMPARE(run.server.Requests().size(), 1);
    QCOMPARE(ReadFile(run.PackagePath(kPackage)), QByteArray());
}

void TestUpdate::AnAnnouncedNameThatIsRefusedStartsTheClient_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("outside the folder") << R"(..\..\evil)";
    QTest::newRow("for the command interpreter") << "Setup.bat";
}

void TestUpdate::AnAnnouncedNameThatIsRefusedStartsTheClient()
{
    QFETCH(QString, name);
    UpdaterRun run;
    run.Configure();
    run.Publish(
        NewClient(), kPackage,
        {{QStringLiteral("latestVersionUrl"), QStringLiteral("https://x.invalid/") + name}});
    QCOMPARE(run.Run(kImmediately), 0);
    QVERIFY(run.client.WaitForCalls(1));
    const QString logged = QString(name).replace(QLatin1Char('\\'), QLatin1String("\\\\"));
    const QStringList log = run.Log();
    QVERIFY2(log.contains(Debug(QStringLiteral("package name cannot be used: ") + Quoted(logged))),
             qPrintable(log.join(QLatin1Char('\n'))));
    QCOMPARE(run.server.Requests().size(), 1);
}

void TestUpdate::APackageOfManyMegabytesArrivesWhole()
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
    QCOMPARE(ReadFile(run.home.ClientFolder() + QStringLiteral("/data.bin")),
             ScriptedServer::Fill(24LL * 1024 * 1024));
    QVERIFY(run.client.WaitForCalls(1));
}

void TestUpdate::AMuchShorterVersionEndsEveryLaterRun()
{
    UpdaterRun run;
    InstallAfterALongVersion(run, QStringLiteral("3.0.0"));
    QVERIFY(!run.Log().contains(kUnreadable));
    const int requests = run.server.Requests().size();
    const QByteArray left = ReadFile(UpdateConfigFile(run));

    // No switch helps, and nothing repairs the file.
    for (const QStringList &arguments : {QStringList(), kImmediately}) {
        const int lines = run.Log().size();
        QCOMPARE(run.Run(arguments), 0);
        const QStringList log = run.Log().mid(lines);
        QVERIFY2(log.contains(kUnreadable), qPrintable(log.join(QLatin1Char('\n'))));
        QCOMPARE(log.filter(QStringLiteral("starting...")), QStringList());
        QCOMPARE(run.client.Calls().size(), 2);
        QCOMPARE(run.server.Requests().size(), requests);
        QCOMPARE(ReadFile(UpdateConfigFile(run)), left);
    }

    // What a person can do: remove everything behind the first brace that begins a line.
    const QByteArray brace("\n}\n");
    const int length = left.indexOf(brace) + brace.size();
    QVERIFY2(length < left.size(), left.constData());
    WriteFile(UpdateConfigFile(run), left.left(length));
    QCOMPARE(run.Run(), 0);
    QVERIFY(run.client.WaitForCalls(3));
}

void TestUpdate::ALongEnoughVersionEndsNoRun_data()
{
    QTest::addColumn<QString>("version");
    QTest::newRow("one character shorter") << "3.0.10";
    QTest::newRow("as long") << "3.0.0.0";
}

void TestUpdate::ALongEnoughVersionEndsNoRun()
{
    QFETCH(QString, version);
    UpdaterRun run;
    InstallAfterALongVersion(run, version);
    QCOMPARE(run.Run(), 0);
    QVERIFY(run.client.WaitForCalls(3));
    QVERIFY(!run.Log().contains(kUnreadable));
}

QTEST_GUILESS_MAIN(TestUpdate)
#include "tst_update.moc"
