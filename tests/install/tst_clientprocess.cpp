// SPDX-License-Identifier: MIT
#include "config/global.h"
#include "install/clientprocess.h"
#include "tests/support/clientmachine.h"
#include "tests/support/logcapture.h"
#include "tests/support/loglines.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>
#include <QTextCodec>
#include <QThread>
#include <QTimer>

#include <filesystem>
#include <functional>
#include <memory>

namespace
{

using Calls = QVector<QStringList>;

/// A client's machine whose log is caught.
class LoggedMachine : public ClientMachine
{
public:
    QStringList Messages() const { return m_log.Messages(); }
    QString Command(const QString &name) const
    {
        return CommandsFolder() + QLatin1Char('/') + name;
    }

    /// All starts of the client, once there are @p expected and no other can follow.
    Calls ClientCalls(int expected) const
    {
        // When one more start has ended, all earlier ones have been recorded.
        client.WaitForCalls(expected);
        QProcess::execute(client.Path(), {QStringLiteral("last")});
        Calls calls = client.Calls();
        if (calls.isEmpty() || calls.takeLast() != QStringList(QStringLiteral("last")))
            qFatal("the client does not start");
        return calls;
    }

private:
    LogCapture m_log;
};

struct Outcome {
    int result;
    bool quit;    ///< whether the operation quit the application
    int exitCode; ///< with this code, if so
};

/// Runs @p operation in the application's event loop, as the program does.
Outcome InEventLoop(const std::function<int()> &operation)
{
    constexpr int wentOn = 88;
    QObject context;
    int result = 99;
    QTimer::singleShot(0, &context, [&] {
        result = operation();
        QTimer::singleShot(0, &context, [] { QCoreApplication::exit(wentOn); });
    });
    const int code = QCoreApplication::exec();
    return {result, code != wentOn, code};
}

Outcome Check()
{
    return InEventLoop([] { return Global::instance.CheckClientRunning(); });
}

Outcome Launch()
{
    return InEventLoop([] { return Global::instance.LaunchClient(); });
}

QStringList List(std::initializer_list<const char *> items)
{
    QStringList list;
    for (const char *item : items)
        list.append(QString::fromUtf8(item));
    return list;
}

/// The output of tasklist for a process with this image name.
QByteArray TasklistRow(const QString &name)
{
    return QStringLiteral("\"Image Name\",\"PID\",\"Session Name\",\"Session#\",\"Mem Usage\"\r\n"
                          "\"%1\",\"4711\",\"Console\",\"1\",\"12,345 K\"\r\n")
        .arg(name)
        .toLocal8Bit();
}

const QByteArray noTasks = "INFO: No tasks are running which match the specified criteria.\r\n";

} // namespace

class TestClientProcess : public QObject
{
    Q_OBJECT

private slots:
    void tasklistIsAskedForTheImageName_data();
    void tasklistIsAskedForTheImageName();
    void clientRunsWhenItsNameIsPrinted_data();
    void clientRunsWhenItsNameIsPrinted();
    void checkDecidesHowTheRunGoesOn_data();
    void checkDecidesHowTheRunGoesOn();
#ifdef Q_OS_UNIX
    void clientThatStartsBetweenTheTwoLooksIsLaunched_posix();
    void clientThatEndsBetweenTheTwoLooksIsNotLaunched_posix();
    void errorOutputOfTasklistIsNotSearched_posix();
    void missingTasklistMeansNotRunning_posix();
    void tasklistThatCrashesIsSearchedAllTheSame_posix();
#endif
    void realClientIsFoundByRealTasklist();
    void realClientOfAnotherCaseIsNotFound();
    void launchedClientGetsTheRewrittenArguments_data();
    void launchedClientGetsTheRewrittenArguments();
    void launchWaitsBeforeTheStart();
    void launchOfAMissingClientIsNotNoticed();
    void clientPathIsAPlainConcatenation();
    void launchedClientLivesOn();
    void launchOnAnotherThreadQuitsTheApplication();
    void flagOfTheCheckIsGoneAtTheLaunch();
    void linkThatFoundNoClientIsPassedOnByTheLaunch();
    void programGetsTheArgumentsWithoutTheSwitches_data();
    void programGetsTheArgumentsWithoutTheSwitches();
    void programThatCannotBeStartedIsNotNoticed_data();
    void programThatCannotBeStartedIsNotNoticed();
#ifdef Q_OS_UNIX
    void downloadedProgramNeedsNoExecuteBit_posix();
#endif
    void runningClientIsStopped_data();
    void runningClientIsStopped();
    void realRunningClientIsStopped();
    void freeBytesAreThoseOfTheVolume_data();
    void freeBytesAreThoseOfTheVolume();
#ifdef Q_OS_UNIX
    void volumeUnknownToTheHostIsItsRoot_posix();
#endif
    void failedFreeBytesAreLoggedAndZero();
};

