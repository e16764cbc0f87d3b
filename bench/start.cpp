// SPDX-License-Identifier: MIT
// How soon the check request is sent, compared with a minimal program that does the same work.

#include "bench/figure.h"
#include "tests/support/updaterrun.h"

#include <QApplication>
#include <QDateTime>

namespace
{

constexpr int kRuns = 10;

/// The pause that every run makes before its check.
constexpr double kFixedPauseMs = 1000;

/// The time of one look for a running client, as the worker makes it, when none runs.
double TasklistMs(const QString &imageName)
{
    return Milliseconds([&imageName] {
        QProcess tasklist;
        tasklist.start(QStringLiteral("tasklist"),
                       {QStringLiteral("/FO"), QStringLiteral("CSV"), QStringLiteral("/FI"),
                        QStringLiteral("IMAGENAME eq ") + imageName});
        tasklist.waitForFinished();
    });
}

/// From the start of the process to the check request, less the pause and the child processes.
double CheckRequestMs()
{
    UpdaterRun run;
    // Takes little time, and the same in each run, so that it can be subtracted.
    const StandIn tasklist(run.CommandsFolder() + QStringLiteral("/tasklist"));
    run.Configure();
    run.AnswerCheck({{QStringLiteral("latestVersion"), QStringLiteral("1.0.0")}});
    const double children = TasklistMs(run.ClientName()) + TasklistMs(run.ClientName());
    const qint64 start = QDateTime::currentMSecsSinceEpoch();
    if (run.Run() != 0 || run.server.Requests().size() != 1)
        qFatal("the run sent no check request");
    return double(run.server.Requests().first().timeMs - start) - kFixedPauseMs - children;
}

/// From the start of the bare program to its request.
double BareCheckMs()
{
    UpdaterRun run;
    run.Configure();
    run.AnswerCheck({});
    QProcess process;
    const qint64 start = QDateTime::currentMSecsSinceEpoch();
    process.start(QStringLiteral(BARE_CHECK_PROGRAM),
                  {run.server.HttpsUrl(QStringLiteral("/check"))});
    if (!process.waitForFinished() || run.server.Requests().size() != 1)
        qFatal("the bare program sent no request");
    return double(run.server.Requests().first().timeMs - start);
}

} // namespace

int main(int argc, char *argv[])
{
    const QApplication application(argc, argv);
    KeepQuiet();

    // Fills the file cache for both.
    BareCheckMs();
    CheckRequestMs();
    Figure figure;
    for (int run = 0; run < kRuns; ++run) {
        figure.theirs.append(BareCheckMs());
        figure.ours.append(CheckRequestMs());
    }
    figure.name = QStringLiteral("start to the check request, less pause and child processes");
    figure.unit = QStringLiteral("ms");
    figure.comparedWith = QStringLiteral("the same work done bare");
    figure.judged = Figure::Ratio;
    figure.bound = 1.2;
    Print(figure);
    return 0;
}
