// SPDX-License-Identifier: MIT
#pragma once

#include <QRegularExpression>
#include <QString>
#include <QStringList>
#include <QVector>

/**
 * Patterns for the files of a client that are not packed, with "*", "?" and "[...]". Letter case is
 * ignored. A pattern without a slash applies to the names of files and folders anywhere, one with a
 * slash to the path relative to the client's folder. "*" does not match a slash.
 */
class Exclusion
{
public:
    /// The files that version control and file managers leave in folders.
    static QStringList Defaults();

    /// Whether @p text is a valid pattern.
    static bool IsPattern(const QString &text);

    explicit Exclusion(const QStringList &patterns = {});

    /// Whether a pattern matches @p path, which is relative to the client's folder, with forward
    /// slashes.
    bool Matches(const QString &path) const;

private:
    struct Pattern {
        bool isPath;
        QRegularExpression expression;
    };

    QVector<Pattern> m_patterns;
};
