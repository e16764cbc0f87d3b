// SPDX-License-Identifier: MIT
#include "config/global.h"
#include "tests/support/damageddisk.h"
#include "tests/support/logcapture.h"
#include "tests/support/loglines.h"
#include "tests/support/peakmemory.h"
#include "tests/support/testhome.h"

#include <QDir>
#include <QTest>

class TestPackageHash : public QObject
{
    Q_OBJECT

private slots:
    void digestIsOfTheWholeFile_data();
    void digestIsOfTheWholeFile();
    void digestOfLargeFileIsRight();
    void fileBeyond2GibNeedsNoMemory();
    void fileIsClosedAgain();
    void announcedDigestIsOnlyLogged();
    void fileThatCannotBeOpenedHasNoDigest_data();
    void fileThatCannotBeOpenedHasNoDigest();
    void digestOfDamagedDiskFitsNothing_data();
    void digestOfDamagedDiskFitsNothing();
#ifdef Q_OS_LINUX
    void digestOfUnreadableFileFitsNothing_posix();
#endif
};

namespace
{

QString Digest(const QString &path)
{
    return Global::instance.FileMd5(path);
}

const QString kDigestOfNothing = QStringLiteral("d41d8cd98f00b204e9800998ecf8427e");

/// Verifies the digest and the log of a file that cannot be read to its end.
QString DigestOfUnreadable(const QString &path)
{
    const LogCapture log;
    const QString digest = Digest(path);
    const QStringList expected = {LogLine::PackageReadFailed(path),
                                  LogLine::Digests(QString(), digest)};
    if (log.Messages() != expected)
        qFatal("logged was: %s", qPrintable(log.Messages().join(QLatin1Char('\n'))));
    return digest;
}

} // namespace

void TestPackageHash::digestIsOfTheWholeFile_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("digest");

    const QString plain = QStringLiteral("package.zip");
    const auto row = [](const char *tag, const QString &name, const QByteArray &content,
                        const char *digest) {
        QTest::newRow(tag) << name << content << QString::fromLatin1(digest);
    };
    row("empty", plain, "", "d41d8cd98f00b204e9800998ecf8427e");
    row("one letter", plain, "a", "0cc175b9c0f1b6a831c399e269772661");
    row("three letters", plain, "abc", "900150983cd24fb0d6963f7d28e17f72");
    row("line breaks kept", plain, "one\r\ntwo\nthree\r", "9a7143ee613c535bbb84f1a5912692b7");
    row("zero bytes", plain, QByteArray("a\0b\0\0", 5), "8fb8b2df9213e725991495f7a942409d");
    row("bytes that are no text", plain, QByteArray("\xff\xfe\x80\x1a", 4),
        "3fa922acc6a4ec68be78b40c481258a0");
    row("blanks in the name", QStringLiteral("the new package.zip"), "abc",
        "900150983cd24fb0d6963f7d28e17f72");
    row("name in Chinese", QStringLiteral("安装包.zip"), "abc", "900150983cd24fb0d6963f7d28e17f72");
}

void TestPackageHash::digestIsOfTheWholeFile()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, content);
    QFETCH(QString, digest);
    const TestHome home;
    const QString path = home.Scratch() + QLatin1Char('/') + name;
    WriteFile(path, content);

    Global::instance.md5 = digest;
    const LogCapture log;
    QCOMPARE(Digest(path), digest);
    QCOMPARE(log.Messages(), QStringList(LogLine::Digests(digest, digest)));
}

void TestPackageHash::digestOfLargeFileIsRight()
{
    const TestHome home;
    const QString path = home.Scratch() + QStringLiteral("/package.zip");
    // Larger than any buffer, so that an early end changes the digest.
    WriteFile(path, QByteArray(1000000, 'a'));
    QCOMPARE(Digest(path), QStringLiteral("7707d6ae4e027c70eea2a935c2296f21"));
}

