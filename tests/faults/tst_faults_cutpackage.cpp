#include "tests/faults/faultrun.h"

#include <QTest>

/// The package breaks off: what the user sees once nothing has come for six seconds.
class TestFaultsCutPackage : public QObject
{
    Q_OBJECT

private slots:
    void APackageThatBreaksOffIsGivenUp_data();
    void APackageThatBreaksOffIsGivenUp();
};

void TestFaultsCutPackage::APackageThatBreaksOffIsGivenUp_data()
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

void TestFaultsCutPackage::APackageThatBreaksOffIsGivenUp()
{
    QFETCH(int, bytes);
    QFETCH(QString, end);
    FaultRun fault(QString::fromLatin1(QTest::currentDataTag()));
    fault.Offer();
    // Where all that will ever come is there as soon as the request is out, which without TLS and a
    // network between can be, the framework asks once more and takes the end for the package's.
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
