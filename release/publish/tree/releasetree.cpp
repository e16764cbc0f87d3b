// SPDX-License-Identifier: MIT
#include "release/publish/tree/releasetree.h"

#include "release/publish/base/filedigests.h"
#include "release/publish/base/hostsystem.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>

const QString ReleaseTree::PackagesPath = QStringLiteral("/packages/");

QString ReleaseTree::GenerationName(int number, const QByteArray &json)
{
    return QStringLiteral("%1-%2").arg(number).arg(ShortDigest(json));
}

int ReleaseTree::GenerationNumber(const QString &name)
{
    return name.section(QLatin1Char('-'), 0, 0).toInt();
}

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

QString ReleaseTree::Current() const
{
    return m_folder + QStringLiteral("/check/now");
}

QString ReleaseTree::Generations() const
{
    return m_folder + QStringLiteral("/check/generations");
}

QString ReleaseTree::ListFile() const
{
    return Current() + QStringLiteral("/releases.json");
}

QString ReleaseTree::OfferFile(const Release &release) const
{
    return m_folder + QStringLiteral("/check/answers/") + release.AnswerName();
}

QString ReleaseTree::NoOfferFile() const
{
    return m_folder + QStringLiteral("/check/none.json");
}

QString ReleaseTree::StopFile() const
{
    return m_folder + QStringLiteral("/check/stop");
}

QString ReleaseTree::IndexFile() const
{
    return Current() + QStringLiteral("/index.html");
}

QString ReleaseTree::DigestsFile() const
{
    return Current() + QStringLiteral("/SHA256SUMS");
}

QString ReleaseTree::PackageFile(const QString &id) const
{
    return m_folder + PackagesPath + id;
}

QStringList ReleaseTree::PackageNames() const
{
    return QDir(m_folder + PackagesPath).entryList(QDir::Files);
}

Failure ReleaseTree::Read(ReleaseList &list) const
{
    list = {};
    QFile file(ListFile());
    // The very first generation may have been interrupted before the link to it existed.
    const QStringList generations =
        QDir(Generations()).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    const bool isNew = std::all_of(generations.cbegin(), generations.cend(),
                                   [](const QString &name) { return GenerationNumber(name) == 1; });
    if (isNew && !HostSystem::IsLink(Current()) && !QFileInfo::exists(Current()))
        return {};
    if (!file.open(QIODevice::ReadOnly)) {
        return Finding{QStringLiteral("releases"), QString(),
                       QStringLiteral("%1: %2; restore the tree from a backup")
                           .arg(file.fileName(), file.errorString())};
    }
    return ReadReleaseList(file.readAll(), list);
}

QByteArray DigestLines(const ReleaseList &list)
{
    QByteArray lines;
    for (const Release &release : list.releases) {
        const QString path = ReleaseTree::PackagesPath.mid(1) + release.id;
        lines += release.sha256.toLatin1() + "  " + path.toUtf8() + '\n';
    }
    return lines;
}
