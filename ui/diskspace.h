// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

/**
 * True when a drive with @p freeBytes has room for a package of @p packageSize bytes, its unpacked
 * files and their copy: strictly more than three times the size of the package.
 */
bool HasRoom(qint64 freeBytes, qint64 packageSize);

/**
 * The letter of the drive that does not have enough space: "C" when drive C does not, otherwise the
 * first letter of @p workingFolder. Empty when both drives have enough.
 */
QString DriveWithoutRoom(qint64 freeOnC, qint64 freeOnWorkingDrive, qint64 packageSize,
                         const QString &workingFolder);

/// DriveWithoutRoom() for the announced package on this machine, now.
QString DriveWithoutRoomForPackage();
