// SPDX-License-Identifier: MIT
#include "app/logmessagehandler.h"
#include "config/global.h"
#include "tests/support/environmentvariable.h"
#include "tests/support/localeencoding.h"
#include "tests/support/resourcelimits.h"
#include "tests/support/testhome.h"

#include <QDateTime>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QSemaphore>
#include <QTest>
#include <QTextCodec>
#include <QThread>

#include <algorithm>
#include <memory>
#include <vector>

namespace
{

constexpr qint64 limitBytes = 31457280;

QString LogFolder(const TestHome &home)
{
    return home.Home() + QStringLiteral("/AppData/Local/AutoUpdate");
}

QString LogFile(const TestHome &home)
{
    return LogFolder(home) + QStringLiteral("/AutoUpdate.log");
}

void Log(const QString &text, QtMsgType type = QtInfoMsg, const char *file = nullptr, int line = 0)
{
    LogMessageHandler(type, QMessageLogContext(file, line, "function", "default"), text);
}

/// The line without its time; complains when there is none.
QString WithoutTime(const QString &line)
{
    static const QRegularExpression time(
        QStringLiteral("^\\[\\d{4}-\\d{2}-\\d{2} \\d{2}:\\d{2}:\\d{2}\\] "));
    if (!line.contains(time))
        return QStringLiteral("no time: ") + line;
    return QString(line).remove(time);
}

QStringList LinesWithoutTime(const TestHome &home)
{
    QStringList lines = home.LogLines();
    std::transform(lines.begin(), lines.end(), lines.begin(), WithoutTime);
    return lines;
}

/// Creates a log file of exactly @p size bytes.
void MakeOldLog(const TestHome &home, qint64 size)
{
    WriteFile(LogFile(home), "old text\r\n");
    QVERIFY(QFile::resize(LogFile(home), size));
}

/// Installs the message handler while it lives.
class Installed
{
public:
    Installed() : m_oldHandler(qInstallMessageHandler(LogMessageHandler)) {}
    ~Installed() { qInstallMessageHandler(m_oldHandler); }
    Q_DISABLE_COPY(Installed)

private:
    QtMessageHandler m_oldHandler;
};

QString Now()
{
    return QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd hh:mm:ss"));
}

} // namespace

Q_DECLARE_METATYPE(QtMsgType)

class TestLogMessageHandler : public QObject
{
    Q_OBJECT

private slots:
    void firstRunMakesTheFolderAndStartsTheFile();
    void everyLevelHasItsWord_data();
    void everyLevelHasItsWord();
    void sourceLocationIsShortenedAfterTheLastSlash_data();
    void sourceLocationIsShortenedAfterTheLastSlash();
    void timeIsTheLocalTimeOfTheMessage_data();
    void timeIsTheLocalTimeOfTheMessage();
    void timeGoesOnFromLineToLine();
    void messagesAreWrittenAsTheyAre_data();
    void messagesAreWrittenAsTheyAre();
    void textIsInTheEncodingOfTheSystem();
    void textFollowsTheEncodingOfTheLocale();
    void linesAreAppendedToWhatIsThere();
    void eachLineIsOnDiskAtOnceAndTheFileIsNotHeldOpen();
    void logIsEmptiedOnlyWhenLargerThanTheLimit_data();
    void logIsEmptiedOnlyWhenLargerThanTheLimit();
    void emptiedLogGrowsAgain();
    void messageIsDroppedWhenTheFolderCannotBeMade();
    void messageIsDroppedWhenTheFileCannotBeOpened();
#ifdef Q_OS_UNIX
    void messageIsDroppedWhenTheDiskIsFull_posix();
#endif
    void messagesOfQtEndUpInTheFile();
    void linesOfTheProgramItselfShowNoLocation();
    void twoThreadsNeverMixTheirLines();
    void limitHoldsWhileTwoThreadsWrite();
};

