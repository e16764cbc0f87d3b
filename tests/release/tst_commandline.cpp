#include "release/publish/commandline.h"

#include <QTest>

namespace
{

QStringList Words(const char *text)
{
    return QString::fromLatin1(text).split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

const char *const wholeZip = "zip --client c --name Client --version 2 --update forced "
                             "--notes-zh zh --notes-en en --out site";

} // namespace

class TestCommandLine : public QObject
{
    Q_OBJECT

private slots:
    void zip();
    void shorterVersionsAreAllowedOnRequest();
    void excludedIsWhatIsGivenAndTheUsual();
    void versionOfTheToolIsNoRequest();
    void wrongOnesKnowThatJsonIsWanted();
    void updaterIsAllowedOnRequest();
    void installer();
    void verify();
    void wrongOnes_data();
    void wrongOnes();
    void everyCommandHasHelpWithAnExample_data();
    void everyCommandHasHelpWithAnExample();
    void examplesAreRight();
};

void TestCommandLine::zip()
{
    const CommandLine line = ReadCommandLine(
        Words(wholeZip) + Words("--url-prefix https://x --updater-folder Up --json"));
    QCOMPARE(line.error, QString());
    QCOMPARE(line.help, QString());
    QCOMPARE(line.request.command, Request::Zip);
    QCOMPARE(line.request.source, QStringLiteral("c"));
    QCOMPARE(line.request.name, QStringLiteral("Client"));
    QCOMPARE(line.request.version, QStringLiteral("2"));
    QVERIFY(line.request.forced);
    QCOMPARE(line.request.notesZhFile, QStringLiteral("zh"));
    QCOMPARE(line.request.notesEnFile, QStringLiteral("en"));
    QCOMPARE(line.request.out, QStringLiteral("site"));
    QCOMPARE(line.request.urlPrefix, QStringLiteral("https://x"));
    QCOMPARE(line.request.updaterFolder, QStringLiteral("Up"));
    QVERIFY(line.request.asJson);
    QVERIFY(!line.request.allowShorterVersion);
    QVERIFY(!line.request.allowUpdater);
}

void TestCommandLine::excludedIsWhatIsGivenAndTheUsual()
{
    const QStringList usual = ReadCommandLine(Words(wholeZip)).request.exclude;
    QVERIFY(usual.contains(QStringLiteral(".git")));
    const QStringList given = Words("--exclude *.pdb --exclude=doc/*");
    CommandLine line = ReadCommandLine(Words(wholeZip) + given);
    QCOMPARE(line.error, QString());
    QCOMPARE(line.request.exclude, usual + Words("*.pdb doc/*"));
    line = ReadCommandLine(Words(wholeZip) + given + Words("--no-default-excludes"));
    QCOMPARE(line.request.exclude, Words("*.pdb doc/*"));
}

void TestCommandLine::versionOfTheToolIsNoRequest()
{
    const CommandLine line = ReadCommandLine(Words("--version"));
    QCOMPARE(line.error, QString());
    QVERIFY(line.asksForVersion);
    QVERIFY(!ReadCommandLine(Words(wholeZip)).asksForVersion);
}

void TestCommandLine::wrongOnesKnowThatJsonIsWanted()
{
    for (const char *wrong : {"--json", "tar --json", "zip --json --colour", "verify --json"}) {
        const CommandLine line = ReadCommandLine(Words(wrong));
        QVERIFY(!line.error.isEmpty());
        QVERIFY2(line.asJson, wrong);
    }
    QVERIFY(!ReadCommandLine(Words("tar")).asJson);
}

void TestCommandLine::updaterIsAllowedOnRequest()
{
    for (const QStringList &command : {Words(wholeZip), Words("verify site")}) {
        QVERIFY(!ReadCommandLine(command).request.allowUpdater);
        const CommandLine line = ReadCommandLine(command + Words("--allow-updater"));
        QCOMPARE(line.error, QString());
        QVERIFY(line.request.allowUpdater);
    }
}

void TestCommandLine::shorterVersionsAreAllowedOnRequest()
{
    for (const char *command :
         {wholeZip, "installer --file s.exe --version 2 --update optional --notes-zh zh "
                    "--notes-en en --out o"}) {
        QVERIFY(!ReadCommandLine(Words(command)).request.allowShorterVersion);
        const CommandLine line = ReadCommandLine(Words(command) + Words("--allow-shorter-version"));
        QCOMPARE(line.error, QString());
        QVERIFY(line.request.allowShorterVersion);
    }
}

void TestCommandLine::installer()
{
    const CommandLine line =
        ReadCommandLine(Words("installer --file s.exe --version=2 --update=optional --notes-zh zh "
                              "--notes-en en --out o"));
    QCOMPARE(line.error, QString());
    QCOMPARE(line.request.command, Request::Installer);
    QCOMPARE(line.request.source, QStringLiteral("s.exe"));
    QCOMPARE(line.request.name, QString());
    QVERIFY(!line.request.forced);
    QVERIFY(!line.request.asJson);
}

void TestCommandLine::verify()
{
    const CommandLine line = ReadCommandLine(Words("verify --json site"));
    QCOMPARE(line.error, QString());
    QCOMPARE(line.request.command, Request::Verify);
    QCOMPARE(line.request.source, QStringLiteral("site"));
    QCOMPARE(line.request.updaterFolder, QStringLiteral("AutoUpdate"));
    QVERIFY(line.request.asJson);
}

void TestCommandLine::wrongOnes_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("error");

