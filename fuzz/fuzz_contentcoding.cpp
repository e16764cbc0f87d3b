// SPDX-License-Identifier: MIT
// A compressed answer to the check. The first byte chooses the announced coding and the limit of
// the unpacked size; the rest is the body.

#include "fuzz/support/require.h"
#include "net/contentcoding.h"

#include <QByteArray>

#include <array>
#include <cstddef>
#include <cstdint>
#include <zlib.h>

namespace
{

constexpr std::array<const char *, 6> kCodings{"gzip", "deflate", " GZip ", "br", "", "identity"};
constexpr std::array<qint64, 4> kLimits{0, 100, 64LL * 1024, 8LL * 1024 * 1024};

bool IsUnpacked(const QByteArray &coding)
{
    const QByteArray name = coding.trimmed().toLower();
    return name == "gzip" || name == "deflate";
}

void RequireHarmless(const QByteArray &coding, qint64 limit, const QByteArray &body)
{
    QByteArray unpacked = body;
    const bool done = DecodeContent(coding, limit, unpacked);
    if (!IsUnpacked(coding))
        Require(done == (body.size() <= limit),
                "a body of another coding is accepted up to the limit");
    if (done && IsUnpacked(coding))
        Require(unpacked.size() <= limit, "an unpacked body is not larger than the limit");
    else
        Require(unpacked == body, "a body that is not unpacked is unchanged");
}

/// @p windowBits as zlib's deflateInit2 takes them.
QByteArray Packed(QByteArray plain, int windowBits)
{
    z_stream stream{};
    Require(deflateInit2(&stream, 1, Z_DEFLATED, windowBits, 8, Z_DEFAULT_STRATEGY) == Z_OK,
            "zlib compresses");
    QByteArray packed(int(deflateBound(&stream, uLong(plain.size()))), Qt::Uninitialized);
    stream.next_in = reinterpret_cast<Bytef *>(plain.data());
    stream.avail_in = uInt(plain.size());
    stream.next_out = reinterpret_cast<Bytef *>(packed.data());
    stream.avail_out = uInt(packed.size());
    Require(deflate(&stream, Z_FINISH) == Z_STREAM_END, "zlib compresses in one call");
    packed.chop(int(stream.avail_out));
    deflateEnd(&stream);
    return packed;
}

void RequireRoundTrip(const QByteArray &plain)
{
    struct Way {
        const char *coding;
        int windowBits;
    };
    for (const Way &way :
         {Way{"gzip", MAX_WBITS + 16}, Way{"deflate", MAX_WBITS}, Way{"deflate", -MAX_WBITS}}) {
        const QByteArray packed = Packed(plain, way.windowBits);
        // Incompressible data gets larger by packing.
        const qint64 limit = qMax(packed.size(), plain.size());
        QByteArray body = packed;
        Require(DecodeContent(way.coding, limit, body) && body == plain,
                "unpacking restores the packed data");
        body = packed;
        Require(!DecodeContent(way.coding, limit - 1, body),
                "a body one byte above the limit is refused");
        // Without its last byte, a stream is incomplete.
        body = packed.left(packed.size() - 1);
        Require(!DecodeContent(way.coding, limit, body), "an incomplete body is refused");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const QByteArray body(reinterpret_cast<const char *>(data) + 1, int(size) - 1);
    const char *coding = kCodings.at(data[0] % kCodings.size());
    RequireHarmless(coding, kLimits.at(data[0] / kCodings.size() % kLimits.size()), body);
    RequireRoundTrip(body);
    return 0;
}
