// SPDX-License-Identifier: MIT
#include "ui/updatedialog.h"

#include "config/global.h"
#include "tests/support/clientmachine.h"
#include "tests/support/environmentvariable.h"
#include "tests/support/logcapture.h"
#include "tests/support/loglines.h"
#include "tests/ui/dialogs.h"
#include "ui/dwondialog.h"

#include <QCheckBox>
#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QPushButton>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTest>
#include <QTextBlock>
#include <QTextEdit>

namespace
{

constexpr qint64 kMoreThanAnyDrive = qint64(1) << 60;

using Calls = QVector<QStringList>;

/// A client's machine with a prompt that offers an update.
class PromptMachine : public ClientMachine
{
public:
    PromptMachine()
        : tasklist(CommandsFolder() + QStringLiteral("/tasklist")),
          taskkill(CommandsFolder() + QStringLiteral("/taskkill"))
    {
        Global &global = Global::instance;
        global.latestVersion = QStringLiteral("2.1.3");
        global.latestVersionInfo = QStringLiteral("Faster start.");
        global.packageSize = 1572864;
        global.update = QStringLiteral("1");
        prompt = std::make_unique<UpdateDialog>();
    }

    DwonDialog &Progress() const { return *prompt->ProgressDialog(); }

    /// Shows the prompt in the given mode and gives it the keyboard.
    UpdateDialog &Shown(const QString &mode = QStringLiteral("1")) const
    {
        prompt->updateMode(mode);
        if (!ShowActive(*prompt))
            qFatal("the prompt does not become active");
        return *prompt;
    }

    template <class Widget> Widget *Has(const char *name) const
    {
        return Child<Widget>(*prompt, name);
    }

    void Click(const char *button) const
    {
        QTest::mouseClick(Has<QPushButton>(button), Qt::LeftButton);
    }

    /// Whether the log has a start of the client, which is written before the client starts.
    bool StartedClient() const
    {
        return log.Messages().contains(LogLine::Starting(Global::instance.appName));
    }

    StandIn tasklist;
    StandIn taskkill;
    LogCapture log;
    std::unique_ptr<UpdateDialog> prompt;
};

/// Makes the configuration impossible to open for writing.
void SpoilUpdateConfig(const PromptMachine &machine)
{
    QDir().mkpath(machine.UpdateConfigFile());
}

/// Records the order in which windows appear and disappear.
class WindowOrder : public QObject
{
public:
    bool eventFilter(QObject *window, QEvent *event) override
    {
        if (event->type() == QEvent::Show)
            changes.append(window->objectName() + QStringLiteral(" shown"));
        else if (event->type() == QEvent::Hide)
            changes.append(window->objectName() + QStringLiteral(" hidden"));
        return false;
    }

    QStringList changes;
};

/// Records a count whenever a window is shown.
class ShowWatch : public QObject
{
public:
    explicit ShowWatch(std::function<int()> count) : m_count(std::move(count)) {}

    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::Show)
            seen.append(m_count());
        return false;
    }

    QVector<int> seen;

private:
    std::function<int()> m_count;
};

/// The colour at a point of the gradient of 133 degrees on a button of 100 x 36 pixels.
QColor GradientColour(double x, double y)
{
    constexpr double sine = 0.73135;
    constexpr double cosine = 0.68200;
    const double length = 100 * sine + 36 * cosine;
    const double part = qBound(0.0, ((x - 50) * sine + (y - 18) * cosine) / length + 0.5, 1.0);
    const auto mix = [part](int from, int to) { return qRound(from + part * (to - from)); };
    return QColor(mix(50, 104), mix(122, 157), mix(255, 243));
}

} // namespace

class TestUpdateDialog : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void isAFixedWindowOf480By292();
    void hasItsWidgetsInTheirPlaces_data();
    void hasItsWidgetsInTheirPlaces();
    void staysHiddenUntilThereIsAnUpdate();
    void showsTheTextsOfItsModeAndLanguage_data();
    void showsTheTextsOfItsModeAndLanguage();
    void showsThePackageSize_data();
    void showsThePackageSize();
    void showsAVersionWithMarkupAsItIs();
    void translatesTheSizeOnly_data();
    void translatesTheSizeOnly();
    void keepsTheFormsNotesUntilThereAreOwn();
    void showsTheReleaseNotesAsRichText();
    void wrapsReleaseNotesAndScrollsThemDownOnly();
    void releaseNotesCanNeitherBeEditedNorSelected();
    void stylesItsWidgets_data();
    void stylesItsWidgets();
    void drawsTheLogoAndTheWhiteWindow();
    void showsTheUpdateButtonInTheColoursOfItsState();
    void showsTheLaterButtonInTheColoursOfItsState();
    void showsACheckBoxOf16Pixels();
    void holdsTheTextsOfItsFormUntilThereIsAnUpdate();

    void theForcedPromptOffersOnlyToUpdate_data();
    void theForcedPromptOffersOnlyToUpdate();
    void noremidTakesTheCheckBoxAway_data();
    void noremidTakesTheCheckBoxAway();
    void immediatelyUpdatesWithoutAsking_data();
    void immediatelyUpdatesWithoutAsking();
    void theSwitchIsCaseSensitive();

    void laterStartsTheClientWithoutTheUpdatersArguments_data();
    void laterStartsTheClientWithoutTheUpdatersArguments();
    void laterLeavesTheConfigurationAloneWithoutATick();
    void laterWithATickSilencesTheVersion();
    void laterWithATickAndNoWayToWriteItQuitsWithoutTheClient();
    void anImpatientUserStartsTheClientOnce_data();
    void anImpatientUserStartsTheClientOnce();

    void updateGivesWayToTheProgressDialogAndAsksForThePackage_data();
    void updateGivesWayToTheProgressDialogAndAsksForThePackage();
    void theProgressDialogComesBeforeThePromptGoes();
    void updateAsksTasklistForTheClient();
    void updateStopsARunningClient();
    void updateKillsNothingWhenTheNameDiffersInCase();
    void updateKillsAClientWhoseNameIsPartOfAnother();
    void updateGoesOnWithoutTasklist();
    void updateStopsARunningClientOfThisHost();
    void updateWithoutRoomShowsTheErrorInstead_data();
    void updateWithoutRoomShowsTheErrorInstead();
    void updateWithRoomAfterAllAsksForThePackage();
    void anImpatientUserDownloadsOnce();
    void closingAfterTheAnswerDoesNothing_data();
    void closingAfterTheAnswerDoesNothing();
    void aPromptThatIsShownAgainCanBeAnsweredAgain();
    void laterAfterUpdateAndUpdateAfterLaterDoNothing();
    void aRetryAsksForThePackageAgain();
    void updateStopsTheClientBeforeTheProgressDialogComes();

    void closingDoesWhatTheServiceWants_data();
    void closingDoesWhatTheServiceWants();
    void closingKeepsTheNeverPromptChoice();
    void closingWithAChoiceThatCannotBeWrittenQuitsWithoutTheClient();
    void closingAnythingElseDoesNothingOfItsOwn();

    void enterPressesTheButtonWithTheFocusOrElseTheFirst_data();
    void enterPressesTheButtonWithTheFocusOrElseTheFirst();
    void spacePressesWhatHasTheFocus();
    void tabVisitsTheControlsInReadingOrder_data();
    void tabVisitsTheControlsInReadingOrder();
    void theFocusIsFramedForTheKeyboard_data();
    void theFocusIsFramedForTheKeyboard();
    void theFocusIsNotFramedForTheMouse();
    void theKeyboardScrollsTheReleaseNotes();

    void hasItsSignalAndSlotsInOrder();
    void tellsScreenReadersItsTexts_data();
    void tellsScreenReadersItsTexts();
    void logsNothing_data();
    void logsNothing();

