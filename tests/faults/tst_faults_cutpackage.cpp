// SPDX-License-Identifier: MIT
#include "tests/faults/faultrun.h"

#include <QTest>

/// The package breaks off: what the user sees after six seconds without data.
class TestFaultsCutPackage : public QObject
{
    Q_OBJECT

private slots:
    void aPackageThatBreaksOffIsGivenUp_data();
    void aPackageThatBreaksOffIsGivenUp();
};

void TestFaultsCutPackage::aPackageThatBreaksOffIsGivenUp_data()
{
    QTest::addColumn<int>("bytes");
    QTest::addColumn<QString>("end");
    const QString close = QStringLiteral("close");
    QTest::newRow("package: connection closed after the first bytes") << 2 << close;
    for (int tenth = 1; tenth < 10; ++tenth)
        QTest::addRow("package: connection closed after %d %%", tenth * 10)
            << FaultRun::Package().size() * tenth / 10 << close;
    QTest::newRow("package: connection reset in the middle") << 100000 << QStringLiteral("reset");
}

void TestFaultsCutPackage::aPackageThatBreaksOffIsGivenUp()
{
    QFETCH(int, bytes);
    QFETCH(QString, end);
    FaultRun fault(QString::fromLatin1(QTest::currentDataTag()));
    fault.Offer();
    // When all data arrives at once after the request, which is possible without TLS and a network,
    // Qt repeats the request and takes the end of the connection for that of the package.
    fault.ScriptPackage({{QStringLiteral("hold"), 1},
                         {QStringLiteral("sendBytes"), bytes},
                         {QStringLiteral("then"), end}});
    fault.Start();
    fault.ReleaseOnceWritten(1);
    fault.WaitForError();
    fault.MustEndWith(
        {FaultRun::NetworkError, FaultRun::Untouched + QStringLiteral(", part of the package"), 0});
}

QTEST_GUILESS_MAIN(TestFaultsCutPackage)
#include "tst_faults_cutpackage.moc"
