// SPDX-License-Identifier: MIT
#include "release/publish/commandline/commandline.h"
#include "release/publish/tree/releaselist.h"

#include <QTest>

namespace
{

QStringList Words(const char *text)
{
    return QString::fromLatin1(text).split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

const char *const wholeZip = "zip --client c --name Client --version 2 --update forced "
                             "--notes-zh zh --notes-en en --out site";
const char *const wholeInstaller = "installer --file s.exe --version 2 --update optional "
                                   "--notes-zh zh --notes-en en --out o";

/// The width of help in characters, so that it fits into a usual terminal.
constexpr int kWidestHelp = 120;

} // namespace

class TestCommandLine : public QObject
{
    Q_OBJECT

private slots:
    void zip();
    void signaturesAreRequiredOnRequest();
    void shorterVersionsAreAllowedOnRequest();
    void excludedIsWhatIsGivenAndTheUsual();
    void versionOfTheToolIsNoRequest();
    void wrongOnesKnowThatJsonIsWanted();
    void updaterIsAllowedOnRequest();
    void installer();
    void verify();
    void shareIsAPercentage();
    void restrictionsOfARollOut();
    void planIsNormalized();
    void wrongPlans();
    void limitsAreNumbers();
    void pageOfAReportHasAName();
    void stopAndResumeMayNameARelease();
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

void TestCommandLine::signaturesAreRequiredOnRequest()
{
    for (const QStringList &command :
         {Words(wholeZip), Words(wholeInstaller), Words("verify site")}) {
        QVERIFY(!ReadCommandLine(command).request.signature.isRequired);
        const CommandLine line = ReadCommandLine(
            command + Words("--require-signature --signer Norvane --authorities ca.pem"));
        QCOMPARE(line.error, QString());
        QVERIFY(line.request.signature.isRequired);
        QCOMPARE(line.request.signature.signer, QStringLiteral("Norvane"));
        QCOMPARE(line.request.signature.authorities, QStringLiteral("ca.pem"));
    }
}

void TestCommandLine::shorterVersionsAreAllowedOnRequest()
{
    for (const char *command : {wholeZip, wholeInstaller}) {
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

void TestCommandLine::shareIsAPercentage()
{
    const QStringList rollout = Words("rollout site --version 2 --share");
    const QVector<QPair<const char *, int>> shares{
        {"0.1", 1}, {"1", 10}, {"12.5", 125}, {"99.9", 999}, {"100", AllParts}};
    for (const auto &share : shares) {
        const CommandLine line = ReadCommandLine(rollout + Words(share.first));
        QCOMPARE(line.error, QString());
        QCOMPARE(line.request.share, share.second);
    }
    for (const char *wrong : {"0", "0.0", "0.05", "100.1", "101", "-1", "1%", "ten", "1e1", "1."}) {
        const CommandLine line = ReadCommandLine(rollout + Words(wrong));
        QVERIFY2(line.error.startsWith(QLatin1String("--share ")), wrong);
    }
    QCOMPARE(ReadCommandLine(Words(wholeZip) + Words("--share 100")).request.share, AllParts);
}

void TestCommandLine::restrictionsOfARollOut()
{
    const QStringList rollout = Words("rollout site --version 2");
    const CommandLine line = ReadCommandLine(
        rollout + Words("--from 2.0.* --from 1.9 --network 192.0.2.0/24 --network 2001:db8::/32"));
    QCOMPARE(line.error, QString());
    QCOMPARE(line.request.command, Request::Rollout);
    QCOMPARE(line.request.source, QStringLiteral("site"));
    QCOMPARE(line.request.share, 0);
    QCOMPARE(line.request.from, Words("2.0.* 1.9"));
    QCOMPARE(line.request.networks, Words("192.0.2.0/24 2001:db8::/32"));
    for (const char *wrong : {"--from 2.*.1", "--from .*", "--from 1.2.3.4.*", "--from 2*",
                              "--network office", "--network 192.0.2.1/24", "--network 1::/33"})
        QVERIFY2(!ReadCommandLine(rollout + Words(wrong)).error.isEmpty(), wrong);
}

void TestCommandLine::planIsNormalized()
{
    const QStringList rollout = Words("rollout site --version 2 --plan");
    for (const char *plan :
         {"1% 1d, 10% 90m, 100%", "1%1d,10%90m,100%", "1%\n24 h, 10 % 90 m,100%"}) {
        const CommandLine line = ReadCommandLine(rollout + QStringList{QLatin1String(plan)});
        QCOMPARE(line.error, QString());
        QCOMPARE(line.request.plan, QStringLiteral("1% 1d, 10% 90m, 100%"));
    }
}

void TestCommandLine::wrongPlans()
{
    const QStringList rollout = Words("rollout site --version 2 --plan");
    for (const char *plan :
         {" ", "100% 1d", "1%, 100%", "10% 1d, 1%", "1% 1x, 100%", "1% d, 100%"}) {
        const CommandLine line = ReadCommandLine(rollout + QStringList{QLatin1String(plan)});
        QVERIFY2(line.error.startsWith(QLatin1String("--plan must list growing shares")), plan);
    }
    QVERIFY(ReadCommandLine(rollout + Words("100% --share 1"))
                .error.startsWith(QLatin1String("--plan and --share exclude each other;")));
}

void TestCommandLine::limitsAreNumbers()
{
    for (const char *limit : {"nan", "inf", "-1", "101", ""}) {
        const CommandLine line =
            ReadCommandLine(Words("advance site --log x --stop-above") +
                            QStringList{QStringLiteral("interrupted=") + QLatin1String(limit)});
        QVERIFY2(line.error.contains(QLatin1String("is neither interrupted=PERCENT")), limit);
    }
    for (const char *bandwidth : {"--link-gbit nan --clients 9", "--link-gbit 9 --clients nan",
                                  "--link-gbit inf --clients 9"}) {
        const CommandLine line =
            ReadCommandLine(Words("rollout site --version 2 --share 1") + Words(bandwidth));
        QVERIFY2(line.error.contains(QLatin1String("must be given together")), bandwidth);
    }
}

void TestCommandLine::pageOfAReportHasAName()
{
    const QStringList report{QStringLiteral("report"), QStringLiteral("x.log"),
                             QStringLiteral("--html"), QString()};
    QVERIFY(ReadCommandLine(report).error.startsWith(QLatin1String("--html FILE is empty")));
}

void TestCommandLine::stopAndResumeMayNameARelease()
{
    for (const char *command : {"stop site", "resume site"}) {
        QCOMPARE(ReadCommandLine(Words(command)).error, QString());
        const CommandLine line = ReadCommandLine(Words(command) + Words("--version 2 --dry-run"));
        QCOMPARE(line.request.version, QStringLiteral("2"));
        QVERIFY(line.request.dryRun);
    }
    QVERIFY(!ReadCommandLine(Words("rollback site")).error.isEmpty());
}

void TestCommandLine::wrongOnes_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("error");

    QTest::newRow("nothing") << QStringList() << "no command is given; see publish --help";
    QTest::newRow("unknown command")
        << Words("tar") << "unknown command \"tar\"; see publish --help";
    QTest::newRow("unknown option")
        << Words(wholeZip) + Words("--colour") << "Unknown option 'colour'; see publish zip --help";
    QTest::newRow("value missing") << Words("verify --updater-folder")
                                   << "Missing value after '--updater-folder'; see publish verify "
                                      "--help";
    QTest::newRow("given twice") << Words(wholeZip) + Words("--version 3")
                                 << "--version is given twice; see publish zip --help";
    QTest::newRow("one too many") << Words(wholeZip) + Words("more")
                                  << "unexpected argument \"more\"; see publish zip --help";
    for (const char *option :
         {"config-file", "known", "updater-folder", "url-prefix", "share", "exclude"}) {
        const QString name = QStringLiteral("--") + QLatin1String(option);
        QTest::newRow(qPrintable(name + QStringLiteral(" without a value")))
            << Words(wholeZip) + QStringList{name, QString()} << name;
    }
    QTest::newRow("signer without the demand")
        << Words("verify site --signer Norvane") << "--signer NAME goes with --require-signature";
    QTest::newRow("stop of no version")
        << Words("stop site --version") + QStringList{QString()} << "--version VERSION is empty";
    for (const char *pattern : {"/a", "[a"}) {
        QTest::newRow(qPrintable(QStringLiteral("pattern \"%1\"").arg(QLatin1String(pattern))))
            << Words(wholeZip) + QStringList{QStringLiteral("--exclude"), QLatin1String(pattern)}
            << QStringLiteral("\"%1\" is not a pattern for file names").arg(QLatin1String(pattern));
    }
    QTest::newRow("resume of no version")
        << Words("resume site --version") + QStringList{QString()} << "--version VERSION is empty";
    QTest::newRow("no network") << Words("rollout site --version 2 --network") +
                                       QStringList{QString()}
                                << "--network CIDR is empty";
    QTest::newRow("stop of no tree")
        << QStringList{QStringLiteral("stop"), QString()} << "DIR must not be empty";
    QTest::newRow("push to no node")
        << Words("push site") + QStringList{QString()} << "DIR NODE... must not be empty";
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
    QTest::newRow("rollout") << Words("rollout --help") << "publish rollout site ";
    QTest::newRow("advance") << Words("advance --help") << "--log LOG...";
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
    for (const QString &row : line.help.split(QLatin1Char('\n')))
        QVERIFY2(row.size() <= kWidestHelp, qPrintable(row));
}

void TestCommandLine::examplesAreRight()
{
    for (const char *command :
         {"zip", "installer", "promote", "verify", "rollout", "advance", "stop", "resume",
          "rollback", "list", "push", "report", "check-config"}) {
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
