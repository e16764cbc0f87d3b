// SPDX-License-Identifier: MIT
#include "net/answerlimits.h"

#include <QNetworkReply>
#include <QString>

#include <algorithm>
#include <functional>

namespace
{

constexpr qint64 kMaxLoggedCharacters = 12LL * 1024 * 1024;
constexpr int kMaxJsonValues = 100000;
constexpr int kPieceBytes = 64 * 1024;

bool IsInsideCharacter(char byte)
{
    return (uchar(byte) & 0xc0) == 0x80;
}

/// The end of the piece of UTF-8 text that begins at @p start. No character is split.
int EndOfPiece(const QByteArray &text, int start)
{
    int end = std::min(start + kPieceBytes, text.size());
    // At most three bytes follow the first byte of a character.
    for (int back = 0; back < 3 && end < text.size() && IsInsideCharacter(text.at(end)); ++back)
        --end;
    return end;
}

/// @p text as the log stream writes it, without the quotes around it.
QString Escaped(const QByteArray &text)
{
    QString quoted;
    QDebug(&quoted).nospace() << QString::fromUtf8(text.constData(), text.size());
    return quoted.mid(1, quoted.size() - 2);
}

/// Passes the text that the log gets for @p body to @p use, piece by piece, until that returns
/// false.
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

/// Counts the characters that begin or separate values, except inside strings.
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

void AnswerLimits::LimitBuffer(QNetworkReply *answer)
{
    // Qt discards a limit that is set on a POST at once. A limit that is set only after data has
    // come may have no effect either: Qt's network thread ignores it while more data keeps coming.
    const auto limit = [answer] { answer->setReadBufferSize(MaxBytes + 1); };
    QMetaObject::invokeMethod(answer, limit, Qt::QueuedConnection);
    QObject::connect(answer, &QNetworkReply::metaDataChanged, answer, limit);
}

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
