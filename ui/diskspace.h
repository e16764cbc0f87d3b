#pragma once

#include <QString>

/**
 * True when a drive with @p freeBytes has room for a package of @p packageSize bytes, its unpacked
 * files and the copy: strictly more than three times the package.
 */
bool HasRoom(qint64 freeBytes, qint64 packageSize);

/**
 * Which drive is short of space: an empty string when neither is, "C" when drive C is (whatever the
 * other is), otherwise the letter that @p workingFolder begins with.
 */
QString DriveWithoutRoom(qint64 freeOnC, qint64 freeOnWorkingDrive, qint64 packageSize,
                         const QString &workingFolder);

/// DriveWithoutRoom() for the announced package on this machine, now.
QString DriveWithoutRoomForPackage();
