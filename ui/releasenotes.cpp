#include "ui/releasenotes.h"

#include <QAbstractTextDocumentLayout>
#include <QFile>
#include <QImage>
#include <QPainter>
#include <QTextImageFormat>
#include <QUrl>

namespace
{

/// The ":/..." path of a resource's name; empty for a name of anything else.
QString ResourcePath(const QString &name)
{
    if (name.startsWith(QLatin1String(":/")))
        return name;
    if (name.startsWith(QLatin1String("qrc:/")))
        return name.mid(3);
    return QString();
}

QImage ResourceImage(const QTextFormat &format)
{
    const QString path = ResourcePath(format.toImageFormat().name());
    return path.isEmpty() ? QImage() : QImage(path);
}

} // namespace

ReleaseNotesDocument::ReleaseNotesDocument(QObject *parent) : QTextDocument(parent)
{
    documentLayout()->registerHandler(QTextFormat::ImageObject, new ResourceImages(this));
}

QVariant ReleaseNotesDocument::loadResource(int, const QUrl &name)
{
    QFile file(ResourcePath(name.toString()));
    if (file.fileName().isEmpty() || !file.open(QIODevice::ReadOnly))
        return QVariant();
    return file.readAll();
}

QSizeF ResourceImages::intrinsicSize(QTextDocument *, int, const QTextFormat &format)
{
    const QImage image = ResourceImage(format);
    if (image.isNull())
        return QSizeF(0, 0);
    const QTextImageFormat wanted = format.toImageFormat();
    return QSizeF(wanted.width() > 0 ? wanted.width() : image.width(),
                  wanted.height() > 0 ? wanted.height() : image.height());
}

void ResourceImages::drawObject(QPainter *painter, const QRectF &area, QTextDocument *, int,
                                const QTextFormat &format)
{
    const QImage image = ResourceImage(format);
    if (!image.isNull())
        painter->drawImage(area, image);
}
