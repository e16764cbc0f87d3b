// SPDX-License-Identifier: MIT
#include "ui/netdialog.h"

#include "config/global.h"
#include "tests/support/logcapture.h"
#include "tests/support/testhome.h"
#include "tests/ui/dialogs.h"

#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

class TestNetDialog : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();

    void isAPanelOf199By114();
    void hasItsWidgetsInTheirPlaces_data();
    void hasItsWidgetsInTheirPlaces();
    void asksInTheLanguageShown_data();
    void asksInTheLanguageShown();
    void translatesTheChineseTextsOnly();
    void paintsThePanelOnceAndNothingAroundIt();
    void stylesItsWidgets_data();
    void stylesItsWidgets();
    void showsItsButtonsInTheColoursOfTheirState_data();
    void showsItsButtonsInTheColoursOfTheirState();

    void cancelKeepsTheUpdateGoingAnyNumberOfTimes();
    void okAsksToCancelTheUpdate();
    void tabGoesFromCancelToOk();
    void spacePressesTheButtonWithTheFocus();
    void enterOnOkCancelsTheUpdate();
    void enterOnThePanelKeepsTheUpdateGoing();
    void escKeepsTheUpdateGoing();
    void closingItQuits();

    void hasItsSignalsInOrderAndNoSlots();
    void tellsScreenReadersItsTexts_data();
    void tellsScreenReadersItsTexts();
    void logsNothing();

private:
    static void AddLanguages();
};

void TestNetDialog::initTestCase()
{
    Q_INIT_RESOURCE(resources);
}

void TestNetDialog::init()
{
    ResetGlobal();
}

void TestNetDialog::isAPanelOf199By114()
{
    const NetDialog dialog;

    QCOMPARE(dialog.objectName(), QStringLiteral("NetDialog"));
    QCOMPARE(dialog.size(), QSize(199, 114));
    QCOMPARE(dialog.windowTitle(), QStringLiteral("Dialog"));
    QCOMPARE(dialog.windowFlags(), QDialog().windowFlags() | Qt::FramelessWindowHint);
    QVERIFY(!dialog.isVisible());
}

void TestNetDialog::hasItsWidgetsInTheirPlaces_data()
{
    QTest::addColumn<QByteArray>("className");
    QTest::addColumn<QRect>("place");

    QTest::newRow("lab") << QByteArray("QLabel") << QRect(30, 30, 141, 21);
    QTest::newRow("cbtn") << QByteArray("QPushButton") << QRect(66, 65, 51, 20);
    QTest::newRow("sbtn") << QByteArray("QPushButton") << QRect(129, 65, 31, 20);
}

void TestNetDialog::hasItsWidgetsInTheirPlaces()
{
    QFETCH(QByteArray, className);
    NetDialog dialog;
    dialog.show();

    const auto *widget = Child<QWidget>(dialog, QTest::currentDataTag());
    QCOMPARE(QByteArray(widget->metaObject()->className()), className);
    QTEST(widget->geometry(), "place");
    QVERIFY(widget->isVisible());
    QCOMPARE(widget->parentWidget(), &dialog);
}

void TestNetDialog::asksInTheLanguageShown_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<QStringList>("texts");

    const QStringList english{QStringLiteral("Update Cancel?"), QStringLiteral("Cancel"),
                              QStringLiteral("OK")};
    const QStringList chinese{QStringLiteral("确定取消更新?"), QStringLiteral("取消"),
                              QStringLiteral("确定")};
    QTest::newRow("en") << QStringLiteral("en") << english;
    QTest::newRow("EN") << QStringLiteral("EN") << chinese;
    QTest::newRow("en_US") << QStringLiteral("en_US") << chinese;
    QTest::newRow("zh") << QStringLiteral("zh") << chinese;
    QTest::newRow("none") << QString() << chinese;
}

void TestNetDialog::asksInTheLanguageShown()
{
    QFETCH(QString, language);
    Global::instance.language = language;
    const NetDialog dialog;

    const QStringList seen{Child<QLabel>(dialog, "lab")->text(),
                           Child<QPushButton>(dialog, "cbtn")->text(),
                           Child<QPushButton>(dialog, "sbtn")->text()};
    QTEST(seen, "texts");
}

void TestNetDialog::translatesTheChineseTextsOnly()
{
    const MarkingTranslator translator;
    const NetDialog chinese;
    QCOMPARE(chinese.windowTitle(), QStringLiteral("[NetDialog|Dialog]"));
    QCOMPARE(Child<QLabel>(chinese, "lab")->text(), QStringLiteral("[NetDialog|确定取消更新?]"));
    QCOMPARE(Child<QPushButton>(chinese, "cbtn")->text(), QStringLiteral("[NetDialog|取消]"));
    QCOMPARE(Child<QPushButton>(chinese, "sbtn")->text(), QStringLiteral("[NetDialog|确定]"));

    Global::instance.language = QStringLiteral("en");
    const NetDialog english;
    QCOMPARE(Child<QLabel>(english, "lab")->text(), QStringLiteral("Update Cancel?"));
    QCOMPARE(Child<QPushButton>(english, "cbtn")->text(), QStringLiteral("Cancel"));
    QCOMPARE(Child<QPushButton>(english, "sbtn")->text(), QStringLiteral("OK"));
}

