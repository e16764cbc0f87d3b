// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QStringList>

/// Finds what a run left on the machine. Linux only; any thread.
namespace Remains
{

/// Paths of all files and folders below @p folder, sorted; folders end with a slash.
QStringList Listing(const QString &folder);

/// What Listing() returns for a folder that holds exactly these files.
QStringList ListingOf(const QStringList &files);

/// From now on orphaned descendants become children of this process.
void AdoptOrphans();

/// The children of this process that have not ended, as "NUMBER (NAME)".
QStringList Children();

/// @p lines without @p others; each of these removes one line.
QStringList Without(QStringList lines, const QStringList &others);

} // namespace Remains
