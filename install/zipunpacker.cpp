// SPDX-License-Identifier: MIT
#include "install/zipunpacker.h"

#include "install/zipformat.h"

#include <algorithm>
#include <limits>
#include <zlib.h>

namespace
{

/// Of sizes and offsets: what Qt's zip reader can tell, which keeps them in signed numbers.
constexpr quint32 kMaxSize = std::numeric_limits<qint32>::max();

constexpr int kPackedPieceSize = 64 * 1024;

/// After each piece zlib saves the last 32 KiB of it: with small pieces that takes its time.
constexpr int kPlainPieceSize = 256 * 1024;

bool IsTaken(const ZipEntry &entry)
{
    if (entry.packedSize > kMaxSize || entry.size > kMaxSize || entry.localHeaderOffset > kMaxSize)
        return false;
    if (entry.versionNeeded > ZipFormat::Version || (entry.flags & ZipFormat::EncryptedFlag) != 0)
        return false;
    return entry.method == ZipFormat::Deflated ||
           (entry.method == ZipFormat::Stored && entry.packedSize == entry.size);
}

/// The size and the checksum of the unpacked data, compared with those in the header.
class Tally
{
public:
    explicit Tally(const ZipEntry &declared) : m_declared(declared) {}

    /// False once there is more data than declared.
    bool Add(const char *data, qint64 size)
    {
        m_size += size;
        m_crc = ::crc32(m_crc, reinterpret_cast<const Bytef *>(data), uInt(size));
        return m_size <= m_declared.size;
    }

    bool Matches() const { return m_size == m_declared.size && m_crc == m_declared.crc32; }

private:
    const ZipEntry &m_declared;
    qint64 m_size = 0;
    uLong m_crc = ::crc32(0, nullptr, 0);
};

} // namespace

/// Decompresses raw deflate streams, one after the other.
class ZipUnpacker::Inflater
{
public:
    Inflater() { m_ready = inflateInit2(&m_stream, -MAX_WBITS) == Z_OK; }
    ~Inflater()
    {
        if (m_ready)
            inflateEnd(&m_stream);
    }
    Q_DISABLE_COPY(Inflater)

    /// Starts a new stream. False when there is not enough memory.
    bool Begin()
    {
        m_result = Z_OK;
        return m_ready && inflateReset(&m_stream) == Z_OK;
    }

    bool AtEnd() const { return m_result == Z_STREAM_END; }

    /// Unpacks the next piece of the stream. False when it is damaged or @p sink has stopped.
    bool Feed(const char *packed, qint64 size, const CheckedSink &sink)
    {
        // zlib does not write to its input.
        m_stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(packed));
        m_stream.avail_in = uInt(size);
        do {
            m_stream.next_out = reinterpret_cast<Bytef *>(m_plain.data());
            m_stream.avail_out = uInt(m_plain.size());
            m_result = inflate(&m_stream, Z_NO_FLUSH);
            if (m_result != Z_OK && m_result != Z_STREAM_END && m_result != Z_BUF_ERROR)
                return false;
            const qint64 unpacked = m_plain.size() - qint64(m_stream.avail_out);
            if (unpacked > 0 && !sink(m_plain.constData(), unpacked))
                return false;
        } while (m_stream.avail_out == 0 && !AtEnd());
        return true;
    }

private:
    z_stream m_stream = {};
    int m_result = Z_OK;
    bool m_ready = false;
    QByteArray m_plain{kPlainPieceSize, Qt::Uninitialized};
};

ZipUnpacker::ZipUnpacker(QIODevice &archive)
    : m_archive(archive), m_packed(kPackedPieceSize, Qt::Uninitialized),
      m_inflater(std::make_unique<Inflater>())
{
}

ZipUnpacker::~ZipUnpacker() = default;

bool ZipUnpacker::Find(const ZipEntry &entry)
{
    m_entry = entry;
    return IsTaken(entry) && SeekToZipData(m_archive, entry);
}

bool ZipUnpacker::Unpack(const Sink &sink)
{
    Tally tally(m_entry);
    const CheckedSink checkedSink = [&tally, &sink](const char *data, qint64 size) {
        if (!tally.Add(data, size))
            return false;
        sink(data, size);
        return true;
    };
    const bool isWhole = m_entry.method == ZipFormat::Stored ? UnpackStored(checkedSink)
                                                             : UnpackDeflated(checkedSink);
    return isWhole && tally.Matches();
}

/// Reads the next of the @p left bytes of packed data. Returns their number, or 0 or less for none.
qint64 ZipUnpacker::ReadPiece(qint64 left)
{
    return m_archive.read(m_packed.data(), std::min<qint64>(left, m_packed.size()));
}

bool ZipUnpacker::UnpackStored(const CheckedSink &sink)
{
    for (qint64 left = m_entry.packedSize; left > 0;) {
        const qint64 size = ReadPiece(left);
        if (size <= 0 || !sink(m_packed.constData(), size))
            return false;
        left -= size;
    }
    return true;
}

bool ZipUnpacker::UnpackDeflated(const CheckedSink &sink)
{
    if (!m_inflater->Begin())
        return false;
    for (qint64 left = m_entry.packedSize; left > 0;) {
        const qint64 size = ReadPiece(left);
        if (size <= 0 || m_inflater->AtEnd() || !m_inflater->Feed(m_packed.constData(), size, sink))
            return false;
        left -= size;
    }
    return m_inflater->AtEnd();
}

bool ZipDataIsSound(QIODevice &archive, const ZipEntry &entry)
{
    ZipUnpacker unpacker(archive);
    return unpacker.Find(entry) && unpacker.Unpack([](const char *, qint64) {});
}
