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
 * The entries of the logs of several nodes, and of their rotated files, in the order of their
 * times. A file is expected to be in order itself, but for the second or so by which nginx' workers
 * write their lines late. Only files whose times overlap are open together. Main thread.
 */
class LogMerge
{
public:
    LogMerge(QStringList paths, Progress &progress);

    /// Looks into every file. Refuses what cannot be read.
    Failure Begin();

    /// Goes to the next entry. False at the end, and after a failure.
    bool Next();

    /// Its texts are valid until Next() is called.
    const AccessLogEntry &Entry() const { return m_current.reader->Entry(); }

    /// A disk failed, or the user has asked to end.
    const Failure &Error() const { return m_failure; }

    /// About the files read so far.
    const Findings &Warnings() const { return m_warnings; }

    /// Files, without those that were named twice.
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
        qint64 lateBy = 0; ///< the most that an entry came after a later one, in seconds
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
    std::vector<OpenLog> m_waiting; ///< a heap, the earliest entry first
    OpenLog m_current;
    Failure m_failure;
    Findings m_warnings;
    qint64 m_lines = 0;
    qint64 m_damagedLines = 0;
};
