// SPDX-License-Identifier: MIT
#include "tests/faults/faultrun.h"
#include "tests/faults/owndisk.h"
#include "tests/faults/rawservice.h"

#include <QFile>
#include <QProcess>
#include <QSslKey>
#include <QTest>

/// TLS fails. Certificates matter for the package, but not for the check.
class TestFaultsTransport : public QObject
{
    Q_OBJECT

private slots:
    void theChecksTls_data();
    void theChecksTls();
    void thePackagesTls_data();
    void thePackagesTls();
    void aTooOldTlsEndsTheCheck();
    void aTooOldTlsEndsThePackage();
};

namespace
{

struct Identity {
    QSslCertificate certificate;
    QSslKey key;
};

QString Path(const FaultRun &fault, const QString &name)
{
    return fault.run.Scratch() + QLatin1Char('/') + name;
}

void RunOpenssl(const QStringList &arguments, const QString &clock = QString())
{
    QProcess openssl;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    if (!clock.isEmpty()) {
        environment.insert(QStringLiteral("LD_PRELOAD"), QStringLiteral(FAKETIME_LIBRARY));
        environment.insert(QStringLiteral("FAKETIME"), clock);
    }
    openssl.setProcessEnvironment(environment);
    openssl.start(QStringLiteral("openssl"), arguments);
    if (!openssl.waitForFinished() || openssl.exitCode() != 0)
        qFatal("openssl: %s", openssl.readAllStandardError().constData());
}

/// A self-signed certificate for @p host, issued at the time @p clock and valid for two days.
Identity MakeIdentity(const FaultRun &fault, const QString &host, const QString &clock)
{
    const QString certificate = Path(fault, QStringLiteral("trusted/server.pem"));
    const QString key = Path(fault, QStringLiteral("server.key"));
    WriteFile(certificate, "");
    RunOpenssl({QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-newkey"),
                QStringLiteral("rsa:2048"), QStringLiteral("-nodes"), QStringLiteral("-days"),
                QStringLiteral("2"), QStringLiteral("-subj"), QStringLiteral("/CN=") + host,
                QStringLiteral("-addext"), QStringLiteral("subjectAltName=DNS:") + host,
                QStringLiteral("-keyout"), key, QStringLiteral("-out"), certificate},
               clock);
    RunOpenssl({QStringLiteral("rehash"), Path(fault, QStringLiteral("trusted"))});
    return {QSslCertificate(ReadFile(certificate)), QSslKey(ReadFile(key), QSsl::Rsa)};
}

void AddCertificates()
{
    QTest::addColumn<QString>("host");
    QTest::addColumn<QString>("clock");
    QTest::addColumn<bool>("trusted");
}

/// The alert of a server that supports none of the TLS versions of the client.
RawService::Answer NoCommonVersion()
{
    return {QByteArray("\x15\x03\x01\x00\x02\x02\x46", 7), RawService::End::Close,
            RawService::Begin::AtTheFirstByte};
}

const QString kHere = QStringLiteral("localhost");
const QString kElsewhere = QStringLiteral("updates.example");
const QString kLongAgo = QStringLiteral("-30d");
const QString kHttps = QStringLiteral("https");
const QString kCheckUrl = QStringLiteral("updateCheckUrl");
const QString kPackageUrl = QStringLiteral("updatePackageUrl");

} // namespace

void TestFaultsTransport::theChecksTls_data()
{
    AddCertificates();
    QTest::newRow("check: certificate expired") << kHere << kLongAgo << true;
    QTest::newRow("check: certificate for another name") << kElsewhere << QString() << true;
    QTest::newRow("check: certificate that nobody trusts") << kHere << QString() << false;
}

