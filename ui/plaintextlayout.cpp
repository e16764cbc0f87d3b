// SPDX-License-Identifier: MIT
#include "ui/plaintextlayout.h"

#include <QFontMetricsF>
#include <QPainter>
#include <QTextBoundaryFinder>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextLayout>
#include <QTextOption>

#include <algorithm>
#include <cmath>

namespace
{

// Qt's time grows with the square of the length of a word, and of text with letters of different
// directions. A piece of this length takes milliseconds, whatever it contains.
constexpr int kMaxPieceLength = 1024; // UTF-16 units
constexpr int kMaxPieceLines = 64;

/// The layout of this much text is computed at once, so that the height of ordinary notes is exact.
constexpr int kMeasuredLength = 4 * kMaxPieceLength;

bool IsLineEnd(QChar character)
{
    switch (character.unicode()) {
    case '\n':
    case '\r':
    case QChar::LineSeparator:
    case QChar::ParagraphSeparator:
    case 0xfdd0: // Qt's marks for the beginning
    case 0xfdd1: // and the end of a frame
        return true;
    default:
        return false;
    }
}

/// Where to split a line that is longer than a piece: after a blank if possible, otherwise between
/// two characters.
int SplitPosition(const QString &text, int start)
{
    const int end = start + kMaxPieceLength;
    for (int position = end; position > end - kMaxPieceLength / 2; --position)
        if (text.at(position - 1).isSpace())
            return position;
    constexpr int window = 64;
    const int windowStart = end - window;
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text.mid(windowStart, 2 * window));
    finder.setPosition(window);
    if (!finder.isAtBoundary())
        finder.toPreviousBoundary();
    if (finder.position() > 0)
        return windowStart + finder.position();
    return text.at(end - 1).isHighSurrogate() ? end - 1 : end;
}

/**
 * The text as paragraphs. Its lines end with '\n', which begins a new paragraph, or with
 * QChar::LineSeparator, which does not: a paragraph costs more than a hundred bytes, and there may
 * be millions of lines. Long paragraphs are expensive too: Qt analyses the first one to place the
 * text cursor, and needs up to 80 bytes for each of its characters. So a very long line is divided.
 */
class Paragraphs
{
public:
    explicit Paragraphs(const QString &text) : m_text(text)
    {
        m_lines.reserve(text.size() + text.size() / (kMaxLineLength - kMaxPieceLength));
        for (int i = 0; i < text.size(); ++i)
            Add(i);
    }

    QString Lines() const { return m_lines; }

private:
    static constexpr int kMaxShortParagraphs = 1000;
    static constexpr int kMinParagraphLength = 64 * 1024;
    static constexpr int kMaxLineLength = 64 * 1024;

    void Add(int position)
    {
        const QChar character = m_text.at(position);
        if (IsLineEnd(character)) {
            if (character != QLatin1Char('\r') ||
                m_text.midRef(position + 1, 1) != QLatin1String("\n"))
                EndLine(position + 1);
            return;
        }
        if (position - m_lineStart == kMaxLineLength - kMaxPieceLength &&
            position + kMaxPieceLength < m_text.size())
            m_division = SplitPosition(m_text, position);
        if (position == m_division) {
            EndParagraph();
            m_lineStart = position;
        }
        m_lines.append(character);
    }

    void EndLine(int next)
    {
        m_lineStart = next;
        m_division = -1;
        if (m_count < kMaxShortParagraphs || m_lines.size() - m_start > kMinParagraphLength)
            EndParagraph();
        else
            m_lines.append(QChar(QChar::LineSeparator));
    }

    void EndParagraph()
    {
        m_lines.append(QLatin1Char('\n'));
        m_start = m_lines.size();
        ++m_count;
    }

    const QString &m_text;
    QString m_lines;
    int m_count = 0;     ///< number of paragraphs
    int m_start = 0;     ///< start of the last paragraph in m_lines
    int m_lineStart = 0; ///< start of the line in m_text
    int m_division = -1; ///< where the line is to be divided, in m_text
};

int PieceEnd(const QString &text, int start)
{
    const int limit = qMin(text.size() - start, kMaxPieceLength) + start;
    int lines = 0;
    int end = start;
    for (int i = start; i < limit && lines < kMaxPieceLines; ++i)
        if (IsLineEnd(text.at(i))) {
            ++lines;
            end = i + 1;
        }
    if (lines == kMaxPieceLines || (lines > 0 && limit < text.size()))
        return end;
    return limit == text.size() ? limit : SplitPosition(text, start);
}

} // namespace

void SetPlainText(QTextDocument &document, const QString &text)
{
    const QString lines = Paragraphs(text).Lines();
    document.setUndoRedoEnabled(false);
    document.setDocumentLayout(new PlainTextLayout(&document, lines));
    document.setPlainText(lines);
}

PlainTextLayout::PlainTextLayout(QTextDocument *document, const QString &text)
    : QAbstractTextDocumentLayout(document), m_length(text.size())
{
    for (int start = 0; start < text.size();) {
        const int end = PieceEnd(text, start);
        m_pieces.append(ReadPiece(text, start, end));
        start = end;
    }
    m_pieces.append({m_length, 0, 0, 0});
}

