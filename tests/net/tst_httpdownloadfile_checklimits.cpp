#include "net/httpdownloadfile.h"
#include "tests/net/workerrun.h"

#include <QDateTime>
#include <QTest>

namespace
{

/// The check's time limit and one tick, with room for a busy machine.
constexpr int kLimitMs = 30000;

QString TimedOut()
{
    return QStringLiteral("[DEBUG] NetworkReply Post TimerOut");
}

} // namespace

/// Checks whose answer does not come in time, or is too much. Most take at least ten seconds.
class tst_HttpDownLoadFile_CheckLimits : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { m_server = std::make_unique<ScriptedServer>(); }
    void cleanupTestCase() { m_server.reset(); }

    void unansweredCheckStartsTheClientOnce();
    void endlessAnswerStartsTheClientWithMemoryBounded();
    void answerThatUnpacksWithoutEndStartsTheClientAtOnce();

private:
    std::unique_ptr<ScriptedServer> m_server;
};

void tst_HttpDownLoadFile_CheckLimits::unansweredCheckStartsTheClientOnce()
{
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(Offer(), R"("hold":"before")"));

    WorkerRun run;
    qint64 startMs = 0;
    QObject::connect(run.Worker(), &HttpDownLoadFile::InitCheck, qApp,
                     [&] { startMs = QDateTime::currentMSecsSinceEpoch(); });
    QVERIFY(RunUntilQuit(kLimitMs));
    QVERIFY(QDateTime::currentMSecsSinceEpoch() - startMs >= 10000);
    const QStringList once({TimedOut(), scene.ClientStarts()});
    QCOMPARE(scene.Log(), once);
    QCOMPARE(m_server->Requests().size(), 1);

    // The timer goes on until the program has ended, and the answer may still come.
    QCOMPARE(run.Timers().size(), 1);
    run.Tick(run.Timers().first());
    QVERIFY(m_server->Release(QStringLiteral("/check")));
    QVERIFY(run.RunUntil([&] { return run.Timers().isEmpty(); }));
    run.Shutdown();

    QVERIFY(scene.client.WaitForCalls(1));
    QCOMPARE(scene.client.Calls(),
             QVector<QStringList>{QStringList(QStringLiteral("-autoupdate"))});
    QCOMPARE(scene.Log(), once);
    QCOMPARE(run.Announced(), QStringList());
}

void tst_HttpDownLoadFile_CheckLimits::endlessAnswerStartsTheClientWithMemoryBounded()
{
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Json(R"({"fill":1073741824})"));
#ifdef Q_OS_LINUX
    const qint64 before = LinuxMemory("VmHWM");
#endif

    WorkerRun run;
    QVERIFY(RunUntilQuit(kLimitMs));
    run.Shutdown();
    QCOMPARE(scene.Log(), QStringList({TimedOut(), scene.ClientStarts()}));
    QVERIFY(scene.client.WaitForCalls(1));
    QCOMPARE(scene.client.Calls().size(), 1);
    QCOMPARE(m_server->Requests().size(), 1);
#ifdef Q_OS_LINUX
    QVERIFY(LinuxMemory("VmHWM") - before < 128LL * 1024 * 1024);
#endif
}

void tst_HttpDownLoadFile_CheckLimits::answerThatUnpacksWithoutEndStartsTheClientAtOnce()
{
    const UpdateScene scene(*m_server);
    const QByteArray packed = qCompress(QByteArray(16 * 1024 * 1024, ' '), 9).mid(4);
    m_server->Script(QStringLiteral("/check"),
                     Sends(packed, R"("headers":[["Content-Encoding","deflate"]])"));

    WorkerRun run;
    QVERIFY(RunUntilQuit(kLimitMs));
    run.Shutdown();
    QCOMPARE(scene.Log(),
             QStringList({scene.ClientStarts(),
                          QStringLiteral("[DEBUG] check answer cannot be unpacked, bytes: %1")
                              .arg(packed.size())}));
    QVERIFY(scene.client.WaitForCalls(1));
    QCOMPARE(scene.client.Calls().size(), 1);
}

QTEST_MAIN(tst_HttpDownLoadFile_CheckLimits)
#include "tst_httpdownloadfile_checklimits.moc"
