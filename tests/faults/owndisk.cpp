// SPDX-License-Identifier: MIT
#include "tests/faults/owndisk.h"

#include <QDir>
#include <QFile>

#include <cerrno>
#include <cstring>
#include <sched.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <utility>

namespace
{

void WriteOrDie(const char *path, const QByteArray &content)
{
    QFile file(QString::fromLatin1(path));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) ||
        file.write(content) != content.size())
        qFatal("cannot write %s: %s", path, qPrintable(file.errorString()));
}

void MountOrDie(const QByteArray &source, const QString &path, const char *type,
                unsigned long flags, const QByteArray &options = QByteArray())
{
    if (mount(source.constData(), QFile::encodeName(path).constData(), type, flags,
              options.constData()) != 0)
        qFatal("cannot mount at %s: %s", qPrintable(path), std::strerror(errno));
}

void EnterUserNamespace()
{
    const QByteArray user = QByteArray::number(geteuid());
    const QByteArray group = QByteArray::number(getegid());
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
        qFatal("this test mounts file systems of its own, for which the system must allow user "
               "namespaces: %s",
               std::strerror(errno));
    WriteOrDie("/proc/self/setgroups", "deny");
    WriteOrDie("/proc/self/uid_map", user + ' ' + user + " 1\n");
    WriteOrDie("/proc/self/gid_map", group + ' ' + group + " 1\n");
}

} // namespace

void OwnDisk::EnterNamespace()
{
    // A process that may mount needs no user namespace, and cannot get one in a chroot.
    if (unshare(CLONE_NEWNS) != 0)
        EnterUserNamespace();
    MountOrDie("none", QStringLiteral("/"), nullptr, MS_REC | MS_PRIVATE);
}

Mount::Mount(QString path) : m_path(std::move(path)) {}

Mount::Mount(Mount &&other) noexcept
{
    m_path.swap(other.m_path);
}

Mount::~Mount()
{
    if (!m_path.isEmpty())
        umount2(QFile::encodeName(m_path).constData(), MNT_DETACH);
}

Mount Mount::Empty(const QString &folder, qint64 bytes)
{
    QDir().mkpath(folder);
    MountOrDie("none", folder, "tmpfs", 0, "size=" + QByteArray::number(bytes));
    return Mount(folder);
}

Mount Mount::ReadOnly(const QString &path)
{
    Mount made = Over(path, path);
    // Flags of the file system below must be kept.
    struct statvfs status = {};
    statvfs(QFile::encodeName(path).constData(), &status);
    const unsigned long kept =
        status.f_flag & (ST_NOSUID | ST_NODEV | ST_NOEXEC | ST_NOATIME | ST_NODIRATIME);
    MountOrDie("none", path, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY | kept);
    return made;
}

Mount Mount::Over(const QString &path, const QString &source)
{
    MountOrDie(QFile::encodeName(source), path, nullptr, MS_BIND);
    return Mount(path);
}
