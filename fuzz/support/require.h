#pragma once

#include <QString>

/// Ends the program, as a finding of the fuzzer, when @p holds is false. @p promise says what does
/// not hold. Any thread.
void Require(bool holds, const char *promise);

/// The same, and shows @p seen.
void Require(bool holds, const char *promise, const QString &seen);

/**
 * Keeps the framework's messages to itself while it lives, and requires each to be one line of text
 * without control characters: what comes from outside must not be able to forge lines of the log.
 * One at a time; one thread.
 */
class CleanLog
{
public:
    CleanLog();
    ~CleanLog();

    /// Whether a message has @p text in it.
    bool Has(const QString &text) const;

private:
    Q_DISABLE_COPY(CleanLog)
};
