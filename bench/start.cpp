// How soon the check request goes out, against the start of a bare window program.

#include "bench/barewindow.h"
#include "bench/figure.h"
#include "tests/e2e/updaterrun.h"

#include <QApplication>
#include <QDateTime>

namespace
{

constexpr int kRuns = 10;

/// The pause that every run makes before its check.
constexpr double kFixedPauseMs = 1000;

/// What one running check costs with nothing running, as the worker makes it.
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
    // One that costs next to nothing and the same each time: what it costs is taken off.
    const StandIn tasklist(run.home.CommandsFolder() + QStringLiteral("/tasklist"));
    run.Configure();
    run.AnswerCheck({{QStringLiteral("latestVersion"), QStringLiteral("1.0.0")}});
    const double children = TasklistMs(run.imageName) + TasklistMs(run.imageName);
    const qint64 start = QDateTime::currentMSecsSinceEpoch();
    if (run.Run() != 0 || run.server.Requests().size() != 1)
        qFatal("the run sent no check request");
    return double(run.server.Requests().first().timeMs - start) - kFixedPauseMs - children;
}

/// From the start of the process to its window being drawn.
double BareWindowMs(const QStringList &arguments = {})
{
    QProcess process;
    const double elapsed = Milliseconds([&] { StartBareWindow(process, arguments); });
    process.waitForFinished();
    return elapsed;
}

} // namespace

int main(int argc, char *argv[])
{
    const QApplication application(argc, argv);
    KeepQuiet();

    const QStringList withText{QStringLiteral("--text")};
    // What all read from disk comes from the cache from here on.
    BareWindowMs();
    BareWindowMs(withText);
    CheckRequestMs();
    Figure figure;
    QVector<double> text;
    for (int run = 0; run < kRuns; ++run) {
        figure.theirs.append(BareWindowMs());
        text.append(BareWindowMs(withText));
        figure.ours.append(CheckRequestMs());
    }
    figure.name = QStringLiteral("start to the check request, less pause and child processes");
    figure.unit = QStringLiteral("ms");
    figure.comparedWith = QStringLiteral("bare window, start to drawn");
    figure.judged = Figure::Ratio;
    figure.bound = 1.3;
    Print(figure);

    figure.comparedWith = QStringLiteral("bare window with a word in it");
    figure.theirs = text;
    figure.judged = Figure::Nothing;
    Print(figure);
    return 0;
}
