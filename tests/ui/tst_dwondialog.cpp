// SPDX-License-Identifier: MIT
#include "ui/dwondialog.h"

#include "config/global.h"
#include "tests/support/logcapture.h"
#include "tests/support/testhome.h"
#include "tests/ui/dialogs.h"
#include "ui/netdialog.h"

#include <QDockWidget>
#include <QFocusFrame>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

namespace
{

constexpr qint64 kMoreThanAnyDrive = qint64(1) << 60;

const QColor kBlue(66, 133, 246);
const QColor kRed(250, 81, 81);

/// Counts how often a widget is drawn.
class PaintCount : public QObject
{
public:
    int count = 0;

protected:
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::Paint)
            ++count;
        return false;
    }
};

} // namespace

class TestDwonDialog : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void isAFixedWindowOf480By292();
    void hasItsWidgetsInTheirPlaces_data();
    void hasItsWidgetsInTheirPlaces();
    void staysHiddenWithItsConfirmationUntilShown();
    void holdsTheTextsOfItsFormUntilTheyAreSet();
    void showsTheTextsOfTheLanguage_data();
    void showsTheTextsOfTheLanguage();
    void showsThePackageSize_data();
    void showsThePackageSize();
    void showsAVersionWithMarkupAsItIs();
    void showsAnErrorWithMarkupAsItIs();
    void translatesThePercentageAndTheSizeOnly_data();
    void translatesThePercentageAndTheSizeOnly();
    void stylesItsWidgets_data();
    void stylesItsWidgets();
    void drawsTheLogoAndTheWhiteWindow();

    void showsThePercentageRoundedDown_data();
    void showsThePercentageRoundedDown();
    void fillsTheBarByBytes();
    void drawsTheBarAtEveryStep();
    void keepsThePercentageOfAPackageBeyond32Bits();
    void startsAgainFromZeroWhenTheTextsAreSet();

    void showsAnErrorInRedAndOffersToRetry_data();
    void showsAnErrorInRedAndOffersToRetry();
    void takesAnErrorByItsSignal();
    void keepsTheLastErrorOfSeveral();
    void retryDownloadsAgainAndLooksNormal_data();
    void retryDownloadsAgainAndLooksNormal();
    void retryLooksNormalOnlyAfterItsSignal_data();
    void retryLooksNormalOnlyAfterItsSignal();
    void retryWithoutRoomChangesNothing_data();
    void retryWithoutRoomChangesNothing();
    void aSecondClickOnRetryDoesNotDownloadTwice();
    void ignoresTheButtonWithAnyOtherText();

    void cancelAsksFirst_data();
    void cancelAsksFirst();
    void theConfirmationLiesOverTheLowerPart();
    void theConfirmationHasNoGrayCorners();
    void keepingTheUpdateOnlyHidesTheConfirmation();
    void confirmingTheCancellationQuits();
    void theDownloadGoesOnBehindTheConfirmation();
    void anErrorBehindTheConfirmationIsThereAfterwards();
    void closingTheWindowAsksAndKeepsItOpen_data();
    void closingTheWindowAsksAndKeepsItOpen();

    void escAsksAndEscAgainKeepsTheUpdateGoing();
    void theFocusIsFramedForTheKeyboard();
    void enterPressesTheOneButton_data();
    void enterPressesTheOneButton();
    void spacePressesTheOneButton();
    void enterInTheConfirmationKeepsTheUpdateGoing();
    void tabStaysOnTheOneButton();
    void tabGoesThroughTheConfirmation();
    void theButtonHasTheFocusAgainAfterTheConfirmation();

    void hasItsSignalsAndSlotsInOrder();
    void tellsScreenReadersItsTexts_data();
    void tellsScreenReadersItsTexts();
    void logsNothing_data();
    void logsNothing();

private:
    static void AddLanguages();
    static void FetchLanguage();
    DwonDialog &Shown();

    std::unique_ptr<TestHome> home;
    std::unique_ptr<DwonDialog> dialog;
};

void TestDwonDialog::initTestCase()
{
    Q_INIT_RESOURCE(resources);
}

void TestDwonDialog::init()
{
    home = std::make_unique<TestHome>();
    Global::instance.latestVersion = QStringLiteral("2.1.3");
    Global::instance.packageSize = 1572864;
    dialog = std::make_unique<DwonDialog>();
}

void TestDwonDialog::cleanup()
{
    dialog.reset();
    home.reset();
}

void TestDwonDialog::AddLanguages()
{
    QTest::addColumn<QString>("language");
    QTest::newRow("English") << QStringLiteral("en");
    QTest::newRow("Chinese") << QStringLiteral("zh");
}

void TestDwonDialog::FetchLanguage()
{
    QFETCH(QString, language);
    Global::instance.language = language;
}

/// Shows the dialog as the prompt does.
DwonDialog &TestDwonDialog::Shown()
{
    dialog = std::make_unique<DwonDialog>();
    dialog->SetTexts();
    if (!ShowActive(*dialog))
        qFatal("the dialog does not become active");
    return *dialog;
}

void TestDwonDialog::isAFixedWindowOf480By292()
{
    QCOMPARE(dialog->objectName(), QStringLiteral("DwonDialog"));
    QCOMPARE(dialog->size(), QSize(480, 292));
    QCOMPARE(dialog->minimumSize(), QSize(480, 292));
    QCOMPARE(dialog->maximumSize(), QSize(480, 292));
    QCOMPARE(dialog->windowFlags(), FlagsOfClosableWindow());
    QVERIFY(HasLogoAsIcon(*dialog));
}

