// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

/**
 * The files that the client shares with the updater, and its own. Each is replaced whole: a client
 * that is killed leaves the old content or the new one. The operations that write return false when
 * the old content is still there. Only the first copy of the client writes.
 */
namespace ClientFiles
{

/// What the user is doing, to go on with after the next start.
struct Session {
    QString meeting;
    QString draft;
};

/// The client's folder below the user's home folder; made when it is not there.
QString DataFolder();

/// Removes what a killed client has left of files that it was about to replace.
void RemoveUnfinished();

/// The installed version, from the file that the updater reads. Each package brings a new one.
QString Version();

/// True for English. Chinese otherwise, as in the updater's windows.
bool IsEnglish();

/// Saves the user's choice for the client and the updater.
bool SetEnglish(bool english);

/// The release notes of an update that the user has not seen yet; empty without such notes.
QString UnseenNotes();

/// Removes the marker, so that there are no unseen notes.
bool MarkNotesSeen();

Session ReadSession();
bool SaveSession(const Session &session);

} // namespace ClientFiles
