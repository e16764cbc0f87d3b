// SPDX-License-Identifier: MIT
#pragma once

#include "release/publish/base/findings.h"
#include "release/publish/tree/releaselist.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

/// The paths of a release tree: everything below one folder, which a web server serves.
class ReleaseTree
{
public:
    /// The folder of the packages, in the tree and in addresses.
    static const QString PackagesPath; // "/packages/"

    /**
     * The name of a generation: its number and a digest of its list. Two trees that were restored
     * from the same backup reach the same numbers, and a server must not mix up their generations.
     */
    static QString GenerationName(int number, const QByteArray &json);

    /// The number in the name of a generation; 0 when there is none.
    static int GenerationNumber(const QString &name);

    /// The address of the package @p id. @p prefix is the part before PackagesPath and may already
    /// end with it.
    static QString PackageAddress(QString prefix, const QString &id);

    explicit ReleaseTree(const QString &folder);

    QString Folder() const { return m_folder; }

    /// The link to the current generation, which decides who is offered what. The link is replaced
    /// atomically.
    QString Current() const;

    /// The folder of the generations.
    QString Generations() const;

    /// The list of releases.
    QString ListFile() const;

    /// The answer to a check that announces @p release.
    QString OfferFile(const Release &release) const;

    /// The answer to a check when there is nothing newer.
    QString NoOfferFile() const;

    /// While this file exists, no client is offered anything.
    QString StopFile() const;

    /// The page about the newest release, for people.
    QString IndexFile() const;

    /// The digests of all packages, in the format of sha256sum.
    QString DigestsFile() const;

    QString PackageFile(const QString &id) const;

    /// The file names of all packages.
    QStringList PackageNames() const;

    /// Reads the list of releases. It is empty when there is no tree yet.
    Failure Read(ReleaseList &list) const;

private:
    QString m_folder; ///< absolute, without a trailing slash
};

/// The SHA256SUMS lines of all packages in @p list.
QByteArray DigestLines(const ReleaseList &list);
