// SPDX-License-Identifier: MIT
#include "release/publish/rules/releaserules.h"

#include <QTest>

#include <algorithm>

using ReleaseRules::Entry;

namespace
{

/// The broken rules in alphabetical order. Verifies that every line says how to fix it.
QStringList Broken(const Findings &findings)
{
    QStringList rules;
    for (const Finding &finding : findings) {
        if (!finding.message.contains(QLatin1String("; ")) ||
            finding.message.contains(QLatin1Char('\n')))
            qFatal("not one line with advice: %s", qPrintable(finding.message));
        rules.append(finding.rule);
    }
    rules.sort();
    rules.removeDuplicates();
    return rules;
}

QStringList Words(const char *text)
{
    return QString::fromLatin1(text).split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

void AddTextColumns()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("broken");
}

/// Adds a row of @p text, which breaks the rules in @p broken, separated by blanks.
void AddText(const char *row, const QString &text, const char *broken = "")
{
    QTest::newRow(row) << text << Words(broken);
}

Entry File(const QString &path, qint64 size = 1)
{
    return {path, false, size};
}

Entry Folder(const QString &path)
{
    return {path, true, 0};
}

void AddEntries(const char *row, const QVector<Entry> &entries, const char *broken = "")
{
    QTest::newRow(row) << entries << Words(broken);
}

void AddNames(const char *broken, const QStringList &names)
{
    for (const QString &name : names) {
        AddEntries(qPrintable(QStringLiteral("file %1").arg(name)), {File(name)}, broken);
        AddEntries(qPrintable(QStringLiteral("folder %1").arg(name)), {Folder(name)}, broken);
        AddEntries(qPrintable(QStringLiteral("deep %1").arg(name)),
                   {Folder(QStringLiteral("d")), File(QStringLiteral("d/") + name)}, broken);
    }
}

QVector<Entry> ManyFiles(int count)
{
    QVector<Entry> entries;
    for (int number = 0; number < count; ++number)
        entries.append(File(QString::number(number)));
    return entries;
}

const QString top = QStringLiteral("Client-2.1.3");

/// A path of @p length characters in the package.
QString PathOfLength(int length)
{
    return QString(length - top.size() - 1, QLatin1Char('x'));
}

} // namespace

Q_DECLARE_METATYPE(QVector<Entry>)

class TestReleaseRules : public QObject
{
    Q_OBJECT

private slots:
    void packageIsCalledByNameAndVersion();
    void topFolderIsTheNameUpToTheFirstZip_data();
    void topFolderIsTheNameUpToTheFirstZip();
    void versions_data();
    void versions();
    void versionsInNames_data();
    void versionsInNames();
    void versionLengths_data();
    void versionLengths();
    void notes_data();
    void notes();
    void urlPrefixes_data();
    void urlPrefixes();
    void zipNames_data();
    void zipNames();
    void installerNames_data();
    void installerNames();
    void nameThatTheUpdaterRefusesIsToldSo();
    void packageSizes_data();
    void packageSizes();
    void entries_data();
    void entries();
    void findingNamesThePath();
    void findingNamesTheCharacter();
    void controlCharactersDoNotReachTheLine();
    void updatersFolderIsFound_data();
    void updatersFolderIsFound();
    void olderVersionsAreWarnedOf_data();
    void olderVersionsAreWarnedOf();
    void longPathsAreWarnedOfOnce();
    void notesThatLoseTheirMarkupAreWarnedOf_data();
    void notesThatLoseTheirMarkupAreWarnedOf();
};

void TestReleaseRules::packageIsCalledByNameAndVersion()
{
    QCOMPARE(ReleaseRules::PackageFileName(QStringLiteral("Client"), QStringLiteral("2.1.3"),
                                           ReleaseRules::ZipSuffix),
             QStringLiteral("Client-2.1.3.zip"));
}

