// SPDX-License-Identifier: MIT
#include "tests/support/environmentvariable.h"
#include "tests/support/loglines.h"
#include "tests/support/updaterrun.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSharedMemory>
#include <QTest>

/// How the program starts, refuses to start and ends.
class TestStartup : public QObject
{
    Q_OBJECT

private slots:
    void aSecondCopyEndsAtOnceAndLogsNothing();
    void theGuardIsTheOneOfThatName();
    void aRunThatWasKilledDoesNotBlockTheNextOne();
    void anotherRunMayFollowAFinishedOne();
    void aMissingConfigurationEndsTheRunWithZero();
    void aBrokenConfigurationEndsTheRunWithZero();
    void aMissingClientConfigurationEndsTheRunWithZero();
    void aBrokenClientConfigurationEndsTheRunWithZero();
    void aConfigurationInTheHomeFolderIsNotFound();
    void argumentsAreLoggedInOrder_data();
    void argumentsAreLoggedInOrder();
    void noArgumentIsTakenForQt();
    void theEnvironmentLoadsNoLibrary();
    void theEnvironmentOpensNoFile();
    void textsAreInTheInterfaceFont();
    void withoutArgumentsNoneIsLogged();
#ifdef Q_OS_UNIX
    void theInterfaceFontIsTheOneOfThatName_posix();
    void tlsIsLoadedBeforeTheCheckBegins_posix();
#endif
};

namespace
{

/// Starts a run and waits until it waits for the service.
void StartAndHold(UpdaterRun &run)
{
    run.Configure();
    run.server.Script(QStringLiteral("/check"),
                      QJsonObject{{QStringLiteral("hold"), QStringLiteral("before")}});
    run.Start();
    if (!run.server.WaitForRequests(1))
        qFatal("no check request came");
}

} // namespace

void TestStartup::aSecondCopyEndsAtOnceAndLogsNothing()
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

void TestStartup::theGuardIsTheOneOfThatName()
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

void TestStartup::aRunThatWasKilledDoesNotBlockTheNextOne()
{
    UpdaterRun run;
    StartAndHold(run);
    run.process.kill();
    QVERIFY(run.process.waitForFinished());

    run.AnswerCheck({{QStringLiteral("latestVersion"), QStringLiteral("1.0.0")}});
    QCOMPARE(run.Run(), 0);
    QVERIFY(run.client.WaitForCalls(1));
}

void TestStartup::anotherRunMayFollowAFinishedOne()
{
    UpdaterRun run;
    run.Configure();
    run.AnswerCheck({{QStringLiteral("latestVersion"), QStringLiteral("1.0.0")}});
    QCOMPARE(run.Run(), 0);
    QCOMPARE(run.Run(), 0);
    QVERIFY(run.client.WaitForCalls(2));
}

void TestStartup::aMissingConfigurationEndsTheRunWithZero()
{
    UpdaterRun run;
    QCOMPARE(run.Run({QStringLiteral("-immediately")}), 0);
    QCOMPARE(run.Log(), QStringList{LogLine::UpdateConfigOpenFailed(0)});
    QVERIFY(run.client.Calls().isEmpty());
}

void TestStartup::aBrokenConfigurationEndsTheRunWithZero()
{
    UpdaterRun run;
    run.WriteUpdateConfig("{\"appName\": ");
    QCOMPARE(run.Run(), 0);
    QCOMPARE(run.Log(), QStringList{LogLine::UpdateConfigDamaged(1)});
    QVERIFY(run.client.Calls().isEmpty());
}

void TestStartup::aMissingClientConfigurationEndsTheRunWithZero()
{
    UpdaterRun run;
    run.Configure({{QStringLiteral("appPath"), run.ClientFolder()}});
    QCOMPARE(run.Run(), 0);
    QCOMPARE(run.Log(),
             QStringList{LogLine::NotExists(run.ClientFolder() + QStringLiteral("config.json"))});
    QVERIFY(run.client.Calls().isEmpty());
}

void TestStartup::aBrokenClientConfigurationEndsTheRunWithZero()
{
    UpdaterRun run;
    run.Configure();
    WriteFile(run.Installed(QStringLiteral("config.json")), "");
    QCOMPARE(run.Run(), 0);
    QCOMPARE(run.Log(), QStringList{LogLine::ClientConfigDamaged(5)});
}

void TestStartup::aConfigurationInTheHomeFolderIsNotFound()
{
    UpdaterRun run;
    run.Configure();
    const QString config = run.UpdateConfigFile();
    WriteFile(run.Home() + QStringLiteral("/AutoUpdate/updateconfig.json"), ReadFile(config));
    WriteFile(run.Scratch() + QStringLiteral("/updateconfig.json"), ReadFile(config));
    QVERIFY(QFile::remove(config));
    QCOMPARE(run.Run(), 0);
    QCOMPARE(run.Log(), QStringList{LogLine::UpdateConfigOpenFailed(0)});
}

void TestStartup::argumentsAreLoggedInOrder_data()
{
    QTest::addColumn<QString>("argument");
    QTest::newRow("quotes") << QStringLiteral("two \"quoted\" words");
    QTest::newRow("backslash at the end") << QStringLiteral("--profile=C:\\my files\\");
    // The process gets arguments in the system's code page but reads them as UTF-8.
    const QString chinese = QStringLiteral("中文");
    if (chinese.toLocal8Bit() == chinese.toUtf8())
        QTest::newRow("Chinese") << chinese;
}

