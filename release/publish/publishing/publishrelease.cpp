// SPDX-License-Identifier: MIT
#include "release/publish/publishing/publishrelease.h"

#include "config/servicecontract.h"
#include "release/publish/base/cannotwrite.h"
#include "release/publish/base/hostsystem.h"
#include "release/publish/packing/clientfolder.h"
#include "release/publish/packing/packagewriter.h"
#include "release/publish/rules/releaserules.h"
#include "release/publish/rules/signature.h"
#include "release/publish/rules/versionfile.h"
#include "release/publish/tree/indexpage.h"
#include "release/publish/tree/releasetree.h"
#include "release/publish/tree/reply.h"
#include "release/publish/tree/treechange.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QRegularExpression>

#include <algorithm>

namespace
{

constexpr qint64 kPieceSize = 1024LL * 1024;
constexpr int kMaxLeftOutNames = 10;            // in the summary; people do not read more
constexpr qint64 kMaxNotesSize = 1024LL * 1024; // in bytes; users do not read more
constexpr int kMaxDigestLine = 4096;            // in bytes

/// A package of an earlier tree, from its SHA256SUMS.
struct KnownPackage {
    QString id;
    QString sha256; ///< in lower-case hexadecimal digits
};

/// Publishes one release. Each step adds to the outcome, and the first failure ends it.
class Publisher
{
public:
    Publisher(const Request &request, Progress &progress)
        : m_request(request), m_progress(progress), m_tree(request.out)
    {
    }

    Outcome Run()
    {
        CheckSource();
        CheckTexts();
        CheckTree();
        CheckVersionAgainstOthers();
        if (m_request.command == Request::Promote)
            ChooseAddress();
        if (m_outcome.refusals.isEmpty())
            Refuse(CheckListed());
        if (!m_outcome.refusals.isEmpty())
            return m_outcome;
        if (m_request.dryRun) {
            Refuse(Rehearse());
            if (!m_outcome.refusals.isEmpty())
                return m_outcome;
            m_outcome.warnings += FindUnreadable(m_tree, m_list);
            m_outcome.summary = QStringLiteral("would be published: version %1 as %2\n")
                                    .arg(m_offer.version, m_offer.id);
            m_outcome.facts = {{QStringLiteral("version"), m_offer.version},
                               {QStringLiteral("id"), m_offer.id},
                               {QStringLiteral("dryRun"), true}};
        } else if (Failure failure = Publish()) {
            Refuse(failure);
        } else {
            m_outcome.warnings += FindUnreadable(m_tree, m_list);
            DescribeResult();
        }
        return m_outcome;
    }

private:
    bool IsZip() const { return m_request.command == Request::Zip; }
    void Refuse(const Findings &findings) { m_outcome.refusals += findings; }

    void Refuse(const Failure &failure)
    {
        if (failure)
            m_outcome.refusals.append(*failure);
    }

    void Refuse(const char *rule, const QString &message)
    {
        m_outcome.refusals.append({QString::fromLatin1(rule), QString(), message});
    }

    void CheckSource()
    {
        m_offer.version = m_request.version;
        m_offer.forced = m_request.forced;
        switch (m_request.command) {
        case Request::Zip:
            CheckClientFolder();
            break;
        case Request::Promote:
            CheckPromotion();
            break;
        default:
            CheckInstaller();
            break;
        }
    }

