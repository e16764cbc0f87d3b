// SPDX-License-Identifier: MIT
#include "config/global.h"
#include "tests/support/loglines.h"
#include "tests/support/workerrun.h"

#include <QFile>
#include <QTest>

namespace
{

const QByteArray kSameVersion = R"("latestVersion":"1.0.0")";
const QByteArray kNoUpdate = R"("update":"0")";

bool IsAnnounced(WorkerRun &run)
{
    return run.RunUntil([&] { return !run.Announced().isEmpty(); });
}

} // namespace

/// From a valid answer of the service to the prompt.
class TestHttpDownLoadFileOffer : public QObject
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

void TestHttpDownLoadFileOffer::updateModeIsAnnounced_data()
{
    QTest::addColumn<QByteArray>("changes");
    QTest::addColumn<QString>("mode");
    QTest::newRow("optional") << QByteArray(R"("update":"1")") << QStringLiteral("1");
    QTest::newRow("forced") << QByteArray(R"("update":"2")") << QStringLiteral("2");
    QTest::newRow("a number") << QByteArray(R"("update":0)") << QString();
    QTest::newRow("same version with a blank")
        << QByteArray(R"("update":"1","latestVersion":"1.0.0 ")") << QStringLiteral("1");
}

void TestHttpDownLoadFileOffer::updateModeIsAnnounced()
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

void TestHttpDownLoadFileOffer::replyWithoutAnOfferPrompts()
{
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(R"({"code":"000000"})"));

    WorkerRun run;
    QVERIFY(run.RunUntilPrompt());
    QCOMPARE(run.Announced(), QStringList(QString()));
    QCOMPARE(Global::instance.latestVersion, QString());
    QCOMPARE(scene.LogAfterAnswer(),
             QStringList({LogLine::MarkerMissing(),
                          LogLine::PackageFile(scene.DownloadFolder() + QLatin1Char('/'))}));
}

void TestHttpDownLoadFileOffer::replyWithoutAnOfferOrInstalledVersionStartsTheClient()
{
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(R"({"code":"000000"})"));
    Global::instance.currentVersion.clear();

    WorkerRun run;
    QVERIFY(RunUntilQuit());
    run.Shutdown();
    QVERIFY(scene.client.WaitForCalls(1));
    QCOMPARE(scene.LogAfterAnswer(), QStringList(LogLine::Starting(scene.ClientName())));
    QCOMPARE(run.Announced(), QStringList());
}

void TestHttpDownLoadFileOffer::olderVersionIsOffered()
{
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(Offer(R"("latestVersion":"0.9.0")")));
    WorkerRun run;
    QVERIFY(run.RunUntilPrompt());
}

void TestHttpDownLoadFileOffer::silencedVersionIsNotPrompted_data()
{
    QTest::addColumn<int>("noRemind");
    QTest::addColumn<QString>("noRemindVersion");
    QTest::addColumn<QString>("argument");
    QTest::addColumn<bool>("offered");

    const QString offered = QStringLiteral("2.1.3");
    const QString none;
    QTest::newRow("silenced") << 1 << offered << none << false;
    QTest::newRow("compared exactly") << 1 << QStringLiteral("2.1.3 ") << none << true;
    QTest::newRow("asked for") << 1 << offered << QStringLiteral("-noremid") << true;
    QTest::newRow("longer switch") << 1 << offered << QStringLiteral("-noremid1") << false;
}

void TestHttpDownLoadFileOffer::silencedVersionIsNotPrompted()
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

    QStringList log(LogLine::MarkerMissing());
    if (offered) {
        log.append(LogLine::PackageFile(scene.PackagePath()));
        QCOMPARE(scene.client.Calls().size(), 0);
    } else {
        log.append(LogLine::Starting(scene.ClientName()));
        QVERIFY(scene.client.WaitForCalls(1));
        const QString passed = argument.isNull() ? QStringLiteral("-autoupdate") : argument;
        QCOMPARE(scene.client.Calls(), QVector<QStringList>{QStringList(passed)});
    }
    QCOMPARE(scene.LogAfterAnswer(), log);
}

void TestHttpDownLoadFileOffer::notesMarkerIsRemoved_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<bool>("offered");
    QTest::addColumn<QString>("line");
    const QString removed = LogLine::MarkerRemoved();
    QTest::newRow("there") << QStringLiteral("file") << true << removed;
    QTest::newRow("there, without an update") << QStringLiteral("file") << false << removed;
    QTest::newRow("missing") << QStringLiteral("none") << true << LogLine::MarkerMissing();
    QTest::newRow("cannot be removed")
        << QStringLiteral("folder") << true << LogLine::MarkerRemovalFailed();
    QTest::newRow("cannot be removed, without an update")
        << QStringLiteral("folder") << false << LogLine::MarkerRemovalFailed();
}

void TestHttpDownLoadFileOffer::notesMarkerIsRemoved()
{
    QFETCH(QString, kind);
    QFETCH(bool, offered);
    QFETCH(QString, line);
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(Offer(offered ? QByteArray() : kNoUpdate)));
    const QString marker = scene.MarkerFile();
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

void TestHttpDownLoadFileOffer::notesMarkerStaysWithTheSameVersion()
{
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(Offer(kSameVersion)));
    WriteFile(scene.MarkerFile(), "1");

    WorkerRun run;
    QVERIFY(RunUntilQuit());
    run.Shutdown();
    QCOMPARE(ReadFile(scene.MarkerFile()), QByteArray("1"));
    QCOMPARE(scene.LogAfterAnswer(), QStringList(LogLine::Starting(scene.ClientName())));
}

QTEST_MAIN(TestHttpDownLoadFileOffer)
#include "tst_httpdownloadfile_offer.moc"
