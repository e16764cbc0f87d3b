#include "net/contentcoding.h"

#include <zlib.h>

#include <algorithm>

namespace
{

constexpr qint64 kPieceSize = 64LL * 1024;
constexpr int kEitherWrapping = MAX_WBITS + 32;
constexpr int kNoWrapping = -MAX_WBITS;

/// @p windowBits as zlib's inflateInit2 takes them.
bool Inflate(const QByteArray &packed, int windowBits, qint64 limit, QByteArray &plain)
{
    z_stream stream{};
    if (inflateInit2(&stream, windowBits) != Z_OK)
        return false;
    // zlib only reads from there.
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(packed.constData()));
    stream.avail_in = uInt(packed.size());

    QByteArray made;
    int state = Z_OK;
    while (state == Z_OK && made.size() <= limit) {
        const int before = made.size();
        made.resize(int(std::min(before + kPieceSize, limit + 1)));
        stream.next_out = reinterpret_cast<Bytef *>(made.data() + before);
        stream.avail_out = uInt(made.size() - before);
        state = inflate(&stream, Z_NO_FLUSH);
        made.chop(int(stream.avail_out));
    }
    inflateEnd(&stream);
    if (state != Z_STREAM_END || made.size() > limit)
        return false;
    plain = made;
    return true;
}

} // namespace

bool DecodeContent(const QByteArray &coding, qint64 limit, QByteArray &body)
{
    const QByteArray name = coding.trimmed().toLower();
    if (name == "gzip")
        return Inflate(body, kEitherWrapping, limit, body);
    if (name == "deflate")
        return Inflate(body, kEitherWrapping, limit, body) ||
               Inflate(body, kNoWrapping, limit, body);
    return true;
}
