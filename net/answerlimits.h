#pragma once

#include <QByteArray>

/**
 * What an answer to the check may cost before it is understood. Both its line in the log and its
 * JSON can take many times its own size: a control character takes twelve bytes in the log, an
 * empty list of three characters some hundred bytes as JSON. Callable from every thread.
 */
namespace AnswerLimits
{

/**
 * False when the line that Log() writes would have more than 16 Mi characters, or when the text
 * holds more than 100,000 JSON values: no service sends that. Needs next to no memory.
 */
bool CanBeTaken(const QByteArray &body);

/// Logs the whole answer, as text up to its first zero byte. Needs memory for the line only once.
void Log(const QByteArray &body);

} // namespace AnswerLimits
