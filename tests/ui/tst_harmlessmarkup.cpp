// SPDX-License-Identifier: MIT
#include "ui/releasenotes.h"

#include "tests/support/logcapture.h"
#include "tests/support/loglines.h"
#include "tests/support/testhome.h"
#include "tests/ui/notesprompt.h"

#include <QScrollBar>
#include <QTest>
#include <QTextFrame>
#include <QTextTable>

class TestHarmlessMarkup : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void rendersNotesAsPeopleWriteThem_data();
    void rendersNotesAsPeopleWriteThem();
    void showsAsPlainTextWhatWouldTakeLong_data();
    void showsAsPlainTextWhatWouldTakeLong();
    void showsABracketThatBeginsNoTag_data();
    void showsABracketThatBeginsNoTag();
    void letsNoColourForgeALineOfTheLog_data();
    void letsNoColourForgeALineOfTheLog();
    void warnsAgainAfterTheNotes();
    void keepsTheTableThatTheNotesDescribe_data();
    void keepsTheTableThatTheNotesDescribe();
    void keepsOrdinaryFormats();
    void showsWhateverTheNotesHold_data();
    void showsWhateverTheNotesHold();
};

void TestHarmlessMarkup::initTestCase()
{
    Q_INIT_RESOURCE(resources);
}