void TestDwonDialog::hasItsWidgetsInTheirPlaces_data()
{
    QTest::addColumn<QByteArray>("className");
    QTest::addColumn<QRect>("place");

    QTest::newRow("labIco") << QByteArray("QLabel") << QRect(24, 20, 48, 48);
    QTest::newRow("labText") << QByteArray("QLabel") << QRect(80, 20, 391, 22);
    QTest::newRow("labVersion") << QByteArray("QLabel") << QRect(80, 46, 391, 22);
    QTest::newRow("labInstall") << QByteArray("QLabel") << QRect(24, 104, 451, 22);
    QTest::newRow("progressBar") << QByteArray("QProgressBar") << QRect(24, 134, 431, 8);
    QTest::newRow("cancleBtn") << QByteArray("QPushButton") << QRect(356, 236, 100, 36);
    QTest::newRow("dockWidget") << QByteArray("QDockWidget") << QRect(171, 179, 199, 114);
}

void TestDwonDialog::hasItsWidgetsInTheirPlaces()
{
    QFETCH(QByteArray, className);
    QFETCH(QRect, place);
    Shown();

    const auto *widget = Child<QWidget>(*dialog, QTest::currentDataTag());
    QCOMPARE(QByteArray(widget->metaObject()->className()), className);
    QCOMPARE(PlaceIn(*dialog, *widget), place);
    QCOMPARE(widget->isVisible(), className != "QDockWidget");
}

void TestDwonDialog::staysHiddenWithItsConfirmationUntilShown()
{
    QVERIFY(!dialog->isVisible());
    const auto *dock = Child<QDockWidget>(*dialog, "dockWidget");
    QVERIFY(dock->isHidden());
    QCOMPARE(dock->widget(), dialog->findChild<NetDialog *>());
    QVERIFY(dock->widget() != nullptr);
    QVERIFY(dock->titleBarWidget() != nullptr);
    QVERIFY(dock->titleBarWidget()->findChildren<QWidget *>().isEmpty());
    QVERIFY(!dock->isWindow());

    Shown();
    QVERIFY(dialog->isVisible());
    QVERIFY(Child<QDockWidget>(*dialog, "dockWidget")->isHidden());
}

void TestDwonDialog::holdsTheTextsOfItsFormUntilTheyAreSet()
{
    Global::instance.language = QStringLiteral("en");
    const DwonDialog fresh;

    QCOMPARE(fresh.windowTitle(), QStringLiteral("应用更新"));
    QCOMPARE(Child<QLabel>(fresh, "labText")->text(), QStringLiteral("Norvane"));
    QCOMPARE(Child<QLabel>(fresh, "labVersion")->text(), QStringLiteral("版本号V1.4.1006"));
    QCOMPARE(Child<QLabel>(fresh, "labInstall")->text(), QStringLiteral("正在安装中......0%"));
    QCOMPARE(Child<QProgressBar>(fresh, "progressBar")->value(), 0);
    QCOMPARE(Child<QPushButton>(fresh, "cancleBtn")->text(), QStringLiteral("取消"));
}

void TestDwonDialog::showsTheTextsOfTheLanguage_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<QStringList>("texts");

    const QStringList english{QStringLiteral("App Update"), QStringLiteral("NORVANE"),
                              QStringLiteral("Version V2.1.3  Update Package 1.50M"),
                              QStringLiteral("installing......0%"), QStringLiteral("Cancel")};
    const QStringList chinese{QStringLiteral("应用更新"), QStringLiteral("Norvane"),
                              QStringLiteral("版本号V2.1.3  更新包 1.50M"),
                              QStringLiteral("正在安装中......0%"), QStringLiteral("取消")};
    QTest::newRow("en") << QStringLiteral("en") << english;
    QTest::newRow("EN") << QStringLiteral("EN") << chinese;
    QTest::newRow("en_US") << QStringLiteral("en_US") << chinese;
    QTest::newRow("zh") << QStringLiteral("zh") << chinese;
    QTest::newRow("none") << QString() << chinese;
}

void TestDwonDialog::showsTheTextsOfTheLanguage()
{
    FetchLanguage();
    Shown();

    const QStringList seen{dialog->windowTitle(), Child<QLabel>(*dialog, "labText")->text(),
                           Child<QLabel>(*dialog, "labVersion")->text(),
                           Child<QLabel>(*dialog, "labInstall")->text(),
                           Child<QPushButton>(*dialog, "cancleBtn")->text()};
    QTEST(seen, "texts");
    QVERIFY2(!Child<QProgressBar>(*dialog, "progressBar")->isTextVisible(),
             "8 pixels have no room for a text");
}

void TestDwonDialog::showsThePackageSize_data()
{
    QTest::addColumn<qint64>("bytes");
    QTest::addColumn<QString>("size");

    QTest::newRow("nothing") << qint64(0) << QStringLiteral("0.00M");
    QTest::newRow("one MiB") << qint64(1048576) << QStringLiteral("1.00M");
    QTest::newRow("300 MiB") << qint64(314572800) << QStringLiteral("300.00M");
}