void TestLogMessageHandler::firstRunMakesTheFolderAndStartsTheFile()
{
    const TestHome home;
    QVERIFY(!QFile::exists(home.Home() + QStringLiteral("/AppData")));

    Log(QStringLiteral("first"));

    QVERIFY(QDir(LogFolder(home)).exists());
    QCOMPARE(QDir(LogFolder(home)).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
             QStringList(QStringLiteral("AutoUpdate.log")));
    const QString content = QString::fromUtf8(ReadFile(LogFile(home)));
    QCOMPARE(WithoutTime(content), QStringLiteral("[INFO] (:0) first\r\n"));
}

void TestLogMessageHandler::everyLevelHasItsWord_data()
{
    QTest::addColumn<QtMsgType>("type");
    QTest::addColumn<QString>("line");
    QTest::newRow("debug") << QtDebugMsg << QStringLiteral("[DEBUG] (:0) text");
    QTest::newRow("warning") << QtWarningMsg << QStringLiteral("[WARNING] (:0) text");
    QTest::newRow("info") << QtInfoMsg << QStringLiteral("[INFO] (:0) text");
    QTest::newRow("critical") << QtCriticalMsg << QStringLiteral("[] (:0) text");
    QTest::newRow("fatal") << QtFatalMsg << QStringLiteral("[] (:0) text");
}

void TestLogMessageHandler::everyLevelHasItsWord()
{
    QFETCH(QtMsgType, type);
    QFETCH(QString, line);
    const TestHome home;
    Log(QStringLiteral("text"), type);
    QCOMPARE(LinesWithoutTime(home), QStringList(line));
}

void TestLogMessageHandler::sourceLocationIsShortenedAfterTheLastSlash_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<int>("line");
    QTest::addColumn<QString>("location");
    QTest::newRow("none") << QByteArray() << 0 << QStringLiteral("(:0)");
    QTest::newRow("line only") << QByteArray() << 12 << QStringLiteral("(:12)");
    QTest::newRow("bare name") << QByteArray("main") << 42 << QStringLiteral("(main:42)");
    QTest::newRow("folders") << QByteArray("src/net/worker") << 17 << QStringLiteral("(worker:17)");
    QTest::newRow("from the root")
        << QByteArray("/main.cpp") << 1 << QStringLiteral("(main.cpp:1)");
    QTest::newRow("back-slashes separate nothing")
        << QByteArray("C:\\src\\worker") << 17 << QStringLiteral("(C:\\src\\worker:17)");
    QTest::newRow("both slashes") << QByteArray("C:\\src/net\\worker") << 3
                                  << QStringLiteral("(net\\worker:3)");
    QTest::newRow("nothing after the slash") << QByteArray("src/") << 5 << QStringLiteral("(:5)");
    QTest::newRow("place-holders") << QByteArray("src/%2%1") << 9 << QStringLiteral("(%2%1:9)");
    QTest::newRow("large line") << QByteArray("a") << 1234567 << QStringLiteral("(a:1234567)");
}

void TestLogMessageHandler::sourceLocationIsShortenedAfterTheLastSlash()
{
    QFETCH(QByteArray, file);
    QFETCH(int, line);
    QFETCH(QString, location);
    const TestHome home;
    Log(QStringLiteral("text"), QtInfoMsg, file.isNull() ? nullptr : file.constData(), line);
    QCOMPARE(LinesWithoutTime(home), QStringList(QStringLiteral("[INFO] %1 text").arg(location)));
}

void TestLogMessageHandler::timeIsTheLocalTimeOfTheMessage_data()
{
    // Windows ignores the variable; elsewhere it is the time zone. With two zones, one of them
    // differs from UTC and from the machine's own.
    QTest::addColumn<QByteArray>("zone");
    QTest::newRow("east of Greenwich") << QByteArray("JST-9");
    QTest::newRow("west of Greenwich") << QByteArray("MST7");
}

