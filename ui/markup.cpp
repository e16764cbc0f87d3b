// SPDX-License-Identifier: MIT
#include "ui/markup.h"

#include <QStringList>
#include <QVector>

#include <algorithm>
#include <vector>

namespace
{

// In seconds; measured with Qt 5.15 and rounded up.
constexpr double kPerCharacter = 1e-6;
constexpr double kPerTag = 8e-6;
constexpr double kPerLevel = 45e-9; // for a tag, for each element around it
constexpr double kPerEarlierItem = 30e-9;
constexpr double kPerEarlierImage = 100e-9;
constexpr double kPerCell = 2e-6;
constexpr double kPerSelector = 0.3e-6;       // and element
constexpr double kPerSelectorOfParts = 25e-9; // and element, times the square of its depth

struct Tag {
    int end = 0; ///< position after its '>'
    QString name;
    bool closes = false;
    bool isEmpty = false; ///< contains no other element
    int columns = 1;
    bool spansRows = false;
};

/**
 * Reads one tag. Accepts only text that Qt's parser cannot read as a longer tag or as another
 * element: no '<' inside, and quotes only around values.
 */
class TagReader
{
public:
    TagReader(const QString &text, int start) : m_text(text), m_position(start + 1) {}

    bool Read(Tag &tag)
    {
        if (Take('!'))
            return ReadDeclaration(tag);
        tag.closes = Take('/');
        tag.name = ReadWhile(IsNameCharacter).toLower();
        if (tag.name.isEmpty() || !(Next().isSpace() || IsEnd()))
            return false;
        while (!Take('>'))
            if (!Take('/') && !TakeSpace() && !ReadAttribute(tag))
                return false;
        tag.end = m_position;
        tag.isEmpty = m_text.at(m_position - 2) == QLatin1Char('/') ||
                      tag.name == QLatin1String("br") || tag.name == QLatin1String("hr") ||
                      tag.name == QLatin1String("img");
        return true;
    }

private:
    static bool IsNameCharacter(QChar character)
    {
        return (character.unicode() < 0x80 && character.isLetterOrNumber()) ||
               QStringLiteral(":._-?").contains(character);
    }
    static bool IsWordCharacter(QChar character)
    {
        return !character.isSpace() && !QStringLiteral("<>\"'").contains(character);
    }
    static bool IsAttributeCharacter(QChar character)
    {
        return IsWordCharacter(character) && character != QLatin1Char('=') &&
               character != QLatin1Char('/');
    }

    QChar Next() const { return m_position < m_text.size() ? m_text.at(m_position) : QChar(); }

    bool IsEnd() const
    {
        return Next() == QLatin1Char('>') || m_text.midRef(m_position, 2) == QLatin1String("/>");
    }

    bool Take(char character)
    {
        const bool isNext = Next() == QLatin1Char(character);
        m_position += isNext ? 1 : 0;
        return isNext;
    }

    bool TakeSpace()
    {
        return !ReadWhile([](QChar next) { return next.isSpace(); }).isEmpty();
    }

    template <class Condition> QString ReadWhile(Condition condition)
    {
        const int start = m_position;
        while (m_position < m_text.size() && condition(m_text.at(m_position)))
            ++m_position;
        return m_text.mid(start, m_position - start);
    }

    bool ReadDeclaration(Tag &tag)
    {
        ReadWhile([](QChar next) { return next != QLatin1Char('<') && next != QLatin1Char('>'); });
        tag.isEmpty = Take('>');
        tag.end = m_position;
        return tag.isEmpty;
    }

    bool ReadAttribute(Tag &tag)
    {
        const QString name = ReadWhile(IsAttributeCharacter);
        if (name.isEmpty())
            return false;
        TakeSpace();
        QString value;
        if (Take('=') && !ReadValue(value))
            return false;
        if (name.compare(QLatin1String("colspan"), Qt::CaseInsensitive) == 0)
            tag.columns = qMax(tag.columns, Span(value));
        else if (name.compare(QLatin1String("rowspan"), Qt::CaseInsensitive) == 0)
            tag.spansRows = true;
        return true;
    }

    bool ReadValue(QString &value)
    {
        TakeSpace();
        const QChar quote = Next();
        if (!Take('"') && !Take('\'')) {
            value = ReadWhile(IsWordCharacter);
            return true;
        }
        value = ReadWhile([quote](QChar c) { return c != quote && c != QLatin1Char('<'); });
        // For Qt's parser "\'" does not end a value.
        return !value.endsWith(QLatin1Char('\\')) && Take(quote.toLatin1());
    }

    /// Anything but a plain number counts as the largest number that Qt accepts.
    static int Span(const QString &value)
    {
        constexpr int most = 20480;
        bool isNumber = false;
        const int span = value.toInt(&isNumber);
        return isNumber ? qBound(1, span, most) : most;
    }

    const QString &m_text;
    int m_position;
};

/// Estimates the parser's time for the style sheets.
class SheetCost
{
public:
    void Add(const QString &sheet)
    {
        const QStringList rules = sheet.split(QLatin1Char('}'));
        for (const QString &rule : rules)
            for (const QString &selector :
                 rule.section(QLatin1Char('{'), 0, 0).split(QLatin1Char(',')))
                AddSelector(selector.simplified());
    }

    void AddElement(double depth)
    {
        ++m_elements;
        m_squaredDepths += depth * depth;
    }

