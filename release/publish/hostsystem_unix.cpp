#include "release/publish/hostsystem.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <dirent.h>
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

QByteArrayList HostSystem::NamesThatAreNoText(const QString &folder)
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

bool HostSystem::ErrorsGoToTerminal()
{
    return isatty(STDERR_FILENO) != 0;
}

bool HostSystem::MoveIntoPlace(const QString &from, const QString &to)
{
    return std::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0;
}

bool HostSystem::SyncToDisk(QFile &file)
{
    return file.flush() && fsync(file.handle()) == 0;
}

void HostSystem::NoteInterruptions()
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        std::signal(signal, NoteInterruption);
    // A reader that goes away must not end a release half-way.
    std::signal(SIGPIPE, SIG_IGN);
}

bool HostSystem::WasInterrupted()
{
    return interrupted != 0;
}
