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
    QByteArray rawName;        ///< in the archive's own encoding
    quint16 versionNeeded = 0; ///< of the format, times ten
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
 */
QVector<ZipEntry> ReadZipDirectory(QIODevice &archive);

/**
 * True when ReadZipDirectory() gives all that there is: as many entries as the record that ends the
 * archive announces, and that record right behind the last one. The count has 16 bits and begins
 * again at 0: an archive with more entries is not whole.
 */
bool ZipDirectoryIsWhole(QIODevice &archive);

/**
 * Places @p archive at the packed data of @p entry. False when there is no local header where the
 * directory says, when it names another method, or when the archive ends before the data does.
 */
bool SeekToZipData(QIODevice &archive, const ZipEntry &entry);

/**
 * True when @p path, relative to a folder, stays inside it on every system: no ".." segment (nor
 * one that Windows shortens to it), not absolute, no back-slash and no colon.
 */
bool StaysInFolder(const QString &path);
