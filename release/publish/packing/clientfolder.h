// SPDX-License-Identifier: MIT
#pragma once

#include "release/publish/base/findings.h"
#include "release/publish/packing/exclusion.h"
#include "release/publish/rules/releaserules.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

/// The contents of a client's folder, as a package lists them.
struct ClientFolder {
    QVector<ReleaseRules::Entry> entries; ///< each folder before its contents; sorted by name
    Findings findings;                    ///< what cannot be packed and is not in entries
    QStringList leftOut;                  ///< the excluded paths, without their contents
    qint64 totalSize = 0;                 ///< of all files, in bytes
};

/**
 * Lists @p folder recursively, including hidden files, except for what @p exclusion matches. Does
 * not follow links. The order depends only on the names.
 */
ClientFolder ListClientFolder(const QString &folder, const Exclusion &exclusion);

/// @p name with each byte that is not printable ASCII written as in "\\xff".
QString EscapedName(const QByteArray &name);
