// SPDX-License-Identifier: MIT
#include "tests/docs/document.h"
#include "tests/support/testhome.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QTest>

namespace
{

/// Every document of the project, by its path in it.
QStringList AllDocuments()
{
    QStringList paths;
    for (const QString &folder : {QString(), QStringLiteral("docs/")}) {
        const QStringList names =
            QDir(ProjectPath(folder)).entryList({QStringLiteral("*.md")}, QDir::Files, QDir::Name);
        for (const QString &name : names)
            paths.append(folder + name);
    }
    return paths;
}

bool LeadsOutside(const QString &link)
{
    return link.contains(QLatin1String("://")) || link.startsWith(QLatin1String("mailto:"));
}

/// What is wrong with a link in the document at @p path; empty when nothing is.
QString Complaint(const QString &path, const QString &link)
{
    const QString file = link.section(QLatin1Char('#'), 0, 0);
    const QString anchor = link.section(QLatin1Char('#'), 1);
    const QString folder = path.left(path.lastIndexOf(QLatin1Char('/')) + 1);
    const QString target = file.isEmpty() ? path : QDir::cleanPath(folder + file);
    if (!QFileInfo::exists(ProjectPath(target)))
        return QStringLiteral("there is no %1").arg(target);
    if (!anchor.isEmpty() && !Document(target).Anchors().contains(anchor))
        return QStringLiteral("%1 has no heading #%2").arg(target, anchor);
    return QString();
}

/// A claim of a document is followed by a comment with the tests that prove it, as in
/// <!-- test: startup::noArgumentIsTakenForQt folderremoval -->
QStringList NamedTests(const QString &text)
{
    static const QRegularExpression comment(QStringLiteral("<!-- test: ([^>]+) -->"));
    QStringList names;
    auto match = comment.globalMatch(text);
    while (match.hasNext())
        names += match.next().captured(1).split(QLatin1Char(' '), Qt::SkipEmptyParts);
    return names;
}

/// The sources of the test program with that name; empty when there is none.
QString SourceOfTest(const QString &subject)
{
    QDirIterator it(
        ProjectPath(QStringLiteral("tests")),
        {QStringLiteral("tst_%1.cpp").arg(subject), QStringLiteral("test_%1.py").arg(subject)},
        QDir::Files, QDirIterator::Subdirectories);
    return it.hasNext() ? QString::fromUtf8(ReadFile(it.next())) : QString();
}

/// @p name is SUBJECT for a whole program, or SUBJECT::FUNCTION.
bool TestExists(const QString &name)
{
    const QString source = SourceOfTest(name.section(QStringLiteral("::"), 0, 0));
    const QString function = name.section(QStringLiteral("::"), 1);
    if (function.isEmpty())
        return !source.isEmpty();
    return source.contains(QStringLiteral("::%1()\n").arg(function)) ||
           source.contains(QStringLiteral("def %1(").arg(function));
}

/// What a document has in common with its translations.
struct Structure {
    QStringList headingLevels; ///< "#", "##" and so on, in their order
    QStringList codeLines;     ///< the lines of fenced and indented blocks
    QStringList links;         ///< sorted, because languages order their words differently
};

Structure StructureOf(const QString &path)
{
    Structure structure;
    bool inFence = false;
    const QStringList lines =
        QString::fromUtf8(ReadFile(ProjectPath(path))).split(QLatin1Char('\n'));
    for (const QString &line : lines) {
        const bool isFence = line.trimmed().startsWith(QLatin1String("```"));
        if (isFence || inFence || line.startsWith(QLatin1String("    ")))
            structure.codeLines.append(line);
        else if (line.startsWith(QLatin1Char('#')))
            structure.headingLevels.append(line.section(QLatin1Char(' '), 0, 0));
        if (isFence)
            inFence = !inFence;
    }
    structure.links = Document(path).Links();
    structure.links.sort();
    return structure;
}

} // namespace

/// What holds for every document.
class TestDocuments : public QObject
{
    Q_OBJECT

private slots:
    void linksResolve_data() { AddAllDocuments(); }
    void linksResolve();
    void namedTestsExist_data() { AddAllDocuments(); }
    void namedTestsExist();
    void everyAttackNamesItsTest();
    void jsonExamplesParse_data() { AddAllDocuments(); }
    void jsonExamplesParse();
    void quotesAreInTheirSources_data() { AddAllDocuments(); }
    void quotesAreInTheirSources();
    void theSampleClientIsQuoted();
    void everyDocumentIsReachedFromTheReadme();
    void chineseReadmeHasTheStructureOfTheEnglishOne();

private:
    static void AddAllDocuments();
};