void TestDwonDialog::showsThePackageSize()
{
    QFETCH(qint64, bytes);
    QFETCH(QString, size);
    Global::instance.packageSize = bytes;

    dialog->SetTexts();

    QCOMPARE(Child<QLabel>(*dialog, "labVersion")->text(),
             QStringLiteral("版本号V2.1.3  更新包 ") + size);
    QCOMPARE(Child<QProgressBar>(*dialog, "progressBar")->maximum(), int(bytes));
}

void TestDwonDialog::showsAVersionWithMarkupAsItIs()
{
    Global::instance.latestVersion = QStringLiteral("<h1>9</h1>&amp;%1");
    Shown();

    auto *label = Child<QLabel>(*dialog, "labVersion");
    QCOMPARE(label->text(), QStringLiteral("版本号V<h1>9</h1>&amp;%1  更新包 1.50M"));
    const QImage seen = Picture(*label);
    label->setTextFormat(Qt::PlainText);
    QCOMPARE(seen, Picture(*label));
}

void TestDwonDialog::showsAnErrorWithMarkupAsItIs()
{
    Shown();
    dialog->UpdateErrorState(QStringLiteral("<h1>error</h1>"));

    auto *label = Child<QLabel>(*dialog, "labInstall");
    const QImage seen = Picture(*label);
    label->setTextFormat(Qt::PlainText);
    QCOMPARE(seen, Picture(*label));
}

void TestDwonDialog::translatesThePercentageAndTheSizeOnly_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<QString>("start");
    QTest::addColumn<QString>("progress");
    QTest::addColumn<QString>("version");
    QTest::addColumn<QString>("afterRetry");

    QTest::newRow("English") << QStringLiteral("en")
                             << QStringLiteral("[DwonDialog|installing......0%]")
                             << QStringLiteral("[DwonDialog|installing......50%]")
                             << QStringLiteral("Version V2.1.3[DwonDialog|  Update Package 1.50M]")
                             << QStringLiteral("installing......0%");
    QTest::newRow("Chinese") << QStringLiteral("zh")
                             << QStringLiteral("[DwonDialog|正在安装中......0%]")
                             << QStringLiteral("[DwonDialog|正在安装中......50%]")
                             << QStringLiteral("版本号V2.1.3[DwonDialog|  更新包 1.50M]")
                             << QStringLiteral("正在安装中......0%");
}

void TestDwonDialog::translatesThePercentageAndTheSizeOnly()
{
    FetchLanguage();
    const MarkingTranslator translator;
    dialog->SetTexts();
    const auto *line = Child<QLabel>(*dialog, "labInstall");
    auto *button = Child<QPushButton>(*dialog, "cancleBtn");

    QTEST(line->text(), "start");
    QTEST(Child<QLabel>(*dialog, "labVersion")->text(), "version");
    QCOMPARE(Child<QLabel>(*dialog, "labText")->text(), InLanguage("NORVANE", "Norvane"));
    QCOMPARE(dialog->windowTitle(), InLanguage("App Update", "应用更新"));
    QCOMPARE(button->text(), InLanguage("Cancel", "取消"));

    dialog->UpdateProgressBar(1, 2);
    QTEST(line->text(), "progress");

    dialog->UpdateErrorState(QStringLiteral("an error"));
    QCOMPARE(line->text(), QStringLiteral("an error"));
    QCOMPARE(button->text(), InLanguage("Retry", "重试"));

    dialog->CancleDownload();
    QTEST(line->text(), "afterRetry");
    QCOMPARE(button->text(), InLanguage("Cancel", "取消"));
}

void TestDwonDialog::stylesItsWidgets_data()
{
    AddStyleColumns();
    const auto add = AddStyle;
    add("labIco", "QLabel", "image", "url(:/image/resourceimg/logo.ico)");
    add("labText", "QLabel", "font-size", "16px");
    add("labText", "QLabel", "font-weight", "500");
    add("labText", "QLabel", "color", "rgba(32,49,82,1)");
    add("labText", "QLabel", "line-height", "22px");
    add("labVersion", "QLabel", "font-size", "14px");
    add("labVersion", "QLabel", "font-weight", "400");
    add("labVersion", "QLabel", "color", "rgba(143,152,168,1)");
    add("labVersion", "QLabel", "line-height", "22px");
    add("labInstall", "QLabel", "font-size", "14px");
    add("labInstall", "QLabel", "font-weight", "400");
    add("labInstall", "QLabel", "color", "rgba(32,49,82,1)");
    add("labInstall", "QLabel", "line-height", "22px");
    add("progressBar", "QProgressBar", "border-radius", "4px");
    add("progressBar", "QProgressBar::chunk", "border-radius", "4px");
    add("cancleBtn", "QPushButton", "font-size", "14px");
    add("cancleBtn", "QPushButton", "font-weight", "400");
    add("cancleBtn", "QPushButton", "color", "rgba(32,49,82,1)");
    add("cancleBtn", "QPushButton", "background-color", "rgba(255,255,255,1)");
    add("cancleBtn", "QPushButton", "border", "1pxsolidrgba(32,49,82,0.2)");
    add("cancleBtn", "QPushButton", "border-radius", "4px");
    add("cancleBtn", "QPushButton:hover", "border", "1pxsolidrgba(66,133,246,1)");
    add("cancleBtn", "QPushButton:pressed", "border", "1pxsolidrgba(66,133,246,1)");
    add("cancleBtn", "QPushButton:pressed", "color", "rgba(66,133,246,1)");
    add("dockWidget", "QDockWidget", "background-color", "rgb(148,148,148)");
}

