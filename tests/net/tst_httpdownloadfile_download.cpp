// SPDX-License-Identifier: MIT
#include "config/global.h"
#include "net/httpdownloadfile.h"
#include "tests/support/compression.h"
#include "tests/support/workerrun.h"
#include "ui/dwondialog.h"
#include "ui/updatedialog.h"

#include <QDir>
#include <QJsonArray>
#include <QLabel>
#include <QProcess>
#include <QSemaphore>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QTest>

namespace
{

/// The names of the headers that are not in every request of Qt.
QList<QByteArray> ExtraHeaders(const ScriptedServer::Request &request)
{
    static const QList<QByteArray> usual = {"Host", "Connection", "Accept-Encoding",
                                            "Accept-Language", "User-Agent"};
    QList<QByteArray> extra;
    for (const auto &header : request.headers)
        if (!usual.contains(header.first))
            extra.append(header.first);
    return extra;
}

/// Makes requests trust the certificate of the server while it lives.
class TrustedServer
{
public:
    explicit TrustedServer(const ScriptedServer &server)
        : m_old(QSslConfiguration::defaultConfiguration())
    {
        QSslConfiguration trusting = m_old;
        trusting.setCaCertificates(QSslCertificate::fromPath(server.CertificatePath()));
        QSslConfiguration::setDefaultConfiguration(trusting);
    }

    ~TrustedServer() { QSslConfiguration::setDefaultConfiguration(m_old); }

private:
    Q_DISABLE_COPY(TrustedServer)

    QSslConfiguration m_old;
};

/// Records the progress line after each queued call of the bar's slot, and empties it before.
class BarCalls : public QObject
{
public:
    explicit BarCalls(DwonDialog *dialog)
        : m_line(dialog->findChild<QLabel *>(QStringLiteral("labInstall")))
    {
        dialog->installEventFilter(this);
    }

    /// The line before each call and after the last one.
    QStringList Lines() const { return m_lines + QStringList(m_line->text()); }

protected:
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::MetaCall) {
            m_lines.append(m_line->text());
            m_line->clear();
        }
        return false;
    }

private:
    QLabel *m_line;
    QStringList m_lines;
};

} // namespace

class TestHttpDownLoadFileDownload : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { m_server = std::make_unique<ScriptedServer>(); }
    void cleanupTestCase() { m_server.reset(); }

    void packageRequestIsExactlyThis_data();
    void packageRequestIsExactlyThis();
    void packageArrivesWhole_data();
    void packageArrivesWhole();
    void compressedPackageArrivesDecompressed_data();
    void compressedPackageArrivesDecompressed();
    void damagedCompressionIsACorruptedPackage();
    void packageThatDecompressesToMuchStaysOutOfMemory();
    void trustedServerDeliversOverTls();
    void everyProgressStepReachesTheBarTwice();
    void progressIsPassedOnUnchanged();
    void secondStartTakesOver();
    void secondStartIgnoresTheFirstsTimer();
    void shutdownDuringADownloadHangsUp();
#ifdef Q_OS_LINUX
    void linuxSlowDiskDoesNotPileUpThePackageInMemory();
#endif

private:
    std::unique_ptr<ScriptedServer> m_server;
};

void TestHttpDownLoadFileDownload::packageRequestIsExactlyThis_data()
{
    QTest::addColumn<QString>("base");
    QTest::addColumn<QByteArray>("id");
    QTest::addColumn<QByteArray>("target");
    const auto row = [](const char *tag, const char *base, const char *id, const char *target) {
        QTest::newRow(tag) << QString::fromLatin1(base) << QByteArray(id) << QByteArray(target);
    };
    row("usual", "/package/", "4711", "/package/4711");
    row("no separator added", "/package", "4711", "/package4711");
    row("no id", "/package/", "", "/package/");
    row("as a query", "/package?file=", "47&v=1", "/package?file=47&v=1");
    row("with a blank", "/package/", "47 11", "/package/47%2011");
    row("encoded already", "/package/", "47%2F11", "/package/47%2F11");
}

