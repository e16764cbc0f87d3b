// SPDX-License-Identifier: MIT
#include "install/windowsnames.h"

#include <QTest>

namespace
{

void AddColumns()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("expected");
}

/// Adds a row for each of @p names.
void AddNames(bool expected, const QStringList &names)
{
    for (const QString &name : names) {
        QString row;
        for (const QChar character : name) {
            if (character.isPrint())
                row += character;
            else
                row += QStringLiteral("<%1>").arg(character.unicode(), 4, 16, QLatin1Char('0'));
        }
        QTest::newRow(qPrintable(row)) << name << expected;
    }
}

/// A name with a character that takes a surrogate pair.
QString Around(uint character)
{
    return QStringLiteral("a%1b").arg(QString::fromUcs4(&character, 1));
}

} // namespace

class TestWindowsNames : public QObject
{
    Q_OBJECT

private slots:
    void devices_data();
    void devices();
    void forbiddenCharacters_data();
    void forbiddenCharacters();
    void invisibleCharacters_data();
    void invisibleCharacters();
    void endsAreKeptAsWindowsDoes_data();
    void endsAreKeptAsWindowsDoes();
    void programsOfTheCommandInterpreter_data();
    void programsOfTheCommandInterpreter();
};

void TestWindowsNames::devices_data()
{
    AddColumns();
    const QStringList devices{QStringLiteral("CON"),    QStringLiteral("PRN"),
                              QStringLiteral("AUX"),    QStringLiteral("NUL"),
                              QStringLiteral("CONIN$"), QStringLiteral("CONOUT$")};
    AddNames(true, devices);
    for (const QString &device : devices) {
        AddNames(true, {device.toLower(), device + QStringLiteral(".txt"),
                        device.toLower() + QStringLiteral(".tar.gz"), device + QLatin1Char('.'),
                        device + QLatin1Char(' '), device + QStringLiteral("  .zip")});
        AddNames(false, {device + QLatin1Char('x'), QLatin1Char('x') + device,
                         device + QStringLiteral("-.txt"), QStringLiteral("x.") + device,
                         QLatin1Char(' ') + device, device.chopped(1)});
    }
    // Half a surrogate pair is visible.
    AddNames(true,
             {QStringLiteral("NUL.") + QChar(0xdc00), QStringLiteral("com1.") + QChar(0xd800)});
    for (const QChar digit : QStringLiteral("0123456789¹²³")) {
        AddNames(true,
                 {QStringLiteral("COM") + digit, QStringLiteral("lpt") + digit,
                  QStringLiteral("com%1.log").arg(digit), QStringLiteral("LPT%1 .zip").arg(digit)});
        AddNames(false, {QStringLiteral("COM1") + digit, QStringLiteral("COM-") + digit,
                         QStringLiteral("aux") + digit});
    }
    AddNames(false,
             {QString(), QStringLiteral("COM"), QStringLiteral("lpt.txt"), QStringLiteral("COM⁴"),
              QStringLiteral("console"), QStringLiteral("nul-"), QStringLiteral("aux1"),
              QStringLiteral("conin"), QStringLiteral("设备"), QStringLiteral("Client-2.1.3.zip")});
}

void TestWindowsNames::devices()
{
    QFETCH(QString, name);
    QTEST(WindowsNames::IsDevice(name), "expected");
}

void TestWindowsNames::forbiddenCharacters_data()
{
    AddColumns();
    for (const QChar character : QStringLiteral("<>:\"/\\|?*")) {
        AddNames(true, {QString(character), QLatin1Char('a') + character,
                        character + QLatin1Char('a'), QStringLiteral("客户%1端").arg(character)});
    }
    AddNames(true, {QStringLiteral("a?") + QChar(0xdc00)});
    AddNames(false, {QString(), QStringLiteral("客户端-2.1.3.zip"),
                     QStringLiteral("a b.c-d_e+f,g;h=i'j`k~l!m@n#o$p%q^r&s(t)u[v]w{x}y"),
                     QStringLiteral("？：＊"), QStringLiteral("a\tb")});
}

