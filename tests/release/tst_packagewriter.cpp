// SPDX-License-Identifier: MIT
#include "release/publish/packing/packagewriter.h"

#include "install/zipdirectory.h"
#include "install/zipunpacker.h"
#include "release/publish/packing/zipwriter.h"
#include "tests/release/vendor.h"
#include "tests/support/peakmemory.h"
#include "tests/support/resourcelimits.h"
#include "tests/support/testhome.h"

#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>
#include <QTest>
#include <QtEndian>
#include <QtGui/private/qzipreader_p.h>

using ReleaseRules::Entry;

namespace
{

const QString top = QStringLiteral("Client-2.1.3");

/// The files of the client in these packages.
const QVector<Entry> twoEntries{{QStringLiteral("plug ins"), true, 0},
                                {QStringLiteral("a.txt"), false, 1000}};

Failure Write(const Vendor &vendor, const QVector<Entry> &entries)
{
    Progress progress(Progress::Silent);
    return WritePackage(vendor.Client(), top, entries, vendor.Path(QStringLiteral("new.zip")),
                        progress);
}

constexpr int kLocalHeaderSize = 30;

quint16 Word(const QByteArray &record, int offset)
{
    return qFromLittleEndian<quint16>(record.constData() + offset);
}

quint32 DoubleWord(const QByteArray &record, int offset)
{
    return qFromLittleEndian<quint32>(record.constData() + offset);
}

/// Data that cannot be compressed, the same each time.
QByteArray Noise(int size)
{
    QByteArray noise;
    for (int number = 0; noise.size() < size; ++number)
        noise += QCryptographicHash::hash(QByteArray::number(number), QCryptographicHash::Sha512);
    return noise.left(size);
}

QString RuleOf(const Failure &failure)
{
    return failure ? failure->rule : QString();
}

} // namespace

class TestPackageWriter : public QObject
{
    Q_OBJECT

private slots:
    void fileThatIsNotAsListedFails_data();
    void fileThatIsNotAsListedFails();
    void targetThatCannotBeMadeFails();
    void headersBeforeTheDataSayAllOfIt();
    void dataIsPackedOnlyWhereThatSavesRoom_data();
    void dataIsPackedOnlyWhereThatSavesRoom();
    void archiveBeyondItsLimitsFails_data();
    void archiveBeyondItsLimitsFails();
    void memoryDoesNotGrowWithTheFiles();
#ifdef Q_OS_UNIX
    void diskThatFillsUpAnywhereFails_posix();
#endif
};

void TestPackageWriter::fileThatIsNotAsListedFails_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<qint64>("size");
    QTest::addColumn<QString>("rule");
    QTest::newRow("as listed") << "a.txt" << qint64(1000) << QString();
    QTest::newRow("grown") << "a.txt" << qint64(999) << "changed";
    QTest::newRow("shrunk") << "a.txt" << qint64(1001) << "changed";
    QTest::newRow("gone") << "b.txt" << qint64(1000) << "unreadable";
    QTest::newRow("a folder by now") << "empty" << qint64(0) << "unreadable";
}

void TestPackageWriter::fileThatIsNotAsListedFails()
{
    const Vendor vendor;
    QFETCH(QString, path);
    QFETCH(qint64, size);
    QTEST(RuleOf(Write(vendor, {{path, false, size}})), "rule");
}

void TestPackageWriter::targetThatCannotBeMadeFails()
{
    const Vendor vendor;
    WriteFile(vendor.Path(QStringLiteral("new.zip/x")), "in the way");
    QCOMPARE(RuleOf(Write(vendor, twoEntries)), QStringLiteral("unwritable"));
}

void TestPackageWriter::headersBeforeTheDataSayAllOfIt()
{
    const Vendor vendor;
    QVERIFY(!Write(vendor, twoEntries));
    QFile package(vendor.Path(QStringLiteral("new.zip")));
    QVERIFY(package.open(QIODevice::ReadOnly));
    const QVector<ZipEntry> entries = ReadZipDirectory(package);
    QCOMPARE(entries.size(), 3);
    QVERIFY(ZipDirectoryIsWhole(package));
    for (const ZipEntry &entry : entries) {
        QVERIFY(package.seek(entry.localHeaderOffset));
        const QByteArray header = package.read(kLocalHeaderSize);
        QCOMPARE(header.left(4), QByteArray("PK\x03\x04"));
        // Names are marked as UTF-8, and there are no data descriptors.
        QCOMPARE(Word(header, 6), quint16(0x0800));
        QCOMPARE(entry.flags, quint16(0x0800));
        QCOMPARE(Word(header, 8), entry.method);
        QCOMPARE(DoubleWord(header, 14), entry.crc32);
        QCOMPARE(DoubleWord(header, 18), quint32(entry.packedSize));
        QCOMPARE(DoubleWord(header, 22), quint32(entry.size));
        QCOMPARE(package.read(Word(header, 26)), entry.rawName);
        QVERIFY(ZipDataIsSound(package, entry));
    }
    QCOMPARE(entries.at(0).rawName, QByteArray("Client-2.1.3/"));
    QCOMPARE(entries.at(2).rawName, QByteArray("Client-2.1.3/a.txt"));
    QCOMPARE(qint64(entries.at(2).size), qint64(1000));
}

