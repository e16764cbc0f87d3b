// SPDX-License-Identifier: MIT
#pragma once

#include <QMessageLogContext>
#include <QString>

/**
 * Appends one line "[time] [level] (file:line) message" and CR LF to AutoUpdate.log in the user's
 * local application data. Install it with qInstallMessageHandler().
 *
 * Callable from every thread; lines never interleave. The file is opened and closed for each line,
 * so the log is complete on disk even if the process is killed. A file of more than 30 MiB is
 * emptied first. A line that cannot be written is dropped silently, because there is nowhere to
 * report it.
 */
void LogMessageHandler(QtMsgType type, const QMessageLogContext &context, const QString &message);