void TestClientProcess::tasklistIsAskedForTheImageName_data()
{
    QTest::addColumn<QString>("appName");
    QTest::newRow("plain") << QStringLiteral("Client.exe");
    QTest::newRow("blank") << QStringLiteral("My Client.exe");
    QTest::newRow("Chinese") << QStringLiteral("客户端.exe");
    QTest::newRow("place-holder") << QStringLiteral("100%1.exe");
}

void TestClientProcess::tasklistIsAskedForTheImageName()
{
    QFETCH(QString, appName);
    const LoggedMachine machine;
    const StandIn tasklist(machine.Command(QStringLiteral("tasklist")));
    Global::instance.appName = appName;
    QCOMPARE(Global::instance.CheckClientRunning(), -1);
    const QStringList call = {QStringLiteral("/FO"), QStringLiteral("CSV"), QStringLiteral("/FI"),
                              QStringLiteral("IMAGENAME eq ") + appName};
    QCOMPARE(tasklist.Calls(), Calls({call, call}));
}

void TestClientProcess::clientRunsWhenItsNameIsPrinted_data()
{
    QTest::addColumn<QString>("appName");
    QTest::addColumn<QByteArray>("output");
    QTest::addColumn<bool>("running");
    const QString name = QStringLiteral("Client.exe");
    const auto row = [&](const char *title, const QByteArray &output, bool running) {
        QTest::newRow(title) << name << output << running;
    };
    row("listed", TasklistRow(name), true);
    row("not listed", noTasks, false);
    row("nothing", QByteArray(), false);
    row("name alone", "Client.exe", true);
    row("part of another name", TasklistRow(QStringLiteral("MyClient.exe.old")), true);
    row("upper case", TasklistRow(QStringLiteral("CLIENT.EXE")), false);
    row("lower case", TasklistRow(QStringLiteral("client.exe")), false);
    row("shortened", TasklistRow(QStringLiteral("Client.e")), false);
    row("after a zero byte", QByteArray("x\0", 2) + "Client.exe", false);
    row("zero byte first", QByteArray("\0", 1) + TasklistRow(name), false);
    row("zero byte inside", QByteArray("Client\0.exe", 11), false);
    row("before a zero byte", QByteArray("Client.exe\0x", 12), true);
    row("after much other text", QByteArray(100000, 'x') + "\r\nClient.exe", true);
    row("several of them", TasklistRow(name) + TasklistRow(name), true);
    // The bytes are read in the system's code page.
    const QString chinese = QStringLiteral("客户端.exe");
    const QTextCodec *codec = QTextCodec::codecForLocale();
    if (codec->toUnicode(codec->fromUnicode(chinese)) == chinese)
        QTest::newRow("Chinese") << chinese << TasklistRow(chinese) << true;
}

void TestClientProcess::clientRunsWhenItsNameIsPrinted()
{
    QFETCH(QString, appName);
    QFETCH(QByteArray, output);
    QFETCH(bool, running);
    const LoggedMachine machine;
    Global::instance.appName = appName;
    Global::instance.cmdLineArgs = List({"-noremid"});
    for (const char *exit : {"exit 0\n", "exit 1\n"}) {
        StandIn tasklist(machine.Command(QStringLiteral("tasklist")));
        tasklist.SetScript(StandIn::Prints(output) + exit);
        const int before = machine.Messages().size();

        const Outcome outcome = Check();
        QCOMPARE(outcome.result, -1);
        QVERIFY(!outcome.quit);
        QCOMPARE(machine.Messages().mid(before),
                 running ? QStringList(LogLine::AlreadyRuns(appName)) : QStringList());
    }
}

