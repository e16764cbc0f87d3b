#include "config/global.h"
#include "net/httpdownloadfile.h"
#include "tests/e2e/updaterrun.h"

#include <QApplication>
#include <QDateTime>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QTest>
#include <QThread>

#include <algorithm>
#include <cstdio>

namespace
{

constexpr int kRuns = 10;

QString CheckPath()
{
    return QStringLiteral("/check");
}

/// Keeps the log lines of what runs inside this process out of the numbers.
void OnlyTrouble(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    if (type == QtFatalMsg)
        std::fprintf(stderr, "%s\n", qPrintable(text));
}

/// Prints the median and the worst, and returns the median.
qint64 Print(const char *what, QVector<qint64> milliseconds)
{
    std::sort(milliseconds.begin(), milliseconds.end());
    const qint64 median = milliseconds.at(milliseconds.size() / 2);
    std::printf("%s: median %lld ms, worst %lld ms of %d runs\n", what,
                static_cast<long long>(median), static_cast<long long>(milliseconds.last()),
                int(milliseconds.size()));
    std::fflush(stdout);
    return median;
}

/// What one running check costs with nothing running, as the worker makes it.
qint64 TasklistMs(const QString &imageName)
{
    QElapsedTimer timer;
    timer.start();
    QProcess tasklist;
    tasklist.start(QStringLiteral("tasklist"),
                   {QStringLiteral("/FO"), QStringLiteral("CSV"), QStringLiteral("/FI"),
                    QStringLiteral("IMAGENAME eq ") + imageName});
    tasklist.waitForFinished();
    return timer.elapsed();
}

/// From the start of the process to the check request, less the fixed second and the child
/// processes.
qint64 CheckRequestMs()
{
    UpdaterRun run;
    run.Configure();
    run.AnswerCheck({{QStringLiteral("latestVersion"), QStringLiteral("1.0.0")}});
    const qint64 children = TasklistMs(run.imageName) + TasklistMs(run.imageName);
    const qint64 start = QDateTime::currentMSecsSinceEpoch();
    if (run.Run() != 0 || run.server.Requests().size() != 1)
        qFatal("the run sent no check request");
    return run.server.Requests().first().timeMs - start - 1000 - children;
}

/// From the start of the process to its window being drawn.
qint64 BareWindowMs()
{
    QElapsedTimer timer;
    timer.start();
    QProcess process;
    process.start(QStringLiteral(BARE_WINDOW_PROGRAM), QStringList());
    if (!process.waitForReadyRead() || process.readLine().trimmed() != "drawn")
        qFatal("the bare window was never drawn");
    const qint64 elapsed = timer.elapsed();
    process.waitForFinished();
    return elapsed;
}

/// In turns, so that what else the machine does meets both alike.
void MeasureStart()
{
    // What both read from disk comes from the cache from here on.
    BareWindowMs();
    CheckRequestMs();
    QVector<qint64> checks;
    QVector<qint64> windows;
    for (int i = 0; i < kRuns; ++i) {
        windows.append(BareWindowMs());
        checks.append(CheckRequestMs());
    }
    const qint64 check =
        Print("start of the process to the check request, less the second and the child processes",
              checks);
    const qint64 window =
        Print("start of a bare window program to its window being drawn", windows);
    std::printf("ratio of the two: %.2f\n", double(check) / double(window));
    std::fflush(stdout);
}

/// Notes when the prompt is drawn for the first time.
class PaintWatch : public QObject
{
public:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::Paint &&
            watched->objectName() == QLatin1String("UpdateDialog"))
            paintedMs = QDateTime::currentMSecsSinceEpoch();
        return false;
    }

    qint64 paintedMs = 0;
};

