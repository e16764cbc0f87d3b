#pragma once

#include <QRegularExpression>
#include <QString>
#include <QStringList>
#include <QVector>

/**
 * What of a client's folder stays out of its package: patterns with "*", "?" and "[...]", letter
 * case ignored. A pattern without a slash means the names of files and folders wherever they lie,
 * one with a slash the path below the client's folder; "*" stands for no slash.
 */
class Exclusion
{
public:
    /// What version control and file managers leave in a folder.
    static QStringList Defaults();

    /// False for a text that is no such pattern.
    static bool IsPattern(const QString &text);

    explicit Exclusion(const QStringList &patterns = {});

    /// @p path is the one below the client's folder, with forward slashes.
    bool Holds(const QString &path) const;

private:
    struct Pattern {
        bool isPath;
        QRegularExpression expression;
    };

    QVector<Pattern> m_patterns;
};
