// SPDX-License-Identifier: MIT
/*
 * Preloaded into the updater: reports what the process still holds after main() and after all
 * static objects are destroyed. The report goes to the file that LONGRUN_END_REPORT names, one line
 * each:
 *
 *     descriptor 3 /path    an open file
 *     thread NAME           a thread other than the main one that has not ended
 *     object QTimer         a QObject that was never destroyed
 *     segment 4711          shared memory that this process created or attached and that still
 * exists semaphores 4711       likewise late 1                how many times shmctl() waited, see
 * there end                   the last line of a complete report
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

/// Of one millisecond each. The system may release threads and segments a little late.
constexpr int kPolls = 2000;

/// The System V objects that this process asked for.
struct Shared {
    std::mutex mutex;
    std::set<int> segments;
    std::set<int> semaphores;
    std::atomic<int> lateDetachments{0};
    std::string reportPath;
};

/// Never destroyed, because it is read after static destruction.
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

/// The threads that are left after a grace period: /proc may still list one that was joined.
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
    // The programs that the updater starts are not watched.
    unsetenv("LD_PRELOAD");
    unsetenv("LONGRUN_END_REPORT");
    LiveObjects::Watch();
}

__attribute__((destructor)) void End()
{
    if (TheShared().reportPath.empty())
        return;
    // Before the report is opened, which takes a descriptor itself.
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

// The system's headers use reserved names for the parameters.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)

/*
 * Changes what is measured: the system's ftok() uses 16 bits of the inode number, so two of many
 * installations on one machine would soon get the same key, and one of them would not start.
 * longrun says so in its result.
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
 * Changes what is measured: when the updater starts a program, the forked copy keeps the segment
 * attached until it calls exec(), and longer while another lane reads that process in /proc. The
 * last process to detach must see an attach count of 0, or the segment stays. So this waits until
 * the copy is gone. A copy that stays is reported as a segment that is left. longrun prints how
 * often this waited.
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
