// SPDX-License-Identifier: MIT
#include "release/publish/tree/treechange.h"

#include "release/publish/base/cannotwrite.h"
#include "release/publish/base/filedigests.h"
#include "release/publish/base/hostsystem.h"
#include "release/publish/tree/decisions.h"
#include "release/publish/tree/indexpage.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSysInfo>

#include <algorithm>

namespace
{

const QString kStagingFolder = QStringLiteral("/.publish");
const QString kLockFile = QStringLiteral("lock");
const QString kPackageLockFile = QStringLiteral("publishing");
const QString kStagedPackage = QStringLiteral("package");
const QString kStagedGeneration = QStringLiteral("generation");
const QString kStagedLink = QStringLiteral("link");

const QString kList = QStringLiteral("releases.json");
const QString kIndex = QStringLiteral("index.html");
const QString kDigests = QStringLiteral("SHA256SUMS");

// How long to wait for the lock, in milliseconds. A change takes about a second, a push longer.
// After packing, waiting longer is better than packing again, which takes minutes.
constexpr int kLockTimeout = 5000;
constexpr int kLockTimeoutAfterPacking = 60000;
constexpr int kLockRetryInterval = 500; // between two attempts, Ctrl+C is obeyed

const QString kFromTreeToCurrent = QStringLiteral("check/now/");

/// Independent of the process's umask, because the web server runs as another user.
constexpr QFileDevice::Permissions kFileMode = QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                               QFileDevice::ReadGroup | QFileDevice::ReadOther;
constexpr QFileDevice::Permissions kFolderMode =
    kFileMode | QFileDevice::ExeOwner | QFileDevice::ExeGroup | QFileDevice::ExeOther;

QString FolderOf(const QString &path)
{
    return QFileInfo(path).path();
}

/// False when other users cannot read @p path. Some file systems have a fixed mode for all files.
bool LetEverybodyRead(const QString &path, QFileDevice::Permissions mode)
{
    return QFile::setPermissions(path, mode) || (QFile::permissions(path) & mode) == mode;
}

/// Creates @p folder and missing parents. The mode of existing folders is their owner's choice.
Failure MakeFolder(const QString &folder)
{
    if (QFileInfo(folder).isDir())
        return {};
    if (FolderOf(folder) != folder) {
        if (Failure failure = MakeFolder(FolderOf(folder)))
            return failure;
    }
    // Another process may create it at the same time.
    const bool isMade = QDir().mkdir(folder) && LetEverybodyRead(folder, kFolderMode);
    if (!isMade && !QFileInfo(folder).isDir())
        return CannotWrite(folder, QStringLiteral("the folder cannot be created"));
    return {};
}

Failure WriteFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size() || !file.flush())
        return CannotWrite(file);
    if (!LetEverybodyRead(path, kFileMode))
        return CannotWrite(path, QStringLiteral("its mode cannot be set"));
    return {};
}

Failure Link(const QString &target, const QString &path)
{
    if (!HostSystem::MakeLink(target, path))
        return CannotWrite(path, QStringLiteral("the link cannot be created"));
    return {};
}

/// Why a lock cannot be taken. Whether a process on another machine still runs is unknown.
Finding Busy(const QString &tree, const QLockFile &lock, const QString &lockFile)
{
    qint64 process = 0;
    QString host;
    QString program;
    const bool isElsewhere = lock.getLockInfo(&process, &host, &program) && !host.isEmpty() &&
                             host.compare(QSysInfo::machineHostName(), Qt::CaseInsensitive) != 0;
    const QString owner =
        isElsewhere
            ? QStringLiteral("locked by process %1 on %2; if that process has ended, remove %3")
                  .arg(QString::number(process), host, lockFile)
            : QStringLiteral("another process is changing this tree; wait until it has finished");
    return {QLatin1String(TreeChange::kBusyRule), QString(),
            QStringLiteral("%1: %2").arg(tree, owner)};
}

