// SPDX-License-Identifier: MIT
#pragma once

/**
 * How the process ends where a thread may still be busy. One source file per operating system
 * implements it. Callable from every thread.
 */
namespace ProcessEnd
{

/**
 * Ends the process without waiting for any thread and without cleaning up: none of the program's
 * code runs afterwards. The system releases everything that the process held.
 */
[[noreturn]] void LeaveAtOnce(int exitCode);

/**
 * Prevents the TLS library from cleaning up at exit, where it would. A thread that Qt has waited
 * for may still be running its last instructions then, and both would free the same memory. To be
 * called before anything uses TLS; later calls have no effect.
 */
void KeepTlsUntilTheEnd();

} // namespace ProcessEnd