void TestHttpDownLoadFileDownload::packageRequestIsExactlyThis()
{
    QFETCH(QString, base);
    QFETCH(QByteArray, id);
    QFETCH(QByteArray, target);
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"),
                     Sends(Offer(QByteArray(R"("updateType":2)") + ",\"id\":\"" + id +
                                 "\",\"md5\":\"" + Md5("abc") + '"')));
    m_server->Script(QString::fromLatin1(target.split('?').first()), Sends("abc"));
    Global::instance.updatePackageUrl = m_server->HttpUrl(base);

    WorkerRun run;
    QVERIFY(run.StartDownload());
    QVERIFY(run.RunUntilLogged(scene, Verified("abc")));

    const auto requests = m_server->Requests();
    QCOMPARE(requests.size(), 2);
    const ScriptedServer::Request &request = requests.last();
    QCOMPARE(request.method, QByteArray("GET"));
    QCOMPARE(request.target, target);
    QCOMPARE(request.body, QByteArray());
    QCOMPARE(ExtraHeaders(request), QList<QByteArray>());
    // Another connection than that of the check, because the download has another network manager.
    QVERIFY(request.connection != requests.first().connection);
}

void TestHttpDownLoadFileDownload::packageArrivesWhole_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QJsonObject>("step");
    QTest::addColumn<qint64>("total");

    const QByteArray large = ScriptedServer::Fill(5LL * 1024 * 1024);
    QTest::newRow("small") << QByteArray("abc") << Sends("abc") << qint64(3);
    QTest::newRow("5 MiB") << large << Json(R"({"fill":5242880})") << qint64(5242880);
    QTest::newRow("5 MiB in chunks")
        << large << Json(R"({"fill":5242880,"chunked":true})") << qint64(-1);
    QTest::newRow("5 MiB ended by the connection")
        << large << Json(R"({"fill":5242880,"length":"none"})") << qint64(-1);
    QTest::newRow("connection closed after it")
        << large << Json(R"({"fill":5242880,"then":"close"})") << qint64(5242880);
    QTest::newRow("zero bytes") << QByteArray("a\0b\0", 4) << Sends(QByteArray("a\0b\0", 4))
                                << qint64(4);
}

void TestHttpDownLoadFileDownload::packageArrivesWhole()
{
    QFETCH(QByteArray, content);
    QFETCH(QJsonObject, step);
    QFETCH(qint64, total);
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(OfferOf(content)));
    m_server->Script(QStringLiteral("/package/4711"), step);

    WorkerRun run;
    QVERIFY(run.StartDownload());
    QVERIFY(run.RunUntilLogged(scene, Verified(content)));
    QVERIFY(ReadFile(scene.PackagePath()) == content);
    QCOMPARE(run.Timers(), QVector<int>());

    QVERIFY(!run.Steps().isEmpty());
    qint64 before = 0;
    for (const QPair<qint64, qint64> &progress : run.Steps()) {
        QVERIFY(progress.first >= before);
        before = progress.first;
        // The last step of a package of unknown size has the received bytes as its total.
        if (progress != run.Steps().last())
            QCOMPARE(progress.second, total);
    }
    QCOMPARE(before, qint64(content.size()));
    QCOMPARE(run.Errors(), QStringList());
    QCOMPARE(m_server->Requests().size(), 2);
}

void TestHttpDownLoadFileDownload::compressedPackageArrivesDecompressed_data()
{
    QTest::addColumn<QByteArray>("coding");
    QTest::addColumn<QByteArray>("body");
    const QByteArray content = ScriptedServer::Fill(300000);
    const QByteArray zlib = qCompress(content).mid(4);
    QTest::newRow("gzip") << QByteArray("gzip") << Gzip(content);
    QTest::newRow("deflate") << QByteArray("deflate") << zlib;
    QTest::newRow("deflate without its wrapper")
        << QByteArray("deflate") << zlib.mid(2, zlib.size() - 6);
}

void TestHttpDownLoadFileDownload::compressedPackageArrivesDecompressed()
{
    QFETCH(QByteArray, coding);
    QFETCH(QByteArray, body);
    const QByteArray content = ScriptedServer::Fill(300000);
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(OfferOf(content)));
    m_server->Script(QStringLiteral("/package/4711"),
                     Sends(body, R"("headers":[["Content-Encoding",")" + coding + R"("]])"));

    WorkerRun run;
    QVERIFY(run.StartDownload());
    QVERIFY(run.RunUntilLogged(scene, Verified(content)));
    QCOMPARE(ReadFile(scene.PackagePath()), content);
    // The progress counts transferred bytes.
    QVERIFY(run.RunUntil([&] { return !run.Steps().isEmpty(); }));
    for (const auto &step : run.Steps())
        QCOMPARE(step.second, qint64(body.size()));
    QCOMPARE(run.Steps().last().first, qint64(body.size()));
}

