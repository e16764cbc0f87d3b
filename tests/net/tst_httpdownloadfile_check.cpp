// SPDX-License-Identifier: MIT
#include "config/global.h"
#include "net/httpdownloadfile.h"
#include "tests/support/workerrun.h"
#include "ui/updatedialog.h"

#include <QDir>
#include <QJsonArray>
#include <QMetaMethod>
#include <QMetaType>
#include <QTest>

#include <algorithm>

namespace
{

const QByteArray kQuotedBody = R"({"clientVersion":"1.0.0","deviceType":"Windows","platform":6})";

/// The headers that the program sets as "NAME: VALUE", in their order.
QList<QByteArray> OwnHeaders(const ScriptedServer::Request &request)
{
    QList<QByteArray> own;
    for (const auto &header : request.headers) {
        const QByteArray name = header.first.toLower();
        if (name.startsWith("x-") || name == "content-type")
            own.append(header.first + ": " + header.second);
    }
    return own;
}

/// The names of all headers in small letters, sorted, with repetitions.
QList<QByteArray> HeaderNames(const ScriptedServer::Request &request)
{
    QList<QByteArray> names;
    for (const auto &header : request.headers)
        names.append(header.first.toLower());
    std::sort(names.begin(), names.end());
    return names;
}

/// The headers that the program sets, and those that Qt adds to every request with a body.
const QList<QByteArray> kHeaderNames = {"accept-encoding", "accept-language", "connection",
                                        "content-length",  "content-type",    "host",
                                        "user-agent",      "x-request-from"};

/// The intervals of this thread's pending single shots, which are children of the event dispatcher.
QVector<int> SingleShots()
{
    QVector<int> intervalsMs;
    auto *dispatcher = QAbstractEventDispatcher::instance();
    for (QObject *owner : dispatcher->children())
        for (const QAbstractEventDispatcher::TimerInfo &timer : dispatcher->registeredTimers(owner))
            intervalsMs.append(timer.interval);
    return intervalsMs;
}

/// Finds the thread on which a line is logged while it lives.
class LogThread
{
public:
    explicit LogThread(const QString &line)
    {
        wanted = line;
        logged = nullptr;
        oldHandler = qInstallMessageHandler(Look);
    }

    ~LogThread() { qInstallMessageHandler(oldHandler); }

    QThread *Found() const { return logged.loadAcquire(); }

private:
    Q_DISABLE_COPY(LogThread)

    static void Look(QtMsgType type, const QMessageLogContext &context, const QString &text)
    {
        if (text == wanted)
            logged.storeRelease(QThread::currentThread());
        oldHandler(type, context, text);
    }

    static QString wanted;
    static QAtomicPointer<QThread> logged;
    static QtMessageHandler oldHandler;
};

QString LogThread::wanted;
QAtomicPointer<QThread> LogThread::logged;
QtMessageHandler LogThread::oldHandler = nullptr;

} // namespace

class TestHttpDownLoadFileCheck : public QObject
{
    Q_OBJECT

private slots:
    // Must come first, before anything uses the network.
    void networkErrorIsAKnownMetaType();
    void signalsAndSlotsAreInOrder();

    void checkIsArmedForTheNextSecond();
    void checkStartsOnTheWorkersThread();
    void requestIsExactlyThis_data();
    void requestIsExactlyThis();
    void selfSignedServiceIsAccepted();

    void answerIsReadHoweverItIsSent_data();
    void answerIsReadHoweverItIsSent();
    void clockTicksEveryTwoSeconds();
    void lateAnswerWithinTheLimitPrompts();
    void secondCheckByHandIsASecondRequest();
    void secondCheckLeavesTheFirstUnderWay();
    void secondCheckIsAnsweredAfterTheFirstStartedTheClient();

    void shutdownBeforeTheCheckDoesNothing();
    void releasingTwiceDoesNothing();
    void shutdownDuringACheckHangsUp();

private:
    ScriptedServer &Server();

    std::unique_ptr<ScriptedServer> m_server;
};

ScriptedServer &TestHttpDownLoadFileCheck::Server()
{
    if (m_server == nullptr)
        m_server = std::make_unique<ScriptedServer>();
    return *m_server;
}

void TestHttpDownLoadFileCheck::networkErrorIsAKnownMetaType()
{
    const TestHome home;
    QCOMPARE(QMetaType::type("QNetworkReply::NetworkError"), int(QMetaType::UnknownType));
    // Not on a thread, where it would create network managers, which register the type too.
    const HttpDownLoadFile worker(nullptr);
    QVERIFY(QMetaType::type("QNetworkReply::NetworkError") != QMetaType::UnknownType);
}

