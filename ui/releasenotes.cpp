#include "ui/releasenotes.h"

#include <QAbstractTextDocumentLayout>
#include <QFile>
#include <QImage>
#include <QPainter>
#include <QRegularExpression>
#include <QStringList>
#include <QTextImageFormat>
#include <QUrl>

namespace
{

constexpr int kMaxNotesLength = 16 * 1024;
constexpr int kMaxNotesLengthWithTables = 4 * 1024;
constexpr int kMaxTableDepth = 3;
constexpr int kMaxTableParts = 128; ///< opening and closing tags

/// A comment, or a tag whose name stands right behind its bracket, in the letters that it means.
const QRegularExpression &Tag()
{
    static const QRegularExpression tag(
        QStringLiteral("<(?:!--[^<>]*-->|![A-Za-z][^<>]*>|(?<close>/?)(?<name>[A-Za-z][A-Za-z0-9]*)"
                       "(?<attributes>(?:[\\s/][^<>]*)?)>)"));
    return tag;
}

/// What a tag of a table may carry: nothing that can be large, or large in disguise.
bool AreSmallAttributes(const QString &attributes)
{
    static const QRegularExpression small(QRegularExpression::anchoredPattern(
        QStringLiteral("(?:\\s+(?:colspan|rowspan)=([\"']?)[12]\\1"
                       "|\\s+(?:border|cellpadding|cellspacing|width|height)=([\"']?)\\d{1,2}%?\\2"
                       "|\\s+width=([\"']?)100%\\3"
                       "|\\s+(?:align|valign|bgcolor)=([\"']?)#?[A-Za-z0-9]{1,10}\\4)*\\s*/?")));
    return small.match(attributes).hasMatch();
}

/// A length that takes the layout out of its depth, or letters in disguise that may spell one.
bool HasLargeLength(const QString &text)
{
    static const QRegularExpression large(
        QStringLiteral("[:\\s.+-]\\d{5}|&(?!(?:amp|lt|gt|quot|nbsp);)[^\\s;]{1,9};"));
    return large.match(text).hasMatch();
}

bool IsTablePart(const QString &name)
{
    static const QStringList parts =
        QStringLiteral("table thead tbody tfoot tr td th caption").split(QLatin1Char(' '));
    return parts.contains(name);
}

/// Follows notes from tag to tag.
class TagWatch
{
public:
    bool HasTables() const { return m_tableParts > 0; }
    bool HasSheet() const { return m_hasSheet; }
    bool HasStyles() const { return m_hasStyles || m_hasSheet; }

    /// False when @p tag, a match of Tag(), makes the notes harmful.
    bool Accepts(const QRegularExpressionMatch &tag)
    {
        const QString name = tag.captured(QStringLiteral("name")).toLower();
        const QString attributes = tag.captured(QStringLiteral("attributes")).toLower();
        m_hasSheet = m_hasSheet || name == QLatin1String("style") || name == QLatin1String("link");
        m_hasStyles = m_hasStyles || attributes.contains(QLatin1String("style"));
        if (!IsTablePart(name))
            return !HasLargeLength(attributes);

        ++m_tableParts;
        if (name == QLatin1String("table"))
            m_depth += tag.captured(QStringLiteral("close")).isEmpty() ? 1 : -1;
        return m_tableParts <= kMaxTableParts && m_depth <= kMaxTableDepth &&
               AreSmallAttributes(attributes);
    }

private:
    int m_tableParts = 0;
    int m_depth = 0;
    bool m_hasStyles = false;
    bool m_hasSheet = false;
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

bool IsHarmlessMarkup(const QString &notes)
{
    if (notes.size() > kMaxNotesLength)
        return false;
    TagWatch watch;
    for (int position = notes.indexOf(QLatin1Char('<')); position >= 0;
         position = notes.indexOf(QLatin1Char('<'), position + 1)) {
        const QRegularExpressionMatch tag =
            Tag().match(notes, position, QRegularExpression::NormalMatch,
                        QRegularExpression::AnchoredMatchOption);
        if (!tag.hasMatch() || !watch.Accepts(tag))
            return false;
    }
    if (watch.HasSheet() && HasLargeLength(notes))
        return false;
    // A style, even one around a table, gives it what its attributes may not.
    return !watch.HasTables() || (!watch.HasStyles() && notes.size() <= kMaxNotesLengthWithTables);
}

QString HarmlessPlainText(const QString &notes)
{
    return notes.left(kMaxNotesLength);
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