/// True while the lock file names no process: it is being created, or its creator was killed.
bool IsNameless(const QLockFile &lock)
{
    qint64 process = 0;
    QString host;
    QString program;
    return !lock.getLockInfo(&process, &host, &program);
}

} // namespace

TreeChange::TreeChange(const ReleaseTree &tree)
    : m_tree(tree), m_folder(tree.Folder() + kStagingFolder)
{
}

TreeChange::~TreeChange()
{
    for (const QString &path : qAsConst(m_added)) {
        QFile::remove(path);
        RemoveEmptyFolders(FolderOf(path));
    }
    if (m_lock && m_lock->isLocked()) {
        RemoveStaged();
        m_lock->unlock();
    }
    if (m_packageLock && m_packageLock->isLocked()) {
        QFile::remove(PackagePath());
        m_packageLock->unlock();
    }
    RemoveEmptyFolders(m_folder);
}

Failure TreeChange::BeginPackage()
{
    if (Failure failure = MakeStagingFolder())
        return failure;
    if (Failure failure = TakeLock(m_packageLock, kPackageLockFile, 0))
        return failure;
    QFile::remove(PackagePath());
    return {};
}

Failure TreeChange::Begin()
{
    if (Failure failure = MakeStagingFolder())
        return failure;
    if (Failure failure =
            TakeLock(m_lock, kLockFile, m_packageLock ? kLockTimeoutAfterPacking : kLockTimeout))
        return failure;
    RemoveStaged();
    if (!m_packageLock)
        RemoveOrphanedPackage();
    QFile index(m_tree.Current() + QLatin1Char('/') + kIndex);
    if (index.open(QIODevice::ReadOnly))
        m_index = index.readAll();
    const Failure failure = m_tree.Read(m_list);
    m_formerList = m_list;
    return failure;
}

QString TreeChange::PackagePath() const
{
    return StagedPath(kStagedPackage);
}

void TreeChange::AddPackage(const QString &id)
{
    m_moves.append({PackagePath(), m_tree.PackageFile(id)});
}

Failure TreeChange::AddOffer(Release &release, const Offer &offer)
{
    const QByteArray reply = OfferReply(offer);
    // Replacing the answer in place would make it effective before the list.
    if (m_formerList.IndexOf(release.version) >= 0) {
        QFile former(m_tree.OfferFile(release));
        if (former.open(QIODevice::ReadOnly) && former.readAll() != reply)
            release.revision = ShortDigest(reply);
    }
    if (release.version == m_list.releases.last().version)
        m_index = IndexPage(offer);
    return Stage(m_tree.OfferFile(release), reply);
}

Failure TreeChange::Commit(const QString &line)
{
    if (!line.isEmpty()) {
        m_list.activity.append(QDateTime::currentDateTimeUtc().toString(Qt::ISODate) +
                               QLatin1Char(' ') + line);
    }
    if (!QFileInfo(m_tree.NoOfferFile()).isFile()) {
        if (Failure failure = Stage(m_tree.NoOfferFile(), NoOfferReply()))
            return failure;
    }
    if (Failure failure = WriteGeneration())
        return failure;
    if (!HostSystem::SyncFileSystem(m_folder))
        return CannotWrite(m_folder, QStringLiteral("not everything was written to the disk"));
    if (Failure failure = MoveAll())
        return failure;
    const QString former = CurrentGeneration();
    if (Failure failure = SwitchTo(m_tree.Generations() + QLatin1Char('/') + NextGeneration()))
        return failure;
    m_added.clear();
    RemoveGenerationsBefore(former);
    return {};
}

QString TreeChange::StagedPath(const QString &name) const
{
    return m_folder + QLatin1Char('/') + name;
}

