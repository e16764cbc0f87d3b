#pragma once

#include "release/publish/findings.h"

#include <QByteArray>
#include <QLockFile>
#include <QString>
#include <QStringList>

#include <memory>

/// The files of a published release, below one folder that a web server serves as it is.
class ReleaseTree
{
public:
    /// Where the packages lie, in the tree and in their addresses.
    static const QString PackagesPath; // "/packages/"

    /// The address of the package @p id. @p prefix precedes PackagesPath, or ends with it already.
    static QString PackageAddress(QString prefix, const QString &id);

    explicit ReleaseTree(const QString &folder);

    QString Folder() const { return m_folder; }

    /// The check's answer that announces the release.
    QString OfferFile() const;

    /// The check's answer that there is nothing newer.
    QString NoOfferFile() const;

    /// What people read.
    QString IndexFile() const;

    QString PackageFile(const QString &id) const;

    /// Every answer in the tree, offers that were kept under other names included.
    QStringList AnswerFiles() const;

    /// The file names of all packages.
    QStringList PackageNames() const;

private:
    QString m_folder; ///< absolute, without a slash at its end
};

/**
 * A release in the making. It is put together in a folder of the tree that no address leads to, and
 * appears in its place by renaming whole files: whoever reads the tree meanwhile sees the old or
 * the new one. What is not published is removed by the destructor, and after a crash by the next
 * one. One at a time a tree. Everybody may read the files and the folders that it makes. Main
 * thread.
 */
class StagedRelease
{
public:
    explicit StagedRelease(const ReleaseTree &tree);
    ~StagedRelease();
    Q_DISABLE_COPY(StagedRelease)

    /// Makes the folder for it. Fails when another process publishes into the same tree.
    Failure Begin();

    /// Where the package has to be written before Publish().
    QString PackagePath() const;

    /**
     * Puts the package into its place, under the name @p id, and then the rest, the answer that
     * announces it last. A package that stands there already with the same bytes is left alone; one
     * with other bytes is a failure, for caches and half-done downloads hold it.
     */
    Failure Publish(const QString &id, const QByteArray &offer, const QByteArray &noOffer,
                    const QByteArray &index);

private:
    QString StagedPath(const QString &name) const;
    Failure PublishPackage(const QString &id);
    void RemoveWhatIsEmpty() const;

    ReleaseTree m_tree;
    QString m_folder;      ///< where everything is staged
    QString m_oldAncestor; ///< the nearest folder above the staged files that was there before
    std::unique_ptr<QLockFile> m_lock;
};