void TestHttpDownLoadFileCheck::signalsAndSlotsAreInOrder()
{
    const QMetaObject &meta = HttpDownLoadFile::staticMetaObject;
    QCOMPARE(meta.className(), "HttpDownLoadFile");
    QCOMPARE(meta.superClass(), &QObject::staticMetaObject);

    QStringList found;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        const QMetaMethod method = meta.method(i);
        const QLatin1String kind(method.methodType() == QMetaMethod::Signal ? "signal " : "slot ");
        found.append(kind + QString::fromLatin1(method.methodSignature()));
        QCOMPARE(method.access(), QMetaMethod::Public);
        QCOMPARE(method.typeName(), "void");
    }
    const QStringList expected = {
        QStringLiteral("signal InitCheck()"),
        QStringLiteral("signal Aupdate(QString)"),
        // The meta-object has the plain types of 64-bit integers.
        QStringLiteral("signal UpdateBar(qlonglong,qlonglong)"),
        QStringLiteral("slot GetPackData()"),
        QStringLiteral("slot TimerPro()"),
        QStringLiteral("slot CheckProcess()"),
        QStringLiteral("slot ReplyCheckDataRecv(QNetworkReply*)"),
        QStringLiteral("slot ReplyPackDataRecv()"),
        QStringLiteral("slot UpdateDataReadProgress(qlonglong,qlonglong)"),
        QStringLiteral("slot ReplyFinished()"),
        QStringLiteral("slot ReplyError(QNetworkReply::NetworkError)"),
        QStringLiteral("slot DeleteResource()"),
    };
    QCOMPARE(found, expected);

    const int first = meta.methodOffset();
    const auto names = [first](int index) {
        return HttpDownLoadFile::staticMetaObject.method(first + index).parameterNames();
    };
    QCOMPARE(names(1), QList<QByteArray>({"updateMode"}));
    QCOMPARE(names(2), QList<QByteArray>({"bytesRead", "totalBytes"}));
    QCOMPARE(names(6), QList<QByteArray>({"Reply"}));
    QCOMPARE(names(8), QList<QByteArray>({"bytesRead", "totalBytes"}));
    QCOMPARE(names(10), QList<QByteArray>({"err"}));
}

void TestHttpDownLoadFileCheck::checkIsArmedForTheNextSecond()
{
    const UpdateScene scene(Server());
    const QVector<int> before = SingleShots();
    const WorkerRun run;
    QVector<int> armed = SingleShots();
    for (const int intervalMs : before)
        armed.removeOne(intervalMs);
    QCOMPARE(armed, QVector<int>{1000});
}

void TestHttpDownLoadFileCheck::checkStartsOnTheWorkersThread()
{
    UpdateScene scene(Server());
    Server().Script(QStringLiteral("/check"), Sends(Offer()));
    StandIn running(scene.client.Path());
    running.StartAndStay();
    // Makes the check continue although the client runs. The line about that shows the thread.
    Global::instance.cmdLineArgs = QStringList(QStringLiteral("-noremid"));
    const LogThread check(QStringLiteral("\"%1\"  Already Run...").arg(Global::instance.appName));

    WorkerRun run;
    QVector<QThread *> starts;
    QObject::connect(
        run.Worker(), &HttpDownLoadFile::InitCheck, run.Worker(),
        [&] { starts.append(QThread::currentThread()); }, Qt::DirectConnection);
    QVERIFY(run.RunUntilPrompt());

    QCOMPARE(starts, QVector<QThread *>{qApp->thread()});
    QCOMPARE(check.Found(), run.Thread());
    QCOMPARE(run.Worker()->thread(), run.Thread());
    QCOMPARE(run.Prompt()->thread(), qApp->thread());
    QCOMPARE(Server().Requests().size(), 1);
}

void TestHttpDownLoadFileCheck::requestIsExactlyThis_data()
{
    QTest::addColumn<QString>("target");
    QTest::newRow("usual") << QStringLiteral("/check");
    QTest::newRow("query kept") << QStringLiteral("/check?a=b&c=%20d");
}

void TestHttpDownLoadFileCheck::requestIsExactlyThis()
{
    QFETCH(QString, target);
    const UpdateScene scene(Server());
    Server().Script(QStringLiteral("/check"), Sends(Offer()));
    Global::instance.updateCheckUrl = Server().HttpUrl(target);

    WorkerRun run;
    QVERIFY(run.RunUntilPrompt());

    const auto requests = Server().Requests();
    QCOMPARE(requests.size(), 1);
    const ScriptedServer::Request &request = requests.first();
    QCOMPARE(request.method, QByteArray("POST"));
    QCOMPARE(request.target, target.toLatin1());
    QCOMPARE(request.body, kQuotedBody);
    QCOMPARE(request.Header("content-length"), QByteArray::number(kQuotedBody.size()));
    QCOMPARE(request.Header("accept-encoding"), QByteArray("gzip, deflate"));
    QCOMPARE(OwnHeaders(request),
             QList<QByteArray>(
                 {"X-Request-From: internal", "content-type: application/json;charset=UTF-8"}));
    QCOMPARE(HeaderNames(request), kHeaderNames);
}

