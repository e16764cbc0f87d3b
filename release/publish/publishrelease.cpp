#include "release/publish/publishrelease.h"

#include "net/servicecontract.h"
#include "release/publish/clientfolder.h"
#include "release/publish/hostsystem.h"
#include "release/publish/indexpage.h"
#include "release/publish/packagewriter.h"
#include "release/publish/releaserules.h"
#include "release/publish/releasetree.h"
#include "release/publish/reply.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>

namespace
{

constexpr qint64 kPieceSize = 1024LL * 1024;
constexpr int kMaxLeftOutNames = 10;            // in the summary; more nobody reads
constexpr qint64 kMaxNotesSize = 1024LL * 1024; // in bytes; nobody reads more

/// One release on its way: each step adds to the outcome, and the first one that fails is the last.
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
        if (!m_outcome.refusals.isEmpty())
            return m_outcome;
        if (Failure failure = Publish())
            m_outcome.refusals.append(*failure);
        else
            DescribeResult();
        return m_outcome;
    }

private:
    bool IsZip() const { return m_request.command == Request::Zip; }
    void Refuse(const Findings &findings) { m_outcome.refusals += findings; }

    void Refuse(const char *rule, const QString &message)
    {
        m_outcome.refusals.append({QString::fromLatin1(rule), QString(), message});
    }

    void CheckSource()
    {
        m_offer.version = m_request.version;
        m_offer.forced = m_request.forced;
        if (IsZip())
            CheckClientFolder();
        else
            CheckInstaller();
    }

    void CheckClientFolder()
    {
        m_offer.kind = Global::ZipPackage;
        m_offer.id = ReleaseRules::PackageFileName(m_request.name, m_request.version,
                                                   ReleaseRules::ZipSuffix);
        Refuse(ReleaseRules::CheckZipName(m_offer.id));
        const QString folder = m_request.source;
        if (!QFileInfo(folder).isDir()) {
            Refuse("source",
                   QStringLiteral("%1 is not a folder; name the new client's").arg(folder));
            return;
        }
        if (TreeLiesInClient()) {
            Refuse("source",
                   QStringLiteral("the release tree lies in the client's folder, and would "
                                  "become part of it; put it elsewhere"));
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
    }

    bool TreeLiesInClient() const
    {
        const QString client = QDir(m_request.source).canonicalPath();
        QDir tree(m_tree.Folder());
        // Of what is not there yet the nearest folder above it tells.
        while (!tree.exists() && !tree.isRoot())
            tree.setPath(QFileInfo(tree.path()).path());
        const QString path = tree.canonicalPath() + QLatin1Char('/');
        return path.startsWith(client + QLatin1Char('/'));
    }

    void CheckInstaller()
    {
        m_offer.kind = Global::InstallerPackage;
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
        QFile file(m_request.source);
        if (file.open(QIODevice::ReadOnly)) {
            m_outcome.warnings += ReleaseRules::WarnOfInstaller(
                m_request.source, file.read(ReleaseRules::InstallerBeginning));
        }
    }

    void CheckTexts()
    {
        Refuse(ReleaseRules::CheckVersion(m_request.version));
        Refuse(ReleaseRules::CheckUrlPrefix(m_request.urlPrefix));
        m_offer.url = ReleaseTree::PackageAddress(m_request.urlPrefix, m_offer.id);
        m_offer.notes = ReadNotes(m_request.notesZhFile, QStringLiteral("Chinese")) +
                        ServiceContract::NotesSeparator +
                        ReadNotes(m_request.notesEnFile, QStringLiteral("English"));
    }

    QString ReadNotes(const QString &path, const QString &language)
    {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly) || file.size() > kMaxNotesSize) {
            Refuse("notes", QStringLiteral("%1 cannot be read as the %2 notes; name a text file of "
                                           "less than 1 MiB")
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
            Refuse("out", QStringLiteral("%1 is not a folder; name another").arg(m_tree.Folder()));
            return;
        }
        QFile file(m_tree.OfferFile());
        if (!file.exists())
            return;
        Offer published;
        if (!file.open(QIODevice::ReadOnly) || !ReadOffer(file.readAll(), published).isEmpty()) {
            Refuse("out", QStringLiteral("%1 is not a reply that was published; move it away, and "
                                         "see what wrote it")
                              .arg(m_tree.OfferFile()));
            return;
        }
        if (published.version == m_request.version) {
            Refuse("same-version",
                   QStringLiteral("the version %1 is the one published already, and "
                                  "who has it is not asked again; give the release a "
                                  "version of its own")
                       .arg(m_request.version));
        }
    }

    void CheckVersionAgainstOthers()
    {
        if (!ReleaseRules::CheckVersion(m_request.version).isEmpty())
            return;
        const QStringList published = PublishedVersions();
        if (!m_request.allowShorterVersion)
            Refuse(ReleaseRules::CheckVersionLength(m_request.version, published));
        m_outcome.warnings += ReleaseRules::WarnOfOlderVersion(m_request.version, published);
    }

    /// The versions of all releases that the tree still holds an offer or a package of.
    QStringList PublishedVersions() const
    {
        QStringList versions;
        QStringList offeredPackages;
        const QStringList answers = m_tree.AnswerFiles();
        for (const QString &path : answers) {
            QFile file(path);
            Offer offer;
            if (file.open(QIODevice::ReadOnly) && ReadOffer(file.readAll(), offer).isEmpty()) {
                versions.append(offer.version);
                offeredPackages.append(offer.id);
            }
        }
        const QStringList packages = m_tree.PackageNames();
        for (const QString &package : packages) {
            if (!offeredPackages.contains(package)) {
                versions.append(
                    ReleaseRules::VersionInName(package, m_offer.id, m_request.version));
            }
        }
        return versions;
    }

    Failure Publish()
    {
        StagedRelease staged(m_tree);
        if (Failure failure = staged.Begin())
            return failure;
        if (Failure failure = MakePackage(staged.PackagePath()))
            return failure;

        m_progress.Begin(QStringLiteral("digests"), QFileInfo(staged.PackagePath()).size());
        if (Failure failure = DigestFile(staged.PackagePath(), m_progress, m_offer.package))
            return failure;
        return staged.Publish(m_offer.id, OfferReply(m_offer), NoOfferReply(), IndexPage(m_offer));
    }

    Failure MakePackage(const QString &target)
    {
        if (!IsZip())
            return CopyInstaller(target);
        m_progress.Begin(QStringLiteral("packing"), m_client.totalSize);
        return WritePackage(m_request.source, ReleaseRules::TopFolder(m_offer.id), m_client.entries,
                            target, m_progress);
    }

    Failure CopyInstaller(const QString &target)
    {
        QFile from(m_request.source);
        QFile to(target);
        if (!from.open(QIODevice::ReadOnly)) {
            return Finding{QStringLiteral("unreadable"), QString(),
                           QStringLiteral("%1: %2; correct its permissions")
                               .arg(m_request.source, from.errorString())};
        }
        const Finding unwritable{QStringLiteral("unwritable"), QString(),
                                 QStringLiteral("%1 cannot be written; make room and see to the "
                                                "permissions")
                                     .arg(target)};
        const qint64 size = from.size();
        m_progress.Begin(QStringLiteral("copying"), size);
        if (!to.open(QIODevice::WriteOnly))
            return unwritable;
        for (qint64 left = size; left > 0;) {
            const QByteArray piece = from.read(qMin(left, kPieceSize));
            if (piece.isEmpty()) {
                return Finding{
                    QStringLiteral("changed"), QString(),
                    QStringLiteral("%1: cannot be read to its end; let nothing write to it")
                        .arg(m_request.source)};
            }
            if (to.write(piece) != piece.size())
                return unwritable;
            left -= piece.size();
            if (!m_progress.Advance(piece.size()))
                return Interrupted();
        }
        if (!HostSystem::SyncToDisk(to))
            return unwritable;
        return {};
    }

    /// What the exclusion kept out, for the summary; empty when that is nothing.
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
                           "  check    %8\n"
                           "  page     %9\n")
                .arg(m_offer.version, mode, package, SizeText(m_offer.package.size),
                     QString::number(m_offer.package.size), m_offer.package.md5,
                     m_offer.package.sha256, m_tree.OfferFile(), m_tree.IndexFile()) +
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
            {QStringLiteral("offer"), m_tree.OfferFile()},
            {QStringLiteral("none"), m_tree.NoOfferFile()},
            {QStringLiteral("index"), m_tree.IndexFile()}};
    }

    const Request &m_request;
    Progress &m_progress;
    ReleaseTree m_tree;
    ClientFolder m_client;
    Offer m_offer;
    Outcome m_outcome;
};

} // namespace

Outcome PublishRelease(const Request &request, Progress &progress)
{
    return Publisher(request, progress).Run();
}