void TestStartup::argumentsAreLoggedInOrder()
{
    QFETCH(QString, argument);
    UpdaterRun run;
    run.Configure();
    run.AnswerCheck({{QStringLiteral("latestVersion"), QStringLiteral("1.0.0")}});
    QCOMPARE(run.Run({QStringLiteral("-noremid"), QStringLiteral("-immediately"), argument}), 0);
    QCOMPARE(run.Log().mid(0, 4),
             (QStringList{run.ConfigurationLine(),
                          LogLine::CommandLineParameter(QStringLiteral("-noremid")),
                          LogLine::CommandLineParameter(QStringLiteral("-immediately")),
                          LogLine::CommandLineParameter(argument)}));
    QVERIFY(run.client.WaitForCalls(1));
    QCOMPARE(run.client.Calls().first(), QStringList{argument});
}

void TestStartup::noArgumentIsTakenForQt()
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
        logged.append(LogLine::CommandLineParameter(argument));
    QCOMPARE(run.Log().filter(QStringLiteral("cmd line parameters")), logged);
}

void TestStartup::theEnvironmentLoadsNoLibrary()
{
    UpdaterRun run;
    run.Configure();
    run.AnswerCheck({{QStringLiteral("latestVersion"), QStringLiteral("1.0.0")}});
    const QFileInfo library(QStringLiteral(TESTABILITY_LIBRARY));
    // Found next to the program on Windows, on the search path elsewhere.
    const QString found = run.ProgramFolder() + QLatin1Char('/') + library.fileName();
    QVERIFY(QFile::copy(library.filePath(), found));
    const EnvironmentVariable path("LD_LIBRARY_PATH", QFile::encodeName(run.ProgramFolder()));
    const EnvironmentVariable testability("QT_LOAD_TESTABILITY", "1");
    QCOMPARE(run.Run(), 0);
    QVERIFY(run.client.WaitForCalls(1));
}

void TestStartup::theEnvironmentOpensNoFile()
{
    UpdaterRun run;
    run.Configure();
    run.AnswerCheck({{QStringLiteral("latestVersion"), QStringLiteral("1.0.0")}});
    const QString rules = run.Scratch() + QStringLiteral("/qtlogging.ini");
    WriteFile(rules, "[Rules]\ndefault=false\n");
    const EnvironmentVariable conf("QT_LOGGING_CONF", QFile::encodeName(rules));
    QCOMPARE(run.Run(), 0);
    QVERIFY(run.client.WaitForCalls(1));
    // The file would have disabled the log.
    QCOMPARE(run.Log().first(), run.ConfigurationLine());
}

void TestStartup::textsAreInTheInterfaceFont()
{
    UpdaterRun run;
    run.Configure();
    run.AnswerCheck({{QStringLiteral("latestVersion"), QStringLiteral("1.0.0")}});
    // Qt logs each font that it looks for.
    const EnvironmentVariable rules("QT_LOGGING_RULES", "qt.text.font.match.debug=true");
    QCOMPARE(run.Run(), 0);
    QVERIFY(run.client.WaitForCalls(1));

    // It replaces characters outside Latin-1 by question marks.
    static const QRegularExpression requested(QStringLiteral("request:\n    family: (.*) \\["));
    QStringList families;
    auto request = requested.globalMatch(run.LogLines().join(QLatin1Char('\n')));
    while (request.hasNext())
        families.append(request.next().captured(1));
    QVERIFY(families.contains(QStringLiteral("????")));
}

void TestStartup::withoutArgumentsNoneIsLogged()
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
void TestStartup::theInterfaceFontIsTheOneOfThatName_posix()
{
    UpdaterRun run;
    run.Configure();
    run.AnswerCheck({{QStringLiteral("latestVersion"), QStringLiteral("1.0.0")}});
    // Fontconfig prints each request.
    const EnvironmentVariable debug("FC_DEBUG", "4");
    QProcess program;
    program.start(run.ProgramPath(), QStringList());
    QVERIFY(program.waitForFinished());
    QVERIFY(program.readAllStandardOutput().contains(u8"family: \"微软雅黑\""));
}

void TestStartup::tlsIsLoadedBeforeTheCheckBegins_posix()
{
    UpdaterRun run;
    run.Configure();
    run.AnswerCheck({{QStringLiteral("latestVersion"), QStringLiteral("1.0.0")}});
    // The check begins with tasklist; this one records which libraries its parent has loaded.
    const QString tasklist = run.CommandsFolder() + QStringLiteral("/tasklist");
    const QString seen = run.Scratch() + QStringLiteral("/seen");
    WriteFile(tasklist,
              "#!/bin/sh\ngrep -o libssl /proc/$PPID/maps >>'" + QFile::encodeName(seen) + "'\n");
    QVERIFY(QFile::setPermissions(tasklist, QFile::ReadOwner | QFile::ExeOwner));
    QCOMPARE(run.Run(), 0);
    QVERIFY(ReadFile(seen).startsWith("libssl\n"));
}
#endif

QTEST_GUILESS_MAIN(TestStartup)
#include "tst_startup.moc"
