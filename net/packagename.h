// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

/**
 * The local name of the package. It comes from the answer to the check, which anyone on the network
 * may have forged. Pure functions, callable from every thread.
 */

/// The part of the announced address @p latestVersionUrl after the last slash; may be empty.
QString PackageFileName(const QString &latestVersionUrl);

/**
 * False for a name that cannot be that of a harmless file on Windows: one that leads out of the
 * folder, names a device, contains characters that are invisible or that Windows does not allow, is
 * too long, or is run by the command interpreter, which could execute a meeting link among its
 * arguments. The result is the same on every system. An empty name is usable, because no file can
 * be opened with it.
 */
bool IsUsablePackageName(const QString &name);