Failure TreeChange::MakeStagingFolder()
{
    if (m_oldAncestor.isEmpty()) {
        m_oldAncestor = m_tree.Folder();
        while (!QFileInfo::exists(m_oldAncestor) && FolderOf(m_oldAncestor) != m_oldAncestor)
            m_oldAncestor = FolderOf(m_oldAncestor);
    }
    return MakeFolder(m_folder);
}

Failure TreeChange::TakeLock(std::unique_ptr<QLockFile> &lock, const QString &name, int timeout)
{
    lock = std::make_unique<QLockFile>(StagedPath(name));
    lock->setStaleLockTime(0); // publishing a large release takes long
    bool isTaken = lock->tryLock();
    const auto isBusy = [&lock] { return lock->error() == QLockFile::LockFailedError; };
    if (!isTaken && isBusy() && IsNameless(*lock)) {
        isTaken = lock->tryLock(kLockRetryInterval) ||
                  (IsNameless(*lock) && lock->removeStaleLockFile() && lock->tryLock());
    }
    for (int waited = 0; !isTaken && isBusy() && waited < timeout; waited += kLockRetryInterval) {
        if (HostSystem::WasInterrupted())
            return Interrupted();
        isTaken = lock->tryLock(kLockRetryInterval);
    }
    if (isTaken)
        return {};
    if (!isBusy())
        return CannotWrite(m_folder, QStringLiteral("no file can be created there"));
    return Busy(m_tree.Folder(), *lock, StagedPath(name));
}

/// Removes what earlier changes left. A package belongs to the process with the other lock.
void TreeChange::RemoveStaged() const
{
    QDir(StagedPath(kStagedGeneration)).removeRecursively();
    for (const QString &file : QDir(m_folder).entryList(QDir::Files | QDir::System)) {
        if (file != kLockFile && file != kPackageLockFile && file != kStagedPackage)
            QFile::remove(StagedPath(file));
    }
}

/// Removes the package of a process that was killed while packing.
void TreeChange::RemoveOrphanedPackage() const
{
    if (!QFile::exists(PackagePath()) && !QFile::exists(StagedPath(kPackageLockFile)))
        return;
    QLockFile lock(StagedPath(kPackageLockFile));
    lock.setStaleLockTime(0);
    if (lock.tryLock(0))
        QFile::remove(PackagePath());
}

Failure TreeChange::Stage(const QString &target, const QByteArray &content)
{
    const QString staged = StagedPath(QStringLiteral("file-%1").arg(m_moves.size()));
    if (Failure failure = WriteFile(staged, content))
        return failure;
    m_moves.append({staged, target});
    return {};
}

Failure TreeChange::MoveAll()
{
    for (const Move &move : qAsConst(m_moves)) {
        if (Failure failure = MakeFolder(FolderOf(move.to)))
            return failure;
        if (!LetEverybodyRead(move.from, kFileMode))
            return CannotWrite(move.from, QStringLiteral("its mode cannot be set"));
        const bool isNew = !QFileInfo::exists(move.to);
        if (!HostSystem::MoveIntoPlace(move.from, move.to))
            return CannotWrite(move.to, QStringLiteral("the file cannot be replaced"));
        if (isNew)
            m_added.append(move.to);
    }
    return {};
}

Failure TreeChange::SwitchTo(const QString &generation)
{
    if (Failure failure = MakeFolder(m_tree.Generations()))
        return failure;
    for (const QString &name : {kIndex, kDigests}) {
        const QString path = m_tree.Folder() + QLatin1Char('/') + name;
        if (HostSystem::IsLink(path) || !HostSystem::HasLinks())
            continue;
        if (Failure failure = Link(kFromTreeToCurrent + name, path))
            return failure;
        m_added.append(path);
    }
    // An existing folder is left from a change that was interrupted before it came into force.
    QDir(generation).removeRecursively();
    if (!HostSystem::MoveIntoPlace(StagedPath(kStagedGeneration), generation))
        return CannotWrite(generation, QStringLiteral("the folder cannot be moved there"));
    if (!HostSystem::PointTo(generation, m_tree.Current(), StagedPath(kStagedLink)))
        return CannotWrite(m_tree.Current(), QStringLiteral("the link cannot be replaced"));
    return {};
}

