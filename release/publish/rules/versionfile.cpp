// SPDX-License-Identifier: MIT
#include "release/publish/rules/versionfile.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>

#include <algorithm>

namespace
{

const QString kClient = QStringLiteral("client");
const QString kVersion = QStringLiteral("version");

/// Whether xcopy copies @p one before @p other.
bool IsCopiedBefore(const QString &one, const QString &other)
{
    const QStringList first = one.split(QLatin1Char('/'));
    const QStringList second = other.split(QLatin1Char('/'));
    int depth = 0;
    while (depth < first.size() - 1 && depth < second.size() - 1 &&
           first.at(depth).compare(second.at(depth), Qt::CaseInsensitive) == 0)
        ++depth;
    const bool isFile = depth == first.size() - 1;
    const bool isOtherFile = depth == second.size() - 1;
    if (isFile != isOtherFile)
        return isFile;
    // Windows sorts names by their upper-case letters.
    return first.at(depth).toUpper() < second.at(depth).toUpper();
}

} // namespace

Findings VersionFile::Check(const QString &path, const QByteArray &content, const QString &version)
{
    const QString found = QJsonDocument::fromJson(content)
                              .object()
                              .value(kClient)
                              .toObject()
                              .value(kVersion)
                              .toString();
    if (found == version)
        return {};
    const QString told = found.isEmpty()
                             ? QStringLiteral("has no version at \"client\", \"version\"")
                             : QStringLiteral("has the version %1").arg(ReleaseRules::Shown(found));
    return {{QStringLiteral("config-version"), path,
             QStringLiteral("%1 %2, but the release is %3: the update would be offered again at "
                            "every start; correct one of them")
                 .arg(ReleaseRules::Shown(path), told, ReleaseRules::Shown(version))}};
}

int VersionFile::FilesCopiedAfter(const QString &path, const QVector<ReleaseRules::Entry> &entries)
{
    return int(
        std::count_if(entries.cbegin(), entries.cend(), [&path](const ReleaseRules::Entry &entry) {
            return !entry.isFolder && IsCopiedBefore(path, entry.path);
        }));
}

Findings VersionFile::WarnOfOrder(const QString &path, const QVector<ReleaseRules::Entry> &entries)
{
    const int later = FilesCopiedAfter(path, entries);
    if (later == 0)
        return {};
    return {{QStringLiteral("config-order"), path,
             QStringLiteral("%1 is copied before %2 other %3: if the copy is interrupted in "
                            "between, the client looks up to date although it is not; put it where "
                            "it is copied last, such as ~version/version.json")
                 .arg(ReleaseRules::Shown(path))
                 .arg(later)
                 .arg(later == 1 ? QStringLiteral("file") : QStringLiteral("files"))}};
}
