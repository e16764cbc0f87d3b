// SPDX-License-Identifier: MIT
/*
 * Part of every program that is built with the address sanitizer. A fork copies the lock of the
 * sanitizer's store of call stacks. If another thread holds the lock at that moment, because the
 * store grows, the child waits for it for ever: Qt allocates memory in the child before it starts
 * the other program. So no other thread may allocate during a fork.
 */
#include <atomic>
#include <cstddef>
#include <ctime>
#include <pthread.h>
#include <sched.h>

// Of the sanitizer's library; the compiler comes without the header.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*)(const volatile void *,
                                                                  std::size_t),
                                                         void (*)(const volatile void *));

namespace
{

/// In this time a thread that is at work comes to the end of an allocation, and stays there.
constexpr timespec kToComeToRest{0, 5000000};

std::atomic<bool> g_forking{false};
thread_local bool g_forksItself = false;

/// The sanitizer calls this at the end of each allocation, its store at rest.
void HoldWhileForking(const volatile void *, std::size_t)
{
    while (g_forking && !g_forksItself)
        sched_yield();
}

void Ignore(const volatile void *) {}

void BeforeFork()
{
    g_forksItself = true;
    g_forking = true;
    nanosleep(&kToComeToRest, nullptr);
}

/// In both processes.
void AfterFork()
{
    g_forking = false;
    g_forksItself = false;
}

[[maybe_unused]] const int g_hooks =
    __sanitizer_install_malloc_and_free_hooks(&HoldWhileForking, &Ignore);
[[maybe_unused]] const int g_handlers = pthread_atfork(&BeforeFork, &AfterFork, &AfterFork);

} // namespace
