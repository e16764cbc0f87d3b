// SPDX-License-Identifier: MIT
#pragma once

#include <QBuffer>
#include <QByteArray>
#include <QFileDevice>
#include <QString>
#include <QVector>
#include <QtGlobal>

#include <memory>

class QZipWriter;

/// A number in the two headers of an entry, by its offsets there.
struct ZipField {
    int local;   ///< in the local header, before the data; -1 when it is not there
    int central; ///< in the central directory
    int size;    ///< in bytes
};

/// A number in the end record of an archive.
struct ZipEndField {
    int offset;
    int size;
};

/**
 * Makes zip archives. Add all entries first; then change numbers of the finished archive to get a
 * damaged or hostile one. PKWARE's APPNOTE.TXT, 4.3, has the offsets and sizes. Misuse ends the
 * program with a message.
 */
class ZipMaker
{
public:
    enum Packing { Stored, Deflated };
    enum Headers { Local = 1, Central = 2, Both = 3 };

    static constexpr ZipField MadeBy{-1, 4, 2};
    static constexpr ZipField VersionNeeded{4, 6, 2};
    static constexpr ZipField Flags{6, 8, 2};
    static constexpr ZipField Method{8, 10, 2};
    static constexpr ZipField Crc32{14, 16, 4};
    static constexpr ZipField PackedSize{18, 20, 4};
    static constexpr ZipField Size{22, 24, 4};
    static constexpr ZipField NameSize{26, 28, 2};
    static constexpr ZipField Attributes{-1, 38, 4};
    static constexpr ZipField HeaderOffset{-1, 42, 4};

    static constexpr ZipEndField EntriesHere{8, 2};
    static constexpr ZipEndField Entries{10, 2};
    static constexpr ZipEndField DirectoryOffset{16, 4};
    static constexpr ZipEndField CommentSize{20, 2};

    ZipMaker();
    ~ZipMaker();

    /// Appends a slash to @p path if it has none.
    ZipMaker &AddFolder(const QString &path);
    ZipMaker &AddFile(const QString &path, const QByteArray &data, Packing packing = Deflated);
    ZipMaker &AddLink(const QString &path, const QString &target);

    /// A file with exactly these bytes as its name, not marked as UTF-8.
    ZipMaker &AddRawName(const QByteArray &rawName, const QByteArray &data);

    /// The mode of the files added after this call.
    ZipMaker &SetPermissions(QFileDevice::Permissions permissions);

    /// The number in the central directory.
    quint32 Get(int entry, ZipField field);
    ZipMaker &Set(int entry, ZipField field, quint32 value, Headers headers = Both);
    ZipMaker &SetEnd(ZipEndField field, quint32 value);

    /// Flips one bit in the packed data of an entry.
    ZipMaker &FlipDataBit(int entry, int byte);

    /**
     * Moves the sizes and the checksum of an entry from its local header to a data descriptor, as
     * programs that write to a pipe do.
     */
    ZipMaker &UseDataDescriptor(int entry);

    /// The archive. No entries can be added after this call.
    QByteArray Bytes();

    void WriteTo(const QString &path);

private:
    Q_DISABLE_COPY(ZipMaker)

    struct RawName {
        int entry;
        QByteArray name;
    };

    QZipWriter &Writer() const;
    void Finish();
    int DataOffset(int entry);
    void Put(int offset, int size, quint32 value);
    quint32 Number(int offset, int size) const;

    QBuffer m_buffer;
    std::unique_ptr<QZipWriter> m_writer;
    int m_added = 0;
    QVector<RawName> m_rawNames;

    // Known once the archive is finished.
    QByteArray m_bytes;
    QVector<int> m_central; ///< offset of each entry's header in the central directory
    QVector<int> m_local;   ///< offset of each entry's local header
    int m_end = 0;          ///< offset of the end record
};
