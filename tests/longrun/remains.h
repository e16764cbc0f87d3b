#pragma once

#include <QString>
#include <QStringList>

/// What a run can leave on the machine. Linux only; any thread.
namespace Remains
{

/// Paths of all files and folders below @p folder, sorted; folders end with a slash.
QStringList Listing(const QString &folder);

/// The listing of a folder that has these files, and the folders that they are in.
QStringList ListingOf(const QStringList &files);

/// From here on what this process has started, directly or not, becomes its child when orphaned.
void AdoptOrphans();

/// The children of this process that have not ended, as "NUMBER (NAME)".
QStringList Children();

/// @p lines without @p others, each as often as it is there.
QStringList Without(QStringList lines, const QStringList &others);

} // namespace Remains
