// SPDX-License-Identifier: MIT
// How often the threads of the process wake up while the prompt is shown and nobody touches it,
// compared with a bare window during the same seconds. Threads that Qt starts for itself count only
// in the second row.

#include "bench/figure.h"
#include "bench/processstatus.h"
#include "bench/updaterwindow.h"
#include "tests/support/updaterrun.h"

#include <QApplication>
#include <QTest>

#include <algorithm>

namespace
{

constexpr int kRuns = 3;
constexpr int kSeconds = 10;
constexpr int kMillisecondsInSecond = 1000;

/// By then, all work that follows the first drawing is done.
constexpr int kSettleMs = 3000;

constexpr int kTryMs = 30000;

/// The names that Qt and the system give the threads.
const QByteArray kWorkerThread("QThread");
const QByteArray kGuiThread("AutoUpdate");
const QByteArray kBareGuiThread("barewindow");

/// The wake-ups from @p before to @p after. Threads that have ended do not count.
double Sum(const QMap<QByteArray, double> &before, const QMap<QByteArray, double> &after)
{
    double sum = 0;
    for (auto thread = after.begin(); thread != after.end(); ++thread)
        sum += std::max(0.0, thread.value() - before.value(thread.key()));
    return sum;
}

void Measure(Figure &own, Figure &all)
{
    UpdaterRun run;
    run.Configure();
    run.Publish("package", QStringLiteral("package.zip"));
    run.Start();
    if (!QTest::qWaitFor([] { return !UpdaterWindow().isEmpty(); }, kTryMs))
        qFatal("the prompt never came up");
    QProcess bare;
    bare.start(QStringLiteral(BARE_WINDOW_PROGRAM), QStringList());
    if (!bare.waitForReadyRead() || bare.readLine().trimmed() != "drawn")
        qFatal("the bare window was never drawn");
    QTest::qWait(kSettleMs);

    const auto oursBefore = SleepCounts(run.process.processId());
    const auto theirsBefore = SleepCounts(bare.processId());
    QTest::qWait(kSeconds * kMillisecondsInSecond);
    const auto ours = SleepCounts(run.process.processId());
    const auto theirs = SleepCounts(bare.processId());
    own.ours.append((ours[kGuiThread] + ours[kWorkerThread] - oursBefore[kGuiThread] -
                     oursBefore[kWorkerThread]) /
                    kSeconds);
    own.theirs.append((theirs[kBareGuiThread] - theirsBefore[kBareGuiThread]) / kSeconds);
    all.ours.append(Sum(oursBefore, ours) / kSeconds);
    all.theirs.append(Sum(theirsBefore, theirs) / kSeconds);
    bare.kill();
    bare.waitForFinished();
}

} // namespace

int main(int argc, char *argv[])
{
    const QApplication application(argc, argv);
    KeepQuiet();
    Figure own;
    Figure all;
    for (int run = 0; run < kRuns; ++run)
        Measure(own, all);
    own.name = QStringLiteral("wake-ups while the prompt stands, the program's two threads");
    own.judged = Figure::Difference;
    own.bound = 0;
    all.name = QStringLiteral("wake-ups while the prompt stands, with Qt's own threads");
    for (Figure *figure : {&own, &all}) {
        figure->unit = QStringLiteral("/s");
        figure->comparedWith = QStringLiteral("bare window");
        Print(*figure);
    }
    return 0;
}
