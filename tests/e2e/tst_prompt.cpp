// SPDX-License-Identifier: MIT
#include "tests/support/dialogplaces.h"
#include "tests/support/loglines.h"
#include "tests/support/updaterrun.h"
#include "tests/support/windowserver.h"
#include "tests/support/zipmaker.h"

#include <QJsonDocument>
#include <QProcessEnvironment>
#include <QTest>

/// A user of the real program, with a real window server.
class TestPrompt : public QObject
{
    Q_OBJECT

private slots:
    void theWindowsFollowTheScreensScale_data();
    void theWindowsFollowTheScreensScale();
    void laterStartsTheClientWithoutTheArguments();
    void neverPromptIsRemembered();
    void silencingAMuchShorterVersionEndsEveryLaterRun();
    void escapeInTheOptionalPromptStartsTheClient();
    void escapeInTheForcedPromptEndsTheRunWithoutTheClient();
    void enterDoesNotUpdate();
    void aClickUpdatesAndCancellingAsksFirst();
    void retryDownloadsAgain();

private:
    /// Clicks a button of the updater, by its object name, on a screen of this resolution.
    void Click(const QString &window, const QString &button, int dpi = kOrdinaryDpi) const
    {
        m_windows.Click(window, m_places.buttons[button] * dpi / kOrdinaryDpi);
    }

    static constexpr int kOrdinaryDpi = 96;

    WindowServer m_windows;
    const DialogPlaces m_places = PlacesInDialogs();
};

namespace
{

const QString kPackage = QStringLiteral("client-2.1.3.zip");
const QString kEnglish = QStringLiteral("App Update");
const QString kChinese = QStringLiteral("应用更新");

const QString kNeverPrompt = QStringLiteral("checkRemid");
const QString kLater = QStringLiteral("laterBtn");
const QString kUpdate = QStringLiteral("immedBtn");
const QString kCancelOrRetry = QStringLiteral("cancleBtn");
const QString kKeepGoing = QStringLiteral("cbtn");
const QString kCancelForGood = QStringLiteral("sbtn");

QByteArray NewClient()
{
    return ZipMaker()
        .AddFolder(QStringLiteral("client-2.1.3"))
        .AddFile(QStringLiteral("client-2.1.3/new.txt"), ScriptedServer::Fill(300000),
                 ZipMaker::Stored)
        .Bytes();
}

bool IsInstalled(const UpdaterRun &run)
{
    return QFile::exists(run.Installed(QStringLiteral("new.txt")));
}

QJsonObject Config(const UpdaterRun &run)
{
    return QJsonDocument::fromJson(ReadFile(run.UpdateConfigFile())).object();
}

/// Makes the server stop after the first 100000 bytes of the package.
void HoldPackage(UpdaterRun &run, const QByteArray &package)
{
    run.server.Script(
        QStringLiteral("/packages/") + kPackage,
        QJsonObject{{QStringLiteral("bodyBase64"), QString::fromLatin1(package.toBase64())},
                    {QStringLiteral("hold"), 100000}});
}

} // namespace

void TestPrompt::theWindowsFollowTheScreensScale_data()
{
    QTest::addColumn<int>("dpi");
    QTest::addColumn<QSize>("size");

    QTest::newRow("100 %") << 96 << QSize(480, 292);
    QTest::newRow("125 %") << 120 << QSize(600, 365);
    QTest::newRow("150 %") << 144 << QSize(720, 438);
    QTest::newRow("200 %") << 192 << QSize(960, 584);
}

void TestPrompt::theWindowsFollowTheScreensScale()
{
    QFETCH(int, dpi);
    UpdaterRun run;
    run.Configure();
    const QByteArray package = NewClient();
    run.Publish(package, kPackage);
    HoldPackage(run, package);
    // Sets the scale, as the resolution of the screen would.
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_FONT_DPI"), QString::number(dpi));
    run.process.setProcessEnvironment(environment);
    run.Start();

    const QString prompt = m_windows.WaitForWindow(kEnglish);
    QTEST(m_windows.Size(prompt), "size");
    Click(prompt, kUpdate, dpi);
    QTEST(m_windows.Size(m_windows.WaitForWindow(kEnglish, prompt)), "size");
}

void TestPrompt::laterStartsTheClientWithoutTheArguments()
{
    UpdaterRun run;
    run.Configure();
    run.Publish(NewClient(), kPackage);
    run.Start({QStringLiteral("--profile=x")});
    Click(m_windows.WaitForWindow(kEnglish), kLater);
    QCOMPARE(run.WaitForEnd(), 0);
    QVERIFY(run.client.WaitForCalls(1));
    QCOMPARE(run.client.Calls(), QVector<QStringList>{{QStringLiteral("-autoupdate")}});
    QVERIFY(!IsInstalled(run));
    QCOMPARE(Config(run).value(QStringLiteral("noRemind")).toInt(), 0);
}

void TestPrompt::neverPromptIsRemembered()
{
    UpdaterRun run;
    run.SetLanguage("zh");
    run.Configure();
    run.Publish(NewClient(), kPackage);
    run.Start();
    const QString prompt = m_windows.WaitForWindow(kChinese);
    Click(prompt, kNeverPrompt);
    Click(prompt, kLater);
    QCOMPARE(run.WaitForEnd(), 0);
    QVERIFY(run.client.WaitForCalls(1));
    QCOMPARE(Config(run).value(QStringLiteral("noRemind")).toInt(), 1);
    QCOMPARE(Config(run).value(QStringLiteral("noRemindVersion")).toString(),
             QStringLiteral("2.1.3"));

    // The next run shows no prompt.
    QCOMPARE(run.Run(), 0);
    QVERIFY(run.client.WaitForCalls(2));
}

