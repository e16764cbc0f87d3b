// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QDebug>
#include <QtGlobal>

class QNetworkReply;

/**
 * Limits the memory that an answer to the check can take. Its line in the log and its JSON can both
 * be many times as large as the answer: a control character takes twelve bytes in the log, and an
 * empty list of three characters takes about a hundred bytes as JSON. Callable from every thread.
 */
namespace AnswerLimits
{

/// An answer of more bytes than these is refused, compressed or decompressed.
constexpr qint64 MaxBytes = 8LL * 1024 * 1024;

/**
 * Lets @p answer buffer one byte more than MaxBytes, so that an answer of exactly MaxBytes can be
 * told from a larger one. To be called on the thread of @p answer, right after the request is sent.
 */
void LimitBuffer(QNetworkReply *answer);

/**
 * False when @p body would have more than 12 Mi characters in the log or contains more than 100,000
 * JSON values. No real service sends that much. Needs almost no memory.
 */
bool CanBeTaken(const QByteArray &body);

} // namespace AnswerLimits

/// The answer as it is logged: as text up to its first zero byte. It is streamed piece by piece, so
/// that the line is in memory only once.
struct LoggedAnswer {
    const QByteArray &body;
};

QDebug operator<<(QDebug line, const LoggedAnswer &answer);
