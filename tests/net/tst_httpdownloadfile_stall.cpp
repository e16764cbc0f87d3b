// SPDX-License-Identifier: MIT
#include "config/global.h"
#include "tests/support/loglines.h"
#include "tests/support/workerrun.h"
#include "ui/updatedialog.h"

#include <QDateTime>
#include <QFileInfo>
#include <QJsonArray>
#include <QTest>

namespace
{

/// The time limit of the download and one tick, plus a margin for a busy machine.
constexpr int kLimitMs = 30000;

QString GaveUp()
{
    return LogLine::DownloadTimedOut();
}

} // namespace

/// Downloads that stall. Each test takes at least six seconds.
class TestHttpDownLoadFileStall : public QObject
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

void TestHttpDownLoadFileStall::silenceIsCountedFromTheLastData()
{
    const UpdateScene scene(*m_server);
    const QString path = QStringLiteral("/package/4711");
    m_server->Script(QStringLiteral("/check"), Sends(OfferOf("abc")));
    m_server->Script(
        path, QJsonArray{Json(R"({"fill":9000,"hold":2000,"sendBytes":5000})"), Sends("abc")});
    // The dialogs are Chinese for languages other than "en".
    Global::instance.language.clear();

    WorkerRun run;
    QVERIFY(run.StartDownload());
    QVERIFY(run.RunUntil([&] { return QFileInfo(scene.PackagePath()).size() == 2000; }));
    // After two ticks two thirds of the limit have passed. New data restarts it.
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

    // Nothing of the longer first attempt is left.
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

void TestHttpDownLoadFileStall::silentServerIsGivenUpOnce()
{
    const UpdateScene scene(*m_server);
    const QString path = QStringLiteral("/package/4711");
    m_server->Script(QStringLiteral("/check"), Sends(OfferOf("abc")));
    m_server->Script(path, QJsonArray{Sends("abc", R"("hold":"before")"),
                                      Sends("abc", R"("hold":"before")"), Sends("abc")});
    // Only "en" is English.
    Global::instance.language = QStringLiteral("en");

    WorkerRun run;
    QVERIFY(run.StartDownload());
    QVERIFY(m_server->WaitForRequests(2));
    const QVector<int> oldTimer = run.Timers();
    // The timer of the first attempt keeps ticking.
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

QTEST_MAIN(TestHttpDownLoadFileStall)
#include "tst_httpdownloadfile_stall.moc"
