// SPDX-License-Identifier: MIT
#include "tests/support/dialogplaces.h"
#include "tests/support/loglines.h"
#include "tests/support/updaterrun.h"
#include "tests/support/windowserver.h"
#include "tests/support/zipmaker.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QSharedMemory>
#include <QTest>

#ifdef Q_OS_LINUX
#include <sys/stat.h>
#endif

/// The sample client and the real updater, with a user.
class TestSampleClient : public QObject
{
    Q_OBJECT

private slots:
    void aSecondStartHandsItsArgumentsOver();
    void aLinkComesThroughTheUpdater_data();
    void aLinkComesThroughTheUpdater();
    void doubtfulArgumentsAreRefused_data();
    void doubtfulArgumentsAreRefused();
    void notesAreShownUntilTheUserHasClosedThem();
#ifdef Q_OS_LINUX
    void notesLoadNothing();
#endif
    void theUpdaterSpeaksTheClientsLanguage();
    void anUpdateBeginsWithTheClientsButton();
    void aClientIsStartedOnceAfterACheckWithoutAnOffer();

private:
    WindowServer m_windows;
};

namespace
{

const QString kOldClient = QStringLiteral("Sample Client 1.0.0");
const QString kNewClient = QStringLiteral("Sample Client 2.1.3");
const QString kPrompt = QStringLiteral("App Update");
const QString kChinesePrompt = QStringLiteral("应用更新");
const QString kReturn = QStringLiteral("Return");
const QString kVersionFile = QStringLiteral("~version/version.json");

// The centres of buttons in the client's window.
const QPoint kLanguage(45, 270);
const QPoint kCheck(410, 270);

const QByteArray kMarker("isShowUpdataInfo.txt");
const QByteArray kNotes("update.log");
const QByteArray kLanguageFile("language.txt");
const QByteArray kSession("session.json");

/// The installed sample client 1.0.0 with the updater.
class Installation
{
public:
    Installation();
    ~Installation() { Kill(); }

    UpdaterRun run;

    void Start(const QStringList &arguments = {}) const;

    /// Starts a second copy and waits for its end; returns its exit code, or -1 when it keeps
    /// running.
    int StartAgain(const QStringList &arguments) const;

    /// Ends the client as the updater does.
    void Kill() const;

    QString Path(const QByteArray &name) const;
    bool Has(const QByteArray &name) const { return QFile::exists(Path(name)); }
    void Leave(const QByteArray &name, const QByteArray &content) const;

    QString SavedMeeting() const { return Saved(QStringLiteral("meeting")); }
    QString SavedDraft() const { return Saved(QStringLiteral("draft")); }

    /// Waits until no updater runs.
    bool WaitForUpdatersEnd() const;

private:
    QString Saved(const QString &key) const;
};

Installation::Installation()
{
    run.Configure({{QStringLiteral("appConfigFile"), kVersionFile}});
    WriteFile(run.ClientFolder() + QLatin1Char('/') + kVersionFile,
              R"({"client": {"version": "1.0.0"}})");
    QFile::remove(run.client.Path());
    if (!QFile::copy(QStringLiteral(SAMPLE_CLIENT), run.client.Path()))
        qFatal("cannot copy the client to %s", qPrintable(run.client.Path()));
}

void Installation::Start(const QStringList &arguments) const
{
    if (!QProcess::startDetached(run.client.Path(), arguments, run.ProgramFolder()))
        qFatal("the client does not start");
}

int Installation::StartAgain(const QStringList &arguments) const
{
    QProcess second;
    second.start(run.client.Path(), arguments);
    return second.waitForFinished() ? second.exitCode() : -1;
}

void Installation::Kill() const
{
    QProcess taskkill;
    taskkill.start(QStringLiteral("taskkill"),
                   {QStringLiteral("/im"), run.ClientName(), QStringLiteral("/f")});
    taskkill.waitForFinished();
}

QString Installation::Path(const QByteArray &name) const
{
    return run.ClientDataFolder() + QLatin1Char('/') + QString::fromLatin1(name);
}

void Installation::Leave(const QByteArray &name, const QByteArray &content) const
{
    WriteFile(Path(name), content);
}

QString Installation::Saved(const QString &key) const
{
    if (!Has(kSession))
        return QString();
    return QJsonDocument::fromJson(ReadFile(Path(kSession))).object().value(key).toString();
}

bool Installation::WaitForUpdatersEnd() const
{
    return QTest::qWaitFor([] { return QSharedMemory(QStringLiteral("ZellAutoUpdate")).create(1); },
                           30000);
}

/// Publishes a client whose configuration has version 2.1.3.
void PublishNewClient(UpdaterRun &run)
{
    const QString folder = QStringLiteral("client-2.1.3");
    const QByteArray package = ZipMaker()
                                   .AddFolder(folder)
                                   .AddFolder(folder + QStringLiteral("/~version"))
                                   .AddFile(folder + QLatin1Char('/') + kVersionFile,
                                            R"({"client": {"version": "2.1.3"}})")
                                   .Bytes();
    run.Publish(package, folder + QStringLiteral(".zip"));
}

void AnswerThatThereIsNothingNewer(UpdaterRun &run)
{
    run.AnswerCheck({{QStringLiteral("update"), QStringLiteral("0")}});
}

} // namespace

