// SPDX-License-Identifier: MIT
#include "tests/docs/document.h"

#include "tests/support/testhome.h"

#include <QRegularExpression>

namespace
{

const QLatin1String kFence("```");
const QLatin1String kQuote("cpp"); // what follows it is the path of the source
const QLatin1String kIndentedBlock("    ");

QStringList Cells(const QString &line)
{
    QStringList cells = line.split(QLatin1Char('|'));
    cells.removeFirst();
    cells.removeLast();
    for (QString &cell : cells)
        cell = cell.trimmed();
    return cells;
}

bool IsTableLine(const QString &line)
{
    return line.startsWith(QLatin1Char('|')) && line.endsWith(QLatin1Char('|'));
}

QStringList AllCaptured(const QString &pattern, const QString &text)
{
    QStringList captured;
    auto matches = QRegularExpression(pattern).globalMatch(text);
    while (matches.hasNext())
        captured.append(matches.next().captured(1));
    return captured;
}

} // namespace

QString ProjectPath(const QString &path)
{
    return QStringLiteral(PROJECT_DIR "/") + path;
}

Document::Document(const QString &path)
{
    bool inFence = false;
    const QStringList lines =
        QString::fromUtf8(ReadFile(ProjectPath(path))).split(QLatin1Char('\n'));
    for (const QString &line : lines) {
        const QString text = line.trimmed();
        if (text.startsWith(kFence)) {
            inFence = !inFence;
            if (inFence)
                m_fenced.append({text.mid(kFence.size()), QByteArray()});
        } else if (inFence) {
            m_fenced.last().second += line.toUtf8() + '\n';
        } else if (!line.startsWith(kIndentedBlock)) {
            m_text.append(line);
        }
    }
}

QVector<QByteArray> Document::Fenced(const QString &language) const
{
    QVector<QByteArray> blocks;
    for (const auto &block : m_fenced) {
        if (block.first == language)
            blocks.append(block.second);
    }
    return blocks;
}

QVector<QPair<QString, QByteArray>> Document::Quotes() const
{
    QVector<QPair<QString, QByteArray>> quotes;
    for (const auto &block : m_fenced) {
        if (block.first.startsWith(kQuote))
            quotes.append({block.first.mid(kQuote.size()).trimmed(), block.second});
    }
    return quotes;
}

QVector<QStringList> Document::Rows(const QString &firstHeader) const
{
    QVector<QStringList> rows;
    bool inTable = false;
    bool wanted = false;
    for (const QString &line : m_text) {
        if (!IsTableLine(line)) {
            inTable = false;
            continue;
        }
        const QStringList cells = Cells(line);
        if (!inTable) {
            inTable = true;
            wanted = cells.first() == firstHeader;
        } else if (wanted && !cells.first().startsWith(QLatin1String("---"))) {
            rows.append(cells);
        }
    }
    return rows;
}

QStringList Document::Links() const
{
    return AllCaptured(QStringLiteral("\\]\\(([^()\\s]+)\\)"), m_text.join(QLatin1Char('\n')));
}

QStringList Document::Anchors() const
{
    QStringList anchors;
    for (const QString &line : m_text) {
        if (!line.startsWith(QLatin1Char('#')))
            continue;
        QString anchor = line.mid(line.indexOf(QLatin1Char(' ')) + 1).toLower();
        anchor.remove(QRegularExpression(QStringLiteral("[^\\w -]")));
        anchors.append(anchor.replace(QLatin1Char(' '), QLatin1Char('-')));
    }
    return anchors;
}

QString Quoted(const QString &cell)
{
    return AllQuoted(cell).value(0);
}

QStringList AllQuoted(const QString &cell)
{
    return AllCaptured(QStringLiteral("`([^`]+)`"), cell);
}