void TestDwonDialog::stylesItsWidgets()
{
    QFETCH(QByteArray, widget);
    QFETCH(QString, selector);
    QFETCH(QString, property);
    Shown();

    const QString sheet = Child<QWidget>(*dialog, widget.constData())->styleSheet();
    QTEST(Declared(sheet, selector, property), "value");
}

void TestDwonDialog::drawsTheLogoAndTheWhiteWindow()
{
    Shown();
    const QImage seen = Picture(*dialog);

    VERIFY_COLOUR(seen.pixelColor(2, 2), QColor(255, 255, 255));
    VERIFY_COLOUR(seen.pixelColor(477, 289), QColor(255, 255, 255));
    QVERIFY(!IsNear(seen.pixelColor(30, 44), QColor(255, 255, 255)));
    QCOMPARE(Child<QLabel>(*dialog, "labIco")->alignment(), Qt::AlignCenter);
}

void TestDwonDialog::showsThePercentageRoundedDown_data()
{
    QTest::addColumn<qint64>("bytesRead");
    QTest::addColumn<qint64>("totalBytes");
    QTest::addColumn<int>("percent");

    QTest::newRow("nothing yet") << qint64(0) << qint64(1000) << 0;
    QTest::newRow("all") << qint64(1000) << qint64(1000) << 100;
    QTest::newRow("999 of 1000") << qint64(999) << qint64(1000) << 99;
    QTest::newRow("just under one percent") << qint64(9) << qint64(1000) << 0;
    QTest::newRow("one of three") << qint64(1) << qint64(3) << 33;
    QTest::newRow("more than announced") << qint64(1500) << qint64(1000) << 150;
    QTest::newRow("a third of 9 GB") << qint64(3000000000) << qint64(9000000000) << 33;
    QTest::newRow("all of 9 GB") << qint64(9000000000) << qint64(9000000000) << 100;
    QTest::newRow("total unknown") << qint64(500) << qint64(-1) << 0;
    QTest::newRow("total of zero") << qint64(500) << qint64(0) << 0;
    QTest::newRow("nothing of zero") << qint64(0) << qint64(0) << 0;
}

void TestDwonDialog::showsThePercentageRoundedDown()
{
    QFETCH(qint64, bytesRead);
    QFETCH(qint64, totalBytes);
    QFETCH(int, percent);
    const auto *line = Child<QLabel>(*dialog, "labInstall");

    for (const char *language : {"en", "zh"}) {
        Global::instance.language = QLatin1String(language);
        dialog->SetTexts();
        dialog->UpdateProgressBar(bytesRead, totalBytes);
        QCOMPARE(line->text(),
                 InLanguage("installing......%1%", "正在安装中......%1%").arg(percent));
    }
}

void TestDwonDialog::fillsTheBarByBytes()
{
    Global::instance.packageSize = 1000;
    Shown();
    auto *bar = Child<QProgressBar>(*dialog, "progressBar");
    QCOMPARE(bar->minimum(), 0);
    QCOMPARE(bar->maximum(), 1000);
    QCOMPARE(bar->value(), 0);

    dialog->UpdateProgressBar(250, 2000);

    QCOMPARE(bar->value(), 250);
    QCOMPARE(bar->maximum(), 1000);
    VERIFY_COLOUR(Picture(*bar).pixelColor(50, 4), kBlue);
    VERIFY_COLOUR(Picture(*bar).pixelColor(300, 4), QColor(217, 231, 253));
}

void TestDwonDialog::drawsTheBarAtEveryStep()
{
    Global::instance.packageSize = 1000;
    Shown();
    auto *bar = Child<QProgressBar>(*dialog, "progressBar");
    PaintCount paints;
    bar->installEventFilter(&paints);
    for (int bytes = 1; bytes <= 5; ++bytes) {
        const int before = paints.count;
        dialog->UpdateProgressBar(bytes, 1000);
        QTRY_VERIFY2(paints.count > before, qPrintable(QString::number(bytes)));
    }
}

void TestDwonDialog::keepsThePercentageOfAPackageBeyond32Bits()
{
    Global::instance.packageSize = 6442450944;
    Shown();
    const auto *bar = Child<QProgressBar>(*dialog, "progressBar");
    QCOMPARE(bar->maximum(), -2147483647 - 1);

    dialog->UpdateProgressBar(3221225472, 6442450944);

    QCOMPARE(Child<QLabel>(*dialog, "labInstall")->text(), QStringLiteral("正在安装中......50%"));
}

void TestDwonDialog::startsAgainFromZeroWhenTheTextsAreSet()
{
    Global::instance.packageSize = 1000;
    dialog->SetTexts();
    dialog->UpdateProgressBar(500, 1000);

    dialog->SetTexts();

    QCOMPARE(Child<QProgressBar>(*dialog, "progressBar")->value(), 0);
    QCOMPARE(Child<QLabel>(*dialog, "labInstall")->text(), QStringLiteral("正在安装中......0%"));
}

void TestDwonDialog::showsAnErrorInRedAndOffersToRetry_data()
{
    AddLanguages();
}

