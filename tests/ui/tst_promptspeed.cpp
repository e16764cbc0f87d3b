// SPDX-License-Identifier: MIT
#include "tests/support/logcapture.h"
#include "tests/support/testhome.h"
#include "tests/ui/dialogs.h"
#include "ui/dwondialog.h"
#include "ui/updatedialog.h"

#include <QLabel>
#include <QPushButton>
#include <QScrollBar>
#include <QTest>
#include <QTextEdit>

#ifdef Q_OS_WIN
#include <qt_windows.h>
#else
#include <ctime>
#endif

namespace
{

constexpr int kAnswerBytes = 8 * 1024 * 1024;

const QString kLogo = QStringLiteral(":/image/resourceimg/logo.png");

#ifdef Q_OS_WIN
/// Processor time of this thread. std::clock() returns elapsed time on Windows.
double Seconds()
{
    FILETIME times[4] = {};
    if (GetThreadTimes(GetCurrentThread(), &times[0], &times[1], &times[2], &times[3]) == 0)
        qFatal("no processor time");
    const auto units = [](FILETIME time) {
        return double((quint64(time.dwHighDateTime) << 32U) + time.dwLowDateTime);
    };
    return (units(times[2]) + units(times[3])) / 1e7;
}
#else
/// Processor time of this process.
double Seconds()
{
    return double(std::clock()) / CLOCKS_PER_SEC;
}
#endif

/// Repeats the text up to the size of the largest answer.
QString Filled(const QString &text)
{
    return text.repeated(kAnswerBytes / text.toUtf8().size());
}

/// Different characters, as many as there are.
QString Ideographs(int count)
{
    QString text;
    for (int i = 0; i < count; ++i)
        text.append(QChar(0x4e00 + i % 20900));
    return text;
}

QString Image(const QString &path, const char *attributes)
{
    return QStringLiteral("<img src=\"%1\" %2>").arg(path, QLatin1String(attributes));
}

/// As many images as an answer can have.
QString Images(const QString &path, const char *attributes)
{
    const QString image = Image(path, attributes);
    return image.repeated(1000);
}

} // namespace

/// Anyone on the network can forge the service's answer, so no answer may freeze the prompt.
class TestPromptSpeed : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void handlesLaterWithinASecond_data();
    void handlesLaterWithinASecond();
    void endlessVersionDoesNotHoldUpTheProgressDialog();

    void showsTheNotesFromTheirStart_data();
    void showsTheNotesFromTheirStart();

private:
    static void AddVersions();
    static void AddPlainNotes();
    static void AddMarkup();
};

void TestPromptSpeed::initTestCase()
{
    Q_INIT_RESOURCE(resources);
}

void TestPromptSpeed::AddVersions()
{
    const auto add = [](const char *name, const QString &version) {
        QTest::addRow("version: %s", name) << Filled(version) << QString();
    };
    add("marks on one letter", QStringLiteral("\u0301"));
    add("letters", QStringLiteral("x"));
    add("ideographs", QStringLiteral("版"));
    add("Arabic", QStringLiteral("\u0633"));
    add("turns of direction", QStringLiteral("\u202ea"));
    add("line breaks", QStringLiteral("\n"));
}

void TestPromptSpeed::AddPlainNotes()
{
    const auto add = [](const char *name, const QString &text) {
        QTest::addRow("plain: %s", name) << QString() << Filled(text);
        // With markup too, whether it is shown as rich text or not.
        QTest::addRow("paragraph: %s", name)
            << QString()
            << QStringLiteral("<p>") + text.repeated(16384 / text.size() + 1).left(16380);
        QTest::addRow("long paragraph: %s", name)
            << QString() << Filled(text).prepend(QStringLiteral("<p>")).left(kAnswerBytes);
    };
    add("ordinary", QStringLiteral("1. Faster start.\n"));
    add("one word", QStringLiteral("x"));
    add("words", QStringLiteral("x "));
    add("marks on one letter", QStringLiteral("\u0301"));
    add("Arabic", QStringLiteral("\u0633\u0644\u0627\u0645"));
    add("Thai", QStringLiteral("\u0e01\u0e34\u0e48"));
    add("Khmer", QStringLiteral("\u1780\u17d2\u1781\u17b6"));
    add("letters of two directions", QStringLiteral("a\u0628"));
    add("digits of two directions", QStringLiteral("1\u0661\u05d0"));
    add("turns of direction", QStringLiteral("\u202ea"));
    add("isolated letters", QStringLiteral("\u2066a\u2069b"));
    add("joined emoji", QString::fromUtf8("\xf0\x9f\x91\xa8\xe2\x80\x8d"));
    add("tabs", QStringLiteral("\t"));
    add("line breaks", QStringLiteral("\n"));
    add("lines of one letter", QStringLiteral("x\n"));
    add("line ends of Windows", QStringLiteral("x\r\n"));
    add("paragraph separators", QStringLiteral("\u2029"));
    add("paragraphs of marks",
        QStringLiteral("e") + QString(1000, QChar(0x301)) + QLatin1Char('\n'));
    add("line separators", QStringLiteral("\u2028"));
    add("objects", QStringLiteral("\ufffc"));
    add("all ideographs", Ideographs(20900));
}