void TestReleaseRules::topFolderIsTheNameUpToTheFirstZip_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("folder");
    QTest::newRow("plain") << "Client-2.1.3.zip"
                           << "Client-2.1.3";
    QTest::newRow("twice") << "Client.zip-2.zip"
                           << "Client";
    QTest::newRow("other case stays") << "Client.ZIP-2.zip"
                                      << "Client.ZIP-2";
}

void TestReleaseRules::topFolderIsTheNameUpToTheFirstZip()
{
    QFETCH(QString, name);
    QTEST(ReleaseRules::TopFolder(name), "folder");
}

void TestReleaseRules::versions_data()
{
    AddTextColumns();
    AddText("numbers", QStringLiteral("2.1.3"));
    AddText("one number", QStringLiteral("7"));
    AddText("with a word", QStringLiteral("2.1.3-beta_1+4711"));
    AddText("longest", QString(64, QLatin1Char('1')));
    AddText("too long", QString(65, QLatin1Char('1')), "version");
    AddText("empty", QString(), "version");
    AddText("blank before", QStringLiteral(" 2.1.3"), "version");
    AddText("line end", QStringLiteral("2.1.3\n"), "version");
    AddText("slash", QStringLiteral("2/1"), "version");
    AddText("parent folder", QStringLiteral(".."), "version");
    AddText("not ASCII", QStringLiteral("２.1"), "version");
    AddText("no offer in the log", QStringLiteral("none"), "version");
    AddText("no offer in capitals", QStringLiteral("None"), "version");
    AddText("begins like no offer", QStringLiteral("none-1"));
}

void TestReleaseRules::versions()
{
    QFETCH(QString, text);
    QTEST(Broken(ReleaseRules::CheckVersion(text)), "broken");
}

void TestReleaseRules::versionsInNames_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("likeName");
    QTest::addColumn<QString>("likeVersion");
    QTest::addColumn<QString>("version");
    const auto add = [](const char *row, const char *name, const char *likeName,
                        const char *likeVersion, const char *version) {
        QTest::newRow(row) << name << likeName << likeVersion << version;
    };
    const char *const client = "Client-3.0.0.zip";
    add("same name", "Client-2.10.10.zip", client, "3.0.0", "2.10.10");
    add("same name with a number in it", "Client-64bit-2.10.10.zip", "Client-64bit-3.0.0.zip",
        "3.0.0", "2.10.10");
    add("word in the version", "Client-2.1.3-beta_1+4711.zip", client, "3.0.0",
        "2.1.3-beta_1+4711");
    add("versions that begin with a letter", "Client-r2022.zip", "Client-r3.zip", "r3", "r2022");
    add("installer without a dash", "Setup_2.10.10.exe", "Setup_3.0.0.exe", "3.0.0", "2.10.10");
    add("installer in capitals", "SETUP-2.10.10.EXE", client, "3.0.0", "2.10.10");
    add("another name", "NorvaneSetup-2.10.10.exe", client, "3.0.0", "2.10.10");
    add("another name that begins alike", "Client-Setup-2.10.10.exe", client, "3.0.0", "2.10.10");
    add("number before the dash", "Client64-x-2.10.10.zip", client, "3.0.0", "2.10.10");
    add("like an installer without a version", "Client-2.10.10.zip", "Setup.exe", "3.0.0",
        "2.10.10");
    add("no version to be like", "Client-2.10.10.zip", "Client-.zip", "", "2.10.10");
    add("no version", "Setup.exe", client, "3.0.0", "");
    add("nothing after the dash", "Client-.zip", client, "3.0.0", "");
    add("not a version", "Client-2.1.3 (1).zip", client, "3.0.0", "");
    add("no package", "Client-2.10.10.zip.part", client, "3.0.0", "");
}

void TestReleaseRules::versionsInNames()
{
    QFETCH(QString, name);
    QFETCH(QString, likeName);
    QFETCH(QString, likeVersion);
    QTEST(ReleaseRules::VersionInName(name, likeName, likeVersion), "version");
}

