#pragma once

#include <QByteArray>

#include <functional>
#include <memory>

/**
 * Decompresses a body that came with the header Content-Encoding: "gzip", or "deflate" with or
 * without its zlib wrapper (RFC 9110, 8.4.1). A body of any other coding passes through as it is.
 * Works piece by piece, so memory does not grow with the body. One thread at a time.
 */
class ContentDecoder
{
public:
    /// Takes a piece of the plain body, of at most 64 KiB unless the body is not compressed; false
    /// to stop.
    using Sink = std::function<bool(const QByteArray &)>;

    explicit ContentDecoder(const QByteArray &coding);
    ~ContentDecoder();

    /// Hands on what @p piece, the next one of the body, makes. False when the data is damaged or
    /// @p sink has stopped; it stays so. What follows the end of the compressed data is ignored.
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
    QByteArray m_start; ///< bytes that came before it was clear how they are wrapped
    std::unique_ptr<Inflater> m_inflater;
};

/**
 * Decompresses the whole @p body in place. False when it is damaged, cut short or larger than @p
 * limit bytes, as it comes or decompressed; @p body is then as it was.
 */
bool DecodeContent(const QByteArray &coding, qint64 limit, QByteArray &body);