/// From the moment that the service sends its answer to the first drawing of the prompt.
void MeasurePrompt()
{
    QVector<qint64> times;
    for (int i = 0; i < kRuns; ++i) {
        UpdaterRun run;
        run.Configure();
        const QByteArray answer = R"({"code": "000000", "biz": {"latestVersion": "2.0.0",)"
                                  R"( "update": "1", "latestVersionInfo": "<b>notes</b>"}})";
        run.server.Script(CheckPath(),
                          QJsonObject{{QStringLiteral("body"), QString::fromUtf8(answer)},
                                      {QStringLiteral("hold"), QStringLiteral("before")}});
        if (Global::instance.ReadConfig() != Global::Success)
            qFatal("the configuration cannot be read");

        PaintWatch watch;
        qApp->installEventFilter(&watch);
        QThread thread;
        HttpDownLoadFile worker;
        worker.moveToThread(&thread);
        QObject::connect(&thread, &QThread::finished, &worker, &HttpDownLoadFile::DeleteResource,
                         Qt::DirectConnection);
        thread.start();
        if (!run.server.WaitForRequests(1))
            qFatal("no check request came");
        const qint64 sent = QDateTime::currentMSecsSinceEpoch();
        run.server.Release(CheckPath());
        if (!QTest::qWaitFor([&] { return watch.paintedMs != 0; }, 10000))
            qFatal("the prompt was never drawn");
        times.append(watch.paintedMs - sent);
        thread.exit(0);
        thread.wait();
    }
    Print("answer of the service to the prompt being drawn", times);
}

/// The most memory that the process has had resident so far, in KiB.
qint64 PeakKiB(const QProcess &process)
{
    const QByteArray status = ReadFile(QStringLiteral("/proc/%1/status").arg(process.processId()));
    const int start = status.indexOf("VmHWM:") + 6;
    return status.mid(start, status.indexOf(" kB", start) - start).trimmed().toLongLong();
}

QString PackageTarget()
{
    return QStringLiteral("/packages/large.zip");
}

/// Publishes the package at @p path, held back after @p bytes, and waits until those have arrived.
void DownloadUpTo(UpdaterRun &run, const QString &path, qint64 bytes)
{
    const QString reply = QFileInfo(path).absolutePath() + QStringLiteral("/../check/offer.json");
    QJsonObject biz =
        QJsonDocument::fromJson(ReadFile(reply)).object().value(QStringLiteral("biz")).toObject();
    biz.insert(QStringLiteral("id"), QStringLiteral("large.zip"));
    run.Configure();
    run.AnswerCheck(biz);
    run.server.Script(PackageTarget(),
                      QJsonObject{{QStringLiteral("file"), path}, {QStringLiteral("hold"), bytes}});
    run.Start({QStringLiteral("-immediately")});
    const QString package = run.PackagePath(QFileInfo(path).fileName());
    if (!QTest::qWaitFor([&] { return QFile(package).size() == bytes; }, 120000))
        qFatal("the package does not arrive");
}

/// The same run with its window up and a download that has only just begun.
qint64 IdlePeakKiB(const QString &path)
{
    UpdaterRun run;
    DownloadUpTo(run, path, 1);
    return PeakKiB(run.process);
}

/// A whole update with the package at @p path; the memory is read when all but one byte has come.
void MeasureLargePackage(const QString &path)
{
    const qint64 idle = IdlePeakKiB(path);
    const qint64 size = QFile(path).size();

    UpdaterRun run;
    QElapsedTimer timer;
    timer.start();
    DownloadUpTo(run, path, size - 1);
    const qint64 peak = PeakKiB(run.process);
    run.server.Release(PackageTarget());
    if (run.WaitForEnd(300000) != 0 || !run.client.WaitForCalls(1) ||
        !run.Log().contains(
            QStringLiteral("[WARNING] (:0) autoupdate config veison update successed")))
        qFatal("the package was not installed:\n%s", qPrintable(run.Log().join(QLatin1Char('\n'))));
    std::printf("package of %.1f MiB: installed in %.1f s; memory before the digest %.1f MiB, "
                "in an idle run %.1f MiB, growth %.1f MiB\n",
                double(size) / 1024 / 1024, double(timer.elapsed()) / 1000, double(peak) / 1024,
                double(idle) / 1024, double(peak - idle) / 1024);
}

} // namespace

int main(int argc, char *argv[])
{
    Q_INIT_RESOURCE(resources);
    QApplication application(argc, argv);
    qInstallMessageHandler(OnlyTrouble);
    MeasureStart();
    MeasurePrompt();
    if (argc > 1)
        MeasureLargePackage(QString::fromLocal8Bit(argv[1]));
    return 0;
}
