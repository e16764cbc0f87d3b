#include "config/global.h"
#include "tests/net/workerrun.h"

#include <QFile>
#include <QTest>

namespace
{

const QByteArray kSameVersion = R"("latestVersion":"1.0.0")";
const QByteArray kNoUpdate = R"("update":"0")";

QString MarkerPath(const TestHome &home)
{
    return home.Home() + QStringLiteral("/AppData/Roaming/norvaneAssistant/isShowUpdataInfo.txt");
}

bool IsAnnounced(WorkerRun &run)
{
    return run.RunUntil([&] { return !run.Announced().isEmpty(); });
}

} // namespace

/// From a usable answer of the service to the prompt.
class tst_HttpDownLoadFile_Offer : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { m_server = std::make_unique<ScriptedServer>(); }
    void cleanupTestCase() { m_server.reset(); }

    void updateModeIsAnnounced_data();
    void updateModeIsAnnounced();
    void replyWithoutAnOfferPrompts();
    void replyWithoutAnOfferOrInstalledVersionStartsTheClient();
    void olderVersionIsOffered();
    void silencedVersionIsNotPrompted_data();
    void silencedVersionIsNotPrompted();
    void notesMarkerIsRemoved_data();
    void notesMarkerIsRemoved();
    void notesMarkerStaysWithTheSameVersion();

private:
    std::unique_ptr<ScriptedServer> m_server;
};

void tst_HttpDownLoadFile_Offer::updateModeIsAnnounced_data()
{
    QTest::addColumn<QByteArray>("changes");
    QTest::addColumn<QString>("mode");
    QTest::newRow("optional") << QByteArray(R"("update":"1")") << QStringLiteral("1");
    QTest::newRow("forced") << QByteArray(R"("update":"2")") << QStringLiteral("2");
    QTest::newRow("nearly none") << QByteArray(R"("update":"00")") << QStringLiteral("00");
    QTest::newRow("a number") << QByteArray(R"("update":0)") << QString();
    QTest::newRow("older version")
        << QByteArray(R"("update":"1","latestVersion":"0.9")") << QStringLiteral("1");
    QTest::newRow("same version with a blank")
        << QByteArray(R"("update":"1","latestVersion":"1.0.0 ")") << QStringLiteral("1");
}

void tst_HttpDownLoadFile_Offer::updateModeIsAnnounced()
{
    QFETCH(QByteArray, changes);
    QFETCH(QString, mode);
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(Offer(changes)));

    WorkerRun run;
    QVERIFY(run.RunUntilPrompt());
    QCOMPARE(run.Announced(), QStringList(mode));
    QCOMPARE(run.Timers(), QVector<int>());
    run.Shutdown();
    QCOMPARE(scene.client.Calls().size(), 0);
}

void tst_HttpDownLoadFile_Offer::replyWithoutAnOfferPrompts()
{
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(R"({"code":"000000"})"));

    WorkerRun run;
    QVERIFY(run.RunUntilPrompt());
    QCOMPARE(run.Announced(), QStringList(QString()));
    QCOMPARE(Global::instance.latestVersion, QString());
    QCOMPARE(scene.LogAfterAnswer(),
             QStringList(
                 {QStringLiteral("[INFO] isShowUpdataInfo.txt not exists"),
                  QStringLiteral("[INFO] update fileName:  \"%1/\"").arg(scene.DownloadFolder())}));
}

void tst_HttpDownLoadFile_Offer::replyWithoutAnOfferOrInstalledVersionStartsTheClient()
{
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(R"({"code":"000000"})"));
    Global::instance.currentVersion.clear();

    WorkerRun run;
    QVERIFY(RunUntilQuit());
    run.Shutdown();
    QVERIFY(scene.client.WaitForCalls(1));
    QCOMPARE(scene.LogAfterAnswer(), QStringList(scene.ClientStarts()));
    QCOMPARE(run.Announced(), QStringList());
}

void tst_HttpDownLoadFile_Offer::olderVersionIsOffered()
{
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(Offer(R"("latestVersion":"0.9.0")")));
    WorkerRun run;
    QVERIFY(run.RunUntilPrompt());
}

