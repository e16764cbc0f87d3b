// SPDX-License-Identifier: MIT
#include "release/publish/checking/verifyrelease.h"

#include "config/servicecontract.h"
#include "release/publish/base/hostsystem.h"
#include "release/publish/checking/zipcheck.h"
#include "release/publish/rules/releaserules.h"
#include "release/publish/rules/signature.h"
#include "release/publish/rules/versionfile.h"
#include "release/publish/tree/decisions.h"
#include "release/publish/tree/indexpage.h"
#include "release/publish/tree/releasetree.h"
#include "release/publish/tree/reply.h"
#include "release/publish/tree/treechange.h"

#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QtGui/private/qzipreader_p.h>

namespace
{

/// Checks a tree release by release and collects the findings.
class Verifier
{
public:
    Verifier(const Request &request, Progress &progress)
        : m_request(request), m_tree(request.source), m_progress(progress)
    {
    }

    Outcome Run()
    {
        if (!QFileInfo(m_tree.Folder()).isDir()) {
            Refuse(
                "missing",
                QStringLiteral("%1 is not a folder; name the release tree").arg(m_tree.Folder()));
            return m_outcome;
        }
        QByteArray noOffer;
        if (Read(m_tree.NoOfferFile(), noOffer))
            Refuse(CheckNoOffer(noOffer));
        ReleaseList list;
        if (Failure failure = m_tree.Read(list)) {
            Refuse({*failure});
            return m_outcome;
        }
        QByteArray json;
        if (!Read(m_tree.ListFile(), json))
            return m_outcome;
        CheckGeneration(list);
        Refuse(FindUnreadable(m_tree, list));
        for (const Release &release : qAsConst(list.releases))
            CheckRelease(release);
        // The page is about the newest release, which was checked last.
        if (!list.releases.isEmpty() && m_outcome.refusals.isEmpty())
            CheckIndex();
        if (!m_outcome.refusals.isEmpty()) {
            m_outcome.summary.clear();
            m_outcome.facts = {};
        }
        return m_outcome;
    }

private:
    void Refuse(const Findings &findings) { m_outcome.refusals += findings; }

    void Refuse(const char *rule, const QString &message)
    {
        m_outcome.refusals.append({QString::fromLatin1(rule), QString(), message});
    }

    bool Read(const QString &path, QByteArray &content)
    {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            Refuse("missing",
                   QStringLiteral("%1 cannot be read; publish the release again").arg(path));
            return false;
        }
        content = file.readAll();
        return true;
    }

    /// Checks that the generation contains exactly what follows from the list.
    void CheckGeneration(const ReleaseList &list)
    {
        const auto wrong = [this](const QString &path) {
            Refuse(
                "decisions",
                QStringLiteral("%1 does not match the list of releases; roll out a release again")
                    .arg(path));
        };
        QByteArray digests;
        if (Read(m_tree.DigestsFile(), digests) && digests != DigestLines(list))
            wrong(m_tree.DigestsFile());
        if (!HostSystem::HasLinks())
            return;
        const QMap<QString, QString> links = DecisionLinks(list);
        for (auto link = links.cbegin(); link != links.cend(); ++link) {
            const QString path = m_tree.Current() + QLatin1Char('/') + link.key();
            const bool isRight =
                link->isEmpty() ? QFileInfo(path).isDir() : HostSystem::LinkText(path) == *link;
            if (!isRight) {
                wrong(path);
                return;
            }
        }
        int found = 0;
        QDirIterator it(QFileInfo(m_tree.Current()).canonicalFilePath(),
                        QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                        QDirIterator::Subdirectories);
        while (it.hasNext()) {
            it.next();
            // Plain files do not decide anything.
            found += it.fileInfo().isFile() && !it.fileInfo().isSymLink() ? 0 : 1;
        }
        if (found != links.size())
            wrong(m_tree.Current());
    }

    void CheckRelease(const Release &release)
    {
        QByteArray reply;
        m_offer = {};
        m_entries = 0;
        if (!Read(m_tree.OfferFile(release), reply))
            return;
        const Findings wrong = ReadOffer(reply, m_offer);
        Refuse(wrong);
        if (!wrong.isEmpty())
            return;
        if (m_offer.version != release.version || m_offer.id != release.id ||
            m_offer.kind != release.kind || m_offer.forced != release.forced) {
            Refuse("reply",
                   QStringLiteral(
                       "%1 is about another release than the list; publish the release again")
                       .arg(m_tree.OfferFile(release)));
            return;
        }
        CheckOffer();
        CheckNotes();
        // The package of a release that was rolled back may be removed.
        if (!release.isWithdrawn || QFileInfo::exists(m_tree.PackageFile(release.id)))
            CheckPackage(release);
        if (m_outcome.refusals.isEmpty())
            DescribeResult();
    }

    void CheckOffer()
    {
        Refuse(ReleaseRules::CheckVersion(m_offer.version));
        Refuse(m_offer.kind == ServiceContract::ZipPackage
                   ? ReleaseRules::CheckZipName(m_offer.id)
                   : ReleaseRules::CheckInstallerName(m_offer.id));
        const QString end = ReleaseTree::PackagesPath + m_offer.id;
        if (!m_offer.url.endsWith(end)) {
            Refuse("reply",
                   QStringLiteral(
                       "the reply's \"%1\" does not end with \"%2\"; publish the release again")
                       .arg(ServiceContract::Key::LatestVersionUrl, end));
        }
    }

