// SPDX-License-Identifier: MIT
#include "install/zipunpacker.h"
#include "tests/install/damagedarchives.h"
#include "tests/support/compression.h"
#include "tests/support/damageddisk.h"
#include "tests/support/peakmemory.h"
#include "tests/support/testhome.h"
#include "tests/support/zipmaker.h"

#include <QBuffer>
#include <QFile>
#include <QTemporaryFile>
#include <QTest>

#include <algorithm>

namespace
{

constexpr int kLargestPiece = 256 * 1024;
constexpr quint32 kLargestSize = 0x7fffffff;

/// The index of the first file of ThreeEntries().
constexpr int kApp = 1;

/// An archive in memory, open for reading, and an unpacker for it.
class Archive
{
public:
    explicit Archive(const QByteArray &bytes)
    {
        m_buffer.setData(bytes);
        m_buffer.open(QIODevice::ReadOnly);
        m_entries = ReadZipDirectory(m_buffer);
    }

    const ZipEntry &Entry(int index) const
    {
        if (index >= m_entries.size())
            qFatal("the archive has only %d entries", m_entries.size());
        return m_entries.at(index);
    }

    bool Find(int index) { return m_unpacker.Find(Entry(index)); }

    /// Unpacks the entry into @p data.
    bool Unpack(QByteArray &data)
    {
        data.clear();
        return m_unpacker.Unpack([this, &data](const char *piece, qint64 size) {
            m_largestPiece = std::max(m_largestPiece, size);
            m_smallestPiece = std::min(m_smallestPiece, size);
            data.append(piece, int(size));
        });
    }

    bool IsSound(int index)
    {
        QByteArray data;
        return Find(index) && Unpack(data);
    }

    qint64 LargestPiece() const { return m_largestPiece; }
    qint64 SmallestPiece() const { return m_smallestPiece; }

private:
    QBuffer m_buffer;
    QVector<ZipEntry> m_entries;
    ZipUnpacker m_unpacker{m_buffer};
    qint64 m_largestPiece = 0;
    qint64 m_smallestPiece = kLargestPiece;
};

bool IsSound(const QByteArray &bytes, int index)
{
    return Archive(bytes).IsSound(index);
}

QByteArray ThreeEntries()
{
    ZipMaker zip;
    AddThreeEntries(zip);
    return zip.Bytes();
}

} // namespace

class TestZipUnpacker : public QObject
{
    Q_OBJECT

private slots:
    void dataComesOutInPieces_data();
    void dataComesOutInPieces();
    void dataDescriptorsDoNoHarm();
    void flagsOfNoConcernDoNoHarm();
    void damagedDataIsNotSound_data();
    void damagedDataIsNotSound();
    void headersAloneRefuseWhatCannotBeUnpacked_data();
    void headersAloneRefuseWhatCannotBeUnpacked();
    void everyTruncationIsSurvived();
    void everyFlippedBitIsNoticedOrHarmless();
    void archiveThatShrinksIsNotSound();
    void damagedDiskIsNoticed_data();
    void damagedDiskIsNoticed();
    void largestEntryNeedsNoMemory();
    void wholeDataIsSound();
#ifdef Q_OS_UNIX
    void dataBeyondTheReachOfTheReaderIsNotSound_posix();
#endif
};

void TestZipUnpacker::dataComesOutInPieces_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<int>("packing");
    const auto rows = [](const char *name, const QByteArray &data) {
        QTest::addRow("%s, stored", name) << data << int(ZipMaker::Stored);
        QTest::addRow("%s, deflated", name) << data << int(ZipMaker::Deflated);
    };
    rows("empty", QByteArray());
    rows("one byte", QByteArray("x"));
    rows("text", SomeText());
    // Sizes around the buffer sizes of input and output.
    for (const int kibibytes : {64, 256}) {
        const int size = kibibytes << 10;
        rows(QByteArray::number(kibibytes) + " KiB less 1", SomeNoise(size - 1));
        rows(QByteArray::number(kibibytes) + " KiB", SomeNoise(size));
        rows(QByteArray::number(kibibytes) + " KiB and 1", SomeNoise(size + 1));
        rows(QByteArray::number(kibibytes) + " KiB of zeros", QByteArray(size, '\0'));
    }
    rows("3 MiB", SomeNoise(3 << 20));
    rows("16 MiB of zeros", QByteArray(16 << 20, '\0'));
}