void TestHarmlessMarkup::rendersNotesAsPeopleWriteThem_data()
{
    QTest::addColumn<QString>("notes");
    QTest::addColumn<QString>("text");

    const auto add = [](const char *name, const char *notes, const char *text) {
        QTest::newRow(name) << QString::fromUtf8(notes) << QString::fromUtf8(text);
    };
    const auto repeat = [](const char *name, int count, const char *start, const char *part,
                           const char *text) {
        QTest::newRow(name) << QLatin1String(start) + QString::fromUtf8(part).repeated(count)
                            << QString::fromUtf8(text).repeated(count);
    };
    repeat("17 KB of paragraphs", 340, "", "<p>An ordinary paragraph of the release notes.</p>\n",
           "An ordinary paragraph of the release notes.\n");
    repeat("5 KB with a table", 100, "<table><tr><td></td></tr></table>",
           "<p>An ordinary paragraph of the notes.</p>\n", "An ordinary paragraph of the notes.\n");
    repeat("65,000 letters", 13000, "<p>", "word ", "word ");
    repeat("1,500 list items", 1500, "<ul>",
           "<li>Fixed <a href=\"https://example.invalid/1\">#1</a> in <code>code</code></li>",
           "Fixed #1 in code\n");
    repeat("a table of 300 rows", 300, "<table border=1>",
           "<tr><td>a word</td><td>b</td><td>c</td></tr>", "a word\nb\nc\n");
    repeat("five tables in each other", 5, "", "<table><tr><td>a</td><td>", "a\n");
    repeat("plain paragraphs of Chinese", 500, "",
           "<p>\xe4\xbf\xae\xe5\xa4\x8d\xe4\xba\x86\xe9\x97\xae\xe9\xa2\x98\xe3\x80\x82</p>",
           "\xe4\xbf\xae\xe5\xa4\x8d\xe4\xba\x86\xe9\x97\xae\xe9\xa2\x98\xe3\x80\x82\n");
    add("nothing", "", "");
    add("plain", "1. one\n2. two & three", "1. one\n2. two & three");
    add("list", "<ul><li>one</li><li>two</li></ul>", "one\ntwo");
    add("numbered list from three", "<ol start=\"3\"><li>a</li><li>b</li></ol>", "a\nb");
    add("headings and breaks", "<h1>New</h1><p>one<br>two<br/>three</p><hr>",
        "New\none\ntwo\nthree\n");
    add("capitals", "<P>one</P><P ALIGN=CENTER>two</P>", "one\ntwo");
    add("entities", "<p>5 &lt; 6 &amp; &#169; &quot;x&quot; &nbsp;</p>",
        "5 < 6 & \xc2\xa9 \"x\" \xc2\xa0");
    add("styles", "<p style=\"margin:0 0 12px 1.5em; color:#1a2b3c; font-size:14px\">a</p>", "a");
    add("colours of many digits", "<p style='color:#00112233;background-color:#999999'>a</p>", "a");
    add("font element", "<font color=\"#ff0000\" size=\"+1\" face=\"Arial\">a</font>", "a");
    add("a small sheet", "<style>p { color: red; } li { margin: 0; }</style><p>a</p>", "a");
    add("a small table",
        "<table border=1 cellpadding=\"4\" width='100%'><tr><th colspan=2>a</th></tr>"
        "<tr><td>b</td><td>c</td></tr></table>",
        "\na\nb\nc\n");
    add("a table in a table", "<table><tr><td><table><tr><td>a</td></tr></table></td></tr></table>",
        "\n\na\n\n");
    add("a link with digits", "<a href=\"https://example.invalid/notes?id=123456&amp;x=1\">a</a>",
        "a");
    add("large numbers in the text", "<b>Build 20240131, issue #1234567</b>",
        "Build 20240131, issue #1234567");
    add("a comment", "<b>a</b><!-- for 2.1.3 -->", "a");
    add("Qt's own",
        "<!DOCTYPE HTML PUBLIC \"-//W3C//DTD HTML 4.0//EN\" "
        "\"http://www.w3.org/TR/REC-html40/strict.dtd\">\n<html><head><meta name=\"qrichtext\" "
        "content=\"1\" /><style type=\"text/css\">\np, li { white-space: pre-wrap; "
        "}\n</style></head>"
        "<body style=\" font-family:'SimSun'; font-size:9pt; font-weight:400; "
        "font-style:normal;\">\n"
        "<p style=\" margin-top:0px; margin-bottom:0px; margin-left:0px; margin-right:0px; "
        "-qt-block-indent:0; text-indent:0px;\">a</p></body></html>",
        "a");
    add("a heading over three columns",
        "<table><tr><th colspan=\"3\">a</th></tr><tr><td>b</td><td>c</td><td>d</td></tr></table>",
        "a\n\n\nb\nc\nd\n");
    add("a wide table", "<table width=\"1024\"><tr><td>a</td></tr></table>", "a");
    add("a wide box", "<div style=\"max-width:1200px; margin:0 auto\">a</div>", "a");
    add("a word processor's paragraph",
        "<p class=MsoNormal style='margin-bottom:.0001pt;font-family:\"Times New Roman\"'>"
        "<span lang=EN-US style='mso-fareast-language:EN-US'>a<o:p></o:p></span></p>",
        "a");
    add("a word processor's head",
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<html xmlns:o=\"urn:schemas-microsoft-com:office:office\"><head><!--[if gte mso 9]><xml>"
        "<w:WordDocument><w:View>Normal</w:View></w:WordDocument></xml><![endif]--><style><!--\n"
        "@page WordSection1 {size:612.0pt 792.0pt;}\n p.MsoNormal, li.MsoNormal {margin:0cm;}\n"
        "--></style></head><body><?xml:namespace prefix = o ns = \"urn:x\" /><![if "
        "!supportLists]><p>a</p><![endif]></body></html>",
        "a");
    add("an address without quotes", "<a href=https://example.invalid/notes?id=1>a</a>", "a");
    add("an address with a slash at its end", "<a href=https://example.invalid/>a</a>b", "ab");
    add("attributes without a gap", "<a href=\"x\"class='y'title=z>a</a>", "a");
    add("an attribute without a value", "<table border= ><tr><td nowrap>a</td></tr></table>", "a");
    add("a tag over several lines", "<p\n  style = \"color: red\"\n>\na</p>", "a");
    add("a bracket in a value", "<img alt=\"a > b\"><b>a</b>",
        "\xef\xbf\xbc"
        "a");
    add("a program's sheet",
        "<style>body { font-family: sans-serif; max-width: 1200px; width: 2048px }\n"
        ".entry > li::before, .entry li a:hover { color: #336699; }\n"
        "@media (max-width: 1200px) { p { margin: 0 } }</style><p class=\"entry\">a</p>",
        "a");
    add("broken surrogates", "<b>a\xef\xbf\xbe</b>", "a\xef\xbf\xbe");
}

