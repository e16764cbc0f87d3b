// SPDX-License-Identifier: MIT
#include "release/publish/statistics/logmerge.h"

#include <QFileInfo>
#include <QSet>

#include <algorithm>
#include <limits>
#include <utility>

namespace
{

/// In seconds; far more than the buffers of nginx cause. Two logs that were joined into one file
/// exceed it.
constexpr qint64 kToleratedDelay = 60;

} // namespace

LogMerge::LogMerge(QStringList paths, Progress &progress)
    : m_paths(std::move(paths)), m_progress(progress)
{
}

Failure LogMerge::Begin()
{
    QSet<QString> known;
    qint64 total = 0;
    for (const QString &path : qAsConst(m_paths)) {
        const QFileInfo file(path);
        const QString canonicalPath = file.canonicalFilePath();
        if (!canonicalPath.isEmpty() && known.contains(canonicalPath)) {
            m_warnings.append({QStringLiteral("log-twice"), path,
                               QStringLiteral("%1 is named twice and was read once").arg(path)});
            continue;
        }
        known.insert(canonicalPath);
        if (Failure failure = Add(path))
            return failure;
        total += file.size();
    }
    std::stable_sort(m_logs.begin(), m_logs.end(), [](const Log &one, const Log &other) {
        return one.firstTime < other.firstTime;
    });
    m_progress.Begin(QStringLiteral("reading"), total);
    return {};
}

Failure LogMerge::Add(const QString &path)
{
    const QFileInfo file(path);
    if (file.exists() && !file.isFile()) {
        return Finding{QStringLiteral("unreadable"), path,
                       QStringLiteral("%1 is not a file; name the logs in the folder, or save the "
                                      "output of a program to a file")
                           .arg(path)};
    }
    LogReader reader(path, nullptr);
    if (Failure failure = reader.Open())
        return failure;
    const bool hasEntry = reader.Next();
    if (reader.Error())
        return reader.Error();
    m_logs.push_back({path, hasEntry ? reader.Entry().time : std::numeric_limits<qint64>::min()});
    return {};
}

bool LogMerge::Next()
{
    if (m_current.reader && GoOn(m_current)) {
        // Most of the time the next entry is in the same file.
        const bool isFirst = m_waiting.empty() || !ComesAfter(m_current, m_waiting.front());
        if (isFirst && !IsNextLogDue(m_current.reader->Entry().time))
            return true;
        Wait(std::move(m_current));
    }
    m_current = OpenLog();
    while (!m_failure && m_nextLog < m_logs.size() &&
           (m_waiting.empty() || IsNextLogDue(m_waiting.front().reader->Entry().time)))
        OpenNextLog();
    if (m_failure || m_waiting.empty())
        return false;
    std::pop_heap(m_waiting.begin(), m_waiting.end(), ComesAfter);
    m_current = std::move(m_waiting.back());
    m_waiting.pop_back();
    return true;
}

void LogMerge::OpenNextLog()
{
    OpenLog log;
    log.index = m_nextLog++;
    log.reader = std::make_unique<LogReader>(m_logs[log.index].path, &m_progress);
    m_failure = log.reader->Open();
    if (!m_failure && GoOn(log))
        Wait(std::move(log));
}

bool LogMerge::IsNextLogDue(qint64 time) const
{
    return m_nextLog < m_logs.size() && m_logs[m_nextLog].firstTime <= time;
}

/// Advances @p log. At its end, closes it and returns false.
bool LogMerge::GoOn(OpenLog &log)
{
    if (!log.reader->Next()) {
        Close(log);
        return false;
    }
    const qint64 time = log.reader->Entry().time;
    log.lateBy = qMax(log.lateBy, log.latestTime - time);
    log.latestTime = qMax(log.latestTime, time);
    return true;
}

void LogMerge::Close(const OpenLog &log)
{
    const LogReader &reader = *log.reader;
    const QString &path = m_logs[log.index].path;
    if (reader.Error())
        m_failure = reader.Error();
    m_lines += reader.Lines();
    m_damagedLines += reader.DamagedLines();
    if (reader.IsDamaged()) {
        m_warnings.append({QStringLiteral("gzip-damaged"), path,
                           QStringLiteral("%1: the gzip data is damaged or truncated, and the rest "
                                          "is not counted; copy the file again")
                               .arg(path)});
    }
    if (reader.Lines() > 0 && reader.Lines() == reader.DamagedLines()) {
        m_warnings.append({QStringLiteral("log-form"), path,
                           QStringLiteral("%1 has no line in the format of updates/log.conf; name "
                                          "the access_log of updates.conf")
                               .arg(path)});
    }
    if (log.lateBy > kToleratedDelay) {
        m_warnings.append(
            {QStringLiteral("log-order"), path,
             QStringLiteral(
                 "%1: lines are up to %2 seconds out of order, so the figures about networks that "
                 "came back are wrong; pass the logs of each node as separate files")
                 .arg(path, QString::number(log.lateBy))});
    }
}

void LogMerge::Wait(OpenLog &&log)
{
    m_waiting.push_back(std::move(log));
    std::push_heap(m_waiting.begin(), m_waiting.end(), ComesAfter);
}

/// Compares by time, then by file, so that the result is always the same.
bool LogMerge::ComesAfter(const OpenLog &one, const OpenLog &other)
{
    return std::make_pair(one.reader->Entry().time, one.index) >
           std::make_pair(other.reader->Entry().time, other.index);
}
