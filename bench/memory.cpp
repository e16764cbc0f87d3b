// SPDX-License-Identifier: MIT
// The peak memory of a whole update, from the start to the installed client: check, download over
// TLS, digest, unpacking and copying.

#include "bench/figure.h"
#include "bench/packageserver.h"
#include "bench/processstatus.h"
#include "tests/support/loglines.h"

#include <QApplication>
#include <QFileInfo>

namespace
{

constexpr int kRuns = 5;
constexpr int kSmallestMebibytes = 16;
constexpr int kLargestMebibytes = 1024;
constexpr double kKibibytesInMebibyte = 1024;

double PeakMebibytes(const PackageServer &server, int mebibytes)
{
    UpdaterRun run;
    server.StartUpdate(run, mebibytes);
    // The last step; half a second later the updater starts the client and ends.
    if (!run.WaitForLog(LogLine::VersionRecorded()))
        qFatal("the package was not installed:\n%s", qPrintable(run.Log().join(QLatin1Char('\n'))));
    const double peak = StatusNumber(run.process.processId(), "VmHWM") / kKibibytesInMebibyte;
    if (run.WaitForEnd() != 0 ||
        !QFileInfo::exists(run.ClientFolder() + QStringLiteral("/noise.bin")))
        qFatal("the update failed");
    return peak;
}

Figure Measure(const PackageServer &server, int mebibytes)
{
    Figure figure;
    for (int run = 0; run < kRuns; ++run)
        figure.ours.append(PeakMebibytes(server, mebibytes));
    figure.name = QStringLiteral("most memory of an update, package of %1 MiB").arg(mebibytes);
    figure.unit = QStringLiteral("MiB");
    figure.chart = QStringLiteral("memory");
    figure.x = mebibytes;
    return figure;
}

} // namespace

int main(int argc, char *argv[])
{
    const QApplication application(argc, argv);
    KeepQuiet();
    const PackageServer server(argc, argv);

    const Figure smallest = Measure(server, kSmallestMebibytes);
    Print(smallest);
    Print(Measure(server, 256));
    Figure largest = Measure(server, kLargestMebibytes);
    largest.comparedWith = QStringLiteral("package of %1 MiB").arg(kSmallestMebibytes);
    largest.theirs = smallest.ours;
    largest.judged = Figure::Difference;
    largest.bound = 16;
    Print(largest);
    return 0;
}
