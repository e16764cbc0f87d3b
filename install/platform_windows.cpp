#include "install/platform.h"

#include <cstdlib>
#include <qt_windows.h>

Platform::FreeSpace Platform::VolumeFreeSpace(const QString &path)
{
    const auto *volume = reinterpret_cast<const wchar_t *>(path.utf16());

    FreeSpace space;
    ULARGE_INTEGER totalFreeBytes = {};
    if (GetDiskFreeSpaceExW(volume, nullptr, nullptr, &totalFreeBytes) == 0) {
        space.errorCode = GetLastError();
        return space;
    }
    space.ok = true;
    space.bytes = totalFreeBytes.QuadPart;
    return space;
}

void Platform::Pause(unsigned long milliseconds)
{
    Sleep(milliseconds);
}

void Platform::MakeStartable(const QString &)
{
    // The file's name is enough for the system.
}

void Platform::LeaveAtOnce(int exitCode)
{
    // Not ExitProcess(), which runs the libraries' clean-up and may wait for a lock that a stuck
    // thread holds.
    TerminateProcess(GetCurrentProcess(), static_cast<UINT>(exitCode));
    std::abort();
}

void Platform::KeepTlsUntilTheEnd()
{
    // The system's own TLS, and threads that are waited for to their very end.
}