void TestReleaseRules::versionLengths_data()
{
    QTest::addColumn<QString>("version");
    QTest::addColumn<QString>("published");
    QTest::addColumn<QString>("suggestion"); // empty when the version is long enough
    const auto add = [](const char *row, const QString &version, const QString &published,
                        const QString &suggestion = QString()) {
        QTest::newRow(row) << version << published << suggestion;
    };
    const QString longest(ReleaseRules::MaxVersionLength, QLatin1Char('1'));
    add("first release", QStringLiteral("1"), QString());
    add("longer", QStringLiteral("2.10.10"), QStringLiteral("2.9.9"));
    add("as long", QStringLiteral("3.0.0"), QStringLiteral("2.9.9"));
    add("one shorter", QStringLiteral("3.0.10"), QStringLiteral("2.10.10"));
    add("two shorter", QStringLiteral("3.0.0"), QStringLiteral("2.10.10"),
        QStringLiteral("3.0.0.0"));
    add("three shorter", QStringLiteral("3.1"), QStringLiteral("2.10.1"), QStringLiteral("3.1.0"));
    add("four shorter", QStringLiteral("3.0"), QStringLiteral("2.10.10"),
        QStringLiteral("3.0.0.0"));
    add("as the last one, shorter than an earlier one", QStringLiteral("2.9.8"),
        QStringLiteral("2.9.9 2.10.10 2.9.7"), QStringLiteral("2.9.8.0"));
    add("one shorter at each step", QStringLiteral("4.0.0"), QStringLiteral("2.10.10 3.0.10"),
        QStringLiteral("4.0.0.0"));
    add("after a test version", QStringLiteral("2.1.3"), QStringLiteral("2.1.3-beta.1"),
        QStringLiteral("2.1.3.0.0.0"));
    add("after the longest there can be", QStringLiteral("1"), longest,
        QStringLiteral("1") + QStringLiteral(".0").repeated(31));
}

void TestReleaseRules::versionLengths()
{
    QFETCH(QString, version);
    QFETCH(QString, published);
    QFETCH(QString, suggestion);
    const QStringList versions = published.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    const Findings findings = ReleaseRules::CheckVersionLength(version, versions);
    if (suggestion.isEmpty()) {
        QCOMPARE(Broken(findings), QStringList());
        return;
    }
    QCOMPARE(Broken(findings), Words("shorter-version"));
    const QString wanted =
        QStringLiteral("such as %1, or pass --allow-shorter-version").arg(suggestion);
    const QString &message = findings.first().message;
    QVERIFY2(message.endsWith(wanted), qPrintable(message));
    // The suggested version is accepted.
    QCOMPARE(Broken(ReleaseRules::CheckVersionLength(suggestion, versions)), QStringList());
    QCOMPARE(Broken(ReleaseRules::CheckVersion(suggestion)), QStringList());
}

void TestReleaseRules::notes_data()
{
    AddTextColumns();
    AddText("plain", QStringLiteral("new things\nand more"));
    AddText("rich", QStringLiteral("<b>新</b><br>功能"));
    AddText("empty", QString(), "notes");
    AddText("blank", QStringLiteral(" \n\t "), "notes");
    AddText("separator", QStringLiteral("this & that"), "notes");
    AddText("character by name", QStringLiteral("this&nbsp;that"), "notes");
    AddText("not UTF-8", QString::fromUtf8("caf\xe9 new"), "notes");
    AddText("zero byte", QString(QChar::Null) + QStringLiteral("new"), "notes");
}

void TestReleaseRules::notes()
{
    QFETCH(QString, text);
    const Findings findings = ReleaseRules::CheckNotes(text, QStringLiteral("Chinese"));
    for (const Finding &finding : findings)
        QVERIFY2(finding.message.contains(QLatin1String("the Chinese notes")),
                 qPrintable(finding.message));
    QTEST(Broken(findings), "broken");
}

