#include "release/publish/verifyrelease.h"

#include "net/servicecontract.h"
#include "release/publish/indexpage.h"
#include "release/publish/releaserules.h"
#include "release/publish/releasetree.h"
#include "release/publish/reply.h"
#include "release/publish/zipcheck.h"

#include <QFile>
#include <QFileInfo>

namespace
{

/// One release being looked at; findings add up.
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
        QByteArray offer;
        if (!Read(m_tree.OfferFile(), offer))
            return m_outcome;
        const Findings wrong = ReadOffer(offer, m_offer);
        Refuse(wrong);
        if (!wrong.isEmpty())
            return m_outcome;
        CheckOffer();
        CheckNotes();
        CheckPackage();
        if (m_outcome.refusals.isEmpty())
            DescribeResult();
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
            Refuse("missing", QStringLiteral("%1 cannot be read; publish again").arg(path));
            return false;
        }
        content = file.readAll();
        return true;
    }

    void CheckOffer()
    {
        Refuse(ReleaseRules::CheckVersion(m_offer.version));
        Refuse(m_offer.kind == Global::ZipPackage ? ReleaseRules::CheckZipName(m_offer.id)
                                                  : ReleaseRules::CheckInstallerName(m_offer.id));
        const QString end = ReleaseTree::PackagesPath + m_offer.id;
        if (!m_offer.url.endsWith(end)) {
            Refuse("reply", QStringLiteral("the reply's \"%1\" does not end in \"%2\"; publish it "
                                           "again")
                                .arg(ServiceContract::Key::LatestVersionUrl, end));
        }
    }

    void CheckNotes()
    {
        if (m_offer.notes.count(ServiceContract::NotesSeparator) != 1) {
            Refuse("notes",
                   QStringLiteral("the notes hold \"&\" %1 times, once between the languages "
                                  "is right; publish again")
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

    void CheckPackage()
    {
        // The name was refused already when it leads elsewhere.
        if (m_offer.id.contains(QLatin1Char('/')))
            return;
        const QString path = m_tree.PackageFile(m_offer.id);
        if (!QFileInfo(path).isFile()) {
            Refuse("missing", QStringLiteral("%1 is not there; publish again").arg(path));
            return;
        }
        m_progress.Begin(QStringLiteral("digests"), QFileInfo(path).size());
        FileDigests found;
        if (Failure failure = DigestFile(path, m_progress, found)) {
            Refuse({*failure});
            return;
        }
        Refuse(ReleaseRules::CheckPackageSize(found.size));
        CompareDigests(found);
        CheckIndex(found);
        if (m_offer.kind == Global::ZipPackage)
            CheckZip(path);
        else
            CheckInstaller(path);
    }

    void CheckInstaller(const QString &path)
    {
        QFile file(path);
        if (file.open(QIODevice::ReadOnly)) {
            m_outcome.warnings +=
                ReleaseRules::WarnOfInstaller(path, file.read(ReleaseRules::InstallerBeginning));
        }
    }

    void CompareDigests(const FileDigests &found)
    {
        const auto compare = [this](const QString &what, const QString &said, const QString &is) {
            if (said != is) {
                Refuse("digest", QStringLiteral("the package's %1 is %2, and the reply says %3; "
                                                "publish again")
                                     .arg(what, is, said));
            }
        };
        compare(QStringLiteral("size"), QString::number(m_offer.package.size),
                QString::number(found.size));
        compare(QStringLiteral("MD5"), m_offer.package.md5, found.md5);
        compare(QStringLiteral("SHA-1"), m_offer.package.sha1, found.sha1);
    }

    void CheckIndex(const FileDigests &found)
    {
        QByteArray page;
        if (!Read(m_tree.IndexFile(), page))
            return;
        m_offer.package = found;
        Refuse(CheckIndexPage(page, m_offer));
    }

    void CheckZip(const QString &path)
    {
        const ZipContents contents = CheckZipPackage(path, m_offer.id, m_progress);
        Refuse(contents.findings);
        m_entries = contents.entries.size() + 1; // and the top folder
        const Findings updater =
            ReleaseRules::CheckUpdaterFolder(contents.entries, m_request.updaterFolder);
        (m_request.allowUpdater ? m_outcome.warnings : m_outcome.refusals) += updater;
        m_outcome.warnings +=
            ReleaseRules::WarnOfEntries(ReleaseRules::TopFolder(m_offer.id), contents.entries);
    }

    void DescribeResult()
    {
        m_outcome.summary = QStringLiteral("%1: version %2 keeps every rule (%3, %4, MD5 %5).\n")
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
    int m_entries = 0; ///< of a zip package; 0 for an installer
    Outcome m_outcome;
};

} // namespace

Outcome VerifyRelease(const Request &request, Progress &progress)
{
    return Verifier(request, progress).Run();
}