void TestLogMessageHandler::timeIsTheLocalTimeOfTheMessage()
{
    QFETCH(QByteArray, zone);
    const TestHome home;
    const EnvironmentVariable timeZone("TZ", zone);
    const QString before = Now();
    Log(QStringLiteral("text"));
    const QString after = Now();

    const QString line = home.LogLines().value(0);
    QVERIFY(line.startsWith(QLatin1Char('[')));
    QCOMPARE(line.mid(20), QStringLiteral("] [INFO] (:0) text"));
    const QString logged = line.mid(1, 19);
    QVERIFY2(logged >= before && logged <= after, qPrintable(line));
#ifdef Q_OS_UNIX
    QVERIFY(QDateTime::currentDateTime().offsetFromUtc() != 0);
#endif
}

void TestLogMessageHandler::timeGoesOnFromLineToLine()
{
    const TestHome home;
    Log(QStringLiteral("text"));
    const qint64 first = QDateTime::currentSecsSinceEpoch();
    QTRY_VERIFY(QDateTime::currentSecsSinceEpoch() > first);
    Log(QStringLiteral("text"));
    const QStringList lines = home.LogLines();
    QCOMPARE(lines.size(), 2);
    QVERIFY2(lines.first().left(20) < lines.last().left(20), qPrintable(lines.last()));
}

void TestLogMessageHandler::messagesAreWrittenAsTheyAre_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("empty") << QString();
    QTest::newRow("place-holders") << QStringLiteral("%1 %2 %3 %4 %% 100 %");
    QTest::newRow("quotes") << QStringLiteral("cmd line parameters : \"-immediately\"");
    QTest::newRow("two blanks") << QStringLiteral("\"file\"  Not exists");
    QTest::newRow("line feed stays bare") << QStringLiteral("one\ntwo");
    QTest::newRow("blanks at the ends") << QStringLiteral("  text  ");
    QTest::newRow("long") << QString(100000, QLatin1Char('x'));
}

void TestLogMessageHandler::messagesAreWrittenAsTheyAre()
{
    QFETCH(QString, text);
    const TestHome home;
    Log(text);
    const QString content = QString::fromUtf8(ReadFile(LogFile(home)));
    QCOMPARE(WithoutTime(content), QStringLiteral("[INFO] (:0) ") + text + QStringLiteral("\r\n"));
}

void TestLogMessageHandler::textIsInTheEncodingOfTheSystem()
{
    const TestHome home;
    const QString text = QStringLiteral("路径 C:/用户/é");
    Log(text);
    const QByteArray expected =
        QTextCodec::codecForLocale()->fromUnicode(QStringLiteral("[INFO] (:0) ") + text);
    QCOMPARE(ReadFile(LogFile(home)).mid(int(qstrlen("[2023-05-04 10:15:02] "))),
             expected + "\r\n");
}

void TestLogMessageHandler::textFollowsTheEncodingOfTheLocale()
{
    const TestHome home;
    const LocaleEncoding western("ISO-8859-1");
    Log(QStringLiteral("caf\u00e9"));
    const QByteArray log = ReadFile(LogFile(home));
    QVERIFY2(log.endsWith(" caf\xe9\r\n"), log.constData());
}

void TestLogMessageHandler::linesAreAppendedToWhatIsThere()
{
    const TestHome home;
    WriteFile(LogFile(home), "from the last run\r\n");
    Log(QStringLiteral("one"), QtDebugMsg);
    Log(QStringLiteral("two"), QtWarningMsg);

    QStringList lines = home.LogLines();
    QCOMPARE(lines.size(), 3);
    QCOMPARE(lines.takeFirst(), QStringLiteral("from the last run"));
    QCOMPARE(WithoutTime(lines.at(0)), QStringLiteral("[DEBUG] (:0) one"));
    QCOMPARE(WithoutTime(lines.at(1)), QStringLiteral("[WARNING] (:0) two"));
}

void TestLogMessageHandler::eachLineIsOnDiskAtOnceAndTheFileIsNotHeldOpen()
{
    const TestHome home;
    Log(QStringLiteral("one"));
    QCOMPARE(home.LogLines().size(), 1);

    // Windows does not remove an open file.
    QVERIFY(QFile::remove(LogFile(home)));
    Log(QStringLiteral("two"));
    QCOMPARE(LinesWithoutTime(home), QStringList(QStringLiteral("[INFO] (:0) two")));

    QVERIFY(QDir(home.Home() + QStringLiteral("/AppData")).removeRecursively());
    Log(QStringLiteral("three"));
    QCOMPARE(LinesWithoutTime(home), QStringList(QStringLiteral("[INFO] (:0) three")));
}

