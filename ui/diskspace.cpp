// SPDX-License-Identifier: MIT
#include "ui/diskspace.h"

#include "config/global.h"

#include <QDir>

namespace
{

constexpr qint64 kPackagesThatMustFit = 3;

/// The length of a drive's root, such as "D:/".
constexpr int kDriveRootLength = 3;

} // namespace

bool HasRoom(qint64 freeBytes, qint64 packageSize)
{
    return kPackagesThatMustFit * packageSize < freeBytes;
}

QString DriveWithoutRoom(qint64 freeOnC, qint64 freeOnWorkingDrive, qint64 packageSize,
                         const QString &workingFolder)
{
    if (!HasRoom(freeOnC, packageSize))
        return QStringLiteral("C");
    return HasRoom(freeOnWorkingDrive, packageSize) ? QString() : workingFolder.left(1);
}

QString DriveWithoutRoomForPackage()
{
    const Global &global = Global::instance;
    const QString workingFolder = QDir::currentPath();
    const auto freeOnC = qint64(global.GetDiskFreeBytes(QStringLiteral("C:\\")));
    const auto freeOnWorkingDrive =
        qint64(global.GetDiskFreeBytes(workingFolder.left(kDriveRootLength)));
    return DriveWithoutRoom(freeOnC, freeOnWorkingDrive, global.packageSize, workingFolder);
}
