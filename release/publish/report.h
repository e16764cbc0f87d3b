#pragma once

#include "release/publish/findings.h"

#include <QJsonObject>
#include <QString>
#include <QtGlobal>

/// A size in bytes as people read it: "1.50 MiB".
QString SizeText(qint64 bytes);

/// What a command has to say in the end.
struct Outcome {
    Findings refusals; ///< empty for success
    Findings warnings;
    QString summary;   ///< for people; empty when refused
    QJsonObject facts; ///< the same for scripts
};

/**
 * Warnings and refusals go to the standard error stream, a line each; the summary or, when
 * @p asJson, everything as one JSON object to the standard output. Returns the exit code. Main
 * thread.
 */
int Report(const Outcome &outcome, bool asJson);

/// The exit codes of the tool.
constexpr int ExitOk = 0;
constexpr int ExitRefused = 1;
constexpr int ExitUsage = 2;
