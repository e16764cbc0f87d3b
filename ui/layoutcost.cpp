// SPDX-License-Identifier: MIT
#include "ui/layoutcost.h"

#include <QFont>
#include <QMap>
#include <QSet>
#include <QTextBlock>
#include <QTextDocument>
#include <QTextFrame>
#include <QTextLength>
#include <QTextTable>
#include <QVector>

#include <cmath>
#include <limits>
#include <set>

namespace
{

// In seconds; measured with Qt 5.15. Qt computes the layout of a table's contents several times.
constexpr double kPerBlock = 10e-6;
constexpr double kPerBlockInTable = 25e-6;
constexpr double kPerCharacter = 1e-6;
constexpr double kPerGlyph = 5e-6; // of a script with so many that most have not been drawn before
constexpr double kPerStackedMark = 15e-6;
constexpr double kPerSquaredLetter = 7e-9; // of text that cannot be broken, in a narrow space
constexpr double kPerCrowdedCharacter = 30e-6;
constexpr double kPerFont = 1e-3;
constexpr double kPerFloat = 0.5e-6; // and for each line next to it
constexpr double kPerImage = 0.1e-3;
constexpr double kPerLargeImage = 1e-3;

constexpr double kLargeImage = 100.0 * 100; // pixels

// From these values on, more letters than usual are visible at once, and all are drawn.
constexpr double kCrowdedFont = 6;        // pixels
constexpr double kCrowdedSpacing = -2;    // pixels
constexpr double kCrowdedLineHeight = 50; // per cent

constexpr int kStackedMarks = 4;

// Qt's fixed-point numbers end at 2^25 pixels.
constexpr double kMaxHeight = 1 << 24;

bool IsBreak(QChar character)
{
    const bool isIdeograph = character.unicode() >= 0x2e80 && character.unicode() < 0xa000;
    return isIdeograph || character.isSpace();
}

/// @p repetitions is the number of times that Qt computes the layout of the text.
double TextSeconds(const QString &text, double repetitions)
{
    double seconds = text.size() * kPerCharacter * repetitions;
    double squares = 0;
    double run = 0;
    int marks = 0;
    for (const QChar character : text) {
        run = IsBreak(character) ? 0 : run + 1;
        squares += 2 * run; // the sum of these is the square of the length
        marks = character.isMark() ? marks + 1 : 0;
        seconds += character.unicode() < 0x300 ? 0 : kPerGlyph;
        seconds += marks > kStackedMarks ? kPerStackedMark : 0;
    }
    return seconds + squares * kPerSquaredLetter * repetitions;
}

double FontPixels(const QFont &font)
{
    constexpr double pixelsPerPoint = 96.0 / 72;
    constexpr double ordinary = 12; // without a window system a font may have no size
    if (font.pixelSize() > 0)
        return font.pixelSize();
    return font.pointSizeF() > 0 ? font.pointSizeF() * pixelsPerPoint : ordinary;
}

bool IsCrowded(const QTextCharFormat &format)
{
    return FontPixels(format.font()) < kCrowdedFont ||
           format.doubleProperty(QTextFormat::FontLetterSpacing) < kCrowdedSpacing ||
           format.doubleProperty(QTextFormat::FontWordSpacing) < kCrowdedSpacing;
}

bool IsCrowded(const QTextBlockFormat &format)
{
    switch (format.lineHeightType()) {
    case QTextBlockFormat::ProportionalHeight:
        return format.lineHeight() < kCrowdedLineHeight;
    case QTextBlockFormat::FixedHeight:
        return format.lineHeight() < kCrowdedFont;
    default:
        return false;
    }
}

/// An upper limit, in pixels.
double LineHeight(const QTextBlockFormat &format, double font)
{
    const double ordinary = 2 * font;
    if (format.lineHeightType() == QTextBlockFormat::SingleHeight)
        return ordinary;
    if (format.lineHeightType() == QTextBlockFormat::ProportionalHeight)
        return ordinary * qMax(1.0, format.lineHeight() / 100);
    return ordinary + format.lineHeight();
}

/// All frames, tables and floating images. They are found by their formats, because Qt builds the
/// tree of frames only at the end of the edit.
QVector<QTextFrame *> Frames(const QTextDocument &document)
{
    std::set<int> indices;
    const QVector<QTextFormat> formats = document.allFormats();
    for (const QTextFormat &format : formats)
        indices.insert(format.objectIndex());
    QVector<QTextFrame *> frames;
    for (const int index : indices)
        if (auto *frame = qobject_cast<QTextFrame *>(document.object(index)))
            frames.append(frame);
    return frames;
}

/// The largest length in the format of any frame, table or cell, whatever it is for; but not their
/// widths.
double LargestFrameLength(const QTextDocument &document)
{
    double largest = 0;
    const QVector<QTextFormat> formats = document.allFormats();
    for (const QTextFormat &format : formats) {
        if (!format.isFrameFormat() && !format.isTableCellFormat())
            continue;
        const QMap<int, QVariant> properties = format.properties();
        for (auto property = properties.begin(); property != properties.end(); ++property) {
            const QVariant &value = property.value();
            double length = 0;
            if (value.userType() == QMetaType::Double)
                length = std::abs(value.toDouble());
            else if (property.key() == QTextFormat::FrameHeight)
                length = value.value<QTextLength>().rawValue();
            if (!std::isfinite(length))
                return std::numeric_limits<double>::infinity();
            largest = qMax(largest, length);
        }
    }
    return largest;
}

/// Adds up the cost of a document.
class DocumentCost
{
public:
    explicit DocumentCost(const QTextDocument &document)
    {
        AddFrames(document);
        for (QTextBlock block = document.begin(); block.isValid(); block = block.next())
            AddBlock(block);
    }

