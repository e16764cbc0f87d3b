// SPDX-License-Identifier: MIT
#pragma once

#include "release/publish/base/findings.h"

#include <QString>
#include <QVector>

/// The packages of an earlier tree, from its SHA256SUMS.
class KnownPackages
{
public:
    /// Reads @p path. A file in another format is refused, because it would let every package pass.
    Failure Read(const QString &path);

    /// Whether the earlier tree has a package @p id with another digest; @p sha256 is in lower-case
    /// hexadecimal digits.
    bool HasOtherBytes(const QString &id, const QString &sha256) const;

private:
    struct Package {
        QString id;
        QString sha256;
    };

    QVector<Package> m_packages;
};