    /// Takes all data of the release from the tree that it comes from.
    void CheckPromotion()
    {
        const ReleaseTree from(m_request.source);
        ReleaseList list;
        if (const Failure failure = from.Read(list)) {
            m_outcome.refusals.append(*failure);
            return;
        }
        const int index = list.IndexOf(m_request.version);
        if (index < 0) {
            Refuse("unknown-version",
                   QStringLiteral("%1 has no release %2; run \"publish list\" to see its releases")
                       .arg(from.Folder(), ReleaseRules::Shown(m_request.version)));
            return;
        }
        m_promoted = list.releases.at(index);
        m_configFile = m_promoted.configFile;
        if (m_promoted.isWithdrawn) {
            Refuse("withdrawn", QStringLiteral("%1 was rolled back in %2; publish a new version")
                                    .arg(m_promoted.version, from.Folder()));
        } else if (m_promoted.isStopped) {
            m_outcome.warnings.append(
                {QStringLiteral("stopped"), QString(),
                 QStringLiteral("%1 is stopped in %2; check that this is intended")
                     .arg(m_promoted.version, from.Folder())});
        }
        QFile reply(from.OfferFile(m_promoted));
        const QByteArray content = reply.open(QIODevice::ReadOnly) ? reply.readAll() : QByteArray();
        Refuse(ReadOffer(content, m_offer));
        m_packageFile = from.PackageFile(m_promoted.id);
        if (!QFileInfo(m_packageFile).isFile()) {
            Refuse("missing",
                   QStringLiteral("%1 is missing; publish the release again").arg(m_packageFile));
        }
    }

    void CheckClientFolder()
    {
        m_offer.kind = ServiceContract::ZipPackage;
        m_offer.id = ReleaseRules::PackageFileName(m_request.name, m_request.version,
                                                   ReleaseRules::ZipSuffix);
        Refuse(ReleaseRules::CheckZipName(m_offer.id));
        const QString folder = m_request.source;
        if (!QFileInfo(folder).isDir()) {
            Refuse("source", QStringLiteral("%1 is not a folder; name the folder of the new client")
                                 .arg(folder));
            return;
        }
        if (TreeLiesInClient()) {
            Refuse("source", QStringLiteral("the release tree is in the client's folder and would "
                                            "become part of the package; put it elsewhere"));
            return;
        }
        m_client = ListClientFolder(folder, Exclusion(m_request.exclude));
        const QString top = ReleaseRules::TopFolder(m_offer.id);
        Refuse(m_client.findings);
        Refuse(ReleaseRules::CheckEntries(top, m_client.entries));
        const Findings updater =
            ReleaseRules::CheckUpdaterFolder(m_client.entries, m_request.updaterFolder);
        (m_request.allowUpdater ? m_outcome.warnings : m_outcome.refusals) += updater;
        m_outcome.warnings += ReleaseRules::WarnOfEntries(top, m_client.entries);
        Refuse(Signature::CheckFolder(folder, m_client.entries, m_request.signature, m_progress));
        if (!m_request.configFile.isEmpty())
            CheckVersionFile();
    }

    void CheckVersionFile()
    {
        m_configFile = QDir::cleanPath(m_request.configFile);
        const bool isPacked = std::any_of(
            m_client.entries.cbegin(), m_client.entries.cend(),
            [this](const auto &entry) { return !entry.isFolder && entry.path == m_configFile; });
        if (!isPacked) {
            Refuse("config-file",
                   QStringLiteral("%1 is not in the package; name it relative to --client")
                       .arg(ReleaseRules::Shown(m_request.configFile)));
            return;
        }
        QFile file(QDir(m_request.source).filePath(m_configFile));
        const QByteArray content = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
        Refuse(VersionFile::Check(m_configFile, content, m_request.version));
        m_outcome.warnings += VersionFile::WarnOfOrder(m_configFile, m_client.entries);
    }

    bool TreeLiesInClient() const
    {
        const QString client = QDir(m_request.source).canonicalPath();
        QDir tree(m_tree.Folder());
        // While a folder does not exist yet, its nearest parent decides.
        while (!tree.exists() && !tree.isRoot())
            tree.setPath(QFileInfo(tree.path()).path());
        const QString path = tree.canonicalPath() + QLatin1Char('/');
        return path.startsWith(client + QLatin1Char('/'));
    }

