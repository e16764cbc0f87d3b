#pragma once

#include <QByteArray>
#include <QIODevice>
#include <QVector>
#include <QtGlobal>

/**
 * What the central directory of a zip archive says of one entry, as it stands there: none of it is
 * checked. Format: PKWARE's APPNOTE.TXT, 4.3.12. Sizes in bytes.
 */
struct ZipEntry {
    QByteArray rawName; ///< in the archive's own encoding
    quint16 flags = 0;
    quint16 method = 0;
    quint32 crc32 = 0;
    quint32 packedSize = 0;
    quint32 size = 0;
    quint32 localHeaderOffset = 0;
};

/**
 * The entries of a zip archive in the order of its central directory, or those up to the first one
 * that cannot be read. Empty for anything that is not a zip archive. @p archive must be open and
 * seekable.
 *
 * The framework's zip reader hands out data on the word of these headers alone, to the point of
 * reading past its buffers: ask ZipDataIsSound() before asking it.
 */
QVector<ZipEntry> ReadZipDirectory(QIODevice &archive);

/**
 * True when ReadZipDirectory() gives all that there is: as many entries as the record that ends the
 * archive announces, and that record right behind the last one. The count has 16 bits and begins
 * again at 0: an archive with more entries is not whole.
 */
bool ZipDirectoryIsWhole(QIODevice &archive);

/**
 * True when the data of @p entry is there, stored or deflated, not encrypted, and unpacks to
 * exactly the size and checksum that its header declares. Reads the entry's data once, in small
 * pieces.
 */
bool ZipDataIsSound(QIODevice &archive, const ZipEntry &entry);

/**
 * True when @p path, relative to a folder, stays inside it on every system: no ".." segment (nor
 * one that Windows shortens to it), not absolute, no back-slash and no colon.
 */
bool StaysInFolder(const QString &path);