void TestDwonDialog::showsAnErrorInRedAndOffersToRetry()
{
    FetchLanguage();
    Shown();
    dialog->UpdateProgressBar(786432, 1572864);

    dialog->UpdateErrorState(QStringLiteral("it failed \u2588\u2588"));

    auto *button = Child<QPushButton>(*dialog, "cancleBtn");
    auto *line = Child<QLabel>(*dialog, "labInstall");
    auto *bar = Child<QProgressBar>(*dialog, "progressBar");
    QCOMPARE(button->text(), InLanguage("Retry", "重试"));
    QCOMPARE(line->text(), QStringLiteral("it failed \u2588\u2588"));
    QCOMPARE(line->styleSheet(), QStringLiteral("color:rgba(250,81,81,1);"));
    QVERIFY(Shows(Picture(*line), kRed));
    QCOMPARE(bar->value(), 786432);
    VERIFY_COLOUR(Picture(*bar).pixelColor(50, 4), kRed);
    VERIFY_COLOUR(Picture(*bar).pixelColor(400, 4), QColor(254, 238, 238));

    const QString sheet = button->styleSheet();
    QCOMPARE(Declared(sheet, QStringLiteral("QPushButton"), QStringLiteral("color")),
             QStringLiteral("rgba(255,255,255,1)"));
    QCOMPARE(Declared(sheet, QStringLiteral("QPushButton"), QStringLiteral("border-radius")),
             QStringLiteral("4px"));
    VERIFY_COLOUR(PictureUnderMouse(*button).pixelColor(10, 18), QColor(85, 145, 246));
    VERIFY_COLOUR(PictureWhilePressed(*button).pixelColor(10, 18), QColor(62, 124, 228));
    const QString barSheet = bar->styleSheet();
    QCOMPARE(Declared(barSheet, QStringLiteral("QProgressBar"), QStringLiteral("border-radius")),
             QStringLiteral("4px"));
    QCOMPARE(
        Declared(barSheet, QStringLiteral("QProgressBar::chunk"), QStringLiteral("border-radius")),
        QStringLiteral("4px"));
}

void TestDwonDialog::takesAnErrorByItsSignal()
{
    dialog->SetTexts();

    emit dialog->ErrSignal(QStringLiteral("it failed"));

    QCOMPARE(Child<QLabel>(*dialog, "labInstall")->text(), QStringLiteral("it failed"));
    QCOMPARE(Child<QPushButton>(*dialog, "cancleBtn")->text(), QStringLiteral("重试"));
}

void TestDwonDialog::keepsTheLastErrorOfSeveral()
{
    dialog->SetTexts();

    emit dialog->ErrSignal(QStringLiteral("first"));
    emit dialog->ErrSignal(QStringLiteral("second"));

    QCOMPARE(Child<QLabel>(*dialog, "labInstall")->text(), QStringLiteral("second"));
    QCOMPARE(Child<QPushButton>(*dialog, "cancleBtn")->text(), QStringLiteral("重试"));
}

void TestDwonDialog::retryDownloadsAgainAndLooksNormal_data()
{
    AddLanguages();
}

void TestDwonDialog::retryDownloadsAgainAndLooksNormal()
{
    FetchLanguage();
    Global::instance.packageSize = 1000;
    Shown();
    dialog->UpdateProgressBar(500, 1000);
    dialog->UpdateErrorState(QStringLiteral("it failed"));
    const QSignalSpy again(dialog.get(), &DwonDialog::GetPackAgain);
    auto *button = Child<QPushButton>(*dialog, "cancleBtn");

    QTest::mouseClick(button, Qt::LeftButton);

    QCOMPARE(again.count(), 1);
    QCOMPARE(button->text(), InLanguage("Cancel", "取消"));
    auto *line = Child<QLabel>(*dialog, "labInstall");
    QCOMPARE(line->text(), InLanguage("installing......0%", "正在安装中......0%"));
    QCOMPARE(line->styleSheet(), QStringLiteral("color:black;"));
    auto *bar = Child<QProgressBar>(*dialog, "progressBar");
    QCOMPARE(bar->value(), 0);
    VERIFY_COLOUR(Picture(*bar).pixelColor(50, 4), QColor(217, 231, 253));
    VERIFY_COLOUR(Picture(*button).pixelColor(10, 18), QColor(255, 255, 255));
    QVERIFY(Child<QDockWidget>(*dialog, "dockWidget")->isHidden());

    dialog->UpdateProgressBar(500, 1000);
    VERIFY_COLOUR(Picture(*bar).pixelColor(50, 4), kBlue);
}

void TestDwonDialog::retryLooksNormalOnlyAfterItsSignal_data()
{
    AddLanguages();
}

void TestDwonDialog::retryLooksNormalOnlyAfterItsSignal()
{
    FetchLanguage();
    Shown();
    dialog->UpdateErrorState(QStringLiteral("it failed"));
    auto *button = Child<QPushButton>(*dialog, "cancleBtn");
    QStringList seen;
    connect(dialog.get(), &DwonDialog::GetPackAgain, [&] {
        seen = QStringList{button->text(), Child<QLabel>(*dialog, "labInstall")->text()};
    });

    QTest::mouseClick(button, Qt::LeftButton);

    QCOMPARE(seen, QStringList({InLanguage("Retry", "重试"), QStringLiteral("it failed")}));
    QCOMPARE(button->text(), InLanguage("Cancel", "取消"));
}

