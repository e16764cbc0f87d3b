#pragma once

#include <QString>

/// Ends the program, as a finding of the fuzzer, when @p holds is false. @p promise says what does
/// not hold. Any thread.
void Require(bool holds, const char *promise);

/// The same, and shows @p seen.
void Require(bool holds, const char *promise, const QString &seen);

/**
 * From here on the framework's messages are not shown, and each is required to be one line of text
 * without control characters: what comes from outside must not be able to forge lines of the log.
 */
void RequireCleanLog();

/// Whether a message since the last call of RequireCleanLog() has @p text in it.
bool LogHasLine(const QString &text);
