#pragma once

#include <QString>

/**
 * Removes everything in @p folder, including read-only files in its sub-folders, but not the folder
 * itself. Symbolic links and junctions are removed at any depth without following them: their
 * targets do not change. Entries that cannot be removed stay; that is not reported. Any thread.
 */
void EmptyFolder(const QString &folder);
