// SPDX-License-Identifier: MIT
#include "app/logmessagehandler.h"
#include "net/httpdownloadfile.h"
#include "tests/support/compression.h"
#include "tests/support/loglines.h"
#include "tests/support/workerrun.h"
#include "ui/updatedialog.h"

#include <QDateTime>
#include <QTest>

namespace
{

/// The time limit of the check and one tick, plus a margin for a busy machine.
constexpr int kLimitMs = 30000;

constexpr int kLimitBytes = 8 * 1024 * 1024;
constexpr qint64 kMostMemory = 64LL * 1024 * 1024;

/// A step of the server that sends @p body, compressed with @p coding if that is not empty.
QJsonObject Compressed(const QByteArray &body, const QString &coding)
{
    if (coding.isEmpty())
        return Sends(body);
    return Sends(coding == QLatin1String("gzip") ? Gzip(body) : qCompress(body).mid(4),
                 R"("headers":[["Content-Encoding",")" + coding.toLatin1() + R"("]])");
}

} // namespace

/// Checks whose answer is late or too large. Most take at least ten seconds.
class TestHttpDownLoadFileCheckLimits : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { m_server = std::make_unique<ScriptedServer>(); }
    void cleanupTestCase() { m_server.reset(); }

    void unansweredCheckStartsTheClientOnce();
    void endlessAnswerStartsTheClientWithMemoryBounded();
    void limitHoldsToTheByte_data();
    void limitHoldsToTheByte();
    void memoryIsBoundedWhateverTheAnswerHolds_data();
    void memoryIsBoundedWhateverTheAnswerHolds();
    void answerThatUnpacksWithoutEndStartsTheClientAtOnce();

private:
    std::unique_ptr<ScriptedServer> m_server;
};

void TestHttpDownLoadFileCheckLimits::unansweredCheckStartsTheClientOnce()
{
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(Offer(), R"("hold":"before")"));

    WorkerRun run;
    qint64 startMs = 0;
    QObject::connect(run.Worker(), &HttpDownLoadFile::InitCheck, qApp,
                     [&] { startMs = QDateTime::currentMSecsSinceEpoch(); });
    QVERIFY(RunUntilQuit(kLimitMs));
    QVERIFY(QDateTime::currentMSecsSinceEpoch() - startMs >= 10000);
    const QStringList once({LogLine::CheckTimedOut(), LogLine::Starting(scene.ClientName())});
    QCOMPARE(scene.Log(), once);
    QCOMPARE(m_server->Requests().size(), 1);

    // The run has ended, so no tick and no answer may follow.
    QCOMPARE(run.Timers(), QVector<int>());
    run.Shutdown();

    QVERIFY(scene.client.WaitForCalls(1));
    QCOMPARE(scene.client.Calls(),
             QVector<QStringList>{QStringList(QStringLiteral("-autoupdate"))});
    QCOMPARE(scene.Log(), once);
    QCOMPARE(run.Announced(), QStringList());
}

void TestHttpDownLoadFileCheckLimits::endlessAnswerStartsTheClientWithMemoryBounded()
{
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Json(R"({"fill":1073741824})"));
    const PeakMemory memory;

    WorkerRun run;
    QVERIFY(RunUntilQuit(kLimitMs));
    run.Shutdown();
    QCOMPARE(scene.Log(),
             QStringList({LogLine::Starting(scene.ClientName()), LogLine::AnswerTooLarge()}));
    QVERIFY(scene.client.WaitForCalls(1));
    QCOMPARE(scene.client.Calls().size(), 1);
    QCOMPARE(m_server->Requests().size(), 1);
    QVERIFY2(memory.GrownBy() <= kMostMemory, qPrintable(QString::number(memory.GrownBy())));
}

void TestHttpDownLoadFileCheckLimits::limitHoldsToTheByte_data()
{
    QTest::addColumn<QString>("coding");
    QTest::addColumn<int>("above");
    for (const char *coding : {"", "gzip", "deflate"}) {
        for (const int above : {-1, 0, 1, 1024 * 1024, 4 * 1024 * 1024}) {
            QTest::addRow("%s %+d", *coding == '\0' ? "plain" : coding, above)
                << QString::fromLatin1(coding) << above;
        }
    }
}

void TestHttpDownLoadFileCheckLimits::limitHoldsToTheByte()
{
    QFETCH(QString, coding);
    QFETCH(int, above);
    const UpdateScene scene(*m_server);
    const QByteArray answer = Offer();
    const QByteArray body = answer + QByteArray(kLimitBytes + above - answer.size(), ' ');
    m_server->Script(QStringLiteral("/check"), Compressed(body, coding));

    WorkerRun run;
    if (above <= 0) {
        QVERIFY(run.RunUntilPrompt());
    } else {
        QVERIFY(RunUntilQuit(kLimitMs));
        QVERIFY(scene.client.WaitForCalls(1));
        QCOMPARE(scene.Log().first(), LogLine::Starting(scene.ClientName()));
        QCOMPARE(scene.Log().size(), 2);
    }
}

