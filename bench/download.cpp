// The download of a package over TLS, against curl: from the moment that nginx sees the request to
// that when the file is whole and closed. And the memory that it takes, before the digest.

#include "bench/closewatch.h"
#include "bench/figure.h"
#include "bench/packageserver.h"
#include "bench/processstatus.h"
#include "bench/warmmemory.h"

#include <QApplication>
#include <QFile>
#include <QFileInfo>

#include <algorithm>

namespace
{

constexpr int kRuns = 5;
constexpr int kSmallestMebibytes = 16;
constexpr int kLargestMebibytes = 1024;
constexpr qint64 kMebibyte = 1024LL * 1024;
constexpr double kKibibytesInMebibyte = 1024;

struct Download {
    double milliseconds;
    double peakMebibytes; ///< of memory, while bytes were still to come
};

Download WithUpdater(const PackageServer &server, int mebibytes)
{
    UpdaterRun run;
    const QString path = PackageServer::Target(run, mebibytes);
    const CloseWatch watch(path);
    const int request = server.RequestCount();
    WarmMemory memory(mebibytes);
    server.StartDownload(run, mebibytes, [&memory] { memory.Release(); });

    double peak = 0;
    const double end = watch.Wait([&] {
        const double now = StatusNumber(run.process.processId(), "VmHWM") / kKibibytesInMebibyte;
        if (QFileInfo(path).size() < mebibytes * kMebibyte)
            peak = now;
    });
    return {end - server.RequestStartMs(request), peak};
}

double WithCurl(const PackageServer &server, int mebibytes)
{
    const TestHome home;
    const QString path = home.Scratch() + QStringLiteral("/package");
    const CloseWatch watch(path);
    const int request = server.RequestCount();
    WarmMemory memory(mebibytes);
    memory.Release();
    QProcess curl;
    curl.start(QStringLiteral("curl"),
               {QStringLiteral("--silent"), QStringLiteral("--fail"), QStringLiteral("--cacert"),
                server.Certificate(), QStringLiteral("-o"), path, server.Url(mebibytes)});
    const double end = watch.Wait();
    curl.waitForFinished();
    if (curl.exitCode() != 0 || QFileInfo(path).size() != mebibytes * kMebibyte)
        qFatal("curl did not download the package: %s", curl.readAllStandardError().constData());
    return end - server.RequestStartMs(request);
}

/// Prints the row of the time, and returns the peaks of memory.
QVector<double> Measure(const PackageServer &server, int mebibytes)
{
    Figure figure;
    QVector<double> peaks;
    for (int run = 0; run < kRuns; ++run) {
        const Download download = WithUpdater(server, mebibytes);
        figure.ours.append(download.milliseconds);
        peaks.append(download.peakMebibytes);
        figure.theirs.append(WithCurl(server, mebibytes));
    }
    figure.name = QStringLiteral("download of %1 MiB over TLS").arg(mebibytes);
    figure.unit = QStringLiteral("ms");
    figure.comparedWith = QStringLiteral("curl -o");
    figure.chart = QStringLiteral("download");
    figure.x = mebibytes;
    if (mebibytes == kLargestMebibytes) {
        figure.judged = Figure::Ratio;
        figure.bound = 1.25;
    }
    Print(figure);
    return peaks;
}

} // namespace

int main(int argc, char *argv[])
{
    const QApplication application(argc, argv);
    KeepQuiet();
    const PackageServer server(argc, argv);

    QVector<double> smallest;
    for (const int mebibytes : {kSmallestMebibytes, 256, kLargestMebibytes}) {
        Figure figure;
        figure.ours = Measure(server, mebibytes);
        if (smallest.isEmpty())
            smallest = figure.ours;
        figure.name =
            QStringLiteral("most memory before the digest, package of %1 MiB").arg(mebibytes);
        figure.unit = QStringLiteral("MiB");
        figure.chart = QStringLiteral("memory");
        figure.x = mebibytes;
        if (mebibytes == kLargestMebibytes) {
            figure.comparedWith = QStringLiteral("package of %1 MiB").arg(kSmallestMebibytes);
            figure.theirs = smallest;
            figure.judged = Figure::Difference;
            figure.bound = 8;
        }
        Print(figure);
    }
    return 0;
}
