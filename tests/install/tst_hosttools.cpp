// SPDX-License-Identifier: MIT
#include "tests/support/standinfile.h"
#include "tests/support/testhome.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTest>

#include <memory>

// The stand-ins for Windows commands in hosttools/.

namespace
{

struct Run {
    int exitCode;
    QByteArray output;
    QByteArray errors;

    QList<QByteArray> Lines() const
    {
        QList<QByteArray> lines = output.split('\n');
        lines.removeLast();
        return lines;
    }
};

Run Start(const char *command, const QStringList &arguments)
{
    QProcess process;
    process.start(QLatin1String(command), arguments);
    if (!process.waitForFinished(30000) || process.exitStatus() != QProcess::NormalExit)
        qFatal("%s does not run: %s", command, qPrintable(process.errorString()));
    return {process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError()};
}

Run TaskList(const QString &imageName)
{
    return Start("tasklist", {QStringLiteral("/FO"), QStringLiteral("CSV"), QStringLiteral("/FI"),
                              QStringLiteral("IMAGENAME eq %1").arg(imageName)});
}

Run TaskKill(const QString &imageName)
{
    return Start("taskkill", {QStringLiteral("/im"), imageName, QStringLiteral("/f")});
}

QString WithBackSlashes(QString path)
{
    return path.replace(QLatin1Char('/'), QLatin1Char('\\'));
}

Run Xcopy(const QString &source, const QString &target)
{
    return Start("xcopy", {QStringLiteral("/y"), QStringLiteral("/e"), QStringLiteral("/i"),
                           QStringLiteral("/q"), WithBackSlashes(source), WithBackSlashes(target)});
}

QByteArray FilesCopied(int count)
{
    return QByteArray::number(count) + " File(s) copied\r\n";
}

const QByteArray noTasks = "INFO: No tasks are running which match the specified criteria.\r\n";

/// Parses the row of tasklist for a process with this name; without a match for other rows.
QRegularExpressionMatch MatchRow(const QByteArray &line, const QString &imageName)
{
    const QRegularExpression row(
        QStringLiteral("^\"%1\",\"(\\d+)\",\"Console\",\"1\",\"\\d{1,3}(,\\d{3})* K\"\r$")
            .arg(QRegularExpression::escape(imageName)));
    return row.match(QString::fromUtf8(line));
}

/// A client that runs until the object is destroyed.
class RunningClient
{
public:
    RunningClient(const TestHome &home, const QString &name)
        : m_standIn(home.Scratch() + QLatin1Char('/') + name)
    {
        m_standIn.StartAndStay();
    }

    QString Name() const { return QFileInfo(m_standIn.Path()).fileName(); }
    bool IsRunning() const { return m_standIn.IsRunning(); }
    const StandIn &File() const { return m_standIn; }

private:
    StandIn m_standIn;
};

} // namespace

class TestHostTools : public QObject
{
    Q_OBJECT

private slots:
    void tasklistListsARunningClient();
    void tasklistListsEveryProcessOfAName();
    void tasklistFindsNamesInAnyCaseAndPrintsThemAsTheyAre();
    void tasklistFindsNamesWithBlanksAndChinese();
    void tasklistFindsScriptsByTheirName();
    void tasklistSaysSoWhenNothingRuns();
    void tasklistTakesNoArgumentForAName();
    void tasklistDoesNotListItself();
    void tasklistWithoutFilterListsEverything();
    void tasklistNoLongerListsWhatHasEnded();
    void tasklistRefusesOtherArguments_data();
    void tasklistRefusesOtherArguments();
    void taskkillEndsEveryProcessOfAName();
    void taskkillSaysSoWhenNothingRuns();
    void taskkillRefusesOtherArguments_data();
    void taskkillRefusesOtherArguments();
    void xcopyCopiesAFolder();
    void xcopyReplacesFilesAndKeepsOthers();
    void xcopyTakesAnyNames_data();
    void xcopyTakesAnyNames();
    void xcopyTakesSlashes();
    void xcopyOfAnEmptyFolder();
    void xcopyWithoutSourceFails();
    void xcopyWithoutTargetFolderFails();
    void xcopyCannotReplaceARunningProgram();
    void xcopyStopsAtTheFirstError();
    void xcopyRefusesOtherArguments_data();
    void xcopyRefusesOtherArguments();
};