private:
    static void AddLanguages();
    static QString Language();
};

void TestUpdateDialog::initTestCase()
{
    Q_INIT_RESOURCE(resources);
}

void TestUpdateDialog::AddLanguages()
{
    QTest::addColumn<QString>("language");
    QTest::newRow("English") << QStringLiteral("en");
    QTest::newRow("Chinese") << QStringLiteral("zh");
}

QString TestUpdateDialog::Language()
{
    QFETCH(QString, language);
    return language;
}

void TestUpdateDialog::isAFixedWindowOf480By292()
{
    const PromptMachine machine;
    const UpdateDialog &prompt = *machine.prompt;

    QCOMPARE(prompt.objectName(), QStringLiteral("UpdateDialog"));
    QCOMPARE(prompt.size(), QSize(480, 292));
    QCOMPARE(prompt.minimumSize(), QSize(480, 292));
    QCOMPARE(prompt.maximumSize(), QSize(480, 292));
    QCOMPARE(prompt.windowFlags(), FlagsOfClosableWindow());
    QVERIFY(HasLogoAsIcon(prompt));
}

void TestUpdateDialog::hasItsWidgetsInTheirPlaces_data()
{
    QTest::addColumn<QByteArray>("className");
    QTest::addColumn<QRect>("place");

    QTest::newRow("labIco") << QByteArray("QLabel") << QRect(24, 20, 48, 48);
    QTest::newRow("labText") << QByteArray("QLabel") << QRect(80, 20, 400, 22);
    QTest::newRow("labVersion") << QByteArray("QLabel") << QRect(80, 46, 400, 22);
    QTest::newRow("updateText") << QByteArray("QTextEdit") << QRect(24, 84, 432, 120);
    QTest::newRow("checkRemid") << QByteArray("QCheckBox") << QRect(24, 244, 161, 16);
    QTest::newRow("laterBtn") << QByteArray("QPushButton") << QRect(240, 236, 100, 36);
    QTest::newRow("immedBtn") << QByteArray("QPushButton") << QRect(356, 236, 100, 36);
}

void TestUpdateDialog::hasItsWidgetsInTheirPlaces()
{
    QFETCH(QByteArray, className);
    const PromptMachine machine;
    machine.Shown();

    const auto *widget = machine.Has<QWidget>(QTest::currentDataTag());
    QCOMPARE(QByteArray(widget->metaObject()->className()), className);
    QTEST(PlaceIn(*machine.prompt, *widget), "place");
    QVERIFY(widget->isVisible());
}

void TestUpdateDialog::staysHiddenUntilThereIsAnUpdate()
{
    const PromptMachine machine;

    QVERIFY(!machine.prompt->isVisible());
    QVERIFY(!machine.Progress().isVisible());
    QVERIFY(machine.Progress().parent() == nullptr);

    machine.Shown();
    QVERIFY(machine.prompt->isVisible());
    QVERIFY(!machine.Progress().isVisible());
}

void TestUpdateDialog::showsTheTextsOfItsModeAndLanguage_data()
{
    QTest::addColumn<QString>("mode");
    QTest::addColumn<QString>("language");
    QTest::addColumn<QStringList>("texts");
    QTest::addColumn<QString>("headlineFont");

    const QString englishVersion = QStringLiteral("Version V2.1.3  Update Package 1.50M");
    const QString chineseVersion = QStringLiteral("版本号V2.1.3  更新包 1.50M");
    const QStringList english{QStringLiteral("App Update"),
                              QStringLiteral("New version detected, update?"),
                              englishVersion,
                              QStringLiteral("Later"),
                              QStringLiteral("Update"),
                              QStringLiteral("Never Prompt")};
    QStringList forcedEnglish = english;
    forcedEnglish[1] = QStringLiteral("New version detected. Please update now for normal use.");
    const QStringList chinese{QStringLiteral("应用更新"),
                              QStringLiteral("检测到新版本，是否更新?"),
                              chineseVersion,
                              QStringLiteral("稍后更新"),
                              QStringLiteral("立即更新"),
                              QStringLiteral("不再提醒")};
    QStringList forcedChinese = chinese;
    forcedChinese[1] = QStringLiteral("检测到新版本，更新后才能正常使用，请立即更新");

    const auto add = [](const char *mode, const char *language, const QStringList &texts,
                        const char *headlineFont) {
        QTest::addRow("mode %s, language %s", mode, language)
            << QString::fromLatin1(mode) << QString::fromLatin1(language) << texts
            << QString::fromLatin1(headlineFont);
    };
    add("1", "en", english, "16px");
    add("1", "zh", chinese, "16px");
    add("1", "EN", chinese, "16px");
    add("1", "en_US", chinese, "16px");
    add("1", "", chinese, "16px");
    for (const char *forced : {"2", "0", "3", "", "1 ", "01"}) {
        add(forced, "en", forcedEnglish, "12px");
        add(forced, "zh", forcedChinese, "16px");
    }
}

void TestUpdateDialog::showsTheTextsOfItsModeAndLanguage()
{
    QFETCH(QString, mode);
    QFETCH(QString, headlineFont);
    const PromptMachine machine;
    Global::instance.language = Language();
    machine.Shown(mode);

    const auto *headline = machine.Has<QLabel>("labText");
    const QStringList seen{machine.prompt->windowTitle(),
                           headline->text(),
                           machine.Has<QLabel>("labVersion")->text(),
                           machine.Has<QPushButton>("laterBtn")->text(),
                           machine.Has<QPushButton>("immedBtn")->text(),
                           machine.Has<QCheckBox>("checkRemid")->text()};
    QTEST(seen, "texts");
    if (Language() == QLatin1String("en"))
        QCOMPARE(headline->styleSheet(), QStringLiteral("QLabel{font-size:%1;font-weight:500;color:"
                                                        "rgba(32,49,82,1);line-height:22px;;}")
                                             .arg(headlineFont));
    else
        QCOMPARE(Declared(headline->styleSheet(), QStringLiteral("QLabel"),
                          QStringLiteral("line-height")),
                 QStringLiteral("20px"));
    QCOMPARE(QStringLiteral("%1px").arg(headline->font().pixelSize()), headlineFont);
}

void TestUpdateDialog::showsThePackageSize_data()
{
    QTest::addColumn<qint64>("bytes");
    QTest::addColumn<QString>("size");

    QTest::newRow("nothing") << qint64(0) << QStringLiteral("0.00M");
    QTest::newRow("one MiB") << qint64(1048576) << QStringLiteral("1.00M");
    QTest::newRow("one and a half") << qint64(1572864) << QStringLiteral("1.50M");
}

void TestUpdateDialog::showsThePackageSize()
{
    QFETCH(qint64, bytes);
    QFETCH(QString, size);

    for (const char *language : {"en", "zh"}) {
        const PromptMachine machine;
        Global::instance.language = QLatin1String(language);
        Global::instance.packageSize = bytes;
        machine.Shown();
        QCOMPARE(machine.Has<QLabel>("labVersion")->text(),
                 InLanguage("Version V2.1.3  Update Package ", "版本号V2.1.3  更新包 ") + size);
    }
}

void TestUpdateDialog::showsAVersionWithMarkupAsItIs()
{
    const PromptMachine machine;
    Global::instance.latestVersion = QStringLiteral("<h1>9</h1>&amp;%1");
    machine.Shown();

    auto *label = machine.Has<QLabel>("labVersion");
    QCOMPARE(label->text(), QStringLiteral("版本号V<h1>9</h1>&amp;%1  更新包 1.50M"));
    const QImage seen = Picture(*label);
    label->setTextFormat(Qt::PlainText);
    QCOMPARE(seen, Picture(*label));
}

