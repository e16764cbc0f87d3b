#pragma once

#include "release/publish/exclusion.h"
#include "release/publish/findings.h"
#include "release/publish/releaserules.h"

#include <QString>
#include <QStringList>
#include <QVector>

/// What is in a client's folder, as a package lists it.
struct ClientFolder {
    QVector<ReleaseRules::Entry> entries; ///< each folder before what it holds; in order of names
    Findings findings;                    ///< what cannot go into a package, and is not listed
    QStringList leftOut;                  ///< the paths that were excluded; not what lies below
    qint64 totalSize = 0;                 ///< of all files, in bytes
};

/**
 * Lists @p folder and all below it, hidden files too, but for what @p exclusion holds. Follows no
 * link. The order depends on nothing but the names.
 */
ClientFolder ListClientFolder(const QString &folder, const Exclusion &exclusion);
