/*
 * Runs the built updater many times over, in several lanes at once, and prints what was seen of it.
 * Ends with 1 when anything is not as it has to be.
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

/// The number that the option was given; ends the program when it is none.
int Number(const QCommandLineParser &parser, const QString &option, int least)
{
    bool isNumber = false;
    const int number = parser.value(option).toInt(&isNumber);
    if (!isNumber || number < least) {
        std::fprintf(stderr, "longrun: --%s needs a number from %d on\n", qPrintable(option),
                     least);
        std::exit(2);
    }
    return number;
}

/// How much of @p whole the part @p index of @p count gets.
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

/// Adds a lane's figures to those of the lanes before it.
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

/// The sum of what all lanes counted.
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
        std::fprintf(stderr, "lane %d came to no end\n", lane);
        Add(sum, {{QLatin1String(Figure::Findings), 1}});
    }
    return sum;
}

/// Prints the table; true when it has nothing but what has to be there.
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
    line("ended by themselves, with exit code 0", value(Figure::CleanExits));
    line("zip packages installed, and their version recorded", value(Figure::Installed));
    line("clients started once, with the right arguments", value(Figure::ClientStarts));
    line("installers started once, with the right arguments", value(Figure::InstallerStarts));
    line("reports of what a process had at its very end", value(Figure::EndReports));
    line("  leaks, in processes", value(Figure::LeakReports));
    line("  open descriptors left", value(Figure::Descriptors));
    line("  threads left", value(Figure::Threads));
    line("  objects left, timers among them", value(Figure::Objects));
    line("  shared-memory segments left", value(Figure::Segments));
    line("    late, because another process looked at this one", value(Figure::LateDetachments));
    line("  semaphores left", value(Figure::Semaphores));
    line("processes left", value(Figure::Processes));
    line("files left", value(Figure::Files));
    line("times that the log was full, and emptied", value(Figure::LogEmptied));
    line("most bytes of the log above its limit", value(Figure::LogBytesAboveLimit));
    line("  bytes of the longest line", value(Figure::LogLongestLine));
    line("findings", value(Figure::Findings));

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
        {{kUpdates, QStringLiteral("Whole updates to make."), kUpdates, QStringLiteral("1000")},
         {kChecks, QStringLiteral("Checks without an update."), kChecks, QStringLiteral("2000")},
         {kLanes, QStringLiteral("How many run at once."), kLanes, QStringLiteral("8")}});
    QCommandLineOption laneOption(kLane, QStringLiteral("Be the lane of this number."), kLane);
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
