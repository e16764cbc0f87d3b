#include "ui/releasenotes.h"

#include "ui/layoutcost.h"

#include <QAbstractTextDocumentLayout>
#include <QFile>
#include <QImage>
#include <QPainter>
#include <QRegularExpression>
#include <QStringList>
#include <QTextCursor>
#include <QTextImageFormat>
#include <QUrl>

namespace
{

// Found by trial: within these the layout ends within moments, whatever the tags say.
constexpr int kMaxMarkupLength = 16 * 1024;
constexpr int kMaxPlainLength = 16 * 1024;
constexpr int kMaxLengthWithTables = 4 * 1024;
constexpr int kMaxSheetLength = 256;
constexpr int kMaxTags = 1000;
constexpr int kMaxTagsWithSheet = 128;
constexpr int kMaxTableTags = 128;
constexpr int kMaxTableDepth = 2;

/// A tag as people write it, or a comment. What does not match could be read in another way.
const QRegularExpression &Tag()
{
    static const QRegularExpression tag(
        QStringLiteral(
            "<(?:!--(?:(?!--)[^<>])*+-->|!doctype[^<>]*+>|(?<close>/?)(?<name>[a-z][a-z0-9]*+)"
            "(?<attributes>(?:\\s++[a-z][a-z0-9:_-]*+(?:\\s*+=\\s*+"
            "(?:\"[^\"<>]*+\"|'[^'<>]*+'|[a-z0-9#%+.,:/?_-]++))?)*+)\\s*+/?>)"),
        QRegularExpression::CaseInsensitiveOption);
    return tag;
}

const QRegularExpression &Attribute()
{
    static const QRegularExpression attribute(
        QStringLiteral("(?<name>[a-z][a-z0-9:_-]*+)(?:\\s*+=\\s*+(?|\"(?<value>[^\"]*+)\""
                       "|'(?<value>[^']*+)'|(?<value>[a-z0-9#%+.,:/?_-]++)))?"),
        QRegularExpression::CaseInsensitiveOption);
    return attribute;
}

bool IsSmallNumber(const QString &text)
{
    static const QRegularExpression number(
        QStringLiteral("^\\s*[+-]?[0-9]{1,3}(?:\\.[0-9]*)?\\s*(?:px|pt|em|%)?\\s*$"));
    return number.match(text).hasMatch();
}

/// No escapes, no numbers beyond three digits, no "1e9", no "inf": a colour may have more digits.
bool IsHarmlessSheet(QString sheet)
{
    static const QRegularExpression colour(QStringLiteral("#[0-9a-fA-F]{3,8}(?![0-9a-zA-Z])"));
    static const QRegularExpression forbidden(
        QStringLiteral("[\\\\&@]|(?<![.0-9])[0-9]{4}|[0-9.][eE][+-]?[0-9]|"
                       "(?<![a-z])(?:inf|nan)(?:inity)?(?:px|pt|em|ex)?(?![a-z])"),
        QRegularExpression::CaseInsensitiveOption);
    sheet.remove(colour);
    return !forbidden.match(sheet).hasMatch();
}

/// The framework writes the name of a colour that it does not know into the log, line breaks and
/// all.
bool IsColour(const QString &text)
{
    static const QRegularExpression colour(QStringLiteral("\\A *#?[0-9a-zA-Z]* *\\z"));
    return colour.match(text).hasMatch();
}

bool IsHarmlessAttribute(const QString &name, const QString &value)
{
    static const QStringList spans{QStringLiteral("colspan"), QStringLiteral("rowspan")};
    static const QStringList numbers{QStringLiteral("width"),       QStringLiteral("height"),
                                     QStringLiteral("border"),      QStringLiteral("cellpadding"),
                                     QStringLiteral("cellspacing"), QStringLiteral("size"),
                                     QStringLiteral("start"),       QStringLiteral("value"),
                                     QStringLiteral("hspace"),      QStringLiteral("vspace")};
    static const QStringList colours{QStringLiteral("color"), QStringLiteral("bgcolor"),
                                     QStringLiteral("bordercolor")};
    if (spans.contains(name))
        return value == QLatin1String("1") || value == QLatin1String("2");
    if (numbers.contains(name))
        return IsSmallNumber(value);
    if (colours.contains(name))
        return IsColour(value);
    return name != QLatin1String("style") || IsHarmlessSheet(value);
}

bool AreHarmlessAttributes(const QString &attributes)
{
    auto matches = Attribute().globalMatch(attributes);
    while (matches.hasNext()) {
        const QRegularExpressionMatch match = matches.next();
        if (!IsHarmlessAttribute(match.captured(QStringLiteral("name")).toLower(),
                                 match.captured(QStringLiteral("value"))))
            return false;
    }
    return true;
}

bool IsTableTag(const QString &name)
{
    static const QStringList names =
        QStringLiteral("table thead tbody tfoot tr td th caption").split(QLatin1Char(' '));
    return names.contains(name);
}

/// Counts what grows faster than the notes do.
class TagCount
{
public:
    bool HasTables() const { return m_tableTags > 0; }
    int Tags() const { return m_tags; }