    void CheckInstaller()
    {
        m_offer.kind = ServiceContract::InstallerPackage;
        m_packageFile = m_request.source;
        const QFileInfo installer(m_request.source);
        m_offer.id = m_request.name.isEmpty()
                         ? installer.fileName()
                         : ReleaseRules::PackageFileName(m_request.name, m_request.version,
                                                         QLatin1Char('.') + installer.suffix());
        Refuse(ReleaseRules::CheckInstallerName(m_offer.id));
        if (!installer.isFile()) {
            Refuse("source",
                   QStringLiteral("%1 is not a file; name the installer").arg(m_request.source));
            return;
        }
        Refuse(ReleaseRules::CheckPackageSize(installer.size()));
        Refuse(Signature::CheckInstaller(m_request.source, m_request.signature));
        QFile file(m_request.source);
        if (file.open(QIODevice::ReadOnly)) {
            m_outcome.warnings += ReleaseRules::WarnOfInstaller(
                m_request.source, file.read(ReleaseRules::InstallerBeginning));
        }
    }

    void CheckTexts()
    {
        Refuse(ReleaseRules::CheckVersion(m_request.version));
        if (!m_request.knownDigests.isEmpty())
            ReadKnownDigests();
        Refuse(ReleaseRules::CheckUrlPrefix(m_request.urlPrefix));
        if (m_request.command == Request::Promote)
            return;
        m_offer.url = ReleaseTree::PackageAddress(m_request.urlPrefix, m_offer.id);
        m_offer.notes = ReadNotes(m_request.notesZhFile, QStringLiteral("Chinese")) +
                        ServiceContract::NotesSeparator +
                        ReadNotes(m_request.notesEnFile, QStringLiteral("English"));
    }

    /// A file in another format must be refused, because it would let every package pass.
    void ReadKnownDigests()
    {
        static const QRegularExpression digestLine(
            QStringLiteral("\\A([0-9A-Fa-f]{64}) [ *](.*[/\\\\])?([^/\\\\]+)\\z"));
        QFile file(m_request.knownDigests);
        if (!file.open(QIODevice::ReadOnly)) {
            Refuse("known", QStringLiteral("%1: %2; name the SHA256SUMS of an earlier tree")
                                .arg(m_request.knownDigests, file.errorString()));
            return;
        }
        bool isList = true;
        while (isList) {
            QString line = QString::fromUtf8(file.readLine(kMaxDigestLine));
            if (line.isEmpty())
                break;
            while (line.endsWith(QLatin1Char('\n')) || line.endsWith(QLatin1Char('\r')))
                line.chop(1);
            const QRegularExpressionMatch match = digestLine.match(line);
            isList = match.hasMatch();
            m_known.append({match.captured(3), match.captured(1).toLower()});
        }
        if (!isList || m_known.isEmpty()) {
            Refuse(
                "known",
                QStringLiteral(
                    "%1 is not a list of SHA-256 digests; name the SHA256SUMS of an earlier tree")
                    .arg(m_request.knownDigests));
        }
    }