void TestHttpDownLoadFileDownload::damagedCompressionIsACorruptedPackage()
{
    const QByteArray content = ScriptedServer::Fill(300000);
    QByteArray body = Gzip(content);
    body[body.size() / 2] = char(~body.at(body.size() / 2));
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(OfferOf(content)));
    m_server->Script(QStringLiteral("/package/4711"),
                     Sends(body, R"("headers":[["Content-Encoding","gzip"]])"));

    WorkerRun run;
    QVERIFY(run.StartDownload());
    QVERIFY(run.RunUntilError());
    QCOMPARE(run.Errors(), QStringList(QStringLiteral("File conrrupted, update failed.")));
}

void TestHttpDownLoadFileDownload::packageThatDecompressesToMuchStaysOutOfMemory()
{
    constexpr int size = 256 * 1024 * 1024;
    const QByteArray body = Gzip(QByteArray(size, '\0'));
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(OfferOf("other")));
    m_server->Script(QStringLiteral("/package/4711"),
                     Sends(body, R"("headers":[["Content-Encoding","gzip"]],"hold":200000)"));

    WorkerRun run;
    QVERIFY(run.StartDownload());
    const PeakMemory memory;
    // Measured before the rest arrives, because the digest then reads the whole file.
    QVERIFY(run.RunUntil([&] { return QFileInfo(scene.PackagePath()).size() > size / 2; }, 60000));
    QVERIFY2(memory.GrownBy() <= 16LL * 1024 * 1024, qPrintable(QString::number(memory.GrownBy())));
}

void TestHttpDownLoadFileDownload::trustedServerDeliversOverTls()
{
    const UpdateScene scene(*m_server);
    const TrustedServer trusted(*m_server);
    const QByteArray content = ScriptedServer::Fill(5LL * 1024 * 1024);
    m_server->Script(QStringLiteral("/check"), Sends(OfferOf(content)));
    m_server->Script(QStringLiteral("/package/4711"), Json(R"({"fill":5242880})"));
    Global::instance.updatePackageUrl = m_server->HttpsUrl(QStringLiteral("/package/"));

    WorkerRun run;
    QVERIFY(run.StartDownload());
    QVERIFY(run.RunUntilLogged(scene, Verified(content)));
    QVERIFY(ReadFile(scene.PackagePath()) == content);
    QVERIFY(m_server->Requests().last().https);
}

void TestHttpDownLoadFileDownload::everyProgressStepReachesTheBarTwice()
{
    const UpdateScene scene(*m_server);
    WorkerRun run;
    BarCalls calls(run.Progress());
    const QString initial = run.ProgressLine();

    run.OnWorkerThread([&] { emit run.Worker()->UpdateBar(1, 4); });
    QVERIFY(run.RunUntil([&] { return !run.Steps().isEmpty(); }));
    const QString quarter = QStringLiteral("installing......25%");
    QCOMPARE(calls.Lines(), QStringList({initial, quarter, quarter}));
}

void TestHttpDownLoadFileDownload::progressIsPassedOnUnchanged()
{
    const UpdateScene scene(*m_server);
    WorkerRun run;
    const QVector<QPair<qint64, qint64>> steps = {{0, 0},   {0, -1}, {5, -1},
                                                  {-1, -1}, {7, 3},  {3221225472LL, 6442450944LL}};
    run.OnWorkerThread([&] {
        for (const auto &step : steps)
            run.Worker()->UpdateDataReadProgress(step.first, step.second);
    });
    QVERIFY(run.RunUntil([&] { return run.Steps().size() == steps.size(); }));
    QCOMPARE(run.Steps(), steps);
}

void TestHttpDownLoadFileDownload::secondStartTakesOver()
{
    const UpdateScene scene(*m_server);
    const QByteArray content = ScriptedServer::Fill(300000);
    m_server->Script(QStringLiteral("/check"), Sends(OfferOf(content)));
    m_server->Script(QStringLiteral("/package/4711"),
                     QJsonArray{Sends(QByteArray(600000, 'x'), R"("hold":200000)"),
                                Json(R"({"fill":300000,"hold":100000})")});
    const auto onDisk = [&] { return QFileInfo(scene.PackagePath()).size(); };

    WorkerRun run;
    QVERIFY(run.StartDownload());
    QVERIFY(run.RunUntil([&] { return onDisk() == 200000; }));
    emit run.Prompt()->getPack();
    QVERIFY(run.RunUntil([&] { return onDisk() == 100000; }));
    QCOMPARE(ReadFile(scene.PackagePath()), content.left(100000));

    // The first download finishes first.
    QVERIFY(m_server->Release(QStringLiteral("/package/4711")));
    run.Tick(run.Timers().first());
    QVERIFY(m_server->Release(QStringLiteral("/package/4711")));
    QVERIFY(run.RunUntilLogged(scene, Verified(content)));
    QVERIFY(ReadFile(scene.PackagePath()) == content);
    QCOMPARE(run.Errors(), QStringList());
    QCOMPARE(m_server->Requests().size(), 3);
}

