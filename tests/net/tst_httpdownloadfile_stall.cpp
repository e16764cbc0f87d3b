#include "config/global.h"
#include "tests/net/workerrun.h"
#include "ui/updatedialog.h"

#include <QDateTime>
#include <QFileInfo>
#include <QJsonArray>
#include <QTest>

namespace
{

/// The download's time limit and one tick, with room for a busy machine.
constexpr int kLimitMs = 30000;

QString GaveUp()
{
    return QStringLiteral("[DEBUG] NetworkReply Get TimerOut");
}

} // namespace

/// Downloads that stand still. Each of these takes at least six seconds.
class tst_HttpDownLoadFile_Stall : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { m_server = std::make_unique<ScriptedServer>(); }
    void cleanupTestCase() { m_server.reset(); }

    void silenceIsCountedFromTheLastData();
    void silentServerIsGivenUpOnce();

private:
    std::unique_ptr<ScriptedServer> m_server;
};

void tst_HttpDownLoadFile_Stall::silenceIsCountedFromTheLastData()
{
    const UpdateScene scene(*m_server);
    const QString path = QStringLiteral("/package/4711");
    m_server->Script(QStringLiteral("/check"), Sends(OfferOf("abc")));
    m_server->Script(
        path, QJsonArray{Json(R"({"fill":9000,"hold":2000,"sendBytes":5000})"), Sends("abc")});
    // Neither "en" nor "zh": the dialogs are Chinese.
    Global::instance.language.clear();

    WorkerRun run;
    QVERIFY(run.StartDownload());
    QVERIFY(run.RunUntil([&] { return QFileInfo(scene.PackagePath()).size() == 2000; }));
    // Two ticks later two thirds of the limit are over. New data makes it start again.
    const int ticks = run.TickCount();
    QVERIFY(run.RunUntil([&] { return run.TickCount() >= ticks + 2; }));
    const qint64 lastDataMs = QDateTime::currentMSecsSinceEpoch();
    QVERIFY(m_server->Release(path));
    QVERIFY(run.RunUntilError(1, kLimitMs));
    QVERIFY(QDateTime::currentMSecsSinceEpoch() - lastDataMs >= 6000);

    const QString text = QStringLiteral("安装失败，网络异常，请检查网络");
    QCOMPARE(run.Errors(), QStringList(text));
    QCOMPARE(run.ProgressLine(), text);
    QCOMPARE(run.ProgressButton(), QStringLiteral("重试"));
    QCOMPARE(scene.LogAfterAnswer().mid(2), QStringList(GaveUp()));
    QCOMPARE(run.Timers(), QVector<int>());
    QCOMPARE(ReadFile(scene.PackagePath()), ScriptedServer::Fill(5000));

    // From scratch: nothing of the longer first attempt is left.
    WriteFile(scene.DownloadFolder() + QStringLiteral("/left over"), "x");
    run.PressProgressButton();
    QVERIFY(run.RunUntilLogged(scene, Verified("abc")));
    QCOMPARE(ReadFile(scene.PackagePath()), QByteArray("abc"));
    QVERIFY(!QFile::exists(scene.DownloadFolder() + QStringLiteral("/left over")));
    const auto requests = m_server->Requests();
    QCOMPARE(requests.size(), 3);
    QCOMPARE(requests.last().Header("Range"), QByteArray());
    QCOMPARE(run.Errors().size(), 1);
    QCOMPARE(run.ProgressButton(), QStringLiteral("取消"));
}

void tst_HttpDownLoadFile_Stall::silentServerIsGivenUpOnce()
{
    const UpdateScene scene(*m_server);
    const QString path = QStringLiteral("/package/4711");
    m_server->Script(QStringLiteral("/check"), Sends(OfferOf("abc")));
    m_server->Script(path, QJsonArray{Sends("abc", R"("hold":"before")"),
                                      Sends("abc", R"("hold":"before")"), Sends("abc")});
    // Exactly "en": anything else is Chinese.
    Global::instance.language = QStringLiteral("en");

    WorkerRun run;
    QVERIFY(run.StartDownload());
    QVERIFY(m_server->WaitForRequests(2));
    const QVector<int> oldTimer = run.Timers();
    // Started once more: the first attempt's timer ticks on.
    const qint64 startMs = QDateTime::currentMSecsSinceEpoch();
    emit run.Prompt()->getPack();
    QVERIFY(m_server->WaitForRequests(3));
    QCOMPARE(run.Timers().size(), 2);

    QVERIFY(run.RunUntilError(1, kLimitMs));
    QVERIFY(QDateTime::currentMSecsSinceEpoch() - startMs >= 6000);
    QCOMPARE(run.Timers(), oldTimer);
    run.Tick(oldTimer.first());
    const int ticks = run.TickCount();
    QVERIFY(run.RunUntil([&] { return run.TickCount() > ticks; }));

    QCOMPARE(run.Errors(),
             QStringList(QStringLiteral("Installation failed. Network exception, please check.")));
    QCOMPARE(scene.LogAfterAnswer().mid(2), QStringList(GaveUp()));

    run.PressProgressButton();
    QVERIFY(run.RunUntilLogged(scene, Verified("abc")));
    QCOMPARE(run.Errors().size(), 1);
    QCOMPARE(ReadFile(scene.PackagePath()), QByteArray("abc"));
}

QTEST_MAIN(tst_HttpDownLoadFile_Stall)
#include "tst_httpdownloadfile_stall.moc"
