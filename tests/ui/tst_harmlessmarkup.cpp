#include "ui/releasenotes.h"

#include "tests/support/logcapture.h"
#include "tests/support/testhome.h"
#include "tests/ui/notesprompt.h"

#include <QScrollBar>
#include <QTest>

class HarmlessMarkupTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void rendersNotesAsPeopleWriteThem_data();
    void rendersNotesAsPeopleWriteThem();
    void showsAsPlainTextWhatWouldDoHarm_data();
    void showsAsPlainTextWhatWouldDoHarm();
    void drawsTheLineAtItsLimits_data();
    void drawsTheLineAtItsLimits();
    void showsWhateverTheNotesHold_data();
    void showsWhateverTheNotesHold();
    void cutsEndlessNotes();
};

void HarmlessMarkupTest::initTestCase()
{
    Q_INIT_RESOURCE(resources);
}

void HarmlessMarkupTest::rendersNotesAsPeopleWriteThem_data()
{
    QTest::addColumn<QString>("notes");
    QTest::addColumn<QString>("text");

    const auto add = [](const char *name, const char *notes, const char *text) {
        QTest::newRow(name) << QString::fromUtf8(notes) << QString::fromUtf8(text);
    };
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
    add("the framework's own",
        "<!DOCTYPE HTML PUBLIC \"-//W3C//DTD HTML 4.0//EN\" "
        "\"http://www.w3.org/TR/REC-html40/strict.dtd\">\n<html><head><meta name=\"qrichtext\" "
        "content=\"1\" /><style type=\"text/css\">\np, li { white-space: pre-wrap; "
        "}\n</style></head>"
        "<body style=\" font-family:'SimSun'; font-size:9pt; font-weight:400; "
        "font-style:normal;\">\n"
        "<p style=\" margin-top:0px; margin-bottom:0px; margin-left:0px; margin-right:0px; "
        "-qt-block-indent:0; text-indent:0px;\">a</p></body></html>",
        "a");
    add("broken surrogates", "<b>a\xef\xbf\xbe</b>", "a\xef\xbf\xbe");
}

void HarmlessMarkupTest::rendersNotesAsPeopleWriteThem()
{
    QFETCH(QString, notes);
    QFETCH(QString, text);
    const TestHome home;
    const LogCapture log;

    QVERIFY(IsHarmlessMarkup(notes));
    Prompt prompt(notes);

    QString seen = prompt.Notes().toPlainText();
    if (!text.contains(QChar(0xa0)))
        seen.replace(QChar(0xa0), QLatin1Char(' '));
    else
        seen = prompt.Notes().document()->toRawText();
    QCOMPARE(seen.trimmed(), text.trimmed());
    QCOMPARE(log.Messages(), QStringList());
}