void TestHttpDownLoadFileCheck::selfSignedServiceIsAccepted()
{
    const UpdateScene scene(Server());
    Server().Script(QStringLiteral("/check"), Sends(Offer()));
    Global::instance.updateCheckUrl = Server().HttpsUrl(QStringLiteral("/check"));

    WorkerRun run;
    QVERIFY(run.RunUntilPrompt());
    const auto requests = Server().Requests();
    QCOMPARE(requests.size(), 1);
    QVERIFY(requests.first().https);
    QCOMPARE(requests.first().body, kQuotedBody);
    QCOMPARE(OwnHeaders(requests.first()),
             QList<QByteArray>(
                 {"X-Request-From: internal", "content-type: application/json;charset=UTF-8"}));
    QCOMPARE(HeaderNames(requests.first()), kHeaderNames);
}

void TestHttpDownLoadFileCheck::answerIsReadHoweverItIsSent_data()
{
    QTest::addColumn<QJsonObject>("step");
    const QByteArray offer = Offer(R"("id":"7")");
    QTest::newRow("in chunks") << Sends(offer, R"("chunked":true)");
    QTest::newRow("ended by the connection") << Sends(offer, R"("length":"none")");
    QTest::newRow("connection closed after it") << Sends(offer, R"("then":"close")");
    QTest::newRow("created") << Sends(offer, R"("status":201)");
    QTest::newRow("as a page") << Sends(offer, R"("headers":[["Content-Type","text/html"]])");
    // Made with gzip -n from an offer with the id 7.
    QTest::newRow("compressed") << Sends(
        QByteArray::fromBase64(
            "H4sIAAAAAAACA12NwQ6CMAyG36UHT2RzEmOyBzDxZoJ6n6zIwmALnQlCeHerGA/09P/f16YT3N0IegJn"
            "QcMBMvAmIaUb9uRCx2wnlMjX/NRVgd3m6Aaktbz2nl2dUiQtZTRlYx5IAgfTRo+ych5JnhcsRhf5vrV7"
            "PuHw2y7ciKDzDKg2ajHPaPkJZ/Uvl1dkoOYMymA/avsd9hap5B4amN/V7hoe4gAAAA=="),
        R"("headers":[["Content-Encoding","gzip"]])");
    QTest::newRow("7 MiB long") << Sends(offer.left(offer.size() - 1) + ",\"x\":\"" +
                                         QByteArray(7 * 1024 * 1024, 'x') + "\"}");
}

void TestHttpDownLoadFileCheck::answerIsReadHoweverItIsSent()
{
    QFETCH(QJsonObject, step);
    const UpdateScene scene(Server());
    Server().Script(QStringLiteral("/check"), step);

    WorkerRun run;
    QVERIFY(run.RunUntilPrompt());
    QCOMPARE(Global::instance.id, QStringLiteral("7"));
    QCOMPARE(Global::instance.latestVersion, QStringLiteral("2.1.3"));
    QCOMPARE(run.Announced(), QStringList(QStringLiteral("1")));
    QCOMPARE(Server().Requests().size(), 1);
}

void TestHttpDownLoadFileCheck::clockTicksEveryTwoSeconds()
{
    const UpdateScene scene(Server());
    Server().Script(QStringLiteral("/check"), Sends(Offer(), R"("hold":"before")"));

    WorkerRun run;
    QVERIFY(run.RunUntil([&] { return !run.Timers().isEmpty(); }));
    QCOMPARE(run.TimerKinds(), QVector<WorkerRun::TimerKind>{qMakePair(2000, Qt::CoarseTimer)});
}

void TestHttpDownLoadFileCheck::lateAnswerWithinTheLimitPrompts()
{
    const UpdateScene scene(Server());
    Server().Script(QStringLiteral("/check"), Sends(Offer(), R"("hold":"before")"));

    WorkerRun run;
    QVERIFY(run.RunUntil([&] { return run.TickCount() >= 1; }));
    QCOMPARE(run.Timers().size(), 1);
    run.Tick(run.Timers().first());
    run.Tick(run.Timers().first() + 1000);
    QCOMPARE(scene.Log(), QStringList());

    QVERIFY(Server().Release(QStringLiteral("/check")));
    QVERIFY(run.RunUntilPrompt());
    QCOMPARE(run.Timers(), QVector<int>());
    QCOMPARE(scene.client.Calls().size(), 0);
}

