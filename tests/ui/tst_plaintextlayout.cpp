// SPDX-License-Identifier: MIT
#include "ui/plaintextlayout.h"

#include "tests/support/peakmemory.h"
#include "tests/support/testhome.h"
#include "tests/ui/notesprompt.h"

#include <QScrollBar>
#include <QTest>

namespace
{

constexpr int kAnswerBytes = 8 * 1024 * 1024;

/// Repeats the text up to the size of the largest answer.
QString Filled(const QString &text)
{
    return text.repeated(kAnswerBytes / text.toUtf8().size());
}

} // namespace

/// Plain notes of any length are shown in full.
class TestPlainTextLayout : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void holdsTheWholeText_data();
    void holdsTheWholeText();
    void keepsTheLinesOfALongText();
    void hasTheHeightOfOrdinaryText_data();
    void hasTheHeightOfOrdinaryText();
    void showsTheEndOfALongText();
    void laysOutAgainForAnotherWidth();
    void millionsOfCharactersNeedLittleMemory_data();
    void millionsOfCharactersNeedLittleMemory();
};

void TestPlainTextLayout::initTestCase()
{
    Q_INIT_RESOURCE(resources);
}

void TestPlainTextLayout::holdsTheWholeText_data()
{
    QTest::addColumn<QString>("notes");

    QTest::newRow("nothing") << QString();
    QTest::newRow("a line") << QStringLiteral("a");
    QTest::newRow("lines") << QStringLiteral("\na\n\nb\n");
    QTest::newRow("20 Ki letters in a line") << QString(20 * 1024, QLatin1Char('x'));
    QTest::newRow("8 MiB in a line") << Filled(QStringLiteral("x"));
    QTest::newRow("8 MiB of words") << Filled(QStringLiteral("word "));
    QTest::newRow("8 MiB of lines") << Filled(QStringLiteral("1. Faster start.\n"));
    QTest::newRow("8 MiB of line ends") << Filled(QStringLiteral("\n"));
    QTest::newRow("8 MiB of ideographs") << Filled(QStringLiteral("修复了问题。"));
    QTest::newRow("8 MiB of marks") << Filled(QStringLiteral("\u0301"));
    QTest::newRow("8 MiB of two directions") << Filled(QStringLiteral("a\u0628"));
}

void TestPlainTextLayout::holdsTheWholeText()
{
    QFETCH(QString, notes);
    const TestHome home;
    Prompt prompt(notes);
    QVERIFY(!Picture(prompt).isNull());

    QVERIFY(prompt.HoldsAll(notes));
}

void TestPlainTextLayout::keepsTheLinesOfALongText()
{
    const TestHome home;
    // No line is divided, and there are more lines than paragraphs.
    const QString line = QString(60 * 1024, QLatin1Char('x')) + QLatin1Char('\n');
    const QString notes = line.repeated(20) + QStringLiteral("1. Faster start.\n").repeated(5000);
    const Prompt prompt(notes);
    QVERIFY(prompt.Notes().toPlainText() == notes);
}

void TestPlainTextLayout::hasTheHeightOfOrdinaryText_data()
{
    QTest::addColumn<QString>("text");

    QTest::newRow("a line") << QStringLiteral("a");
    QTest::newRow("lines") << QStringLiteral("one\ntwo\n\nfour\n");
    QTest::newRow("a paragraph of several rows") << QStringLiteral("word ").repeated(100);
    QTest::newRow("ideographs") << QStringLiteral("修复了问题。").repeated(30);
    QTest::newRow("from right to left") << QStringLiteral("\u05d0\u05d1 \u05d2\n").repeated(20);
}

void TestPlainTextLayout::hasTheHeightOfOrdinaryText()
{
    QFETCH(QString, text);
    QTextDocument ordinary;
    ordinary.setPlainText(text);
    ordinary.setTextWidth(430);
    QTextDocument document;
    SetPlainText(document, text);
    document.setTextWidth(430);

    QCOMPARE(document.size().height(), ordinary.size().height());
}

void TestPlainTextLayout::showsTheEndOfALongText()
{
    const TestHome home;
    Prompt prompt(QStringLiteral("\n").repeated(100000) + QString(20, QChar(0x2588)));
    QVERIFY(QTest::qWaitForWindowExposed(&prompt));
    const QColor text = prompt.Notes().palette().color(QPalette::Text);
    QWidget &view = *prompt.Notes().viewport();
    QVERIFY(!Shows(Picture(view), text));

    QScrollBar &bar = *prompt.Notes().verticalScrollBar();
    // Each call corrects estimated heights.
    QTRY_VERIFY((bar.setValue(bar.maximum()), Shows(Picture(view), text)));
}

void TestPlainTextLayout::laysOutAgainForAnotherWidth()
{
    QTextDocument document;
    SetPlainText(document, QStringLiteral("word ").repeated(200));
    document.setTextWidth(400);
    const double height = document.size().height();

    document.setTextWidth(200);

    QVERIFY(document.size().height() > 1.8 * height);
    QCOMPARE(document.size().width(), 200.0);
}

void TestPlainTextLayout::millionsOfCharactersNeedLittleMemory_data()
{
    QTest::addColumn<QString>("notes");

    QTest::newRow("short lines") << Filled(QStringLiteral("x\n"));
    QTest::newRow("empty lines") << Filled(QStringLiteral("\n"));
    QTest::newRow("ordinary lines") << Filled(QStringLiteral("1. Faster start.\n"));
    QTest::newRow("ideographs") << Filled(QStringLiteral("修复了问题。"));
    QTest::newRow("letters in a line") << Filled(QStringLiteral("x"));
    QTest::newRow("tabs in a line") << Filled(QStringLiteral("\t"));
    QTest::newRow("marks in a line") << Filled(QStringLiteral("\u0301"));
    QTest::newRow("pictures in a line") << Filled(QStringLiteral("\ufffc"));
    QTest::newRow("two directions in a line") << Filled(QStringLiteral("a\u0628"));
}

void TestPlainTextLayout::millionsOfCharactersNeedLittleMemory()
{
    QFETCH(QString, notes);
    const TestHome home;
    {
        Prompt first(QStringLiteral("修复 a"));
        QVERIFY(!Picture(first).isNull());
    }
    const PeakMemory memory;

    Prompt prompt(notes);
    QVERIFY(!Picture(prompt).isNull());

    QVERIFY2(memory.GrownBy() <= 64LL * 1024 * 1024, qPrintable(QString::number(memory.GrownBy())));
}

QTEST_MAIN(TestPlainTextLayout)
#include "tst_plaintextlayout.moc"