void TestLogMessageHandler::logIsEmptiedOnlyWhenLargerThanTheLimit_data()
{
    QTest::addColumn<qint64>("size");
    QTest::addColumn<bool>("emptied");
    QTest::newRow("one byte less") << limitBytes - 1 << false;
    QTest::newRow("exactly the limit") << limitBytes << false;
    QTest::newRow("one byte more") << limitBytes + 1 << true;
    QTest::newRow("much more") << 2 * limitBytes << true;
}

void TestLogMessageHandler::logIsEmptiedOnlyWhenLargerThanTheLimit()
{
    QFETCH(qint64, size);
    QFETCH(bool, emptied);
    const TestHome home;
    MakeOldLog(home, size);

    Log(QStringLiteral("next"));

    const QByteArray line = "[2023-05-04 10:15:02] [INFO] (:0) next\r\n";
    QCOMPARE(QFileInfo(LogFile(home)).size(), (emptied ? 0 : size) + line.size());
    QFile log(LogFile(home));
    QVERIFY(log.open(QIODevice::ReadOnly));
    QCOMPARE(log.read(10) == "old text\r\n", !emptied);
    QVERIFY(log.seek(log.size() - line.size()));
    QCOMPARE(WithoutTime(QString::fromUtf8(log.readAll())), QStringLiteral("[INFO] (:0) next\r\n"));
    // The old content is lost; there is no other file.
    QCOMPARE(QDir(LogFolder(home)).entryList(QDir::Files),
             QStringList(QStringLiteral("AutoUpdate.log")));
}

void TestLogMessageHandler::emptiedLogGrowsAgain()
{
    const TestHome home;
    MakeOldLog(home, limitBytes + 1);
    Log(QStringLiteral("one"));
    Log(QStringLiteral("two"));
    QCOMPARE(LinesWithoutTime(home),
             QStringList({QStringLiteral("[INFO] (:0) one"), QStringLiteral("[INFO] (:0) two")}));
}

void TestLogMessageHandler::messageIsDroppedWhenTheFolderCannotBeMade()
{
    const TestHome home;
    WriteFile(home.Home() + QStringLiteral("/AppData"), "a file in the folder's place");
    Log(QStringLiteral("lost"));
    QCOMPARE(ReadFile(home.Home() + QStringLiteral("/AppData")),
             QByteArray("a file in the folder's place"));

    // The next message is written.
    QVERIFY(QFile::remove(home.Home() + QStringLiteral("/AppData")));
    Log(QStringLiteral("kept"));
    QCOMPARE(LinesWithoutTime(home), QStringList(QStringLiteral("[INFO] (:0) kept")));
}

void TestLogMessageHandler::messageIsDroppedWhenTheFileCannotBeOpened()
{
    const TestHome home;
    QVERIFY(QDir().mkpath(LogFile(home)));
    Log(QStringLiteral("lost"));
    QVERIFY(QFileInfo(LogFile(home)).isDir());
    QVERIFY(QDir(LogFile(home)).isEmpty());

    QVERIFY(QDir().rmdir(LogFile(home)));
    Log(QStringLiteral("kept"));
    QCOMPARE(LinesWithoutTime(home), QStringList(QStringLiteral("[INFO] (:0) kept")));
}

#ifdef Q_OS_UNIX
void TestLogMessageHandler::messageIsDroppedWhenTheDiskIsFull_posix()
{
    const TestHome home;
    {
        const FullDisk full;
        Log(QStringLiteral("lost"));
    }
    Log(QStringLiteral("kept"));
    QCOMPARE(LinesWithoutTime(home), QStringList(QStringLiteral("[INFO] (:0) kept")));
}
#endif

