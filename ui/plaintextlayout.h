// SPDX-License-Identifier: MIT
#pragma once

#include <QAbstractTextDocumentLayout>
#include <QFont>
#include <QString>
#include <QVector>

class QTextDocument;

/**
 * Quickly replaces the contents of @p document with @p text of any length, and gives the document a
 * layout that computes only what is visible. Qt's own layout needs minutes for a few million
 * characters and a gigabyte for a few million lines. Lines of more than 64 Ki characters are
 * divided. GUI thread.
 */
void SetPlainText(QTextDocument &document, const QString &text);

/**
 * The layout of a read-only text without formats. The text is split into short pieces. The layout
 * of a piece is computed when it is drawn; until then its height is estimated from the number of
 * its characters. As a result the size of the document changes slightly while the user scrolls.
 */
class PlainTextLayout : public QAbstractTextDocumentLayout
{
    Q_OBJECT

public:
    /// @p text is the text that the document is going to contain.
    PlainTextLayout(QTextDocument *document, const QString &text);

    void draw(QPainter *painter, const PaintContext &context) override;
    int hitTest(const QPointF &point, Qt::HitTestAccuracy accuracy) const override;
    int pageCount() const override { return 1; }
    QSizeF documentSize() const override;
    QRectF frameBoundingRect(QTextFrame *frame) const override;
    QRectF blockBoundingRect(const QTextBlock &block) const override;

protected:
    void documentChanged(int from, int charsRemoved, int charsAdded) override;

private:
    struct Piece {
        int start;
        int lines;
        int letters; ///< counted in letters of average width
        double top;
    };

    static Piece ReadPiece(const QString &text, int start, int end);
    int PieceAt(double y) const;
    double GuessedHeight(const Piece &piece) const;
    double LayOutPiece(int piece, QPainter *painter, const QRectF &clip);
    void SetHeight(int piece, double height);

    const int m_length;
    double m_width = -1;
    QFont m_font;
    QVector<Piece> m_pieces; ///< the last one marks the end of the text
};
