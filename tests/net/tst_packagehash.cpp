#include "config/global.h"
#include "tests/support/damageddisk.h"
#include "tests/support/logcapture.h"
#include "tests/support/peakmemory.h"
#include "tests/support/testhome.h"

#include <QDir>
#include <QTest>

class tst_PackageHash : public QObject
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

/// The digest of a file that cannot be read to its end, which is logged.
QString DigestOfUnreadable(const QString &path)
{
    const LogCapture log;
    const QString digest = Digest(path);
    const QStringList expected = {QStringLiteral("[DEBUG] \"%1\"  read failed: 1").arg(path),
                                  QStringLiteral("[INFO] org: \"\"  checkmd5: \"%1\"").arg(digest)};
    if (log.Messages() != expected)
        qFatal("logged was: %s", qPrintable(log.Messages().join(QLatin1Char('\n'))));
    return digest;
}

} // namespace

void tst_PackageHash::digestIsOfTheWholeFile_data()
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

void tst_PackageHash::digestIsOfTheWholeFile()
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
    QCOMPARE(log.Messages(),
             QStringList(QStringLiteral("[INFO] org: \"%1\"  checkmd5: \"%1\"").arg(digest)));
}

void tst_PackageHash::digestOfLargeFileIsRight()
{
    const TestHome home;
    const QString path = home.Scratch() + QStringLiteral("/package.zip");
    // More than any buffer on the way: a reading that stops early changes the digest.
    WriteFile(path, QByteArray(1000000, 'a'));
    QCOMPARE(Digest(path), QStringLiteral("7707d6ae4e027c70eea2a935c2296f21"));
}

// A file with holes where the system has such: it takes no space on the disk.
void tst_PackageHash::fileBeyond2GibNeedsNoMemory()
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

void tst_PackageHash::fileIsClosedAgain()
{
    const TestHome home;
    const QString path = home.Scratch() + QStringLiteral("/package.zip");
    WriteFile(path, "abc");
    QCOMPARE(Digest(path), QStringLiteral("900150983cd24fb0d6963f7d28e17f72"));

    // A retry replaces the file: that works on every system only when nobody has it open.
    QVERIFY(QFile::remove(path));
    WriteFile(path, "a");
    QCOMPARE(Digest(path), QStringLiteral("0cc175b9c0f1b6a831c399e269772661"));
}

void tst_PackageHash::announcedDigestIsOnlyLogged()
{
    const TestHome home;
    const QString path = home.Scratch() + QStringLiteral("/package.zip");
    WriteFile(path, "abc");

    Global::instance.md5 = QStringLiteral("900150983CD24FB0D6963F7D28E17F72");
    const LogCapture log;
    QCOMPARE(Digest(path), QStringLiteral("900150983cd24fb0d6963f7d28e17f72"));
    QCOMPARE(log.Messages(),
             QStringList(QStringLiteral("[INFO] org: \"900150983CD24FB0D6963F7D28E17F72\"  "
                                        "checkmd5: \"900150983cd24fb0d6963f7d28e17f72\"")));
    QCOMPARE(Global::instance.md5, QStringLiteral("900150983CD24FB0D6963F7D28E17F72"));
}

void tst_PackageHash::fileThatCannotBeOpenedHasNoDigest_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("missing") << QStringLiteral("missing.zip");
    QTest::newRow("in a missing folder") << QStringLiteral("nowhere/package.zip");
    QTest::newRow("a folder") << QStringLiteral("folder");
    QTest::newRow("a folder, named with a slash") << QStringLiteral("folder/");
}

void tst_PackageHash::fileThatCannotBeOpenedHasNoDigest()
{
    QFETCH(QString, name);
    const TestHome home;
    QVERIFY(QDir(home.Scratch()).mkpath(QStringLiteral("folder")));
    const QString path = home.Scratch() + QLatin1Char('/') + name;

    const LogCapture log;
    QCOMPARE(Digest(path), QString());
    QCOMPARE(log.Messages(),
             QStringList(QStringLiteral("[DEBUG] \"%1\"  open failed: 5").arg(path)));
}

void tst_PackageHash::digestOfDamagedDiskFitsNothing_data()
{
    QTest::addColumn<int>("soundBytes");
    QTest::newRow("first byte") << 0;
    QTest::newRow("middle") << 100000;
    QTest::newRow("between two pieces") << 128 * 1024;
    QTest::newRow("last byte") << 199999;
}

void tst_PackageHash::digestOfDamagedDiskFitsNothing()
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
    // An answer of the service may announce no digest at all.
    QCOMPARE(digest.size(), kDigestOfNothing.size());
}

#ifdef Q_OS_LINUX
void tst_PackageHash::digestOfUnreadableFileFitsNothing_posix()
{
    const TestHome home;
    // Nothing lies at the beginning of a process's memory.
    const QString digest = DigestOfUnreadable(QStringLiteral("/proc/self/mem"));
    QVERIFY(digest != kDigestOfNothing);
    QCOMPARE(digest.size(), kDigestOfNothing.size());
}
#endif

QTEST_GUILESS_MAIN(tst_PackageHash)
#include "tst_packagehash.moc"
