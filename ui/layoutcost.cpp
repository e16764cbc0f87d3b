#include "ui/layoutcost.h"

#include <QSet>
#include <QTextBlock>
#include <QTextBoundaryFinder>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextFrame>
#include <QTextLength>
#include <QTextList>
#include <QTextTable>
#include <QVector>

#include <cmath>
#include <set>

namespace
{

// Qt's time for a word grows with the square of its length. A text of 16384 letters in words of
// this length takes about 0.1 s, as one word 1.4 s.
constexpr int kMaxParagraphLength = 1024; // UTF-16 units

// All in pixels. The notes are about 430 x 120 pixels large. With these limits, 16384 lines stay
// below the 2^25 pixels that Qt's fixed-point numbers can express.
constexpr double kMaxLength = 1000;
constexpr double kMaxFontSize = 96;
constexpr double kMaxLineHeight = 400; // or per cent

// With less, thousands of different letters are visible at once, and drawing them takes long.
constexpr double kMinFontSize = 6;    // pixels or points
constexpr double kMinLineHeight = 50; // per cent
constexpr double kMaxOverlap = 2;     // pixels by which letters may be moved together

// Loading a font takes about a millisecond.
constexpr int kMaxFonts = 48;

// For every line, Qt looks at all the tables and images that text flows around.
constexpr int kMaxFloats = 32;

double Limited(double value, double least, double most)
{
    return std::isnan(value) ? least : qBound(least, value, most);
}

QVariant LimitedProperty(int id, const QVariant &value)
{
    switch (id) {
    case QTextFormat::FontPointSize:
        return Limited(value.toDouble(), kMinFontSize, kMaxFontSize);
    case QTextFormat::FontPixelSize:
        return qBound(int(kMinFontSize), value.toInt(), int(kMaxFontSize));
    case QTextFormat::LineHeight:
        return Limited(value.toDouble(), 0, kMaxLineHeight);
    case QTextFormat::FontLetterSpacing:
    case QTextFormat::FontWordSpacing:
        return Limited(value.toDouble(), -kMaxOverlap, kMaxLength);
    case QTextFormat::BlockTopMargin:
    case QTextFormat::BlockBottomMargin:
        return Limited(value.toDouble(), 0, kMaxLength);
    default:
        break;
    }
    if (value.userType() == QMetaType::Double || value.userType() == QMetaType::Float)
        return Limited(value.toDouble(), -kMaxLength, kMaxLength);
    if (value.userType() == QMetaType::QTextLength) {
        const auto length = value.value<QTextLength>();
        return QVariant(QTextLength(length.type(), Limited(length.rawValue(), 0, kMaxLength)));
    }
    return value;
}

template <class Format> Format Limited(Format format)
{
    const QMap<int, QVariant> properties = format.properties();
    for (auto property = properties.begin(); property != properties.end(); ++property) {
        const QVariant limited = LimitedProperty(property.key(), property.value());
        if (limited != property.value())
            format.setProperty(property.key(), limited);
    }
    return format;
}

/// Also limits how many lines can be visible at once.
QTextBlockFormat LimitedBlock(const QTextBlockFormat &original)
{
    QTextBlockFormat format = Limited(original);
    const int type = format.lineHeightType();
    if (type == QTextBlockFormat::ProportionalHeight)
        format.setLineHeight(qMax(kMinLineHeight, format.lineHeight()), type);
    else if (type == QTextBlockFormat::FixedHeight)
        format.setLineHeight(qMax(kMinFontSize, format.lineHeight()), type);
    return format;
}

/// Keeps the first kMaxFonts fonts of a document and replaces all others by the default font.
class FontLimit
{
public:
    QTextCharFormat Apply(QTextCharFormat format)
    {
        const QString font = format.font().key();
        if (m_fonts.contains(font))
            return format;
        if (m_fonts.size() < kMaxFonts) {
            m_fonts.insert(font);
            return format;
        }
        for (int id = QTextFormat::FirstFontProperty; id <= QTextFormat::LastFontProperty; ++id)
            format.clearProperty(id);
        format.clearProperty(QTextFormat::FontSizeAdjustment);
        return format;
    }

private:
    QSet<QString> m_fonts;
};

struct Fragment {
    int position;
    int length;
    QTextCharFormat format;
};

QVector<Fragment> FragmentsToChange(const QTextBlock &block, FontLimit &fonts)
{
    QVector<Fragment> fragments;
    for (auto it = block.begin(); !it.atEnd(); ++it) {
        const QTextFragment fragment = it.fragment();
        const QTextCharFormat format = fonts.Apply(Limited(fragment.charFormat()));
        if (format != fragment.charFormat())
            fragments.append({fragment.position(), fragment.length(), format});
    }
    return fragments;
}

void LimitBlockFormats(const QTextBlock &block, FontLimit &fonts)
{
    QTextCursor cursor(block);
    const QTextBlockFormat blockFormat = LimitedBlock(block.blockFormat());
    if (blockFormat != block.blockFormat())
        cursor.setBlockFormat(blockFormat);
    const QTextCharFormat charFormat = fonts.Apply(Limited(block.charFormat()));
    if (charFormat != block.charFormat())
        cursor.setBlockCharFormat(charFormat);
    const QVector<Fragment> fragments = FragmentsToChange(block, fonts);
    for (const Fragment &fragment : fragments) {
        cursor.setPosition(fragment.position);
        cursor.setPosition(fragment.position + fragment.length, QTextCursor::KeepAnchor);
        cursor.setCharFormat(fragment.format);
    }
}

/// Where to split the text: where a line may end, otherwise between two characters.
int SplitPosition(const QString &text)
{
    for (const auto type : {QTextBoundaryFinder::Line, QTextBoundaryFinder::Grapheme}) {
        QTextBoundaryFinder finder(type, text);
        finder.setPosition(kMaxParagraphLength);
        if (!finder.isAtBoundary())
            finder.toPreviousBoundary();
        if (finder.position() > kMaxParagraphLength / 2)
            return finder.position();
    }
    const bool splitsPair = text.at(kMaxParagraphLength - 1).isHighSurrogate();
    return splitsPair ? kMaxParagraphLength - 1 : kMaxParagraphLength;
}

/// The format of a split paragraph's second part: no gap, no first-line indent, no bullet.
QTextBlockFormat RestFormat(const QTextBlock &block)
{
    QTextBlockFormat format = block.blockFormat();
    if (block.textList() != nullptr) {
        format.setIndent(format.indent() + block.textList()->format().indent());
        format.setObjectIndex(-1);
    }
    format.setTextIndent(0);
    format.setTopMargin(0);
    return format;
}

void SplitParagraph(const QTextBlock &block)
{
    QTextCursor cursor(block);
    while (cursor.block().length() - 1 > kMaxParagraphLength) {
        const QTextBlock paragraph = cursor.block();
        const QTextBlockFormat rest = RestFormat(paragraph);
        QTextBlockFormat first = paragraph.blockFormat();
        first.setBottomMargin(0);
        cursor.setBlockFormat(first);
        const QString start = paragraph.text().left(kMaxParagraphLength + 1);
        cursor.setPosition(paragraph.position() + SplitPosition(start));
        cursor.insertBlock(rest);
    }
}

void LimitCells(const QTextTable *table)
{
    for (int row = 0; row < table->rows(); ++row)
        for (int column = 0; column < table->columns(); ++column) {
            QTextTableCell cell = table->cellAt(row, column);
            cell.setFormat(Limited(cell.format()));
        }
}

/// All frames, tables and floating images. Qt builds the tree of frames at the end of the edit
/// only.
QVector<QTextFrame *> Frames(const QTextDocument &document)
{
    std::set<int> indices; // in the order of the notes
    const QVector<QTextFormat> formats = document.allFormats();
    for (const QTextFormat &format : formats)
        indices.insert(format.objectIndex());
    QVector<QTextFrame *> frames;
    for (const int index : indices)
        if (auto *frame = qobject_cast<QTextFrame *>(document.object(index)))
            frames.append(frame);
    return frames;
}

void LimitFrames(const QTextDocument &document)
{
    int floats = 0;
    const QVector<QTextFrame *> frames = Frames(document);
    for (QTextFrame *frame : frames) {
        QTextFrameFormat format = Limited(frame->frameFormat());
        if (format.position() != QTextFrameFormat::InFlow && ++floats > kMaxFloats)
            format.setPosition(QTextFrameFormat::InFlow);
        if (format != frame->frameFormat())
            frame->setFrameFormat(format);
        if (auto *table = qobject_cast<QTextTable *>(frame))
            LimitCells(table);
    }
}

} // namespace

void LimitLayoutCost(QTextDocument &document)
{
    LimitFrames(document);
    FontLimit fonts;
    for (QTextBlock block = document.begin(); block.isValid(); block = block.next()) {
        LimitBlockFormats(block, fonts);
        if (block.length() - 1 > kMaxParagraphLength)
            SplitParagraph(block);
    }
}
