// SPDX-License-Identifier: MIT
#include "release/publish/publishing/knownpackages.h"

#include <QFile>
#include <QRegularExpression>

#include <algorithm>

namespace
{

constexpr int kMaxLine = 4096; // in bytes

Finding Refusal(const QString &message)
{
    return {QStringLiteral("known"), QString(), message};
}

} // namespace

Failure KnownPackages::Read(const QString &path)
{
    static const QRegularExpression digestLine(
        QStringLiteral("\\A([0-9A-Fa-f]{64}) [ *](.*[/\\\\])?([^/\\\\]+)\\z"));
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return Refusal(QStringLiteral("%1: %2; name the SHA256SUMS of an earlier tree")
                           .arg(path, file.errorString()));
    }
    bool isList = true;
    while (isList) {
        QString line = QString::fromUtf8(file.readLine(kMaxLine));
        if (line.isEmpty())
            break;
        while (line.endsWith(QLatin1Char('\n')) || line.endsWith(QLatin1Char('\r')))
            line.chop(1);
        const QRegularExpressionMatch match = digestLine.match(line);
        isList = match.hasMatch();
        m_packages.append({match.captured(3), match.captured(1).toLower()});
    }
    if (isList && !m_packages.isEmpty())
        return {};
    return Refusal(
        QStringLiteral(
            "%1 is not a list of SHA-256 digests; name the SHA256SUMS of an earlier tree")
            .arg(path));
}

bool KnownPackages::HasOtherBytes(const QString &id, const QString &sha256) const
{
    return std::any_of(m_packages.cbegin(), m_packages.cend(), [&](const Package &known) {
        return known.id == id && known.sha256 != sha256;
    });
}
