#pragma once

#include <QByteArray>
#include <QDebug>

/**
 * What an answer to the check may cost before it is understood. Both its line in the log and its
 * JSON can take many times its own size: a control character takes twelve bytes in the log, an
 * empty list of three characters some hundred bytes as JSON. Callable from every thread.
 */
namespace AnswerLimits
{

/**
 * False when @p body would have more than 16 Mi characters in the log, or when it holds more than
 * 100,000 JSON values: no service sends that. Needs next to no memory.
 */
bool CanBeTaken(const QByteArray &body);

} // namespace AnswerLimits

/// The whole answer for the log, as text up to its first zero byte. It is streamed piece by piece,
/// so that the line is in memory only once.
struct LoggedAnswer {
    const QByteArray &body;
};

QDebug operator<<(QDebug line, const LoggedAnswer &answer);