void TestClientProcess::checkDecidesHowTheRunGoesOn_data()
{
    QTest::addColumn<bool>("running");
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("result");
    QTest::addColumn<int>("looks"); // how often tasklist runs
    QTest::addColumn<Calls>("clientCalls");
    QTest::addColumn<bool>("launched"); // and the application quit
    const auto row = [](const char *name, bool running,
                        const QStringList &arguments) -> QTestData & {
        return QTest::newRow(name) << running << arguments;
    };
    const Calls none;
    row("not running", false, {}) << -1 << 2 << none << false;
    row("not running, -noremid", false, List({"-noremid"})) << -1 << 1 << none << false;
    row("not running, -immediately", false, List({"-immediately"})) << -1 << 1 << none << false;
    row("not running, link", false, List({"qorb-meeting://abc"})) << -1 << 2 << none << false;
    row("not running, another argument", false, List({"-x"})) << -1 << 2 << none << false;

    row("running", true, {}) << 0 << 2 << Calls({List({"-autoupdate"})}) << true;
    row("running, -noremid", true, List({"-noremid"})) << -1 << 1 << none << false;
    row("running, -immediately", true, List({"-immediately"})) << -1 << 1 << none << false;
    row("running, both among others", true, List({"a", "-immediately", "-noremid"}))
        << -1 << 1 << none << false;
    row("running, another argument", true, List({"-x"})) << 0 << 2 << Calls({List({"-x"})}) << true;
    row("running, flag in another case", true, List({"-Noremid"}))
        << 0 << 2 << Calls({List({"-Noremid"})}) << true;
    row("running, flag inside an argument", true, List({"-immediately=1"}))
        << 0 << 2 << Calls({List({"-immediately=1"})}) << true;

    row("running, link", true, List({"qorb-meeting://abc"}))
        << 0 << 1 << Calls({List({"--url=abc"})}) << false;
    row("running, link and flag", true, List({"-noremid", "qorb-meeting://abc"}))
        << 0 << 1 << Calls({List({"--url=abc"})}) << false;
    row("running, link among others", true, List({"-x", "qorb-meeting://a?b=c&d", "-y"}))
        << 0 << 1 << Calls({List({"--url=a?b=c&d"})}) << false;
    row("running, two links", true, List({"qorb-meeting://1", "qorb-meeting://2"}))
        << 0 << 1 << Calls({List({"--url=1"})}) << false;
    row("running, link with two separators", true, List({"qorb-meeting://a://b"}))
        << 0 << 1 << Calls({List({"--url=a"})}) << false;
    row("running, link without separator", true, List({"qorb-meeting:abc"}))
        << 0 << 1 << Calls({List({"--url="})}) << false;
    row("running, link without text", true, List({"qorb-meeting://"}))
        << 0 << 1 << Calls({List({"--url="})}) << false;
    row("running, word inside", true, List({"https://host/qorb-meeting"}))
        << 0 << 1 << Calls({List({"--url=host/qorb-meeting"})}) << false;
    row("running, Chinese link", true, List({u8"qorb-meeting://会议 室"}))
        << 0 << 1 << Calls({List({u8"--url=会议 室"})}) << false;
    row("running, link in another case", true, List({"QORB-MEETING://abc"}))
        << 0 << 2 << Calls({List({"QORB-MEETING://abc"})}) << true;
}

void TestClientProcess::checkDecidesHowTheRunGoesOn()
{
    QFETCH(bool, running);
    QFETCH(QStringList, arguments);
    QFETCH(Calls, clientCalls);
    QFETCH(bool, launched);
    const LoggedMachine machine;
    StandIn tasklist(machine.Command(QStringLiteral("tasklist")));
    tasklist.SetScript(StandIn::Prints(running ? TasklistRow(machine.ClientName()) : noTasks));
    Global::instance.cmdLineArgs = arguments;

    const Outcome outcome = Check();

    QTEST(outcome.result, "result");
    QCOMPARE(outcome.quit, launched);
    QTEST(tasklist.Calls().size(), "looks");
    QCOMPARE(machine.ClientCalls(clientCalls.size()), clientCalls);
    // Only the launch changes the list.
    QCOMPARE(Global::instance.cmdLineArgs, launched ? clientCalls.first() : arguments);
    QStringList log;
    if (running)
        log << LogLine::AlreadyRuns(machine.ClientName());
    if (launched)
        log << LogLine::Starting(machine.ClientName());
    QCOMPARE(machine.Messages(), log);
}

