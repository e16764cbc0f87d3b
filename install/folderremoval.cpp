// SPDX-License-Identifier: MIT
#include "install/folderremoval.h"

#include "install/platform.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace
{

QFileInfoList Entries(const QString &folder)
{
    return QDir(folder).entryInfoList(QDir::Files | QDir::AllDirs | QDir::Hidden | QDir::System |
                                      QDir::NoDotAndDotDot);
}

void RemoveEntry(const QString &path);

/// Windows refuses to delete a read-only file.
void RemoveReadOnlyFile(const QString &path)
{
    const QFileDevice::Permissions permissions = QFile::permissions(path);
    if (!permissions.testFlag(QFileDevice::WriteUser) &&
        QFile::setPermissions(path, permissions | QFileDevice::WriteUser))
        QFile::remove(path);
}

void RemoveFolder(const QString &path)
{
    // QDir::removeRecursively() does not recognise junctions and would empty their targets.
    if (!Platform::LeadsElsewhere(path)) {
        const QFileInfoList entries = Entries(path);
        for (const QFileInfo &entry : entries)
            RemoveEntry(entry.absoluteFilePath());
    }
    QDir().rmdir(path);
}

void RemoveEntry(const QString &path)
{
    if (QFile::remove(path))
        return;
    // Qt does not recognise a junction without a target as a folder.
    if (Platform::LeadsElsewhere(path) || QFileInfo(path).isDir())
        RemoveFolder(path);
    else
        RemoveReadOnlyFile(path);
}

} // namespace

void EmptyFolder(const QString &folder)
{
    const QFileInfoList entries = Entries(folder);
    for (const QFileInfo &entry : entries) {
        const QString path = entry.absoluteFilePath();
        if (!QFile::remove(path))
            RemoveFolder(path);
    }
}
