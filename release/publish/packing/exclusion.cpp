// SPDX-License-Identifier: MIT
#include "release/publish/packing/exclusion.h"

#include <algorithm>

namespace
{

/// "build/" means the folder "build", as in other tools.
QString WithoutSlashAtEnd(QString pattern)
{
    while (pattern.endsWith(QLatin1Char('/')))
        pattern.chop(1);
    return pattern;
}

QRegularExpression ExpressionOf(const QString &pattern)
{
    return QRegularExpression(QRegularExpression::wildcardToRegularExpression(pattern),
                              QRegularExpression::CaseInsensitiveOption);
}

} // namespace

QStringList Exclusion::Defaults()
{
    return {QStringLiteral(".git"),           QStringLiteral(".gitignore"),
            QStringLiteral(".gitattributes"), QStringLiteral(".gitmodules"),
            QStringLiteral(".svn"),           QStringLiteral(".hg"),
            QStringLiteral(".DS_Store"),      QStringLiteral("Thumbs.db"),
            QStringLiteral("desktop.ini")};
}

bool Exclusion::IsPattern(const QString &text)
{
    const QRegularExpression expression = ExpressionOf(WithoutSlashAtEnd(text));
    return !text.isEmpty() && !text.startsWith(QLatin1Char('/')) && expression.isValid();
}

Exclusion::Exclusion(const QStringList &patterns)
{
    for (const QString &pattern : patterns) {
        const QString trimmed = WithoutSlashAtEnd(pattern);
        m_patterns.append({trimmed.contains(QLatin1Char('/')), ExpressionOf(trimmed)});
    }
}

bool Exclusion::Matches(const QString &path) const
{
    const QString name = path.mid(path.lastIndexOf(QLatin1Char('/')) + 1);
    return std::any_of(m_patterns.cbegin(), m_patterns.cend(), [&](const Pattern &pattern) {
        return pattern.expression.match(pattern.isPath ? path : name).hasMatch();
    });
}