    QTest::newRow("nothing") << QStringList() << "no command is given; see publish --help";
    QTest::newRow("unknown command") << Words("tar") << "\"tar\" is no command; see publish --help";
    QTest::newRow("unknown option")
        << Words(wholeZip) + Words("--colour") << "Unknown option 'colour'; see publish zip --help";
    QTest::newRow("value missing") << Words("verify --updater-folder")
                                   << "Missing value after '--updater-folder'; see publish verify "
                                      "--help";
    QTest::newRow("given twice") << Words(wholeZip) + Words("--version 3")
                                 << "--version is given twice; see publish zip --help";
    QTest::newRow("one too many") << Words(wholeZip) + Words("more")
                                  << "\"more\" is one too many; see publish zip --help";
    for (const char *pattern : {"", "/a", "[a"}) {
        QTest::newRow(qPrintable(QStringLiteral("pattern \"%1\"").arg(QLatin1String(pattern))))
            << Words(wholeZip) + QStringList{QStringLiteral("--exclude"), QLatin1String(pattern)}
            << QStringLiteral("\"%1\" is no pattern of names").arg(QLatin1String(pattern));
    }
    QTest::newRow("folder missing")
        << Words("verify") << "DIR is missing; see publish verify --help";
    QTest::newRow("nothing is published")
        << Words("verify --allow-shorter-version site")
        << "Unknown option 'allow-shorter-version'; see publish verify --help";
    QTest::newRow("neither optional nor forced")
        << Words(
               "zip --client c --name C --version 2 --update now --notes-zh z --notes-en e --out o")
        << "--update is neither optional nor forced; see publish zip --help";

    for (const char *option :
         {"client", "name", "version", "update", "notes-zh", "notes-en", "out"}) {
        const QString name = QStringLiteral("--") + QLatin1String(option);
        QStringList without = Words(wholeZip);
        const int index = without.indexOf(name);
        without.removeAt(index);
        without.removeAt(index);
        QTest::newRow(qPrintable(name + QStringLiteral(" missing"))) << without << name;
        QStringList empty = Words(wholeZip);
        empty[index + 1].clear();
        QTest::newRow(qPrintable(name + QStringLiteral(" empty"))) << empty << name;
    }
}

void TestCommandLine::wrongOnes()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, error);
    const CommandLine line = ReadCommandLine(arguments);
    QVERIFY2(line.error.startsWith(error), qPrintable(line.error));
    QVERIFY2(line.error.contains(QLatin1String("; see publish ")), qPrintable(line.error));
    QCOMPARE(line.help, QString());
}

void TestCommandLine::everyCommandHasHelpWithAnExample_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("example");
    QTest::newRow("all") << Words("--help") << "publish verify site";
    QTest::newRow("zip") << Words("zip --help") << "publish zip --client ";
    QTest::newRow("installer") << Words("installer --help") << "publish installer --file ";
    QTest::newRow("verify") << Words("verify --help") << "publish verify site";
    QTest::newRow("besides others") << Words(wholeZip) + Words("--help") << "publish zip --client ";
}

void TestCommandLine::everyCommandHasHelpWithAnExample()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, example);
    const CommandLine line = ReadCommandLine(arguments);
    QCOMPARE(line.error, QString());
    QVERIFY2(line.help.contains(example), qPrintable(line.help));
    QVERIFY2(line.help.contains(QLatin1String("Exit codes: 0 ")), qPrintable(line.help));
}

void TestCommandLine::examplesAreRight()
{
    for (const char *command : {"zip", "installer", "verify"}) {
        const QString help =
            ReadCommandLine({QLatin1String(command), QStringLiteral("--help")}).help;
        QString example = help.section(QStringLiteral("Example:\n  publish "), 1)
                              .section(QStringLiteral("\n\n"), 0, 0);
        example.remove(QStringLiteral("\\\n"));
        const CommandLine line =
            ReadCommandLine(example.split(QLatin1Char(' '), Qt::SkipEmptyParts));
        QCOMPARE(line.error, QString());
        QVERIFY2(!line.request.source.isEmpty(), qPrintable(example));
    }
}

QTEST_GUILESS_MAIN(TestCommandLine)
#include "tst_commandline.moc"
