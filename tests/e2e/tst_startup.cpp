#include "tests/e2e/updaterrun.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSharedMemory>
#include <QTest>

/// How the program starts, refuses to, and ends.
class TestStartup : public QObject
{
    Q_OBJECT

private slots:
    void ASecondCopyEndsAtOnceAndLogsNothing();
    void TheGuardIsTheOneOfThatName();
    void ARunThatWasKilledDoesNotBlockTheNextOne();
    void AnotherRunMayFollowAFinishedOne();
    void AMissingConfigurationEndsTheRunWithZero();
    void ABrokenConfigurationEndsTheRunWithZero();
    void AMissingClientConfigurationEndsTheRunWithZero();
    void ABrokenClientConfigurationEndsTheRunWithZero();
    void AConfigurationInTheHomeFolderIsNotFound();
    void ArgumentsAreLoggedInOrder_data();
    void ArgumentsAreLoggedInOrder();
    void NoArgumentIsTakenForQt();
    void TheEnvironmentLoadsNoLibrary();
    void TheEnvironmentOpensNoFile();
    void TextsAreInTheInterfaceFont();
    void WithoutArgumentsNoneIsLogged();
#ifdef Q_OS_UNIX
    void TheInterfaceFontIsTheOneOfThatName_posix();
    void TlsIsLoadedBeforeTheCheckBegins_posix();
#endif

private:
    static const QString m_missing;
};

const QString TestStartup::m_missing =
    QStringLiteral("[DEBUG] (:0) updateconfig.json open failed: 0");

namespace
{

/// Starts a run that waits for the service, and waits until it does.
void StartAndHold(UpdaterRun &run)
{
    run.Configure();
    run.server.Script(QStringLiteral("/check"),
                      QJsonObject{{QStringLiteral("hold"), QStringLiteral("before")}});
    run.Start();
    if (!run.server.WaitForRequests(1))
        qFatal("no check request came");
}

/// A variable of the environment while it lives.
class Variable
{
public:
    Variable(const char *name, const QByteArray &value) : m_name(name), m_old(qgetenv(name))
    {
        qputenv(name, value);
    }

    ~Variable()
    {
        if (m_old.isNull())
            qunsetenv(m_name);
        else
            qputenv(m_name, m_old);
    }

private:
    Q_DISABLE_COPY(Variable)

    const char *m_name;
    QByteArray m_old;
};

} // namespace

void TestStartup::ASecondCopyEndsAtOnceAndLogsNothing()
{
    UpdaterRun run;
    StartAndHold(run);
    const QStringList log = run.Log();

    QProcess second;
    second.start(run.process.program(), {QStringLiteral("-immediately")});
    QVERIFY(second.waitForFinished());
    QCOMPARE(second.exitStatus(), QProcess::NormalExit);
    QCOMPARE(qint8(second.exitCode()), qint8(-1));
    QCOMPARE(run.Log(), log);
    QCOMPARE(run.process.state(), QProcess::Running);
}

void TestStartup::TheGuardIsTheOneOfThatName()
{
    UpdaterRun run;
    run.Configure();
    run.AnswerCheck({{QStringLiteral("latestVersion"), QStringLiteral("1.0.0")}});
    QSharedMemory held(QStringLiteral("ZellAutoUpdate"));
    QVERIFY2(held.create(1), qPrintable(held.errorString()));
    QCOMPARE(qint8(run.Run()), qint8(-1));
    QCOMPARE(run.Log(), QStringList());

    QVERIFY(held.detach());
    QCOMPARE(run.Run(), 0);
    QVERIFY(run.client.WaitForCalls(1));
}

void TestStartup::ARunThatWasKilledDoesNotBlockTheNextOne()
{
    UpdaterRun run;
    StartAndHold(run);
    run.process.kill();
    QVERIFY(run.process.waitForFinished());

    run.AnswerCheck({{QStringLiteral("latestVersion"), QStringLiteral("1.0.0")}});
    QCOMPARE(run.Run(), 0);
    QVERIFY(run.client.WaitForCalls(1));
}

void TestStartup::AnotherRunMayFollowAFinishedOne()
{
    UpdaterRun run;
    run.Configure();
    run.AnswerCheck({{QStringLiteral("latestVersion"), QStringLiteral("1.0.0")}});
    QCOMPARE(run.Run(), 0);
    QCOMPARE(run.Run(), 0);
    QVERIFY(run.client.WaitForCalls(2));
}

void TestStartup::AMissingConfigurationEndsTheRunWithZero()
{
    UpdaterRun run;
    QCOMPARE(run.Run({QStringLiteral("-immediately")}), 0);
    QCOMPARE(run.Log(), QStringList{m_missing});
    QVERIFY(run.client.Calls().isEmpty());
}

