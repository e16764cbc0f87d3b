// SPDX-License-Identifier: MIT
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
 * The content of a file, unpacked if it begins like gzip data. Several gzip members are
 * concatenated, as other readers do. Main thread.
 */
class LogBytes
{
public:
    LogBytes(const QString &path, Progress *progress);
    ~LogBytes();
    Q_DISABLE_COPY(LogBytes)

    /// Fails when the file cannot be read.
    Failure Open();

    /**
     * Reads up to @p size bytes into @p target. Returns how many; 0 at the end of the file or of
     * the readable part of damaged gzip data, and after a failure.
     */
    qint64 Read(char *target, qint64 size);

    /// Set when the disk failed or the user has interrupted the command.
    const Failure &Error() const { return m_failure; }

    /// Whether the gzip data is truncated or damaged.
    bool IsDamaged() const { return m_isDamaged; }

private:
    bool FillInput();
    qint64 Unpack(char *target, qint64 size);

    QFile m_file;
    Progress *m_progress;
    QByteArray m_input;     ///< as in the file
    char *m_next = nullptr; ///< in m_input
    qint64 m_left = 0;      ///< after m_next
    Failure m_failure;
    bool m_isDamaged = false;
    bool m_isBetweenMembers = false;
    std::unique_ptr<z_stream_s> m_stream; ///< null for plain text
};

/// Reads the entries of one access log in the order of its lines. Main thread.
class LogReader
{
public:
    /// @p progress advances with the bytes that are read from the file; it may be null.
    LogReader(const QString &path, Progress *progress);

    /// Fails when the file cannot be read.
    Failure Open();

    /// Advances to the next entry. False at the end and after a failure.
    bool Next();

    /// The texts are valid until Next() is called.
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
    int m_begin = 0;          ///< of the bytes that are not parsed yet
    int m_end = 0;            ///< of the bytes that were read
    bool m_isTooLong = false; ///< the beginning of the current line was dropped
    AccessLogParser m_parser;
    AccessLogEntry m_entry;
    qint64 m_lines = 0;
    qint64 m_damagedLines = 0;
};
