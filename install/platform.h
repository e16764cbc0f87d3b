// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QtGlobal>

/**
 * What differs by operating system. One source file per system implements it; the build picks the
 * right one. Callable from every thread.
 */
namespace Platform
{

struct FreeSpace {
    bool ok = false;
    quint64 bytes = 0;     ///< all free bytes of the volume; the caller's quota may allow less
    quint32 errorCode = 0; ///< the system's error code when not ok
};

/// Free space of the volume that contains @p path, which is a root such as "C:\" or a folder.
FreeSpace VolumeFreeSpace(const QString &path);

/// Blocks the calling thread.
void Pause(unsigned long milliseconds);

/// True when @p path is a symbolic link or a junction. Also true when the system cannot tell, so
/// that in doubt nothing below it is removed.
bool LeadsElsewhere(const QString &path);

/**
 * True when a Windows file with these attributes is a symbolic link or a junction. The tag is valid
 * only for reparse points. Reparse points without the bit for name surrogates, such as those of
 * cloud storage, are ordinary files and folders. Wine reports the host's symbolic links without a
 * tag.
 */
constexpr bool IsNameSurrogate(quint32 attributes, quint32 reparseTag)
{
    constexpr quint32 reparsePoint = 0x400;
    constexpr quint32 nameSurrogate = 0x20000000;
    return (attributes & reparsePoint) != 0 &&
           ((reparseTag & nameSurrogate) != 0 || reparseTag == 0);
}

/// Sets the permission to execute a downloaded file, on systems that have one.
void MakeStartable(const QString &program);

} // namespace Platform
