#include "ui/releasenotes.h"

#include "ui/layoutcost.h"
#include "ui/markup.h"
#include "ui/plaintextlayout.h"

#include <QAbstractTextDocumentLayout>
#include <QBuffer>
#include <QDebug>
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

/// Of processor time, for all that is done until rich text is seen.
constexpr double kMaxSeconds = 0.5;

// Of all images in the notes together: two that fill a screen.
constexpr qint64 kMaxPixels = 4LL * 1024 * 1024;
constexpr double kSecondsPerPixel = 50e-9;

/// Longer notes can only be readable in time when most of them are images, and would be in memory
/// several times.
constexpr int kMaxMarkupLength = 2 * 1024 * 1024;

const QLatin1String kData("data");

/// The number of an image among the document's NotesPictures.
constexpr int kPicture = QTextFormat::UserProperty;

/// Qt writes the name of a colour that it does not know into the log, line breaks and
/// all: notes could forge lines there. None of its warnings matters while there is one of these.
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

/// The ":/..." path of a resource's name; empty for a name of anything else.
QString ResourcePath(const QString &name)
{
    if (name.startsWith(QLatin1String(":/")))
        return name;
    if (name.startsWith(QLatin1String("qrc:/")))
        return name.mid(3);
    return QString();
}

/// Qt takes ":/..." for no address at all.
QUrl Address(const QString &name)
{
    return QUrl(name.startsWith(QLatin1String(":/")) ? QLatin1String("qrc") + name : name);
}

/// What a resource or an address that is its own content ("data:") holds; empty for all others.
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

/// Sets what the notes leave open, in the image's proportions. What is not shown takes no room.
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

ReleaseNotesDocument::ReleaseNotesDocument(QObject *parent)
    : QTextDocument(parent), m_pictures(new NotesPictures(this))
{
}

bool ReleaseNotesDocument::IsRichText(const QString &notes)
{
    return Qt::mightBeRichText(notes) && ReleaseNotesDocument(nullptr).SetMarkup(notes);
}

void ReleaseNotesDocument::SetNotes(const QString &notes)
{
    // Asking for the layout makes it.
    documentLayout()->registerHandler(QTextFormat::ImageObject, m_pictures);
    const bool isMarkup = Qt::mightBeRichText(notes);
    if (isMarkup && SetMarkup(notes))
        return;
    if (isMarkup)
        qWarning() << "release notes shown as plain text";
    SetPlainText(*this, notes);
}

bool ReleaseNotesDocument::SetMarkup(const QString &notes)
{
    if (notes.size() > kMaxMarkupLength)
        return false;
    const Markup markup = ReadMarkup(notes, kMaxSeconds);
    if (markup.seconds > kMaxSeconds)
        return false;

    setUndoRedoEnabled(false);
    // Qt computes the layout only at the end of the edit.
    QTextCursor edit(this);
    edit.beginEditBlock();
    {
        const NoWarnings noWarnings;
        setHtml(markup.html);
        PreparePictures();
    }
    const bool isCheap =
        markup.seconds + m_pixels * kSecondsPerPixel + LayoutSeconds(*this) <= kMaxSeconds;
    if (!isCheap)
        clear();
    edit.endEditBlock();
    return isCheap;
}

/// Fetches each image once: layout and drawing ask for it every time it occurs.
void ReleaseNotesDocument::PreparePictures()
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

QVariant ReleaseNotesDocument::loadResource(int type, const QUrl &name)
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

QImage ReleaseNotesDocument::Decoded(QByteArray data)
{
    // Others may load what they name, as drawings do.
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

int NotesPictures::Add(const QImage &image)
{
    m_images.append(image);
    return m_images.size() - 1;
}

QSizeF NotesPictures::intrinsicSize(QTextDocument *, int, const QTextFormat &format)
{
    const QTextImageFormat image = format.toImageFormat();
    return {image.width(), image.height()};
}

void NotesPictures::drawObject(QPainter *painter, const QRectF &area, QTextDocument *, int,
                               const QTextFormat &format)
{
    const QImage image = m_images.value(format.intProperty(kPicture));
    if (!image.isNull())
        painter->drawImage(area, image);
}
