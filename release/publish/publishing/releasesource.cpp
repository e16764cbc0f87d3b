// SPDX-License-Identifier: MIT
#include "release/publish/publishing/releasesource.h"

#include "config/servicecontract.h"
#include "release/publish/base/cannotwrite.h"
#include "release/publish/base/hostsystem.h"
#include "release/publish/packing/exclusion.h"
#include "release/publish/packing/packagewriter.h"
#include "release/publish/rules/releaserules.h"
#include "release/publish/rules/signature.h"
#include "release/publish/rules/versionfile.h"
#include "release/publish/tree/releasetree.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>

namespace
{

constexpr qint64 kPieceSize = 1024LL * 1024;

/// Whether the tree would become part of the package.
bool LiesIn(const QString &treeFolder, const QString &clientFolder)
{
    const QString client = QDir(clientFolder).canonicalPath();
    QDir tree(treeFolder);
    // While a folder does not exist yet, its nearest parent decides.
    while (!tree.exists() && !tree.isRoot())
        tree.setPath(QFileInfo(tree.path()).path());
    const QString path = tree.canonicalPath() + QLatin1Char('/');
    return path.startsWith(client + QLatin1Char('/'));
}

Failure CopyFile(const QString &source, const QString &target, Progress &progress)
{
    QFile from(source);
    QFile to(target);
    if (!from.open(QIODevice::ReadOnly)) {
        return Finding{
            QStringLiteral("unreadable"), QString(),
            QStringLiteral("%1: %2; correct its permissions").arg(source, from.errorString())};
    }
    const qint64 size = from.size();
    progress.Begin(QStringLiteral("copying"), size);
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
        if (!progress.Advance(piece.size()))
            return Interrupted();
    }
    if (!HostSystem::SyncToDisk(to))
        return CannotWrite(to);
    return {};
}

} // namespace

ReleaseSource::ReleaseSource(const Request &request, Progress &progress, Offer &offer,
                             Outcome &outcome)
    : m_request(request), m_progress(progress), m_offer(offer), m_outcome(outcome)
{
}

void ReleaseSource::Check(const QString &treeFolder)
{
    m_offer.version = m_request.version;
    m_offer.forced = m_request.forced;
    switch (m_request.command) {
    case Request::Zip:
        CheckClientFolder(treeFolder);
        break;
    case Request::Promote:
        CheckPromotion();
        break;
    default:
        CheckInstaller();
        break;
    }
}

bool ReleaseSource::HasListedDigest(const QString &sha256) const
{
    return m_request.command != Request::Promote || m_promoted.sha256 == sha256;
}

/// Takes all data of the release from the tree that it comes from.
void ReleaseSource::CheckPromotion()
{
    const ReleaseTree from(m_request.source);
    ReleaseList list;
    if (const Failure failure = from.Read(list)) {
        Refuse(*failure);
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

void ReleaseSource::CheckClientFolder(const QString &treeFolder)
{
    m_offer.kind = ServiceContract::ZipPackage;
    m_offer.id =
        ReleaseRules::PackageFileName(m_request.name, m_request.version, ReleaseRules::ZipSuffix);
    Refuse(ReleaseRules::CheckZipName(m_offer.id));
    const QString folder = m_request.source;
    if (!QFileInfo(folder).isDir()) {
        Refuse("source",
               QStringLiteral("%1 is not a folder; name the folder of the new client").arg(folder));
        return;
    }
    if (LiesIn(treeFolder, folder)) {
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

void ReleaseSource::CheckVersionFile()
{
    m_configFile = QDir::cleanPath(m_request.configFile);
    const bool isPacked =
        std::any_of(m_client.entries.cbegin(), m_client.entries.cend(), [this](const auto &entry) {
            return !entry.isFolder && entry.path == m_configFile;
        });
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

void ReleaseSource::CheckInstaller()
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

Failure ReleaseSource::MakePackage(const QString &target) const
{
    if (!m_packageFile.isEmpty())
        return CopyFile(m_packageFile, target, m_progress);
    m_progress.Begin(QStringLiteral("packing"), m_client.totalSize);
    return WritePackage(m_request.source, ReleaseRules::TopFolder(m_offer.id), m_client.entries,
                        target, m_progress);
}

void ReleaseSource::Refuse(const Findings &findings)
{
    m_outcome.refusals += findings;
}

void ReleaseSource::Refuse(const Failure &failure)
{
    if (failure)
        m_outcome.refusals.append(*failure);
}

void ReleaseSource::Refuse(const char *rule, const QString &message)
{
    m_outcome.refusals.append({QString::fromLatin1(rule), QString(), message});
}
