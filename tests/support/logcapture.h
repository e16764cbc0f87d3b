#pragma once

#include <QMutex>
#include <QString>
#include <QStringList>

/**
 * Catches the messages of the framework's streams while it lives, from all threads, as "[LEVEL]
 * text" with the level words of the log file. One at a time a process.
 */
class LogCapture
{
public:
    LogCapture();
    ~LogCapture();

    QStringList Messages() const;

    /// Waits, with the event loop running, until @p message was logged.
    bool WaitFor(const QString &message, int timeoutMs = 15000) const;

private:
    Q_DISABLE_COPY(LogCapture)

    static void Catch(QtMsgType type, const QMessageLogContext &context, const QString &text);

    static LogCapture *current;
    mutable QMutex m_mutex;
    QStringList m_messages;
    QtMessageHandler m_oldHandler = nullptr;
};
