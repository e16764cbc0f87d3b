// SPDX-License-Identifier: MIT
#include "install/platform.h"

#include <QDir>

#include <qt_windows.h>

namespace
{

const wchar_t *Wide(const QString &text)
{
    return reinterpret_cast<const wchar_t *>(text.utf16());
}

/// The form of @p path that Windows accepts beyond 260 characters.
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
    // FindFirstFile returns the reparse tag without opening the entry.
    WIN32_FIND_DATAW entry = {};
    const HANDLE search = FindFirstFileW(Wide(LongPath(path)), &entry);
    if (search == INVALID_HANDLE_VALUE)
        return true;
    FindClose(search);
    return IsNameSurrogate(entry.dwFileAttributes, entry.dwReserved0);
}

void Platform::MakeStartable(const QString &)
{
    // Windows starts any file with a program's name.
}
