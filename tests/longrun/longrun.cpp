// SPDX-License-Identifier: MIT
/*
 * Runs the built updater many times, in several lanes at once, and prints what it found. The exit
 * code is 1 when it found anything wrong.
 */
#include "tests/longrun/figures.h"
#include "tests/longrun/lane.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

namespace
{

const QLatin1String kUpdates("updates");
const QLatin1String kChecks("checks");
const QLatin1String kLanes("lanes");
const QLatin1String kLane("lane");

/// The value of the option; ends the program when that is not a number from @p least on.
int Number(const QCommandLineParser &parser, const QString &option, int least)
{
    bool isNumber = false;
    const int number = parser.value(option).toInt(&isNumber);
    if (!isNumber || number < least) {
        std::fprintf(stderr, "longrun: --%s needs a number of at least %d\n", qPrintable(option),
                     least);
        std::exit(2);
    }
    return number;
}

/// The share of part @p index when @p whole is divided into @p count parts.
int Share(int whole, int index, int count)
{
    return whole / count + (index < whole % count ? 1 : 0);
}

int RunLane(int number, int updates, int checks)
{
    Lane lane(number);
    lane.Run(updates, checks);
    std::printf("%s\n", QJsonDocument(lane.Figures()).toJson(QJsonDocument::Compact).constData());
    return 0;
}

/// Adds a lane's figures to the sum of the lanes before it.
void Add(QJsonObject &sum, const QJsonObject &figures)
{
    for (auto figure = figures.begin(); figure != figures.end(); ++figure) {
        const qint64 before = qint64(sum.value(figure.key()).toDouble());
        const qint64 number = qint64(figure.value().toDouble());
        const bool most = figure.key() == QLatin1String(Figure::LogBytesAboveLimit) ||
                          figure.key() == QLatin1String(Figure::LogLongestLine);
        sum.insert(figure.key(), most ? std::max(before, number) : before + number);
    }
}

/// Runs all lanes and returns the sum of their figures.
QJsonObject RunLanes(int updates, int checks, int lanes)
{
    std::vector<std::unique_ptr<QProcess>> processes;
    for (int lane = 0; lane < lanes; ++lane) {
        processes.push_back(std::make_unique<QProcess>());
        QProcess &process = *processes.back();
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process.start(QCoreApplication::applicationFilePath(),
                      {QStringLiteral("--lane"), QString::number(lane), QStringLiteral("--updates"),
                       QString::number(Share(updates, lane, lanes)), QStringLiteral("--checks"),
                       QString::number(Share(checks, lane, lanes))});
    }
    QJsonObject sum;
    for (int lane = 0; lane < lanes; ++lane) {
        QProcess &process = *processes[size_t(lane)];
        process.waitForFinished(-1);
        const QJsonDocument figures = QJsonDocument::fromJson(process.readAllStandardOutput());
        if (figures.isObject()) {
            Add(sum, figures.object());
            continue;
        }
        std::fprintf(stderr, "lane %d did not finish\n", lane);
        Add(sum, {{QLatin1String(Figure::Findings), 1}});
    }
    return sum;
}

/// Prints the table and what the harness changed; true when every figure is as expected.
bool Report(const QJsonObject &sum, int updates, int checks)
{
    const auto value = [&](const char *figure) {
        return qint64(sum.value(QLatin1String(figure)).toDouble());
    };
    const auto line = [](const char *what, qint64 number) {
        std::printf("  %-58s %10lld\n", what, static_cast<long long>(number));
    };
    const qint64 runs = updates + checks;
    const qint64 zipPackages = value(Figure::Updates) - value(Figure::InstallerStarts);

    line("whole updates", value(Figure::Updates));
    line("checks", value(Figure::Checks));
    line("runs that ended with exit code 0", value(Figure::CleanExits));
    line("zip packages installed, and their version recorded", value(Figure::Installed));
    line("clients started once, with the right arguments", value(Figure::ClientStarts));
    line("installers started once, with the right arguments", value(Figure::InstallerStarts));
    line("reports written at the end of a process", value(Figure::EndReports));
    line("  processes with leaks", value(Figure::LeakReports));
    line("  open descriptors left", value(Figure::Descriptors));
    line("  threads left", value(Figure::Threads));
    line("  objects left, timers among them", value(Figure::Objects));
    line("  shared-memory segments left", value(Figure::Segments));
    line("    detached only after the harness waited, see below", value(Figure::LateDetachments));
    line("  semaphores left", value(Figure::Semaphores));
    line("processes left", value(Figure::Processes));
    line("files left", value(Figure::Files));
    line("times that the full log was emptied", value(Figure::LogEmptied));
    line("most bytes of the log above its limit", value(Figure::LogBytesAboveLimit));
    line("  bytes of the longest line", value(Figure::LogLongestLine));
    line("findings", value(Figure::Findings));
    std::printf(
        "The harness changes two things in the updater: ftok() hashes the whole path, because\n"
        "the system's keys of 16 bits collide between lanes; and shmctl() waits up to 2 s for\n"
        "a forked copy that is still attached, which it had to do %lld times.\n",
        static_cast<long long>(value(Figure::LateDetachments)));

    return value(Figure::Findings) == 0 && value(Figure::Updates) == updates &&
           value(Figure::Checks) == checks && value(Figure::CleanExits) == runs &&
           value(Figure::EndReports) == runs && value(Figure::Installed) == zipPackages &&
           value(Figure::ClientStarts) + value(Figure::InstallerStarts) == runs;
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    QCommandLineParser parser;
    parser.addHelpOption();
    parser.addOptions(
        {{kUpdates, QStringLiteral("Number of updates."), kUpdates, QStringLiteral("1000")},
         {kChecks, QStringLiteral("Number of checks without an update."), kChecks,
          QStringLiteral("2000")},
         {kLanes, QStringLiteral("Number of lanes that run at once."), kLanes,
          QStringLiteral("8")}});
    QCommandLineOption laneOption(kLane, QStringLiteral("Run as the lane of this number."), kLane);
    laneOption.setFlags(QCommandLineOption::HiddenFromHelp);
    parser.addOption(laneOption);
    parser.process(application);

    const int updates = Number(parser, kUpdates, 0);
    const int checks = Number(parser, kChecks, 0);
    if (parser.isSet(kLane))
        return RunLane(Number(parser, kLane, 0), updates, checks);

    const int lanes = Number(parser, kLanes, 1);
    QElapsedTimer timer;
    timer.start();
    const QJsonObject sum = RunLanes(updates, checks, lanes);
    std::printf("%d runs in %d lanes, %lld seconds\n", updates + checks, lanes,
                static_cast<long long>(timer.elapsed() / 1000));
    return Report(sum, updates, checks) ? 0 : 1;
}
