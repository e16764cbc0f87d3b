// SPDX-License-Identifier: MIT
#pragma once

#include <QImage>
#include <QTextDocument>
#include <QTextObjectInterface>
#include <QVector>

class DocumentPictures;

/**
 * A rich text document that loads nothing from outside.
 *
 * Its text comes from the network. An image or a style sheet in it could name a file, an address or
 * a network share, and merely looking at a share sends the user's credentials to it. The document
 * therefore answers every request to load something with nothing. The exceptions are the program's
 * own resources and images that are part of the text ("data:"). GUI thread.
 */
class OfflineDocument : public QTextDocument
{
    Q_OBJECT

public:
    explicit OfflineDocument(QObject *parent);

protected:
    /// Creates the layout, which needs a window system, and makes it draw the document's images.
    void DrawPictures();

    /**
     * Replaces the contents with @p html and decodes its images. Logs nothing. To be called between
     * beginEditBlock() and endEditBlock() of a text cursor: Qt computes the layout after that.
     */
    void FillWith(const QString &html);

    /// The number of pixels of all images that were decoded.
    qint64 DecodedPixels() const { return m_pixels; }

    QVariant loadResource(int type, const QUrl &name) override;

private:
    void PreparePictures();
    QImage Decoded(QByteArray data);

    DocumentPictures *m_pictures;
    qint64 m_pixels = 0;
};

/**
 * Draws the images of an OfflineDocument. Qt's own handler tries the disk when the document gives
 * it nothing; this one draws only the images that it was given.
 */
class DocumentPictures : public QObject, public QTextObjectInterface
{
    Q_OBJECT
    Q_INTERFACES(QTextObjectInterface)

public:
    explicit DocumentPictures(QObject *parent) : QObject(parent) {}

    /// Returns the image's number, by which text formats refer to it.
    int Add(const QImage &image);

    QSizeF Size(int number) const { return m_images.at(number).size(); }

    QSizeF intrinsicSize(QTextDocument *document, int position, const QTextFormat &format) override;
    void drawObject(QPainter *painter, const QRectF &area, QTextDocument *document, int position,
                    const QTextFormat &format) override;

private:
    QVector<QImage> m_images;
};
