// SPDX-License-Identifier: MIT
#include "release/publish/packing/zipwriter.h"

#include "release/publish/base/cannotwrite.h"

#include <QtEndian>

#include <zlib.h>

namespace
{

// Values of the records: PKWARE's APPNOTE.TXT, 4.4.
constexpr quint16 kMadeBy = 3 << 8 | ZipFormat::Version; // Unix, for the modes below
constexpr quint16 kNamesAreUtf8 = 0x0800;
constexpr quint32 kFileAttributes = 0100644U << 16;
constexpr quint32 kFolderAttributes = 040755U << 16 | 0x10; // and the DOS attribute

/// Midnight of 1 January 1980, the earliest time in the format.
constexpr quint16 kFirstTime = 0;
constexpr quint16 kFirstDate = 1 << 5 | 1;

constexpr int kPieceSize = 64 * 1024; // in bytes

template <typename Number> void Append(QByteArray &record, Number number)
{
    const Number little = qToLittleEndian(number);
    record.append(reinterpret_cast<const char *>(&little), int(sizeof little));
}

} // namespace

/// The header fields of one file or folder.
struct ZipWriter::Item {
    QByteArray name;
    bool isFolder = false;
    Method method = Stored;
    qint64 headerOffset = 0;
    qint64 dataOffset = 0;
    qint64 packedSize = 0;
    qint64 size = 0;
    uLong crc = ::crc32(0, nullptr, 0);
};

/// Produces a raw deflate stream (RFC 1951) in blocks.
class ZipWriter::Deflater
{
public:
    Deflater()
    {
        m_ready = deflateInit2(&m_stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, -MAX_WBITS,
                               MAX_MEM_LEVEL - 1, Z_DEFAULT_STRATEGY) == Z_OK;
    }
    ~Deflater()
    {
        if (m_ready)
            deflateEnd(&m_stream);
    }
    Q_DISABLE_COPY(Deflater)

    bool IsReady() const { return m_ready; }

    void Feed(const char *data, qint64 size)
    {
        m_stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(data));
        m_stream.avail_in = uInt(size);
    }

    /// The next compressed block; empty when more input is needed, or at the end.
    QByteArray Next(bool isLast)
    {
        QByteArray piece(kPieceSize, Qt::Uninitialized);
        m_stream.next_out = reinterpret_cast<Bytef *>(piece.data());
        m_stream.avail_out = uInt(piece.size());
        deflate(&m_stream, isLast ? Z_FINISH : Z_NO_FLUSH);
        piece.chop(int(m_stream.avail_out));
        return piece;
    }

private:
    z_stream m_stream = {};
    bool m_ready = false;
};

ZipWriter::ZipWriter(QFile &archive, qint64 maxSize) : m_archive(archive), m_maxSize(maxSize) {}

ZipWriter::~ZipWriter() = default;

bool ZipWriter::AddFolder(const QString &path)
{
    if (!BeginFile(path + QLatin1Char('/'), Stored))
        return false;
    m_item->isFolder = true;
    return true;
}

bool ZipWriter::BeginFile(const QString &path, Method method)
{
    List();
    if (m_count >= ZipFormat::MaxEntries)
        return Fail(TooLarge);
    m_item = std::make_unique<Item>();
    m_item->name = path.toUtf8();
    m_item->method = method;
    m_item->headerOffset = m_archive.pos();
    if (method == Deflated) {
        m_deflater = std::make_unique<Deflater>();
        if (!m_deflater->IsReady())
            return Fail(WriteError, QStringLiteral("there is not enough memory to pack"));
    }
    // A placeholder, until EndFile() knows the sizes and the checksum.
    if (!WriteHeader())
        return false;
    m_item->dataOffset = m_archive.pos();
    return true;
}

bool ZipWriter::Write(const char *data, qint64 size)
{
    m_item->size += size;
    m_item->crc = ::crc32(m_item->crc, reinterpret_cast<const Bytef *>(data), uInt(size));
    if (m_item->method == Stored)
        return WriteRaw(QByteArray::fromRawData(data, int(size)));
    return Deflate(data, size, false);
}

bool ZipWriter::EndFile()
{
    if (m_item->method == Deflated && !Deflate(nullptr, 0, true))
        return false;
    m_deflater.reset();
    const qint64 end = m_archive.pos();
    m_item->packedSize = end - m_item->dataOffset;
    if (!m_archive.seek(m_item->headerOffset))
        return Fail(WriteError, m_archive.errorString());
    if (!WriteHeader())
        return false;
    return m_archive.seek(end) || Fail(WriteError, m_archive.errorString());
}

qint64 ZipWriter::PackedSize() const
{
    return m_item->packedSize;
}

bool ZipWriter::RemoveLast()
{
    const qint64 start = m_item->headerOffset;
    m_item.reset();
    if (m_error != NoError)
        return false;
    return (m_archive.seek(start) && m_archive.resize(start)) ||
           Fail(WriteError, m_archive.errorString());
}

bool ZipWriter::Finish()
{
    List();
    QByteArray end;
    Append(end, ZipFormat::EndOfDirectorySignature);
    Append(end, quint32(0)); // not split into several files
    Append(end, quint16(m_count));
    Append(end, quint16(m_count));
    Append(end, quint32(m_directory.size()));
    Append(end, quint32(m_archive.pos()));
    Append(end, quint16(0)); // no comment
    return WriteRaw(m_directory) && WriteRaw(end);
}

bool ZipWriter::Fail(ErrorKind error, const QString &text)
{
    m_error = error;
    m_errorText = text;
    return false;
}

bool ZipWriter::WriteRaw(const QByteArray &bytes)
{
    if (m_error != NoError)
        return false;
    if (m_archive.pos() + bytes.size() > m_maxSize)
        return Fail(TooLarge);
    return m_archive.write(bytes) == bytes.size() || Fail(WriteError, WriteErrorText(m_archive));
}

bool ZipWriter::WriteHeader()
{
    QByteArray header;
    Append(header, ZipFormat::LocalHeaderSignature);
    header += CommonFields();
    return WriteRaw(header + m_item->name);
}

bool ZipWriter::Deflate(const char *data, qint64 size, bool isLast)
{
    m_deflater->Feed(data, size);
    for (;;) {
        const QByteArray piece = m_deflater->Next(isLast);
        if (piece.isEmpty())
            return m_error == NoError;
        if (!WriteRaw(piece))
            return false;
    }
}

/// The fields that the local header and the directory have in common, without the name.
QByteArray ZipWriter::CommonFields() const
{
    QByteArray fields;
    Append(fields, ZipFormat::Version);
    Append(fields, kNamesAreUtf8);
    Append(fields, quint16(m_item->method));
    Append(fields, kFirstTime);
    Append(fields, kFirstDate);
    Append(fields, quint32(m_item->crc));
    Append(fields, quint32(m_item->packedSize));
    Append(fields, quint32(m_item->size));
    Append(fields, quint16(m_item->name.size()));
    Append(fields, quint16(0)); // no extra field
    return fields;
}

/// Adds the last item to the directory. From then on it cannot be removed.
void ZipWriter::List()
{
    if (!m_item)
        return;
    Append(m_directory, ZipFormat::CentralHeaderSignature);
    Append(m_directory, kMadeBy);
    m_directory += CommonFields();
    Append(m_directory, quint16(0)); // no comment
    Append(m_directory, quint32(0)); // not split into several files; no hint about the data
    Append(m_directory, m_item->isFolder ? kFolderAttributes : kFileAttributes);
    Append(m_directory, quint32(m_item->headerOffset));
    m_directory += m_item->name;
    m_item.reset();
    ++m_count;
}
