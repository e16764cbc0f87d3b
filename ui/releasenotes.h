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
 * True when the framework lays @p notes out in a moment, be they plain or marked up. Its rich-text
 * engine takes time that doubles with every table inside a table, grows with the square of the
 * number of elements, and never ends for lengths beyond its fixed-point numbers; and the notes come
 * from the network. So: moderate length, a moderate number of well-formed tags, small tables at
 * most two deep, small numbers. Notes that people write keep to that. And it puts unknown colours
 * into the log as they are: colours are plain words or digits, so that no line is forged there. Any
 * thread.
 */
bool IsHarmlessMarkup(const QString &notes);

/// What is shown of notes that are not harmless: their text as it stands, cut where laying out a
/// text without any blank would begin to take seconds. Any thread.
QString PlainNotes(const QString &notes);

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