void HarmlessMarkupTest::showsAsPlainTextWhatWouldDoHarm_data()
{
    QTest::addColumn<QString>("notes");

    const auto add = [](const char *name, const QString &notes) { QTest::newRow(name) << notes; };
    const auto times = [](int count, const char *text) {
        return QString::fromLatin1(text).repeated(count);
    };
    const auto cell = [](const char *table, const char *td) {
        return QStringLiteral("<table%1><tr><td%2>x</td></tr></table>")
            .arg(QLatin1String(table), QLatin1String(td));
    };
    const QString nested = QStringLiteral("<table><tr><td>");
    add("tables in tables", nested.repeated(30) + QLatin1Char('x'));
    add("tables in tables, closed",
        nested.repeated(30) + QStringLiteral("</td></tr></table>").repeated(30));
    add("tables in capitals", nested.toUpper().repeated(30));
    add("tables behind stray ends", QStringLiteral("</table>").repeated(40) + nested.repeated(28));
    add("ends of tables in double quotes",
        (nested + QStringLiteral("<p title=\"> </table> \">")).repeated(28));
    add("ends of tables in single quotes",
        (nested + QStringLiteral("<p title='> </table> '>")).repeated(28));
    add("ends of tables behind a quote",
        (nested + QStringLiteral("<p a=b\"c d=\"> </table> \">")).repeated(28));
    add("ends of tables in a name", (nested + QStringLiteral("<p \"> </table> \">")).repeated(28));
    add("ends of tables in comments", (nested + QStringLiteral("<!-- </table> -->")).repeated(28));
    add("tables with a blank", QStringLiteral("< table>< tr>< td>").repeated(30));
    add("tables in disguise", QStringLiteral("<t&#97;ble><tr><td>").repeated(30));
    add("tables with another blank", QStringLiteral("<table\u00a0a=b><tr><td>").repeated(30));

    for (const char *name : {"cellpadding", "cellspacing", "border", "width", "height"})
        for (const char *value :
             {"99999999", "\"99999999\"", "'-99999999'", "1e9", "\"1e300\"", "nan", "inf",
              "\"+99999999\"", "\" 99999999\"", "\"&#57;9999999\""})
            QTest::addRow("%s=%s", name, value) << cell(
                QStringLiteral(" %1=%2").arg(QLatin1String(name), QLatin1String(value)).toLatin1(),
                "");
    for (const char *value : {"20480", "1000000000", "\"20480\"", "1e9", "\"&#57;99\""})
        for (const char *name : {"colspan", "rowspan"})
            QTest::addRow("%s=%s", name, value) << cell(
                "",
                QStringLiteral(" %1=%2").arg(QLatin1String(name), QLatin1String(value)).toLatin1());
    for (const char *style :
         {"padding:99999999px", "margin:99999999em", "padding:1e9px", "padding:9.9E9px",
          "padding:infpx", "padding: -nanpx", "padding:infinitypx", "border-width:9999999px",
          "padding:\\39 9999999px", "padding:&#57;9999999px", "PADDING:99999999PX",
          "border:99999999px solid red", "padding:0099999999px"}) {
        QTest::addRow("cell with %s", style)
            << cell("", QStringLiteral(" style=\"%1\"").arg(QLatin1String(style)).toLatin1());
        QTest::addRow("table with %s", style)
            << cell(QStringLiteral(" style='%1'").arg(QLatin1String(style)).toLatin1(), "");
        QTest::addRow("sheet with %s", style)
            << QStringLiteral("<style>td, table { %1 }</style>").arg(QLatin1String(style)) +
                   cell("", "");
    }
    add("a sheet that does not end", QStringLiteral("<p>a</p><style>td { padding: 9px; }"));
    add("many selectors on many tags", QStringLiteral("<style>") + times(60, "b b{color:red}") +
                                           QStringLiteral("</style>") + times(900, "<b>"));
    add("one selector of many parts on many tags",
        QStringLiteral("<style>") +
            (QStringLiteral("i ") + times(50, "b ") + QStringLiteral("{color:red}")).repeated(8) +
            QStringLiteral("</style>") + times(500, "<b>"));
    add("one selector of two parts on tags in tags",
        QStringLiteral("<style>i b{}</style>") + times(990, "<b>"));
    add("a few selectors of three parts on tags in tags",
        QStringLiteral("<style>") + times(14, "i b b{}") + QStringLiteral("</style>") +
            times(300, "<b>"));
    add("several sheets",
        (QStringLiteral("<style>") + times(10, "b b{color:red}") + QStringLiteral("</style>"))
                .repeated(6) +
            times(900, "<b>"));

    add("elements in elements", QStringLiteral("<p>") + times(10000, "<b>"));
    add("lists in lists", times(10000, "<ul><li>"));
    add("boxes in boxes", times(10000, "<div>"));
    add("quotations in quotations", times(10000, "<blockquote>"));
    add("many entries", QStringLiteral("<ul>") + times(10000, "<li>a"));
    add("many images", QStringLiteral("<p>") + times(10000, "<img src=a>"));
    add("a long text without a blank", QStringLiteral("<p>") + times(1000000, "x"));
    add("a narrow cell", QStringLiteral("<table width=1><tr><td>") + times(64000, "x"));
    add("marks on one letter", QStringLiteral("<p>e") + QString(1000000, QChar(0x301)));
    const auto colour = [&add](const char *name, const QString &value) {
        for (const char *attribute :
             {"font color", "body bgcolor", "TABLE BGCOLOR", "td bordercolor"})
            add(qPrintable(
                    QStringLiteral("%1 %2").arg(QLatin1String(attribute), QLatin1String(name))),
                QStringLiteral("<%1='%2'>a").arg(QLatin1String(attribute), value));
    };
    colour("that forges a line of the log",
           QStringLiteral("no\n[2023-05-04 10:15:02] [INFO] (:0) forged"));
    colour("with a line break before it", QStringLiteral("\nred"));
    colour("with a line break behind it", QStringLiteral("red\n"));
    colour("with a line break in disguise", QStringLiteral("&#10;red"));
    colour("with a rarer line break", QStringLiteral("no\u2028colour"));
    add("half of a tag", QStringLiteral("<p>a</p><b"));
    add("a bracket alone", QStringLiteral("<p>5 < 6</p>"));
}