void TestReleaseRules::urlPrefixes_data()
{
    AddTextColumns();
    AddText("none", QString());
    AddText("host", QStringLiteral("https://updates.example.com"));
    AddText("port and path", QStringLiteral("http://127.0.0.1:8080/a/b~c/"));
    AddText("no scheme", QStringLiteral("updates.example.com"), "url-prefix");
    AddText("query", QStringLiteral("https://updates.example.com/?a=b"), "url-prefix");
    AddText("fragment", QStringLiteral("https://updates.example.com/#x"), "url-prefix");
    AddText("blank", QStringLiteral("https://updates.example.com/a b"), "url-prefix");
}

void TestReleaseRules::urlPrefixes()
{
    QFETCH(QString, text);
    QTEST(Broken(ReleaseRules::CheckUrlPrefix(text)), "broken");
}

void TestReleaseRules::zipNames_data()
{
    AddTextColumns();
    AddText("plain", QStringLiteral("Client-2.1.3.zip"));
    AddText("blank inside", QStringLiteral("My Client-2.1.3.zip"));
    AddText("other case inside", QStringLiteral("Client.ZIP-2.zip"));
    AddText("not ASCII", QStringLiteral("客户端-2.zip"), "name-ascii");
    AddText("query mark", QStringLiteral("Client-2?.zip"), "name-windows package-name");
    AddText("fragment mark", QStringLiteral("Client#-2.zip"), "package-name");
    AddText("escape mark", QStringLiteral("Client%41-2.zip"), "package-name");
    AddText("zip earlier", QStringLiteral("Client.zip-2.zip"), "package-name");
    AddText("zip twice at the end", QStringLiteral("Client-2.zip.zip"), "package-name");
    AddText("no zip", QStringLiteral("Client-2.tar"), "package-name");
    AddText("upper-case zip", QStringLiteral("Client-2.ZIP"), "package-name");
    AddText("nothing but zip", QStringLiteral(".zip"), "package-name");
    AddText("leading dot", QStringLiteral(".Client-2.zip"), "package-name");
    AddText("folder with a trailing dot", QStringLiteral("Client-2..zip"), "package-name");
    AddText("folder with a trailing blank", QStringLiteral("Client-2 .zip"), "package-name");
    AddText("device", QStringLiteral("NUL.2.zip"), "name-windows");
    AddText("sub-folder", QStringLiteral("a/Client-2.zip"), "name-windows");
    AddText("parent", QStringLiteral("../Client-2.zip"), "name-windows package-name");
    AddText("drive", QStringLiteral("C:Client-2.zip"), "name-windows");
    AddText("too long", QString(240, QLatin1Char('x')) + QStringLiteral(".zip"), "name-length");
    AddText("turned around", QStringLiteral("Client-\u202Epiz.zip"), "name-ascii name-windows");
    AddText("delete character", QStringLiteral("Client\u007F-2.zip"), "name-windows");
}

void TestReleaseRules::zipNames()
{
    QFETCH(QString, text);
    QTEST(Broken(ReleaseRules::CheckZipName(text)), "broken");
}

void TestReleaseRules::installerNames_data()
{
    AddTextColumns();
    AddText("plain", QStringLiteral("Setup-2.1.3.exe"));
    AddText("upper-case", QStringLiteral("SETUP.EXE"));
    AddText("zip in the name", QStringLiteral("Setup.zip.exe"));
    AddText("no program", QStringLiteral("Setup.msi"), "package-name");
    AddText("not ASCII", QStringLiteral("安装.exe"), "name-ascii");
    AddText("query mark", QStringLiteral("Setup?.exe"), "name-windows package-name");
    AddText("fragment mark", QStringLiteral("Setup#2.exe"), "package-name");
    AddText("device", QStringLiteral("aux.exe"), "name-windows");
    AddText("device of number 0", QStringLiteral("COM0.exe"), "name-windows");
    AddText("turned around", QStringLiteral("Setup\u202Ecod.exe"), "name-ascii name-windows");
    AddText("for the command interpreter", QStringLiteral("Setup.cmd"), "package-name");
}

