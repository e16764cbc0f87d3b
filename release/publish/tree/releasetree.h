#pragma once

#include "release/publish/base/findings.h"
#include "release/publish/tree/releaselist.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

/// The files of a tree of releases, below one folder that a web server serves as it is.
class ReleaseTree
{
public:
    /// Where the packages lie, in the tree and in their addresses.
    static const QString PackagesPath; // "/packages/"

    /**
     * The name of a generation: its number and a digest of its list. Trees that were restored from
     * the same copy reach the same numbers, and a server must not take the one for the other.
     */
    static QString GenerationName(int number, const QByteArray &json);

    /// The number in a generation's name; 0 when there is none.
    static int GenerationNumber(const QString &name);

    /// The address of the package @p id. @p prefix precedes PackagesPath, or ends with it already.
    static QString PackageAddress(QString prefix, const QString &id);

    explicit ReleaseTree(const QString &folder);

    QString Folder() const { return m_folder; }

    /// The link to the generation in force: everything about who is offered what. It is replaced as
    /// a whole.
    QString Current() const;

    /// Where the generations lie.
    QString Generations() const;

    /// The list of the releases.
    QString ListFile() const;

    /// The check's answer that announces a release.
    QString OfferFile(const Release &release) const;

    /// The check's answer that there is nothing newer.
    QString NoOfferFile() const;

    /// Nobody is offered anything while it exists.
    QString StopFile() const;

    /// What people read about the newest release.
    QString IndexFile() const;

    /// The digests of all packages, for sha256sum.
    QString DigestsFile() const;

    QString PackageFile(const QString &id) const;

    /// The file names of all packages.
    QStringList PackageNames() const;

    /// Reads the list of the releases, which is empty where there is no tree yet.
    Failure Read(ReleaseList &list) const;

private:
    QString m_folder; ///< absolute, without a slash at its end
};

/// The lines of sha256sum for all packages of @p list.
QByteArray DigestLines(const ReleaseList &list);