#ifdef Q_OS_UNIX
void TestClientProcess::clientThatStartsBetweenTheTwoLooksIsLaunched_posix()
{
    const LoggedMachine machine;
    WriteShellScript(machine.Command(QStringLiteral("tasklist")),
                     "if [ -e looked ]; then echo " + machine.ClientName().toUtf8() +
                         "; fi; : > looked\n");
    const Outcome outcome = Check();
    QCOMPARE(outcome.result, 0);
    QVERIFY(outcome.quit);
    QCOMPARE(machine.ClientCalls(1), Calls({List({"-autoupdate"})}));
    QCOMPARE(machine.Messages(), QStringList(LogLine::Starting(machine.ClientName())));
}

void TestClientProcess::clientThatEndsBetweenTheTwoLooksIsNotLaunched_posix()
{
    const LoggedMachine machine;
    WriteShellScript(machine.Command(QStringLiteral("tasklist")),
                     "if [ ! -e looked ]; then echo " + machine.ClientName().toUtf8() +
                         "; fi; : > looked\n");
    const Outcome outcome = Check();
    QCOMPARE(outcome.result, -1);
    QVERIFY(!outcome.quit);
    QCOMPARE(machine.ClientCalls(0), Calls());
    QCOMPARE(machine.Messages(), QStringList(LogLine::AlreadyRuns(machine.ClientName())));
}

void TestClientProcess::errorOutputOfTasklistIsNotSearched_posix()
{
    const LoggedMachine machine;
    WriteShellScript(machine.Command(QStringLiteral("tasklist")),
                     "echo " + machine.ClientName().toUtf8() + " >&2\n");
    const Outcome outcome = Check();
    QCOMPARE(outcome.result, -1);
    QCOMPARE(machine.Messages(), QStringList());
}

void TestClientProcess::missingTasklistMeansNotRunning_posix()
{
    LoggedMachine machine;
    machine.client.StartAndStay();
    qputenv("PATH", QFile::encodeName(machine.Scratch()));
    const Outcome outcome = Check();
    QCOMPARE(outcome.result, -1);
    QVERIFY(!outcome.quit);
    QVERIFY(machine.client.IsRunning());
    QCOMPARE(machine.client.Calls().size(), 1);
    QCOMPARE(machine.Messages(), QStringList());
}

void TestClientProcess::tasklistThatCrashesIsSearchedAllTheSame_posix()
{
    const LoggedMachine machine;
    WriteShellScript(machine.Command(QStringLiteral("tasklist")),
                     "echo " + machine.ClientName().toUtf8() + "; kill -KILL $$\n");
    Global::instance.cmdLineArgs = List({"-noremid"});
    QCOMPARE(Check().result, -1);
    QCOMPARE(machine.Messages(), QStringList(LogLine::AlreadyRuns(machine.ClientName())));
}
#endif

void TestClientProcess::realClientIsFoundByRealTasklist()
{
    LoggedMachine machine;
    machine.client.StartAndStay();
    Global::instance.cmdLineArgs = List({"qorb-meeting://abc"});
    const Outcome outcome = Check();
    QCOMPARE(outcome.result, 0);
    QVERIFY(!outcome.quit);
    QVERIFY(machine.client.WaitForCalls(2));
    QCOMPARE(machine.client.Calls().at(1), List({"--url=abc"}));
    QVERIFY(machine.client.IsRunning());
    QCOMPARE(machine.Messages(), QStringList(LogLine::AlreadyRuns(machine.ClientName())));
}

void TestClientProcess::realClientOfAnotherCaseIsNotFound()
{
    LoggedMachine machine;
    machine.client.StartAndStay();
    Global::instance.appName = machine.ClientName().toUpper();
    const Outcome outcome = Check();
    QCOMPARE(outcome.result, -1);
    QVERIFY(!outcome.quit);
    QCOMPARE(machine.client.Calls().size(), 1);
    QCOMPARE(machine.Messages(), QStringList());
}

