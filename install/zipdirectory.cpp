#include "install/zipdirectory.h"

#include <QStringList>
#include <QtEndian>

#include <algorithm>
#include <limits>
#include <zlib.h>

namespace
{

// Signatures and fixed sizes of the records: APPNOTE.TXT 4.3.7, 4.3.12 and 4.3.16.
constexpr quint32 kLocalHeaderSignature = 0x04034b50;
constexpr quint32 kCentralHeaderSignature = 0x02014b50;
constexpr quint32 kEndOfDirectorySignature = 0x06054b50;
constexpr int kLocalHeaderSize = 30;
constexpr int kCentralHeaderSize = 46;
constexpr int kEndOfDirectorySize = 22;
constexpr int kEntriesOffset = 8; // in the end-of-directory record
constexpr int kMaxCommentSize = 65535;

constexpr quint16 kEncryptedFlag = 0x0001;
constexpr quint16 kStored = 0;
constexpr quint16 kDeflated = 8;

constexpr qint64 kPieceSize = 64LL * 1024;

quint16 Word(const QByteArray &record, int offset)
{
    return qFromLittleEndian<quint16>(record.constData() + offset);
}

quint32 DoubleWord(const QByteArray &record, int offset)
{
    return qFromLittleEndian<quint32>(record.constData() + offset);
}

/// The end-of-directory record, which stands last but for a comment; empty when there is none.
QByteArray ReadEndOfDirectory(QIODevice &archive)
{
    const qint64 tailSize = std::min<qint64>(archive.size(), kEndOfDirectorySize + kMaxCommentSize);
    if (!archive.seek(archive.size() - tailSize))
        return QByteArray();
    const QByteArray tail = archive.read(tailSize);
    for (int start = tail.size() - kEndOfDirectorySize; start >= 0; --start) {
        if (DoubleWord(tail, start) == kEndOfDirectorySignature)
            return tail.mid(start, kEndOfDirectorySize);
    }
    return QByteArray();
}

/// Reads the entry at the device's position. False when it is cut short or not one at all.
bool ReadEntry(QIODevice &archive, ZipEntry &entry)
{
    const QByteArray header = archive.read(kCentralHeaderSize);
    if (header.size() < kCentralHeaderSize || DoubleWord(header, 0) != kCentralHeaderSignature)
        return false;
    entry.flags = Word(header, 8);
    entry.method = Word(header, 10);
    entry.crc32 = DoubleWord(header, 16);
    entry.packedSize = DoubleWord(header, 20);
    entry.size = DoubleWord(header, 24);
    entry.localHeaderOffset = DoubleWord(header, 42);

    const int nameSize = Word(header, 28);
    const int restSize = Word(header, 30) + Word(header, 32);
    entry.rawName = archive.read(nameSize);
    return entry.rawName.size() == nameSize && archive.read(restSize).size() == restSize;
}

/// Sums up unpacked data and compares it with what the header declares.
class Tally
{
public:
    explicit Tally(const ZipEntry &declared) : m_declared(declared) {}

    /// False once there is more data than declared.
    bool Add(const QByteArray &piece, qint64 size)
    {
        m_size += size;
        m_crc = ::crc32(m_crc, reinterpret_cast<const Bytef *>(piece.constData()), uInt(size));
        return m_size <= m_declared.size;
    }

    bool Matches() const { return m_size == m_declared.size && m_crc == m_declared.crc32; }

private:
    const ZipEntry &m_declared;
    qint64 m_size = 0;
    uLong m_crc = ::crc32(0, nullptr, 0);
};

/// A raw deflate stream (RFC 1951) being unpacked piece by piece.
class Inflater
{
public:
    Inflater() { m_ready = inflateInit2(&m_stream, -MAX_WBITS) == Z_OK; }
    ~Inflater()
    {
        if (m_ready)
            inflateEnd(&m_stream);
    }
    Q_DISABLE_COPY(Inflater)

    bool AtEnd() const { return m_result == Z_STREAM_END; }