void TestPackageWriter::dataIsPackedOnlyWhereThatSavesRoom_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<bool>("packed");
    QTest::newRow("nothing") << QByteArray() << false;
    QTest::newRow("a few bytes") << QByteArray(20, 'x') << false;
    QTest::newRow("text") << QByteArray("text ").repeated(100) << true;
    QTest::newRow("much text") << QByteArray("text ").repeated(100000) << true;
    QTest::newRow("a little noise") << Noise(1000) << false;
    QTest::newRow("noise") << Noise(1000000) << false;
    // Part of it can be compressed.
    QTest::newRow("noise between text")
        << QByteArray(70000, 'x') + Noise(1000000) + QByteArray(70000, 'x') << true;
}

void TestPackageWriter::dataIsPackedOnlyWhereThatSavesRoom()
{
    const Vendor vendor;
    QFETCH(QByteArray, data);
    WriteFile(vendor.Client(QStringLiteral("data")), data);
    QVERIFY(!Write(vendor, {{QStringLiteral("data"), false, data.size()}, twoEntries.at(1)}));
    const QString path = vendor.Path(QStringLiteral("new.zip"));
    QFile package(path);
    QVERIFY(package.open(QIODevice::ReadOnly));
    const ZipEntry entry = ReadZipDirectory(package).at(1);
    QTEST(entry.method != 0, "packed");
    QVERIFY(qint64(entry.packedSize) <= data.size());
    // Data that was compressed in vain is stored, so only the headers add to the size.
    QVERIFY(package.size() < data.size() + 1000);
    QZipReader reader(path);
    QCOMPARE(reader.fileData(QStringLiteral("Client-2.1.3/data")), data);
    QCOMPARE(reader.fileData(QStringLiteral("Client-2.1.3/a.txt")), QByteArray(1000, 'a'));
}

void TestPackageWriter::archiveBeyondItsLimitsFails_data()
{
    QTest::addColumn<qint64>("maxSize");
    QTest::addColumn<int>("entries");
    QTest::addColumn<int>("error");
    // A folder "1/" takes 32 bytes and another 48 in the central directory, whose end record
    // has 22.
    QTest::newRow("just fits") << qint64(102) << 1 << int(ZipWriter::NoError);
    QTest::newRow("one byte too many") << qint64(101) << 1 << int(ZipWriter::TooLarge);
    QTest::newRow("no room for the folder") << qint64(31) << 1 << int(ZipWriter::TooLarge);
    QTest::newRow("as many as can be counted") << (1LL << 30) << 65535 << int(ZipWriter::NoError);
    QTest::newRow("one more") << (1LL << 30) << 65536 << int(ZipWriter::TooLarge);
}

void TestPackageWriter::archiveBeyondItsLimitsFails()
{
    const Vendor vendor;
    QFETCH(qint64, maxSize);
    QFETCH(int, entries);
    QFile archive(vendor.Path(QStringLiteral("new.zip")));
    QVERIFY(archive.open(QIODevice::ReadWrite | QIODevice::Unbuffered));
    ZipWriter writer(archive, maxSize);
    for (int number = 1; number <= entries; ++number)
        writer.AddFolder(QString::number(number));
    const bool isDone = writer.Finish();
    QCOMPARE(isDone, writer.Error() == ZipWriter::NoError);
    QTEST(int(writer.Error()), "error");
    QVERIFY(archive.size() <= maxSize);
}

void TestPackageWriter::memoryDoesNotGrowWithTheFiles()
{
    const Vendor vendor;
    const qint64 size = 700LL << 20;
    const QString path = vendor.Client(QStringLiteral("large"));
    WriteFile(path, QByteArray());
    QVERIFY(QFile::resize(path, size)); // a sparse file
    const PeakMemory memory;
    QVERIFY(!Write(vendor, {{QStringLiteral("large"), false, size}}));
    QVERIFY2(memory.GrownBy() < 32LL << 20, qPrintable(QString::number(memory.GrownBy())));
}

#ifdef Q_OS_UNIX

void TestPackageWriter::diskThatFillsUpAnywhereFails_posix()
{
    const Vendor vendor;
    QVERIFY(!Write(vendor, twoEntries));
    const qint64 size = QFileInfo(vendor.Path(QStringLiteral("new.zip"))).size();
    for (qint64 room = 0; room < size; ++room) {
        Failure failure;
        {
            const FullDisk full(room);
            failure = Write(vendor, twoEntries);
        }
        QVERIFY2(RuleOf(failure) == QLatin1String("unwritable"), qPrintable(QString::number(room)));
    }
    const FullDisk justEnough(size);
    QVERIFY(!Write(vendor, twoEntries));
}

#endif

QTEST_GUILESS_MAIN(TestPackageWriter)
#include "tst_packagewriter.moc"