void TestDocuments::AddAllDocuments()
{
    QTest::addColumn<QString>("path");
    const QStringList paths = AllDocuments();
    for (const QString &path : paths)
        QTest::newRow(qPrintable(path)) << path;
}

void TestDocuments::linksResolve()
{
    QFETCH(QString, path);
    QStringList complaints;
    const QStringList links = Document(path).Links();
    for (const QString &link : links) {
        if (!LeadsOutside(link) && !Complaint(path, link).isEmpty())
            complaints.append(Complaint(path, link));
    }
    QCOMPARE(complaints.join(QStringLiteral("; ")), QString());
}

void TestDocuments::namedTestsExist()
{
    QFETCH(QString, path);
    const QStringList names = NamedTests(QString::fromUtf8(ReadFile(ProjectPath(path))));
    for (const QString &name : names)
        QVERIFY2(TestExists(name), qPrintable(name));
}

void TestDocuments::everyAttackNamesItsTest()
{
    const QVector<QStringList> attacks =
        Document(QStringLiteral("docs/security.md")).Rows(QStringLiteral("They can"));
    QVERIFY(attacks.size() > 10);
    for (const QStringList &attack : attacks)
        QVERIFY2(!NamedTests(attack.last()).isEmpty(), qPrintable(attack.first()));
}

void TestDocuments::jsonExamplesParse()
{
    QFETCH(QString, path);
    const QVector<QByteArray> examples = Document(path).Fenced(QStringLiteral("json"));
    for (const QByteArray &example : examples) {
        QJsonParseError error;
        QJsonDocument::fromJson(example, &error);
        QVERIFY2(error.error == QJsonParseError::NoError,
                 (error.errorString().toUtf8() + " in\n" + example).constData());
    }
}

void TestDocuments::quotesAreInTheirSources()
{
    QFETCH(QString, path);
    const auto quotes = Document(path).Quotes();
    for (const auto &quote : quotes) {
        const QByteArray source = ReadFile(ProjectPath(quote.first));
        QVERIFY2(source.contains(quote.second),
                 ("not in " + quote.first.toUtf8() + ":\n" + quote.second).constData());
    }
}

void TestDocuments::theSampleClientIsQuoted()
{
    QStringList quoted;
    const auto quotes = Document(QStringLiteral("docs/client.md")).Quotes();
    for (const auto &quote : quotes)
        quoted.append(quote.first);
    const QString folder = QStringLiteral("examples/client/");
    const QStringList sources = QDir(ProjectPath(folder)).entryList({QStringLiteral("*.cpp")});
    QVERIFY(!sources.isEmpty());
    for (const QString &source : sources)
        QVERIFY2(quoted.contains(folder + source), qPrintable(source));
}

void TestDocuments::everyDocumentIsReachedFromTheReadme()
{
    QStringList reached{QStringLiteral("README.md")};
    for (int index = 0; index < reached.size(); ++index) {
        const QString path = reached.at(index);
        const QString folder = path.left(path.lastIndexOf(QLatin1Char('/')) + 1);
        const QStringList links = Document(path).Links();
        for (const QString &link : links) {
            const QString target = QDir::cleanPath(folder + link.section(QLatin1Char('#'), 0, 0));
            if (target.endsWith(QLatin1String(".md")) && !reached.contains(target) &&
                QFileInfo::exists(ProjectPath(target)))
                reached.append(target);
        }
    }
    QStringList missed = AllDocuments();
    for (const QString &path : qAsConst(reached))
        missed.removeAll(path);
    QCOMPARE(missed, QStringList());
}

void TestDocuments::chineseReadmeHasTheStructureOfTheEnglishOne()
{
    const QString englishPath = QStringLiteral("README.md");
    const QString chinesePath = QStringLiteral("README.zh.md");
    Structure english = StructureOf(englishPath);
    Structure chinese = StructureOf(chinesePath);
    QVERIFY2(english.links.removeOne(chinesePath), "README.md does not link to README.zh.md");
    QVERIFY2(chinese.links.removeOne(englishPath), "README.zh.md does not link to README.md");
    QVERIFY(!english.headingLevels.isEmpty() && !english.codeLines.isEmpty());
    QCOMPARE(chinese.headingLevels, english.headingLevels);
    QCOMPARE(chinese.codeLines, english.codeLines);
    QCOMPARE(chinese.links, english.links);
}

QTEST_GUILESS_MAIN(TestDocuments)
#include "tst_documents.moc"
