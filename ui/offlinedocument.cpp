// SPDX-License-Identifier: MIT
#include "ui/offlinedocument.h"

#include <QAbstractTextDocumentLayout>
#include <QBuffer>
#include <QFile>
#include <QHash>
#include <QImageReader>
#include <QLoggingCategory>
#include <QPainter>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextImageFormat>
#include <QUrl>

namespace
{

/// All images of a document together: enough for two that fill a screen.
constexpr qint64 kMaxPixels = 4LL * 1024 * 1024;

const QLatin1String kData("data");

/// The text format's property for an image's number among the DocumentPictures.
constexpr int kPicture = QTextFormat::UserProperty;

/// Suppresses Qt's warnings while it exists. Qt logs the name of an unknown colour verbatim, line
/// breaks included, so a document could forge lines of the log.
class NoWarnings
{
public:
    NoWarnings() { m_log->setEnabled(QtWarningMsg, false); }
    ~NoWarnings() { m_log->setEnabled(QtWarningMsg, m_wasEnabled); }
    Q_DISABLE_COPY(NoWarnings)

private:
    QLoggingCategory *const m_log = QLoggingCategory::defaultCategory();
    const bool m_wasEnabled = m_log->isWarningEnabled();
};

/// The ":/..." path for the name of a resource; empty for any other name.
QString ResourcePath(const QString &name)
{
    if (name.startsWith(QLatin1String(":/")))
        return name;
    if (name.startsWith(QLatin1String("qrc:/")))
        return name.mid(3);
    return QString();
}

/// QUrl does not understand ":/...".
QUrl Address(const QString &name)
{
    return QUrl(name.startsWith(QLatin1String(":/")) ? QLatin1String("qrc") + name : name);
}

/// The content of a resource, or of an address that contains it ("data:"). Empty for all others.
QByteArray OwnData(const QString &name)
{
    QFile file(ResourcePath(name));
    if (!file.fileName().isEmpty())
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    if (!name.startsWith(kData + QLatin1Char(':'), Qt::CaseInsensitive))
        return QByteArray();
    const int comma = name.indexOf(QLatin1Char(','));
    const QByteArray content = QByteArray::fromPercentEncoding(name.midRef(comma + 1).toLatin1());
    return name.leftRef(comma).endsWith(QLatin1String(";base64"), Qt::CaseInsensitive)
               ? QByteArray::fromBase64(content)
               : content;
}

struct Fragment {
    int position;
    int length;
    QTextImageFormat format;
};

QVector<Fragment> ImageFragments(const QTextDocument &document)
{
    QVector<Fragment> fragments;
    for (QTextBlock block = document.begin(); block.isValid(); block = block.next())
        for (auto it = block.begin(); !it.atEnd(); ++it) {
            const QTextFragment fragment = it.fragment();
            const QTextCharFormat format = fragment.charFormat();
            if (format.isImageFormat())
                fragments.append({fragment.position(), fragment.length(), format.toImageFormat()});
        }
    return fragments;
}

/// Sets the width and the height that @p format does not have, in the image's proportions. An image
/// that is not shown takes up no space.
void SetSize(QTextImageFormat &format, QSizeF size)
{
    if (size.isEmpty()) {
        format.setWidth(0);
        format.setHeight(0);
        return;
    }
    if (format.width() > 0 && format.height() > 0)
        return;
    if (format.width() > 0)
        size *= format.width() / size.width();
    else if (format.height() > 0)
        size *= format.height() / size.height();
    format.setWidth(size.width());
    format.setHeight(size.height());
}

} // namespace

OfflineDocument::OfflineDocument(QObject *parent)
    : QTextDocument(parent), m_pictures(new DocumentPictures(this))
{
}

void OfflineDocument::DrawPictures()
{
    documentLayout()->registerHandler(QTextFormat::ImageObject, m_pictures);
}

void OfflineDocument::FillWith(const QString &html)
{
    const NoWarnings noWarnings;
    setHtml(html);
    PreparePictures();
}

/// Decodes each image once. The layout and the drawing would ask for it at each of its occurrences.
void OfflineDocument::PreparePictures()
{
    QHash<QString, int> numbers;
    for (const Fragment &fragment : ImageFragments(*this)) {
        QTextImageFormat format = fragment.format;
        auto number = numbers.constFind(format.name());
        if (number == numbers.constEnd()) {
            const QVariant image = resource(ImageResource, Address(format.name()));
            number = numbers.insert(format.name(), m_pictures->Add(image.value<QImage>()));
        }
        format.setProperty(kPicture, *number);
        SetSize(format, m_pictures->Size(*number));
        QTextCursor cursor(this);
        cursor.setPosition(fragment.position);
        cursor.setPosition(fragment.position + fragment.length, QTextCursor::KeepAnchor);
        cursor.setCharFormat(format);
    }
}

QVariant OfflineDocument::loadResource(int type, const QUrl &name)
{
    const QByteArray data = OwnData(name.toString());
    if (data.isEmpty())
        return QVariant();
    if (type != ImageResource)
        return name.scheme() == kData ? QVariant() : data;
    const QImage image = Decoded(data);
    addResource(type, name, image);
    return image;
}

QImage OfflineDocument::Decoded(QByteArray data)
{
    // Other formats, such as SVG, may load the files that they name.
    static const QList<QByteArray> formats{"png", "gif", "jpeg", "bmp", "ico"};
    QBuffer buffer(&data);
    buffer.open(QIODevice::ReadOnly);
    const QByteArray format = QImageReader::imageFormat(&buffer);
    if (!formats.contains(format))
        return QImage();
    QImageReader reader(&buffer, format);
    const QSize size = reader.size();
    const qint64 pixels = qint64(size.width()) * size.height();
    if (!size.isValid() || m_pixels + pixels > kMaxPixels)
        return QImage();
    m_pixels += pixels;
    return reader.read();
}

int DocumentPictures::Add(const QImage &image)
{
    m_images.append(image);
    return m_images.size() - 1;
}

QSizeF DocumentPictures::intrinsicSize(QTextDocument *, int, const QTextFormat &format)
{
    const QTextImageFormat image = format.toImageFormat();
    return {image.width(), image.height()};
}

void DocumentPictures::drawObject(QPainter *painter, const QRectF &area, QTextDocument *, int,
                                  const QTextFormat &format)
{
    const QImage image = m_images.value(format.intProperty(kPicture));
    if (!image.isNull())
        painter->drawImage(area, image);
}
