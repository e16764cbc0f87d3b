#include "install/platform.h"

#include <QDir>

#include <cstdlib>
#include <qt_windows.h>

namespace
{

const wchar_t *Wide(const QString &text)
{
    return reinterpret_cast<const wchar_t *>(text.utf16());
}

/// In the form that Windows accepts beyond 260 characters.
QString LongPath(const QString &path)
{
    const QString native = QDir::toNativeSeparators(QDir::cleanPath(QDir().absoluteFilePath(path)));
    if (native.startsWith(QLatin1String("\\\\")))
        return QLatin1String("\\\\?\\UNC\\") + native.mid(2);
    return QLatin1String("\\\\?\\") + native;
}

} // namespace

Platform::FreeSpace Platform::VolumeFreeSpace(const QString &path)
{
    FreeSpace space;
    ULARGE_INTEGER totalFreeBytes = {};
    if (GetDiskFreeSpaceExW(Wide(path), nullptr, nullptr, &totalFreeBytes) == 0) {
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

bool Platform::LeadsElsewhere(const QString &path)
{
    // Returns the tag without opening the entry.
    WIN32_FIND_DATAW entry = {};
    const HANDLE search = FindFirstFileW(Wide(LongPath(path)), &entry);
    if (search == INVALID_HANDLE_VALUE)
        return true;
    FindClose(search);
    return IsNameSurrogate(entry.dwFileAttributes, entry.dwReserved0);
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