void TestClientProcess::launchedClientGetsTheRewrittenArguments_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QStringList>("rewritten");
    const auto row = [](const char *name, const QStringList &arguments,
                        const QStringList &rewritten) {
        QTest::newRow(name) << arguments << rewritten;
    };
    const QStringList autoUpdate = List({"-autoupdate"});
    row("none", {}, autoUpdate);
    row("-noremid", List({"-noremid"}), autoUpdate);
    row("-immediately", List({"-immediately"}), autoUpdate);
    row("both, several times",
        List({"-noremid", "-immediately", "-noremid", "-immediately", "-noremid"}), autoUpdate);
    row("others stay in order", List({"b", "-noremid", "a", "-immediately", "c"}),
        List({"b", "a", "c"}));
    row("switch inside an argument", List({"-noremid=1", "x-immediately"}),
        List({"-noremid=1", "x-immediately"}));
    row("switch in another case", List({"-NOREMID"}), List({"-NOREMID"}));
    row("empty argument", List({""}), List({""}));
    row("-autoupdate itself", List({"-autoupdate"}), autoUpdate);
    row("link", List({"qorb-meeting://abc"}), List({"--url=abc"}));
    row("link and switches", List({"-noremid", "qorb-meeting://abc", "-immediately"}),
        List({"--url=abc"}));
    row("link moves to the end", List({"qorb-meeting://abc", "a", "b"}),
        List({"a", "b", "--url=abc"}));
    row("only the first link", List({"qorb-meeting://1", "x", "qorb-meeting://2"}),
        List({"x", "qorb-meeting://2", "--url=1"}));
    row("link with two separators", List({"qorb-meeting://a://b"}), List({"--url=a"}));
    row("link without separator", List({"qorb-meeting"}), List({"--url="}));
    row("link without text", List({"qorb-meeting://"}), List({"--url="}));
    row("word inside", List({"\"qorb-meeting://abc\""}), List({"--url=abc\""}));
    row("link in another case", List({"Qorb-Meeting://abc"}), List({"Qorb-Meeting://abc"}));
    row("blanks and quotes", List({"a b", "\"c\"", "d\\"}), List({"a b", "\"c\"", "d\\"}));
    row("Chinese", List({u8"会议", u8"qorb-meeting://会议室"}), List({u8"会议", u8"--url=会议室"}));
}

void TestClientProcess::launchedClientGetsTheRewrittenArguments()
{
    QFETCH(QStringList, arguments);
    QFETCH(QStringList, rewritten);
    const LoggedMachine machine;
    Global::instance.cmdLineArgs = arguments;

    const Outcome outcome = Launch();

    QCOMPARE(outcome.result, 0);
    QVERIFY(outcome.quit);
    QCOMPARE(outcome.exitCode, 0);
    QCOMPARE(machine.ClientCalls(1), Calls({rewritten}));
    QCOMPARE(Global::instance.cmdLineArgs, rewritten);
    QCOMPARE(machine.Messages(), QStringList(LogLine::Starting(machine.ClientName())));
}

void TestClientProcess::launchWaitsBeforeTheStart()
{
    const LoggedMachine machine;
    QElapsedTimer timer;
    timer.start();
    Launch();
    QVERIFY2(timer.elapsed() >= 500, qPrintable(QString::number(timer.elapsed())));
    QCOMPARE(machine.ClientCalls(1).size(), 1);
}

void TestClientProcess::launchOfAMissingClientIsNotNoticed()
{
    const LoggedMachine machine;
    Global::instance.appName = QStringLiteral("Missing.exe");
    const Outcome outcome = Launch();
    QCOMPARE(outcome.result, 0);
    QVERIFY(outcome.quit);
    QCOMPARE(machine.Messages(), QStringList(LogLine::Starting(QStringLiteral("Missing.exe"))));
}

void TestClientProcess::clientPathIsAPlainConcatenation()
{
    const LoggedMachine machine;
    Global::instance.appPath = machine.ClientFolder();
    const StandIn joined(machine.ClientFolder() + machine.ClientName());
    QVERIFY(Launch().quit);
    QVERIFY(joined.WaitForCalls(1));
    QCOMPARE(machine.ClientCalls(0), Calls());
}

