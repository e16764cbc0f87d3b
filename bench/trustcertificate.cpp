// SPDX-License-Identifier: MIT
// Preloaded into the updater, this library makes it trust one more certificate. On Linux Qt itself
// trusts only the machine's store, which a benchmark must not change.

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