void TestLogMessageHandler::messagesOfQtEndUpInTheFile()
{
    const TestHome home;
    {
        const Installed installed;
        qDebug() << "debug:" << 5;
        qInfo() << "cmd line parameters :" << QStringLiteral("-immediately");
        qWarning() << QStringLiteral("a \"b\"") << " c";
        qCritical() << "critical";
        QMessageLogger("src/net/worker", 17, "function").info() << "located";
    }
    QCOMPARE(LinesWithoutTime(home),
             QStringList({QStringLiteral("[DEBUG] (:0) debug: 5"),
                          QStringLiteral("[INFO] (:0) cmd line parameters : \"-immediately\""),
                          QStringLiteral("[WARNING] (:0) \"a \\\"b\\\"\"  c"),
                          QStringLiteral("[] (:0) critical"),
                          QStringLiteral("[INFO] (worker:17) located")}));
}

void TestLogMessageHandler::linesOfTheProgramItselfShowNoLocation()
{
    const TestHome home;
    Global &global = Global::instance;
    {
        const Installed installed;
        QCOMPARE(global.ReadConfig(), -1);
        QVERIFY(global.GetDiskFreeBytes(QDir::rootPath()) > 0);
        global.scriptPath = home.Home() + QStringLiteral("/script");
        global.WriteScript(QStringLiteral("text"));
    }
    QCOMPARE(LinesWithoutTime(home),
             QStringList({QStringLiteral("[DEBUG] (:0) updateconfig.json open failed: 0"),
                          QStringLiteral("[INFO] (:0) cmdscpt write successed")}));
}

/// Lets two threads call @p write at the same time, @p count times each, with the name of the
/// thread, the number of the call and @p size letters.
static void WriteFromTwoThreads(int count, int size, void (*write)(const QString &text))
{
    QSemaphore ready;
    QSemaphore go;
    std::vector<std::unique_ptr<QThread>> threads;
    for (const char *name : {"one", "two"}) {
        threads.emplace_back(QThread::create([&, name, count, size] {
            ready.release();
            go.acquire();
            for (int index = 0; index < count; ++index)
                write(QStringLiteral("%1 %2 %3")
                          .arg(QLatin1String(name))
                          .arg(index)
                          .arg(QString(size, QLatin1Char(name[0]))));
        }));
        threads.back()->start();
    }
    ready.acquire(2);
    go.release(2);
    for (const auto &thread : threads)
        QVERIFY(thread->wait(60000));
}

void TestLogMessageHandler::twoThreadsNeverMixTheirLines()
{
    constexpr int count = 200;
    // Larger than any buffer, so that a line needs several writes.
    constexpr int size = 60000;
    const TestHome home;
    {
        const Installed installed;
        WriteFromTwoThreads(count, size, [](const QString &text) { qInfo().noquote() << text; });
    }

    // Every line is whole, and the lines of each thread are in order.
    const QStringList lines = LinesWithoutTime(home);
    QCOMPARE(lines.size(), 2 * count);
    for (const char *name : {"one", "two"}) {
        const QString head = QStringLiteral("[INFO] (:0) %1 ").arg(QLatin1String(name));
        const QStringList own =
            lines.filter(QRegularExpression(QLatin1Char('^') + QRegularExpression::escape(head)));
        QCOMPARE(own.size(), count);
        for (int index = 0; index < count; ++index)
            QVERIFY(own.at(index) == head + QString::number(index) + QLatin1Char(' ') +
                                         QString(size, QLatin1Char(name[0])));
    }
}

void TestLogMessageHandler::limitHoldsWhileTwoThreadsWrite()
{
    constexpr int count = 200;
    const TestHome home;
    MakeOldLog(home, limitBytes + 1);
    WriteFromTwoThreads(count, 200, [](const QString &text) { Log(text); });

    // The file is emptied once, before the first line, so no line is lost.
    QCOMPARE(home.LogLines().size(), 2 * count);
}

QTEST_GUILESS_MAIN(TestLogMessageHandler)
#include "tst_logmessagehandler.moc"
