/*
 * Preloaded into the updater: writes down what the process still has at its very end, behind its
 * entry function and the destruction of everything static, into the file that LONGRUN_END_REPORT
 * names. A line each, a kind and what it is:
 *
 *     descriptor 3 /path    an open one
 *     thread NAME           one that has not ended, besides the main one
 *     object QTimer         an object of the framework that was never destroyed
 *     segment 4711          shared memory that this process made or attached, and that stays
 *     semaphores 4711       likewise
 *     late 1                so many times shared memory was let go late, see shmctl()
 *     end                   the last line: the report is whole
 */
#include "tests/longrun/liveobjects.h"
#include "tests/longrun/ownprocess.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <dlfcn.h>
#include <fstream>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <thread>
#include <vector>

namespace
{

/// Of a millisecond each: for what the system is late to let go.
constexpr int kPolls = 2000;

/// What the process asked the system for by key.
struct Shared {
    std::mutex mutex;
    std::set<int> segments;
    std::set<int> semaphores;
    std::atomic<int> lateDetachments{0};
    std::string reportPath;
};

/// Never destroyed: it is read when all else is.
Shared &TheShared()
{
    static auto *shared = new Shared;
    return *shared;
}

void Note(std::set<int> &ids, int id)
{
    if (id < 0)
        return;
    const std::lock_guard<std::mutex> lock(TheShared().mutex);
    ids.insert(id);
}

bool SegmentIsThere(int id)
{
    struct shmid_ds status = {};
    return shmctl(id, IPC_STAT, &status) == 0;
}

bool SemaphoresAreThere(int id)
{
    struct semid_ds status = {};
    return semctl(id, 0, IPC_STAT, &status) == 0;
}

/// A thread that was waited for has said its last word, but the system may not have let it go yet.
std::vector<std::string> LastingThreads()
{
    std::vector<std::string> threads = OwnProcess::Threads();
    for (int poll = 0; poll < kPolls && !threads.empty(); ++poll) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        threads = OwnProcess::Threads();
    }
    return threads;
}

__attribute__((constructor)) void Begin()
{
    const char *path = std::getenv("LONGRUN_END_REPORT");
    if (path == nullptr)
        return;
    TheShared().reportPath = path;
    // The commands and the client that the updater starts are not looked at.
    unsetenv("LD_PRELOAD");
    unsetenv("LONGRUN_END_REPORT");
    LiveObjects::Watch();
}

__attribute__((destructor)) void End()
{
    if (TheShared().reportPath.empty())
        return;
    // Before the report is open itself.
    const std::vector<std::string> descriptors = OwnProcess::Descriptors();
    std::ofstream report(TheShared().reportPath);
    for (const std::string &descriptor : descriptors)
        report << "descriptor " << descriptor << '\n';
    for (const std::string &thread : LastingThreads())
        report << "thread " << thread << '\n';
    for (const std::string &name : LiveObjects::Classes())
        report << "object " << name << '\n';
    for (const int id : TheShared().segments) {
        if (SegmentIsThere(id))
            report << "segment " << id << '\n';
    }
    for (const int id : TheShared().semaphores) {
        if (SemaphoresAreThere(id))
            report << "semaphores " << id << '\n';
    }
    if (TheShared().lateDetachments > 0)
        report << "late " << TheShared().lateDetachments << '\n';
    report << "end\n";
}

} // namespace

// The system's headers have reserved names for the parameters.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)

/*
 * The system makes a key out of sixteen bits of the number of the file that names it. Two of many
 * installations on one machine would soon meet in that, and one of them would not start.
 */
extern "C" key_t ftok(const char *path, int project) noexcept
{
    return key_t(std::hash<std::string>()(path + std::to_string(project)));
}

extern "C" int shmget(key_t key, size_t size, int flags) noexcept
{
    static const auto real = reinterpret_cast<decltype(&shmget)>(dlsym(RTLD_NEXT, "shmget"));
    const int id = real(key, size, flags);
    Note(TheShared().segments, id);
    return id;
}

/*
 * When the updater starts a program, a copy of the process has the segment attached until the new
 * program has taken its place, and longer when somebody reads about that process in /proc just
 * then, as another lane's list of processes does. Whoever detaches last must see that he is the
 * last, or the segment stays behind. So he waits here until the copy is gone; one that does not go
 * is told.
 */
extern "C" int shmctl(int id, int command, struct shmid_ds *status) noexcept
{
    static const auto real = reinterpret_cast<decltype(&shmctl)>(dlsym(RTLD_NEXT, "shmctl"));
    int result = real(id, command, status);
    if (command != IPC_STAT || result != 0 || status->shm_nattch == 0)
        return result;
    for (int poll = 0; poll < kPolls && result == 0 && status->shm_nattch > 0; ++poll) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        result = real(id, command, status);
    }
    if (status->shm_nattch == 0)
        ++TheShared().lateDetachments;
    return result;
}

extern "C" int semget(key_t key, int count, int flags) noexcept
{
    static const auto real = reinterpret_cast<decltype(&semget)>(dlsym(RTLD_NEXT, "semget"));
    const int id = real(key, count, flags);
    Note(TheShared().semaphores, id);
    return id;
}

// NOLINTEND(readability-inconsistent-declaration-parameter-name)