void TestUpdateDialog::translatesTheSizeOnly_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<QString>("version");

    QTest::newRow("English") << QStringLiteral("en")
                             << QStringLiteral(
                                    "Version V2.1.3[UpdateDialog|  Update Package 1.50M]");
    QTest::newRow("Chinese") << QStringLiteral("zh")
                             << QStringLiteral("版本号V2.1.3[UpdateDialog|  更新包 1.50M]");
}

void TestUpdateDialog::translatesTheSizeOnly()
{
    const PromptMachine machine;
    Global::instance.language = Language();
    const MarkingTranslator translator;

    for (const char *mode : {"1", "2"}) {
        machine.Shown(QLatin1String(mode));
        QTEST(machine.Has<QLabel>("labVersion")->text(), "version");
        QVERIFY(!machine.Has<QLabel>("labText")->text().contains(QLatin1Char('[')));
    }
    QCOMPARE(machine.prompt->windowTitle(), InLanguage("App Update", "应用更新"));
    QCOMPARE(machine.Has<QPushButton>("laterBtn")->text(), InLanguage("Later", "稍后更新"));
    QCOMPARE(machine.Has<QPushButton>("immedBtn")->text(), InLanguage("Update", "立即更新"));
    QCOMPARE(machine.Has<QCheckBox>("checkRemid")->text(), InLanguage("Never Prompt", "不再提醒"));
}

void TestUpdateDialog::keepsTheFormsNotesUntilThereAreOwn()
{
    const PromptMachine machine;
    const auto *notes = machine.Has<QTextEdit>("updateText");

    QCOMPARE(notes->toPlainText(), QString());
    QCOMPARE(notes->document()->blockCount(), 1);
    const QFont font = notes->document()->firstBlock().charFormat().font();
    QCOMPARE(font.family(), QStringLiteral("SimSun"));
    QCOMPARE(font.pixelSize(), 12);

    machine.Shown();
    QCOMPARE(notes->toPlainText(), QStringLiteral("Faster start."));
    QVERIFY(!notes->toHtml().contains(QLatin1String("SimSun")));
}

void TestUpdateDialog::showsTheReleaseNotesAsRichText()
{
    const PromptMachine machine;
    auto *notes = machine.Has<QTextEdit>("updateText");

    Global::instance.latestVersionInfo =
        QStringLiteral("<ul><li>One &amp; two</li><li><b>Three</b></li></ul>");
    machine.Shown();
    QCOMPARE(notes->toPlainText(), QStringLiteral("One & two\nThree"));

    Global::instance.latestVersionInfo = QStringLiteral("1. plain\n2. 5 < 6 & 7\n");
    machine.Shown();
    QCOMPARE(notes->toPlainText(), QStringLiteral("1. plain\n2. 5 < 6 & 7\n"));

    Global::instance.latestVersionInfo = QString();
    machine.Shown();
    QCOMPARE(notes->toPlainText(), QString());
}

void TestUpdateDialog::wrapsReleaseNotesAndScrollsThemDownOnly()
{
    const PromptMachine machine;
    Global::instance.latestVersionInfo =
        QString(200, QLatin1Char('x')) + QStringLiteral(" and more").repeated(200);
    machine.Shown();
    const auto *notes = machine.Has<QTextEdit>("updateText");

    QVERIFY(!notes->horizontalScrollBar()->isVisible());
    QCOMPARE(notes->horizontalScrollBar()->maximum(), 0);
    QCOMPARE(notes->horizontalScrollBarPolicy(), Qt::ScrollBarAlwaysOff);
    QVERIFY(notes->verticalScrollBar()->isVisible());
    QVERIFY(notes->verticalScrollBar()->maximum() > 0);
    QCOMPARE(notes->verticalScrollBar()->value(), 0);
    QCOMPARE(notes->verticalScrollBar()->width(), 4);
}

void TestUpdateDialog::releaseNotesCanNeitherBeEditedNorSelected()
{
    const PromptMachine machine;
    machine.Shown();
    auto *notes = machine.Has<QTextEdit>("updateText");
    QVERIFY(notes->isReadOnly());
    QCOMPARE(notes->textInteractionFlags(), Qt::NoTextInteraction);

    QTest::keyClicks(notes, QStringLiteral("abc"));
    QTest::keyClick(notes, Qt::Key_Delete);
    QTest::keyClick(notes, Qt::Key_A, Qt::ControlModifier);
    QTest::mouseDClick(notes->viewport(), Qt::LeftButton, Qt::NoModifier, QPoint(15, 10));

    QCOMPARE(notes->toPlainText(), QStringLiteral("Faster start."));
    QVERIFY(!notes->textCursor().hasSelection());
}

void TestUpdateDialog::stylesItsWidgets_data()
{
    AddStyleColumns();
    const auto add = AddStyle;
    add("labText", "QLabel", "font-size", "16px");
    add("labText", "QLabel", "font-weight", "500");
    add("labText", "QLabel", "line-height", "20px");
    add("labText", "QLabel", "color", "rgba(32,49,82,1)");
    add("labVersion", "QLabel", "font-size", "14px");
    add("labVersion", "QLabel", "font-weight", "400");
    add("labVersion", "QLabel", "line-height", "22px");
    add("labVersion", "QLabel", "color", "rgba(143,152,168,1)");
    add("checkRemid", "QCheckBox", "font-size", "14px");
    add("checkRemid", "QCheckBox", "font-weight", "400");
    add("checkRemid", "QCheckBox", "line-height", "20px");
    add("checkRemid", "QCheckBox", "color", "rgba(143,152,168,1)");
    for (const char *button : {"laterBtn", "immedBtn"}) {
        add(button, "QPushButton", "font-size", "14px");
        add(button, "QPushButton", "font-weight", "400");
        add(button, "QPushButton", "line-height", "20px");
        add(button, "QPushButton", "border-radius", "4px");
    }
    add("laterBtn", "QPushButton", "border", "1pxsolidrgba(32,49,82,0.2)");
    add("laterBtn", "QPushButton:hover", "border", "1pxsolidrgba(66,133,246,1)");
    add("laterBtn", "QPushButton:pressed", "border", "1pxsolidrgba(66,133,246,1)");
    add("immedBtn", "QPushButton", "color", "rgba(255,255,255,1)");
    add("immedBtn", "QPushButton", "background-color", "rgba(66,133,246,1)");
    add("updateText", "QTextEdit", "font-size", "12px");
    add("updateText", "QTextEdit", "font-weight", "400");
    add("updateText", "QTextEdit", "line-height", "18px");
    add("updateText", "QTextEdit", "color", "rgba(77,90,117,1)");
    add("updateText", "QTextEdit", "background-color", "rgba(255,255,255,1)");
    add("updateText", "QTextEdit", "border", "1pxsolidrgba(210,214,220,1)");
    add("updateText", "QTextEdit", "border-radius", "2px");
}

void TestUpdateDialog::stylesItsWidgets()
{
    QFETCH(QByteArray, widget);
    QFETCH(QString, selector);
    QFETCH(QString, property);
    const PromptMachine machine;
    machine.Shown();

    const QString sheet = machine.Has<QWidget>(widget.constData())->styleSheet();
    QTEST(Declared(sheet, selector, property), "value");
}