void TestZipUnpacker::dataComesOutInPieces()
{
    QFETCH(QByteArray, data);
    QFETCH(int, packing);
    ZipMaker zip;
    zip.AddFile(QStringLiteral("before"), "before");
    zip.AddFile(QStringLiteral("file"), data, ZipMaker::Packing(packing));
    Archive archive(zip.Bytes());

    QByteArray unpacked;
    QVERIFY(archive.Find(1));
    QVERIFY(archive.Unpack(unpacked));
    QVERIFY(unpacked == data);
    QVERIFY(archive.LargestPiece() <= kLargestPiece);
    QVERIFY(archive.SmallestPiece() > 0);
    // Entries can be unpacked in any order and repeatedly.
    QVERIFY(archive.Find(0));
    QVERIFY(archive.Unpack(unpacked));
    QCOMPARE(unpacked, QByteArray("before"));
    QVERIFY(archive.Find(1));
    QVERIFY(archive.Unpack(unpacked));
    QVERIFY(unpacked == data);
}

void TestZipUnpacker::dataDescriptorsDoNoHarm()
{
    for (int entry = kApp; entry < 3; ++entry) {
        ZipMaker zip;
        AddThreeEntries(zip);
        zip.UseDataDescriptor(entry);
        for (int index = kApp; index < 3; ++index)
            QVERIFY(IsSound(zip.Bytes(), index));
    }
}

void TestZipUnpacker::flagsOfNoConcernDoNoHarm()
{
    ZipMaker zip;
    AddThreeEntries(zip);
    // The compression level, and the mark for a UTF-8 name.
    zip.Set(kApp, ZipMaker::Flags, 0x0806);
    QVERIFY(IsSound(zip.Bytes(), kApp));
}

void TestZipUnpacker::damagedDataIsNotSound_data()
{
    AddDamagedArchives();
}

void TestZipUnpacker::damagedDataIsNotSound()
{
    QFETCH(QByteArray, archive);
    Archive damaged(archive);
    QByteArray data;
    QVERIFY(!(damaged.Find(kApp) && damaged.Unpack(data)));
    QVERIFY2(data.size() <= qint64(damaged.Entry(kApp).size),
             qPrintable(QString::number(data.size())));
    // The next entry is still readable.
    QVERIFY(damaged.IsSound(kApp + 1));
}

void TestZipUnpacker::headersAloneRefuseWhatCannotBeUnpacked_data()
{
    QTest::addColumn<QByteArray>("archive");
    const auto row = [](const char *name, ZipField field, quint32 value,
                        ZipMaker::Headers headers = ZipMaker::Both) {
        ZipMaker zip;
        AddThreeEntries(zip);
        zip.Set(kApp, field, value, headers);
        QTest::newRow(name) << zip.Bytes();
    };
    row("encrypted", ZipMaker::Flags, 0x0801);
    row("unknown method", ZipMaker::Method, 12);
    row("another method before the data", ZipMaker::Method, 0, ZipMaker::Local);
    row("stored, with two sizes", ZipMaker::Method, 0);
    row("zip64 needed", ZipMaker::VersionNeeded, 45);
    row("packed size of 2 GiB", ZipMaker::PackedSize, kLargestSize + 1);
    row("size of 2 GiB", ZipMaker::Size, kLargestSize + 1);
    row("offset of 2 GiB", ZipMaker::HeaderOffset, kLargestSize + 1);
    row("packed size beyond the archive", ZipMaker::PackedSize, 0x00100000);
    row("no header there", ZipMaker::HeaderOffset, 1);
}

void TestZipUnpacker::headersAloneRefuseWhatCannotBeUnpacked()
{
    QFETCH(QByteArray, archive);
    QVERIFY(Archive(ThreeEntries()).Find(kApp));
    QVERIFY(!Archive(archive).Find(kApp));
}

void TestZipUnpacker::everyTruncationIsSurvived()
{
    ZipMaker zip;
    zip.AddFile(QStringLiteral("file"), SomeNoise(300), ZipMaker::Deflated);
    const QByteArray bytes = zip.Bytes();
    const ZipEntry entry = Archive(bytes).Entry(0);
    const int dataEnd = 30 + 4 + int(entry.packedSize);
    for (int size = 0; size <= dataEnd; ++size) {
        QByteArray part = bytes.left(size);
        QBuffer archive(&part);
        QVERIFY(archive.open(QIODevice::ReadOnly));
        QCOMPARE(ZipDataIsSound(archive, entry), size == dataEnd);
    }
}

