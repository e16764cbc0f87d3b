/*
 * Makes whole updates one after the other in one process, each with a worker, a thread and dialogs
 * of its own and with the prompt's button pressed, and prints what has grown meanwhile. A process
 * that ends after each update would hide that. Ends with 1 when anything is left.
 *
 *     repetition UPDATES
 */
#include "config/global.h"
#include "tests/longrun/liveobjects.h"
#include "tests/longrun/ownprocess.h"
#include "tests/net/workerrun.h"
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

/// What the framework makes on its first uses: fonts, pictures, certificates, its own threads.
constexpr int kWarmUps = 3;

constexpr int kThreadsEndMs = 5000;

using Names = std::vector<std::string>;

/// What this process has.
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
    // A thread that was waited for has said its last word, but the system may not have let it go.
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
    WriteFile(scene.home.ProgramFolder() + QStringLiteral("/updateconfig.json"), "{}");
    scene.home.ClientDataFolder();
    // So that both languages, both prompts and both kinds of texts are made.
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
    Require(ReadFile(scene.home.ClientFolder() + QStringLiteral("/release.txt")) == content,
            "the package was not installed", number);
    // The framework keeps pictures of windows that are gone, up to a limit of its own.
    QPixmapCache::clear();
}

/// Prints what @p after has and @p before has not; true when that is nothing.
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

    std::printf("%d updates in one process: what is left of them\n", updates);
    const bool clean = NothingNew("open descriptors", before.descriptors, after.descriptors) &
                       NothingNew("threads", before.threads, after.threads) &
                       NothingNew("objects", before.objects, after.objects);
    std::printf("  %-58s %10d\n", "timers", after.timers - before.timers);
    std::printf("  %-58s %10lld\n", "KiB of memory, caches and gaps among them; not judged",
                static_cast<long long>((after.residentBytes - before.residentBytes) / 1024));
    return clean && after.timers == before.timers ? 0 : 1;
}
