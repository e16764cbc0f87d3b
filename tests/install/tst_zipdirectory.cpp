#include "install/zipdirectory.h"
#include "tests/install/damagedarchives.h"
#include "tests/support/zipmaker.h"

#include <QBuffer>
#include <QTemporaryFile>
#include <QTest>

namespace
{

/// A buffer open for reading, as the functions want their archive.
class Archive : public QBuffer
{
public:
    explicit Archive(const QByteArray &bytes)
    {
        setData(bytes);
        open(QIODevice::ReadOnly);
    }
};

QVector<ZipEntry> Directory(const QByteArray &bytes)
{
    Archive archive(bytes);
    return ReadZipDirectory(archive);
}

QList<QByteArray> Names(const QByteArray &bytes)
{
    QList<QByteArray> names;
    for (const ZipEntry &entry : Directory(bytes))
        names.append(entry.rawName);
    return names;
}

/// Whether the data of the entry at @p index is sound.
bool IsSound(const QByteArray &bytes, int index)
{
    Archive archive(bytes);
    const QVector<ZipEntry> entries = ReadZipDirectory(archive);
    if (index >= entries.size())
        qFatal("the archive has only %d entries", entries.size());
    return ZipDataIsSound(archive, entries.at(index));
}

QByteArray ThreeEntries()
{
    ZipMaker zip;
    AddThreeEntries(zip);
    return zip.Bytes();
}

const QList<QByteArray> threeNames = {"pkg/", "pkg/app.txt", "pkg/after.txt"};

} // namespace

class TestZipDirectory : public QObject
{
    Q_OBJECT

private slots:
    void entriesComeInTheArchivesOrderWithTheirNumbers();
    void namesAreTheBytesOfTheArchive();
    void whatIsNoArchiveHasNoEntries_data();
    void whatIsNoArchiveHasNoEntries();
    void truncatedArchiveHasNoEntries();
    void brokenEndRecordLeavesWhatCanBeRead_data();
    void brokenEndRecordLeavesWhatCanBeRead();
    void commentBehindTheArchiveIsPassedOver_data();
    void commentBehindTheArchiveIsPassedOver();
    void nameThatReachesBeyondTheFileEndsTheList();
    void wholeDirectoryIsTold();
    void directoryThatIsNotWholeIsTold_data();
    void directoryThatIsNotWholeIsTold();
    void soundDataIsSound_data();
    void soundDataIsSound();
    void dataDescriptorsDoNoHarm();
    void flagsOfNoConcernDoNoHarm();
    void damagedDataIsNotSound_data();
    void damagedDataIsNotSound();
    void everyTruncationIsSurvived();
    void everyFlippedBitIsNoticedOrHarmless();
    void archiveThatShrinksIsNotSound();
#ifdef Q_OS_UNIX
    void dataBeyondTheReachOfTheReaderIsNotSound_posix();
#endif
    void pathsThatStayInTheFolder_data();
    void pathsThatStayInTheFolder();
};

void TestZipDirectory::entriesComeInTheArchivesOrderWithTheirNumbers()
{
    const QByteArray text = SomeText();
    ZipMaker zip;
    zip.AddFile(QStringLiteral("z.txt"), text, ZipMaker::Stored);
    zip.AddFile(QStringLiteral("a.txt"), text);
    const QVector<ZipEntry> entries = Directory(zip.Bytes());

    QCOMPARE(entries.size(), 2);
    const ZipEntry &stored = entries.at(0);
    QCOMPARE(stored.rawName, QByteArray("z.txt"));
    QCOMPARE(int(stored.method), 0);
    QCOMPARE(int(stored.flags), 0x0800);
    QCOMPARE(stored.packedSize, quint32(text.size()));
    QCOMPARE(stored.size, quint32(text.size()));
    QCOMPARE(stored.localHeaderOffset, 0U);

    const ZipEntry &deflated = entries.at(1);
    QCOMPARE(deflated.rawName, QByteArray("a.txt"));
    QCOMPARE(int(deflated.method), 8);
    QVERIFY(deflated.packedSize < quint32(text.size()));
    QCOMPARE(deflated.size, quint32(text.size()));
    QCOMPARE(deflated.crc32, stored.crc32);
    QCOMPARE(deflated.localHeaderOffset, quint32(30 + 5 + text.size()));
}

