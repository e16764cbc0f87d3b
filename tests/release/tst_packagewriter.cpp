#include "release/publish/packagewriter.h"
#include "tests/release/vendor.h"
#include "tests/support/fulldisk.h"
#include "tests/support/testhome.h"

#include <QFile>
#include <QFileInfo>
#include <QTest>

using ReleaseRules::Entry;

namespace
{

const QString top = QStringLiteral("Client-2.1.3");

/// The files of a Vendor's client that the packages here hold.
const QVector<Entry> twoEntries{{QStringLiteral("plug ins"), true, 0},
                                {QStringLiteral("a.txt"), false, 1000}};

Failure Write(const Vendor &vendor, const QVector<Entry> &entries)
{
    Progress progress(Progress::Silent);
    return WritePackage(vendor.Client(), top, entries, vendor.Path(QStringLiteral("new.zip")),
                        progress);
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
