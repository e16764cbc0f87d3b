// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QIODevice>
#include <QVector>
#include <QtGlobal>

/**
 * One entry of the central directory of a zip archive. The values are not checked. Format: PKWARE's
 * APPNOTE.TXT, 4.3.12. Sizes in bytes.
 */
struct ZipEntry {
    QByteArray rawName;        ///< in the archive's own encoding
    quint16 versionNeeded = 0; ///< version of the format, times ten
    quint16 flags = 0;
    quint16 method = 0;
    quint32 crc32 = 0;
    quint32 packedSize = 0;
    quint32 size = 0;
    quint32 localHeaderOffset = 0;
};

/**
 * The entries of a zip archive in the order of its central directory, up to the first one that
 * cannot be read. Empty when the device does not contain a zip archive. @p archive must be open and
 * seekable.
 */
QVector<ZipEntry> ReadZipDirectory(QIODevice &archive);

/**
 * True when ReadZipDirectory() returns all entries: as many as the end-of-directory record
 * announces, with that record directly after the last one. The record's count has 16 bits and wraps
 * around, so an archive with more entries is never whole.
 */
bool ZipDirectoryIsWhole(QIODevice &archive);

/**
 * Moves @p archive to the packed data of @p entry. False when there is no local header at the
 * entry's offset, when the header names another method, or when the archive ends before the data.
 */
bool SeekToZipData(QIODevice &archive, const ZipEntry &entry);

/**
 * True when @p path, relative to a folder, stays inside that folder on every system: it has no ".."
 * segment (nor one that Windows shortens to ".."), no back-slash and no colon, and is not absolute.
 */
bool StaysInFolder(const QString &path);
