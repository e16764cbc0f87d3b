// SPDX-License-Identifier: MIT
#pragma once

#include "release/publish/base/findings.h"

#include <QJsonObject>
#include <QString>
#include <QtGlobal>

/// A size in bytes for people: "1.50 MiB".
QString SizeText(qint64 bytes);

/// The result of a command.
struct Outcome {
    Findings refusals; ///< empty for success
    Findings warnings;
    QString summary;   ///< for people; empty when the command was refused
    QJsonObject facts; ///< the same information for scripts
};

/**
 * Prints warnings and refusals to standard error, one per line, and the summary to standard output.
 * With @p asJson, standard output gets everything as one JSON object instead of the summary.
 * Returns the exit code. Main thread.
 */
int Report(const Outcome &outcome, bool asJson);

/// The exit codes of the tool.
constexpr int ExitOk = 0;
constexpr int ExitRefused = 1;
constexpr int ExitUsage = 2;