void TestPromptSpeed::AddMarkup()
{
    const auto add = [](const char *name, const QString &notes) {
        QTest::addRow("markup: %s", name) << QString() << notes;
    };
    for (const char *file : {"logo.png", "logo.ico", "cancle.png", "check.png"})
        for (const char *attributes :
             {"", "width=999 height=999", "width=999 height=1", "align=left"})
            QTest::addRow("images: %s %s", file, attributes)
                << QString()
                << Images(QStringLiteral(":/image/resourceimg/") + QLatin1String(file), attributes);
    add("images in one line", QStringLiteral("<p style=\"line-height:1%\">") +
                                  Image(kLogo, "width=999 height=999").repeated(240));
    add("images that do not exist", Images(QStringLiteral(":/x"), ""));

    QString names;
    QString sizes;
    for (int i = 1; i < 780; ++i)
        names.append(QStringLiteral("<font face=a%1>a中\u0628").arg(i));
    for (int i = 1; i < 490; ++i)
        sizes.append(QStringLiteral("<b style=\"font-size:%1px\">中").arg(i));
    add("many fonts", names);
    add("many sizes", sizes);

    const QString ideographs = Ideographs(16000);
    add("small letters", QStringLiteral("<p style=\"font-size:1px\">") + ideographs);
    add("lines upon each other", QStringLiteral("<p style=\"line-height:1%\">") + ideographs);
    add("letters upon each other",
        QStringLiteral("<p style=\"letter-spacing:-99px\">") + ideographs);
    add("capitals in two sizes", QStringLiteral("<p style=\"font-variant:small-caps\">") +
                                     QStringLiteral("xX").repeated(8000));
    // The first two are higher than Qt's fixed-point numbers allow, and their layout would not end.
    add("large letters", QStringLiteral("<p style=\"font-size:999pt\">") + ideographs);
    add("large margins", QStringLiteral("<p style=\"margin:999em\">x").repeated(600));
    add("high lines",
        QStringLiteral("<p style=\"line-height:999em\">") + QString(16000, QChar::LineSeparator));
    add("large everything",
        QStringLiteral("<table style=\"margin:999em;padding:999em;border:99em solid red\" "
                       "cellpadding=999 cellspacing=999 border=999>") +
            QStringLiteral("<tr><td style=\"padding:999em;border:99em solid red\">x").repeated(40));
}

void TestPromptSpeed::handlesLaterWithinASecond_data()
{
    QTest::addColumn<QString>("version");
    QTest::addColumn<QString>("notes");

    AddVersions();
    AddPlainNotes();
    AddMarkup();
}

void TestPromptSpeed::handlesLaterWithinASecond()
{
    QFETCH(QString, version);
    QFETCH(QString, notes);
    const TestHome home;
    Global &global = Global::instance;
    global.language = QStringLiteral("en");
    global.update = QStringLiteral("1");
    global.appName = TestHome::UniqueImageName();
    global.latestVersion = version;
    global.latestVersionInfo = notes;
    const LogCapture log;

    const double start = Seconds();
    UpdateDialog prompt;
    prompt.updateMode(QStringLiteral("1"));
    QVERIFY(QTest::qWaitForWindowExposed(&prompt));
    QCoreApplication::processEvents();
    QVERIFY(!Picture(prompt).isNull());
    const double shown = Seconds();
    QTest::mouseClick(Child<QPushButton>(prompt, "laterBtn"), Qt::LeftButton);
    const double handled = Seconds();

    QCOMPARE(log.Messages().filter(QStringLiteral("starting...")).size(), 1);
    QVERIFY2(handled - start < 1.0 * TIME_FACTOR,
             qPrintable(QStringLiteral("shown after %1 s, Later handled after %2 s")
                            .arg(shown - start)
                            .arg(handled - start)));
    QCOMPARE(global.latestVersion, version);
    QCOMPARE(global.latestVersionInfo, notes);
}

void TestPromptSpeed::endlessVersionDoesNotHoldUpTheProgressDialog()
{
    const TestHome home;
    Global::instance.latestVersion = QString(1000000, QChar(0x301));

    const double start = Seconds();
    DwonDialog dialog;
    dialog.SetTexts();
    dialog.show();
    QVERIFY(!Picture(dialog).isNull());

    QVERIFY(Seconds() - start < 1.0 * TIME_FACTOR);
    QVERIFY(Child<QLabel>(dialog, "labVersion")->text().endsWith(QStringLiteral("  更新包 0.00M")));
}

void TestPromptSpeed::showsTheNotesFromTheirStart_data()
{
    QTest::addColumn<QString>("notes");

    QTest::newRow("text") << QStringLiteral("line\n").repeated(100);
    QTest::newRow("markup") << QStringLiteral("<p>line</p>").repeated(100);
    QTest::newRow("a split paragraph") << QStringLiteral("word ").repeated(3000);
    QTest::newRow("an image higher than the view") << Image(kLogo, "height=400").repeated(3);
}

void TestPromptSpeed::showsTheNotesFromTheirStart()
{
    QFETCH(QString, notes);
    const TestHome home;
    Global::instance.latestVersionInfo = notes;
    UpdateDialog prompt;

    for (int time = 0; time < 2; ++time) {
        prompt.updateMode(QStringLiteral("1"));
        QVERIFY(QTest::qWaitForWindowExposed(&prompt));
        QVERIFY(!Picture(prompt).isNull());

        auto *scrollBar = Child<QTextEdit>(prompt, "updateText")->verticalScrollBar();
        QVERIFY(scrollBar->maximum() > 0);
        QCOMPARE(scrollBar->value(), 0);
        scrollBar->setValue(40);
    }
}

QTEST_MAIN(TestPromptSpeed)
#include "tst_promptspeed.moc"
