// SPDX-License-Identifier: MIT
#include "release/publish/packing/exclusion.h"

#include <QTest>

class TestExclusion : public QObject
{
    Q_OBJECT

private slots:
    void patterns_data();
    void patterns();
    void usualOnes_data();
    void usualOnes();
};

void TestExclusion::patterns_data()
{
    QTest::addColumn<QString>("pattern");
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("excluded");
    QTest::newRow("name") << "a.pdb"
                          << "a.pdb" << true;
    QTest::newRow("name in a folder") << "a.pdb"
                                      << "d/e/a.pdb" << true;
    QTest::newRow("part of a name") << "a"
                                    << "a.pdb" << false;
    QTest::newRow("in another case") << "A.PDB"
                                     << "a.pdb" << true;
    QTest::newRow("any ending") << "a*"
                                << "d/a.pdb" << true;
    QTest::newRow("any beginning") << "*.pdb"
                                   << "d/.pdb" << true;
    QTest::newRow("one character") << "a?"
                                   << "ab" << true;
    QTest::newRow("one character too many") << "a?"
                                            << "abc" << false;
    QTest::newRow("one of them") << "[ab].txt"
                                 << "b.txt" << true;
    QTest::newRow("dot is a dot") << "a.b"
                                  << "axb" << false;
    QTest::newRow("folder with its slash") << "build/"
                                           << "d/build" << true;
    QTest::newRow("path") << "d/a"
                          << "d/a" << true;
    QTest::newRow("path elsewhere") << "d/a"
                                    << "e/d/a" << false;
    QTest::newRow("any file of a folder") << "d/*"
                                          << "d/a" << true;
    QTest::newRow("not of one below it") << "d/*.txt"
                                         << "d/e/a.txt" << false;
}

void TestExclusion::patterns()
{
    QFETCH(QString, pattern);
    QFETCH(QString, path);
    QVERIFY(Exclusion::IsPattern(pattern));
    QTEST(Exclusion({pattern}).Matches(path), "excluded");
}

void TestExclusion::usualOnes_data()
{
    QTest::addColumn<bool>("excluded");
    for (const char *path : {".git", ".svn", "d/.hg", ".DS_Store", "d/Thumbs.db", "thumbs.db",
                             "Desktop.ini", ".gitignore"})
        QTest::newRow(path) << true;
    for (const char *path : {"git", "a.git", "Thumbs.dbx", "client.ini", ".github.txt"})
        QTest::newRow(path) << false;
}

void TestExclusion::usualOnes()
{
    QTEST(Exclusion(Exclusion::Defaults()).Matches(QString::fromLatin1(QTest::currentDataTag())),
          "excluded");
}

QTEST_APPLESS_MAIN(TestExclusion)
#include "tst_exclusion.moc"