void TestZipUnpacker::everyFlippedBitIsNoticedOrHarmless()
{
    ZipMaker zip;
    zip.AddFile(QStringLiteral("file"), SomeText().left(400));
    const QByteArray bytes = zip.Bytes();
    const int packedSize = int(Archive(bytes).Entry(0).packedSize);
    int harmless = 0;
    for (int bit = 0; bit < packedSize * 8; ++bit) {
        QByteArray damaged = bytes;
        const int offset = 30 + 4 + bit / 8;
        damaged[offset] = char(damaged.at(offset) ^ (1 << (bit % 8)));
        harmless += IsSound(damaged, 0) ? 1 : 0;
    }
    // Only the bits after the end of the stream have no meaning.
    QVERIFY2(harmless < 8, qPrintable(QString::number(harmless)));
}

void TestZipUnpacker::archiveThatShrinksIsNotSound()
{
    const ZipEntry entry = Archive(ThreeEntries()).Entry(kApp);
    QBuffer empty;
    QVERIFY(empty.open(QIODevice::ReadOnly));
    QVERIFY(!ZipDataIsSound(empty, entry));
}

void TestZipUnpacker::damagedDiskIsNoticed_data()
{
    QTest::addColumn<int>("packing");
    QTest::newRow("stored") << int(ZipMaker::Stored);
    QTest::newRow("deflated") << int(ZipMaker::Deflated);
}

void TestZipUnpacker::damagedDiskIsNoticed()
{
    QFETCH(int, packing);
    const TestHome home;
    const QString path = home.Scratch() + QStringLiteral("/package.zip");
    ZipMaker zip;
    zip.AddFile(QStringLiteral("file"), SomeNoise(500000), ZipMaker::Packing(packing));
    zip.WriteTo(path);
    const DamagedDisk disk(path, 200000, 300000);

    QFile archive(path);
    QVERIFY(archive.open(QIODevice::ReadOnly));
    const QVector<ZipEntry> entries = ReadZipDirectory(archive);
    QCOMPARE(entries.size(), 1);
    ZipUnpacker unpacker(archive);
    QVERIFY(unpacker.Find(entries.first()));
    QVERIFY(!unpacker.Unpack([](const char *, qint64) {}));
}

void TestZipUnpacker::largestEntryNeedsNoMemory()
{
    QByteArray bytes = ZipOfZeros(kLargestSize);
    QBuffer archive(&bytes);
    QVERIFY(archive.open(QIODevice::ReadOnly));
    const QVector<ZipEntry> entries = ReadZipDirectory(archive);
    QCOMPARE(entries.size(), 2);

    const PeakMemory memory;
    qint64 total = 0;
    ZipUnpacker unpacker(archive);
    QVERIFY(unpacker.Find(entries.last()));
    QVERIFY(unpacker.Unpack([&total](const char *, qint64 size) { total += size; }));
    QCOMPARE(total, qint64(kLargestSize));
    QVERIFY2(memory.GrownBy() <= 1024LL * 1024, qPrintable(QString::number(memory.GrownBy())));
}

void TestZipUnpacker::wholeDataIsSound()
{
    QByteArray bytes = ThreeEntries();
    QBuffer archive(&bytes);
    QVERIFY(archive.open(QIODevice::ReadOnly));
    for (const ZipEntry &entry : ReadZipDirectory(archive).mid(kApp))
        QVERIFY(ZipDataIsSound(archive, entry));
}

#ifdef Q_OS_UNIX
// A sparse file, which takes little space on the disk.
void TestZipUnpacker::dataBeyondTheReachOfTheReaderIsNotSound_posix()
{
    const QByteArray bytes = ThreeEntries();
    ZipEntry entry = Archive(bytes).Entry(kApp);
    const quint32 offset = entry.localHeaderOffset;
    QTemporaryFile archive;
    QVERIFY(archive.open());
    for (const quint32 shift : {0x7fff0000U, 0x80000000U}) {
        QVERIFY(archive.seek(shift));
        QCOMPARE(archive.write(bytes), qint64(bytes.size()));
        entry.localHeaderOffset = offset + shift;
        QCOMPARE(ZipDataIsSound(archive, entry), shift == 0x7fff0000U);
    }
}
#endif

QTEST_GUILESS_MAIN(TestZipUnpacker)
#include "tst_zipunpacker.moc"