void TestReleaseRules::installerNames()
{
    QFETCH(QString, text);
    QTEST(Broken(ReleaseRules::CheckInstallerName(text)), "broken");
}

void TestReleaseRules::nameThatTheUpdaterRefusesIsToldSo()
{
    const QString end =
        QStringLiteral("is refused by the updater; publish a .zip package or an .exe installer");
    for (const char *name : {"Setup.bat", "Setup-2.1.3.CMD"}) {
        const QString message =
            ReleaseRules::CheckInstallerName(QLatin1String(name)).first().message;
        QCOMPARE(message,
                 QStringLiteral("the package's name \"%1\" %2").arg(QLatin1String(name), end));
    }
}

void TestReleaseRules::packageSizes_data()
{
    QTest::addColumn<qint64>("size");
    QTest::addColumn<QStringList>("broken");
    QTest::newRow("nothing") << qint64(0) << Words("package-size");
    QTest::newRow("one byte") << qint64(1) << Words("");
    QTest::newRow("2 GiB less one") << qint64(0x7fffffff) << Words("");
    QTest::newRow("2 GiB") << qint64(0x80000000) << Words("package-size");
    QTest::newRow("4 GiB") << qint64(0x100000000) << Words("package-size");
}

void TestReleaseRules::packageSizes()
{
    QFETCH(qint64, size);
    QTEST(Broken(ReleaseRules::CheckPackageSize(size)), "broken");
}

void TestReleaseRules::entries_data()
{
    QTest::addColumn<QVector<Entry>>("entries");
    QTest::addColumn<QStringList>("broken");

    AddEntries("none", {}, "empty");
    AddEntries("folder before its file",
               {Folder(QStringLiteral("d")), File(QStringLiteral("d/f"))});
    AddEntries("file before its folder", {File(QStringLiteral("d/f")), Folder(QStringLiteral("d"))},
               "folder-order");
    AddEntries("file without its folder", {File(QStringLiteral("d/f"))}, "folder-order");
    AddEntries("folder without its folder", {Folder(QStringLiteral("d/e"))}, "folder-order");
    AddEntries("file in a file", {File(QStringLiteral("d")), File(QStringLiteral("d/f"))},
               "folder-order");
    AddEntries("double slash", {Folder(QStringLiteral("d")), File(QStringLiteral("d//f"))},
               "folder-order");

    // With the top folder this is one entry too many.
    AddEntries("65535 entries", ManyFiles(65534));
    AddEntries("65536 entries", ManyFiles(65535), "too-many-entries");

    AddEntries("240 characters", {File(PathOfLength(240))});
    AddEntries("241 characters", {File(PathOfLength(241))}, "name-length");
    AddEntries("2 GiB less one", {File(QStringLiteral("f"), 0x7fffffff)});
    AddEntries("2 GiB", {File(QStringLiteral("f"), 0x80000000)}, "file-size");

    AddEntries("files by case", {File(QStringLiteral("Read")), File(QStringLiteral("read"))},
               "case-twin");
    AddEntries("folders by case", {Folder(QStringLiteral("D")), Folder(QStringLiteral("d"))},
               "case-twin");
    AddEntries("file and folder by case", {File(QStringLiteral("D")), Folder(QStringLiteral("d"))},
               "case-twin");
    AddEntries("the same name twice", {File(QStringLiteral("f")), File(QStringLiteral("f"))},
               "case-twin");
    AddEntries(
        "the same name in two folders",
        {Folder(QStringLiteral("d")), File(QStringLiteral("d/f")), File(QStringLiteral("f"))});

    AddNames("", {QStringLiteral("a b"), QStringLiteral(".hidden"), QStringLiteral("a&b;c=d+e,f'g"),
                  QStringLiteral("x#y%20"), QStringLiteral("console"), QStringLiteral("com10"),
                  QStringLiteral("com"), QStringLiteral("x.con"), QStringLiteral("nul-1"),
                  QStringLiteral("start.bat"), QStringLiteral("start.cmd")});
    AddNames("name-ascii", {QStringLiteral("中文.txt"), QStringLiteral("café"),
                            QString(QChar::ReplacementCharacter)});
    AddNames("name-windows",
             {QStringLiteral("a:b"),        QStringLiteral("a?"),       QStringLiteral("*"),
              QStringLiteral("<"),          QStringLiteral(">"),        QStringLiteral("\"a\""),
              QStringLiteral("a|b"),        QStringLiteral("a\\b"),     QStringLiteral("a\tb"),
              QStringLiteral("dot."),       QStringLiteral("blank "),   QStringLiteral(".."),
              QStringLiteral("con"),        QStringLiteral("CON"),      QStringLiteral("Aux.txt"),
              QStringLiteral("nul.tar.gz"), QStringLiteral("prn .txt"), QStringLiteral("COM1"),
              QStringLiteral("lpt9.log"),   QStringLiteral("conin$"),   QStringLiteral("CONOUT$"),
              QStringLiteral("com0"),       QStringLiteral("LPT0.txt"), QStringLiteral("a\u007F")});
    AddNames("name-ascii name-windows",
             {QStringLiteral("COM¹"), QStringLiteral("lpt³.log"), QStringLiteral("a\u200Bb"),
              QStringLiteral("txt\u202Eexe")});
}

