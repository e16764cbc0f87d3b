#pragma once

#include <QImage>
#include <QTextDocument>
#include <QTextObjectInterface>
#include <QVector>

class NotesPictures;

/**
 * The release notes: rich text that loads nothing, or plain text.
 *
 * Release notes come from the network. An image or a style sheet in them could name a file, an
 * address, or a share: looking at a share alone hands out the user's credentials. The document
 * therefore answers every such request with nothing, but for the program's own resources and for
 * images that are part of the notes ("data:"). GUI thread.
 */
class ReleaseNotesDocument : public QTextDocument
{
    Q_OBJECT

public:
    explicit ReleaseNotesDocument(QObject *parent);

    /// Whether SetNotes() would show @p notes as rich text. Needs no window system; any thread.
    static bool IsRichText(const QString &notes);

    /**
     * Replaces the contents by @p notes: as rich text when they look like markup, or else as plain
     * text. Markup that Qt would need more than half a second for is plain text too, tags and all,
     * and the log says so.
     */
    void SetNotes(const QString &notes);

protected:
    QVariant loadResource(int type, const QUrl &name) override;

private:
    bool SetMarkup(const QString &notes);
    void PreparePictures();
    QImage Decoded(QByteArray data);

    NotesPictures *m_pictures;
    qint64 m_pixels = 0; ///< of all images that were decoded
};

/**
 * Draws the images of a ReleaseNotesDocument. The framework's own handler tries the disk when the
 * document gives it nothing; this one draws what it was given.
 */
class NotesPictures : public QObject, public QTextObjectInterface
{
    Q_OBJECT
    Q_INTERFACES(QTextObjectInterface)

public:
    explicit NotesPictures(QObject *parent) : QObject(parent) {}

    /// Returns the image's number, by which formats name it.
    int Add(const QImage &image);

    QSizeF Size(int number) const { return m_images.at(number).size(); }

    QSizeF intrinsicSize(QTextDocument *document, int position, const QTextFormat &format) override;
    void drawObject(QPainter *painter, const QRectF &area, QTextDocument *document, int position,
                    const QTextFormat &format) override;

private:
    QVector<QImage> m_images;
};
