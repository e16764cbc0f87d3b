// SPDX-License-Identifier: MIT
#include "net/processend.h"

#include <cstdlib>
#include <qt_windows.h>

void ProcessEnd::LeaveAtOnce(int exitCode)
{
    // Not ExitProcess(): it runs the libraries' clean-up, which may wait for a lock that a stuck
    // thread holds.
    TerminateProcess(GetCurrentProcess(), static_cast<UINT>(exitCode));
    std::abort();
}

void ProcessEnd::KeepTlsUntilTheEnd()
{
    // The program uses the TLS of Windows, and Windows waits until a thread has completely ended.
}
