// SPDX-License-Identifier: MIT
#include "install/zipdirectory.h"

#include "install/zipformat.h"

#include <QStringList>
#include <QtEndian>

#include <algorithm>

namespace
{

// The fixed sizes of the records: APPNOTE.TXT 4.3.7, 4.3.12 and 4.3.16.
constexpr int kLocalHeaderSize = 30;
constexpr int kCentralHeaderSize = 46;
constexpr int kEndOfDirectorySize = 22;
constexpr int kEntriesOffset = 8; // in the end-of-directory record
constexpr int kMaxCommentSize = 65535;

quint16 Word(const QByteArray &record, int offset)
{
    return qFromLittleEndian<quint16>(record.constData() + offset);
}

quint32 DoubleWord(const QByteArray &record, int offset)
{
    return qFromLittleEndian<quint32>(record.constData() + offset);
}

/// The end-of-directory record. Only a comment may follow it. Empty when there is none.
QByteArray ReadEndOfDirectory(QIODevice &archive)
{
    const qint64 tailSize = std::min<qint64>(archive.size(), kEndOfDirectorySize + kMaxCommentSize);
    if (!archive.seek(archive.size() - tailSize))
        return QByteArray();
    const QByteArray tail = archive.read(tailSize);
    for (int start = tail.size() - kEndOfDirectorySize; start >= 0; --start) {
        if (DoubleWord(tail, start) == ZipFormat::EndOfDirectorySignature)
            return tail.mid(start, kEndOfDirectorySize);
    }
    return QByteArray();
}

/// Reads the entry at the device's position. False when it is incomplete or not an entry.
bool ReadEntry(QIODevice &archive, ZipEntry &entry)
{
    const QByteArray header = archive.read(kCentralHeaderSize);
    if (header.size() < kCentralHeaderSize ||
        DoubleWord(header, 0) != ZipFormat::CentralHeaderSignature)
        return false;
    entry.versionNeeded = Word(header, 6);
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

} // namespace

QVector<ZipEntry> ReadZipDirectory(QIODevice &archive)
{
    const QByteArray end = ReadEndOfDirectory(archive);
    if (end.isEmpty() || !archive.seek(DoubleWord(end, 16)))
        return {};

    const int count = Word(end, kEntriesOffset);
    QVector<ZipEntry> entries;
    entries.reserve(count);
    for (int left = count; left > 0; --left) {
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

bool SeekToZipData(QIODevice &archive, const ZipEntry &entry)
{
    if (!archive.seek(entry.localHeaderOffset))
        return false;
    const QByteArray header = archive.read(kLocalHeaderSize);
    if (header.size() < kLocalHeaderSize ||
        DoubleWord(header, 0) != ZipFormat::LocalHeaderSignature || Word(header, 8) != entry.method)
        return false;
    const qint64 start = archive.pos() + Word(header, 26) + Word(header, 28);
    return start + entry.packedSize <= archive.size() && archive.seek(start);
}

bool StaysInFolder(const QString &path)
{
    if (path.startsWith(QLatin1Char('/')) || path.contains(QLatin1Char(':')) ||
        path.contains(QLatin1Char('\\')))
        return false;
    const QStringList segments = path.split(QLatin1Char('/'));
    return std::none_of(segments.cbegin(), segments.cend(), [](const QString &segment) {
        // Windows drops blanks and dots at the end of a name, so "..", ".. " and "..." may all lead
        // to the parent folder.
        const bool onlyDotsAndBlanks =
            std::all_of(segment.cbegin(), segment.cend(), [](QChar character) {
                return character == QLatin1Char('.') || character == QLatin1Char(' ');
            });
        return onlyDotsAndBlanks && segment.count(QLatin1Char('.')) > 1;
    });
}
