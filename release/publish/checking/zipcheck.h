// SPDX-License-Identifier: MIT
#pragma once

#include "release/publish/base/findings.h"
#include "release/publish/base/progress.h"
#include "release/publish/rules/releaserules.h"

#include <QString>
#include <QVector>

/// The contents of a zip package.
struct ZipContents {
    QVector<ReleaseRules::Entry> entries; ///< without the top folder, in the order of the package
    Findings findings;                    ///< empty when every updater can install it
};

/**
 * Checks the zip file @p path against all rules for a package called @p packageFileName. Unpacks
 * every entry in memory, in small blocks, and compares the data with the header. Writes nothing.
 */
ZipContents CheckZipPackage(const QString &path, const QString &packageFileName,
                            Progress &progress);