    void CheckNotes()
    {
        if (m_offer.notes.count(ServiceContract::NotesSeparator) != 1) {
            Refuse("notes", QStringLiteral("the notes contain \"&\" %1 times instead of once, "
                                           "between the languages; publish the release again")
                                .arg(m_offer.notes.count(ServiceContract::NotesSeparator)));
            return;
        }
        CheckNotesOf(QStringLiteral("zh"), QStringLiteral("Chinese"));
        CheckNotesOf(QStringLiteral("en"), QStringLiteral("English"));
    }

    void CheckNotesOf(const QString &code, const QString &language)
    {
        const QString notes = NotesFor(m_offer, code);
        Refuse(ReleaseRules::CheckNotes(notes, language));
        m_outcome.warnings += ReleaseRules::WarnOfNotes(notes, language);
    }

    void CheckPackage(const Release &release)
    {
        // A name that leads to another folder was already refused.
        if (m_offer.id.contains(QLatin1Char('/')))
            return;
        const QString path = m_tree.PackageFile(m_offer.id);
        if (!QFileInfo(path).isFile()) {
            Refuse("missing", QStringLiteral("%1 is missing; publish the release again").arg(path));
            return;
        }
        m_progress.Begin(QStringLiteral("digests"), QFileInfo(path).size());
        FileDigests found;
        if (Failure failure = DigestFile(path, m_progress, found)) {
            Refuse({*failure});
            return;
        }
        Refuse(ReleaseRules::CheckPackageSize(found.size));
        CompareDigests(found, release);
        m_offer.package = found;
        if (m_offer.kind == ServiceContract::ZipPackage)
            CheckZip(path, release);
        else
            CheckInstaller(path);
    }

    void CheckInstaller(const QString &path)
    {
        Refuse(Signature::CheckInstaller(path, m_request.signature));
        QFile file(path);
        if (file.open(QIODevice::ReadOnly)) {
            m_outcome.warnings +=
                ReleaseRules::WarnOfInstaller(path, file.read(ReleaseRules::InstallerBeginning));
        }
    }

    void CompareDigests(const FileDigests &found, const Release &release)
    {
        const auto compare = [this](const QString &what, const QString &said, const QString &is) {
            if (said != is) {
                Refuse(
                    "digest",
                    QStringLiteral(
                        "the package's %1 is %2, but the tree says %3; publish the release again")
                        .arg(what, is, said));
            }
        };
        compare(QStringLiteral("size"), QString::number(m_offer.package.size),
                QString::number(found.size));
        compare(QStringLiteral("MD5"), m_offer.package.md5, found.md5);
        compare(QStringLiteral("SHA-1"), m_offer.package.sha1, found.sha1);
        compare(QStringLiteral("SHA-256"), release.sha256, found.sha256);
    }

    void CheckIndex()
    {
        QByteArray page;
        if (Read(m_tree.IndexFile(), page))
            Refuse(CheckIndexPage(page, m_offer));
    }

    void CheckZip(const QString &path, const Release &release)
    {
        const ZipContents contents = CheckZipPackage(path, m_offer.id, m_progress);
        Refuse(contents.findings);
        Refuse(Signature::CheckZip(path, m_request.signature, m_progress));
        m_entries = contents.entries.size() + 1; // including the top folder
        const Findings updater =
            ReleaseRules::CheckUpdaterFolder(contents.entries, m_request.updaterFolder);
        (m_request.allowUpdater ? m_outcome.warnings : m_outcome.refusals) += updater;
        m_outcome.warnings +=
            ReleaseRules::WarnOfEntries(ReleaseRules::TopFolder(m_offer.id), contents.entries);
        if (!release.configFile.isEmpty() && contents.findings.isEmpty())
            CheckVersionFile(path, release, contents.entries);
    }

    void CheckVersionFile(const QString &path, const Release &release,
                          const QVector<ReleaseRules::Entry> &entries)
    {
        QZipReader reader(path);
        const QString entry =
            ReleaseRules::TopFolder(release.id) + QLatin1Char('/') + release.configFile;
        Refuse(VersionFile::Check(release.configFile, reader.fileData(entry), release.version));
        m_outcome.warnings += VersionFile::WarnOfOrder(release.configFile, entries);
    }

    void DescribeResult()
    {
        m_outcome.summary += QStringLiteral("%1: version %2 follows every rule (%3, %4, MD5 %5).\n")
                                 .arg(m_tree.Folder(), m_offer.version, m_offer.id,
                                      SizeText(m_offer.package.size), m_offer.package.md5);
        m_outcome.facts = {{QStringLiteral("version"), m_offer.version},
                           {QStringLiteral("id"), m_offer.id},
                           {QStringLiteral("size"), m_offer.package.size},
                           {QStringLiteral("md5"), m_offer.package.md5},
                           {QStringLiteral("sha256"), m_offer.package.sha256},
                           {QStringLiteral("entries"), m_entries}};
    }

    const Request &m_request;
    ReleaseTree m_tree;
    Progress &m_progress;
    Offer m_offer;
    int m_entries = 0; ///< in a zip package; 0 for an installer
    Outcome m_outcome;
};

} // namespace

Outcome VerifyRelease(const Request &request, Progress &progress)
{
    return Verifier(request, progress).Run();
}