void TestHostTools::tasklistListsARunningClient()
{
    const TestHome home;
    const RunningClient client(home, TestHome::UniqueImageName());
    const Run run = TaskList(client.Name());
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.errors, QByteArray());
    const QList<QByteArray> lines = run.Lines();
    QCOMPARE(lines.size(), 2);
    QCOMPARE(lines.at(0),
             QByteArray("\"Image Name\",\"PID\",\"Session Name\",\"Session#\",\"Mem Usage\"\r"));
    const QRegularExpressionMatch row = MatchRow(lines.at(1), client.Name());
    QVERIFY2(row.hasMatch(), lines.at(1).constData());
    QCOMPARE(QFile::symLinkTarget(QStringLiteral("/proc/%1/exe").arg(row.captured(1))),
             QFileInfo(client.File().Path()).canonicalFilePath());
}

void TestHostTools::tasklistListsEveryProcessOfAName()
{
    const TestHome home;
    const QString name = TestHome::UniqueImageName();
    const RunningClient one(home, QStringLiteral("one/") + name);
    const RunningClient two(home, QStringLiteral("two/") + name);
    const RunningClient other(home, QStringLiteral("x") + name);
    const QList<QByteArray> lines = TaskList(name).Lines();
    QCOMPARE(lines.size(), 3);
    QVERIFY(MatchRow(lines.at(1), name).hasMatch());
    QVERIFY(MatchRow(lines.at(2), name).hasMatch());
    QVERIFY(lines.at(1) != lines.at(2));
}

void TestHostTools::tasklistFindsNamesInAnyCaseAndPrintsThemAsTheyAre()
{
    const TestHome home;
    const RunningClient client(home, TestHome::UniqueImageName());
    const QList<QByteArray> lines = TaskList(client.Name().toUpper()).Lines();
    QCOMPARE(lines.size(), 2);
    QVERIFY(MatchRow(lines.at(1), client.Name()).hasMatch());
}

void TestHostTools::tasklistFindsNamesWithBlanksAndChinese()
{
    const TestHome home;
    const RunningClient client(home, QStringLiteral("我的 客户端 ") + TestHome::UniqueImageName());
    const QList<QByteArray> lines = TaskList(client.Name()).Lines();
    QCOMPARE(lines.size(), 2);
    QVERIFY(MatchRow(lines.at(1), client.Name()).hasMatch());
}

void TestHostTools::tasklistFindsScriptsByTheirName()
{
    const TestHome home;
    const QString name = TestHome::UniqueImageName();
    const QString path = home.Scratch() + QLatin1Char('/') + name;
    WriteFile(path, "#!/bin/sh\necho ready\nread line\n");
    QVERIFY(QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::ExeOwner));
    QProcess script;
    script.start(path, QStringList());
    QVERIFY(script.waitForReadyRead(15000));

    const QList<QByteArray> lines = TaskList(name).Lines();
    script.closeWriteChannel();
    QVERIFY(script.waitForFinished(15000));
    QCOMPARE(lines.size(), 2);
    const QRegularExpressionMatch row = MatchRow(lines.at(1), name);
    QVERIFY2(row.hasMatch(), lines.at(1).constData());
}

void TestHostTools::tasklistSaysSoWhenNothingRuns()
{
    const TestHome home;
    const Run run = TaskList(TestHome::UniqueImageName());
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.output, noTasks);
    QCOMPARE(run.errors, QByteArray());
}

void TestHostTools::tasklistTakesNoArgumentForAName()
{
    const TestHome home;
    const QString name = TestHome::UniqueImageName();
    StandIn other(home.Scratch() + QLatin1Char('/') + TestHome::UniqueImageName());
    other.SetScript("stay\n");
    QProcess process;
    process.start(other.Path(), {name, home.Scratch() + QLatin1Char('/') + name});
    QVERIFY(other.WaitForCalls(1));
    const Run run = TaskList(name);
    QVERIFY(QFile::remove(other.Path() + QStringLiteral(".script")));
    QVERIFY(process.waitForFinished(15000));
    QCOMPARE(run.output, noTasks);
}

void TestHostTools::tasklistDoesNotListItself()
{
    const TestHome home;
    // Under another name, because other tests may run the command at this moment.
    const QString copy = TestHome::UniqueImageName();
    const QString folder = home.Scratch() + QStringLiteral("/tools/");
    QDir().mkpath(folder);
    for (const char *file : {"tasklist", "lib.sh"}) {
        const QString path = QStandardPaths::findExecutable(QStringLiteral("tasklist"));
        const QString source = QFileInfo(path).path() + QLatin1Char('/') + QLatin1String(file);
        QVERIFY(QFile::copy(source, folder + QLatin1String(file)));
    }
    QVERIFY(QFile::rename(folder + QStringLiteral("tasklist"), folder + copy));
    const Run run = Start(QFile::encodeName(folder + copy).constData(),
                          {QStringLiteral("/FO"), QStringLiteral("CSV"), QStringLiteral("/FI"),
                           QStringLiteral("IMAGENAME eq ") + copy});
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.output, noTasks);
}

