#pragma once

#include "install/zipdirectory.h"

#include <QByteArray>
#include <QIODevice>
#include <QtGlobal>

#include <functional>
#include <memory>

/**
 * Unpacks entries of one zip archive, each of them once and in pieces, so that memory does not grow
 * with the entry. Size and checksum are compared with the header on the way: what has come out may
 * turn out to be damaged only at its end.
 *
 * Takes entries that are stored or deflated (RFC 1951), not encrypted, and below 2 GiB, as PKWARE's
 * APPNOTE.TXT (4.4 and 4.5) has them without zip64. One thread at a time.
 */
class ZipUnpacker
{
public:
    /// Takes the next piece of the unpacked data, of at most 256 KiB and never empty.
    using Sink = std::function<void(const char *data, qint64 size)>;

    /// @p archive must be open and seekable, and live as long as the unpacker does.
    explicit ZipUnpacker(QIODevice &archive);
    ~ZipUnpacker();

    /**
     * Finds the data of @p entry. False when the headers alone tell that it cannot be unpacked: it
     * is of a kind that is not taken, or not there in its full length.
     */
    bool Find(const ZipEntry &entry);

    /**
     * Unpacks the entry that Find() has found, and hands no more to @p sink than its header
     * declares. False when the data cannot be read, is damaged, or has not the declared size and
     * checksum.
     */
    bool Unpack(const Sink &sink);

private:
    Q_DISABLE_COPY(ZipUnpacker)

    /// As Sink; false to stop.
    using CheckedSink = std::function<bool(const char *data, qint64 size)>;

    class Inflater;

    qint64 ReadPiece(qint64 left);
    bool UnpackStored(const CheckedSink &sink);
    bool UnpackDeflated(const CheckedSink &sink);

    QIODevice &m_archive;
    ZipEntry m_entry;
    QByteArray m_packed; ///< the piece that was read last
    std::unique_ptr<Inflater> m_inflater;
};

/// True when the data of @p entry can be unpacked, and is what its header declares. Reads all of
/// it.
bool ZipDataIsSound(QIODevice &archive, const ZipEntry &entry);
