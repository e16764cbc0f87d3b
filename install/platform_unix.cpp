// SPDX-License-Identifier: MIT
#include "install/platform.h"

#include <QFile>
#include <QThread>

#include <cerrno>
#include <sys/stat.h>
#include <sys/statvfs.h>

namespace
{

/// True for a Windows drive such as "C:\". Its counterpart here is the root file system.
bool NamesMissingVolume(const QString &path)
{
    return !path.isEmpty() && !QFile::exists(path);
}

} // namespace

Platform::FreeSpace Platform::VolumeFreeSpace(const QString &path)
{
    const QString volume = NamesMissingVolume(path) ? QStringLiteral("/") : path;

    FreeSpace space;
    struct statvfs status = {};
    if (statvfs(QFile::encodeName(volume).constData(), &status) != 0) {
        space.errorCode = static_cast<quint32>(errno);
        return space;
    }
    space.ok = true;
    space.bytes = static_cast<quint64>(status.f_bfree) * status.f_frsize;
    return space;
}

void Platform::Pause(unsigned long milliseconds)
{
    QThread::msleep(milliseconds);
}

bool Platform::LeadsElsewhere(const QString &path)
{
    struct stat status = {};
    return lstat(QFile::encodeName(path).constData(), &status) != 0 || S_ISLNK(status.st_mode);
}

void Platform::MakeStartable(const QString &program)
{
    QFile file(program);
    file.setPermissions(file.permissions() | QFileDevice::ExeOwner | QFileDevice::ExeUser);
}
