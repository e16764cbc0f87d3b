// SPDX-License-Identifier: MIT
#pragma once

#include <QtGlobal>

#include <limits>

/// The numbers of the zip format that reading and writing share. Source: PKWARE's APPNOTE.TXT.
namespace ZipFormat
{

// The signatures of the records, 4.3.7, 4.3.12 and 4.3.16.
constexpr quint32 LocalHeaderSignature = 0x04034b50;
constexpr quint32 CentralHeaderSignature = 0x02014b50;
constexpr quint32 EndOfDirectorySignature = 0x06054b50;

/// The version of the format times ten, 4.4.3: folders and deflated data. Zip64 needs a higher one.
constexpr quint16 Version = 20;

/// A bit of an entry's flags, 4.4.4.
constexpr quint16 EncryptedFlag = 0x0001;

// Compression methods, 4.4.5.
constexpr quint16 Stored = 0;
constexpr quint16 Deflated = 8;

/// The end of the directory counts entries in 16 bits, 4.4.22.
constexpr int MaxEntries = std::numeric_limits<quint16>::max();

} // namespace ZipFormat
