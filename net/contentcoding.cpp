// SPDX-License-Identifier: MIT
#include "net/contentcoding.h"

#include <utility>
#include <zlib.h>

namespace
{

constexpr int kPieceSize = 64 * 1024;

// Window bits for zlib's inflateInit2().
constexpr int kGzipOrZlib = MAX_WBITS + 32;
constexpr int kNoWrapper = -MAX_WBITS;

/// True when @p data begins with the two bytes of a gzip (RFC 1952, 2.3.1) or zlib (RFC 1950, 2.2)
/// wrapper.
bool BeginsWithWrapper(const QByteArray &data)
{
    const auto first = uchar(data.at(0));
    const auto second = uchar(data.at(1));
    const bool gzip = first == 0x1f && second == 0x8b;
    const bool zlib = (first & 0x0f) == Z_DEFLATED && (first * 256 + second) % 31 == 0;
    return gzip || zlib;
}

} // namespace

/// One compressed stream.
class ContentDecoder::Inflater
{
public:
    explicit Inflater(int windowBits) { m_ready = inflateInit2(&m_stream, windowBits) == Z_OK; }
    ~Inflater()
    {
        if (m_ready)
            inflateEnd(&m_stream);
    }
    Q_DISABLE_COPY(Inflater)

    bool AtEnd() const { return m_state == Z_STREAM_END; }

    bool Feed(const QByteArray &piece, const Sink &sink)
    {
        if (!m_ready)
            return false;
        // zlib does not write to its input.
        m_stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(piece.constData()));
        m_stream.avail_in = uInt(piece.size());
        do {
            m_plain.resize(kPieceSize);
            m_stream.next_out = reinterpret_cast<Bytef *>(m_plain.data());
            m_stream.avail_out = uInt(m_plain.size());
            m_state = inflate(&m_stream, Z_NO_FLUSH);
            if (m_state != Z_OK && m_state != Z_STREAM_END && m_state != Z_BUF_ERROR)
                return false;
            m_plain.chop(int(m_stream.avail_out));
            if (!m_plain.isEmpty() && !sink(m_plain))
                return false;
        } while (m_stream.avail_out == 0 && !AtEnd());
        return true;
    }

private:
    z_stream m_stream{};
    int m_state = Z_OK;
    bool m_ready = false;
    QByteArray m_plain;
};

ContentDecoder::ContentDecoder(const QByteArray &coding)
{
    const QByteArray name = coding.trimmed().toLower();
    m_mayBeRaw = name == "deflate";
    m_compressed = m_mayBeRaw || name == "gzip";
}

ContentDecoder::~ContentDecoder() = default;

bool ContentDecoder::Begin(const QByteArray &piece)
{
    m_start += piece;
    if (m_start.size() < 2)
        return false;
    const bool raw = m_mayBeRaw && !BeginsWithWrapper(m_start);
    m_inflater = std::make_unique<Inflater>(raw ? kNoWrapper : kGzipOrZlib);
    return true;
}

bool ContentDecoder::Feed(const QByteArray &piece, const Sink &sink)
{
    if (m_failed)
        return false;
    if (!m_compressed)
        m_failed = !sink(piece);
    else if (m_inflater == nullptr && Begin(piece))
        m_failed = !m_inflater->Feed(std::exchange(m_start, QByteArray()), sink);
    else if (m_inflater != nullptr && !m_inflater->AtEnd())
        m_failed = !m_inflater->Feed(piece, sink);
    return !m_failed;
}

bool ContentDecoder::IsComplete() const
{
    return !m_failed && (!m_compressed || (m_inflater != nullptr && m_inflater->AtEnd()));
}

bool DecodeContent(const QByteArray &coding, qint64 limit, QByteArray &body)
{
    if (body.size() > limit)
        return false;
    QByteArray plain;
    ContentDecoder decoder(coding);
    const auto collect = [&plain, limit](const QByteArray &piece) {
        if (plain.size() + piece.size() > limit)
            return false;
        plain += piece;
        return true;
    };
    if (!decoder.Feed(body, collect) || !decoder.IsComplete())
        return false;
    body = plain;
    return true;
}