void TestStartup::ABrokenConfigurationEndsTheRunWithZero()
{
    UpdaterRun run;
    run.home.WriteUpdateConfig("{\"appName\": ");
    QCOMPARE(run.Run(), 0);
    QCOMPARE(run.Log(), QStringList{QStringLiteral("[DEBUG] (:0)  Auto Jsondata Error: 1")});
    QVERIFY(run.client.Calls().isEmpty());
}

void TestStartup::AMissingClientConfigurationEndsTheRunWithZero()
{
    UpdaterRun run;
    run.Configure({{QStringLiteral("appPath"), run.home.ClientFolder()}});
    QCOMPARE(run.Run(), 0);
    QCOMPARE(run.Log(), QStringList{QStringLiteral("[DEBUG] (:0) \"%1config.json\"  Not exists")
                                        .arg(run.home.ClientFolder())});
    QVERIFY(run.client.Calls().isEmpty());
}

void TestStartup::ABrokenClientConfigurationEndsTheRunWithZero()
{
    UpdaterRun run;
    run.Configure();
    WriteFile(run.home.ClientFolder() + QStringLiteral("/config.json"), "");
    QCOMPARE(run.Run(), 0);
    QCOMPARE(run.Log(), QStringList{QStringLiteral("[DEBUG] (:0)  APP Jsondata Error: 5")});
}

void TestStartup::AConfigurationInTheHomeFolderIsNotFound()
{
    UpdaterRun run;
    run.Configure();
    const QString config = run.home.ProgramFolder() + QStringLiteral("/updateconfig.json");
    WriteFile(run.home.Home() + QStringLiteral("/AutoUpdate/updateconfig.json"), ReadFile(config));
    WriteFile(run.home.Scratch() + QStringLiteral("/updateconfig.json"), ReadFile(config));
    QVERIFY(QFile::remove(config));
    QCOMPARE(run.Run(), 0);
    QCOMPARE(run.Log(), QStringList{m_missing});
}

void TestStartup::ArgumentsAreLoggedInOrder_data()
{
    QTest::addColumn<QString>("argument");
    QTest::addColumn<QString>("logged");
    QTest::newRow("quotes") << QStringLiteral("two \"quoted\" words")
                            << QStringLiteral("\"two \\\"quoted\\\" words\"");
    QTest::newRow("back slash at the end") << QStringLiteral("--profile=C:\\my files\\")
                                           << QStringLiteral("\"--profile=C:\\\\my files\\\\\"");
    // Arguments come in the system's own code page and are read as UTF-8.
    const QString chinese = QStringLiteral("中文");
    if (chinese.toLocal8Bit() == chinese.toUtf8())
        QTest::newRow("Chinese") << chinese << QStringLiteral("\"中文\"");
}

void TestStartup::ArgumentsAreLoggedInOrder()
{
    QFETCH(QString, argument);
    QFETCH(QString, logged);
    UpdaterRun run;
    run.Configure();
    run.AnswerCheck({{QStringLiteral("latestVersion"), QStringLiteral("1.0.0")}});
    QCOMPARE(run.Run({QStringLiteral("-noremid"), QStringLiteral("-immediately"), argument}), 0);
    QCOMPARE(run.Log().mid(0, 4),
             (QStringList{run.ConfigurationLine(),
                          QStringLiteral("[INFO] (:0) cmd line parameters : \"-noremid\""),
                          QStringLiteral("[INFO] (:0) cmd line parameters : \"-immediately\""),
                          QStringLiteral("[INFO] (:0) cmd line parameters : ") + logged}));
    QVERIFY(run.client.WaitForCalls(1));
    QCOMPARE(run.client.Calls().first(), QStringList{argument});
}

void TestStartup::NoArgumentIsTakenForQt()
{
    UpdaterRun run;
    run.Configure();
    run.AnswerCheck({{QStringLiteral("latestVersion"), QStringLiteral("1.0.0")}});
    const QStringList arguments =
        QStringLiteral("-stylesheet file.qss -style windows -platform none "
                       "-session id -reverse -widgetcount -geometry 1x1 "
                       "-display :99 -qmljsdebugger=port:1 --style=fusion")
            .split(QLatin1Char(' '));
    QCOMPARE(run.Run(arguments), 0);
    QVERIFY(run.client.WaitForCalls(1));
    QCOMPARE(run.client.Calls().first(), arguments);
    QStringList logged;
    for (const QString &argument : arguments)
        logged.append(QStringLiteral("[INFO] (:0) cmd line parameters : \"%1\"").arg(argument));
    QCOMPARE(run.Log().filter(QStringLiteral("cmd line parameters")), logged);
}