void TestHttpDownLoadFileCheck::secondCheckByHandIsASecondRequest()
{
    const UpdateScene scene(Server());
    Server().Script(QStringLiteral("/check"),
                    QJsonArray{Sends(Offer()), Sends(Offer(R"("update":"2","id":"8")"))});

    WorkerRun run;
    QVERIFY(run.RunUntilPrompt());
    QVERIFY(QMetaObject::invokeMethod(run.Worker(), "TimerPro", Qt::DirectConnection));
    QVERIFY(run.RunUntil([&] { return run.Announced().size() == 2; }));

    QCOMPARE(run.Announced(), QStringList({QStringLiteral("1"), QStringLiteral("2")}));
    QCOMPARE(Global::instance.id, QStringLiteral("8"));
    const auto requests = Server().Requests();
    QCOMPARE(requests.size(), 2);
    QCOMPARE(requests.at(1).body, kQuotedBody);
    // Another connection, because the second check has other network managers.
    QVERIFY(requests.at(0).connection != requests.at(1).connection);
}

void TestHttpDownLoadFileCheck::secondCheckLeavesTheFirstUnderWay()
{
    const UpdateScene scene(Server());
    Server().Script(QStringLiteral("/check"),
                    QJsonArray{Sends(Offer(R"("id":"7")"), R"("hold":"before")"),
                               Sends(Offer(R"("update":"2","id":"8")"))});

    WorkerRun run;
    QVERIFY(run.RunUntil([&] { return !run.Timers().isEmpty(); }));
    QVERIFY(Server().WaitForRequests(1));
    run.Worker()->TimerPro();
    QVERIFY(run.RunUntilPrompt());
    QCOMPARE(Global::instance.id, QStringLiteral("8"));

    QVERIFY(Server().Release(QStringLiteral("/check")));
    QVERIFY(run.RunUntil([&] { return run.Announced().size() == 2; }));
    QCOMPARE(run.Announced(), QStringList({QStringLiteral("2"), QStringLiteral("1")}));
    QCOMPARE(Global::instance.id, QStringLiteral("7"));
}

void TestHttpDownLoadFileCheck::secondCheckIsAnsweredAfterTheFirstStartedTheClient()
{
    const UpdateScene scene(Server());
    Server().Script(QStringLiteral("/check"),
                    QJsonArray{Sends(Offer(R"("update":"0")")), Sends(Offer())});

    WorkerRun run;
    QVERIFY(RunUntilQuit());
    run.Worker()->TimerPro();
    QVERIFY(run.RunUntilPrompt());
    QCOMPARE(run.Announced(), QStringList(QStringLiteral("1")));
    QVERIFY(scene.client.WaitForCalls(1));
}

void TestHttpDownLoadFileCheck::shutdownBeforeTheCheckDoesNothing()
{
    const UpdateScene scene(Server());
    WorkerRun run;
    QCOMPARE(run.Timers(), QVector<int>());
    run.Shutdown();
    QCOMPARE(scene.Log(), QStringList());
    QCOMPARE(scene.client.Calls().size(), 0);
    QCOMPARE(Server().Requests().size(), 0);
}

void TestHttpDownLoadFileCheck::releasingTwiceDoesNothing()
{
    const UpdateScene scene(Server());
    Server().Script(QStringLiteral("/check"), Sends(Offer(), R"("hold":"before")"));
    WorkerRun run;
    run.OnWorkerThread([&] { run.Worker()->DeleteResource(); });
    QVERIFY(run.RunUntil([&] { return run.Timers().size() == 1; }));
    QVERIFY(Server().WaitForRequests(1));

    run.OnWorkerThread([&] { run.Worker()->DeleteResource(); });
    QCOMPARE(run.Timers(), QVector<int>());
    run.OnWorkerThread([&] { run.Worker()->DeleteResource(); });
    run.Shutdown();
    QCOMPARE(scene.Log(), QStringList());
    QCOMPARE(scene.client.Calls().size(), 0);
}

void TestHttpDownLoadFileCheck::shutdownDuringACheckHangsUp()
{
    const UpdateScene scene(Server());
    Server().Script(QStringLiteral("/check"), Sends(Offer(), R"("hold":100)"));
    WorkerRun run;
    QVERIFY(run.RunUntil([&] { return run.Timers().size() == 1; }));
    QVERIFY(Server().WaitForRequests(1));
    run.Shutdown();

    QTRY_VERIFY(!Server().Release(QStringLiteral("/check")));
    QCOMPARE(scene.Log(), QStringList());
    QCOMPARE(scene.client.Calls().size(), 0);
}

QTEST_MAIN(TestHttpDownLoadFileCheck)
#include "tst_httpdownloadfile_check.moc"
