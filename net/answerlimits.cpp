#include "net/answerlimits.h"

#include <QString>

#include <algorithm>
#include <functional>

namespace
{

constexpr qint64 kMaxLoggedCharacters = 16LL * 1024 * 1024;
constexpr int kMaxJsonValues = 100000;
constexpr int kPieceBytes = 64 * 1024;

bool IsInsideCharacter(char byte)
{
    return (uchar(byte) & 0xc0) == 0x80;
}

/// The end of the piece of UTF-8 text that begins at @p start: no character is cut.
int EndOfPiece(const QByteArray &text, int start)
{
    int end = std::min(start + kPieceBytes, text.size());
    // A character has at most three bytes behind its first.
    for (int back = 0; back < 3 && end < text.size() && IsInsideCharacter(text.at(end)); ++back)
        --end;
    return end;
}

/// The characters of @p text as the log stream writes them, without the quotes around the whole.
QString Escaped(const QByteArray &text)
{
    QString quoted;
    QDebug(&quoted).nospace() << QString::fromUtf8(text.constData(), text.size());
    return quoted.mid(1, quoted.size() - 2);
}

/// Hands over what the log holds of @p body, piece by piece, until @p use returns false.
void ForEachEscapedPiece(const QByteArray &body, const std::function<bool(const QString &)> &use)
{
    const QByteArray text = QByteArray::fromRawData(
        body.constData(), int(qstrnlen(body.constData(), uint(body.size()))));
    for (int start = 0, end = 0; start < text.size(); start = end) {
        end = EndOfPiece(text, start);
        if (!use(Escaped(QByteArray::fromRawData(text.constData() + start, end - start))))
            return;
    }
}

bool FitsIntoLog(const QByteArray &body)
{
    qint64 characters = 0;
    ForEachEscapedPiece(body, [&characters](const QString &piece) {
        characters += piece.size();
        return characters <= kMaxLoggedCharacters;
    });
    return characters <= kMaxLoggedCharacters;
}

/// Counts what begins or separates values, outside of texts.
bool HasFewJsonValues(const QByteArray &body)
{
    int values = 0;
    bool inText = false;
    for (int index = 0; index < body.size() && values <= kMaxJsonValues; ++index) {
        const char character = body.at(index);
        if (inText && character == '\\')
            ++index;
        else if (character == '"')
            inText = !inText;
        else if (!inText && (character == ',' || character == '[' || character == '{'))
            ++values;
    }
    return values <= kMaxJsonValues;
}

} // namespace

bool AnswerLimits::CanBeTaken(const QByteArray &body)
{
    return HasFewJsonValues(body) && FitsIntoLog(body);
}

QDebug operator<<(QDebug line, const LoggedAnswer &answer)
{
    const QDebugStateSaver saver(line);
    line.nospace().noquote() << '"';
    ForEachEscapedPiece(answer.body, [&line](const QString &piece) {
        line << piece;
        return true;
    });
    return line << '"';
}
