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
 * A change to a tree of releases. Everything is prepared in a folder of the tree that no address
 * leads to, and comes into force with the replacement of one link: whoever reads the tree
 * meanwhile, and whatever interrupts the change, sees the old state or the new one. The destructor
 * removes what has not come into force; after a crash, the next change does. There is one change at
 * a time per tree. Everybody may read the files and folders that it makes. Main thread.
 */
class TreeChange
{
public:
    /// The rule of the refusal while another process changes the same tree.
    static constexpr char kBusyRule[] = "busy";

    explicit TreeChange(const ReleaseTree &tree);
    ~TreeChange();
    Q_DISABLE_COPY(TreeChange)

    /**
     * Makes the folder, and room for a package at PackagePath(). Packing takes minutes, in which
     * other processes may change the tree, but not publish into it. Fails when another process
     * does. Begin() has to follow.
     */
    Failure BeginPackage();

    /// Makes the folder and reads the list of the releases. Fails when another process changes the
    /// same tree and does not end soon.
    Failure Begin();

    /// The list, to be edited before Commit().
    ReleaseList &List() { return m_list; }

    /// Where a package has to be written before AddPackage().
    QString PackagePath() const;

    /**
     * The package at PackagePath() will stand in the tree under the name @p id. What stands there
     * already is replaced, so its bytes have to be the same.
     */
    void AddPackage(const QString &id);

    /// Adds the answer that announces @p release, which is in the list, and the page about it when
    /// it is the newest. No client gets the answer yet: that is up to the list. The release gets
    /// another revision when it is announced with another answer already.
    Failure AddOffer(Release &release, const Offer &offer);

    /// Adds @p line to the list's activity, with the time, unless it is empty, and brings
    /// everything into force.
    Failure Commit(const QString &line);

private:
    /// A staged file or folder and its place in the tree.
    struct Move {
        QString from;
        QString to;
    };

    QString StagedPath(const QString &name) const;
    Failure MakeStagingFolder();
    Failure TakeLock(std::unique_ptr<QLockFile> &lock, const QString &name, int patience);
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
    void RemoveWhatIsEmpty(QString folder) const;

    ReleaseTree m_tree;
    ReleaseList m_list;
    ReleaseList m_formerList; ///< what is in force until Commit()
    QByteArray m_index;       ///< the page about the newest release
    QString m_folder;         ///< where everything is staged
    QString m_oldAncestor;    ///< the nearest folder above the staged files that was there before
    QVector<Move> m_moves;
    QStringList m_added; ///< files that were not in the tree before; removed unless all succeeds
    std::unique_ptr<QLockFile> m_packageLock; ///< of whoever publishes; taken before the other
    std::unique_ptr<QLockFile> m_lock;        ///< of whoever changes the tree
};

/// The files and folders of the tree and of the releases in @p list that a web server, which is
/// another user, cannot read. One finding at the most.
Findings FindUnreadable(const ReleaseTree &tree, const ReleaseList &list);