    double Seconds() const
    {
        return m_selectors * m_elements * kPerSelector +
               m_selectorsOfParts * m_squaredDepths * kPerSelectorOfParts;
    }

private:
    void AddSelector(const QString &selector)
    {
        static const QString combinators = QStringLiteral(" >+~");
        ++m_selectors;
        if (std::any_of(selector.begin(), selector.end(),
                        [](QChar character) { return combinators.contains(character); }))
            ++m_selectorsOfParts;
    }

    double m_elements = 0;
    double m_squaredDepths = 0;
    double m_selectors = 0;
    double m_selectorsOfParts = 0;
};

/// Counts the cells of a table. There may be many more than its tags name.
class TableSize
{
public:
    void AddRow()
    {
        ++m_rows;
        m_columnsOfRow = m_spanning;
        m_isInRow = true;
    }

    void EndRow() { m_isInRow = false; }

    void AddCell(const Tag &tag)
    {
        if (!m_isInRow)
            AddRow();
        m_columnsOfRow += tag.columns;
        m_columns = qMax(m_columns, m_columnsOfRow);
        if (tag.spansRows)
            m_spanning += tag.columns;
    }

    double Cells() const { return m_rows * m_columns; }

private:
    double m_rows = 0;
    double m_columns = 0;
    double m_columnsOfRow = 0;
    double m_spanning = 0; ///< columns of cells that may reach into later rows
    bool m_isInRow = false;
};

/// Follows the nesting of the elements and estimates the parser's time for them.
class ElementCost
{
public:
    void Add(const Tag &tag)
    {
        m_seconds += kPerTag + m_open.size() * kPerLevel;
        if (tag.closes)
            Close(tag.name);
        else
            Open(tag);
    }

    void AddText(const QString &text)
    {
        m_seconds += text.size() * kPerCharacter;
        if (!m_open.isEmpty() && m_open.last() == QLatin1String("style"))
            m_sheets.Add(text);
    }

    double Seconds() const
    {
        double cells = m_cells;
        for (const TableSize &table : m_tables)
            cells += table.Cells();
        return m_seconds + cells * kPerCell + m_sheets.Seconds();
    }

private:
    void Open(const Tag &tag)
    {
        m_sheets.AddElement(m_open.size());
        if (tag.name == QLatin1String("li"))
            m_seconds += m_items++ * kPerEarlierItem;
        else if (tag.name == QLatin1String("img"))
            m_seconds += m_images++ * kPerEarlierImage;
        else if (tag.name == QLatin1String("tr"))
            m_tables.back().AddRow();
        else if (tag.name == QLatin1String("td") || tag.name == QLatin1String("th"))
            m_tables.back().AddCell(tag);
        if (tag.isEmpty)
            return;
        m_open.append(tag.name);
        if (tag.name == QLatin1String("table"))
            m_tables.emplace_back();
    }

    /// Closes the innermost element with that name and all elements inside it.
    void Close(const QString &name)
    {
        const int element = m_open.lastIndexOf(name);
        while (element >= 0 && m_open.size() > element)
            if (m_open.takeLast() == QLatin1String("table"))
                EndTable();
        if (name == QLatin1String("tr"))
            m_tables.back().EndRow();
    }

    void EndTable()
    {
        m_cells += m_tables.back().Cells();
        m_tables.pop_back();
    }

    double m_seconds = 0;
    double m_cells = 0; ///< of the tables that are closed
    int m_items = 0;
    int m_images = 0;
    SheetCost m_sheets;
    QVector<QString> m_open;
    std::vector<TableSize> m_tables{1}; ///< the first one is for cells outside any table
};

class MarkupReader
{
public:
    explicit MarkupReader(const QString &notes)
        : m_notes(notes), m_lastCommentEnd(notes.lastIndexOf(kCommentEnd))
    {
    }

    /// Reads text and the tag that follows it. False at the end.
    bool ReadNext()
    {
        const int start = m_notes.indexOf(QLatin1Char('<'), m_position);
        ReadText(start < 0 ? m_notes.size() : start);
        if (start < 0)
            return false;
        if (IsComment())
            m_position =
                m_notes.indexOf(kCommentEnd, start + kCommentStart.size()) + kCommentEnd.size();
        else
            ReadTag();
        return true;
    }

    QString Html() const { return m_html; }
    double Seconds() const { return m_cost.Seconds(); }

private:
    void ReadText(int end)
    {
        const QString text = m_notes.mid(m_position, end - m_position);
        m_html.append(text);
        m_cost.AddText(text);
        m_position = end;
    }

    bool IsComment() const
    {
        const int content = m_position + kCommentStart.size();
        return content <= m_lastCommentEnd &&
               m_notes.midRef(m_position, kCommentStart.size()) == kCommentStart;
    }

    void ReadTag()
    {
        Tag tag;
        if (!TagReader(m_notes, m_position).Read(tag)) {
            m_html.append(QStringLiteral("&lt;"));
            ++m_position;
            return;
        }
        m_html.append(m_notes.midRef(m_position, tag.end - m_position));
        m_cost.Add(tag);
        m_position = tag.end;
    }

    static constexpr QLatin1String kCommentStart{"<!--", 4};
    static constexpr QLatin1String kCommentEnd{"-->", 3};

    const QString &m_notes;
    const int m_lastCommentEnd;
    int m_position = 0;
    QString m_html;
    ElementCost m_cost;
};

} // namespace

Markup ReadMarkup(const QString &notes, double maxSeconds)
{
    MarkupReader reader(notes);
    while (reader.Seconds() <= maxSeconds && reader.ReadNext())
        continue;
    return {reader.Html(), reader.Seconds()};
}