    /// False when this tag is one too many.
    bool Add(const QString &name, bool opens)
    {
        if (IsTableTag(name))
            ++m_tableTags;
        if (name == QLatin1String("table"))
            m_tableDepth = opens ? m_tableDepth + 1 : qMax(0, m_tableDepth - 1);
        return ++m_tags <= kMaxTags && m_tableTags <= kMaxTableTags &&
               m_tableDepth <= kMaxTableDepth;
    }

private:
    int m_tags = 0;
    int m_tableTags = 0;
    int m_tableDepth = 0;
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

} // namespace

ReleaseNotesDocument::ReleaseNotesDocument(QObject *parent) : QTextDocument(parent)
{
    documentLayout()->registerHandler(QTextFormat::ImageObject, new ResourceImages(this));
}

void ReleaseNotesDocument::SetNotes(const QString &notes)
{
    SetLimited(notes, Qt::mightBeRichText(notes));
}

void ReleaseNotesDocument::SetPlainNotes(const QString &notes)
{
    SetLimited(PlainNotes(notes), false);
}

void ReleaseNotesDocument::SetLimited(const QString &text, bool markup)
{
    setUndoRedoEnabled(false);
    // Qt computes the layout only at the end of the edit.
    QTextCursor edit(this);
    edit.beginEditBlock();
    if (markup)
        setHtml(text);
    else
        setPlainText(text);
    LimitLayoutCost(*this);
    edit.endEditBlock();
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
    if (notes.size() > kMaxMarkupLength)
        return false;

    TagCount count;
    int sheetLength = 0;
    bool inSheet = false;
    int end = 0;
    for (int start = notes.indexOf(QLatin1Char('<')); start >= 0;
         start = notes.indexOf(QLatin1Char('<'), end)) {
        if (inSheet) {
            const QString sheet = notes.mid(end, start - end);
            sheetLength += sheet.size();
            if (sheetLength > kMaxSheetLength || !IsHarmlessSheet(sheet))
                return false;
        }
        const QRegularExpressionMatch tag = Tag().match(
            notes, start, QRegularExpression::NormalMatch, QRegularExpression::AnchoredMatchOption);
        if (!tag.hasMatch() || !AreHarmlessAttributes(tag.captured(QStringLiteral("attributes"))))
            return false;
        const QString name = tag.captured(QStringLiteral("name")).toLower();
        const bool opens = tag.captured(QStringLiteral("close")).isEmpty();
        if (!count.Add(name, opens))
            return false;
        inSheet = opens && name == QLatin1String("style");
        end = tag.capturedEnd();
    }
    // Every part of a selector is tried on every element and on all that hold it, part by part.
    if (inSheet || (sheetLength > 0 && count.Tags() > kMaxTagsWithSheet))
        return false;
    return !count.HasTables() || notes.size() <= kMaxLengthWithTables;
}

QString PlainNotes(const QString &notes)
{
    return notes.left(kMaxPlainLength);
}

QImage ResourceImages::Image(const QTextFormat &format)
{
    const QString path = ResourcePath(format.toImageFormat().name());
    if (path.isEmpty())
        return QImage();
    auto image = m_images.constFind(path);
    if (image == m_images.constEnd())
        image = m_images.insert(path, QImage(path));
    return *image;
}

QSizeF ResourceImages::intrinsicSize(QTextDocument *, int, const QTextFormat &format)
{
    const QImage image = Image(format);
    if (image.isNull())
        return QSizeF(0, 0);
    const QTextImageFormat wanted = format.toImageFormat();
    return QSizeF(wanted.width() > 0 ? wanted.width() : image.width(),
                  wanted.height() > 0 ? wanted.height() : image.height());
}

void ResourceImages::drawObject(QPainter *painter, const QRectF &area, QTextDocument *, int,
                                const QTextFormat &format)
{
    const QImage image = Image(format);
    if (!image.isNull())
        painter->drawImage(area, image);
}