void TestClientProcess::launchedClientLivesOn()
{
    LoggedMachine machine;
    machine.client.SetScript("stay\n");
    QVERIFY(Launch().quit);
    QVERIFY(machine.client.WaitForCalls(1));

    Global::instance.cmdLineArgs = List({"-noremid"});
    QCOMPARE(Check().result, -1);
    QCOMPARE(machine.Messages(), QStringList({LogLine::Starting(machine.ClientName()),
                                              LogLine::AlreadyRuns(machine.ClientName())}));
}

void TestClientProcess::launchOnAnotherThreadQuitsTheApplication()
{
    const LoggedMachine machine;
    int result = 99;
    const std::unique_ptr<QThread> worker(
        QThread::create([&result] { result = Global::instance.LaunchClient(); }));
    QTimer::singleShot(0, worker.get(), [&worker] { worker->start(); });
    QVERIFY(RunUntilQuit());
    QVERIFY(worker->wait(15000));
    QCOMPARE(result, 0);
    QCOMPARE(machine.ClientCalls(1), Calls({List({"-autoupdate"})}));
}

void TestClientProcess::flagOfTheCheckIsGoneAtTheLaunch()
{
    LoggedMachine machine;
    StandIn tasklist(machine.Command(QStringLiteral("tasklist")));
    tasklist.SetScript(StandIn::Prints(TasklistRow(machine.ClientName())));
    Global::instance.cmdLineArgs = List({"-noremid"});
    QCOMPARE(Check().result, -1);
    QCOMPARE(Global::instance.cmdLineArgs, List({"-noremid"}));
    QVERIFY(Launch().quit);
    QCOMPARE(machine.ClientCalls(1), Calls({List({"-autoupdate"})}));
}

void TestClientProcess::linkThatFoundNoClientIsPassedOnByTheLaunch()
{
    const LoggedMachine machine;
    Global::instance.cmdLineArgs = List({"qorb-meeting://abc", "-x"});
    QCOMPARE(Check().result, -1);
    QVERIFY(Launch().quit);
    QCOMPARE(machine.ClientCalls(1), Calls({List({"-x", "--url=abc"})}));
}

void TestClientProcess::programGetsTheArgumentsWithoutTheSwitches_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QStringList>("passed");
    QTest::newRow("none") << QStringList() << QStringList();
    QTest::newRow("switches") << List({"-noremid", "-immediately", "-noremid"}) << QStringList();
    QTest::newRow("others") << List({"b", "-noremid", "a b", ""}) << List({"b", "a b", ""});
    QTest::newRow("link as it is")
        << List({"qorb-meeting://abc", "x"}) << List({"qorb-meeting://abc", "x"});
    QTest::newRow("switch in another case") << List({"-Immediately"}) << List({"-Immediately"});
}

void TestClientProcess::programGetsTheArgumentsWithoutTheSwitches()
{
    QFETCH(QStringList, arguments);
    QFETCH(QStringList, passed);
    const LoggedMachine machine;
    const StandIn installer(machine.Scratch() + QStringLiteral("/下载 folder/Client Setup.exe"));
    Global::instance.cmdLineArgs = arguments;

    const Outcome outcome =
        InEventLoop([&] { return Global::instance.LaunchProgram(installer.Path()); });

    QCOMPARE(outcome.result, 0);
    QVERIFY(outcome.quit);
    QCOMPARE(outcome.exitCode, 0);
    QVERIFY(installer.WaitForCalls(1));
    QCOMPARE(installer.Calls(), Calls({passed}));
    QCOMPARE(Global::instance.cmdLineArgs, passed);
    QCOMPARE(machine.Messages(), QStringList(LogLine::Starting(installer.Path())));
    QCOMPARE(machine.ClientCalls(0), Calls());
}

void TestClientProcess::programThatCannotBeStartedIsNotNoticed_data()
{
    QTest::addColumn<QString>("tail");
    QTest::newRow("missing") << QStringLiteral("/missing.exe");
    QTest::newRow("no program") << QStringLiteral("/text.exe");
    QTest::newRow("a folder") << QString();
}