void TestSampleClient::aSecondStartHandsItsArgumentsOver()
{
    const Installation client;
    client.Start();
    m_windows.WaitForWindow(kOldClient);

    QCOMPARE(client.StartAgain({QStringLiteral("--profile"), QStringLiteral("two words"),
                                QStringLiteral("--url=host/room?id=7")}),
             0);
    m_windows.WaitForWindow(kOldClient + QStringLiteral(" - two words"));
    QVERIFY(!m_windows.HasWindow(kOldClient));
    QCOMPARE(client.SavedMeeting(), QStringLiteral("host/room?id=7"));
}

void TestSampleClient::aLinkComesThroughTheUpdater_data()
{
    QTest::addColumn<bool>("runs");
    QTest::newRow("to a client that runs") << true;
    QTest::newRow("to one that does not") << false;
}

void TestSampleClient::aLinkComesThroughTheUpdater()
{
    QFETCH(bool, runs);
    Installation client;
    AnswerThatThereIsNothingNewer(client.run);
    if (runs) {
        client.Start();
        m_windows.WaitForWindow(kOldClient);
    }
    QCOMPARE(client.run.Run({QStringLiteral("qorb-meeting://host/room?id=7")}), 0);
    QTRY_COMPARE_WITH_TIMEOUT(client.SavedMeeting(), QStringLiteral("host/room?id=7"), 15000);
    m_windows.WaitForWindow(kOldClient);
}

void TestSampleClient::doubtfulArgumentsAreRefused_data()
{
    QTest::addColumn<QStringList>("doubtful");
    const QString url = QStringLiteral("--url=host");
    QTest::newRow("a quote") << QStringList{url + QLatin1Char('"')};
    QTest::newRow("a blank") << QStringList{url + QStringLiteral(" --open")};
    QTest::newRow("a link and an unknown one") << QStringList{url, QStringLiteral("--open")};
    QTest::newRow("one of Qt's") << QStringList{QStringLiteral("-stylesheet"), url};
    QTest::newRow("a profile without a name") << QStringList{url, QStringLiteral("--profile")};
}

void TestSampleClient::doubtfulArgumentsAreRefused()
{
    QFETCH(QStringList, doubtful);
    const Installation client;
    client.Start(doubtful);
    m_windows.WaitForWindow(kOldClient);
    // Starts are handled in order.
    QCOMPARE(client.StartAgain(doubtful), 0);
    QCOMPARE(client.StartAgain({QStringLiteral("--profile"), QStringLiteral("x")}), 0);
    m_windows.WaitForWindow(kOldClient + QStringLiteral(" - x"));
    QVERIFY(!client.Has(kSession));
}

void TestSampleClient::notesAreShownUntilTheUserHasClosedThem()
{
    const QString notes = QStringLiteral("New in 1.0.0");
    const Installation client;
    client.Leave(kNotes, "<b>A white board</b>");
    client.Leave(kMarker, "1");

    client.Start();
    m_windows.WaitForWindow(notes);
    QVERIFY(client.Has(kMarker));
    client.Kill();

    client.Start();
    m_windows.Press(m_windows.WaitForWindow(notes), kReturn);
    QTRY_VERIFY(!client.Has(kMarker));
    QTRY_VERIFY(!m_windows.HasWindow(notes));
    client.Kill();

    client.Start();
    m_windows.WaitForWindow(kOldClient);
    QCOMPARE(client.StartAgain({QStringLiteral("--profile"), QStringLiteral("x")}), 0);
    m_windows.WaitForWindow(kOldClient + QStringLiteral(" - x"));
    QVERIFY(!m_windows.HasWindow(notes));
}