void TestUpdateDialog::drawsTheLogoAndTheWhiteWindow()
{
    const PromptMachine machine;
    Global::instance.latestVersionInfo = QStringLiteral("line<br>").repeated(100);
    machine.Shown();
    const QImage seen = Picture(*machine.prompt);

    VERIFY_COLOUR(seen.pixelColor(2, 2), QColor(255, 255, 255));
    VERIFY_COLOUR(seen.pixelColor(477, 289), QColor(255, 255, 255));
    QVERIFY(!IsNear(seen.pixelColor(30, 44), QColor(255, 255, 255)));
    QCOMPARE(machine.Has<QLabel>("labIco")->alignment(), Qt::AlignCenter);
    // The frame of the notes, and the handle at the top of the white scroll bar.
    VERIFY_COLOUR(seen.pixelColor(200, 84), QColor(210, 214, 220));
    VERIFY_COLOUR(seen.pixelColor(453, 92), QColor(233, 235, 238));
    VERIFY_COLOUR(seen.pixelColor(453, 198), QColor(255, 255, 255));
}

void TestUpdateDialog::showsTheUpdateButtonInTheColoursOfItsState()
{
    const PromptMachine machine;
    machine.Shown();
    auto *button = machine.Has<QPushButton>("immedBtn");
    button->setText(QString());
    machine.Has<QTextEdit>("updateText")->setFocus();

    const QImage normal = Picture(*button);
    for (const QPoint &point :
         {QPoint(3, 3), QPoint(96, 3), QPoint(3, 32), QPoint(96, 32), QPoint(50, 18)})
        VERIFY_COLOUR(normal.pixelColor(point), GradientColour(point.x(), point.y()));
    VERIFY_COLOUR(PictureUnderMouse(*button).pixelColor(50, 18), QColor(85, 145, 246));
    VERIFY_COLOUR(PictureWhilePressed(*button).pixelColor(50, 18), QColor(62, 124, 228));
    QVERIFY(machine.prompt->isVisible());
}

void TestUpdateDialog::showsTheLaterButtonInTheColoursOfItsState()
{
    const PromptMachine machine;
    machine.Shown();
    auto *button = machine.Has<QPushButton>("laterBtn");
    button->setText(QStringLiteral("\u2588\u2588"));
    machine.Has<QTextEdit>("updateText")->setFocus();

    const QImage normal = Picture(*button);
    VERIFY_COLOUR(normal.pixelColor(50, 0), QColor(210, 214, 220));
    VERIFY_COLOUR(normal.pixelColor(10, 18), QColor(255, 255, 255));
    QVERIFY(Shows(normal, QColor(32, 49, 82)));
    VERIFY_COLOUR(PictureUnderMouse(*button).pixelColor(50, 0), QColor(66, 133, 246));
    const QImage pressed = PictureWhilePressed(*button);
    VERIFY_COLOUR(pressed.pixelColor(50, 0), QColor(66, 133, 246));
    QVERIFY(Shows(pressed, QColor(66, 133, 246)));
    QVERIFY(!Shows(pressed, QColor(32, 49, 82)));
}

void TestUpdateDialog::showsACheckBoxOf16Pixels()
{
    const PromptMachine machine;
    machine.Shown();
    auto *box = machine.Has<QCheckBox>("checkRemid");
    QVERIFY(!box->isChecked());
    QVERIFY(!box->isTristate());
    const QColor white(255, 255, 255);
    const QImage empty = Picture(*box);
    // The style draws the empty box; that of Windows has a margin.
    const auto drawn = [&](int from, int to) {
        for (int x = from; x <= to; ++x)
            if (!IsNear(empty.pixelColor(x, 8), white))
                return true;
        return false;
    };
    QVERIFY2(drawn(0, 2), "the left side of the box");
    QVERIFY2(drawn(13, 15), "its right side");
    VERIFY_COLOUR(empty.pixelColor(8, 8), white);

    QTest::mouseClick(box, Qt::LeftButton, Qt::NoModifier, QPoint(8, 8));

    QVERIFY(box->isChecked());
    const QImage mark(QStringLiteral(":/image/resourceimg/check.png"));
    QCOMPARE(mark.size(), QSize(16, 16));
    const QImage checked = Picture(*box);
    for (int x = 0; x < 16; ++x)
        for (int y = 0; y < 16; ++y)
            if (mark.pixelColor(x, y).alpha() == 255)
                VERIFY_COLOUR(checked.pixelColor(x, y), mark.pixelColor(x, y));

    QTest::mouseClick(box, Qt::LeftButton, Qt::NoModifier, QPoint(60, 8));
    QVERIFY(!box->isChecked());
}

void TestUpdateDialog::holdsTheTextsOfItsFormUntilThereIsAnUpdate()
{
    const PromptMachine machine;
    Global::instance.language = QStringLiteral("en");
    const UpdateDialog prompt;

    QCOMPARE(prompt.windowTitle(), QStringLiteral("应用更新"));
    QCOMPARE(Child<QLabel>(prompt, "labText")->text(), QStringLiteral("已检测到新版本，是否更新?"));
    QCOMPARE(Child<QLabel>(prompt, "labVersion")->text(), QStringLiteral("版本号"));
    QCOMPARE(Child<QTextEdit>(prompt, "updateText")->toPlainText(), QString());
    QCOMPARE(Child<QCheckBox>(prompt, "checkRemid")->text(), QStringLiteral("不再提醒"));
    QCOMPARE(Child<QPushButton>(prompt, "laterBtn")->text(), QStringLiteral("稍后更新"));
    QCOMPARE(Child<QPushButton>(prompt, "immedBtn")->text(), QStringLiteral("立即更新"));
}

void TestUpdateDialog::theForcedPromptOffersOnlyToUpdate_data()
{
    QTest::addColumn<QString>("mode");
    QTest::addColumn<bool>("forced");

    QTest::newRow("1") << QStringLiteral("1") << false;
    for (const char *mode : {"2", "0", "3", "", "1 ", "one"})
        QTest::addRow("'%s'", mode) << QString::fromLatin1(mode) << true;
}

void TestUpdateDialog::theForcedPromptOffersOnlyToUpdate()
{
    QFETCH(QString, mode);
    QFETCH(bool, forced);

    for (const char *language : {"en", "zh"}) {
        const PromptMachine machine;
        Global::instance.language = QLatin1String(language);
        machine.Shown(mode);
        QCOMPARE(machine.Has<QPushButton>("laterBtn")->isVisible(), !forced);
        QCOMPARE(machine.Has<QCheckBox>("checkRemid")->isVisible(), !forced);
        QVERIFY(machine.Has<QPushButton>("immedBtn")->isVisible());
    }
}

void TestUpdateDialog::noremidTakesTheCheckBoxAway_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("mode");
    QTest::addColumn<bool>("hasBox");

    const QString optional = QStringLiteral("1");
    const QString forced = QStringLiteral("2");
    const auto list = [](std::initializer_list<const char *> arguments) {
        QStringList result;
        for (const char *argument : arguments)
            result.append(QString::fromLatin1(argument));
        return result;
    };
    QTest::newRow("no arguments") << QStringList() << optional << true;
    QTest::newRow("the switch") << list({"-noremid"}) << optional << false;
    QTest::newRow("the switch in forced mode") << list({"-noremid"}) << forced << false;
    QTest::newRow("among others") << list({"a", "-noremid", "b"}) << optional << false;
    QTest::newRow("twice") << list({"-noremid", "-noremid"}) << optional << false;
    QTest::newRow("other letter case") << list({"-noRemid"}) << optional << true;
    QTest::newRow("part of an argument") << list({"-noremid2", "x-noremid"}) << optional << true;
}

void TestUpdateDialog::noremidTakesTheCheckBoxAway()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, mode);
    const PromptMachine machine;
    Global::instance.cmdLineArgs = arguments;
    machine.Shown(mode);

    QTEST(machine.Has<QCheckBox>("checkRemid")->isVisible(), "hasBox");
    QCOMPARE(machine.Has<QPushButton>("laterBtn")->isVisible(), mode == QLatin1String("1"));
    QVERIFY(machine.Has<QPushButton>("immedBtn")->isVisible());
    QCOMPARE(Global::instance.cmdLineArgs, arguments);
}

