// SPDX-License-Identifier: MIT
#include "release/publish/base/hostsystem.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>
#include <climits>
#include <csignal>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

volatile std::sig_atomic_t interrupted = 0;

void NoteInterruption(int)
{
    interrupted = 1;
}

} // namespace

bool HostSystem::IsLink(const QString &path)
{
    struct stat status = {};
    return lstat(QFile::encodeName(path).constData(), &status) == 0 && S_ISLNK(status.st_mode);
}

QByteArrayList HostSystem::UndecodableNames(const QString &folder)
{
    QByteArrayList names;
    const std::unique_ptr<DIR, int (*)(DIR *)> stream(
        opendir(QFile::encodeName(folder).constData()), closedir);
    if (!stream)
        return names;
    while (const dirent *entry = readdir(stream.get())) {
        const QByteArray name(entry->d_name);
        if (QFile::encodeName(QFile::decodeName(name)) != name)
            names.append(name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

QByteArrayList HostSystem::UndecodableArguments(int count, const char *const *arguments)
{
    QByteArrayList found;
    for (int index = 1; index < count; ++index) {
        const QByteArray argument(arguments[index]);
        if (QString::fromLocal8Bit(argument).toLocal8Bit() != argument)
            found.append(argument);
    }
    return found;
}

bool HostSystem::ErrorsGoToTerminal()
{
    return isatty(STDERR_FILENO) != 0;
}

bool HostSystem::MoveIntoPlace(const QString &from, const QString &to)
{
    return std::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0;
}

bool HostSystem::HasLinks()
{
    return true;
}

bool HostSystem::MakeLink(const QString &target, const QString &path)
{
    return symlink(QFile::encodeName(target).constData(), QFile::encodeName(path).constData()) == 0;
}

QString HostSystem::LinkText(const QString &path)
{
    QByteArray text(PATH_MAX, '\0');
    const ssize_t size =
        readlink(QFile::encodeName(path).constData(), text.data(), size_t(text.size()));
    return size > 0 ? QFile::decodeName(text.left(int(size))) : QString();
}

bool HostSystem::PointTo(const QString &folder, const QString &link, const QString &staged)
{
    // The tree was created on a system without links.
    if (QFileInfo(link).isDir() && !IsLink(link) &&
        !MoveIntoPlace(link, folder + QStringLiteral("-before")))
        return false;
    const QString target = QFileInfo(link).dir().relativeFilePath(folder);
    return MakeLink(target, staged) && MoveIntoPlace(staged, link);
}

bool HostSystem::SyncFileSystem(const QString &folder)
{
    const int descriptor = open(QFile::encodeName(folder).constData(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        return false;
    const bool isSynced = syncfs(descriptor) == 0;
    close(descriptor);
    return isSynced;
}

bool HostSystem::SyncToDisk(QFile &file)
{
    return file.flush() && fsync(file.handle()) == 0;
}

void HostSystem::NoteInterruptions()
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        std::signal(signal, NoteInterruption);
    // When the reader of a pipe goes away, the release must still be completed.
    std::signal(SIGPIPE, SIG_IGN);
}

bool HostSystem::WasInterrupted()
{
    return interrupted != 0;
}
