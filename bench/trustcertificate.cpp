// Loaded before the updater's own libraries, this makes it trust one certificate more: on Linux the
// framework knows no other way than the machine's own store, which a benchmark leaves alone.

#include <QCoreApplication>
#include <QSslCertificate>
#include <QSslConfiguration>

namespace
{

void TrustCertificate()
{
    // Not in the programs that the updater starts.
    qunsetenv("LD_PRELOAD");
    const QString path = qEnvironmentVariable("BENCH_CERTIFICATE");
    const QList<QSslCertificate> certificates = QSslCertificate::fromPath(path);
    if (certificates.isEmpty())
        qFatal("there is no certificate in %s", qPrintable(path));
    QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
    tls.setCaCertificates(tls.caCertificates() + certificates);
    QSslConfiguration::setDefaultConfiguration(tls);
}

} // namespace

Q_COREAPP_STARTUP_FUNCTION(TrustCertificate)
