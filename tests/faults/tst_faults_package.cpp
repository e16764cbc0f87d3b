// SPDX-License-Identifier: MIT
#include "tests/faults/faultrun.h"
#include "tests/support/compression.h"

#include <QTest>

/// The package server gives a wrong answer, which the user sees at once.
class TestFaultsPackage : public QObject
{
    Q_OBJECT

private slots:
    void aWrongPackageIsNotInstalled_data();
    void aWrongPackageIsNotInstalled();
    void anOddAnswerStillUpdates_data();
    void anOddAnswerStillUpdates();
    void retryAfterACorruptedPackageUpdates();
    void aDamagedEntryStartsTheClient();
};

namespace
{

const QString kBase64 = QStringLiteral("bodyBase64");
const QString kStatus = QStringLiteral("status");

QJsonObject Step(const QByteArray &body)
{
    return {{kBase64, QString::fromLatin1(body.toBase64())}};
}

QByteArray WithOneBitTurned()
{
    QByteArray package = FaultRun::Package();
    package[package.size() / 2] = char(package.at(package.size() / 2) ^ 1);
    return package;
}

} // namespace

void TestFaultsPackage::aWrongPackageIsNotInstalled_data()
{
    QTest::addColumn<QJsonObject>("step");
    QTest::addColumn<QString>("left");
    const QByteArray package = FaultRun::Package();
    const QString damaged = QStringLiteral(", another file as the package");
    const QString empty = QStringLiteral(", an empty package file");
    QTest::newRow("package: one bit turned over") << Step(WithOneBitTurned()) << damaged;
    QTest::newRow("package: 64 KiB that decompress to 64 MiB")
        << QJsonObject{{kBase64, QString::fromLatin1(Gzip(QByteArray(64 << 20, '\0')).toBase64())},
                       {QStringLiteral("headers"),
                        QJsonArray{QJsonArray{QStringLiteral("Content-Encoding"),
                                              QStringLiteral("gzip")}}}}
        << damaged;
    QTest::newRow("package: one byte too many") << Step(package + 'x') << damaged;
    QTest::newRow("package: one byte missing")
        << Step(package.left(package.size() - 1)) << QStringLiteral(", part of the package");
    QTest::newRow("package: empty") << Step(QByteArray()) << empty;
    QTest::newRow("package: a page of a hotel's network")
        << Step("<html><body>Log in</body></html>") << damaged;
    QTest::newRow("package: announced half as long as it is")
        << QJsonObject{{QStringLiteral("length"), package.size() / 2},
                       {QStringLiteral("then"), QStringLiteral("close")}}
        << QStringLiteral(", part of the package");
    for (const int status : {301, 302, 307})
        QTest::addRow("package: answer %d to another page", status)
            << QJsonObject{{kStatus, status},
                           {QStringLiteral("body"), QString()},
                           {QStringLiteral("headers"),
                            QJsonArray{QJsonArray{QStringLiteral("Location"),
                                                  QStringLiteral("/elsewhere")}}}}
            << empty;
}

void TestFaultsPackage::aWrongPackageIsNotInstalled()
{
    QFETCH(QJsonObject, step);
    QFETCH(QString, left);
    FaultRun fault(QString::fromLatin1(QTest::currentDataTag()));
    fault.Offer();
    fault.ScriptPackage(step);
    fault.Start();
    fault.WaitForError();
    fault.MustEndWith({FaultRun::Corrupted, FaultRun::Untouched + left, 0});
}

void TestFaultsPackage::anOddAnswerStillUpdates_data()
{
    QTest::addColumn<QJsonObject>("step");
    QTest::newRow("package: without a length, ended by the connection")
        << QJsonObject{{QStringLiteral("length"), QStringLiteral("none")}};
    const QByteArray packed = qCompress(FaultRun::Package()).mid(4);
    QTest::newRow("package: compressed on the way") << QJsonObject{
        {kBase64, QString::fromLatin1(packed.toBase64())},
        {QStringLiteral("headers"),
         QJsonArray{QJsonArray{QStringLiteral("Content-Encoding"), QStringLiteral("deflate")}}}};
    QTest::newRow("package: in chunks") << QJsonObject{{QStringLiteral("chunked"), true}};
}

void TestFaultsPackage::anOddAnswerStillUpdates()
{
    QFETCH(QJsonObject, step);
    FaultRun fault(QString::fromLatin1(QTest::currentDataTag()));
    fault.Offer();
    fault.ScriptPackage(step);
    fault.RunThrough();
    fault.MustEndWith({FaultRun::Progress, FaultRun::Updated, 1});
}

void TestFaultsPackage::retryAfterACorruptedPackageUpdates()
{
    FaultRun fault(QStringLiteral("package: one bit turned over, and whole on \"Retry\""));
    fault.Offer();
    fault.run.server.Script(FaultRun::PackagePage,
                            QJsonArray{Step(WithOneBitTurned()), Step(FaultRun::Package())});
    fault.Start();
    fault.WaitForError();
    fault.Press(FaultRun::CancelOrRetryButton);
    QCOMPARE(fault.run.WaitForEnd(), 0);
    fault.MustEndWith(
        {FaultRun::Corrupted + QStringLiteral(", then progress"), FaultRun::Updated, 1});
}

void TestFaultsPackage::aDamagedEntryStartsTheClient()
{
    FaultRun fault(QStringLiteral("package: verified, but an entry is damaged"));
    fault.Offer();
    fault.run.Publish(WithOneBitTurned(), FaultRun::PackageName);
    fault.RunThrough();
    fault.MustEndWith(
        {FaultRun::Progress,
         FaultRun::Untouched + QStringLiteral(", another file as the package, part of it unpacked"),
         1});
}

QTEST_GUILESS_MAIN(TestFaultsPackage)
#include "tst_faults_package.moc"
