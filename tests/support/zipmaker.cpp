// SPDX-License-Identifier: MIT
#include "tests/support/zipmaker.h"

#include "tests/support/testhome.h"

#include <QtEndian>
#include <QtGui/private/qzipwriter_p.h>

namespace
{

constexpr int localHeaderSize = 30;
constexpr int centralHeaderSize = 46;
constexpr int endSize = 22;
constexpr quint32 descriptorFlag = 0x0008;
constexpr quint32 utf8Flag = 0x0800;

void AppendNumber(QByteArray &bytes, quint32 value)
{
    char number[4];
    qToLittleEndian(value, number);
    bytes.append(number, sizeof number);
}

} // namespace

ZipMaker::ZipMaker()
{
    m_buffer.open(QIODevice::WriteOnly);
    m_writer = std::make_unique<QZipWriter>(&m_buffer);
}

ZipMaker::~ZipMaker() = default;

ZipMaker &ZipMaker::AddFolder(const QString &path)
{
    Writer().addDirectory(path);
    ++m_added;
    return *this;
}

ZipMaker &ZipMaker::AddFile(const QString &path, const QByteArray &data, Packing packing)
{
    Writer().setCompressionPolicy(packing == Stored ? QZipWriter::NeverCompress
                                                    : QZipWriter::AlwaysCompress);
    Writer().addFile(path, data);
    ++m_added;
    return *this;
}

ZipMaker &ZipMaker::AddLink(const QString &path, const QString &target)
{
    Writer().addSymLink(path, target);
    ++m_added;
    return *this;
}

ZipMaker &ZipMaker::AddRawName(const QByteArray &rawName, const QByteArray &data)
{
    // QZipWriter changes names, so the raw name later replaces a harmless one of the same size.
    m_rawNames.append({m_added, rawName});
    return AddFile(QString(rawName.size(), QLatin1Char('x')), data);
}

ZipMaker &ZipMaker::SetPermissions(QFileDevice::Permissions permissions)
{
    Writer().setCreationPermissions(permissions);
    return *this;
}

quint32 ZipMaker::Get(int entry, ZipField field)
{
    Finish();
    return Number(m_central.at(entry) + field.central, field.size);
}

ZipMaker &ZipMaker::Set(int entry, ZipField field, quint32 value, Headers headers)
{
    Finish();
    if ((headers & Local) != 0 && field.local >= 0)
        Put(m_local.at(entry) + field.local, field.size, value);
    if ((headers & Central) != 0)
        Put(m_central.at(entry) + field.central, field.size, value);
    return *this;
}

ZipMaker &ZipMaker::SetEnd(ZipEndField field, quint32 value)
{
    Finish();
    Put(m_end + field.offset, field.size, value);
    return *this;
}

ZipMaker &ZipMaker::FlipDataBit(int entry, int byte)
{
    const int offset = DataOffset(entry) + byte;
    m_bytes[offset] = char(m_bytes.at(offset) ^ 0x10);
    return *this;
}

ZipMaker &ZipMaker::UseDataDescriptor(int entry)
{
    const int dataEnd = DataOffset(entry) + int(Get(entry, PackedSize));
    QByteArray descriptor("PK\x07\x08");
    for (const ZipField &field : {Crc32, PackedSize, Size}) {
        AppendNumber(descriptor, Get(entry, field));
        Set(entry, field, 0, Local);
    }
    Set(entry, Flags, Get(entry, Flags) | descriptorFlag);

    m_bytes.insert(dataEnd, descriptor);
    for (QVector<int> *offsets : {&m_central, &m_local}) {
        for (int &offset : *offsets)
            offset += offset >= dataEnd ? descriptor.size() : 0;
    }
    m_end += descriptor.size();
    for (int index = 0; index < m_added; ++index)
        Set(index, HeaderOffset, quint32(m_local.at(index)));
    return SetEnd(DirectoryOffset, quint32(m_central.first()));
}

QByteArray ZipMaker::Bytes()
{
    Finish();
    return m_bytes;
}

void ZipMaker::WriteTo(const QString &path)
{
    WriteFile(path, Bytes());
}

QZipWriter &ZipMaker::Writer() const
{
    if (!m_writer)
        qFatal("the archive is finished: it takes no more entries");
    return *m_writer;
}

void ZipMaker::Finish()
{
    if (!m_writer)
        return;
    m_writer->close();
    m_writer.reset();
    m_bytes = m_buffer.data();

    m_end = m_bytes.size() - endSize;
    int central = int(Number(m_end + DirectoryOffset.offset, DirectoryOffset.size));
    for (int entry = 0; entry < m_added; ++entry) {
        m_central.append(central);
        m_local.append(int(Number(central + HeaderOffset.central, HeaderOffset.size)));
        // The name, the extra fields and the comment follow the header.
        central += centralHeaderSize;
        for (const int sizeField : {28, 30, 32})
            central += int(Number(m_central.last() + sizeField, 2));
    }
    if (central != m_end)
        qFatal("the archive made is not as expected");

    for (const RawName &raw : qAsConst(m_rawNames)) {
        m_bytes.replace(m_local.at(raw.entry) + localHeaderSize, raw.name.size(), raw.name);
        m_bytes.replace(m_central.at(raw.entry) + centralHeaderSize, raw.name.size(), raw.name);
        Set(raw.entry, Flags, Get(raw.entry, Flags) & ~utf8Flag);
    }
}

int ZipMaker::DataOffset(int entry)
{
    Finish();
    const int header = m_local.at(entry);
    return header + localHeaderSize + int(Number(header + 26, 2)) + int(Number(header + 28, 2));
}

void ZipMaker::Put(int offset, int size, quint32 value)
{
    if (offset + size > m_bytes.size())
        qFatal("no such place in the archive");
    for (int index = 0; index < size; ++index)
        m_bytes[offset + index] = char(value >> (8 * index));
}

quint32 ZipMaker::Number(int offset, int size) const
{
    if (offset + size > m_bytes.size())
        qFatal("no such place in the archive");
    quint32 value = 0;
    for (int index = size - 1; index >= 0; --index)
        value = (value << 8) | uchar(m_bytes.at(offset + index));
    return value;
}
