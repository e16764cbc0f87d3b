// SPDX-License-Identifier: MIT
#pragma once

#include "release/publish/base/findings.h"
#include "release/publish/tree/releasetree.h"
#include "release/publish/tree/reply.h"

#include <QByteArray>
#include <QLockFile>
#include <QString>
#include <QStringList>
#include <QVector>

#include <memory>

/**
 * A transaction on a release tree. Everything is staged in a folder of the tree that is not served,
 * and comes into force when one link is replaced: readers, and a change that is interrupted, see
 * the old state or the new one. The destructor removes what was not committed; after a crash, the
 * next change does. Only one process at a time changes a tree. All users may read the files and
 * folders that are created. Main thread.
 */
class TreeChange
{
public:
    /// The rule of the refusal when another process is changing the same tree.
    static constexpr char kBusyRule[] = "busy";

    explicit TreeChange(const ReleaseTree &tree);
    ~TreeChange();
    Q_DISABLE_COPY(TreeChange)

    /**
     * Creates the staging folder for a package at PackagePath(). Packing takes minutes, during
     * which other processes may change the tree but not publish into it. Fails when another process
     * is publishing. Call Begin() afterwards.
     */
    Failure BeginPackage();

    /// Creates the staging folder and reads the list of releases. Fails when another process is
    /// changing the same tree and does not finish soon.
    Failure Begin();

    /// The list of releases; edit it before Commit().
    ReleaseList &List() { return m_list; }

    /// Where to write the package before AddPackage().
    QString PackagePath() const;

    /**
     * Adds the package at PackagePath() to the tree under the name @p id. An existing file is
     * replaced, so its content must be identical.
     */
    void AddPackage(const QString &id);

    /// Adds the answer that announces @p release, which must be in the list, and the page about it
    /// if it is the newest. The list decides which clients get the answer. If the release already
    /// has a different answer, it gets a new revision.
    Failure AddOffer(Release &release, const Offer &offer);

    /// Brings everything into force. Appends @p line, if it is not empty, to the activity in the
    /// list, with the time.
    Failure Commit(const QString &line);

private:
    /// A staged file or folder and its target in the tree.
    struct Move {
        QString from;
        QString to;
    };

    QString StagedPath(const QString &name) const;
    Failure MakeStagingFolder();
    Failure TakeLock(std::unique_ptr<QLockFile> &lock, const QString &name, int timeout);
    void RemoveStaged() const;
    void RemoveOrphanedPackage() const;
    Failure Stage(const QString &target, const QByteArray &content);
    Failure WriteGeneration();
    Failure WriteTables();
    Failure MoveAll();
    Failure SwitchTo(const QString &generation);
    QString NextGeneration() const;
    QString CurrentGeneration() const;
    void RemoveGenerationsBefore(const QString &former) const;
    void RemoveEmptyFolders(QString folder) const;

    ReleaseTree m_tree;
    ReleaseList m_list;
    ReleaseList m_formerList; ///< the list in force until Commit()
    QByteArray m_index;       ///< the page about the newest release
    QString m_folder;         ///< the staging folder
    QString m_oldAncestor;    ///< the nearest parent folder that existed before
    QVector<Move> m_moves;
    QStringList m_added; ///< new files in the tree; removed unless Commit() succeeds
    std::unique_ptr<QLockFile> m_packageLock; ///< held while publishing; taken first
    std::unique_ptr<QLockFile> m_lock;        ///< held while changing the tree
};

/// Whether a web server, which runs as another user, cannot read the tree or the releases in
/// @p list. At most one finding is returned.
Findings FindUnreadable(const ReleaseTree &tree, const ReleaseList &list);