void tst_HttpDownLoadFile_Offer::silencedVersionIsNotPrompted_data()
{
    QTest::addColumn<int>("noRemind");
    QTest::addColumn<QString>("noRemindVersion");
    QTest::addColumn<QString>("argument");
    QTest::addColumn<bool>("offered");

    const QString offered = QStringLiteral("2.1.3");
    const QString none;
    QTest::newRow("silenced") << 1 << offered << none << false;
    QTest::newRow("any number but 0 silences") << 2 << offered << none << false;
    QTest::newRow("not silenced") << 0 << offered << none << true;
    QTest::newRow("another version silenced") << 1 << QStringLiteral("2.1.2") << none << true;
    QTest::newRow("no version silenced") << 1 << none << none << true;
    QTest::newRow("compared exactly") << 1 << QStringLiteral("2.1.3 ") << none << true;
    QTest::newRow("asked for") << 1 << offered << QStringLiteral("-noremid") << true;
    QTest::newRow("to be updated at once")
        << 1 << offered << QStringLiteral("-immediately") << true;
    QTest::newRow("switch in upper case") << 1 << offered << QStringLiteral("-NoRemid") << false;
    QTest::newRow("longer switch") << 1 << offered << QStringLiteral("-noremid1") << false;
}

void tst_HttpDownLoadFile_Offer::silencedVersionIsNotPrompted()
{
    QFETCH(int, noRemind);
    QFETCH(QString, noRemindVersion);
    QFETCH(QString, argument);
    QFETCH(bool, offered);
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(Offer()));
    m_server->Script(QStringLiteral("/package/4711"), Sends("", R"("hold":"before")"));
    Global &global = Global::instance;
    global.noRemind = noRemind;
    global.noRemindVersion = noRemindVersion;
    if (!argument.isNull())
        global.cmdLineArgs = QStringList(argument);

    WorkerRun run;
    QCOMPARE(IsAnnounced(run), offered);
    run.Shutdown();

    QStringList log(QStringLiteral("[INFO] isShowUpdataInfo.txt not exists"));
    if (offered) {
        log.append(QStringLiteral("[INFO] update fileName:  \"%1/Package.zip\"")
                       .arg(scene.DownloadFolder()));
        QCOMPARE(scene.client.Calls().size(), 0);
    } else {
        log.append(scene.ClientStarts());
        QVERIFY(scene.client.WaitForCalls(1));
        const QString passed = argument.isNull() ? QStringLiteral("-autoupdate") : argument;
        QCOMPARE(scene.client.Calls(), QVector<QStringList>{QStringList(passed)});
    }
    QCOMPARE(scene.LogAfterAnswer(), log);
}

void tst_HttpDownLoadFile_Offer::notesMarkerIsRemoved_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<bool>("offered");
    QTest::addColumn<QString>("line");
    const QString removed = QStringLiteral("[INFO] isShowUpdataInfo.txt is remove");
    QTest::newRow("there") << QStringLiteral("file") << true << removed;
    QTest::newRow("there, without an update") << QStringLiteral("file") << false << removed;
    QTest::newRow("missing") << QStringLiteral("none") << true
                             << QStringLiteral("[INFO] isShowUpdataInfo.txt not exists");
    QTest::newRow("cannot be removed")
        << QStringLiteral("folder") << true
        << QStringLiteral("[DEBUG] failed to delete isShowUpdataInfo.txt:  9");
    QTest::newRow("cannot be removed, without an update")
        << QStringLiteral("folder") << false
        << QStringLiteral("[DEBUG] failed to delete isShowUpdataInfo.txt:  9");
}

void tst_HttpDownLoadFile_Offer::notesMarkerIsRemoved()
{
    QFETCH(QString, kind);
    QFETCH(bool, offered);
    QFETCH(QString, line);
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(Offer(offered ? QByteArray() : kNoUpdate)));
    const QString marker = MarkerPath(scene.home);
    if (kind == QLatin1String("file"))
        WriteFile(marker, "1");
    else if (kind == QLatin1String("folder"))
        WriteFile(marker + QStringLiteral("/inside"), "1");

    WorkerRun run;
    QCOMPARE(IsAnnounced(run), offered);
    run.Shutdown();
    QCOMPARE(scene.LogAfterAnswer().value(0), line);
    QCOMPARE(scene.LogAfterAnswer().size(), 2);
    QCOMPARE(QFile::exists(marker), kind == QLatin1String("folder"));
}

void tst_HttpDownLoadFile_Offer::notesMarkerStaysWithTheSameVersion()
{
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(Offer(kSameVersion)));
    WriteFile(MarkerPath(scene.home), "1");

    WorkerRun run;
    QVERIFY(RunUntilQuit());
    run.Shutdown();
    QCOMPARE(ReadFile(MarkerPath(scene.home)), QByteArray("1"));
    QCOMPARE(scene.LogAfterAnswer(), QStringList(scene.ClientStarts()));
}

QTEST_MAIN(tst_HttpDownLoadFile_Offer)
#include "tst_httpdownloadfile_offer.moc"