void TestClientProcess::programThatCannotBeStartedIsNotNoticed()
{
    QFETCH(QString, tail);
    const LoggedMachine machine;
    WriteFile(machine.Scratch() + QStringLiteral("/text.exe"), QByteArray("\x7f"
                                                                          "no program",
                                                                          11));
    const QString program = machine.Scratch() + tail;
    const Outcome outcome = InEventLoop([&] { return Global::instance.LaunchProgram(program); });
    QCOMPARE(outcome.result, 0);
    QVERIFY(outcome.quit);
    QCOMPARE(machine.Messages(), QStringList(LogLine::Starting(program)));
}

#ifdef Q_OS_UNIX
void TestClientProcess::downloadedProgramNeedsNoExecuteBit_posix()
{
    const LoggedMachine machine;
    const StandIn installer(machine.Scratch() + QStringLiteral("/setup.exe"));
    QVERIFY(
        QFile::setPermissions(installer.Path(), QFileDevice::ReadOwner | QFileDevice::WriteOwner));
    InEventLoop([&] { return Global::instance.LaunchProgram(installer.Path()); });
    QVERIFY(installer.WaitForCalls(1));
}
#endif

void TestClientProcess::runningClientIsStopped_data()
{
    QTest::addColumn<bool>("running");
    QTest::newRow("running") << true;
    QTest::newRow("not running") << false;
}

void TestClientProcess::runningClientIsStopped()
{
    QFETCH(bool, running);
    const LoggedMachine machine;
    StandIn tasklist(machine.Command(QStringLiteral("tasklist")));
    tasklist.SetScript(StandIn::Prints(running ? TasklistRow(machine.ClientName()) : noTasks));
    const StandIn taskkill(machine.Command(QStringLiteral("taskkill")));

    StopRunningClient(machine.ClientName());

    QCOMPARE(tasklist.Calls().size(), 1);
    const QStringList call = {QStringLiteral("/im"), machine.ClientName(), QStringLiteral("/f")};
    QCOMPARE(taskkill.Calls(), running ? Calls({call}) : Calls());
    QCOMPARE(machine.Messages(), QStringList());
}

void TestClientProcess::realRunningClientIsStopped()
{
    LoggedMachine machine;
    machine.client.StartAndStay();
    StopRunningClient(machine.ClientName());
    QVERIFY(!machine.client.IsRunning());

    // Nothing is left to be stopped.
    StopRunningClient(machine.ClientName());
    QCOMPARE(machine.Messages(), QStringList());
}

/// Free bytes of a volume change at any moment: compares until they did not while being asked for.
static bool FreeBytesMatch(const QString &path, const QString &volume)
{
    const auto freeBytes = [&volume] {
        return quint64(std::filesystem::space(volume.toStdWString()).free);
    };
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < 20000) {
        const quint64 before = freeBytes();
        const quint64 told = Global::instance.GetDiskFreeBytes(path);
        if (freeBytes() == before && told == before)
            return before > 0;
    }
    return false;
}

void TestClientProcess::freeBytesAreThoseOfTheVolume_data()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("root") << QDir::rootPath();
    QTest::newRow("temporary folder") << QDir::tempPath();
#ifdef Q_OS_LINUX
    QTest::newRow("another volume") << QStringLiteral("/dev/shm");
#endif
}

void TestClientProcess::freeBytesAreThoseOfTheVolume()
{
    QFETCH(QString, path);
    const LoggedMachine machine;
    QVERIFY(FreeBytesMatch(path, path));
    QCOMPARE(machine.Messages(), QStringList());
}

#ifdef Q_OS_UNIX
void TestClientProcess::volumeUnknownToTheHostIsItsRoot_posix()
{
    const LoggedMachine machine;
    for (const char *path : {"C:\\", "C:/", "/wo"})
        QVERIFY(FreeBytesMatch(QString::fromLatin1(path), QStringLiteral("/")));
    QCOMPARE(machine.Messages(), QStringList());
}
#endif

void TestClientProcess::failedFreeBytesAreLoggedAndZero()
{
    const LoggedMachine machine;
    QCOMPARE(Global::instance.GetDiskFreeBytes(QString()), quint64(0));
#ifdef Q_OS_UNIX
    const QString code = QStringLiteral("2");
#else
    const QString code = QStringLiteral("3");
#endif
    QCOMPARE(machine.Messages(), QStringList(LogLine::FreeSpaceFailed(code)));
}

QTEST_GUILESS_MAIN(TestClientProcess)
#include "tst_clientprocess.moc"
