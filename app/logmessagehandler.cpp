// SPDX-License-Identifier: MIT
#include "app/logmessagehandler.h"

#include "config/paths.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QMutex>
#include <QMutexLocker>
#include <QTextStream>

namespace
{

constexpr qint64 kMaxLogBytes = 30LL * 1024 * 1024;
constexpr int kPieceLength = 8 * 1024;

/// Critical and fatal messages have no level word. The program itself never logs any.
QString LevelWord(QtMsgType type)
{
    switch (type) {
    case QtDebugMsg:
        return QStringLiteral("DEBUG");
    case QtWarningMsg:
        return QStringLiteral("WARNING");
    case QtInfoMsg:
        return QStringLiteral("INFO");
    case QtCriticalMsg:
    case QtFatalMsg:
        break;
    }
    return QString();
}

/// "(file:line)", where file is what follows the last slash; "(:0)" when the context has no file.
QString SourceLocation(const QMessageLogContext &context)
{
    const QString file = QString::fromUtf8(context.file);
    const QString name = file.mid(file.lastIndexOf(QLatin1Char('/')) + 1);
    return QStringLiteral("(%1:%2)").arg(name, QString::number(context.line));
}

} // namespace

void LogMessageHandler(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    static QMutex mutex;
    const QMutexLocker locker(&mutex);

    const QString folder = Paths::LogFolder();
    if (!QDir(folder).exists())
        QDir().mkpath(folder);

    const QString time =
        QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd hh:mm:ss"));
    const QString head =
        QStringLiteral("[%1] [%2] %3 ").arg(time, LevelWord(type), SourceLocation(context));

    QFile file(Paths::LogFile());
    if (!file.open(QIODevice::WriteOnly | QIODevice::Append))
        return;
    if (file.size() > kMaxLogBytes)
        file.resize(0);
    QTextStream stream(&file);
    stream << head;
    // A message may be as large as an answer of the service. Writing it in pieces avoids copying
    // all of it twice.
    for (int start = 0; start < message.size(); start += kPieceLength)
        stream << message.midRef(start, kPieceLength);
    stream << "\r\n";
    stream.flush();
    file.close();
}
