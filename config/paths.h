// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

/**
 * The files that the updater reads and writes. Unless stated otherwise they are under the user's
 * home folder. All paths have forward slashes. No folder is created here.
 */
namespace Paths
{

/// The updater's own configuration, relative to the working directory (the program's folder).
QString UpdateConfigFile();

/// The log.
QString LogFile();

/// The folder of LogFile().
QString LogFolder();

/// The client's language choice, written by the client.
QString LanguageFile();

/// Release notes left for the client after an installation.
QString NotesFile();

/// Marker that tells the client to show the release notes.
QString NotesMarkerFile();

/// Install command script.
QString ScriptFile();

/**
 * Folder that receives the package of the client whose image name is @p appName. It has the name of
 * the client up to the first dot. It is emptied before each download.
 */
QString DownloadFolder(const QString &appName);

} // namespace Paths
