#pragma once

#include "release/publish/findings.h"
#include "release/publish/progress.h"
#include "release/publish/releaserules.h"

#include <QString>
#include <QVector>

/// What was found in a zip package.
struct ZipContents {
    QVector<ReleaseRules::Entry> entries; ///< without the top folder, in the package's order
    Findings findings;                    ///< empty when every updater can install it
};

/**
 * Holds the zip file @p path against every rule for packages, as one called @p packageFileName.
 * Reads all of it, and unpacks each entry in small pieces in memory to see that its data is what
 * its header says. Writes nothing.
 */
ZipContents CheckZipPackage(const QString &path, const QString &packageFileName,
                            Progress &progress);
