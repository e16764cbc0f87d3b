// SPDX-License-Identifier: MIT
#include "release/publish/statistics/logreader.h"

#include <zlib.h>

#include <cstring>

namespace
{

constexpr int kInputSize = 128 * 1024;

/// Longer lines do not belong to this log, because nginx truncates data from clients.
constexpr int kMaxLineLength = 64 * 1024;

constexpr int kBufferSize = 4 * kMaxLineLength;

/// RFC 1952, 2.3.1.
constexpr char kGzipMagic[] = {'\x1f', '\x8b'};

/// For inflateInit2(): the largest window and a gzip header before the data.
constexpr int kGzipWindow = MAX_WBITS + 16;

} // namespace

LogBytes::LogBytes(const QString &path, Progress *progress) : m_file(path), m_progress(progress) {}

LogBytes::~LogBytes()
{
    if (m_stream)
        inflateEnd(m_stream.get());
}

Failure LogBytes::Open()
{
    if (!m_file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        return Finding{QStringLiteral("unreadable"), m_file.fileName(),
                       QStringLiteral("%1: %2; name an existing log that you may read")
                           .arg(m_file.fileName(), m_file.errorString())};
    }
    m_input.resize(kInputSize);
    if (FillInput() && m_left >= qint64(sizeof(kGzipMagic)) &&
        std::memcmp(m_next, kGzipMagic, sizeof(kGzipMagic)) == 0) {
        m_stream = std::make_unique<z_stream_s>();
        inflateInit2(m_stream.get(), kGzipWindow);
    }
    return m_failure;
}

qint64 LogBytes::Read(char *target, qint64 size)
{
    if (m_stream)
        return Unpack(target, size);
    if (m_left == 0 && !FillInput())
        return 0;
    const qint64 count = qMin(size, m_left);
    std::memcpy(target, m_next, size_t(count));
    m_next += count;
    m_left -= count;
    return count;
}

bool LogBytes::FillInput()
{
    if (m_failure)
        return false;
    m_next = m_input.data();
    m_left = m_file.read(m_next, m_input.size());
    if (m_left < 0) {
        m_left = 0;
        m_failure = Finding{QStringLiteral("unreadable"), m_file.fileName(),
                            QStringLiteral("%1: %2; copy the log to a working disk")
                                .arg(m_file.fileName(), m_file.errorString())};
    } else if (m_progress && !m_progress->Advance(m_left)) {
        m_left = 0;
        m_failure = Interrupted();
    }
    return m_left > 0;
}

qint64 LogBytes::Unpack(char *target, qint64 size)
{
    z_stream_s &stream = *m_stream;
    stream.next_out = reinterpret_cast<Bytef *>(target);
    stream.avail_out = uInt(size);
    while (stream.avail_out == uInt(size) && !m_isDamaged) {
        if (m_left == 0 && !FillInput()) {
            m_isDamaged = !m_isBetweenMembers && !m_failure;
            break;
        }
        if (m_isBetweenMembers)
            inflateReset(&stream);
        stream.next_in = reinterpret_cast<Bytef *>(m_next);
        stream.avail_in = uInt(m_left);
        const int result = inflate(&stream, Z_NO_FLUSH);
        m_next += m_left - stream.avail_in;
        m_left = stream.avail_in;
        m_isBetweenMembers = result == Z_STREAM_END;
        m_isDamaged = result != Z_OK && result != Z_STREAM_END;
    }
    return size - stream.avail_out;
}

LogReader::LogReader(const QString &path, Progress *progress) : m_bytes(path, progress) {}

Failure LogReader::Open()
{
    m_buffer.resize(kBufferSize);
    return m_bytes.Open();
}

bool LogReader::Next()
{
    std::string_view line;
    while (NextLine(line)) {
        ++m_lines;
        if (m_parser.Parse(line, m_entry))
            return true;
        ++m_damagedLines;
    }
    return false;
}

/// The last line may have no line break, because nginx may still be writing it. A line that is too
/// long is returned as an empty one.
bool LogReader::NextLine(std::string_view &line)
{
    do {
        const char *const begin = m_buffer.constData() + m_begin;
        const auto *const lineBreak =
            static_cast<const char *>(std::memchr(begin, '\n', size_t(m_end - m_begin)));
        if (lineBreak) {
            const auto length = int(lineBreak - begin);
            m_begin += length + 1;
            line = std::string_view(begin, m_isTooLong ? 0 : size_t(length));
            m_isTooLong = false;
            return true;
        }
    } while (ReadMore());

    const bool isThere = m_isTooLong || m_end > m_begin;
    line =
        std::string_view(m_buffer.constData() + m_begin, m_isTooLong ? 0 : size_t(m_end - m_begin));
    m_begin = m_end;
    m_isTooLong = false;
    return isThere;
}

/// Reads more data after the incomplete line at the end of the buffer. False when there is none.
bool LogReader::ReadMore()
{
    if (m_end - m_begin >= kMaxLineLength) {
        m_isTooLong = true;
        m_begin = m_end;
    }
    char *const buffer = m_buffer.data();
    std::memmove(buffer, buffer + m_begin, size_t(m_end - m_begin));
    m_end -= m_begin;
    m_begin = 0;
    const qint64 count = m_bytes.Read(buffer + m_end, m_buffer.size() - m_end);
    m_end += int(count);
    return count > 0;
}