    double Seconds() const
    {
        // Written like this so that NaN counts as too high.
        if (!(m_height < kMaxHeight))
            return std::numeric_limits<double>::infinity();
        return m_seconds + m_fonts.size() * kPerFont + m_floats * (m_floats + m_lines) * kPerFloat;
    }

private:
    void AddFrames(const QTextDocument &document)
    {
        constexpr int sides = 4; // margin, border and padding, and the gap between two cells
        const double length = LargestFrameLength(document);
        const QVector<QTextFrame *> frames = Frames(document);
        for (const QTextFrame *frame : frames) {
            if (frame->frameFormat().position() != QTextFrameFormat::InFlow)
                ++m_floats;
            m_height += sides * 2 * length;
            if (const auto *table = qobject_cast<const QTextTable *>(frame)) {
                m_height += sides * 2 * length * table->rows();
                ++m_depthSteps[table->firstPosition()];
                --m_depthSteps[table->lastPosition() + 1];
            }
        }
    }

    void AddBlock(const QTextBlock &block)
    {
        const int tables = TablesAround(block.position());
        const double repetitions = std::ldexp(1, tables);
        m_seconds += tables > 0 ? kPerBlockInTable * repetitions : kPerBlock;
        m_seconds += TextSeconds(block.text(), repetitions);
        const QTextBlockFormat format = block.blockFormat();
        double font = FontPixels(block.charFormat().font());
        for (auto it = block.begin(); !it.atEnd(); ++it)
            font = qMax(font, AddFragment(it.fragment(), IsCrowded(format)));
        // There may be as many lines as characters when the space is narrow.
        m_height += LineHeight(format, font) * block.length();
        m_height += std::abs(format.topMargin()) + std::abs(format.bottomMargin());
        constexpr double charactersPerLine = 10;
        m_lines += 1 + block.length() / charactersPerLine;
    }

    /// Returns the size of the fragment's font, in pixels.
    double AddFragment(const QTextFragment &fragment, bool isCrowded)
    {
        const QTextCharFormat format = fragment.charFormat();
        m_fonts.insert(format.font().key());
        if (isCrowded || IsCrowded(format))
            m_seconds += fragment.length() * kPerCrowdedCharacter;
        if (format.isImageFormat())
            AddImages(format.toImageFormat(), fragment.length());
        return FontPixels(format.font());
    }

    void AddImages(const QTextImageFormat &format, int count)
    {
        const bool isLarge = format.width() * format.height() > kLargeImage;
        m_seconds += count * (isLarge ? kPerLargeImage : kPerImage);
        m_height += count * std::abs(format.height());
    }

    /// How many tables @p position lies in. To be called with increasing positions.
    int TablesAround(int position)
    {
        while (!m_depthSteps.isEmpty() && m_depthSteps.firstKey() <= position)
            m_depth += m_depthSteps.take(m_depthSteps.firstKey());
        return m_depth;
    }

    double m_seconds = 0;
    double m_height = 0; ///< an upper limit, in pixels
    double m_lines = 0;
    double m_floats = 0;
    QSet<QString> m_fonts;
    int m_depth = 0;
    QMap<int, int> m_depthSteps; ///< change of the number of tables at a position
};

} // namespace

double LayoutSeconds(const QTextDocument &document)
{
    return DocumentCost(document).Seconds();
}