void TestHttpDownLoadFileDownload::secondStartIgnoresTheFirstsTimer()
{
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(OfferOf("abc")));
    m_server->Script(QStringLiteral("/package/4711"), Sends("abc", R"("hold":"headers")"));

    WorkerRun run;
    QVERIFY(run.StartDownload());
    QVERIFY(m_server->WaitForRequests(2));
    const QVector<int> first = run.Timers();
    QCOMPARE(first.size(), 1);
    QCOMPARE(run.TimerKinds(), QVector<WorkerRun::TimerKind>{qMakePair(2000, Qt::CoarseTimer)});
    emit run.Prompt()->getPack();
    QVERIFY(m_server->WaitForRequests(3));
    QCOMPARE(run.Timers().size(), 2);

    QVERIFY(m_server->Release(QStringLiteral("/package/4711")));
    QVERIFY(m_server->Release(QStringLiteral("/package/4711")));
    QVERIFY(run.RunUntilLogged(scene, Verified("abc")));
    // The timer of the first download is never stopped, but nothing uses it.
    QCOMPARE(run.Timers(), first);
    run.Tick(first.first());
    QCOMPARE(scene.LogAfterAnswer().mid(2), QStringList(Verified("abc")));
    QCOMPARE(run.Errors(), QStringList());
}

void TestHttpDownLoadFileDownload::shutdownDuringADownloadHangsUp()
{
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(Offer()));
    m_server->Script(QStringLiteral("/package/4711"), Json(R"({"fill":500000,"hold":200000})"));

    WorkerRun run;
    QVERIFY(run.StartDownload());
    QVERIFY(run.RunUntil([&] { return QFileInfo(scene.PackagePath()).size() == 200000; }));
    run.Shutdown();

    QTRY_VERIFY(!m_server->Release(QStringLiteral("/package/4711")));
    QCOMPARE(scene.LogAfterAnswer().size(), 2);
    QCOMPARE(scene.client.Calls().size(), 0);
}

#ifdef Q_OS_LINUX
void TestHttpDownLoadFileDownload::linuxSlowDiskDoesNotPileUpThePackageInMemory()
{
    const UpdateScene scene(*m_server);
    m_server->Script(QStringLiteral("/check"), Sends(Offer()));
    m_server->Script(QStringLiteral("/package/4711"),
                     Json(R"({"fill":268435456,"hold":"headers"})"));
    m_server->Script(QStringLiteral("/measure"), Json(R"({"fill":268435456})"));

    WorkerRun run;
    QVERIFY(run.StartDownload());
    QVERIFY(m_server->WaitForRequests(2));
    const qint64 before = LinuxMemory("VmRSS");
    // Like a disk that blocks for a while: the worker does not read.
    QSemaphore diskIsFree;
    QMetaObject::invokeMethod(
        run.Worker(), [&] { diskIsFree.acquire(); }, Qt::QueuedConnection);
    const bool released = m_server->Release(QStringLiteral("/package/4711"));

    // Without the limit the package would arrive in the time of another download.
    QProcess other;
    other.start(QStringLiteral("/usr/bin/python3"),
                {QStringLiteral("-c"),
                 QStringLiteral("import sys, urllib.request\n"
                                "answer = urllib.request.urlopen(sys.argv[1])\n"
                                "while answer.read(65536): pass"),
                 m_server->HttpUrl(QStringLiteral("/measure"))});
    const bool fetched = other.waitForFinished() && other.exitCode() == 0;
    const qint64 grown = LinuxMemory("VmRSS") - before;
    // Before any check can fail, because otherwise the worker's thread cannot end.
    diskIsFree.release();
    run.Shutdown();
    QVERIFY(released && fetched);
    QVERIFY2(grown < 32LL * 1024 * 1024, qPrintable(QString::number(grown)));
}
#endif

QTEST_MAIN(TestHttpDownLoadFileDownload)
#include "tst_httpdownloadfile_download.moc"