void TestFaultsTransport::theChecksTls()
{
    QFETCH(QString, host);
    QFETCH(QString, clock);
    QFETCH(bool, trusted);
    FaultRun fault(QString::fromLatin1(QTest::currentDataTag()));
    RawService service;
    const Identity identity = MakeIdentity(fault, host, clock);
    service.UseTls(identity.certificate, identity.key);
    service.SetAnswer({RawService::Http(FaultRun::CheckAnswer())});
    fault.Offer({}, {{kCheckUrl, service.Url(kHttps, QStringLiteral("/"))}});
    {
        const Mount trust = Mount::Over(QStringLiteral("/etc/ssl/certs"),
                                        trusted ? Path(fault, QStringLiteral("trusted"))
                                                : QStringLiteral("/etc/ssl/certs"));
        fault.RunThrough();
    }
    fault.MustLeadTo({FaultRun::Progress, FaultRun::Updated, 1});
    fault.run.Configure();
    fault.NextRunMustWork();
}

void TestFaultsTransport::thePackagesTls_data()
{
    AddCertificates();
    QTest::addColumn<bool>("good");
    QTest::newRow("package: certificate expired") << kHere << kLongAgo << true << false;
    QTest::newRow("package: certificate for another name")
        << kElsewhere << QString() << true << false;
    QTest::newRow("package: certificate that nobody trusts")
        << kHere << QString() << false << false;
    QTest::newRow("package: certificate as it must be") << kHere << QString() << true << true;
}

void TestFaultsTransport::thePackagesTls()
{
    QFETCH(QString, host);
    QFETCH(QString, clock);
    QFETCH(bool, trusted);
    QFETCH(bool, good);
    FaultRun fault(QString::fromLatin1(QTest::currentDataTag()));
    RawService service;
    const Identity identity = MakeIdentity(fault, host, clock);
    service.UseTls(identity.certificate, identity.key);
    service.SetAnswer({RawService::Http(FaultRun::Package())});
    fault.Offer({}, {{kPackageUrl, service.Url(kHttps, QStringLiteral("/"))}});
    {
        const Mount trust = Mount::Over(QStringLiteral("/etc/ssl/certs"),
                                        trusted ? Path(fault, QStringLiteral("trusted"))
                                                : QStringLiteral("/etc/ssl/certs"));
        fault.Start();
        if (good)
            QCOMPARE(fault.run.WaitForEnd(), 0);
        else
            fault.WaitForError();
    }
    if (good) {
        fault.MustLeadTo({FaultRun::Progress, FaultRun::Updated, 1});
    } else {
        fault.MustLeadTo({FaultRun::NetworkError,
                          FaultRun::Untouched + QStringLiteral(", an empty package file"), 0});
        fault.GiveUp();
    }
    fault.run.Configure();
    fault.NextRunMustWork();
}

void TestFaultsTransport::aTooOldTlsEndsTheCheck()
{
    FaultRun fault(QStringLiteral("check: the service's TLS is too old"));
    RawService service;
    service.SetAnswer(NoCommonVersion());
    fault.Offer({}, {{kCheckUrl, service.Url(kHttps, QStringLiteral("/"))}});
    fault.RunThrough();
    fault.MustLeadTo({QStringLiteral("nothing"), FaultRun::Untouched, 1});
    fault.run.Configure();
    fault.NextRunMustWork();
}

void TestFaultsTransport::aTooOldTlsEndsThePackage()
{
    FaultRun fault(QStringLiteral("package: the server's TLS is too old"));
    RawService service;
    service.SetAnswer(NoCommonVersion());
    fault.Offer({}, {{kPackageUrl, service.Url(kHttps, QStringLiteral("/"))}});
    fault.Start();
    fault.WaitForError();
    fault.MustLeadTo({FaultRun::NetworkError,
                      FaultRun::Untouched + QStringLiteral(", an empty package file"), 0});
    fault.GiveUp();
    fault.run.Configure();
    fault.NextRunMustWork();
}

int main(int argc, char *argv[])
{
    OwnDisk::EnterNamespace();
    QCoreApplication application(argc, argv);
    TestFaultsTransport test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_faults_transport.moc"