void TestNetDialog::paintsThePanelOnceAndNothingAroundIt()
{
    QWidget backdrop;
    NetDialog dialog;
    ShowOnBackdrop(dialog, QRect(0, 0, 400, 240), backdrop, QStringLiteral("rgb(0, 200, 0)"));

    const QImage seen = Picture(backdrop);
    const QImage panel(QStringLiteral(":/image/resourceimg/cancle.png"));
    QCOMPARE(panel.size(), QSize(199, 114));
    VERIFY_COLOUR(seen.pixelColor(100, 57), panel.pixelColor(100, 57));
    VERIFY_COLOUR(seen.pixelColor(0, 0), QColor(0, 200, 0));
    VERIFY_COLOUR(seen.pixelColor(299, 57), QColor(0, 200, 0));
    VERIFY_COLOUR(seen.pixelColor(100, 171), QColor(0, 200, 0));
}

void TestNetDialog::stylesItsWidgets_data()
{
    AddStyleColumns();
    const auto add = AddStyle;
    add("lab", "QLabel", "font-size", "16px");
    add("lab", "QLabel", "font-weight", "500");
    add("lab", "QLabel", "color", "rgba(32,49,82,1)");
    add("lab", "QLabel", "line-height", "22px");
    for (const char *button : {"cbtn", "sbtn"}) {
        add(button, "QPushButton", "width", "28px");
        add(button, "QPushButton", "height", "20px");
        add(button, "QPushButton", "border", "none");
        add(button, "QPushButton", "font-size", "14px");
        add(button, "QPushButton", "font-weight", "400");
        add(button, "QPushButton", "line-height", "20px");
    }
}

void TestNetDialog::stylesItsWidgets()
{
    QFETCH(QByteArray, widget);
    QFETCH(QString, selector);
    QFETCH(QString, property);
    const NetDialog dialog;

    const QString sheet = Child<QWidget>(dialog, widget.constData())->styleSheet();
    QTEST(Declared(sheet, selector, property), "value");
}

void TestNetDialog::showsItsButtonsInTheColoursOfTheirState_data()
{
    QTest::addColumn<QByteArray>("name");

    QTest::newRow("cancel") << QByteArray("cbtn");
    QTest::newRow("ok") << QByteArray("sbtn");
}

void TestNetDialog::showsItsButtonsInTheColoursOfTheirState()
{
    QFETCH(QByteArray, name);
    NetDialog dialog;
    dialog.show();
    auto *button = Child<QPushButton>(dialog, name.constData());
    // A full bar, which every font draws in the same way.
    button->setText(QStringLiteral("\u2588\u2588\u2588"));

    VERIFY_COLOUR(Picture(*button).pixelColor(0, 0), QColor(255, 255, 255));
    const QColor half((32 + 255) / 2, (49 + 255) / 2, (82 + 255) / 2);
    QVERIFY(Shows(Picture(*button), half));
    QVERIFY(Shows(PictureUnderMouse(*button), QColor(66, 133, 246)));
    QVERIFY(Shows(PictureWhilePressed(*button), QColor(52, 108, 197)));
}

void TestNetDialog::cancelKeepsTheUpdateGoingAnyNumberOfTimes()
{
    NetDialog dialog;
    const QSignalSpy cancle(&dialog, &NetDialog::cancleSignal);
    const QSignalSpy sure(&dialog, &NetDialog::sureSignal);
    auto *button = Child<QPushButton>(dialog, "cbtn");

    const bool quits = Quits([&] {
        dialog.show();
        for (int i = 0; i < 3; ++i)
            QTest::mouseClick(button, Qt::LeftButton);
    });

    QCOMPARE(cancle.count(), 3);
    QCOMPARE(sure.count(), 0);
    QVERIFY(!quits);
}

void TestNetDialog::okAsksToCancelTheUpdate()
{
    NetDialog dialog;
    const QSignalSpy cancle(&dialog, &NetDialog::cancleSignal);
    const QSignalSpy sure(&dialog, &NetDialog::sureSignal);

    const bool quits = Quits([&] {
        dialog.show();
        QTest::mouseClick(Child<QPushButton>(dialog, "sbtn"), Qt::LeftButton);
    });

    QCOMPARE(sure.count(), 1);
    QCOMPARE(cancle.count(), 0);
    QVERIFY2(!quits, "what the signal leads to is its owner's business");
}