// A sparse file where the system supports that.
void TestPackageHash::fileBeyond2GibNeedsNoMemory()
{
    const TestHome home;
    const QString path = home.Scratch() + QStringLiteral("/package.zip");
    WriteFile(path, "beginning");
    QVERIFY(QFile::resize(path, (2LL << 30) + 5));
    QFile file(path);
    QVERIFY(file.open(QIODevice::Append));
    QCOMPARE(file.write("end"), 3);
    file.close();

    const PeakMemory memory;
    QCOMPARE(Digest(path), QStringLiteral("e5577eceeb8730955af59ea446486f53"));
    QVERIFY2(memory.GrownBy() <= 1024LL * 1024, qPrintable(QString::number(memory.GrownBy())));
}

void TestPackageHash::fileIsClosedAgain()
{
    const TestHome home;
    const QString path = home.Scratch() + QStringLiteral("/package.zip");
    WriteFile(path, "abc");
    QCOMPARE(Digest(path), QStringLiteral("900150983cd24fb0d6963f7d28e17f72"));

    // A retry replaces the file, which Windows allows only when it is closed.
    QVERIFY(QFile::remove(path));
    WriteFile(path, "a");
    QCOMPARE(Digest(path), QStringLiteral("0cc175b9c0f1b6a831c399e269772661"));
}

void TestPackageHash::announcedDigestIsOnlyLogged()
{
    const TestHome home;
    const QString path = home.Scratch() + QStringLiteral("/package.zip");
    WriteFile(path, "abc");

    Global::instance.md5 = QStringLiteral("900150983CD24FB0D6963F7D28E17F72");
    const LogCapture log;
    QCOMPARE(Digest(path), QStringLiteral("900150983cd24fb0d6963f7d28e17f72"));
    QCOMPARE(log.Messages(),
             QStringList(LogLine::Digests(Global::instance.md5,
                                          QStringLiteral("900150983cd24fb0d6963f7d28e17f72"))));
    QCOMPARE(Global::instance.md5, QStringLiteral("900150983CD24FB0D6963F7D28E17F72"));
}

void TestPackageHash::fileThatCannotBeOpenedHasNoDigest_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("missing") << QStringLiteral("missing.zip");
    QTest::newRow("in a missing folder") << QStringLiteral("nowhere/package.zip");
    QTest::newRow("a folder") << QStringLiteral("folder");
    QTest::newRow("a folder, named with a slash") << QStringLiteral("folder/");
}

void TestPackageHash::fileThatCannotBeOpenedHasNoDigest()
{
    QFETCH(QString, name);
    const TestHome home;
    QVERIFY(QDir(home.Scratch()).mkpath(QStringLiteral("folder")));
    const QString path = home.Scratch() + QLatin1Char('/') + name;

    const LogCapture log;
    QCOMPARE(Digest(path), QString());
    QCOMPARE(log.Messages(), QStringList(LogLine::OpenFailed(path)));
}

void TestPackageHash::digestOfDamagedDiskFitsNothing_data()
{
    QTest::addColumn<int>("soundBytes");
    QTest::newRow("first byte") << 0;
    QTest::newRow("middle") << 100000;
    QTest::newRow("between two pieces") << 128 * 1024;
    QTest::newRow("last byte") << 199999;
}

void TestPackageHash::digestOfDamagedDiskFitsNothing()
{
    QFETCH(int, soundBytes);
    const TestHome home;
    const QString path = home.Scratch() + QStringLiteral("/package.zip");
    const QByteArray content(200000, 'a');
    WriteFile(path, content.left(soundBytes));
    const QString digestOfSoundPart = Digest(path);
    WriteFile(path, content);
    const QString digestOfAll = Digest(path);

    const DamagedDisk disk(path, soundBytes);
    const QString digest = DigestOfUnreadable(path);
    QVERIFY(digest != digestOfAll);
    QVERIFY(digest != digestOfSoundPart);
    // The answer may have no digest.
    QCOMPARE(digest.size(), kDigestOfNothing.size());
}

#ifdef Q_OS_LINUX
void TestPackageHash::digestOfUnreadableFileFitsNothing_posix()
{
    const TestHome home;
    // The first page of memory cannot be read.
    const QString digest = DigestOfUnreadable(QStringLiteral("/proc/self/mem"));
    QVERIFY(digest != kDigestOfNothing);
    QCOMPARE(digest.size(), kDigestOfNothing.size());
}
#endif

QTEST_GUILESS_MAIN(TestPackageHash)
#include "tst_packagehash.moc"
