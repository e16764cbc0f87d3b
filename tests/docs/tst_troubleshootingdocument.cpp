// SPDX-License-Identifier: MIT
#include "tests/docs/document.h"
#include "tests/support/testhome.h"

#include <QDirIterator>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTest>

#include <algorithm>

namespace
{

/// A log line as a call in the sources makes it.
struct LogCall {
    QString statement;
    QRegularExpression line; ///< what the document has to say, a word in capitals for each value
};

QString AllSources()
{
    QString sources;
    for (const char *room : {"app", "config", "install", "net", "ui"}) {
        QDirIterator files(ProjectPath(QLatin1String(room)),
                           {QStringLiteral("*.cpp"), QStringLiteral("*.h")}, QDir::Files);
        while (files.hasNext())
            sources += QString::fromUtf8(ReadFile(files.next()));
    }
    return sources;
}

const QRegularExpression &StringLiteral()
{
    static const QRegularExpression literal(QStringLiteral(R"re("((?:[^"\\]|\\.)*)")re"));
    return literal;
}

/// What is streamed in a statement without its semicolon.
QStringList StreamedItems(const QString &statement)
{
    static const QRegularExpression item(
        QStringLiteral(R"re(<<\s*((?:"(?:[^"\\]|\\.)*"|(?!<<)[^"])+))re"));
    QStringList items;
    auto matches = item.globalMatch(statement);
    while (matches.hasNext())
        items.append(matches.next().captured(1).trimmed());
    return items;
}

/// The pattern of what one item leaves in the line.
QString ItemPattern(const QString &item)
{
    const QRegularExpressionMatch literal = StringLiteral().match(item);
    const QString text = QRegularExpression::escape(
        literal.captured(1).replace(QLatin1String("\\\""), QLatin1String("\"")));
    if (literal.hasMatch() && literal.captured() == item)
        return text;
    if (literal.hasMatch())
        return QStringLiteral("[\\w.]+") + text;
    return QStringLiteral("(?:\"[A-Z]+\"|[A-Z]+)");
}

QVector<LogCall> LogCalls(const QString &sources)
{
    static const QRegularExpression call(QStringLiteral(
        R"re(\bq(?:Debug|Info|Warning|Critical)\(\)(?:[^";]|"(?:[^"\\]|\\.)*")*;)re"));
    QVector<LogCall> calls;
    auto matches = call.globalMatch(sources);
    while (matches.hasNext()) {
        const QString statement = matches.next().captured().simplified();
        QStringList patterns;
        const QStringList items = StreamedItems(statement.chopped(1));
        for (const QString &item : items)
            patterns.append(ItemPattern(item));
        calls.append(
            {statement, QRegularExpression(QLatin1Char('^') + patterns.join(QLatin1Char(' ')) +
                                           QLatin1Char('$'))});
    }
    return calls;
}

/// The headers that the tables of one of the two documents begin with.
struct Language {
    QString document;
    QString line;
    QString error;
    QString lastLine;
    QString symptom;
};

Language English()
{
    return {QStringLiteral("docs/troubleshooting.md"), QStringLiteral("Line"),
            QStringLiteral("ERROR"), QStringLiteral("Last line"), QStringLiteral("What they see")};
}

Language Chinese()
{
    return {QStringLiteral("docs/troubleshooting.zh.md"), QStringLiteral("日志行"),
            QStringLiteral("错误"), QStringLiteral("最后一行"), QStringLiteral("用户看到")};
}

/// The line, error or other text in back-quotes that each row of these tables is about.
QStringList Subjects(const QString &document, const QString &firstHeader)
{
    QStringList subjects;
    const QVector<QStringList> rows = Document(document).Rows(firstHeader);
    for (const QStringList &row : rows)
        subjects.append(Quoted(row.first()));
    return subjects;
}

} // namespace

Q_DECLARE_METATYPE(Language)

/// Holds the list of log lines against the sources, in both directions.
class TestTroubleshootingDocument : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void everyLogCallIsOfAFormThatIsRead();
    void everyLineOfTheProgramIsExplained();
    void everyExplainedLineIsOfTheProgram();
    void noLineIsExplainedTwice();
    void bothLanguagesExplainTheSame();
    void everyRowSaysWhatItMeansAndWhatToDo_data() { AddLanguages(); }
    void everyRowSaysWhatItMeansAndWhatToDo();
    void whatUsersAreToLookForIsInTheLines_data() { AddLanguages(); }
    void whatUsersAreToLookForIsInTheLines();
    void lastLinesAreLines();
    void logReaderKnowsTheSameLines();
    void logReaderKnowsWhichLinesAreFailures();

private:
    static void AddLanguages();

    QString m_sources;
    QVector<LogCall> m_calls;
    QStringList m_lines;
};

void TestTroubleshootingDocument::initTestCase()
{
    m_sources = AllSources();
    m_calls = LogCalls(m_sources);
    m_lines = Subjects(English().document, English().line);
    QVERIFY(!m_calls.isEmpty());
    QVERIFY(!m_lines.isEmpty());
}

void TestTroubleshootingDocument::AddLanguages()
{
    QTest::addColumn<Language>("language");
    QTest::newRow("English") << English();
    QTest::newRow("Chinese") << Chinese();
}

void TestTroubleshootingDocument::everyLogCallIsOfAFormThatIsRead()
{
    const QRegularExpression anyCall(
        QStringLiteral("\\bqC?(?:Debug|Info|Warning|Critical|Fatal)\\s*\\("));
    int count = 0;
    for (auto matches = anyCall.globalMatch(m_sources); matches.hasNext(); matches.next())
        ++count;
    QCOMPARE(m_calls.size(), count);
}

void TestTroubleshootingDocument::everyLineOfTheProgramIsExplained()
{
    QStringList missing;
    for (const LogCall &call : qAsConst(m_calls)) {
        if (m_lines.indexOf(call.line) < 0)
            missing.append(call.statement);
    }
    // The names that two of the texts are composed with.
    const QRegularExpression clientFile(QStringLiteral("WriteClientFile\\(\"([^\"]+)\""));
    for (auto matches = clientFile.globalMatch(m_sources); matches.hasNext();) {
        const QString name = matches.next().captured(1);
        for (const char *end : {" write failed: N", " write successed"}) {
            if (!m_lines.contains(name + QLatin1String(end)))
                missing.append(name + QLatin1String(end));
        }
    }
    QCOMPARE(missing.join(QLatin1Char('\n')), QString());
}

void TestTroubleshootingDocument::everyExplainedLineIsOfTheProgram()
{
    QStringList gone;
    for (const QString &line : qAsConst(m_lines)) {
        const bool known = std::any_of(m_calls.cbegin(), m_calls.cend(), [&](const LogCall &call) {
            return call.line.match(line).hasMatch();
        });
        if (!known)
            gone.append(line);
    }
    QCOMPARE(gone, QStringList());
}

void TestTroubleshootingDocument::noLineIsExplainedTwice()
{
    QStringList once = m_lines;
    once.removeDuplicates();
    QCOMPARE(m_lines, once);
}

void TestTroubleshootingDocument::bothLanguagesExplainTheSame()
{
    const Language en = English();
    const Language zh = Chinese();
    QCOMPARE(Subjects(zh.document, zh.line), m_lines);
    QCOMPARE(Subjects(zh.document, zh.error), Subjects(en.document, en.error));
    QCOMPARE(Subjects(zh.document, zh.lastLine), Subjects(en.document, en.lastLine));
    QCOMPARE(Document(zh.document).Rows(zh.symptom).size(),
             Document(en.document).Rows(en.symptom).size());
    QCOMPARE(Document(zh.document).Anchors().size(), Document(en.document).Anchors().size());
}

void TestTroubleshootingDocument::everyRowSaysWhatItMeansAndWhatToDo()
{
    QFETCH(Language, language);
    const Document document(language.document);
    for (const QString &header : {language.line, language.error, language.lastLine}) {
        const QVector<QStringList> rows = document.Rows(header);
        QVERIFY2(!rows.isEmpty(), qPrintable(header));
        for (const QStringList &row : rows) {
            QVERIFY2(row.size() == 3 && !row.at(1).isEmpty() && !row.at(2).isEmpty(),
                     qPrintable(row.first()));
        }
    }
}

void TestTroubleshootingDocument::whatUsersAreToLookForIsInTheLines()
{
    QFETCH(Language, language);
    const QVector<QStringList> rows = Document(language.document).Rows(language.symptom);
    QVERIFY(!rows.isEmpty());
    for (const QStringList &row : rows) {
        const QStringList wanted = AllQuoted(row.at(1));
        for (const QString &text : wanted)
            QVERIFY2(!m_lines.filter(text).isEmpty(), qPrintable(text));
    }
}

void TestTroubleshootingDocument::lastLinesAreLines()
{
    QStringList lastLines = Subjects(English().document, English().lastLine);
    QCOMPARE(lastLines.takeLast(), QString()); // any other
    for (const QString &line : qAsConst(lastLines))
        QVERIFY2(m_lines.contains(line), qPrintable(line));
}

void TestTroubleshootingDocument::logReaderKnowsTheSameLines()
{
    const QString page =
        QString::fromUtf8(ReadFile(ProjectPath(QStringLiteral("support/log-reader.html"))));
    static const QRegularExpression known(QStringLiteral(R"re("line":("(?:[^"\\]|\\.)*"))re"));
    QStringList lines;
    for (auto matches = known.globalMatch(page); matches.hasNext();) {
        const QString json = QLatin1Char('[') + matches.next().captured(1) + QLatin1Char(']');
        lines.append(QJsonDocument::fromJson(json.toUtf8()).array().at(0).toString());
    }
    QCOMPARE(lines, m_lines);
}

void TestTroubleshootingDocument::logReaderKnowsWhichLinesAreFailures()
{
    const QString path = ProjectPath(QStringLiteral("support/log-reader/lines.json"));
    const QJsonObject rules = QJsonDocument::fromJson(ReadFile(path)).object();
    for (const LogCall &call : qAsConst(m_calls)) {
        const QString line = m_lines.value(m_lines.indexOf(call.line));
        const QJsonObject rule = rules.value(line).toObject();
        const bool isKnown =
            rule.contains(QStringLiteral("failed")) || rule.contains(QStringLiteral("minor"));
        // One success is a warning.
        const bool isSuccess = call.statement.startsWith(QLatin1String("qInfo")) ||
                               line.endsWith(QLatin1String("successed"));
        QVERIFY2(isKnown != isSuccess, qPrintable(line));
    }
}

QTEST_GUILESS_MAIN(TestTroubleshootingDocument)
#include "tst_troubleshootingdocument.moc"