void TestHostTools::tasklistWithoutFilterListsEverything()
{
    const TestHome home;
    const RunningClient one(home, TestHome::UniqueImageName());
    const RunningClient two(home, TestHome::UniqueImageName());
    const Run run = Start("tasklist", {QStringLiteral("/FO"), QStringLiteral("CSV")});
    QCOMPARE(run.exitCode, 0);
    int found = 0;
    for (const QByteArray &line : run.Lines())
        found += MatchRow(line, one.Name()).hasMatch() || MatchRow(line, two.Name()).hasMatch();
    QCOMPARE(found, 2);
}

void TestHostTools::tasklistNoLongerListsWhatHasEnded()
{
    const TestHome home;
    // A child that has ended stays in the process table until waitpid().
    StandIn client(home.Scratch() + QLatin1Char('/') + TestHome::UniqueImageName());
    QProcess process;
    process.start(client.Path(), QStringList());
    QVERIFY(client.WaitForCalls(1));
    const QString name = QFileInfo(client.Path()).fileName();
    QTRY_COMPARE_WITH_TIMEOUT(TaskList(name).output, noTasks, 15000);
    QVERIFY(process.state() == QProcess::NotRunning || process.waitForFinished(15000));
}

void TestHostTools::tasklistRefusesOtherArguments_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("none") << QStringList();
    QTest::newRow("another format") << QStringList({QStringLiteral("/FO"), QStringLiteral("LIST")});
    QTest::newRow("no format") << QStringList(QStringLiteral("/FO"));
    QTest::newRow("another filter")
        << QStringList({QStringLiteral("/FO"), QStringLiteral("CSV"), QStringLiteral("/FI"),
                        QStringLiteral("PID eq 1")});
    QTest::newRow("filter without name")
        << QStringList({QStringLiteral("/FO"), QStringLiteral("CSV"), QStringLiteral("/FI"),
                        QStringLiteral("IMAGENAME eq ")});
    QTest::newRow("another switch") << QStringList(QStringLiteral("/V"));
}

void TestHostTools::tasklistRefusesOtherArguments()
{
    QFETCH(QStringList, arguments);
    const TestHome home;
    const Run run = Start("tasklist", arguments);
    QCOMPARE(run.exitCode, 1);
    QCOMPARE(run.output, QByteArray());
    QVERIFY(run.errors.startsWith("ERROR: Invalid syntax."));
}

void TestHostTools::taskkillEndsEveryProcessOfAName()
{
    const TestHome home;
    const QString name = TestHome::UniqueImageName();
    const RunningClient one(home, QStringLiteral("one/") + name);
    const RunningClient two(home, QStringLiteral("two/") + name);
    const RunningClient other(home, TestHome::UniqueImageName());

    // Windows ignores the case of names.
    const Run run = TaskKill(name.toUpper());

    QCOMPARE(run.exitCode, 0);
    QVERIFY(!one.IsRunning());
    QVERIFY(!two.IsRunning());
    QVERIFY(other.IsRunning());
    QCOMPARE(run.Lines().size(), 2);
    const QRegularExpression line(QStringLiteral("^SUCCESS: The process \"%1\" with PID \\d+ has "
                                                 "been terminated\\.\r$")
                                      .arg(QRegularExpression::escape(name)));
    for (const QByteArray &text : run.Lines())
        QVERIFY2(line.match(QString::fromUtf8(text)).hasMatch(), text.constData());
}

void TestHostTools::taskkillSaysSoWhenNothingRuns()
{
    const TestHome home;
    const QString name = TestHome::UniqueImageName();
    const Run run = TaskKill(name);
    QCOMPARE(run.exitCode, 128);
    QCOMPARE(run.output, QByteArray());
    QCOMPARE(QString::fromUtf8(run.errors),
             QStringLiteral("ERROR: The process \"%1\" not found.\r\n").arg(name));
}