void HarmlessMarkupTest::showsAsPlainTextWhatWouldDoHarm()
{
    QFETCH(QString, notes);
    const TestHome home;
    const LogCapture log;

    // First of all: the layout of those that pass wrongly would not end.
    QVERIFY(!IsHarmlessMarkup(notes));
    Prompt prompt(notes);
    QVERIFY(!Picture(prompt).isNull());

    QString seen = prompt.Notes().document()->toRawText();
    seen.remove(QChar::ParagraphSeparator);
    QCOMPARE(seen, notes.left(16384).remove(QLatin1Char('\n')));
    QCOMPARE(log.Messages().size(), 1);
    QVERIFY(log.Messages().constFirst().startsWith(
        QStringLiteral("[WARNING] release notes shown as plain text")));
}

void HarmlessMarkupTest::drawsTheLineAtItsLimits_data()
{
    QTest::addColumn<QString>("notes");
    QTest::addColumn<bool>("harmless");

    const auto add = [](const char *name, const QString &notes, bool harmless) {
        QTest::newRow(name) << notes << harmless;
    };
    const QString nested = QStringLiteral("<table><tr><td>");
    const QString closed = QStringLiteral("</td></tr></table>");
    add("16384 letters", QString(16384, QLatin1Char('x')), true);
    add("16385 letters", QString(16385, QLatin1Char('x')), false);
    add("1000 tags", QStringLiteral("<b>").repeated(1000), true);
    add("1001 tags", QStringLiteral("<b>").repeated(1001), false);
    add("4096 letters with a table", nested + QString(4096 - 15, QLatin1Char('x')), true);
    add("4097 letters with a table", nested + QString(4097 - 15, QLatin1Char('x')), false);
    add("two tables deep", nested.repeated(2) + closed.repeated(2), true);
    add("three tables deep", nested.repeated(3) + closed.repeated(3), false);
    add("tables side by side", (nested + closed).repeated(20), true);
    add("more tables than anyone needs", (nested + closed).repeated(22), false);
    for (const char *name : {"cellpadding", "cellspacing", "border", "width", "height"}) {
        QTest::addRow("%s of 999", name)
            << QStringLiteral("<table %1=999><tr><td>a</table>").arg(QLatin1String(name)) << true;
        QTest::addRow("%s of 1000", name)
            << QStringLiteral("<table %1=1000><tr><td>a</table>").arg(QLatin1String(name)) << false;
    }
    for (const char *name : {"colspan", "rowspan"}) {
        QTest::addRow("%s of 2", name)
            << QStringLiteral("<table><tr><td %1=2>a</table>").arg(QLatin1String(name)) << true;
        QTest::addRow("%s of 3", name)
            << QStringLiteral("<table><tr><td %1=3>a</table>").arg(QLatin1String(name)) << false;
    }
    for (const char *name : {"color", "bgcolor", "bordercolor"}) {
        QTest::addRow("%s by its name", name)
            << QStringLiteral("<font %1=' Red '>a").arg(QLatin1String(name)) << true;
        QTest::addRow("%s by its digits", name)
            << QStringLiteral("<font %1=\"#A0b1C2\">a").arg(QLatin1String(name)) << true;
        QTest::addRow("%s with a line break", name)
            << QStringLiteral("<font %1=\"red\n\">a").arg(QLatin1String(name)) << false;
    }
    add("999 pixels", QStringLiteral("<td style=\"padding:999px\">"), true);
    add("1000 pixels", QStringLiteral("<td style=\"padding:1000px\">"), false);
}

void HarmlessMarkupTest::drawsTheLineAtItsLimits()
{
    QFETCH(QString, notes);

    QTEST(IsHarmlessMarkup(notes), "harmless");
}

void HarmlessMarkupTest::showsWhateverTheNotesHold_data()
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

void HarmlessMarkupTest::showsWhateverTheNotesHold()
{
    QFETCH(QString, notes);
    const TestHome home;
    Prompt prompt(notes);

    QVERIFY(!Picture(prompt).isNull());
    prompt.Notes().verticalScrollBar()->setValue(prompt.Notes().verticalScrollBar()->maximum());
    QVERIFY(!Picture(prompt).isNull());
    QVERIFY(prompt.isVisible());
}

void HarmlessMarkupTest::cutsEndlessNotes()
{
    const TestHome home;
    const QString notes = QStringLiteral("word ").repeated(1600000);

    const Prompt prompt(notes);

    QCOMPARE(prompt.Notes().toPlainText().remove(QLatin1Char('\n')), notes.left(16384));
    QCOMPARE(Global::instance.latestVersionInfo, notes);
}

QTEST_MAIN(HarmlessMarkupTest)
#include "tst_harmlessmarkup.moc"