void TestZipDirectory::namesAreTheBytesOfTheArchive()
{
    ZipMaker zip;
    zip.AddFile(QStringLiteral("中文.txt"), "1");
    zip.AddRawName("\xd6\xd0\xce\xc4.txt", "2");
    zip.AddRawName("a\\b:c/../d", "3");
    zip.AddFolder(QStringLiteral("folder"));
    QCOMPARE(Names(zip.Bytes()),
             QList<QByteArray>({u8"中文.txt", "\xd6\xd0\xce\xc4.txt", "a\\b:c/../d", "folder/"}));
}

void TestZipDirectory::whatIsNoArchiveHasNoEntries_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("empty file") << QByteArray();
    QTest::newRow("one byte") << QByteArray("P");
    QTest::newRow("text") << QByteArray("this is no archive");
    QTest::newRow("installer") << "MZ" + SomeNoise(200000);
    QTest::newRow("signature only") << QByteArray("PK\x05\x06");
    QTest::newRow("end record cut short") << "PK\x05\x06" + QByteArray(17, '\0');
    QTest::newRow("archive without entries") << "PK\x05\x06" + QByteArray(18, '\0');
    QTest::newRow("local header only") << "PK\x03\x04" + QByteArray(26, '\0');
}

void TestZipDirectory::whatIsNoArchiveHasNoEntries()
{
    QFETCH(QByteArray, bytes);
    QCOMPARE(Names(bytes), QList<QByteArray>());
}

void TestZipDirectory::truncatedArchiveHasNoEntries()
{
    const QByteArray whole = ThreeEntries();
    QCOMPARE(Names(whole), threeNames);
    for (int size = 0; size < whole.size(); ++size)
        QCOMPARE(Names(whole.left(size)), QList<QByteArray>());
}

void TestZipDirectory::brokenEndRecordLeavesWhatCanBeRead_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QList<QByteArray>>("names");
    const auto row = [](const char *name, const QList<ZipEndField> &fields, quint32 value,
                        const QList<QByteArray> &names) {
        ZipMaker zip;
        AddThreeEntries(zip);
        for (const ZipEndField &field : fields)
            zip.SetEnd(field, value);
        QTest::newRow(name) << zip.Bytes() << names;
    };
    const QList<ZipEndField> counts = {ZipMaker::EntriesHere, ZipMaker::Entries};
    row("fewer entries than there are", counts, 2, threeNames.mid(0, 2));
    row("more entries than there are", counts, 4, threeNames);
    row("as many entries as can be", counts, 0xffff, threeNames);
    row("no entries", counts, 0, {});
    row("directory at the start", {ZipMaker::DirectoryOffset}, 0, {});
    row("directory beyond the file", {ZipMaker::DirectoryOffset}, 0x00100000, {});
    row("directory at 2 GiB", {ZipMaker::DirectoryOffset}, 0x80000000, {});
    row("zip64 marker for the directory", {ZipMaker::DirectoryOffset}, 0xffffffff, {});
}

void TestZipDirectory::brokenEndRecordLeavesWhatCanBeRead()
{
    QFETCH(QByteArray, bytes);
    QTEST(Names(bytes), "names");
}

void TestZipDirectory::commentBehindTheArchiveIsPassedOver_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<bool>("found");
    QTest::newRow("short") << 10 << true;
    QTest::newRow("longest") << 65535 << true;
    QTest::newRow("longer than can be") << 65536 << false;
}