void TestHttpDownLoadFileCheckLimits::memoryIsBoundedWhateverTheAnswerHolds_data()
{
    QTest::addColumn<QByteArray>("begin");
    QTest::addColumn<QByteArray>("filling");
    QTest::addColumn<QByteArray>("end");
    QTest::addColumn<bool>("isTaken");
    const auto row = [](const char *name, const char *begin, const QByteArray &filling,
                        const char *end, bool isTaken) {
        QTest::newRow(name) << QByteArray(begin) << filling << QByteArray(end) << isTaken;
    };
    const char *const notes =
        R"({"code":"000000","biz":{"latestVersion":"2","latestVersionInfo":")";
    const char *const version = R"({"code":"000000","biz":{"latestVersion":")";
    const char *const endOfText = R"("}})";
    row("control characters", "", QByteArray(1, '\1'), "", false);
    row("control characters in the notes", notes, QByteArray(1, '\1'), endOfText, false);
    row("control characters of two bytes", notes, QByteArray("\xc2\x80"), endOfText, false);
    row("zero bytes", "", QByteArray(1, '\0'), "", false);
    row("line breaks", version, "\n", endOfText, false);
    row("letters and line breaks", version, "aa\n", endOfText, true);
    row("letters", notes, "a", endOfText, true);
    row("letters with one Chinese among them", version, "a", "\xe4\xb8\xad\"}}", true);
    row("Chinese", notes, "\xe4\xb8\xad", endOfText, true);
    row("quotes", notes, "\\\"", endOfText, false);
    row("back-slashes", version, "\\\\", endOfText, false);
    row("escaped control characters", version, "\\u0001", endOfText, true);
    row("escaped control characters as the code", R"({"code":")", "\\u0001", R"("})", false);
    row("separators of the languages", notes, "&", endOfText, true);
    row("numbers", R"({"code":"000000","list":[1)", ",1", "]}", false);
    row("lists", R"({"code":"000000","list":[1)", ",[]", "]}", false);
    row("objects", R"({"code":"000000","list":[1)", ",{\"a\":{}}", "]}", false);
    row("keys", R"({"code":"000000")", R"(,"a":"")", "}", false);
}

void TestHttpDownLoadFileCheckLimits::memoryIsBoundedWhateverTheAnswerHolds()
{
    QFETCH(QByteArray, begin);
    QFETCH(QByteArray, filling);
    QFETCH(QByteArray, end);
    QFETCH(bool, isTaken);
    const UpdateScene scene(*m_server);
    // With the real log, because the memory for its lines counts.
    qInstallMessageHandler(LogMessageHandler);
    const int count = (kLimitBytes - begin.size() - end.size()) / filling.size();
    m_server->Script(QStringLiteral("/check"), Sends(begin + filling.repeated(count) + end));

    WorkerRun run;
    // What the prompt needs for the notes has a limit of its own.
    QVERIFY(QObject::disconnect(run.Worker(), &HttpDownLoadFile::Aupdate, run.Prompt(),
                                &UpdateDialog::updateMode));
    const PeakMemory memory;
    if (isTaken) {
        QVERIFY(run.RunUntil([&run] { return !run.Announced().isEmpty(); }));
    } else {
        QVERIFY(RunUntilQuit(kLimitMs));
        QVERIFY(scene.client.WaitForCalls(1));
    }
    const qint64 grown = memory.GrownBy();
    run.Shutdown();
    QVERIFY2(grown <= kMostMemory, qPrintable(QString::number(grown)));
}

void TestHttpDownLoadFileCheckLimits::answerThatUnpacksWithoutEndStartsTheClientAtOnce()
{
    const UpdateScene scene(*m_server);
    const QByteArray packed = qCompress(QByteArray(16 * 1024 * 1024, ' '), 9).mid(4);
    m_server->Script(QStringLiteral("/check"),
                     Sends(packed, R"("headers":[["Content-Encoding","deflate"]])"));

    WorkerRun run;
    QVERIFY(RunUntilQuit(kLimitMs));
    run.Shutdown();
    QCOMPARE(scene.Log(), QStringList({LogLine::Starting(scene.ClientName()),
                                       LogLine::AnswerCannotBeUnpacked(packed.size())}));
    QVERIFY(scene.client.WaitForCalls(1));
    QCOMPARE(scene.client.Calls().size(), 1);
}

QTEST_MAIN(TestHttpDownLoadFileCheckLimits)
#include "tst_httpdownloadfile_checklimits.moc"
