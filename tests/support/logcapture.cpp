// SPDX-License-Identifier: MIT
#include "tests/support/logcapture.h"

#include <QMutexLocker>
#include <QTest>

LogCapture *LogCapture::current = nullptr;

LogCapture::LogCapture()
{
    if (current)
        qFatal("one LogCapture at a time");
    current = this;
    // Last, because a message may come at once.
    // cppcheck-suppress useInitializationList
    m_oldHandler = qInstallMessageHandler(Catch);
}

LogCapture::~LogCapture()
{
    qInstallMessageHandler(m_oldHandler);
    current = nullptr;
}

void LogCapture::Catch(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    // It ends the program, so it must also be printed.
    if (type == QtFatalMsg && current->m_oldHandler)
        current->m_oldHandler(type, context, text);
    static const char *const words[] = {"DEBUG", "WARNING", "CRITICAL", "FATAL", "INFO"};
    const QMutexLocker locker(&current->m_mutex);
    current->m_messages.append(QStringLiteral("[%1] %2").arg(QLatin1String(words[type]), text));
}

QStringList LogCapture::Messages() const
{
    const QMutexLocker locker(&m_mutex);
    return m_messages;
}

bool LogCapture::WaitFor(const QString &message, int timeoutMs) const
{
    return QTest::qWaitFor([&] { return Messages().contains(message); }, timeoutMs);
}