void TestWindowsNames::forbiddenCharacters()
{
    QFETCH(QString, name);
    QTEST(WindowsNames::HasForbiddenCharacter(name), "expected");
}

void TestWindowsNames::invisibleCharacters_data()
{
    AddColumns();
    // Control characters: the first, the last, line ends, delete, and those beyond ASCII.
    for (const ushort character : {0x0000, 0x0009, 0x000a, 0x000d, 0x001b, 0x001f, 0x007f, 0x0085})
        AddNames(true, {QStringLiteral("a%1b").arg(QChar(character))});
    // These reverse the direction of the text.
    for (const ushort character :
         {0x061c, 0x200e, 0x200f, 0x202a, 0x202b, 0x202c, 0x202d, 0x202e, 0x2066, 0x2069})
        AddNames(true, {QStringLiteral("a%1b").arg(QChar(character))});
    // Soft hyphen, zero-width space, byte order mark.
    for (const ushort character : {0x00ad, 0x200b, 0x200d, 0x2060, 0xfeff})
        AddNames(true, {QStringLiteral("a%1b").arg(QChar(character)), QString(QChar(character))});
    AddNames(true, {QStringLiteral("a") + QChar(0xd800), QChar(0xdc00) + QStringLiteral("b")});
    // A tag, which is a formatting character; a musical mark.
    AddNames(true, {Around(0xe0001), Around(0x1d173)});

    AddNames(false, {QString(), QStringLiteral("a b"), QStringLiteral("客户端-2.1.3.zip"),
                     QStringLiteral("عميل"), QStringLiteral("café"), QStringLiteral("cafe\u0301"),
                     QStringLiteral("a\u00a0b"), Around(0x20000), Around(0x1f600)});
}

void TestWindowsNames::invisibleCharacters()
{
    QFETCH(QString, name);
    QTEST(WindowsNames::HasInvisibleCharacter(name), "expected");
}

void TestWindowsNames::endsAreKeptAsWindowsDoes_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("kept");
    const auto add = [](const char *name, const char *kept) {
        QTest::newRow(qPrintable(QStringLiteral("[%1]").arg(QString::fromUtf8(name))))
            << QString::fromUtf8(name) << QString::fromUtf8(kept);
    };
    add("a.txt", "a.txt");
    add("a.txt.", "a.txt");
    add("a.txt ", "a.txt");
    add("a.txt. . ..", "a.txt");
    add(" .a", " .a");
    add("a. b", "a. b");
    add("客户端。", "客户端。");
    add("客户端. ", "客户端");
    add("a\t", "a\t");
    add(".", "");
    add("..", "");
    add(" ", "");
    add("", "");
}

void TestWindowsNames::endsAreKeptAsWindowsDoes()
{
    QFETCH(QString, name);
    QTEST(WindowsNames::AsKept(name), "kept");
}

void TestWindowsNames::programsOfTheCommandInterpreter_data()
{
    AddColumns();
    for (const QString &suffix : {QStringLiteral(".bat"), QStringLiteral(".cmd"),
                                  QStringLiteral(".BAT"), QStringLiteral(".Cmd")}) {
        AddNames(true, {suffix, QStringLiteral("a") + suffix, QStringLiteral("a.exe") + suffix,
                        QStringLiteral("客户端") + suffix, QStringLiteral("a%1.").arg(suffix),
                        QStringLiteral("a%1 ").arg(suffix), QStringLiteral("a%1. .").arg(suffix)});
        AddNames(false, {QStringLiteral("a%1.exe").arg(suffix), QStringLiteral("a%1x").arg(suffix),
                         QLatin1Char('a') + suffix.mid(1), QStringLiteral("a.x") + suffix.mid(1)});
    }
    AddNames(false, {QString(), QStringLiteral("a.exe"), QStringLiteral("a.zip"),
                     QStringLiteral("a.com"), QStringLiteral("a.ba t")});
}

void TestWindowsNames::programsOfTheCommandInterpreter()
{
    QFETCH(QString, name);
    QTEST(WindowsNames::RunsInCommandInterpreter(name), "expected");
}

QTEST_GUILESS_MAIN(TestWindowsNames)
#include "tst_windowsnames.moc"
