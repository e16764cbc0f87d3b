#include "release/publish/releasetree.h"

#include "release/publish/hostsystem.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace
{

const QString kStagingFolder = QStringLiteral("/.publish");
const QString kLockFile = QStringLiteral("lock");
const QString kStagedPackage = QStringLiteral("package");

constexpr qint64 kPieceSize = 1024LL * 1024;

Finding CannotWrite(const QString &path, const QString &reason)
{
    return {QStringLiteral("unwritable"), QString(),
            QStringLiteral("%1: %2; make room and see to the permissions").arg(path, reason)};
}

/// Whatever mask the process has: the web server is another user.
constexpr QFileDevice::Permissions kFileMode = QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                               QFileDevice::ReadGroup | QFileDevice::ReadOther;
constexpr QFileDevice::Permissions kFolderMode =
    kFileMode | QFileDevice::ExeOwner | QFileDevice::ExeGroup | QFileDevice::ExeOther;

QString FolderOf(const QString &path)
{
    return QFileInfo(path).path();
}

bool HaveSameBytes(const QString &onePath, const QString &otherPath)
{
    QFile one(onePath);
    QFile other(otherPath);
    if (!one.open(QIODevice::ReadOnly) || !other.open(QIODevice::ReadOnly) ||
        one.size() != other.size())
        return false;
    while (!one.atEnd()) {
        const QByteArray piece = one.read(kPieceSize);
        if (piece.isEmpty() || piece != other.read(kPieceSize))
            return false;
    }
    return true;
}

Failure WriteWhole(const QString &path, const QByteArray &content)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size() ||
        !HostSystem::SyncToDisk(file))
        return CannotWrite(path, file.errorString());
    return {};
}

/// False when others cannot read @p path. Some file systems have a mode of their own for all.
bool LetEverybodyRead(const QString &path, QFileDevice::Permissions mode)
{
    return QFile::setPermissions(path, mode) || (QFile::permissions(path) & mode) == mode;
}

/// Makes what is missing of @p folder; of what is there already the mode is its owner's choice.
Failure MakeFolder(const QString &folder)
{
    if (QFileInfo(folder).isDir())
        return {};
    if (FolderOf(folder) != folder) {
        if (Failure failure = MakeFolder(FolderOf(folder)))
            return failure;
    }
    // Another process may make it at the same time.
    const bool isMade = QDir().mkdir(folder) && LetEverybodyRead(folder, kFolderMode);
    if (!isMade && !QFileInfo(folder).isDir())
        return CannotWrite(folder, QStringLiteral("the folder cannot be made"));
    return {};
}

Failure Replace(const QString &from, const QString &to)
{
    if (Failure failure = MakeFolder(FolderOf(to)))
        return failure;
    if (!LetEverybodyRead(from, kFileMode))
        return CannotWrite(from, QStringLiteral("its mode cannot be set"));
    if (!HostSystem::MoveIntoPlace(from, to))
        return CannotWrite(to, QStringLiteral("the file cannot be replaced"));
    return {};
}

} // namespace

const QString ReleaseTree::PackagesPath = QStringLiteral("/packages/");

QString ReleaseTree::PackageAddress(QString prefix, const QString &id)
{
    while (prefix.endsWith(QLatin1Char('/')))
        prefix.chop(1);
    const QString folder = PackagesPath.chopped(1);
    return (prefix.endsWith(folder) ? prefix.chopped(folder.size()) : prefix) + PackagesPath + id;
}

ReleaseTree::ReleaseTree(const QString &folder)
    : m_folder(QDir::cleanPath(QDir::current().absoluteFilePath(folder)))
{
}

QString ReleaseTree::OfferFile() const
{
    return m_folder + QStringLiteral("/check/offer.json");
}

QString ReleaseTree::NoOfferFile() const
{
    return m_folder + QStringLiteral("/check/none.json");
}

