// SPDX-License-Identifier: MIT
/*
 * Makes many updates in one process, each with its own worker, thread and dialogs, and prints what
 * has grown. This shows leaks that the end of a process would hide. The exit code is 1 when
 * anything is left.
 *
 *     repetition UPDATES
 */
#include "config/global.h"
#include "tests/longrun/liveobjects.h"
#include "tests/longrun/ownprocess.h"
#include "tests/support/workerrun.h"
#include "tests/support/zipmaker.h"

#include <QApplication>
#include <QFile>
#include <QPixmapCache>
#include <QTest>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string>
#include <vector>

namespace
{

/// Until Qt has created what it keeps: fonts, pictures, certificates, threads.
constexpr int kWarmUps = 3;

constexpr int kThreadsEndMs = 5000;

using Names = std::vector<std::string>;

/// What this process holds.
struct State {
    Names descriptors;
    Names threads;
    Names objects;
    int timers = 0;
    qint64 residentBytes = 0;

    static State Now(std::size_t threadsAtMost);
};

State State::Now(std::size_t threadsAtMost)
{
    State state;
    // /proc may still list a thread that was joined.
    (void)QTest::qWaitFor([&] { return OwnProcess::Threads().size() <= threadsAtMost; },
                          kThreadsEndMs);
    state.descriptors = OwnProcess::Descriptors();
    state.threads = OwnProcess::Threads();
    state.objects = LiveObjects::Classes();
    state.timers = LiveObjects::Timers();
    state.residentBytes = LinuxMemory("VmRSS");
    return state;
}

void Require(bool holds, const char *otherwise, int update)
{
    if (holds)
        return;
    std::fprintf(stderr, "update %d: %s\n", update, otherwise);
    std::exit(1);
}

void MakeUpdate(ScriptedServer &server, int number)
{
    UpdateScene scene(server);
    WriteFile(scene.UpdateConfigFile(), "{}");
    scene.ClientDataFolder();
    // So that both languages and both prompts come up.
    Global::instance.language = number % 2 == 0 ? QStringLiteral("en") : QStringLiteral("zh");
    const QByteArray mode = number % 3 == 0 ? "2" : "1";
    const QByteArray content = "release " + QByteArray::number(number);
    const QByteArray package = ZipMaker()
                                   .AddFolder(QStringLiteral("Package"))
                                   .AddFile(QStringLiteral("Package/release.txt"), content)
                                   .Bytes();
    server.Script(QStringLiteral("/check"),
                  Sends(Offer(R"("update":")" + mode + R"(","md5":")" + Md5(package) + '"')));
    server.Script(QStringLiteral("/package/4711"), Sends(package));

    WorkerRun run;
    Require(run.DownloadUntilQuit(), "the program did not quit", number);
    run.Shutdown();
    Require(scene.client.WaitForCalls(1), "the client was not started", number);
    Require(ReadFile(scene.Installed(QStringLiteral("release.txt"))) == content,
            "the package was not installed", number);
    // Qt caches pictures of windows that are gone.
    QPixmapCache::clear();
}

/// Prints what is in @p after but not in @p before; true when there is nothing.
bool NothingNew(const char *what, const Names &before, const Names &after)
{
    Names added;
    std::set_difference(after.begin(), after.end(), before.begin(), before.end(),
                        std::back_inserter(added));
    std::printf("  %-58s %10zu\n", what, added.size());
    for (const std::string &name : added)
        std::printf("      %s\n", name.c_str());
    return added.empty();
}

} // namespace

int main(int argc, char *argv[])
{
    LiveObjects::Watch();
    QApplication application(argc, argv);
    const int updates = argc == 2 ? std::atoi(argv[1]) : 0;
    if (updates < 1) {
        std::fprintf(stderr, "usage: repetition UPDATES\n");
        return 2;
    }

    ScriptedServer server;
    int number = 0;
    while (number < kWarmUps)
        MakeUpdate(server, ++number);
    const State before = State::Now(0);
    while (number < kWarmUps + updates)
        MakeUpdate(server, ++number);
    const State after = State::Now(before.threads.size());

    std::printf("%d updates in one process, and what is left of them\n", updates);
    std::printf("The harness skips the pause of one second before each check.\n");
    bool clean = NothingNew("open descriptors", before.descriptors, after.descriptors);
    clean = NothingNew("threads", before.threads, after.threads) && clean;
    clean = NothingNew("objects", before.objects, after.objects) && clean;
    std::printf("  %-58s %10d\n", "timers", after.timers - before.timers);
    std::printf("  %-58s %10lld\n", "KiB of memory, caches and gaps among them; not judged",
                static_cast<long long>((after.residentBytes - before.residentBytes) / 1024));
    return clean && after.timers == before.timers ? 0 : 1;
}
