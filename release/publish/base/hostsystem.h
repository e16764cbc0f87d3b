// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArrayList>
#include <QFile>
#include <QString>

/**
 * What differs by operating system. There is one implementation file per system, and the build
 * picks one. Main thread.
 */
namespace HostSystem
{

/// True for a symbolic link and for anything else that redirects to another file or folder.
bool IsLink(const QString &path);

/**
 * The names in @p folder that cannot be decoded in the system's encoding, as bytes, sorted. Qt
 * leaves them out of its listings.
 */
QByteArrayList UndecodableNames(const QString &folder);

/// The program's arguments that cannot be decoded in the system's encoding, as bytes. Qt replaces
/// the bytes that it cannot decode.
QByteArrayList UndecodableArguments(int count, const char *const *arguments);

/// True when standard error is a terminal.
bool ErrorsGoToTerminal();

/// Atomically replaces @p to with @p from: whoever opens @p to gets the old file or the new one.
bool MoveIntoPlace(const QString &from, const QString &to);

/// Whether MakeLink() can work on this system. Without links, release trees can be created and
/// verified, but releases cannot be rolled out.
bool HasLinks();

/// Creates the symbolic link @p path with the text @p target. False when @p path exists already.
bool MakeLink(const QString &target, const QString &path);

/// The text of the link @p path; empty when it is not a link.
QString LinkText(const QString &path);

/**
 * Atomically makes @p link point to @p folder, which is below the link's own folder: whoever
 * follows the link gets to the old folder or the new one. @p staged is an unused path in the same
 * file system. On a system without links, the folder itself is moved to @p link.
 */
bool PointTo(const QString &folder, const QString &link, const QString &staged);

/// Waits until everything written below @p folder would survive a power failure.
bool SyncFileSystem(const QString &folder);

/// Waits until everything written to the open @p file would survive a power failure.
bool SyncToDisk(QFile &file);

/// From now on, a request to end (Ctrl+C, a shutdown) is noted instead of ending the program.
void NoteInterruptions();

/// True once there was such a request.
bool WasInterrupted();

} // namespace HostSystem
