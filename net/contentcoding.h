// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>

#include <functional>
#include <memory>

/**
 * Decompresses a body that came with the header Content-Encoding: "gzip", or "deflate" with or
 * without its zlib wrapper (RFC 9110, 8.4.1). A body with any other coding passes through
 * unchanged. Works piece by piece, so memory use does not grow with the body. One thread at a time.
 */
class ContentDecoder
{
public:
    /// Receives a piece of the decompressed body, of at most 64 KiB unless the body came
    /// uncompressed. Returns false to stop.
    using Sink = std::function<bool(const QByteArray &)>;

    explicit ContentDecoder(const QByteArray &coding);
    ~ContentDecoder();

    /// Decompresses the next @p piece of the body into @p sink. Returns false once the data is
    /// damaged or @p sink has stopped. Bytes after the end of the compressed data are ignored.
    bool Feed(const QByteArray &piece, const Sink &sink);

    /// True when the body may end here: the compressed data is complete, or nothing is compressed.
    bool IsComplete() const;

private:
    Q_DISABLE_COPY(ContentDecoder)

    class Inflater;

    bool Begin(const QByteArray &piece);

    bool m_compressed;
    bool m_mayBeRaw;
    bool m_failed = false;
    QByteArray m_start; ///< the first bytes, until the wrapper is known
    std::unique_ptr<Inflater> m_inflater;
};

/**
 * Decompresses the whole @p body in place. Returns false and leaves @p body unchanged when it is
 * damaged or incomplete, or when it has more than @p limit bytes before or after decompression.
 */
bool DecodeContent(const QByteArray &coding, qint64 limit, QByteArray &body);