void TestHarmlessMarkup::rendersNotesAsPeopleWriteThem()
{
    QFETCH(QString, notes);
    QFETCH(QString, text);
    const TestHome home;
    const LogCapture log;

    Prompt prompt(notes);

    const auto words = [](QString shown) {
        return shown.replace(QChar(0xa0), QLatin1Char(' ')).simplified();
    };
    QCOMPARE(words(prompt.Notes().toPlainText()), words(text));
    QCOMPARE(log.Messages(), QStringList());
}

void TestHarmlessMarkup::showsAsPlainTextWhatWouldTakeLong_data()
{
    QTest::addColumn<QString>("notes");

    const auto add = [](const char *name, const QString &notes) { QTest::newRow(name) << notes; };
    const auto times = [](int count, const char *text) {
        return QString::fromLatin1(text).repeated(count);
    };
    const QString nested = QStringLiteral("<table><tr><td>");
    add("tables in tables", nested.repeated(30) + QLatin1Char('x'));
    add("tables in tables, closed",
        nested.repeated(30) + QStringLiteral("</td></tr></table>").repeated(30));
    add("tables in capitals", nested.toUpper().repeated(30));
    add("tables after stray end tags",
        QStringLiteral("<p>") + times(40, "</table>") + nested.repeated(28));
    add("ends of tables in comments", (nested + QStringLiteral("<!-- </table> -->")).repeated(28));
    add("a text in seven tables", nested.repeated(7) + times(2000, "word "));

    for (const char *name : {"cellpadding", "cellspacing"})
        for (const char *value : {"99999999", "'-99999999'", "1e300", "nan", "inf", "&#57;9999999"})
            QTest::addRow("%s=%s", name, value)
                << QStringLiteral("<table %1=%2><tr><td>x</td></tr></table>")
                       .arg(QLatin1String(name), QLatin1String(value));
    for (const char *style : {"padding:99999999px", "padding:1e9px", "padding:infpx",
                              "padding:\\39 9999999px", "padding:&#57;9999999px"})
        for (const char *notes : {"<table><tr><td style=\"%1\">x</td></tr></table>",
                                  "<style>td { %1 }</style><table><tr><td>x</td></tr></table>"})
            QTest::addRow("%s in %s", style, notes)
                << QString::fromLatin1(notes).arg(QLatin1String(style));
    add("a table of large margins",
        QStringLiteral("<table style=\"margin:99999999em\"><tr><td>x</table>"));
    add("high lines", times(20, "<p style=\"line-height:99999999%\">word</p>"));
    add("large margins", times(2000, "<p style=\"margin:99999px\">word</p>"));
    add("large letters", times(2000, "<p style=\"font-size:999pt\">word word</p>"));

    add("a cell over 20480 columns",
        QStringLiteral("<table><tr><td colspan=20480>x<tr><td>y</table>"));
    add("columns in disguise",
        QStringLiteral("<table><tr><td colspan=\"&#57;999\">x<tr><td>y</table>"));
    add("a row of 1000 cells over 100 rows",
        QStringLiteral("<table><tr>") + times(1000, "<td>") + times(100, "<tr><td>"));
    add("a million cells",
        QStringLiteral("<table><tr>") + times(1000, "<td>a") + times(1000, "<tr><td>a"));

    add("many selectors on many tags", QStringLiteral("<style>") + times(60, "b b{color:red}") +
                                           QStringLiteral("</style>") + times(900, "<b>"));
    add("one selector of two parts on tags in tags",
        QStringLiteral("<style>i b{}</style>") + times(990, "<b>"));
    add("several sheets",
        (QStringLiteral("<style>") + times(10, "b b{color:red}") + QStringLiteral("</style>"))
                .repeated(6) +
            times(900, "<b>"));

    add("elements in elements", QStringLiteral("<p>") + times(16000, "<b>"));
    add("lists in lists", times(10000, "<ul><li>"));
    add("boxes in boxes", times(10000, "<div>"));
    add("many entries", QStringLiteral("<ul>") + times(16000, "<li>a"));
    add("many images", QStringLiteral("<p>") + times(10000, "<img src=a>"));
    add("many pictures that text flows around",
        times(2000, "<img src=a align=left>") + times(3000, "word "));
    add("a long text without a blank", QStringLiteral("<p>") + times(1000000, "x"));
    add("a narrow cell", QStringLiteral("<table width=1><tr><td>") + times(64000, "x"));
    add("letters of two directions",
        QStringLiteral("<p>") + QStringLiteral("a\u0628").repeated(8000));
    add("marks on one letter", QStringLiteral("<p>e") + QString(1000000, QChar(0x301)));
    add("more than any layout can take", QStringLiteral("<p>") + times(1600000, "word "));
}

