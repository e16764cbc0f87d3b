#pragma once

#include <QTextDocument>
#include <QTextObjectInterface>

/**
 * A rich-text document that loads nothing but the program's own resources.
 *
 * Release notes come from the network. An image or a style sheet in them could name a file, an
 * address, or a share: looking at a share alone hands out the user's credentials. The document
 * therefore answers every such request with nothing. GUI thread.
 */
class ReleaseNotesDocument : public QTextDocument
{
    Q_OBJECT

public:
    explicit ReleaseNotesDocument(QObject *parent);

protected:
    QVariant loadResource(int type, const QUrl &name) override;
};

/**
 * True when @p notes can be laid out as rich text within moments. The framework's layout takes
 * minutes, or never ends, for nested tables, for large numbers in a table, and for a very long
 * text; the notes come from the network. Tables pass that a release note has a use for: up to three
 * levels deep, with attributes of at most two digits. Any thread.
 */
bool IsHarmlessMarkup(const QString &notes);

/// The beginning of @p notes that can be laid out as plain text within moments. Any thread.
QString HarmlessPlainText(const QString &notes);

/**
 * Draws the images of a ReleaseNotesDocument. The framework's own handler tries the disk when the
 * document gives it nothing; this one leaves an image out that is not among the resources.
 */
class ResourceImages : public QObject, public QTextObjectInterface
{
    Q_OBJECT
    Q_INTERFACES(QTextObjectInterface)

public:
    explicit ResourceImages(QObject *parent) : QObject(parent) {}

    QSizeF intrinsicSize(QTextDocument *document, int position, const QTextFormat &format) override;
    void drawObject(QPainter *painter, const QRectF &area, QTextDocument *document, int position,
                    const QTextFormat &format) override;
};
