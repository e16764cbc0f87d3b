// SPDX-License-Identifier: MIT
#pragma once

#include <QMutex>
#include <QString>
#include <QStringList>

/**
 * Catches what all threads log through Qt while it lives, as the lines of loglines.h. One at a time
 * per process.
 */
class LogCapture
{
public:
    LogCapture();
    ~LogCapture();

    QStringList Messages() const;

    /// Runs the event loop until @p message was logged; false when it was not in time.
    bool WaitFor(const QString &message, int timeoutMs = 15000) const;

private:
    Q_DISABLE_COPY(LogCapture)

    static void Catch(QtMsgType type, const QMessageLogContext &context, const QString &text);

    static LogCapture *current;
    mutable QMutex m_mutex;
    QStringList m_messages;
    QtMessageHandler m_oldHandler = nullptr;
};
