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
 * The names in @p folder that are no text in the system's encoding, as their bytes, sorted. The
 * framework leaves them out of its lists. Empty where every name is a text.
 */
QByteArrayList NamesThatAreNoText(const QString &folder);

/// True when what is written to the standard error stream is seen as it is written.
bool ErrorsGoToTerminal();

/// Puts @p from in the place of @p to, at once: whoever opens @p to gets the old or the new one.
bool MoveIntoPlace(const QString &from, const QString &to);

/// Waits until what was written to @p file, which is open, would outlast a power cut.
bool SyncToDisk(QFile &file);

/// From now on a request to end (Ctrl+C, a shutdown) is noted instead of obeyed at once.
void NoteInterruptions();

/// True once there was one.
bool WasInterrupted();

} // namespace HostSystem