void TestDwonDialog::retryWithoutRoomChangesNothing_data()
{
    AddLanguages();
}

void TestDwonDialog::retryWithoutRoomChangesNothing()
{
    FetchLanguage();
    Shown();
    dialog->UpdateProgressBar(786432, 1572864);
    dialog->UpdateErrorState(QStringLiteral("it failed"));
    auto *button = Child<QPushButton>(*dialog, "cancleBtn");
    button->setFocus();
    const QImage before = Picture(*dialog);
    const QSignalSpy again(dialog.get(), &DwonDialog::GetPackAgain);
    Global::instance.packageSize = kMoreThanAnyDrive;

    QTest::mouseClick(button, Qt::LeftButton);

    QCOMPARE(again.count(), 0);
    QCOMPARE(button->text(), InLanguage("Retry", "重试"));
    QCOMPARE(Child<QLabel>(*dialog, "labInstall")->text(), QStringLiteral("it failed"));
    QCOMPARE(Picture(*dialog), before);
}

void TestDwonDialog::aSecondClickOnRetryDoesNotDownloadTwice()
{
    Shown();
    dialog->UpdateErrorState(QStringLiteral("it failed"));
    const QSignalSpy again(dialog.get(), &DwonDialog::GetPackAgain);

    QueueClicks(Child<QPushButton>(*dialog, "cancleBtn"), 2);
    QCoreApplication::processEvents();

    QCOMPARE(again.count(), 1);
}

void TestDwonDialog::ignoresTheButtonWithAnyOtherText()
{
    Shown();
    const QSignalSpy again(dialog.get(), &DwonDialog::GetPackAgain);
    auto *button = Child<QPushButton>(*dialog, "cancleBtn");

    for (const char *text : {"", "cancel", "RETRY", "OK", "Cancel "}) {
        button->setText(QLatin1String(text));
        QTest::mouseClick(button, Qt::LeftButton);
        QCOMPARE(button->text(), QLatin1String(text));
    }

    QCOMPARE(again.count(), 0);
    QVERIFY(Child<QDockWidget>(*dialog, "dockWidget")->isHidden());
}

void TestDwonDialog::cancelAsksFirst_data()
{
    AddLanguages();
}

void TestDwonDialog::cancelAsksFirst()
{
    FetchLanguage();
    Shown();
    const QSignalSpy again(dialog.get(), &DwonDialog::GetPackAgain);

    const bool quits = Quits(
        [this] { QTest::mouseClick(Child<QPushButton>(*dialog, "cancleBtn"), Qt::LeftButton); });

    QVERIFY(!quits);
    QCOMPARE(again.count(), 0);
    QVERIFY(dialog->isVisible());
    QVERIFY(Child<QDockWidget>(*dialog, "dockWidget")->isVisible());
    QVERIFY(Child<NetDialog>(*dialog, "NetDialog")->isVisible());
    QCOMPARE(Child<QPushButton>(*dialog, "cancleBtn")->text(), InLanguage("Cancel", "取消"));
    QCOMPARE(Child<QLabel>(*dialog, "lab")->text(), InLanguage("Update Cancel?", "确定取消更新?"));
}

void TestDwonDialog::theConfirmationLiesOverTheLowerPart()
{
    Shown();
    QTest::mouseClick(Child<QPushButton>(*dialog, "cancleBtn"), Qt::LeftButton);
    QCoreApplication::processEvents();

    const auto *panel = Child<NetDialog>(*dialog, "NetDialog");
    QCOMPARE(PlaceIn(*dialog, *panel), QRect(171, 179, 199, 114));
    QVERIFY(!panel->isWindow());
    QCOMPARE(dialog->childAt(171 + 100, 179 + 40), Child<QWidget>(*dialog, "lab"));
    QCOMPARE(dialog->childAt(171 + 90, 179 + 75), Child<QWidget>(*dialog, "cbtn"));
    QCOMPARE(dialog->childAt(171 + 140, 179 + 75), Child<QWidget>(*dialog, "sbtn"));
    // The panel covers part of the button below, which can be pressed next to it.
    QVERIFY(dialog->childAt(360, 250) != Child<QWidget>(*dialog, "cancleBtn"));
    QCOMPARE(dialog->childAt(380, 250), Child<QWidget>(*dialog, "cancleBtn"));
}

void TestDwonDialog::theConfirmationHasNoGrayCorners()
{
    Shown();
    dialog->CancleDownload();
    QCoreApplication::processEvents();
    const QImage seen = Picture(*dialog);

    for (const QPoint &corner : {QPoint(171, 179), QPoint(171, 291)})
        QVERIFY2(seen.pixelColor(corner).lightness() > 240,
                 qPrintable(seen.pixelColor(corner).name()));
    VERIFY_COLOUR(seen.pixelColor(171 + 100, 179 + 57), QColor(255, 255, 255));
}

