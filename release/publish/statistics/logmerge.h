// SPDX-License-Identifier: MIT
#pragma once

#include "release/publish/base/findings.h"
#include "release/publish/base/progress.h"
#include "release/publish/statistics/accesslog.h"
#include "release/publish/statistics/logreader.h"

#include <QString>
#include <QStringList>
#include <QVector>
#include <QtGlobal>

#include <memory>
#include <vector>

/**
 * Merges the logs of several nodes, including rotated files, in the order of time. Each file must
 * be in order itself, except for the second or so by which the workers of nginx write late. Only
 * files whose times overlap are open at the same time. Main thread.
 */
class LogMerge
{
public:
    LogMerge(QStringList paths, Progress &progress);

    /// Looks at every file. Fails when one cannot be read.
    Failure Begin();

    /// Advances to the next entry. False at the end and after a failure.
    bool Next();

    /// The texts are valid until Next() is called.
    const AccessLogEntry &Entry() const { return m_current.reader->Entry(); }

    /// Set when a disk failed or the user has interrupted the command.
    const Failure &Error() const { return m_failure; }

    /// About the files read so far.
    const Findings &Warnings() const { return m_warnings; }

    /// The number of files; those that are named twice count once.
    int Files() const { return int(m_logs.size()); }
    qint64 Lines() const { return m_lines; }
    qint64 DamagedLines() const { return m_damagedLines; }

private:
    struct Log {
        QString path;
        qint64 firstTime;
    };
    struct OpenLog {
        size_t index = 0; ///< in m_logs
        qint64 latestTime = 0;
        qint64 lateBy = 0; ///< the largest delay of an entry after a later one, in seconds
        std::unique_ptr<LogReader> reader;
    };

    Failure Add(const QString &path);
    void OpenNextLog();
    bool IsNextLogDue(qint64 time) const;
    bool GoOn(OpenLog &log);
    void Close(const OpenLog &log);
    void Wait(OpenLog &&log);
    static bool ComesAfter(const OpenLog &one, const OpenLog &other);

    QStringList m_paths;
    Progress &m_progress;
    std::vector<Log> m_logs; ///< the earliest first
    size_t m_nextLog = 0;
    std::vector<OpenLog> m_waiting; ///< a heap with the earliest entry first
    OpenLog m_current;
    Failure m_failure;
    Findings m_warnings;
    qint64 m_lines = 0;
    qint64 m_damagedLines = 0;
};
