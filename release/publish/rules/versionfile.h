#pragma once

#include "release/publish/base/findings.h"
#include "release/publish/rules/releaserules.h"

#include <QByteArray>
#include <QString>
#include <QVector>

/**
 * The file of the client from which its updater reads the installed version. Pure functions; paths
 * are relative to the client's folder, with forward slashes.
 */
namespace VersionFile
{

/**
 * Refuses @p content, that of the file @p path in a package, when the updater would not read the
 * version @p version from it: the update would be offered again at every start.
 */
Findings Check(const QString &path, const QByteArray &content, const QString &version);

/// How many of @p entries `xcopy` copies after @p path: the files of a folder first, in the order
/// of their names, then its folders.
int FilesCopiedAfter(const QString &path, const QVector<ReleaseRules::Entry> &entries);

/// Warns of the files that a copy which is interrupted after @p path would leave old, while the
/// client already tells the new version.
Findings WarnOfOrder(const QString &path, const QVector<ReleaseRules::Entry> &entries);

} // namespace VersionFile