void TestNetDialog::tabGoesFromCancelToOk()
{
    NetDialog dialog;
    QVERIFY(ShowActive(dialog));
    Child<QPushButton>(dialog, "cbtn")->setFocus();

    QCOMPARE(TabRound(dialog), QStringList({QStringLiteral("cbtn"), QStringLiteral("sbtn")}));
}

void TestNetDialog::spacePressesTheButtonWithTheFocus()
{
    NetDialog dialog;
    const QSignalSpy cancle(&dialog, &NetDialog::cancleSignal);
    const QSignalSpy sure(&dialog, &NetDialog::sureSignal);
    QVERIFY(ShowActive(dialog));

    Child<QPushButton>(dialog, "cbtn")->setFocus();
    QTest::keyClick(dialog.focusWidget(), Qt::Key_Space);
    QCOMPARE(cancle.count(), 1);
    QCOMPARE(sure.count(), 0);

    QTest::keyClick(dialog.focusWidget(), Qt::Key_Tab);
    QTest::keyClick(dialog.focusWidget(), Qt::Key_Space);
    QCOMPARE(cancle.count(), 1);
    QCOMPARE(sure.count(), 1);
}

void TestNetDialog::enterOnOkCancelsTheUpdate()
{
    NetDialog dialog;
    const QSignalSpy sure(&dialog, &NetDialog::sureSignal);
    QVERIFY(ShowActive(dialog));
    Child<QPushButton>(dialog, "sbtn")->setFocus();

    QTest::keyClick(dialog.focusWidget(), Qt::Key_Enter);

    QCOMPARE(sure.count(), 1);
}

void TestNetDialog::enterOnThePanelKeepsTheUpdateGoing()
{
    NetDialog dialog;
    const QSignalSpy cancle(&dialog, &NetDialog::cancleSignal);
    const QSignalSpy sure(&dialog, &NetDialog::sureSignal);
    QVERIFY(ShowActive(dialog));

    QTest::keyClick(&dialog, Qt::Key_Return);

    QCOMPARE(cancle.count(), 1);
    QCOMPARE(sure.count(), 0);
}

void TestNetDialog::escKeepsTheUpdateGoing()
{
    NetDialog dialog;
    const QSignalSpy cancle(&dialog, &NetDialog::cancleSignal);
    const QSignalSpy sure(&dialog, &NetDialog::sureSignal);

    const bool quits = Quits([&] {
        dialog.show();
        QTest::keyClick(&dialog, Qt::Key_Escape);
    });

    QCOMPARE(cancle.count(), 1);
    QCOMPARE(sure.count(), 0);
    QVERIFY(!quits);
    QVERIFY2(dialog.isVisible(), "its owner hides it");
}

void TestNetDialog::closingItQuits()
{
    QApplication::setQuitOnLastWindowClosed(false);
    NetDialog dialog;

    const bool quits = Quits([&] {
        dialog.show();
        dialog.close();
    });

    QApplication::setQuitOnLastWindowClosed(true);
    QVERIFY(quits);
}

void TestNetDialog::hasItsSignalsInOrderAndNoSlots()
{
    QCOMPARE(OwnMethods(NetDialog::staticMetaObject),
             QStringList(
                 {QStringLiteral("signal cancleSignal()"), QStringLiteral("signal sureSignal()")}));
}

void TestNetDialog::AddLanguages()
{
    QTest::addColumn<QString>("language");
    QTest::newRow("English") << QStringLiteral("en");
    QTest::newRow("Chinese") << QStringLiteral("zh");
}

void TestNetDialog::tellsScreenReadersItsTexts_data()
{
    AddLanguages();
}

void TestNetDialog::tellsScreenReadersItsTexts()
{
    QFETCH(QString, language);
    Global::instance.language = language;
    NetDialog dialog;

    QCOMPARE(AccessibleName(&dialog), InLanguage("Update Cancel?", "确定取消更新?"));
    QCOMPARE(AccessibleName(Child<QWidget>(dialog, "lab")),
             InLanguage("Update Cancel?", "确定取消更新?"));
    QCOMPARE(AccessibleName(Child<QWidget>(dialog, "cbtn")), InLanguage("Cancel", "取消"));
    QCOMPARE(AccessibleName(Child<QWidget>(dialog, "sbtn")), InLanguage("OK", "确定"));
}

void TestNetDialog::logsNothing()
{
    const LogCapture log;
    NetDialog dialog;
    dialog.show();
    QVERIFY(!Picture(dialog).isNull());
    QTest::mouseClick(Child<QPushButton>(dialog, "cbtn"), Qt::LeftButton);

    QCOMPARE(log.Messages(), QStringList());
}

QTEST_MAIN(TestNetDialog)
#include "tst_netdialog.moc"