void TestHostTools::taskkillRefusesOtherArguments_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("none") << QStringList();
    QTest::newRow("without force") << QStringList({QStringLiteral("/im"), QStringLiteral("x.exe")});
    QTest::newRow("without name") << QStringList({QStringLiteral("/f"), QStringLiteral("/im")});
    QTest::newRow("force only") << QStringList(QStringLiteral("/f"));
    QTest::newRow("another switch") << QStringList({QStringLiteral("/pid"), QStringLiteral("1")});
}

void TestHostTools::taskkillRefusesOtherArguments()
{
    QFETCH(QStringList, arguments);
    const TestHome home;
    const Run run = Start("taskkill", arguments);
    QCOMPARE(run.exitCode, 1);
    QVERIFY(run.errors.startsWith("ERROR: Invalid syntax."));
}

void TestHostTools::xcopyCopiesAFolder()
{
    const TestHome home;
    const QString source = home.Scratch() + QStringLiteral("/pkg");
    const QString target = home.Scratch() + QStringLiteral("/new/client");
    WriteFile(source + QStringLiteral("/a.txt"), "a");
    WriteFile(source + QStringLiteral("/lib/deep/b.txt"), "b");
    WriteFile(source + QStringLiteral("/.hidden"), "c");
    QDir().mkpath(source + QStringLiteral("/empty"));

    const Run run = Xcopy(source + QStringLiteral("/*"), target);

    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.output, FilesCopied(3));
    QCOMPARE(ReadFile(target + QStringLiteral("/a.txt")), QByteArray("a"));
    QCOMPARE(ReadFile(target + QStringLiteral("/lib/deep/b.txt")), QByteArray("b"));
    QCOMPARE(ReadFile(target + QStringLiteral("/.hidden")), QByteArray("c"));
    QVERIFY(QFileInfo(target + QStringLiteral("/empty")).isDir());
    QVERIFY(!QFile::exists(target + QStringLiteral("/pkg")));
    QVERIFY(QFile::exists(source + QStringLiteral("/a.txt")));
}

void TestHostTools::xcopyReplacesFilesAndKeepsOthers()
{
    const TestHome home;
    const QString source = home.Scratch() + QStringLiteral("/pkg");
    WriteFile(source + QStringLiteral("/lib/a.txt"), "new");
    WriteFile(home.Installed(QStringLiteral("lib/a.txt")), "old and longer");
    WriteFile(home.Installed(QStringLiteral("lib/b.txt")), "kept");
    const QString program = home.Installed(QStringLiteral("lib/a.txt"));
    QVERIFY(QFile::setPermissions(program, QFile::permissions(program) | QFileDevice::ExeOwner |
                                               QFileDevice::ExeUser));

    QCOMPARE(Xcopy(source + QStringLiteral("/*"), home.ClientFolder()).exitCode, 0);
    QCOMPARE(ReadFile(program), QByteArray("new"));
    QCOMPARE(ReadFile(home.Installed(QStringLiteral("lib/b.txt"))), QByteArray("kept"));
    // Execute permission is kept.
    QVERIFY(QFileInfo(program).isExecutable());
}

void TestHostTools::xcopyTakesAnyNames_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("blanks") << QStringLiteral("a  folder");
    QTest::newRow("Chinese") << QStringLiteral("客户端");
    QTest::newRow("quotes") << QStringLiteral("it's \"it\"");
    QTest::newRow("dollar") << QStringLiteral("$HOME `x`");
    QTest::newRow("stars") << QStringLiteral("*a*");
    QTest::newRow("dash first") << QStringLiteral("-rf");
    QTest::newRow("per cent") << QStringLiteral("100%s");
}

void TestHostTools::xcopyTakesAnyNames()
{
    QFETCH(QString, name);
    const TestHome home;
    WriteFile(home.Scratch() + QLatin1Char('/') + name + QStringLiteral("/a.txt"), "a");
    // Relative, so that the name begins with a dash.
    QVERIFY(QDir::setCurrent(home.Scratch()));
    const Run run = Xcopy(name + QStringLiteral("/*"), QStringLiteral("to/") + name);
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.output, FilesCopied(1));
    QCOMPARE(ReadFile(QStringLiteral("to/") + name + QStringLiteral("/a.txt")), QByteArray("a"));
}