void TestHarmlessMarkup::showsAsPlainTextWhatWouldTakeLong()
{
    QFETCH(QString, notes);
    const TestHome home;
    const LogCapture log;

    // Checked first, because the layout of hostile notes would not end.
    QVERIFY(!ReleaseNotesDocument::IsRichText(notes));
    Prompt prompt(notes);
    QVERIFY(!Picture(prompt).isNull());

    QVERIFY(prompt.HoldsAll(notes));
    QCOMPARE(log.Messages().size(), 1);
    QVERIFY(log.Messages().constFirst().startsWith(LogLine::NotesShownAsPlainText()));
}

void TestHarmlessMarkup::showsABracketThatBeginsNoTag_data()
{
    QTest::addColumn<QString>("notes");
    QTest::addColumn<QString>("text");

    const auto add = [](const char *notes, const char *text) {
        QTest::newRow(notes) << QString::fromUtf8(notes) << QString::fromUtf8(text);
    };
    add("<p>5 < 6</p>", "5 < 6");
    add("<p>a</p><b", "a\n<b");
    add("<p>mail <someone@example.invalid></p>", "mail <someone@example.invalid>");
    add("<p>a<!-- b", "a<!-- b");
    add("<b>a</b><<i>b</i>", "a<b");
    add("<p \"> <b> \">a</p>", "<p \">  \">a");
    add("<p title=\"> <b> \">a</p>", "<p title=\">  \">a");
    add("<p title='a\\'>b</p>", "<p title='a\\'>b");
    add("<t&#97;ble>a", "<table>a");
    add("< b>a<br>", "< b>a\n");
    add("<br/x>a<br>", "<br/x>a\n");
    add("<![a<b>a</b>", "<![aa");
}

void TestHarmlessMarkup::showsABracketThatBeginsNoTag()
{
    QFETCH(QString, notes);
    QFETCH(QString, text);
    const TestHome home;
    const Prompt prompt(QStringLiteral("<b></b>") + notes);

    QCOMPARE(prompt.Notes().toPlainText().simplified(), text.simplified());
}

void TestHarmlessMarkup::letsNoColourForgeALineOfTheLog_data()
{
    QTest::addColumn<QString>("notes");

    for (const char *attribute : {"font color", "body bgcolor", "TABLE BGCOLOR", "td bordercolor"})
        for (const char *value : {"no\n[2023-05-04 10:15:02] [INFO] (:0) forged", "\nno", "no\n",
                                  "&#10;no", "no\u2028colour"})
            QTest::addRow("%s %s", attribute, value)
                << QStringLiteral("<%1='%2'>a")
                       .arg(QLatin1String(attribute), QString::fromUtf8(value));
}

void TestHarmlessMarkup::letsNoColourForgeALineOfTheLog()
{
    QFETCH(QString, notes);
    const TestHome home;
    const LogCapture log;

    Prompt prompt(notes);
    QVERIFY(!Picture(prompt).isNull());

    QVERIFY(!prompt.Notes().toPlainText().contains(QLatin1Char('<')));
    QCOMPARE(log.Messages(), QStringList());
}

void TestHarmlessMarkup::warnsAgainAfterTheNotes()
{
    const TestHome home;
    const Prompt prompt(QStringLiteral("<font color=\"no colour\">a"));
    const LogCapture log;

    qWarning("still heard");

    QCOMPARE(log.Messages(), QStringList(QStringLiteral("[WARNING] still heard")));
}

void TestHarmlessMarkup::keepsTheTableThatTheNotesDescribe_data()
{
    QTest::addColumn<QString>("notes");
    QTest::addColumn<int>("rows");
    QTest::addColumn<int>("columns");

    QTest::newRow("three columns")
        << QStringLiteral("<table><tr><th colspan=\"3\">a</th></tr><tr><td>b<td>c<td>d</table>")
        << 2 << 3;
    QTest::newRow("100 columns") << QStringLiteral(
                                        "<table><tr><td colspan=100>a</td></tr><tr><td>b</table>")
                                 << 2 << 100;
    QTest::newRow("300 rows")
        << QStringLiteral("<table>") +
               QStringLiteral("<tr><td>a</td><td width=1920>b</td></tr>").repeated(300)
        << 300 << 2;
}