    QString ReadNotes(const QString &path, const QString &language)
    {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly) || file.size() > kMaxNotesSize) {
            Refuse("notes",
                   QStringLiteral(
                       "%1 cannot be read as the %2 notes; name a text file smaller than 1 MiB")
                       .arg(path, language));
            return QString();
        }
        const QString notes = QString::fromUtf8(file.readAll())
                                  .replace(QStringLiteral("\r\n"), QStringLiteral("\n"))
                                  .trimmed();
        Refuse(ReleaseRules::CheckNotes(notes, language));
        m_outcome.warnings += ReleaseRules::WarnOfNotes(notes, language);
        return notes;
    }

    void CheckTree()
    {
        const QFileInfo folder(m_tree.Folder());
        if (folder.exists() && !folder.isDir()) {
            Refuse("out",
                   QStringLiteral("%1 is not a folder; name another one").arg(m_tree.Folder()));
            return;
        }
        if (Failure failure = m_tree.Read(m_list))
            m_outcome.refusals.append(*failure);
        CheckShareOfListed();
        if (m_request.share > 0 && !HostSystem::HasLinks()) {
            Refuse("links", QStringLiteral("releases cannot be rolled out from this system; "
                                           "publish without --share, and roll out on the server"));
        }
    }

    /// Publishing again corrects a release, but does not change who is offered it.
    void CheckShareOfListed()
    {
        const int index = m_list.IndexOf(m_request.version);
        if (m_request.share == 0 || index < 0)
            return;
        const Release &listed = m_list.releases.at(index);
        if (listed.isWithdrawn) {
            Refuse("withdrawn",
                   QStringLiteral("%1 was rolled back; publish a new version").arg(listed.version));
        } else if (listed.share != m_request.share) {
            Refuse("share", QStringLiteral("%1 was published before and has the share %2; leave "
                                           "out --share, and use \"publish rollout\" to change it")
                                .arg(listed.version, ShareText(listed.share)));
        }
    }

    void CheckVersionAgainstOthers()
    {
        // When a release is published again, this was checked before.
        if (!ReleaseRules::CheckVersion(m_request.version).isEmpty() ||
            m_list.IndexOf(m_request.version) >= 0)
            return;
        const QStringList published = OtherVersions();
        if (!m_request.allowShorterVersion)
            Refuse(ReleaseRules::CheckVersionLength(m_request.version, published));
        m_outcome.warnings += ReleaseRules::WarnOfOlderVersion(m_request.version, published);
    }

    /// The clients of the other tree may use another address.
    void ChooseAddress()
    {
        QString prefix = m_request.urlPrefix;
        if (prefix.isEmpty()) {
            Offer latest;
            QFile reply(m_list.releases.isEmpty() ? QString()
                                                  : m_tree.OfferFile(m_list.releases.last()));
            if (!reply.open(QIODevice::ReadOnly) || !ReadOffer(reply.readAll(), latest).isEmpty())
                return;
            const QString end = ReleaseTree::PackagesPath + latest.id;
            if (!latest.url.endsWith(end))
                return;
            prefix = latest.url.chopped(end.size());
        }
        m_offer.url = ReleaseTree::PackageAddress(prefix, m_offer.id);
    }

    /// The other versions that are in the list or have a package in the tree.
    QStringList OtherVersions() const
    {
        QStringList versions;
        QStringList listedPackages;
        for (const Release &release : m_list.releases) {
            listedPackages.append(release.id);
            if (release.version != m_request.version)
                versions.append(release.version);
        }
        const QStringList packages = m_tree.PackageNames();
        for (const QString &package : packages) {
            if (!listedPackages.contains(package) && package != m_offer.id) {
                versions.append(
                    ReleaseRules::VersionInName(package, m_offer.id, m_request.version));
            }
        }
        return versions;
    }

    /// Checks the package in a dry run, unless it would have to be packed first.
    Failure Rehearse() { return IsZip() ? Failure() : CheckPackage(m_packageFile); }

    Failure Publish()
    {
        TreeChange change(m_tree);
        if (Failure failure = change.BeginPackage())
            return failure;
        ReleaseList list;
        if (Failure failure = m_tree.Read(list))
            return failure;
        if (ToJson(list) != ToJson(m_list)) {
            return Finding{
                QStringLiteral("busy"), QString(),
                QStringLiteral("another process has just changed %1; run the command again")
                    .arg(m_tree.Folder())};
        }
        if (Failure failure = MakePackage(change.PackagePath()))
            return failure;
        if (Failure failure = CheckPackage(change.PackagePath()))
            return failure;

        if (Failure failure = change.Begin())
            return failure;
        // Releases may have been stopped or rolled out while this one was packed.
        m_list = change.List();
        if (Failure failure = CheckListed())
            return failure;
        Release &release = ListedRelease(change.List());
        change.AddPackage(m_offer.id);
        const bool isNews = !IsAnnounced(release) || ToJson(change.List()) != ToJson(m_list);
        if (Failure failure = change.AddOffer(release, m_offer))
            return failure;
        m_release = release;
        QString line = QStringLiteral("published %1").arg(m_offer.version);
        if (m_request.share > 0)
            line += QStringLiteral(", share %1").arg(ShareText(m_request.share));
        m_list = change.List();
        return change.Commit(isNews ? line : QString());
    }

    /// Whether the tree already has the same answer for @p release.
    bool IsAnnounced(const Release &release) const
    {
        QFile reply(m_tree.OfferFile(release));
        return reply.open(QIODevice::ReadOnly) && reply.readAll() == OfferReply(m_offer);
    }

    /// Computes the digests of @p path, the package to publish, and compares them with published
    /// ones.
    Failure CheckPackage(const QString &path)
    {
        m_progress.Begin(QStringLiteral("digests"), QFileInfo(path).size());
        if (Failure failure = DigestFile(path, m_progress, m_offer.package))
            return failure;
        return CheckIdentity();
    }

    Finding PublishedWithOtherBytes(const QString &where) const
    {
        return {QStringLiteral("package-exists"), QString(),
                QStringLiteral("%1 was published before with different content (%2), and caches "
                               "may contain it; give the release another version or name")
                    .arg(m_offer.id, where)};
    }

    /// Compares the release with the one in the list, and its package too as soon as the digest is
    /// known.
    Failure CheckListed() const
    {
        const int index = m_list.IndexOf(m_offer.version);
        if (index < 0)
            return {};
        const Release &listed = m_list.releases.at(index);
        if (listed.id != m_offer.id) {
            return Finding{QStringLiteral("package-exists"), QString(),
                           QStringLiteral("version %1 was published as %2; give this release a new "
                                          "version")
                               .arg(listed.version, listed.id)};
        }
        if (!m_offer.package.sha256.isEmpty() && listed.sha256 != m_offer.package.sha256) {
            return PublishedWithOtherBytes(
                QStringLiteral("as %1 in %2").arg(m_offer.version, m_tree.ListFile()));
        }
        return {};
    }

    /**
     * A published package never changes, because caches and partial downloads have parts of it: the
     * new package must be identical to the one of this name in this tree or an earlier one.
     */
    Failure CheckIdentity()
    {
        if (m_request.command == Request::Promote && m_promoted.sha256 != m_offer.package.sha256) {
            return Finding{
                QStringLiteral("digest"), QString(),
                QStringLiteral("%1 is damaged; publish the release again").arg(m_packageFile)};
        }
        if (Failure failure = CheckListed())
            return failure;
        for (const KnownPackage &known : qAsConst(m_known)) {
            if (known.id == m_offer.id && known.sha256 != m_offer.package.sha256)
                return PublishedWithOtherBytes(m_request.knownDigests);
        }
        const QString target = m_tree.PackageFile(m_offer.id);
        if (m_list.IndexOf(m_offer.version) >= 0 || !QFileInfo::exists(target))
            return {};
        FileDigests found;
        m_progress.Begin(QStringLiteral("digests"), QFileInfo(target).size());
        if (Failure failure = DigestFile(target, m_progress, found))
            return failure;
        if (found.sha256 != m_offer.package.sha256)
            return PublishedWithOtherBytes(target);
        return {};
    }

    /// The release in the list; a new one is appended.
    Release &ListedRelease(ReleaseList &list)
    {
        int index = list.IndexOf(m_offer.version);
        if (index < 0) {
            index = list.releases.size();
            Release added;
            added.version = m_offer.version;
            added.id = m_offer.id;
            added.published = QDateTime::currentDateTimeUtc();
            list.releases.append(added);
        }
        Release &release = list.releases[index];
        release.kind = m_offer.kind;
        release.forced = m_offer.forced;
        release.size = m_offer.package.size;
        release.sha256 = m_offer.package.sha256;
        // When a release is published again without the option, the earlier file remains.
        if (!m_configFile.isEmpty())
            release.configFile = m_configFile;
        if (m_request.share > 0)
            release.share = m_request.share;
        return release;
    }

    Failure MakePackage(const QString &target)
    {
        if (!IsZip())
            return CopyFile(m_packageFile, target);
        m_progress.Begin(QStringLiteral("packing"), m_client.totalSize);
        return WritePackage(m_request.source, ReleaseRules::TopFolder(m_offer.id), m_client.entries,
                            target, m_progress);
    }

    Failure CopyFile(const QString &source, const QString &target)
    {
        QFile from(source);
        QFile to(target);
        if (!from.open(QIODevice::ReadOnly)) {
            return Finding{
                QStringLiteral("unreadable"), QString(),
                QStringLiteral("%1: %2; correct its permissions").arg(source, from.errorString())};
        }
        const qint64 size = from.size();
        m_progress.Begin(QStringLiteral("copying"), size);
        if (!to.open(QIODevice::WriteOnly))
            return CannotWrite(to);
        for (qint64 left = size; left > 0;) {
            const QByteArray piece = from.read(qMin(left, kPieceSize));
            if (piece.isEmpty()) {
                return Finding{QStringLiteral("changed"), QString(),
                               QStringLiteral("%1: the file cannot be read completely; make sure "
                                              "that nothing writes to it")
                                   .arg(source)};
            }
            if (to.write(piece) != piece.size())
                return CannotWrite(to);
            left -= piece.size();
            if (!m_progress.Advance(piece.size()))
                return Interrupted();
        }
        if (!HostSystem::SyncToDisk(to))
            return CannotWrite(to);
        return {};
    }

    /// The excluded files, for the summary; empty when there are none.
    QString LeftOutLine() const
    {
        const QStringList &paths = m_client.leftOut;
        if (paths.isEmpty())
            return QString();
        QString names =
            ReleaseRules::Shown(paths.mid(0, kMaxLeftOutNames).join(QStringLiteral(", ")));
        if (paths.size() > kMaxLeftOutNames)
            names += QStringLiteral(" and %1 more").arg(paths.size() - kMaxLeftOutNames);
        return QStringLiteral("  left out %1\n").arg(names);
    }

    QString ShareOfResult() const
    {
        if (m_release.share == 0)
            return QStringLiteral("none yet; roll it out with \"publish rollout\"");
        return ShareText(m_release.share);
    }

    void DescribeResult()
    {
        const QString mode = m_offer.forced ? QStringLiteral("forced") : QStringLiteral("optional");
        const QString package = m_tree.PackageFile(m_offer.id);
        m_outcome.summary =
            QStringLiteral("Published version %1, %2.\n"
                           "  package  %3\n"
                           "  size     %4 (%5 bytes)\n"
                           "  MD5      %6\n"
                           "  SHA-256  %7\n"
                           "  share    %8\n"
                           "  check    %9\n")
                .arg(m_offer.version, mode, package, SizeText(m_offer.package.size),
                     QString::number(m_offer.package.size), m_offer.package.md5,
                     m_offer.package.sha256, ShareOfResult(), m_tree.OfferFile(m_release)) +
            LeftOutLine();
        m_outcome.facts = {
            {QStringLiteral("version"), m_offer.version},
            {QStringLiteral("update"), mode},
            {QStringLiteral("id"), m_offer.id},
            {QStringLiteral("package"), package},
            {QStringLiteral("size"), m_offer.package.size},
            {QStringLiteral("md5"), m_offer.package.md5},
            {QStringLiteral("sha1"), m_offer.package.sha1},
            {QStringLiteral("sha256"), m_offer.package.sha256},
            {QStringLiteral("leftOut"), QJsonArray::fromStringList(m_client.leftOut)},
            {QStringLiteral("share"), PercentOf(m_release.share)},
            {QStringLiteral("offer"), m_tree.OfferFile(m_release)},
            {QStringLiteral("none"), m_tree.NoOfferFile()},
            {QStringLiteral("index"), m_tree.IndexFile()}};
    }

    const Request &m_request;
    Progress &m_progress;
    ReleaseTree m_tree;
    ReleaseList m_list;
    Release m_release;     ///< as it is listed now
    Release m_promoted;    ///< as the other tree lists it
    QString m_packageFile; ///< the installer or the other tree's package; copied unchanged
    ClientFolder m_client;
    QString m_configFile; ///< the client's version file, relative to its folder; empty: none
    QVector<KnownPackage> m_known;
    Offer m_offer;
    Outcome m_outcome;
};

} // namespace

Outcome PublishRelease(const Request &request, Progress &progress)
{
    return Publisher(request, progress).Run();
}