void TestZipDirectory::commentBehindTheArchiveIsPassedOver()
{
    QFETCH(int, size);
    QFETCH(bool, found);
    ZipMaker zip;
    AddThreeEntries(zip);
    zip.SetEnd(ZipMaker::CommentSize, quint32(size & 0xffff));
    const QByteArray bytes = zip.Bytes() + QByteArray(size, 'c');
    QCOMPARE(Names(bytes), found ? threeNames : QList<QByteArray>());
}

void TestZipDirectory::nameThatReachesBeyondTheFileEndsTheList()
{
    ZipMaker zip;
    AddThreeEntries(zip);
    zip.Set(1, ZipMaker::NameSize, 0xffff, ZipMaker::Central);
    QCOMPARE(Names(zip.Bytes()), threeNames.mid(0, 1));
}

void TestZipDirectory::wholeDirectoryIsTold()
{
    Archive archive(ThreeEntries());
    QVERIFY(ZipDirectoryIsWhole(archive));
}

void TestZipDirectory::directoryThatIsNotWholeIsTold_data()
{
    QTest::addColumn<QByteArray>("bytes");
    const auto row = [](const char *name, quint32 count) {
        ZipMaker zip;
        AddThreeEntries(zip);
        zip.SetEnd(ZipMaker::EntriesHere, count);
        QTest::newRow(name) << zip.Bytes();
    };
    // As of an archive with 65538 entries, too.
    row("fewer entries than there are", 2);
    row("more entries than there are", 4);
    QTest::newRow("cut") << ThreeEntries().chopped(1);
    QTest::newRow("no archive") << QByteArray("this is no archive");
}

void TestZipDirectory::directoryThatIsNotWholeIsTold()
{
    QFETCH(QByteArray, bytes);
    Archive archive(bytes);
    QVERIFY(!ZipDirectoryIsWhole(archive));
}

void TestZipDirectory::soundDataIsSound_data()
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
    // Data is looked at in pieces: some sizes about the pieces' ends.
    rows("64 KiB less 1", SomeNoise((64 << 10) - 1));
    rows("64 KiB", SomeNoise(64 << 10));
    rows("64 KiB and 1", SomeNoise((64 << 10) + 1));
    rows("128 KiB", SomeNoise(128 << 10));
    rows("3 MiB", SomeNoise(3 << 20));
    rows("16 MiB of zeros", QByteArray(16 << 20, '\0'));
    rows("64 KiB of zeros", QByteArray(64 << 10, '\0'));
}

void TestZipDirectory::soundDataIsSound()
{
    QFETCH(QByteArray, data);
    QFETCH(int, packing);
    ZipMaker zip;
    zip.AddFile(QStringLiteral("before"), "before");
    zip.AddFile(QStringLiteral("file"), data, ZipMaker::Packing(packing));
    QVERIFY(IsSound(zip.Bytes(), 1));
    // The same again after another entry was looked at: nothing depends on the position.
    QVERIFY(IsSound(zip.Bytes(), 0));
}

void TestZipDirectory::dataDescriptorsDoNoHarm()
{
    for (int entry = 1; entry < 3; ++entry) {
        ZipMaker zip;
        AddThreeEntries(zip);
        zip.UseDataDescriptor(entry);
        QCOMPARE(Names(zip.Bytes()), threeNames);
        for (int index = 1; index < 3; ++index)
            QVERIFY(IsSound(zip.Bytes(), index));
    }
}

void TestZipDirectory::flagsOfNoConcernDoNoHarm()
{
    ZipMaker zip;
    AddThreeEntries(zip);
    // How hard it was packed, and that the name is UTF-8.
    zip.Set(1, ZipMaker::Flags, 0x0806);
    QVERIFY(IsSound(zip.Bytes(), 1));
}

void TestZipDirectory::damagedDataIsNotSound_data()
{
    AddDamagedArchives();
}

