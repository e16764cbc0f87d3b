// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

/// Full path of a file or folder of the project, from its path in the project.
QString ProjectPath(const QString &path);

/**
 * A Markdown document of the project, taken apart as far as it can be checked against the program:
 * fenced blocks, tables, headings and links. Fails the program when it cannot be read. Any thread.
 */
class Document
{
public:
    /// @p path is the document's in the project, such as "docs/client.md".
    explicit Document(const QString &path);

    /// What the fenced blocks of that language hold, in their order.
    QVector<QByteArray> Fenced(const QString &language) const;

    /// The fenced blocks of C++, each with the path of the source that it is quoted from.
    QVector<QPair<QString, QByteArray>> Quotes() const;

    /// The cells of each row of the tables whose header begins with @p firstHeader.
    QVector<QStringList> Rows(const QString &firstHeader) const;

    /// Where the links lead that stand in the text, pictures included.
    QStringList Links() const;

    /// What a link to each heading has behind its "#".
    QStringList Anchors() const;

private:
    QStringList m_text;                           ///< the lines outside fenced and indented blocks
    QVector<QPair<QString, QByteArray>> m_fenced; ///< language and content
};

/// The first text in back-quotes, without these but with its blanks; a null string without any.
QString Quoted(const QString &cell);

/// Every text in back-quotes.
QStringList AllQuoted(const QString &cell);
