// SPDX-License-Identifier: MIT
#include "release/publish/publishing/publishrelease.h"

#include "config/servicecontract.h"
#include "release/publish/base/hostsystem.h"
#include "release/publish/publishing/knownpackages.h"
#include "release/publish/publishing/releasesource.h"
#include "release/publish/rules/releaserules.h"
#include "release/publish/tree/indexpage.h"
#include "release/publish/tree/releasetree.h"
#include "release/publish/tree/reply.h"
#include "release/publish/tree/treechange.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>

namespace
{

constexpr int kMaxLeftOutNames = 10;            // in the summary; people do not read more
constexpr qint64 kMaxNotesSize = 1024LL * 1024; // in bytes; users do not read more

/// Publishes one release. Each step adds to the outcome, and the first failure ends it.
class Publisher
{
public:
    Publisher(const Request &request, Progress &progress)
        : m_request(request), m_progress(progress), m_tree(request.out),
          m_source(request, progress, m_offer, m_outcome)
    {
    }

    Outcome Run()
    {
        m_source.Check(m_tree.Folder());
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

    void CheckTexts()
    {
        Refuse(ReleaseRules::CheckVersion(m_request.version));
        if (!m_request.knownDigests.isEmpty())
            Refuse(m_known.Read(m_request.knownDigests));
        Refuse(ReleaseRules::CheckUrlPrefix(m_request.urlPrefix));
        if (m_request.command == Request::Promote)
            return;
        m_offer.url = ReleaseTree::PackageAddress(m_request.urlPrefix, m_offer.id);
        m_offer.notes = ReadNotes(m_request.notesZhFile, QStringLiteral("Chinese")) +
                        ServiceContract::NotesSeparator +
                        ReadNotes(m_request.notesEnFile, QStringLiteral("English"));
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
    Failure Rehearse()
    {
        const QString package = m_source.PackageFile();
        return package.isEmpty() ? Failure() : CheckPackage(package);
    }

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
        if (Failure failure = m_source.MakePackage(change.PackagePath()))
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
        if (!m_source.HasListedDigest(m_offer.package.sha256)) {
            return Finding{QStringLiteral("digest"), QString(),
                           QStringLiteral("%1 is damaged; publish the release again")
                               .arg(m_source.PackageFile())};
        }
        if (Failure failure = CheckListed())
            return failure;
        if (m_known.HasOtherBytes(m_offer.id, m_offer.package.sha256))
            return PublishedWithOtherBytes(m_request.knownDigests);
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
        if (!m_source.ConfigFile().isEmpty())
            release.configFile = m_source.ConfigFile();
        if (m_request.share > 0)
            release.share = m_request.share;
        return release;
    }

    /// The excluded files, for the summary; empty when there are none.
    QString LeftOutLine() const
    {
        const QStringList paths = m_source.LeftOut();
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
            {QStringLiteral("leftOut"), QJsonArray::fromStringList(m_source.LeftOut())},
            {QStringLiteral("share"), PercentOf(m_release.share)},
            {QStringLiteral("offer"), m_tree.OfferFile(m_release)},
            {QStringLiteral("none"), m_tree.NoOfferFile()},
            {QStringLiteral("index"), m_tree.IndexFile()}};
    }

    const Request &m_request;
    Progress &m_progress;
    ReleaseTree m_tree;
    ReleaseList m_list;
    Release m_release; ///< as it is listed now
    KnownPackages m_known;
    Offer m_offer;
    Outcome m_outcome;
    ReleaseSource m_source;
};

} // namespace

Outcome PublishRelease(const Request &request, Progress &progress)
{
    return Publisher(request, progress).Run();
}
