#include "tests/e2e/updaterrun.h"
#include "tests/e2e/windowserver.h"
#include "tests/support/zipmaker.h"

#include <QJsonDocument>
#include <QProcessEnvironment>
#include <QTest>

/// The user in front of the real program, with a real window server between them.
class TestPrompt : public QObject
{
    Q_OBJECT

private slots:
    void TheWindowsFollowTheScreensScale_data();
    void TheWindowsFollowTheScreensScale();
    void LaterStartsTheClientWithoutTheArguments();
    void NeverPromptIsRemembered();
    void SilencingAMuchShorterVersionEndsEveryLaterRun();
    void EscapeInTheOptionalPromptStartsTheClient();
    void EscapeInTheForcedPromptEndsTheRunWithoutTheClient();
    void EnterDoesNotUpdate();
    void AClickUpdatesAndCancellingAsksFirst();
    void RetryDownloadsAgain();

private:
    WindowServer m_windows;
};

namespace
{

const QString kPackage = QStringLiteral("client-2.1.3.zip");
const QString kEnglish = QStringLiteral("App Update");
const QString kChinese = QStringLiteral("应用更新");

constexpr int kOrdinaryDpi = 96;

// Middles of the buttons.
const QPoint kNeverPrompt(32, 252);
const QPoint kLater(290, 254);
const QPoint kUpdate(406, 254);
const QPoint kCancelOrRetry = kUpdate;
const QPoint kKeepGoing(262, 255);
const QPoint kCancelForGood(315, 255);

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
    return QFile::exists(run.home.ClientFolder() + QStringLiteral("/new.txt"));
}

QJsonObject Config(const UpdaterRun &run)
{
    return QJsonDocument::fromJson(
               ReadFile(run.home.ProgramFolder() + QStringLiteral("/updateconfig.json")))
        .object();
}

/// Holds the package back after its first 100000 bytes.
void HoldPackage(UpdaterRun &run, const QByteArray &package)
{
    run.server.Script(
        QStringLiteral("/packages/") + kPackage,
        QJsonObject{{QStringLiteral("bodyBase64"), QString::fromLatin1(package.toBase64())},
                    {QStringLiteral("hold"), 100000}});
}

} // namespace

void TestPrompt::TheWindowsFollowTheScreensScale_data()
{
    QTest::addColumn<int>("dpi");
    QTest::addColumn<QSize>("size");

    QTest::newRow("100 %") << 96 << QSize(480, 292);
    QTest::newRow("125 %") << 120 << QSize(600, 365);
    QTest::newRow("150 %") << 144 << QSize(720, 438);
    QTest::newRow("200 %") << 192 << QSize(960, 584);
}

void TestPrompt::TheWindowsFollowTheScreensScale()
{
    QFETCH(int, dpi);
    UpdaterRun run;
    run.Configure();
    const QByteArray package = NewClient();
    run.Publish(package, kPackage);
    HoldPackage(run, package);
    // Stands for the resolution that the screen is set to.
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_FONT_DPI"), QString::number(dpi));
    run.process.setProcessEnvironment(environment);
    run.Start();

    const QString prompt = m_windows.WaitForWindow(kEnglish);
    QTEST(m_windows.Size(prompt), "size");
    m_windows.Click(prompt, kUpdate * dpi / kOrdinaryDpi);
    QTEST(m_windows.Size(m_windows.WaitForWindow(kEnglish, prompt)), "size");
}

void TestPrompt::LaterStartsTheClientWithoutTheArguments()
{
    UpdaterRun run;
    run.Configure();
    run.Publish(NewClient(), kPackage);
    run.Start({QStringLiteral("--profile=x")});
    m_windows.Click(m_windows.WaitForWindow(kEnglish), kLater);
    QCOMPARE(run.WaitForEnd(), 0);
    QVERIFY(run.client.WaitForCalls(1));
    QCOMPARE(run.client.Calls(), QVector<QStringList>{{QStringLiteral("-autoupdate")}});
    QVERIFY(!IsInstalled(run));
    QCOMPARE(Config(run).value(QStringLiteral("noRemind")).toInt(), 0);
}

