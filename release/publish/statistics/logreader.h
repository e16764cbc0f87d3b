#pragma once

#include "release/publish/base/findings.h"
#include "release/publish/base/progress.h"
#include "release/publish/statistics/accesslog.h"

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QtGlobal>

#include <memory>
#include <string_view>

struct z_stream_s;

/**
 * The bytes of a file, unpacked if they are gzip data, which its beginning tells. Several gzip
 * members in a row are one text, as for other readers. Main thread.
 */
class LogBytes
{
public:
    LogBytes(const QString &path, Progress *progress);
    ~LogBytes();
    Q_DISABLE_COPY(LogBytes)

    /// Refuses a file that cannot be read.
    Failure Open();

    /**
     * Puts up to @p size bytes into @p target. Returns how many, and 0 at the end: of the file, of
     * the readable part of damaged gzip data, or after a failure.
     */
    qint64 Read(char *target, qint64 size);

    /// The disk failed, or the user has asked to end.
    const Failure &Error() const { return m_failure; }

    /// The gzip data ended in its middle or is damaged.
    bool IsDamaged() const { return m_isDamaged; }

private:
    bool FillInput();
    qint64 Unpack(char *target, qint64 size);

    QFile m_file;
    Progress *m_progress;
    QByteArray m_input;     ///< as it is in the file
    char *m_next = nullptr; ///< in m_input
    qint64 m_left = 0;      ///< from m_next on
    Failure m_failure;
    bool m_isDamaged = false;
    bool m_isBetweenMembers = false;
    std::unique_ptr<z_stream_s> m_stream; ///< nothing for plain text
};

/// The entries of one access log, in the order of its lines. Main thread.
class LogReader
{
public:
    /// @p progress is told of the bytes of the file that were read; it may be nothing.
    LogReader(const QString &path, Progress *progress);

    /// Refuses a file that cannot be read.
    Failure Open();

    /// Goes to the next entry. False at the end, and after a failure.
    bool Next();

    /// Its texts are valid until Next() is called.
    const AccessLogEntry &Entry() const { return m_entry; }

    qint64 Lines() const { return m_lines; }
    qint64 DamagedLines() const { return m_damagedLines; }
    const Failure &Error() const { return m_bytes.Error(); }
    bool IsDamaged() const { return m_bytes.IsDamaged(); }

private:
    bool NextLine(std::string_view &line);
    bool ReadMore();

    LogBytes m_bytes;
    QByteArray m_buffer;
    int m_begin = 0;          ///< of what is not parsed yet
    int m_end = 0;            ///< of what was read
    bool m_isTooLong = false; ///< the line whose beginning was dropped from the buffer
    AccessLogParser m_parser;
    AccessLogEntry m_entry;
    qint64 m_lines = 0;
    qint64 m_damagedLines = 0;
};