QString ReleaseTree::IndexFile() const
{
    return m_folder + QStringLiteral("/index.html");
}

QString ReleaseTree::PackageFile(const QString &id) const
{
    return m_folder + PackagesPath + id;
}

QStringList ReleaseTree::AnswerFiles() const
{
    QStringList files;
    const QFileInfoList found =
        QDir(FolderOf(OfferFile())).entryInfoList({QStringLiteral("*.json")}, QDir::Files);
    for (const QFileInfo &file : found)
        files.append(file.filePath());
    return files;
}

QStringList ReleaseTree::PackageNames() const
{
    return QDir(m_folder + PackagesPath).entryList(QDir::Files);
}

StagedRelease::StagedRelease(const ReleaseTree &tree)
    : m_tree(tree), m_folder(tree.Folder() + kStagingFolder)
{
}

StagedRelease::~StagedRelease()
{
    if (m_lock && m_lock->isLocked()) {
        for (const QString &file : QDir(m_folder).entryList(QDir::Files)) {
            if (file != kLockFile)
                QFile::remove(StagedPath(file));
        }
        m_lock->unlock();
    }
    RemoveWhatIsEmpty();
}

Failure StagedRelease::Begin()
{
    m_oldAncestor = m_tree.Folder();
    while (!QFileInfo::exists(m_oldAncestor) && FolderOf(m_oldAncestor) != m_oldAncestor)
        m_oldAncestor = FolderOf(m_oldAncestor);
    if (Failure failure = MakeFolder(m_folder))
        return failure;

    m_lock = std::make_unique<QLockFile>(StagedPath(kLockFile));
    m_lock->setStaleLockTime(0); // a large release takes its time
    if (!m_lock->tryLock()) {
        if (m_lock->error() != QLockFile::LockFailedError)
            return CannotWrite(m_folder, QStringLiteral("no file can be made there"));
        return Finding{QStringLiteral("busy"), QString(),
                       QStringLiteral("%1: another process publishes there; wait for its end")
                           .arg(m_tree.Folder())};
    }
    return {};
}

QString StagedRelease::PackagePath() const
{
    return StagedPath(kStagedPackage);
}

Failure StagedRelease::Publish(const QString &id, const QByteArray &offer,
                               const QByteArray &noOffer, const QByteArray &index)
{
    struct Page {
        QString target;
        QByteArray content;
    };
    // The offer comes last: nobody is sent to what is not there yet.
    const QVector<Page> pages{
        {m_tree.NoOfferFile(), noOffer}, {m_tree.IndexFile(), index}, {m_tree.OfferFile(), offer}};

    const auto stagedPage = [this](const Page &page) {
        return StagedPath(QFileInfo(page.target).fileName());
    };
    for (const Page &page : pages) {
        if (Failure failure = WriteWhole(stagedPage(page), page.content))
            return failure;
    }
    if (Failure failure = PublishPackage(id))
        return failure;
    for (const Page &page : pages) {
        if (Failure failure = Replace(stagedPage(page), page.target))
            return failure;
    }
    return {};
}

QString StagedRelease::StagedPath(const QString &name) const
{
    return m_folder + QLatin1Char('/') + name;
}

Failure StagedRelease::PublishPackage(const QString &id)
{
    const QString target = m_tree.PackageFile(id);
    if (!QFileInfo::exists(target))
        return Replace(PackagePath(), target);
    if (HaveSameBytes(PackagePath(), target))
        return {};
    return Finding{QStringLiteral("package-exists"), QString(),
                   QStringLiteral("%1 is there already with other bytes, and caches may hold it; "
                                  "give the release another version or name")
                       .arg(target)};
}

void StagedRelease::RemoveWhatIsEmpty() const
{
    if (m_oldAncestor.isEmpty())
        return;
    QString folder = m_folder;
    while (folder != m_oldAncestor && QDir().rmdir(folder))
        folder = FolderOf(folder);
}