void TestZipDirectory::damagedDataIsNotSound()
{
    QFETCH(QByteArray, archive);
    QCOMPARE(Names(archive), threeNames);
    QVERIFY(!IsSound(archive, 1));
    // Its neighbour is none the worse for it.
    QVERIFY(IsSound(archive, 2));
}

void TestZipDirectory::everyTruncationIsSurvived()
{
    ZipMaker zip;
    zip.AddFile(QStringLiteral("file"), SomeNoise(300), ZipMaker::Deflated);
    const QByteArray bytes = zip.Bytes();
    const ZipEntry entry = Directory(bytes).value(0);
    const int dataEnd = 30 + 4 + int(entry.packedSize);
    for (int size = 0; size < dataEnd; ++size) {
        Archive archive(bytes.left(size));
        QVERIFY(!ZipDataIsSound(archive, entry));
    }
    Archive archive(bytes.left(dataEnd));
    QVERIFY(ZipDataIsSound(archive, entry));
}

void TestZipDirectory::everyFlippedBitIsNoticedOrHarmless()
{
    ZipMaker zip;
    zip.AddFile(QStringLiteral("file"), SomeText().left(400));
    const QByteArray bytes = zip.Bytes();
    const int packedSize = int(Directory(bytes).value(0).packedSize);
    int harmless = 0;
    for (int bit = 0; bit < packedSize * 8; ++bit) {
        QByteArray damaged = bytes;
        const int offset = 30 + 4 + bit / 8;
        damaged[offset] = char(damaged.at(offset) ^ (1 << (bit % 8)));
        harmless += IsSound(damaged, 0) ? 1 : 0;
    }
    // Only the bits behind the stream's end in its last byte mean nothing.
    QVERIFY2(harmless < 8, qPrintable(QString::number(harmless)));
}

void TestZipDirectory::archiveThatShrinksIsNotSound()
{
    const QByteArray bytes = ThreeEntries();
    const ZipEntry entry = Directory(bytes).value(1);
    Archive archive{QByteArray()};
    QVERIFY(!ZipDataIsSound(archive, entry));
}

#ifdef Q_OS_UNIX
// A file with holes: it takes no more room on the disk than the few bytes written.
void TestZipDirectory::dataBeyondTheReachOfTheReaderIsNotSound_posix()
{
    const QByteArray bytes = ThreeEntries();
    ZipEntry entry = Directory(bytes).value(1);
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

void TestZipDirectory::pathsThatStayInTheFolder_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("stays");
    const auto row = [](const char *path, bool stays) {
        QTest::newRow(path) << QString::fromUtf8(path) << stays;
    };
    row("pkg", true);
    row("pkg/app.txt", true);
    row("pkg/sub/sub/app.txt", true);
    row(u8"pkg/中文/文件.txt", true);
    row("pkg/a b.txt", true);
    row("pkg/.hidden", true);
    row("pkg/..hidden", true);
    row("pkg/name..", true);
    row("pkg/a..b", true);
    row("pkg/./app.txt", true);
    row("pkg//app.txt", true);
    row("pkg/~/app.txt", true);
    row("..", false);
    row("../app.txt", false);
    row("pkg/../app.txt", false);
    row("pkg/../../app.txt", false);
    row("pkg/..", false);
    row("/app.txt", false);
    row("//server/share/app.txt", false);
    row("C:/app.txt", false);
    row("C:app.txt", false);
    row("pkg/app.txt:stream", false);
    row("pkg\\app.txt", false);
    row("..\\app.txt", false);
    row("\\app.txt", false);
    row("\\\\server\\share\\app.txt", false);
    row("pkg/.. /app.txt", false);
    row("pkg/ ../app.txt", false);
    row("pkg/.../app.txt", false);
    row("pkg/. ./app.txt", false);
}

void TestZipDirectory::pathsThatStayInTheFolder()
{
    QFETCH(QString, path);
    QTEST(StaysInFolder(path), "stays");
}

QTEST_GUILESS_MAIN(TestZipDirectory)
#include "tst_zipdirectory.moc"
