#pragma once

#include <QString>
#include <QtGlobal>

/**
 * What differs by operating system. One file a system implements it; the build picks that file.
 * Callable from every thread.
 */
namespace Platform
{

struct FreeSpace {
    bool ok = false;
    quint64 bytes = 0; ///< all free bytes of the volume, not those that a quota leaves the caller
    quint32 errorCode = 0; ///< the system's own code when not ok
};

/// Free space of the volume that @p path (a root such as "C:\" or a folder) lies on.
FreeSpace VolumeFreeSpace(const QString &path);

/// Blocks the calling thread.
void Pause(unsigned long milliseconds);

/// True when @p path is a symbolic link or a junction, and also when the system cannot tell: in
/// doubt nothing below it is removed.
bool LeadsElsewhere(const QString &path);

/**
 * Whether a Windows file with these attributes is a symbolic link or a junction. The tag counts
 * only for reparse points. Those of cloud storage, for example, are ordinary files and folders and
 * lack the bit for name surrogates. Wine gives no tag to the host's symbolic links.
 */
constexpr bool IsNameSurrogate(quint32 attributes, quint32 reparseTag)
{
    constexpr quint32 reparsePoint = 0x400;
    constexpr quint32 nameSurrogate = 0x20000000;
    return (attributes & reparsePoint) != 0 &&
           ((reparseTag & nameSurrogate) != 0 || reparseTag == 0);
}

/// Lets the system start a downloaded file as a program, where it asks for more than the name.
void MakeStartable(const QString &program);

/**
 * Ends the process without waiting for any thread and without cleaning up: nothing of the program
 * runs after it. The system releases what the process held.
 */
[[noreturn]] void LeaveAtOnce(int exitCode);

/**
 * Keeps the TLS library as it is until the process is gone, where it would clean up at exit: a
 * thread that the framework has waited for may still be on its last steps there, and both would
 * free the same memory. To be called before anything uses TLS; later calls do nothing.
 */
void KeepTlsUntilTheEnd();

} // namespace Platform