void TestUpdateDialog::immediatelyUpdatesWithoutAsking_data()
{
    QTest::addColumn<QString>("mode");
    QTest::newRow("optional") << QStringLiteral("1");
    QTest::newRow("forced") << QStringLiteral("2");
    QTest::newRow("empty") << QString();
}

void TestUpdateDialog::immediatelyUpdatesWithoutAsking()
{
    QFETCH(QString, mode);
    const PromptMachine machine;
    Global::instance.cmdLineArgs = QStringList{QStringLiteral("a"), QStringLiteral("-immediately")};
    const QSignalSpy getPack(machine.prompt.get(), &UpdateDialog::getPack);

    QVERIFY(!Quits([&] { machine.prompt->updateMode(mode); }));

    QVERIFY(!machine.prompt->isVisible());
    QVERIFY(machine.Progress().isVisible());
    QCOMPARE(getPack.count(), 1);
    QCOMPARE(machine.tasklist.Calls().size(), 1);
    QVERIFY(!machine.StartedClient());
}

void TestUpdateDialog::theSwitchIsCaseSensitive()
{
    const PromptMachine machine;
    Global::instance.cmdLineArgs = QStringList(QStringLiteral("-Immediately"));
    const QSignalSpy getPack(machine.prompt.get(), &UpdateDialog::getPack);

    machine.Shown();

    QVERIFY(machine.prompt->isVisible());
    QCOMPARE(getPack.count(), 0);
}

void TestUpdateDialog::laterStartsTheClientWithoutTheUpdatersArguments_data()
{
    QTest::addColumn<QStringList>("arguments");

    QTest::newRow("none") << QStringList();
    QTest::newRow("a switch and more")
        << QStringList{QStringLiteral("-noremid"), QStringLiteral("x")};
    QTest::newRow("a meeting link") << QStringList(QStringLiteral("qorb-meeting://abc"));
}

void TestUpdateDialog::laterStartsTheClientWithoutTheUpdatersArguments()
{
    QFETCH(QStringList, arguments);
    const PromptMachine machine;
    Global::instance.cmdLineArgs = arguments;
    machine.Shown();
    const QSignalSpy getPack(machine.prompt.get(), &UpdateDialog::getPack);

    QVERIFY(Quits([&] { machine.Click("laterBtn"); }));

    QVERIFY(machine.client.WaitForCalls(1));
    QCOMPARE(machine.client.Calls(), Calls{{QStringLiteral("-autoupdate")}});
    QCOMPARE(getPack.count(), 0);
    QVERIFY(machine.tasklist.Calls().isEmpty());
}

void TestUpdateDialog::laterLeavesTheConfigurationAloneWithoutATick()
{
    const PromptMachine machine;
    machine.Shown();

    QVERIFY(Quits([&] { machine.Click("laterBtn"); }));

    QVERIFY(!QFile::exists(machine.UpdateConfigFile()));
}

void TestUpdateDialog::laterWithATickSilencesTheVersion()
{
    const PromptMachine machine;
    machine.WriteUpdateConfig("{\"noRemind\": 0, \"noRemindVersion\": \"\", \"other\": 7}");
    machine.Shown();
    QTest::mouseClick(machine.Has<QCheckBox>("checkRemid"), Qt::LeftButton, Qt::NoModifier,
                      QPoint(8, 8));

    QVERIFY(Quits([&] { machine.Click("laterBtn"); }));

    QVERIFY(machine.client.WaitForCalls(1));
    QCOMPARE(machine.client.Calls(), Calls{{QStringLiteral("-autoupdate")}});
    const QJsonObject config =
        QJsonDocument::fromJson(ReadFile(machine.UpdateConfigFile())).object();
    QCOMPARE(config.value(QStringLiteral("noRemind")).toInt(), 1);
    QCOMPARE(config.value(QStringLiteral("noRemindVersion")).toString(), QStringLiteral("2.1.3"));
    QCOMPARE(config.value(QStringLiteral("other")).toInt(), 7);
}

void TestUpdateDialog::laterWithATickAndNoWayToWriteItQuitsWithoutTheClient()
{
    const PromptMachine machine;
    SpoilUpdateConfig(machine);
    Global::instance.cmdLineArgs = QStringList(QStringLiteral("x"));
    machine.Shown();
    machine.Has<QCheckBox>("checkRemid")->setChecked(true);

    QVERIFY(Quits([&] { machine.Click("laterBtn"); }));

    QVERIFY(!machine.StartedClient());
    QCOMPARE(Global::instance.cmdLineArgs, QStringList(QStringLiteral("x")));
    QCOMPARE(machine.log.Messages(), QStringList(LogLine::UpdateConfigWriteFailed(5)));
}

void TestUpdateDialog::anImpatientUserStartsTheClientOnce_data()
{
    QTest::addColumn<bool>("closes");
    QTest::newRow("a second click on Later") << false;
    QTest::newRow("the window closed after the click") << true;
}

void TestUpdateDialog::anImpatientUserStartsTheClientOnce()
{
    QFETCH(bool, closes);
    const PromptMachine machine;
    machine.Shown();

    QVERIFY(Quits([&] {
        QueueClicks(machine.Has<QPushButton>("laterBtn"), closes ? 1 : 3);
        QCoreApplication::sendPostedEvents();
        if (closes)
            machine.prompt->close();
    }));

    QVERIFY(machine.client.WaitForCalls(1));
    const QString started = LogLine::Starting(Global::instance.appName);
    QCOMPARE(machine.log.Messages().count(started), 1);
}

void TestUpdateDialog::updateGivesWayToTheProgressDialogAndAsksForThePackage_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<QString>("mode");
    QTest::newRow("optional, English") << QStringLiteral("en") << QStringLiteral("1");
    QTest::newRow("optional, Chinese") << QStringLiteral("zh") << QStringLiteral("1");
    QTest::newRow("forced, English") << QStringLiteral("en") << QStringLiteral("2");
    QTest::newRow("forced, Chinese") << QStringLiteral("zh") << QStringLiteral("2");
}

void TestUpdateDialog::updateGivesWayToTheProgressDialogAndAsksForThePackage()
{
    QFETCH(QString, mode);
    const PromptMachine machine;
    Global::instance.language = Language();
    machine.Shown(mode);
    const QSignalSpy getPack(machine.prompt.get(), &UpdateDialog::getPack);
    QStringList seen;
    connect(machine.prompt.get(), &UpdateDialog::getPack, [&] {
        seen = QStringList{machine.prompt->isVisible() ? QStringLiteral("prompt") : QString(),
                           machine.Progress().isVisible() ? QStringLiteral("progress") : QString(),
                           machine.Progress().windowTitle(),
                           Child<QLabel>(machine.Progress(), "labInstall")->text(),
                           Child<QLabel>(machine.Progress(), "labVersion")->text()};
    });

    QVERIFY(!Quits([&] { machine.Click("immedBtn"); }));

    QCOMPARE(getPack.count(), 1);
    QCOMPARE(seen, QStringList({QString(), QStringLiteral("progress"),
                                InLanguage("App Update", "应用更新"),
                                InLanguage("installing......0%", "正在安装中......0%"),
                                InLanguage("Version V2.1.3  Update Package 1.50M",
                                           "版本号V2.1.3  更新包 1.50M")}));
    QVERIFY(!machine.StartedClient());
}

