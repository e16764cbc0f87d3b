// SPDX-License-Identifier: MIT
// The download of a package over TLS, compared with curl: from the moment that nginx sees the
// request until the complete file is closed.

#include "bench/closewatch.h"
#include "bench/figure.h"
#include "bench/packageserver.h"
#include "bench/warmmemory.h"

#include <QApplication>
#include <QFile>
#include <QFileInfo>
namespace
{

constexpr int kRuns = 5;
constexpr int kLargestMebibytes = 1024;
constexpr qint64 kMebibyte = 1024LL * 1024;

double WithUpdater(const PackageServer &server, int mebibytes)
{
    UpdaterRun run;
    const QString path = PackageServer::Target(run, mebibytes);
    const CloseWatch watch(path);
    const int request = server.RequestCount();
    WarmMemory memory(mebibytes);
    server.StartDownload(run, mebibytes, [&memory] { memory.Release(); });

    const double end = watch.Wait();
    return end - server.RequestStartMs(request);
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

void Measure(const PackageServer &server, int mebibytes)
{
    Figure figure;
    for (int run = 0; run < kRuns; ++run) {
        figure.ours.append(WithUpdater(server, mebibytes));
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
}

} // namespace

int main(int argc, char *argv[])
{
    const QApplication application(argc, argv);
    KeepQuiet();
    const PackageServer server(argc, argv);
    for (const int mebibytes : {16, 256, kLargestMebibytes})
        Measure(server, mebibytes);
    return 0;
}
