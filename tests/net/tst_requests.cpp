// SPDX-License-Identifier: MIT
#include "net/requests.h"

#include <QSslConfiguration>
#include <QTest>
#include <QUrl>

class TestRequests : public QObject
{
    Q_OBJECT

private slots:
    void bodyOfTheCheckIsCompactJson_data();
    void bodyOfTheCheckIsCompactJson();
    void addressesAreReadTolerantly_data();
    void addressesAreReadTolerantly();
    void checkHasItsHeadersInOrder();
    void packageRequestHasNoHeaderOfItsOwn();
    void onlyTheCheckAcceptsEveryCertificate();
    void nobodyIsIdentified();
};

namespace
{

const QString kAddress = QStringLiteral("https://updates.example/check");

} // namespace

void TestRequests::bodyOfTheCheckIsCompactJson_data()
{
    QTest::addColumn<QString>("version");
    QTest::addColumn<QByteArray>("body");
    const auto row = [](const char *tag, const char *version, const char *body) {
        QTest::newRow(tag) << QString::fromUtf8(version) << QByteArray(body);
    };
    row("usual", "1.0.0", R"({"clientVersion":"1.0.0","deviceType":"Windows","platform":6})");
    row("no version", "", R"({"clientVersion":"","deviceType":"Windows","platform":6})");
    row("to be escaped", u8"1\"版\\",
        u8R"({"clientVersion":"1\"版\\","deviceType":"Windows","platform":6})");
}

void TestRequests::bodyOfTheCheckIsCompactJson()
{
    QFETCH(QString, version);
    QTEST(CheckRequestBody(version), "body");
}

void TestRequests::addressesAreReadTolerantly_data()
{
    QTest::addColumn<QString>("address");
    QTest::addColumn<QString>("encoded");
    const auto row = [](const char *address, const char *encoded) {
        QTest::newRow(address) << QString::fromLatin1(address) << QString::fromLatin1(encoded);
    };
    row("https://updates.example/check", "https://updates.example/check");
    row("https://updates.example/check?a=b&c=%20d", "https://updates.example/check?a=b&c=%20d");
    row("https://updates.example/check me", "https://updates.example/check%20me");
    row("", "");
}

void TestRequests::addressesAreReadTolerantly()
{
    QFETCH(QString, address);
    QFETCH(QString, encoded);
    QCOMPARE(CheckRequest(address).url().toString(QUrl::FullyEncoded), encoded);
    QCOMPARE(PackageRequest(address).url().toString(QUrl::FullyEncoded), encoded);
}

void TestRequests::checkHasItsHeadersInOrder()
{
    const QNetworkRequest request = CheckRequest(kAddress);
    QCOMPARE(request.rawHeaderList(),
             QList<QByteArray>({"X-Request-From", "content-type", "Accept-Encoding"}));
    QCOMPARE(request.rawHeader("X-Request-From"), QByteArray("internal"));
    QCOMPARE(request.rawHeader("content-type"), QByteArray("application/json;charset=UTF-8"));
    QCOMPARE(request.rawHeader("Accept-Encoding"), QByteArray("gzip, deflate"));
}

void TestRequests::packageRequestHasNoHeaderOfItsOwn()
{
    QCOMPARE(PackageRequest(kAddress).rawHeaderList(), QList<QByteArray>({"Accept-Encoding"}));
}

void TestRequests::onlyTheCheckAcceptsEveryCertificate()
{
    const QSslConfiguration check = CheckRequest(kAddress).sslConfiguration();
    QCOMPARE(check.peerVerifyMode(), QSslSocket::VerifyNone);
    QCOMPARE(check.protocol(), QSsl::AnyProtocol);

    const QSslConfiguration package = PackageRequest(kAddress).sslConfiguration();
    QVERIFY(package.peerVerifyMode() != QSslSocket::VerifyNone);
    QCOMPARE(package.protocol(), QSsl::SecureProtocols);
}

void TestRequests::nobodyIsIdentified()
{
    const QVector<QNetworkRequest> requests{CheckRequest(kAddress), PackageRequest(kAddress)};
    for (const QNetworkRequest &request : requests) {
        for (const QNetworkRequest::Attribute attribute :
             {QNetworkRequest::AuthenticationReuseAttribute,
              QNetworkRequest::CookieLoadControlAttribute,
              QNetworkRequest::CookieSaveControlAttribute})
            QCOMPARE(request.attribute(attribute).toInt(), int(QNetworkRequest::Manual));
    }
}

QTEST_GUILESS_MAIN(TestRequests)
#include "tst_requests.moc"