void TestUpdateDialog::theProgressDialogComesBeforeThePromptGoes()
{
    const PromptMachine machine;
    machine.Shown();
    WindowOrder watch;
    machine.prompt->installEventFilter(&watch);
    machine.Progress().installEventFilter(&watch);

    machine.Click("immedBtn");

    QCOMPARE(watch.changes, QStringList({QStringLiteral("DwonDialog shown"),
                                         QStringLiteral("UpdateDialog hidden")}));
}

void TestUpdateDialog::updateAsksTasklistForTheClient()
{
    const PromptMachine machine;
    machine.Shown();

    machine.Click("immedBtn");

    QCOMPARE(machine.tasklist.Calls(),
             Calls({{QStringLiteral("/FO"), QStringLiteral("CSV"), QStringLiteral("/FI"),
                     QStringLiteral("IMAGENAME eq %1").arg(Global::instance.appName)}}));
    QVERIFY(machine.taskkill.Calls().isEmpty());
}

void TestUpdateDialog::updateStopsARunningClient()
{
    PromptMachine machine;
    const QString name = Global::instance.appName;
    machine.Shown();
    machine.tasklist.SetScript(StandIn::Prints('"' + name.toLocal8Bit() + "\",\"4711\"\r\n"));
    int killsBeforePackage = -1;
    connect(machine.prompt.get(), &UpdateDialog::getPack,
            [&] { killsBeforePackage = machine.taskkill.Calls().size(); });

    machine.Click("immedBtn");

    QCOMPARE(machine.taskkill.Calls(),
             Calls({{QStringLiteral("/im"), name, QStringLiteral("/f")}}));
    QCOMPARE(killsBeforePackage, 1);
}

void TestUpdateDialog::updateKillsNothingWhenTheNameDiffersInCase()
{
    PromptMachine machine;
    machine.Shown();
    machine.tasklist.SetScript(
        StandIn::Prints('"' + Global::instance.appName.toUpper().toLocal8Bit() + "\"\r\n"));

    machine.Click("immedBtn");

    QCOMPARE(machine.tasklist.Calls().size(), 1);
    QVERIFY(machine.taskkill.Calls().isEmpty());
}

void TestUpdateDialog::updateKillsAClientWhoseNameIsPartOfAnother()
{
    PromptMachine machine;
    machine.Shown();
    machine.tasklist.SetScript(
        StandIn::Prints("\"My" + Global::instance.appName.toLocal8Bit() + "\"\r\n"));

    machine.Click("immedBtn");

    QCOMPARE(machine.taskkill.Calls().size(), 1);
}

void TestUpdateDialog::updateGoesOnWithoutTasklist()
{
    const PromptMachine machine;
    machine.Shown();
    const QSignalSpy getPack(machine.prompt.get(), &UpdateDialog::getPack);
    const EnvironmentVariable path("PATH", QFile::encodeName(machine.Scratch()));

    machine.Click("immedBtn");

    QCOMPARE(getPack.count(), 1);
    QVERIFY(machine.taskkill.Calls().isEmpty());
}

void TestUpdateDialog::updateStopsARunningClientOfThisHost()
{
    PromptMachine machine;
    QVERIFY(QFile::remove(machine.tasklist.Path()));
    QVERIFY(QFile::remove(machine.taskkill.Path()));
    machine.client.StartAndStay();
    machine.Shown();

    machine.Click("immedBtn");

    QTRY_VERIFY(!machine.client.IsRunning());
    QVERIFY(machine.Progress().isVisible());
}

void TestUpdateDialog::updateWithoutRoomShowsTheErrorInstead_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("marked");

    QTest::newRow("English") << QStringLiteral("en")
                             << QStringLiteral("Disk out of space on C, update failed.")
                             << QStringLiteral(
                                    "[UpdateDialog|Disk out of space on C, update failed.]");
    QTest::newRow("Chinese") << QStringLiteral("zh") << QStringLiteral("C 磁盘空间不足，更新失败!")
                             << QStringLiteral("[UpdateDialog|C 磁盘空间不足，更新失败!]");
    QTest::newRow("EN") << QStringLiteral("EN") << QStringLiteral("C 磁盘空间不足，更新失败!")
                        << QStringLiteral("[UpdateDialog|C 磁盘空间不足，更新失败!]");
}

void TestUpdateDialog::updateWithoutRoomShowsTheErrorInstead()
{
    {
        const PromptMachine machine;
        Global::instance.language = Language();
        Global::instance.packageSize = kMoreThanAnyDrive;
        machine.Shown();
        const QSignalSpy getPack(machine.prompt.get(), &UpdateDialog::getPack);
        const QSignalSpy error(&machine.Progress(), &DwonDialog::ErrSignal);

        machine.Click("immedBtn");

        QCOMPARE(getPack.count(), 0);
        QCOMPARE(error.count(), 1);
        QTEST(Child<QLabel>(machine.Progress(), "labInstall")->text(), "message");
        QCOMPARE(Child<QPushButton>(machine.Progress(), "cancleBtn")->text(),
                 InLanguage("Retry", "重试"));
        QVERIFY(machine.Progress().isVisible());
        QVERIFY(!machine.prompt->isVisible());
    }
    const PromptMachine machine;
    Global::instance.language = Language();
    Global::instance.packageSize = kMoreThanAnyDrive;
    const MarkingTranslator translator;
    machine.prompt->ImmediatelyUpdate();
    QTEST(Child<QLabel>(machine.Progress(), "labInstall")->text(), "marked");
}

void TestUpdateDialog::updateWithRoomAfterAllAsksForThePackage()
{
    const PromptMachine machine;
    const qint64 size = Global::instance.packageSize;
    machine.Shown();
    const QSignalSpy getPack(machine.prompt.get(), &UpdateDialog::getPack);
    const QSignalSpy error(&machine.Progress(), &DwonDialog::ErrSignal);
    Global::instance.packageSize = kMoreThanAnyDrive;
    QueueClicks(machine.Has<QPushButton>("immedBtn"), 2);
    QCoreApplication::sendPostedEvents();
    QCOMPARE(error.count(), 1);

    Global::instance.packageSize = size;
    machine.prompt->ImmediatelyUpdate();

    QCOMPARE(getPack.count(), 1);
    QCOMPARE(error.count(), 1);
    QVERIFY(machine.Progress().isVisible());
}

void TestUpdateDialog::anImpatientUserDownloadsOnce()
{
    const PromptMachine machine;
    machine.Shown();
    const QSignalSpy getPack(machine.prompt.get(), &UpdateDialog::getPack);

    QueueClicks(machine.Has<QPushButton>("immedBtn"), 3);
    QCoreApplication::sendPostedEvents();

    QCOMPARE(getPack.count(), 1);
    QCOMPARE(machine.tasklist.Calls().size(), 1);
}

void TestUpdateDialog::closingAfterTheAnswerDoesNothing_data()
{
    QTest::addColumn<bool>("byEsc");
    QTest::newRow("close button") << false;
    QTest::newRow("Esc") << true;
}

void TestUpdateDialog::closingAfterTheAnswerDoesNothing()
{
    QFETCH(bool, byEsc);
    const PromptMachine machine;
    machine.Shown();

    QVERIFY(!Quits([&] {
        machine.Click("immedBtn");
        if (byEsc)
            QTest::keyClick(machine.prompt.get(), Qt::Key_Escape);
        else
            machine.prompt->close();
    }));

    QVERIFY(!machine.StartedClient());
    QVERIFY(machine.Progress().isVisible());
}

void TestUpdateDialog::aPromptThatIsShownAgainCanBeAnsweredAgain()
{
    const PromptMachine machine;
    const QSignalSpy getPack(machine.prompt.get(), &UpdateDialog::getPack);

    for (int answers = 1; answers <= 2; ++answers) {
        machine.Shown();
        machine.Click("immedBtn");
        QCOMPARE(getPack.count(), answers);
    }
}