PlainTextLayout::Piece PlainTextLayout::ReadPiece(const QString &text, int start, int end)
{
    constexpr int firstWide = 0x1100; // ideographs and the like
    Piece piece{start, 1, 0, 0};
    for (int i = start; i < end; ++i) {
        if (IsLineEnd(text.at(i)) && i + 1 < end)
            ++piece.lines;
        piece.letters += text.at(i).unicode() < firstWide ? 1 : 2;
    }
    return piece;
}

void PlainTextLayout::documentChanged(int, int, int)
{
    const double width = document()->textWidth() - 2 * document()->documentMargin();
    if (document()->characterCount() <= m_length ||
        (width == m_width && document()->defaultFont() == m_font))
        return;
    m_width = width;
    m_font = document()->defaultFont();
    double top = document()->documentMargin();
    for (Piece &piece : m_pieces) {
        piece.top = top;
        top += GuessedHeight(piece);
    }
    for (int piece = 0; piece + 1 < m_pieces.size() && m_pieces[piece + 1].start <= kMeasuredLength;
         ++piece)
        SetHeight(piece, LayOutPiece(piece, nullptr, QRectF()));
    emit documentSizeChanged(documentSize());
    emit update();
}

double PlainTextLayout::GuessedHeight(const Piece &piece) const
{
    const QFontMetricsF metrics(m_font, paintDevice());
    const double lettersPerRow = qMax(1.0, m_width / metrics.averageCharWidth());
    // On average, half of the last row of a line is empty.
    const double rows =
        qMax(double(piece.lines), piece.lines / 2.0 + piece.letters / lettersPerRow);
    return rows * metrics.lineSpacing();
}

/// Computes the layout of a piece and returns its height. Draws it when there is a painter.
double PlainTextLayout::LayOutPiece(int piece, QPainter *painter, const QRectF &clip)
{
    const int end = m_pieces[piece + 1].start;
    QTextCursor cursor(document());
    cursor.setPosition(m_pieces[piece].start);
    cursor.setPosition(end, QTextCursor::KeepAnchor);
    QString text = cursor.selectedText();
    text.replace(QChar::ParagraphSeparator, QChar::LineSeparator);
    if (end < m_length && text.endsWith(QChar::LineSeparator))
        text.chop(1);

    QTextOption option = document()->defaultTextOption();
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    QPointF position(document()->documentMargin(), m_pieces[piece].top);
    const double leastHeight = QFontMetricsF(m_font, paintDevice()).height();
    const QStringList lines = text.split(QChar::LineSeparator);
    for (const QString &line : lines) {
        QTextLayout layout(line, m_font, paintDevice());
        layout.setTextOption(option);
        double height = 0;
        layout.beginLayout();
        for (QTextLine row = layout.createLine(); row.isValid(); row = layout.createLine()) {
            row.setLeadingIncluded(true);
            row.setLineWidth(m_width);
            row.setPosition(QPointF(0, height));
            // Some characters have no height, but a piece that consists of them must have one.
            height += qMax(row.height(), leastHeight);
        }
        layout.endLayout();
        if (painter != nullptr)
            layout.draw(painter, position, {}, clip);
        position.ry() += height;
    }
    return position.y() - m_pieces[piece].top;
}

void PlainTextLayout::SetHeight(int piece, double height)
{
    const double growth = height - (m_pieces[piece + 1].top - m_pieces[piece].top);
    for (int next = piece + 1; next < m_pieces.size(); ++next)
        m_pieces[next].top += growth;
}

int PlainTextLayout::PieceAt(double y) const
{
    const auto below =
        std::upper_bound(m_pieces.begin(), m_pieces.end(), y,
                         [](double wanted, const Piece &piece) { return wanted < piece.top; });
    return qMax(0, int(below - m_pieces.begin()) - 1);
}

void PlainTextLayout::draw(QPainter *painter, const PaintContext &context)
{
    const QSizeF former = documentSize();
    const QRectF clip =
        context.clip.isValid() ? context.clip : QRectF(QPointF(0, 0), documentSize());
    painter->setPen(context.palette.color(QPalette::Text));
    for (int piece = PieceAt(clip.top());
         piece + 1 < m_pieces.size() && m_pieces[piece].top <= clip.bottom(); ++piece)
        SetHeight(piece, LayOutPiece(piece, painter, clip));
    // Queued, because nobody expects a document to grow while it is drawn.
    if (documentSize() != former)
        QMetaObject::invokeMethod(
            this, [this] { emit documentSizeChanged(documentSize()); }, Qt::QueuedConnection);
}

int PlainTextLayout::hitTest(const QPointF &point, Qt::HitTestAccuracy) const
{
    return m_pieces.isEmpty() ? 0 : m_pieces[PieceAt(point.y())].start;
}

QSizeF PlainTextLayout::documentSize() const
{
    const double margin = document()->documentMargin();
    const double bottom = m_pieces.isEmpty() ? margin : m_pieces.last().top;
    return {m_width + 2 * margin, bottom + margin};
}

QRectF PlainTextLayout::frameBoundingRect(QTextFrame *) const
{
    return {QPointF(0, 0), documentSize()};
}

QRectF PlainTextLayout::blockBoundingRect(const QTextBlock &) const
{
    return {QPointF(0, 0), documentSize()};
}