    /// Unpacks @p packed into @p tally. False when the data is damaged or more than declared.
    bool Feed(QByteArray packed, Tally &tally)
    {
        m_stream.next_in = reinterpret_cast<Bytef *>(packed.data());
        m_stream.avail_in = uInt(packed.size());
        QByteArray piece(int(kPieceSize), Qt::Uninitialized);
        do {
            m_stream.next_out = reinterpret_cast<Bytef *>(piece.data());
            m_stream.avail_out = uInt(piece.size());
            m_result = m_ready ? inflate(&m_stream, Z_NO_FLUSH) : Z_MEM_ERROR;
            if (m_result != Z_OK && m_result != Z_STREAM_END && m_result != Z_BUF_ERROR)
                return false;
            if (!tally.Add(piece, piece.size() - qint64(m_stream.avail_out)))
                return false;
        } while (m_stream.avail_out == 0 && !AtEnd());
        return true;
    }

private:
    z_stream m_stream = {};
    int m_result = Z_OK;
    bool m_ready = false;
};

/// Places the device at the entry's data. False when the local header is not there or disagrees.
bool SeekToData(QIODevice &archive, const ZipEntry &entry)
{
    if (!archive.seek(entry.localHeaderOffset))
        return false;
    const QByteArray header = archive.read(kLocalHeaderSize);
    if (header.size() < kLocalHeaderSize || DoubleWord(header, 0) != kLocalHeaderSignature ||
        Word(header, 8) != entry.method)
        return false;
    const qint64 start = archive.pos() + Word(header, 26) + Word(header, 28);
    return start + entry.packedSize <= archive.size() && archive.seek(start);
}

} // namespace

QVector<ZipEntry> ReadZipDirectory(QIODevice &archive)
{
    const QByteArray end = ReadEndOfDirectory(archive);
    if (end.isEmpty() || !archive.seek(DoubleWord(end, 16)))
        return {};

    QVector<ZipEntry> entries;
    for (int left = Word(end, kEntriesOffset); left > 0; --left) {
        ZipEntry entry;
        if (!ReadEntry(archive, entry))
            break;
        entries.append(entry);
    }
    return entries;
}

bool ZipDirectoryIsWhole(QIODevice &archive)
{
    const QByteArray end = ReadEndOfDirectory(archive);
    if (end.isEmpty() || ReadZipDirectory(archive).size() != Word(end, kEntriesOffset))
        return false;
    const QByteArray next = archive.read(kEndOfDirectorySize);
    return next == end;
}

bool ZipDataIsSound(QIODevice &archive, const ZipEntry &entry)
{
    // Qt's zip reader keeps sizes and offsets in a signed 32-bit integer, and the data in one byte
    // array, which needs some bytes for itself.
    constexpr quint32 readerLimit = std::numeric_limits<qint32>::max();
    constexpr quint32 dataLimit = readerLimit - 64;
    if (entry.packedSize > dataLimit || entry.size > dataLimit ||
        entry.localHeaderOffset > readerLimit)
        return false;
    if ((entry.flags & kEncryptedFlag) != 0 ||
        (entry.method != kStored && entry.method != kDeflated))
        return false;
    if (!SeekToData(archive, entry))
        return false;

    Tally tally(entry);
    Inflater inflater;
    for (qint64 left = entry.packedSize; left > 0;) {
        const QByteArray packed = archive.read(std::min(left, kPieceSize));
        if (packed.isEmpty() || inflater.AtEnd())
            return false;
        left -= packed.size();
        const bool fits = entry.method == kStored ? tally.Add(packed, packed.size())
                                                  : inflater.Feed(packed, tally);
        if (!fits)
            return false;
    }
    return tally.Matches() && (entry.method == kStored || inflater.AtEnd());
}

bool StaysInFolder(const QString &path)
{
    if (path.startsWith(QLatin1Char('/')) || path.contains(QLatin1Char(':')) ||
        path.contains(QLatin1Char('\\')))
        return false;
    const QStringList segments = path.split(QLatin1Char('/'));
    return std::none_of(segments.cbegin(), segments.cend(), [](const QString &segment) {
        // Windows drops blanks and dots at the end of a name: "..", ".. " and "..." may all climb.
        const bool onlyDotsAndBlanks =
            std::all_of(segment.cbegin(), segment.cend(), [](QChar character) {
                return character == QLatin1Char('.') || character == QLatin1Char(' ');
            });
        return onlyDotsAndBlanks && segment.count(QLatin1Char('.')) > 1;
    });
}