void TestUpdateDialog::laterAfterUpdateAndUpdateAfterLaterDoNothing()
{
    {
        const PromptMachine machine;
        machine.Shown();
        QVERIFY(!Quits([&] {
            machine.Click("immedBtn");
            QueueClicks(machine.Has<QPushButton>("laterBtn"), 1);
            QCoreApplication::sendPostedEvents();
        }));
        QVERIFY(!machine.StartedClient());
        QVERIFY(machine.Progress().isVisible());
    }
    const PromptMachine machine;
    machine.Shown();
    const QSignalSpy getPack(machine.prompt.get(), &UpdateDialog::getPack);
    QVERIFY(Quits([&] {
        machine.Click("laterBtn");
        machine.Click("immedBtn");
    }));
    QCOMPARE(getPack.count(), 0);
    QVERIFY(!machine.Progress().isVisible());
    QVERIFY(machine.client.WaitForCalls(1));
}

void TestUpdateDialog::aRetryAsksForThePackageAgain()
{
    const PromptMachine machine;
    machine.Shown();
    const QSignalSpy getPack(machine.prompt.get(), &UpdateDialog::getPack);
    machine.Click("immedBtn");
    QCOMPARE(getPack.count(), 1);

    auto *button = Child<QPushButton>(machine.Progress(), "cancleBtn");
    for (int retry = 1; retry <= 2; ++retry) {
        emit machine.Progress().ErrSignal(QStringLiteral("it failed"));
        QTest::mouseClick(button, Qt::LeftButton);
        QCOMPARE(getPack.count(), 1 + retry);
    }
}

void TestUpdateDialog::updateStopsTheClientBeforeTheProgressDialogComes()
{
    PromptMachine machine;
    machine.Shown();
    machine.tasklist.SetScript(StandIn::Prints(Global::instance.appName.toLocal8Bit()));
    ShowWatch watch([&] { return machine.taskkill.Calls().size(); });
    machine.Progress().installEventFilter(&watch);

    machine.Click("immedBtn");

    QCOMPARE(watch.seen, QVector<int>({1}));
}

void TestUpdateDialog::closingDoesWhatTheServiceWants_data()
{
    QTest::addColumn<QString>("update");
    QTest::addColumn<bool>("byEsc");
    QTest::addColumn<bool>("startsClient");

    for (const bool byEsc : {false, true}) {
        const char *how = byEsc ? "Esc" : "close button";
        QTest::addRow("%s, optional", how) << QStringLiteral("1") << byEsc << true;
        QTest::addRow("%s, forced", how) << QStringLiteral("2") << byEsc << false;
        // Nothing else happens, but it was the last window.
        QTest::addRow("%s, another value", how) << QStringLiteral("3") << byEsc << false;
        QTest::addRow("%s, no value", how) << QString() << byEsc << false;
    }
}

void TestUpdateDialog::closingDoesWhatTheServiceWants()
{
    QFETCH(QString, update);
    QFETCH(bool, byEsc);
    QFETCH(bool, startsClient);
    const PromptMachine machine;
    Global::instance.update = update;
    Global::instance.cmdLineArgs = QStringList(QStringLiteral("x"));
    machine.Shown(update);
    const QSignalSpy getPack(machine.prompt.get(), &UpdateDialog::getPack);

    QVERIFY(Quits([&] {
        if (byEsc)
            QTest::keyClick(machine.prompt->focusWidget(), Qt::Key_Escape);
        else
            QVERIFY(machine.prompt->close());
    }));

    QVERIFY(!machine.prompt->isVisible());
    QVERIFY(!machine.Progress().isVisible());
    QCOMPARE(machine.StartedClient(), startsClient);
    QCOMPARE(getPack.count(), 0);
    QVERIFY(machine.tasklist.Calls().isEmpty());
    if (startsClient) {
        QVERIFY(machine.client.WaitForCalls(1));
        QCOMPARE(machine.client.Calls(), Calls{{QStringLiteral("-autoupdate")}});
    }
}

void TestUpdateDialog::closingKeepsTheNeverPromptChoice()
{
    const PromptMachine machine;
    machine.Shown();
    machine.Has<QCheckBox>("checkRemid")->setChecked(true);

    QVERIFY(Quits([&] { machine.prompt->close(); }));

    QVERIFY(machine.StartedClient());
    const QJsonObject config =
        QJsonDocument::fromJson(ReadFile(machine.UpdateConfigFile())).object();
    QCOMPARE(config.value(QStringLiteral("noRemindVersion")).toString(), QStringLiteral("2.1.3"));
    QVERIFY(machine.client.WaitForCalls(1));
}

void TestUpdateDialog::closingWithAChoiceThatCannotBeWrittenQuitsWithoutTheClient()
{
    const PromptMachine machine;
    SpoilUpdateConfig(machine);
    machine.Shown();
    machine.Has<QCheckBox>("checkRemid")->setChecked(true);

    QVERIFY(Quits([&] { machine.prompt->close(); }));

    QVERIFY(!machine.StartedClient());
}

void TestUpdateDialog::closingAnythingElseDoesNothingOfItsOwn()
{
    const PromptMachine machine;
    Global::instance.update = QStringLiteral("3");
    machine.Shown(QStringLiteral("3"));
    QApplication::setQuitOnLastWindowClosed(false);

    const bool quits = Quits([&] { machine.prompt->close(); });

    QApplication::setQuitOnLastWindowClosed(true);
    QVERIFY(!quits);
    QVERIFY(!machine.prompt->isVisible());
    QCOMPARE(machine.log.Messages(), QStringList());
}

void TestUpdateDialog::enterPressesTheButtonWithTheFocusOrElseTheFirst_data()
{
    QTest::addColumn<QByteArray>("focus");
    QTest::addColumn<QString>("mode");
    QTest::addColumn<int>("key");
    QTest::addColumn<QByteArray>("pressed");

    const QString optional = QStringLiteral("1");
    const QString forced = QStringLiteral("2");
    const int enter = Qt::Key_Enter;
    const int enterOnLetters = Qt::Key_Return;
    const QByteArray later("laterBtn");
    const QByteArray update("immedBtn");
    QTest::newRow("at once") << QByteArray() << optional << enterOnLetters << later;
    QTest::newRow("in the notes") << QByteArray("updateText") << optional << enter << later;
    QTest::newRow("on the box") << QByteArray("checkRemid") << optional << enterOnLetters << later;
    QTest::newRow("on Later") << later << optional << enter << later;
    QTest::newRow("on Update") << update << optional << enter << update;
    // The first button is hidden.
    QTest::newRow("at once, forced") << QByteArray() << forced << enter << QByteArray();
    QTest::newRow("on Update, forced") << update << forced << enterOnLetters << update;
}

void TestUpdateDialog::enterPressesTheButtonWithTheFocusOrElseTheFirst()
{
    QFETCH(QByteArray, focus);
    QFETCH(QString, mode);
    QFETCH(int, key);
    QFETCH(QByteArray, pressed);
    const PromptMachine machine;
    machine.Shown(mode);
    const QSignalSpy getPack(machine.prompt.get(), &UpdateDialog::getPack);
    if (!focus.isEmpty())
        machine.Has<QWidget>(focus.constData())->setFocus();

    const bool quits = Quits([&] { QTest::keyClick(machine.prompt->focusWidget(), Qt::Key(key)); });

    QCOMPARE(quits, pressed == "laterBtn");
    QCOMPARE(machine.StartedClient(), pressed == "laterBtn");
    QCOMPARE(getPack.count(), pressed == "immedBtn" ? 1 : 0);
    if (machine.StartedClient())
        QVERIFY(machine.client.WaitForCalls(1));
}

