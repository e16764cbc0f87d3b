#pragma once

#include <QBuffer>
#include <QByteArray>
#include <QFileDevice>
#include <QString>
#include <QVector>
#include <QtGlobal>

#include <memory>

class QZipWriter;

/// A number that a zip archive keeps of an entry, by its offset in the entry's two headers.
struct ZipField {
    int local;   ///< in the header before the data; -1 when it is not there
    int central; ///< in the header in the central directory
    int size;    ///< in bytes
};

/// A number in the record that ends a zip archive.
struct ZipEndField {
    int offset;
    int size;
};

/**
 * Makes zip archives: first entries are added, in the order of the calls; then single numbers of
 * the finished archive can be changed, to see what a damaged or hostile one does. Offsets and sizes
 * of the records: PKWARE's APPNOTE.TXT, 4.3. Misuse ends the program with a message.
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

    /// A slash is put behind @p path when it has none.
    ZipMaker &AddFolder(const QString &path);
    ZipMaker &AddFile(const QString &path, const QByteArray &data, Packing packing = Deflated);
    ZipMaker &AddLink(const QString &path, const QString &target);

    /// A file whose name is exactly these bytes, without the mark that says that they are UTF-8.
    ZipMaker &AddRawName(const QByteArray &rawName, const QByteArray &data);

    /// The mode of the files added from here on.
    ZipMaker &SetPermissions(QFileDevice::Permissions permissions);

    /// The number as the central directory has it.
    quint32 Get(int entry, ZipField field);
    ZipMaker &Set(int entry, ZipField field, quint32 value, Headers headers = Both);
    ZipMaker &SetEnd(ZipEndField field, quint32 value);

    /// Turns one bit of the packed data of an entry over.
    ZipMaker &FlipDataBit(int entry, int byte);

    /**
     * Moves sizes and checksum of an entry from its local header behind its data, as programs do
     * that write to a pipe.
     */
    ZipMaker &UseDataDescriptor(int entry);

    /// The archive; no entries can be added any more.
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

    // Known once finished.
    QByteArray m_bytes;
    QVector<int> m_central; ///< offset of each entry's header in the central directory
    QVector<int> m_local;   ///< offset of each entry's header before its data
    int m_end = 0;          ///< offset of the record that ends the archive
};
