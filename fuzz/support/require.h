// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

/// Ends the program, as a finding of the fuzzer, when @p holds is false. @p promise describes what
/// should have held. Any thread.
void Require(bool holds, const char *promise);

/// The same; prints @p seen as well.
void Require(bool holds, const char *promise, const QString &seen);

/**
 * While it lives, collects Qt's messages instead of printing them, and requires each to be one line
 * without control characters: input from outside must not be able to forge lines of the log. One at
 * a time; one thread.
 */
class CleanLog
{
public:
    CleanLog();
    ~CleanLog();

    /// Whether a message contains @p text.
    bool Has(const QString &text) const;

private:
    Q_DISABLE_COPY(CleanLog)
};