void TestDwonDialog::keepingTheUpdateOnlyHidesTheConfirmation()
{
    Shown();
    dialog->UpdateProgressBar(786432, 1572864);
    const auto *dock = Child<QDockWidget>(*dialog, "dockWidget");
    const QSignalSpy again(dialog.get(), &DwonDialog::GetPackAgain);

    const bool quits = Quits([&] {
        for (int i = 0; i < 3; ++i) {
            QTest::mouseClick(Child<QPushButton>(*dialog, "cancleBtn"), Qt::LeftButton);
            QVERIFY(dock->isVisible());
            QTest::mouseClick(Child<QPushButton>(*dialog, "cbtn"), Qt::LeftButton);
            QVERIFY(dock->isHidden());
        }
    });

    QVERIFY(!quits);
    QVERIFY(dialog->isVisible());
    QCOMPARE(again.count(), 0);
    QCOMPARE(Child<QPushButton>(*dialog, "cancleBtn")->text(), QStringLiteral("取消"));
    QCOMPARE(Child<QLabel>(*dialog, "labInstall")->text(), QStringLiteral("正在安装中......50%"));
    QCOMPARE(Child<QProgressBar>(*dialog, "progressBar")->value(), 786432);
}

void TestDwonDialog::confirmingTheCancellationQuits()
{
    Shown();

    QVERIFY(Quits([this] {
        dialog->CancleDownload();
        QTest::mouseClick(Child<QPushButton>(*dialog, "sbtn"), Qt::LeftButton);
    }));
}

void TestDwonDialog::theDownloadGoesOnBehindTheConfirmation()
{
    Shown();
    dialog->CancleDownload();

    dialog->UpdateProgressBar(786432, 1572864);

    QVERIFY(Child<QDockWidget>(*dialog, "dockWidget")->isVisible());
    QCOMPARE(Child<QLabel>(*dialog, "labInstall")->text(), QStringLiteral("正在安装中......50%"));
}

void TestDwonDialog::anErrorBehindTheConfirmationIsThereAfterwards()
{
    Shown();
    dialog->CancleDownload();

    emit dialog->ErrSignal(QStringLiteral("it failed"));
    QTest::mouseClick(Child<QPushButton>(*dialog, "cbtn"), Qt::LeftButton);

    QVERIFY(Child<QDockWidget>(*dialog, "dockWidget")->isHidden());
    QCOMPARE(Child<QLabel>(*dialog, "labInstall")->text(), QStringLiteral("it failed"));
    QCOMPARE(Child<QPushButton>(*dialog, "cancleBtn")->text(), QStringLiteral("重试"));
}

void TestDwonDialog::closingTheWindowAsksAndKeepsItOpen_data()
{
    QTest::addColumn<bool>("afterAnError");
    QTest::newRow("while downloading") << false;
    QTest::newRow("after an error") << true;
}

void TestDwonDialog::closingTheWindowAsksAndKeepsItOpen()
{
    QFETCH(bool, afterAnError);
    Shown();
    if (afterAnError)
        dialog->UpdateErrorState(QStringLiteral("it failed"));

    const bool quits = Quits([this] {
        QVERIFY(!dialog->close());
        QVERIFY(!dialog->close());
    });

    QVERIFY(!quits);
    QVERIFY(dialog->isVisible());
    QVERIFY(Child<QDockWidget>(*dialog, "dockWidget")->isVisible());
    QCOMPARE(Child<QPushButton>(*dialog, "cancleBtn")->text(),
             afterAnError ? QStringLiteral("重试") : QStringLiteral("取消"));
}

void TestDwonDialog::escAsksAndEscAgainKeepsTheUpdateGoing()
{
    Shown();
    const auto *dock = Child<QDockWidget>(*dialog, "dockWidget");

    const bool quits = Quits([&] {
        for (int i = 0; i < 2; ++i) {
            QTest::keyClick(dialog->focusWidget(), Qt::Key_Escape);
            QVERIFY(dock->isVisible());
            QTest::keyClick(dialog->focusWidget(), Qt::Key_Escape);
            QVERIFY(dock->isHidden());
        }
        QTest::keyClick(dialog.get(), Qt::Key_Escape);
        QVERIFY(dock->isVisible());
        QTest::keyClick(dialog.get(), Qt::Key_Escape);
        QVERIFY(dock->isHidden());
    });

    QVERIFY(!quits);
    QVERIFY(dialog->isVisible());
}

void TestDwonDialog::theFocusIsFramedForTheKeyboard()
{
    Shown();
    auto *button = Child<QPushButton>(*dialog, "cancleBtn");
    const auto *frame = dialog->findChild<QFocusFrame *>();
    QVERIFY(frame != nullptr);
    const QImage before = Picture(*button);
    QVERIFY(!frame->isVisible());
    dialog->CancleDownload();
    QVERIFY(!frame->isVisible());

    for (const char *name : {"cbtn", "sbtn", "cancleBtn"}) {
        QTest::keyClick(dialog->focusWidget(), Qt::Key_Tab);
        QCOMPARE(dialog->focusWidget(), Child<QWidget>(*dialog, name));
        QVERIFY(frame->isVisible());
        QCOMPARE(frame->widget(), dialog->focusWidget());
    }
    dialog->CloseCancleDlg();
    QCOMPARE(frame->widget(), button);
    QCOMPARE(Picture(*button), before);

    QTest::keyClick(button, Qt::Key_Escape);
    QVERIFY2(!frame->isVisible(), "the panel itself has the focus");
}

void TestDwonDialog::enterPressesTheOneButton_data()
{
    QTest::addColumn<int>("key");
    QTest::newRow("on the letters") << int(Qt::Key_Return);
    QTest::newRow("on the number pad") << int(Qt::Key_Enter);
}

