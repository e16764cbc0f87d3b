// SPDX-License-Identifier: MIT
#pragma once

#include "install/zipdirectory.h"

#include <QByteArray>
#include <QIODevice>
#include <QtGlobal>

#include <functional>
#include <memory>

/**
 * Unpacks entries of one zip archive, each of them once and in pieces, so that memory use does not
 * grow with the entry. The size and the checksum are compared with the header on the way, so damage
 * may be detected only after most of the data has been unpacked.
 *
 * Accepts entries that are stored or deflated (RFC 1951), not encrypted, smaller than 2 GiB and
 * without zip64 (PKWARE's APPNOTE.TXT, 4.4 and 4.5). One thread at a time.
 */
class ZipUnpacker
{
public:
    /// Receives the next piece of the unpacked data: at most 256 KiB and never empty.
    using Sink = std::function<void(const char *data, qint64 size)>;

    /// @p archive must be open and seekable, and exist as long as the unpacker does.
    explicit ZipUnpacker(QIODevice &archive);
    ~ZipUnpacker();

    /**
     * Finds the data of @p entry. False when the headers alone show that it cannot be unpacked: its
     * kind is not accepted, or its data is incomplete.
     */
    bool Find(const ZipEntry &entry);

    /**
     * Unpacks the entry that Find() has found. Passes no more data to @p sink than the header
     * declares. False when the data cannot be read, is damaged, or does not have the declared size
     * and checksum.
     */
    bool Unpack(const Sink &sink);

private:
    Q_DISABLE_COPY(ZipUnpacker)

    /// Like Sink, but returns false to stop.
    using CheckedSink = std::function<bool(const char *data, qint64 size)>;

    class Inflater;

    qint64 ReadPiece(qint64 left);
    bool UnpackStored(const CheckedSink &sink);
    bool UnpackDeflated(const CheckedSink &sink);

    QIODevice &m_archive;
    ZipEntry m_entry;
    QByteArray m_packed; ///< the last piece that was read
    std::unique_ptr<Inflater> m_inflater;
};

/// True when all data of @p entry can be unpacked and matches its header.
bool ZipDataIsSound(QIODevice &archive, const ZipEntry &entry);