void TestHarmlessMarkup::keepsTheTableThatTheNotesDescribe()
{
    QFETCH(QString, notes);
    const TestHome home;
    const Prompt prompt(notes);

    const QList<QTextFrame *> frames = prompt.Notes().document()->rootFrame()->childFrames();
    QCOMPARE(frames.size(), 1);
    const auto *table = qobject_cast<const QTextTable *>(frames.constFirst());
    QVERIFY(table != nullptr);
    QTEST(table->rows(), "rows");
    QTEST(table->columns(), "columns");
}

void TestHarmlessMarkup::keepsOrdinaryFormats()
{
    const QString notes = QStringLiteral(
        "<h1 style=\"margin-left:30px\">New</h1><ol start=3><li style=\"font-size:20px\">a<li>b"
        "</ol><p style=\"line-height:120%; letter-spacing:2px; margin:12px 0\">c</p><table "
        "border=1 cellpadding=4 width=\"100%\" align=right><tr><td style=\"padding:9px\">x<td>y"
        "</table><blockquote>q</blockquote><hr width=50%>");
    QTextDocument ordinary;
    ordinary.setHtml(notes);
    ReleaseNotesDocument document(nullptr);
    document.SetNotes(notes);

    QCOMPARE(document.toHtml(), ordinary.toHtml());
    QCOMPARE(document.size(), ordinary.size());
}

void TestHarmlessMarkup::showsWhateverTheNotesHold_data()
{
    QTest::addColumn<QString>("notes");

    QTest::newRow("zero characters") << QString(16000, QChar(0));
    QTest::newRow("halves of characters") << QString(16000, QChar(0xd800));
    QTest::newRow("other halves") << QString(16000, QChar(0xdc00));
    QTest::newRow("halves in markup") << QStringLiteral("<p>") + QString(9000, QChar(0xdfff));
    QTest::newRow("objects that are none") << QString(16000, QChar(0xfffc));
    QTest::newRow("paragraph separators") << QString(16000, QChar(0x2029));
    QTest::newRow("turns of direction") << QStringLiteral("\u202e\u202b\u2067a").repeated(4000);
    QTest::newRow("marks on one letter") << QStringLiteral("<p>e") + QString(9000, QChar(0x301));
    QTest::newRow("table frames") << QStringLiteral("<p>\ufdd0\ufdd1a\ufdd1\ufdd0").repeated(500);
    QTest::newRow("cells without a table") << QStringLiteral("<td>").repeated(120);
    QTest::newRow("ends without beginnings") << QStringLiteral("</p></ul></td></b>").repeated(30);
    QTest::newRow("an endless comment") << QStringLiteral("<p>a<!-- b");
    QTest::newRow("an empty address") << QStringLiteral("<img src=\"\"><a href=\"\">a</a>");
    QTest::newRow("the largest lengths") << QStringLiteral(
        "<table cellpadding=999 cellspacing=999 border=999 style=\"margin:999em\"><tr>"
        "<td style=\"padding:999em; border:999px dashed red; font-size:999px\">x</table>");
    QTest::newRow("text in two narrow tables")
        << QStringLiteral("<table width=1><tr><td width=1>").repeated(2) +
               QString(4000, QLatin1Char('x'));
    QTest::newRow("broken sheets")
        << QStringLiteral("<p style=\"{[(:;;:!important}\">a<p style=\":\">");
}

void TestHarmlessMarkup::showsWhateverTheNotesHold()
{
    QFETCH(QString, notes);
    const TestHome home;
    Prompt prompt(notes);

    QVERIFY(!Picture(prompt).isNull());
    prompt.Notes().verticalScrollBar()->setValue(prompt.Notes().verticalScrollBar()->maximum());
    QVERIFY(!Picture(prompt).isNull());
    QVERIFY(prompt.isVisible());
}

QTEST_MAIN(TestHarmlessMarkup)
#include "tst_harmlessmarkup.moc"