void TestReleaseRules::entries()
{
    QFETCH(QVector<Entry>, entries);
    QTEST(Broken(ReleaseRules::CheckEntries(top, entries)), "broken");
}

void TestReleaseRules::findingNamesThePath()
{
    const Findings findings = ReleaseRules::CheckEntries(
        top, {Folder(QStringLiteral("d")), File(QStringLiteral("d/nul.txt"))});
    QCOMPARE(findings.size(), 1);
    QCOMPARE(findings.first().path, QStringLiteral("d/nul.txt"));
    QCOMPARE(findings.first().message,
             QStringLiteral("d/nul.txt: the name is a device name on Windows; rename it"));
}

void TestReleaseRules::findingNamesTheCharacter()
{
    const Findings findings = ReleaseRules::CheckEntries(top, {File(QStringLiteral("a|b"))});
    QCOMPARE(findings.size(), 1);
    QCOMPARE(findings.first().message,
             QStringLiteral("a|b: the name contains \"|\", which Windows does not allow in file "
                            "names; rename it"));
}

void TestReleaseRules::controlCharactersDoNotReachTheLine()
{
    const Findings findings =
        ReleaseRules::CheckEntries(top, {File(QStringLiteral("a\n\x1b[31mb"))});
    QCOMPARE(findings.size(), 1);
    const QString &line = findings.first().message;
    QVERIFY2(std::all_of(line.cbegin(), line.cend(), [](QChar c) { return c.isPrint(); }),
             qPrintable(line));
}

void TestReleaseRules::updatersFolderIsFound_data()
{
    QTest::addColumn<QVector<Entry>>("entries");
    QTest::addColumn<QString>("folder");
    QTest::addColumn<QStringList>("broken");
    const QVector<Entry> entries{Folder(QStringLiteral("AutoUpdate")),
                                 File(QStringLiteral("AutoUpdate/x")), Folder(QStringLiteral("d")),
                                 Folder(QStringLiteral("d/Up"))};
    QTest::newRow("as named") << entries << "AutoUpdate" << Words("updater-folder");
    QTest::newRow("in another case") << entries << "autoupdate" << Words("updater-folder");
    QTest::newRow("another one") << entries << "Up" << QStringList();
    QTest::newRow("with a slash") << entries << "d/Up/" << Words("updater-folder");
    QTest::newRow("with a backslash") << entries << "d\\Up\\" << Words("updater-folder");
    QTest::newRow("its program in another folder")
        << QVector<Entry>{Folder(QStringLiteral("d")), File(QStringLiteral("d/autoupdate.EXE"))}
        << "Up" << Words("updater-folder");
    QTest::newRow("its program in no folder")
        << QVector<Entry>{File(QStringLiteral("AutoUpdate.exe")),
                          File(QStringLiteral("updateconfig.json"))}
        << "Up" << Words("updater-folder");
    QTest::newRow("a program of a similar name")
        << QVector<Entry>{File(QStringLiteral("AutoUpdate.exe.config"))} << "Up" << QStringList();
}

