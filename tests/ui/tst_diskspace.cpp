// SPDX-License-Identifier: MIT
#include "ui/diskspace.h"

#include "config/global.h"
#include "tests/support/testhome.h"

#include <QFile>
#include <QTest>

class TestDiskSpace : public QObject
{
    Q_OBJECT

private slots:
    void wantsStrictlyMoreThanThreePackages_data();
    void wantsStrictlyMoreThanThreePackages();
    void namesTheDriveThatIsShort_data();
    void namesTheDriveThatIsShort();
    void findsRoomOnThisMachineForASmallPackage();
    void namesDriveCWhenNoDriveOfThisMachineHasRoom();
#ifdef Q_OS_LINUX
    void namesDriveCWhenItAloneIsShort_linux();
#endif
};

void TestDiskSpace::wantsStrictlyMoreThanThreePackages_data()
{
    QTest::addColumn<qint64>("freeBytes");
    QTest::addColumn<qint64>("packageSize");
    QTest::addColumn<bool>("hasRoom");

    QTest::newRow("one byte less than three packages") << qint64(2999) << qint64(1000) << false;
    QTest::newRow("exactly three packages") << qint64(3000) << qint64(1000) << false;
    QTest::newRow("one byte more than three packages") << qint64(3001) << qint64(1000) << true;
    QTest::newRow("an empty package on a full drive") << qint64(0) << qint64(0) << false;
    QTest::newRow("an empty package and one free byte") << qint64(1) << qint64(0) << true;
    QTest::newRow("a drive that gives no answer") << qint64(0) << qint64(1) << false;
    QTest::newRow("beyond 32 bits, exactly three")
        << qint64(9000000000) << qint64(3000000000) << false;
    QTest::newRow("beyond 32 bits, one more") << qint64(9000000001) << qint64(3000000000) << true;
    QTest::newRow("more free bytes than a signed number holds")
        << qint64(quint64(1) << 63U) << qint64(1) << false;
}

void TestDiskSpace::wantsStrictlyMoreThanThreePackages()
{
    QFETCH(qint64, freeBytes);
    QFETCH(qint64, packageSize);

    QTEST(HasRoom(freeBytes, packageSize), "hasRoom");
}

void TestDiskSpace::namesTheDriveThatIsShort_data()
{
    QTest::addColumn<qint64>("freeOnC");
    QTest::addColumn<qint64>("freeOnWorkingDrive");
    QTest::addColumn<QString>("drive");

    QTest::newRow("room on both") << qint64(31) << qint64(31) << QString();
    QTest::newRow("C short") << qint64(30) << qint64(31) << QStringLiteral("C");
    QTest::newRow("the other short") << qint64(31) << qint64(30) << QStringLiteral("D");
    QTest::newRow("both short") << qint64(30) << qint64(30) << QStringLiteral("C");
    QTest::newRow("no answer for C") << qint64(0) << qint64(31) << QStringLiteral("C");
    QTest::newRow("no answer for the other") << qint64(31) << qint64(0) << QStringLiteral("D");
}

void TestDiskSpace::namesTheDriveThatIsShort()
{
    QFETCH(qint64, freeOnC);
    QFETCH(qint64, freeOnWorkingDrive);

    QTEST(DriveWithoutRoom(freeOnC, freeOnWorkingDrive, 10,
                           QStringLiteral("D:/Programs/Client/AutoUpdate")),
          "drive");
}

void TestDiskSpace::findsRoomOnThisMachineForASmallPackage()
{
    const TestHome home;
    Global::instance.packageSize = 1000;

    QCOMPARE(DriveWithoutRoomForPackage(), QString());
}

void TestDiskSpace::namesDriveCWhenNoDriveOfThisMachineHasRoom()
{
    const TestHome home;
    Global::instance.packageSize = qint64(1) << 60;

    QCOMPARE(DriveWithoutRoomForPackage(), QStringLiteral("C"));
}

#ifdef Q_OS_LINUX
void TestDiskSpace::namesDriveCWhenItAloneIsShort_linux()
{
    const TestHome home;
    Global::instance.packageSize = 1000;
    // Here the name of a drive is a file name, which leads to a volume without a free byte.
    QVERIFY(QFile::link(QStringLiteral("/proc"), home.ProgramFolder() + QStringLiteral("/C:\\")));

    QCOMPARE(DriveWithoutRoomForPackage(), QStringLiteral("C"));
}
#endif

QTEST_GUILESS_MAIN(TestDiskSpace)
#include "tst_diskspace.moc"
