#pragma once

#include <QHash>
#include <QImage>
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

    /// Replaces the contents by @p notes, which are harmless: markup or plain text. Does what
    /// LimitLayoutCost() does.
    void SetNotes(const QString &notes);

    /// Replaces the contents by PlainNotes(@p notes). Does what LimitLayoutCost() does.
    void SetPlainNotes(const QString &notes);

protected:
    QVariant loadResource(int type, const QUrl &name) override;

private:
    void SetLimited(const QString &text, bool markup);
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

/// What is shown of notes that are not harmless: the first 16384 UTF-16 units of their text as
/// it stands. Beyond that, a text of different Chinese characters takes long. Any thread.
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

private:
    QImage Image(const QTextFormat &format);

    /// By path. Layout and drawing ask for an image every time it occurs; it is decoded once.
    QHash<QString, QImage> m_images;
};