void TestPrompt::silencingAMuchShorterVersionEndsEveryLaterRun()
{
    UpdaterRun run;
    run.Configure();
    int calls = 0;
    for (const char *version : {"2.10.10", "3.0.0"}) {
        run.Publish(NewClient(), kPackage,
                    {{QStringLiteral("latestVersion"), QLatin1String(version)}});
        run.Start();
        const QString prompt = m_windows.WaitForWindow(kEnglish);
        Click(prompt, kNeverPrompt);
        Click(prompt, kLater);
        QCOMPARE(run.WaitForEnd(), 0);
        QVERIFY(run.client.WaitForCalls(++calls));
    }

    const QString unreadable = LogLine::UpdateConfigDamaged(QJsonParseError::GarbageAtEnd);
    QVERIFY(!run.Log().contains(unreadable));
    const int lines = run.Log().size();
    QCOMPARE(run.Run(), 0);
    const QStringList log = run.Log().mid(lines);
    QVERIFY2(log.contains(unreadable), qPrintable(log.join(QLatin1Char('\n'))));
    QCOMPARE(log.filter(QStringLiteral("starting...")), QStringList());
    QCOMPARE(run.client.Calls().size(), 2);
}

void TestPrompt::escapeInTheOptionalPromptStartsTheClient()
{
    UpdaterRun run;
    run.Configure();
    run.Publish(NewClient(), kPackage);
    run.Start();
    m_windows.Press(m_windows.WaitForWindow(kEnglish), QStringLiteral("Escape"));
    QCOMPARE(run.WaitForEnd(), 0);
    QVERIFY(run.client.WaitForCalls(1));
    QCOMPARE(run.client.Calls().size(), 1);
}

void TestPrompt::escapeInTheForcedPromptEndsTheRunWithoutTheClient()
{
    UpdaterRun run;
    run.Configure();
    run.Publish(NewClient(), kPackage, {{QStringLiteral("update"), QStringLiteral("2")}});
    run.Start();
    m_windows.Press(m_windows.WaitForWindow(kEnglish), QStringLiteral("Escape"));
    QCOMPARE(run.WaitForEnd(), 0);
    QVERIFY(run.Log().filter(QStringLiteral("starting...")).isEmpty());
    QVERIFY(run.client.Calls().isEmpty());
}

void TestPrompt::enterDoesNotUpdate()
{
    UpdaterRun run;
    run.Configure();
    run.Publish(NewClient(), kPackage);
    run.Start();
    // Presses "Later", the first button.
    m_windows.Press(m_windows.WaitForWindow(kEnglish), QStringLiteral("Return"));
    QCOMPARE(run.WaitForEnd(), 0);
    QVERIFY(run.client.WaitForCalls(1));
    QVERIFY(!IsInstalled(run));
    QCOMPARE(run.server.Requests().size(), 1);
}

void TestPrompt::aClickUpdatesAndCancellingAsksFirst()
{
    UpdaterRun run;
    run.Configure();
    const QByteArray package = NewClient();
    run.Publish(package, kPackage);
    HoldPackage(run, package);
    run.Start();
    const QString prompt = m_windows.WaitForWindow(kEnglish);
    Click(prompt, kUpdate);
    const QString progress = m_windows.WaitForWindow(kEnglish, prompt);
    QVERIFY(run.server.WaitForRequests(2));

    Click(progress, kCancelOrRetry);
    Click(progress, kKeepGoing);
    m_windows.Press(progress, QStringLiteral("Escape"));
    Click(progress, kCancelForGood);
    QCOMPARE(run.WaitForEnd(), 0);
    QVERIFY(!IsInstalled(run));
    QVERIFY(run.client.Calls().isEmpty());
    QCOMPARE(run.server.Requests().size(), 2);
}

void TestPrompt::retryDownloadsAgain()
{
    UpdaterRun run;
    run.Configure();
    const QByteArray package = NewClient();
    run.Publish(package, kPackage);
    const QJsonObject whole{
        {QStringLiteral("bodyBase64"), QString::fromLatin1(package.toBase64())}};
    QJsonObject corrupted{
        {QStringLiteral("bodyBase64"), QString::fromLatin1(package.mid(1).toBase64())}};
    run.server.Script(QStringLiteral("/packages/") + kPackage, QJsonArray{corrupted, whole});
    run.Start();
    const QString prompt = m_windows.WaitForWindow(kEnglish);
    Click(prompt, kUpdate);
    const QString progress = m_windows.WaitForWindow(kEnglish, prompt);
    QVERIFY(run.WaitForLog(LogLine::DigestDiffers(run.PackagePath(kPackage))));
    Click(progress, kCancelOrRetry);
    QCOMPARE(run.WaitForEnd(), 0);
    QVERIFY(run.client.WaitForCalls(1));
    QVERIFY(IsInstalled(run));
    QCOMPARE(ReadFile(run.PackagePath(kPackage)), package);
}

QTEST_MAIN(TestPrompt)
#include "tst_prompt.moc"