void TestHostTools::xcopyTakesSlashes()
{
    const TestHome home;
    WriteFile(home.Scratch() + QStringLiteral("/pkg/a.txt"), "a");
    const Run run = Start("xcopy", {QStringLiteral("/Y"), QStringLiteral("/E"),
                                    home.Scratch() + QStringLiteral("/pkg/*"),
                                    home.Scratch() + QStringLiteral("/to")});
    // A path that begins with a slash is not a switch.
    QCOMPARE(run.exitCode, 0);
    QVERIFY(QFile::exists(home.Scratch() + QStringLiteral("/to/a.txt")));
}

void TestHostTools::xcopyOfAnEmptyFolder()
{
    const TestHome home;
    QDir().mkpath(home.Scratch() + QStringLiteral("/pkg"));
    const Run run = Xcopy(home.Scratch() + QStringLiteral("/pkg/*"), home.ClientFolder());
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.output, FilesCopied(0));
}

void TestHostTools::xcopyWithoutSourceFails()
{
    const TestHome home;
    const QString target = home.Scratch() + QStringLiteral("/to");
    const Run run = Xcopy(home.Scratch() + QStringLiteral("/missing/*"), target);
    QCOMPARE(run.exitCode, 4);
    QCOMPARE(run.output, "File not found - *\r\n" + FilesCopied(0));
    QVERIFY(!QFile::exists(target));
}

void TestHostTools::xcopyWithoutTargetFolderFails()
{
    const TestHome home;
    WriteFile(home.Scratch() + QStringLiteral("/pkg/a.txt"), "a");
    const QString file = home.Scratch() + QStringLiteral("/file");
    WriteFile(file, "in the way");
    const Run run = Xcopy(home.Scratch() + QStringLiteral("/pkg/*"), file + QStringLiteral("/to"));
    QCOMPARE(run.exitCode, 4);
    QCOMPARE(run.output, "Unable to create directory - " + QFile::encodeName(file) + "/to\r\n" +
                             FilesCopied(0));
    QCOMPARE(ReadFile(file), QByteArray("in the way"));
}

void TestHostTools::xcopyCannotReplaceARunningProgram()
{
    const TestHome home;
    const RunningClient client(home, QStringLiteral("to/") + TestHome::UniqueImageName());
    const QByteArray program = ReadFile(client.File().Path());
    WriteFile(home.Scratch() + QStringLiteral("/pkg/") + client.Name(), "new");
    const Run run =
        Xcopy(home.Scratch() + QStringLiteral("/pkg/*"), home.Scratch() + QStringLiteral("/to"));
    QCOMPARE(run.exitCode, 4);
    QVERIFY(run.output.contains("Sharing violation\r\n"));
    QVERIFY(client.IsRunning());
    QVERIFY(ReadFile(client.File().Path()) == program);
}

void TestHostTools::xcopyStopsAtTheFirstError()
{
    const TestHome home;
    const QString source = home.Scratch() + QStringLiteral("/pkg/");
    const QString target = home.Scratch() + QStringLiteral("/to/");
    const RunningClient client(home, QStringLiteral("to/deep/") + TestHome::UniqueImageName());
    // xcopy copies files before folders, each sorted by name.
    const QStringList before{QStringLiteral("a.txt"), QStringLiteral("z.txt"),
                             QStringLiteral("apart/a.txt"), QStringLiteral("deep/A.txt")};
    const QStringList after{QStringLiteral("deep/~.txt"), QStringLiteral("deep/a/a.txt"),
                            QStringLiteral("~last/a.txt")};
    for (const QString &file : before + after)
        WriteFile(source + file, "new");
    WriteFile(source + QStringLiteral("deep/") + client.Name(), "new");

    QCOMPARE(Xcopy(source + QLatin1Char('*'), target).exitCode, 4);

    for (const QString &file : before)
        QVERIFY2(QFile::exists(target + file), qPrintable(file));
    for (const QString &file : after)
        QVERIFY2(!QFile::exists(target + file), qPrintable(file));
}

void TestHostTools::xcopyRefusesOtherArguments_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("none") << QStringList();
    QTest::newRow("no target") << QStringList({QStringLiteral("/y"), QStringLiteral("a\\*")});
    QTest::newRow("too many") << QStringList(
        {QStringLiteral("a\\*"), QStringLiteral("b"), QStringLiteral("c")});
}

void TestHostTools::xcopyRefusesOtherArguments()
{
    QFETCH(QStringList, arguments);
    const TestHome home;
    const Run run = Start("xcopy", arguments);
    QCOMPARE(run.exitCode, 4);
    QVERIFY(run.errors.startsWith("Invalid number of parameters"));
}

QTEST_GUILESS_MAIN(TestHostTools)
#include "tst_hosttools.moc"
