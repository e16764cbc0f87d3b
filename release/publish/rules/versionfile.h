// SPDX-License-Identifier: MIT
#pragma once

#include "release/publish/base/findings.h"
#include "release/publish/rules/releaserules.h"

#include <QByteArray>
#include <QString>
#include <QVector>

/**
 * Rules for the client's file from which the updater reads the installed version. Pure functions.
 * Paths are relative to the client's folder, with forward slashes.
 */
namespace VersionFile
{

/**
 * Refuses @p content, the content of the file @p path in a package, when the updater would not read
 * @p version from it: the update would be offered again at every start.
 */
Findings Check(const QString &path, const QByteArray &content, const QString &version);

/// How many of @p entries xcopy copies after @p path. It copies the files of a folder first, in the
/// order of their names, then its folders.
int FilesCopiedAfter(const QString &path, const QVector<ReleaseRules::Entry> &entries);

/// Warns when an interrupted copy could leave old files although @p path already has the new
/// version.
Findings WarnOfOrder(const QString &path, const QVector<ReleaseRules::Entry> &entries);

} // namespace VersionFile