#ifdef Q_OS_LINUX
void TestSampleClient::notesLoadNothing()
{
    const Installation client;
    // Opening this pipe would block.
    const QByteArray picture = QFile::encodeName(client.run.Scratch()) + "/picture.png";
    QCOMPARE(mkfifo(picture.constData(), S_IRUSR | S_IWUSR), 0);
    client.Leave(kNotes, "<p>New<img src=\"" + picture + "\"></p>");
    client.Leave(kMarker, "1");
    client.Start();
    m_windows.Press(m_windows.WaitForWindow(QStringLiteral("New in 1.0.0")), kReturn);
    QTRY_VERIFY(!client.Has(kMarker));
}
#endif

void TestSampleClient::theUpdaterSpeaksTheClientsLanguage()
{
    Installation client;
    PublishNewClient(client.run);
    client.Start();
    const QString window = m_windows.WaitForWindow(kOldClient);
    m_windows.Click(window, kLanguage);
    m_windows.WaitForWindow(QStringLiteral("示例客户端 1.0.0"));
    QCOMPARE(ReadFile(client.Path(kLanguageFile)), QByteArray("zh"));
    client.run.Start({QStringLiteral("-noremid")});
    m_windows.WaitForWindow(kChinesePrompt);
    client.run.process.kill();
    client.run.process.waitForFinished();
    QVERIFY(client.run.Log().contains(client.run.ConfigurationLine())); // which has the version

    // It was behind the prompt.
    QCOMPARE(client.StartAgain({}), 0);
    m_windows.Click(window, kLanguage);
    m_windows.WaitForWindow(kOldClient);
    QCOMPARE(ReadFile(client.Path(kLanguageFile)), QByteArray("en"));
    client.run.Start({QStringLiteral("-noremid")});
    m_windows.WaitForWindow(kPrompt);
}

void TestSampleClient::anUpdateBeginsWithTheClientsButton()
{
    Installation client;
    PublishNewClient(client.run);
    client.Start();
    const QString window = m_windows.WaitForWindow(kOldClient);
    m_windows.Press(window, kReturn); // typed into the draft
    QTRY_COMPARE(client.SavedDraft(), QStringLiteral("\n"));

    m_windows.Click(window, kCheck);
    m_windows.Click(m_windows.WaitForWindow(kPrompt),
                    PlacesInDialogs().buttons[QStringLiteral("immedBtn")]);
    m_windows.WaitForWindow(kNewClient);
    QVERIFY(client.run.Log().contains(LogLine::CommandLineParameter(QStringLiteral("-noremid"))));
    m_windows.Press(m_windows.WaitForWindow(QStringLiteral("New in 2.1.3")), kReturn);
    QTRY_VERIFY(!client.Has(kMarker));
    QCOMPARE(client.SavedDraft(), QStringLiteral("\n"));
    QVERIFY(client.WaitForUpdatersEnd());
}

void TestSampleClient::aClientIsStartedOnceAfterACheckWithoutAnOffer()
{
    Installation client;
    AnswerThatThereIsNothingNewer(client.run);
    client.Start({QStringLiteral("--profile"), QStringLiteral("x")});
    const QString title = kOldClient + QStringLiteral(" - x");
    m_windows.Click(m_windows.WaitForWindow(title), kCheck);
    QVERIFY(client.run.WaitForLog(LogLine::Starting(client.run.ClientName())));
    QVERIFY(client.WaitForUpdatersEnd());
    // A second client would have no profile.
    QVERIFY(m_windows.HasWindow(title));
    QVERIFY(!m_windows.HasWindow(kOldClient));
    QCOMPARE(client.StartAgain({QStringLiteral("--profile"), QStringLiteral("y")}), 0);
    m_windows.WaitForWindow(kOldClient + QStringLiteral(" - y"));
    QVERIFY(!m_windows.HasWindow(title));
}

QTEST_MAIN(TestSampleClient)
#include "tst_sampleclient.moc"
