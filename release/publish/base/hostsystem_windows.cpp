// SPDX-License-Identifier: MIT
#include "release/publish/base/hostsystem.h"

#include <QDir>

#include <csignal>
#include <cstdio>
#include <io.h>
#include <string>
#include <windows.h>

namespace
{

volatile std::sig_atomic_t interrupted = 0;

void NoteInterruption(int)
{
    interrupted = 1;
}

std::wstring NativePath(const QString &path)
{
    return QDir::toNativeSeparators(QDir::current().absoluteFilePath(path)).toStdWString();
}

} // namespace

bool HostSystem::IsLink(const QString &path)
{
    WIN32_FIND_DATAW found = {};
    const HANDLE search = FindFirstFileW(NativePath(path).c_str(), &found);
    if (search == INVALID_HANDLE_VALUE)
        return false;
    FindClose(search);
    // Other reparse points are files that Windows fetches or unpacks when they are read.
    return (found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
           (found.dwReserved0 == IO_REPARSE_TAG_SYMLINK ||
            found.dwReserved0 == IO_REPARSE_TAG_MOUNT_POINT);
}

QByteArrayList HostSystem::UndecodableNames(const QString &)
{
    return {};
}

QByteArrayList HostSystem::UndecodableArguments(int, const char *const *)
{
    return {};
}

bool HostSystem::ErrorsGoToTerminal()
{
    return _isatty(_fileno(stderr)) != 0;
}

bool HostSystem::MoveIntoPlace(const QString &from, const QString &to)
{
    return MoveFileExW(NativePath(from).c_str(), NativePath(to).c_str(),
                       MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
}

bool HostSystem::HasLinks()
{
    return false; // creating links takes a privilege that users usually lack
}

bool HostSystem::MakeLink(const QString &, const QString &)
{
    return false;
}

QString HostSystem::LinkText(const QString &)
{
    return {};
}

bool HostSystem::PointTo(const QString &folder, const QString &link, const QString &staged)
{
    const bool isThere = QDir(link).exists();
    if (isThere && !MoveIntoPlace(link, staged))
        return false;
    if (!MoveIntoPlace(folder, link))
        return false;
    return !isThere || QDir(staged).removeRecursively();
}

bool HostSystem::SyncFileSystem(const QString &)
{
    return true; // each file was written through
}

bool HostSystem::SyncToDisk(QFile &file)
{
    return file.flush() && _commit(file.handle()) == 0;
}

void HostSystem::NoteInterruptions()
{
    for (const int signal : {SIGINT, SIGTERM, SIGBREAK})
        std::signal(signal, NoteInterruption);
}

bool HostSystem::WasInterrupted()
{
    return interrupted != 0;
}
