// SPDX-License-Identifier: MIT
#include "tests/faults/faultrun.h"
#include "tests/support/environmentvariable.h"

#include <QDir>
#include <QFile>
#include <QTest>

/// The user's machine: the name of the home folder, and a task list that hangs.
class TestFaultsMachine : public QObject
{
    Q_OBJECT

private slots:
    void aHomeOfAnyName_data();
    void aHomeOfAnyName();
    void tasklistHangs();
};

void TestFaultsMachine::aHomeOfAnyName_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("home: with blanks") << QStringLiteral("My  own home");
    QTest::newRow("home: with letters of other scripts") << QStringLiteral("Größe 中文 é́");
    QTest::newRow("home: of 200 letters") << QString(200, QLatin1Char('h'));
    QTest::newRow("home: with characters that commands know")
        << QStringLiteral("a&b%PATH%$HOME'(1);#");
}

void TestFaultsMachine::aHomeOfAnyName()
{
    QFETCH(QString, name);
    FaultRun fault(QString::fromLatin1(QTest::currentDataTag()));
    const QString home = fault.run.Scratch() + QLatin1Char('/') + name;
    QVERIFY(QDir().mkpath(home));
    const EnvironmentVariable variable("HOME", QFile::encodeName(home));
    fault.run.SetLanguage("en");
    fault.Offer();
    fault.RunThrough();
    fault.MustEndWith({FaultRun::Progress, FaultRun::Updated, 1});
}

void TestFaultsMachine::tasklistHangs()
{
    FaultRun fault(QStringLiteral("hangs: tasklist"));
    fault.Offer();
    {
        StandIn tasklist(fault.run.CommandsFolder() + QStringLiteral("/tasklist"));
        tasklist.SetScript("stay\n");
        fault.RunThrough();
        QCOMPARE(tasklist.Calls().size(), 2);
        fault.MustLeadTo({FaultRun::Progress, FaultRun::Updated, 1});
        QFile::remove(tasklist.Path());
    }
    fault.NextRunMustWork();
}

QTEST_GUILESS_MAIN(TestFaultsMachine)
#include "tst_faults_machine.moc"