void TestReleaseRules::updatersFolderIsFound()
{
    QFETCH(QVector<Entry>, entries);
    QFETCH(QString, folder);
    QTEST(Broken(ReleaseRules::CheckUpdaterFolder(entries, folder)), "broken");
}

void TestReleaseRules::olderVersionsAreWarnedOf_data()
{
    QTest::addColumn<QString>("version");
    QTest::addColumn<QStringList>("published");
    QTest::addColumn<QString>("newest");
    QTest::newRow("first") << "2.1.3" << QStringList() << QString();
    QTest::newRow("newer") << "2.10" << Words("2.9 2.1.3") << QString();
    QTest::newRow("older") << "2.9" << Words("2.1.3 2.10 2.9.1") << "2.10";
    QTest::newRow("the same") << "2.1.3" << Words("2.1.3 2.1.3.0") << QString();
    QTest::newRow("longer and older") << "2.1.3.0" << Words("2.2") << "2.2";
    QTest::newRow("not numbers") << "alpha" << Words("2.2") << QString();
    QTest::newRow("nor are those before") << "2.2" << (Words("beta") << QString()) << QString();
}

void TestReleaseRules::olderVersionsAreWarnedOf()
{
    QFETCH(QString, version);
    QFETCH(QStringList, published);
    QFETCH(QString, newest);
    const Findings found = ReleaseRules::WarnOfOlderVersion(version, published);
    QCOMPARE(Broken(found), newest.isEmpty() ? QStringList() : Words("older-version"));
    if (!newest.isEmpty()) {
        const QString line = QStringLiteral("the version %1 is older than %2,");
        QVERIFY2(found.first().message.startsWith(line.arg(version, newest)),
                 qPrintable(found.first().message));
    }
}

void TestReleaseRules::longPathsAreWarnedOfOnce()
{
    const auto warnings = [](const QVector<Entry> &entries) {
        return ReleaseRules::WarnOfEntries(top, entries);
    };
    QVERIFY(warnings({File(PathOfLength(190))}).isEmpty());
    const Findings found =
        warnings({File(PathOfLength(190)), File(PathOfLength(191)), File(PathOfLength(240))});
    QCOMPARE(found.size(), 1);
    QVERIFY2(found.first().message.startsWith(QLatin1String("2 paths ")),
             qPrintable(found.first().message));
}

void TestReleaseRules::notesThatLoseTheirMarkupAreWarnedOf_data()
{
    AddTextColumns();
    AddText("plain", QStringLiteral("new: a < b"));
    AddText("rich", QStringLiteral("<b>new</b>"));
    AddText("tables in tables", QStringLiteral("<table><tr><td>").repeated(5));
    AddText("many tables in tables", QStringLiteral("<table><tr><td>").repeated(30), "notes-plain");
    AddText("too long", QStringLiteral("<b>") + QString(17 * 1024, QLatin1Char('x')),
            "notes-plain");
    AddText("long and rich", QStringLiteral("<b>") + QStringLiteral("word ").repeated(4000));
    AddText("long and plain", QString(17 * 1024, QLatin1Char('x')));
}

void TestReleaseRules::notesThatLoseTheirMarkupAreWarnedOf()
{
    QFETCH(QString, text);
    QTEST(Broken(ReleaseRules::WarnOfNotes(text, QStringLiteral("English"))), "broken");
}

QTEST_GUILESS_MAIN(TestReleaseRules)
#include "tst_releaserules.moc"