void TestUpdateDialog::spacePressesWhatHasTheFocus()
{
    const auto pressSpaceOn = [](const PromptMachine &machine, const char *name) {
        machine.Has<QWidget>(name)->setFocus();
        QTest::keyClick(machine.prompt->focusWidget(), Qt::Key_Space);
    };
    {
        const PromptMachine machine;
        machine.Shown();
        const auto *box = machine.Has<QCheckBox>("checkRemid");
        pressSpaceOn(machine, "checkRemid");
        QVERIFY(box->isChecked());
        pressSpaceOn(machine, "checkRemid");
        QVERIFY(!box->isChecked());
        QVERIFY(Quits([&] { pressSpaceOn(machine, "laterBtn"); }));
        QVERIFY(machine.client.WaitForCalls(1));
    }
    const PromptMachine machine;
    machine.Shown();
    const QSignalSpy getPack(machine.prompt.get(), &UpdateDialog::getPack);
    pressSpaceOn(machine, "immedBtn");
    QCOMPARE(getPack.count(), 1);
}

void TestUpdateDialog::tabVisitsTheControlsInReadingOrder_data()
{
    QTest::addColumn<QString>("mode");
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QStringList>("names");

    const QString notes = QStringLiteral("updateText");
    const QString later = QStringLiteral("laterBtn");
    const QString update = QStringLiteral("immedBtn");
    QTest::newRow("optional") << QStringLiteral("1") << QStringList()
                              << QStringList{notes, QStringLiteral("checkRemid"), later, update};
    QTest::newRow("optional without the box")
        << QStringLiteral("1") << QStringList(QStringLiteral("-noremid"))
        << QStringList{notes, later, update};
    QTest::newRow("forced") << QStringLiteral("2") << QStringList() << QStringList{notes, update};
}

void TestUpdateDialog::tabVisitsTheControlsInReadingOrder()
{
    QFETCH(QString, mode);
    QFETCH(QStringList, arguments);
    const PromptMachine machine;
    Global::instance.cmdLineArgs = arguments;
    machine.Shown(mode);
    machine.Has<QWidget>("updateText")->setFocus();

    QTEST(TabRound(*machine.prompt), "names");

    QTest::keyClick(machine.prompt->focusWidget(), Qt::Key_Tab, Qt::ShiftModifier);
    QCOMPARE(machine.prompt->focusWidget(), machine.Has<QWidget>("immedBtn"));
}

void TestUpdateDialog::theFocusIsFramedForTheKeyboard_data()
{
    QTest::addColumn<QByteArray>("name");
    for (const char *name : {"updateText", "checkRemid", "laterBtn", "immedBtn"})
        QTest::newRow(name) << QByteArray(name);
}

void TestUpdateDialog::theFocusIsFramedForTheKeyboard()
{
    QFETCH(QByteArray, name);
    const PromptMachine machine;
    machine.Shown();
    auto *widget = machine.Has<QWidget>(name.constData());
    machine.Has<QWidget>(name == "updateText" ? "laterBtn" : "updateText")->setFocus();
    const QImage before = Picture(*machine.prompt);

    while (machine.prompt->focusWidget() != widget)
        QTest::keyClick(machine.prompt->focusWidget(), Qt::Key_Tab);

    // A frame is drawn around the widget, whose content does not change.
    const QRect place = PlaceIn(*machine.prompt, *widget);
    const QImage after = Picture(*machine.prompt);
    // The style decides how to draw the empty box.
    const QRect own = name == "checkRemid" ? place.adjusted(16, 0, 0, 0) : place;
    QCOMPARE(after.copy(own), before.copy(own));
    const QRect around = place.marginsAdded(QMargins(3, 3, 3, 3));
    QVERIFY(after.copy(around) != before.copy(around));

    // The frame disappears with the focus.
    machine.Has<QWidget>(name == "laterBtn" ? "immedBtn" : "laterBtn")->setFocus();
    QCOMPARE(Picture(*machine.prompt).copy(around), before.copy(around));
}

void TestUpdateDialog::theFocusIsNotFramedForTheMouse()
{
    const PromptMachine machine;
    machine.Shown();
    const QImage before = Picture(*machine.prompt);

    auto *box = machine.Has<QCheckBox>("checkRemid");
    QTest::mouseClick(box, Qt::LeftButton, Qt::NoModifier, QPoint(8, 8));
    QTest::mouseClick(box, Qt::LeftButton, Qt::NoModifier, QPoint(8, 8));

    QVERIFY(box->hasFocus());
    QCOMPARE(Picture(*machine.prompt), before);
}

void TestUpdateDialog::theKeyboardScrollsTheReleaseNotes()
{
    const PromptMachine machine;
    Global::instance.latestVersionInfo = QStringLiteral("line<br>").repeated(100);
    machine.Shown();
    auto *notes = machine.Has<QTextEdit>("updateText");
    notes->setFocus();

    QTest::keyClick(notes, Qt::Key_Down);
    const int oneStep = notes->verticalScrollBar()->value();
    QVERIFY(oneStep > 0);
    QTest::keyClick(notes, Qt::Key_PageDown);
    QVERIFY(notes->verticalScrollBar()->value() > 2 * oneStep);
    QVERIFY(machine.prompt->isVisible());
}

void TestUpdateDialog::hasItsSignalAndSlotsInOrder()
{
    QCOMPARE(OwnMethods(UpdateDialog::staticMetaObject),
             QStringList({QStringLiteral("signal getPack()"), QStringLiteral("slot LaterUpdate()"),
                          QStringLiteral("slot ImmediatelyUpdate()"),
                          QStringLiteral("slot updateMode(QString)")}));
}

void TestUpdateDialog::tellsScreenReadersItsTexts_data()
{
    AddLanguages();
}

void TestUpdateDialog::tellsScreenReadersItsTexts()
{
    const PromptMachine machine;
    Global::instance.language = Language();
    machine.Shown();

    const auto name = [&](const char *widget) {
        return AccessibleName(machine.Has<QWidget>(widget));
    };
    QCOMPARE(AccessibleName(machine.prompt.get()), InLanguage("App Update", "应用更新"));
    QCOMPARE(name("labText"),
             InLanguage("New version detected, update?", "检测到新版本，是否更新?"));
    QCOMPARE(name("labVersion"),
             InLanguage("Version V2.1.3  Update Package 1.50M", "版本号V2.1.3  更新包 1.50M"));
    QCOMPARE(name("updateText"), InLanguage("Release notes", "更新说明"));
    QCOMPARE(name("checkRemid"), InLanguage("Never Prompt", "不再提醒"));
    QCOMPARE(name("laterBtn"), InLanguage("Later", "稍后更新"));
    QCOMPARE(name("immedBtn"), InLanguage("Update", "立即更新"));
    QVERIFY(!name("labIco").isEmpty());
}

void TestUpdateDialog::logsNothing_data()
{
    AddLanguages();
}

void TestUpdateDialog::logsNothing()
{
    for (const char *mode : {"1", "2"}) {
        const PromptMachine machine;
        Global::instance.language = Language();
        machine.Shown(QLatin1String(mode));
        QVERIFY(!Picture(*machine.prompt).isNull());
        machine.Has<QCheckBox>("checkRemid")->setChecked(true);
        QVERIFY(!Picture(*machine.prompt).isNull());
        machine.Click("immedBtn");
        QVERIFY(!Picture(machine.Progress()).isNull());

        QCOMPARE(machine.log.Messages(), QStringList());
    }
}

QTEST_MAIN(TestUpdateDialog)
#include "tst_updatedialog.moc"