void TestPrompt::NeverPromptIsRemembered()
{
    UpdaterRun run;
    run.SetLanguage("zh");
    run.Configure();
    run.Publish(NewClient(), kPackage);
    run.Start();
    const QString prompt = m_windows.WaitForWindow(kChinese);
    m_windows.Click(prompt, kNeverPrompt);
    m_windows.Click(prompt, kLater);
    QCOMPARE(run.WaitForEnd(), 0);
    QVERIFY(run.client.WaitForCalls(1));
    QCOMPARE(Config(run).value(QStringLiteral("noRemind")).toInt(), 1);
    QCOMPARE(Config(run).value(QStringLiteral("noRemindVersion")).toString(),
             QStringLiteral("2.1.3"));

    // The next run does not prompt.
    QCOMPARE(run.Run(), 0);
    QVERIFY(run.client.WaitForCalls(2));
}

void TestPrompt::SilencingAMuchShorterVersionEndsEveryLaterRun()
{
    UpdaterRun run;
    run.Configure();
    int calls = 0;
    for (const char *version : {"2.10.10", "3.0.0"}) {
        run.Publish(NewClient(), kPackage,
                    {{QStringLiteral("latestVersion"), QLatin1String(version)}});
        run.Start();
        const QString prompt = m_windows.WaitForWindow(kEnglish);
        m_windows.Click(prompt, kNeverPrompt);
        m_windows.Click(prompt, kLater);
        QCOMPARE(run.WaitForEnd(), 0);
        QVERIFY(run.client.WaitForCalls(++calls));
    }

    const QString unreadable =
        QStringLiteral("[DEBUG] (:0)  Auto Jsondata Error: %1").arg(QJsonParseError::GarbageAtEnd);
    QVERIFY(!run.Log().contains(unreadable));
    const int lines = run.Log().size();
    QCOMPARE(run.Run(), 0);
    const QStringList log = run.Log().mid(lines);
    QVERIFY2(log.contains(unreadable), qPrintable(log.join(QLatin1Char('\n'))));
    QCOMPARE(log.filter(QStringLiteral("starting...")), QStringList());
    QCOMPARE(run.client.Calls().size(), 2);
}

void TestPrompt::EscapeInTheOptionalPromptStartsTheClient()
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

void TestPrompt::EscapeInTheForcedPromptEndsTheRunWithoutTheClient()
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

void TestPrompt::EnterDoesNotUpdate()
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

void TestPrompt::AClickUpdatesAndCancellingAsksFirst()
{
    UpdaterRun run;
    run.Configure();
    const QByteArray package = NewClient();
    run.Publish(package, kPackage);
    HoldPackage(run, package);
    run.Start();
    const QString prompt = m_windows.WaitForWindow(kEnglish);
    m_windows.Click(prompt, kUpdate);
    const QString progress = m_windows.WaitForWindow(kEnglish, prompt);
    QVERIFY(run.server.WaitForRequests(2));

    m_windows.Click(progress, kCancelOrRetry);
    m_windows.Click(progress, kKeepGoing);
    m_windows.Press(progress, QStringLiteral("Escape"));
    m_windows.Click(progress, kCancelForGood);
    QCOMPARE(run.WaitForEnd(), 0);
    QVERIFY(!IsInstalled(run));
    QVERIFY(run.client.Calls().isEmpty());
    QCOMPARE(run.server.Requests().size(), 2);
}

void TestPrompt::RetryDownloadsAgain()
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
    m_windows.Click(prompt, kUpdate);
    const QString progress = m_windows.WaitForWindow(kEnglish, prompt);
    QVERIFY(run.WaitForLog(
        QStringLiteral("[DEBUG] (:0) \"%1\"  md5 check filed").arg(run.PackagePath(kPackage))));
    m_windows.Click(progress, kCancelOrRetry);
    QCOMPARE(run.WaitForEnd(), 0);
    QVERIFY(run.client.WaitForCalls(1));
    QVERIFY(IsInstalled(run));
    QCOMPARE(ReadFile(run.PackagePath(kPackage)), package);
}

QTEST_GUILESS_MAIN(TestPrompt)
#include "tst_prompt.moc"
