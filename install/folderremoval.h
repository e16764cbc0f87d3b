// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

/**
 * Removes everything in @p folder, including read-only files in its sub-folders, but not the folder
 * itself. Symbolic links and junctions at any depth are removed, but not followed: their targets do
 * not change. Entries that cannot be removed stay; this is not reported. Any thread.
 */
void EmptyFolder(const QString &folder);
