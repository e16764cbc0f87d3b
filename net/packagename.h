#pragma once

#include <QString>

/**
 * The local name of the package. It comes with the answer to the check, which anyone on the network
 * may have written. Pure functions, callable from every thread.
 */

/// What follows the last slash of the announced address @p latestVersionUrl; it may be empty.
QString PackageFileName(const QString &latestVersionUrl);

/**
 * False for a name that cannot be a harmless file on Windows: one that leaves the folder, is a
 * device's, holds characters that Windows does not allow or that cannot be seen, is too long, or is
 * run by the command interpreter, where the meeting link among its arguments would be a command.
 * Alike on every system. An empty name is usable: no file can be opened by it.
 */
bool IsUsablePackageName(const QString &name);
