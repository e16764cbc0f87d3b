// SPDX-License-Identifier: MIT
#include "tests/support/compression.h"

#include "tests/support/zipmaker.h"

#include <QtEndian>

#include <algorithm>
#include <zlib.h>

namespace
{

constexpr uInt kBlock = 1 << 20;

/// @p windowBits are those of deflateInit2(). @p flush ends the data or makes a block that can be
/// repeated.
QByteArray Deflated(QByteArray plain, int windowBits, int flush)
{
    z_stream stream{};
    if (deflateInit2(&stream, 9, Z_DEFLATED, windowBits, 8, Z_DEFAULT_STRATEGY) != Z_OK)
        qFatal("zlib cannot compress");
    QByteArray packed(int(deflateBound(&stream, uLong(plain.size()))) + 16, Qt::Uninitialized);
    stream.next_in = reinterpret_cast<Bytef *>(plain.data());
    stream.avail_in = uInt(plain.size());
    stream.next_out = reinterpret_cast<Bytef *>(packed.data());
    stream.avail_out = uInt(packed.size());
    deflate(&stream, flush);
    packed.chop(int(stream.avail_out));
    deflateEnd(&stream);
    return packed;
}

uLong Crc32OfZeros(quint32 size)
{
    const QByteArray block(int(kBlock), '\0');
    uLong crc = crc32(0, nullptr, 0);
    for (quint32 left = size; left > 0;) {
        const uInt next = std::min<quint32>(left, kBlock);
        crc = crc32(crc, reinterpret_cast<const Bytef *>(block.constData()), next);
        left -= next;
    }
    return crc;
}

} // namespace

QByteArray Gzip(const QByteArray &plain)
{
    return Deflated(plain, MAX_WBITS + 16, Z_FINISH);
}

QByteArray ZipOfZeros(quint32 size)
{
    // After a full flush nothing refers to earlier data, so one block can be repeated.
    const QByteArray block = Deflated(QByteArray(int(kBlock), '\0'), -MAX_WBITS, Z_FULL_FLUSH);
    const QByteArray rest(int(size % kBlock), '\0');
    const QByteArray packed =
        block.repeated(int(size / kBlock)) + Deflated(rest, -MAX_WBITS, Z_FINISH);

    ZipMaker zip;
    zip.AddFolder(QStringLiteral("pkg"));
    zip.AddFile(QStringLiteral("pkg/zeros.bin"), packed, ZipMaker::Stored);
    zip.Set(1, ZipMaker::Method, 8);
    zip.Set(1, ZipMaker::Size, size);
    zip.Set(1, ZipMaker::Crc32, quint32(Crc32OfZeros(size)));
    return zip.Bytes();
}
