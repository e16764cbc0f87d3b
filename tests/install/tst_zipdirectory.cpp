// SPDX-License-Identifier: MIT
#include "install/zipdirectory.h"
#include "tests/install/damagedarchives.h"
#include "tests/support/zipmaker.h"

#include <QBuffer>
#include <QTest>

namespace
{

/// An archive in a buffer that is open for reading.
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
    QCOMPARE(int(stored.versionNeeded), 20);
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
    // An archive with 65538 entries has the same count.
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
