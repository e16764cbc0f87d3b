#pragma once

#include <QByteArrayList>
#include <QFile>
#include <QString>

/**
 * What differs by operating system. One file a system implements it; the build picks that file.
 * Main thread.
 */
namespace HostSystem
{

/// True for a symbolic link and for what else stands for a file or folder elsewhere.
bool IsLink(const QString &path);

/**
 * The names in @p folder that are no text in the system's encoding, as their bytes, sorted. Qt
 * leaves them out of its lists. Empty where every name is a text.
 */
QByteArrayList NamesThatAreNoText(const QString &folder);

/// The arguments of the program that are no text in the system's encoding, as their bytes. Qt
/// replaces what it cannot decode. Empty where every argument is a text.
QByteArrayList ArgumentsThatAreNoText(int count, const char *const *arguments);

/// True when what is written to the standard error stream is seen as it is written.
bool ErrorsGoToTerminal();

/// Puts @p from in the place of @p to, at once: whoever opens @p to gets the old or the new one.
bool MoveIntoPlace(const QString &from, const QString &to);

/// Whether MakeLink() can work on this system. Trees without links can be made and verified, but
/// not rolled out.
bool HasLinks();

/// Makes @p path a symbolic link with the text @p target. False when something is there already.
bool MakeLink(const QString &target, const QString &path);

/// The text of the link @p path; empty when it is none.
QString LinkText(const QString &path);

/**
 * Lets @p link stand for @p folder, which lies below the link's own folder, at once: whoever
 * follows the link gets to the old folder or the new one. @p staged is a free path in the same file
 * system. Without links the folder itself is moved there.
 */
bool PointTo(const QString &folder, const QString &link, const QString &staged);

/// Waits until everything written below @p folder would outlast a power cut.
bool SyncFileSystem(const QString &folder);

/// Waits until what was written to @p file, which is open, would outlast a power cut.
bool SyncToDisk(QFile &file);

/// From now on a request to end (Ctrl+C, a shutdown) is noted instead of obeyed at once.
void NoteInterruptions();

/// True once there was one.
bool WasInterrupted();

} // namespace HostSystem
