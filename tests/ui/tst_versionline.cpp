// SPDX-License-Identifier: MIT
#include "ui/versionline.h"

#include "tests/support/testhome.h"

#include "config/global.h"

#include <QTest>

class TestVersionLine : public QObject
{
    Q_OBJECT

private slots:
    void isInTheLanguageShown_data();
    void isInTheLanguageShown();
    void givesTheSizeWithTwoDecimals_data();
    void givesTheSizeWithTwoDecimals();
    void takesAPlaceholderInTheVersionAsText();
    void keepsAnEmptyVersion();
    void cutsAnEndlessVersion_data();
    void cutsAnEndlessVersion();
};

namespace
{

const QString kSize = QStringLiteral("  Update Package %1M");

} // namespace

void TestVersionLine::isInTheLanguageShown_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<QString>("line");

    const QString english = QStringLiteral("Version V2.1.3  Update Package 1.50M");
    const QString chinese = QStringLiteral("版本号V2.1.3  Update Package 1.50M");
    QTest::newRow("en") << QStringLiteral("en") << english;
    QTest::newRow("zh") << QStringLiteral("zh") << chinese;
    QTest::newRow("other letter case") << QStringLiteral("EN") << chinese;
    QTest::newRow("with a country") << QStringLiteral("en_US") << chinese;
    QTest::newRow("none") << QString() << chinese;
}

void TestVersionLine::isInTheLanguageShown()
{
    QFETCH(QString, language);
    const TestHome home;
    Global::instance.language = language;
    Global::instance.latestVersion = QStringLiteral("2.1.3");
    Global::instance.packageSize = 1572864;

    QTEST(VersionLine(kSize), "line");
}

void TestVersionLine::givesTheSizeWithTwoDecimals_data()
{
    QTest::addColumn<qint64>("bytes");
    QTest::addColumn<QString>("size");

    QTest::newRow("nothing") << qint64(0) << QStringLiteral("0.00M");
    QTest::newRow("one byte") << qint64(1) << QStringLiteral("0.00M");
    QTest::newRow("just under half a hundredth") << qint64(5242) << QStringLiteral("0.00M");
    QTest::newRow("just over half a hundredth") << qint64(5243) << QStringLiteral("0.01M");
    QTest::newRow("one MiB less a byte") << qint64(1048575) << QStringLiteral("1.00M");
    QTest::newRow("one MiB") << qint64(1048576) << QStringLiteral("1.00M");
    QTest::newRow("one and a half") << qint64(1572864) << QStringLiteral("1.50M");
    QTest::newRow("the largest announced size") << qint64(2147483647) << QStringLiteral("2048.00M");
    QTest::newRow("6 GiB") << qint64(6442450944) << QStringLiteral("6144.00M");
}

void TestVersionLine::givesTheSizeWithTwoDecimals()
{
    QFETCH(qint64, bytes);
    QFETCH(QString, size);
    const TestHome home;
    Global::instance.language = QStringLiteral("en");
    Global::instance.latestVersion = QStringLiteral("9");
    Global::instance.packageSize = bytes;

    QCOMPARE(VersionLine(kSize), QStringLiteral("Version V9  Update Package ") + size);
}

void TestVersionLine::takesAPlaceholderInTheVersionAsText()
{
    const TestHome home;
    Global::instance.latestVersion = QStringLiteral("%1<b>%2");

    QCOMPARE(VersionLine(QStringLiteral("  更新包 %1M")),
             QStringLiteral("版本号V%1<b>%2  更新包 0.00M"));
}

void TestVersionLine::keepsAnEmptyVersion()
{
    const TestHome home;
    Global::instance.language = QStringLiteral("en");

    QCOMPARE(VersionLine(kSize), QStringLiteral("Version V  Update Package 0.00M"));
}

void TestVersionLine::cutsAnEndlessVersion_data()
{
    QTest::addColumn<QString>("version");
    QTest::addColumn<QString>("shown");

    const QString ellipsis = QStringLiteral("\u2026");
    const QString longest(128, QLatin1Char('1'));
    const QString almost(127, QLatin1Char('1'));
    const QString emoji = QString::fromUtf8("\xf0\x9f\x98\x80");
    QTest::newRow("the longest") << longest << longest;
    QTest::newRow("one more") << longest + QLatin1Char('2') << longest + ellipsis;
    QTest::newRow("a million marks")
        << QString(1000000, QChar(0x301)) << QString(128, QChar(0x301)) + ellipsis;
    QTest::newRow("a pair at the cut") << almost + emoji << almost + ellipsis;
    QTest::newRow("a pair before the cut")
        << almost.left(126) + emoji + QLatin1Char('2') << almost.left(126) + emoji + ellipsis;
}

void TestVersionLine::cutsAnEndlessVersion()
{
    QFETCH(QString, version);
    QFETCH(QString, shown);
    const TestHome home;
    Global::instance.language = QStringLiteral("en");
    Global::instance.latestVersion = version;

    QCOMPARE(VersionLine(kSize), QStringLiteral("Version V%1  Update Package 0.00M").arg(shown));
    QCOMPARE(Global::instance.latestVersion, version);
}

QTEST_GUILESS_MAIN(TestVersionLine)
#include "tst_versionline.moc"
