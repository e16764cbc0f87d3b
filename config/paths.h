#pragma once

#include <QString>

/**
 * Where the updater finds and leaves its files under the user's home folder. All paths have forward
 * slashes; no folder is created here.
 */
namespace Paths
{

/// The updater's own configuration, relative to the working directory (the program's folder).
QString UpdateConfigFile();

/// Folder of AutoUpdate.log.
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
 * Folder that receives the package of the client whose image name is @p appName: named after the
 * part before its first dot. It is emptied before each download.
 */
QString DownloadFolder(const QString &appName);

} // namespace Paths