Failure TreeChange::WriteGeneration()
{
    const QString folder = StagedPath(kStagedGeneration);
    if (Failure failure = MakeFolder(folder))
        return failure;
    const QVector<QPair<QString, QByteArray>> files{
        {kList, ToJson(m_list)}, {kDigests, DigestLines(m_list)}, {kIndex, m_index}};
    for (const auto &file : files) {
        if (Failure failure = WriteFile(folder + QLatin1Char('/') + file.first, file.second))
            return failure;
    }
    return HostSystem::HasLinks() ? WriteTables() : Failure();
}

Failure TreeChange::WriteTables()
{
    const QMap<QString, QString> links = DecisionLinks(m_list);
    for (auto link = links.cbegin(); link != links.cend(); ++link) {
        const QString path = StagedPath(kStagedGeneration) + QLatin1Char('/') + link.key();
        if (Failure failure = link->isEmpty() ? MakeFolder(path) : Link(*link, path))
            return failure;
    }
    return {};
}

QString TreeChange::NextGeneration() const
{
    int last = 0;
    // Until one generation has come into force, every attempt is number one.
    if (QFileInfo::exists(m_tree.Current())) {
        for (const QString &name : QDir(m_tree.Generations()).entryList(QDir::Dirs))
            last = qMax(last, ReleaseTree::GenerationNumber(name));
    }
    return ReleaseTree::GenerationName(last + 1, ToJson(m_list));
}

QString TreeChange::CurrentGeneration() const
{
    return QFileInfo(QFileInfo(m_tree.Current()).canonicalFilePath()).fileName();
}

void TreeChange::RemoveGenerationsBefore(const QString &former) const
{
    const QString current = CurrentGeneration();
    if (current.isEmpty())
        return;
    const QString folder = m_tree.Generations() + QLatin1Char('/');
    for (const QString &name : QDir(folder).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        // Checks that began before the switch still use the former generation.
        if (name != current && name != former)
            QDir(folder + name).removeRecursively();
    }
}

void TreeChange::RemoveEmptyFolders(QString folder) const
{
    if (m_oldAncestor.isEmpty())
        return;
    while (folder.startsWith(m_oldAncestor) && folder != m_oldAncestor && QDir().rmdir(folder))
        folder = FolderOf(folder);
}

Findings FindUnreadable(const ReleaseTree &tree, const ReleaseList &list)
{
    const QString packages = FolderOf(tree.PackageFile(QStringLiteral("ID")));
    QStringList paths{tree.Folder(),      packages,           FolderOf(tree.Current()),
                      tree.Current(),     tree.Generations(), tree.NoOfferFile(),
                      tree.DigestsFile(), tree.IndexFile()};
    for (const Release &release : list.releases) {
        paths += {tree.OfferFile(release), tree.PackageFile(release.id)};
        // A release that was published again has a folder for each revision.
        for (QString answers = FolderOf(tree.OfferFile(release));
             answers.size() > tree.Folder().size(); answers = FolderOf(answers))
            paths.append(answers);
    }
    const bool isUnreadable = std::any_of(paths.cbegin(), paths.cend(), [](const QString &path) {
        const QFileInfo info(path);
        const QFileDevice::Permissions needed =
            info.isDir() ? QFileDevice::ReadOther | QFileDevice::ExeOther : QFileDevice::ReadOther;
        return info.exists() && !info.permission(needed);
    });
    if (!isUnreadable)
        return {};
    return {{QStringLiteral("mode"), QString(),
             QStringLiteral("%1 cannot be read by other users, such as nginx; run chmod -R o+rX %1")
                 .arg(tree.Folder())}};
}