void TestStartup::TheEnvironmentLoadsNoLibrary()
{
    UpdaterRun run;
    run.Configure();
    run.AnswerCheck({{QStringLiteral("latestVersion"), QStringLiteral("1.0.0")}});
    const QFileInfo library(QStringLiteral(TESTABILITY_LIBRARY));
    // Where it is found: beside the program on Windows, on the search path elsewhere.
    const QString found = run.home.ProgramFolder() + QLatin1Char('/') + library.fileName();
    QVERIFY(QFile::copy(library.filePath(), found));
    const Variable path("LD_LIBRARY_PATH", QFile::encodeName(run.home.ProgramFolder()));
    const Variable testability("QT_LOAD_TESTABILITY", "1");
    QCOMPARE(run.Run(), 0);
    QVERIFY(run.client.WaitForCalls(1));
}

void TestStartup::TheEnvironmentOpensNoFile()
{
    UpdaterRun run;
    run.Configure();
    run.AnswerCheck({{QStringLiteral("latestVersion"), QStringLiteral("1.0.0")}});
    const QString rules = run.home.Scratch() + QStringLiteral("/qtlogging.ini");
    WriteFile(rules, "[Rules]\ndefault=false\n");
    const Variable conf("QT_LOGGING_CONF", QFile::encodeName(rules));
    QCOMPARE(run.Run(), 0);
    QVERIFY(run.client.WaitForCalls(1));
    // The file would have silenced the log.
    QCOMPARE(run.Log().first(), run.ConfigurationLine());
}

void TestStartup::TextsAreInTheInterfaceFont()
{
    UpdaterRun run;
    run.Configure();
    run.AnswerCheck({{QStringLiteral("latestVersion"), QStringLiteral("1.0.0")}});
    // Qt tells of each font that it looks for.
    const Variable rules("QT_LOGGING_RULES", "qt.text.font.match.debug=true");
    QCOMPARE(run.Run(), 0);
    QVERIFY(run.client.WaitForCalls(1));

    // Letters that Latin-1 lacks it writes as question marks.
    static const QRegularExpression requested(QStringLiteral("request:\n    family: (.*) \\["));
    QStringList families;
    auto request = requested.globalMatch(run.home.LogLines().join(QLatin1Char('\n')));
    while (request.hasNext())
        families.append(request.next().captured(1));
    QVERIFY(families.contains(QStringLiteral("????")));
}

void TestStartup::WithoutArgumentsNoneIsLogged()
{
    UpdaterRun run;
    run.Configure();
    run.AnswerCheck({{QStringLiteral("latestVersion"), QStringLiteral("1.0.0")}});
    QCOMPARE(run.Run(), 0);
    QVERIFY(run.Log().filter(QStringLiteral("cmd line parameters")).isEmpty());
    QVERIFY(run.client.WaitForCalls(1));
    QCOMPARE(run.client.Calls(), QVector<QStringList>{{QStringLiteral("-autoupdate")}});
}

#ifdef Q_OS_UNIX
void TestStartup::TheInterfaceFontIsTheOneOfThatName_posix()
{
    UpdaterRun run;
    run.Configure();
    run.AnswerCheck({{QStringLiteral("latestVersion"), QStringLiteral("1.0.0")}});
    // Fontconfig prints what it is asked for.
    const Variable debug("FC_DEBUG", "4");
    QProcess program;
    program.start(run.ProgramPath(), QStringList());
    QVERIFY(program.waitForFinished());
    QVERIFY(program.readAllStandardOutput().contains(u8"family: \"微软雅黑\""));
}

void TestStartup::TlsIsLoadedBeforeTheCheckBegins_posix()
{
    UpdaterRun run;
    run.Configure();
    run.AnswerCheck({{QStringLiteral("latestVersion"), QStringLiteral("1.0.0")}});
    // The check begins with tasklist: this one looks what its caller has loaded by then.
    const QString tasklist = run.home.CommandsFolder() + QStringLiteral("/tasklist");
    const QString seen = run.home.Scratch() + QStringLiteral("/seen");
    WriteFile(tasklist,
              "#!/bin/sh\ngrep -o libssl /proc/$PPID/maps >>'" + QFile::encodeName(seen) + "'\n");
    QVERIFY(QFile::setPermissions(tasklist, QFile::ReadOwner | QFile::ExeOwner));
    QCOMPARE(run.Run(), 0);
    QVERIFY(ReadFile(seen).startsWith("libssl\n"));
}
#endif

QTEST_GUILESS_MAIN(TestStartup)
#include "tst_startup.moc"