void TestDwonDialog::enterPressesTheOneButton()
{
    QFETCH(int, key);
    Shown();
    QTest::keyClick(dialog.get(), Qt::Key(key));
    QVERIFY(Child<QDockWidget>(*dialog, "dockWidget")->isVisible());

    Shown();
    dialog->UpdateErrorState(QStringLiteral("it failed"));
    const QSignalSpy again(dialog.get(), &DwonDialog::GetPackAgain);
    QTest::keyClick(dialog->focusWidget(), Qt::Key(key));
    QCOMPARE(again.count(), 1);
}

void TestDwonDialog::spacePressesTheOneButton()
{
    Shown();

    QCOMPARE(dialog->focusWidget(), Child<QWidget>(*dialog, "cancleBtn"));
    QTest::keyClick(dialog->focusWidget(), Qt::Key_Space);

    QVERIFY(Child<QDockWidget>(*dialog, "dockWidget")->isVisible());
}

void TestDwonDialog::enterInTheConfirmationKeepsTheUpdateGoing()
{
    Shown();

    const bool quits = Quits([this] {
        QTest::keyClick(dialog->focusWidget(), Qt::Key_Return);
        QVERIFY(Child<QDockWidget>(*dialog, "dockWidget")->isVisible());
        QTest::keyClick(dialog->focusWidget(), Qt::Key_Return);
        QVERIFY(Child<QDockWidget>(*dialog, "dockWidget")->isHidden());
    });

    QVERIFY(!quits);
}

void TestDwonDialog::tabStaysOnTheOneButton()
{
    Shown();

    QCOMPARE(TabRound(*dialog), QStringList(QStringLiteral("cancleBtn")));
}

void TestDwonDialog::tabGoesThroughTheConfirmation()
{
    Shown();
    QTest::keyClick(dialog->focusWidget(), Qt::Key_Space);
    QVERIFY2(Child<NetDialog>(*dialog, "NetDialog")->hasFocus() ||
                 Child<QPushButton>(*dialog, "cbtn")->hasFocus(),
             "the keyboard goes to the question");

    Child<QPushButton>(*dialog, "cbtn")->setFocus();
    const QStringList names = TabRound(*dialog);

    QCOMPARE(names.mid(0, 2), QStringList({QStringLiteral("cbtn"), QStringLiteral("sbtn")}));
}

void TestDwonDialog::theButtonHasTheFocusAgainAfterTheConfirmation()
{
    Shown();

    QTest::keyClick(dialog->focusWidget(), Qt::Key_Space);
    QTest::mouseClick(Child<QPushButton>(*dialog, "cbtn"), Qt::LeftButton);

    QCOMPARE(dialog->focusWidget(), Child<QWidget>(*dialog, "cancleBtn"));
}

void TestDwonDialog::hasItsSignalsAndSlotsInOrder()
{
    QCOMPARE(OwnMethods(DwonDialog::staticMetaObject),
             QStringList({QStringLiteral("signal GetPackAgain()"),
                          QStringLiteral("signal ErrSignal(QString)"),
                          QStringLiteral("slot CancleDownload()"),
                          QStringLiteral("slot CloseCancleDlg()"),
                          QStringLiteral("slot QuitDwonThread()"),
                          QStringLiteral("slot UpdateErrorState(QString)"),
                          QStringLiteral("slot UpdateProgressBar(qlonglong,qlonglong)")}));
}

void TestDwonDialog::tellsScreenReadersItsTexts_data()
{
    AddLanguages();
}

void TestDwonDialog::tellsScreenReadersItsTexts()
{
    FetchLanguage();
    Shown();

    const auto name = [this](const char *widget) {
        return AccessibleName(Child<QWidget>(*dialog, widget));
    };
    QCOMPARE(name("progressBar"), InLanguage("Download progress", "下载进度"));
    QCOMPARE(name("cancleBtn"), InLanguage("Cancel", "取消"));
    QCOMPARE(name("labText"), InLanguage("NORVANE", "Norvane"));
    QCOMPARE(name("labInstall"), InLanguage("installing......0%", "正在安装中......0%"));
    QCOMPARE(name("labVersion"),
             InLanguage("Version V2.1.3  Update Package 1.50M", "版本号V2.1.3  更新包 1.50M"));
    QVERIFY(!name("labIco").isEmpty());
    QCOMPARE(AccessibleName(dialog.get()), InLanguage("App Update", "应用更新"));

    dialog->UpdateErrorState(QStringLiteral("it failed"));
    QCOMPARE(name("cancleBtn"), InLanguage("Retry", "重试"));
    QCOMPARE(name("labInstall"), QStringLiteral("it failed"));
}

void TestDwonDialog::logsNothing_data()
{
    AddLanguages();
}

void TestDwonDialog::logsNothing()
{
    FetchLanguage();
    const LogCapture log;
    Shown();
    dialog->UpdateProgressBar(1, 2);
    dialog->CancleDownload();
    QVERIFY(!Picture(*dialog).isNull());
    dialog->CloseCancleDlg();
    dialog->UpdateErrorState(QStringLiteral("it failed"));
    QVERIFY(!Picture(*dialog).isNull());
    dialog->CancleDownload();
    QVERIFY(!Picture(*dialog).isNull());

    QCOMPARE(log.Messages(), QStringList());
}

QTEST_MAIN(TestDwonDialog)
#include "tst_dwondialog.moc"
