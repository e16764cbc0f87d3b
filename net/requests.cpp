#include "net/requests.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QSslConfiguration>
#include <QUrl>

namespace
{

/// Windows, as the update service counts platforms.
constexpr int kPlatform = 6;

/// Qt would answer a challenge by itself, on Windows with the account of whoever is logged on, and
/// return cookies with the next request.
void IdentifyNobody(QNetworkRequest &request)
{
    for (const QNetworkRequest::Attribute attribute :
         {QNetworkRequest::AuthenticationReuseAttribute,
          QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::CookieSaveControlAttribute})
        request.setAttribute(attribute, QNetworkRequest::Manual);
}

/// The bytes that Qt sends anyway; but only a body that was asked for here is left as it came. Qt
/// decompresses without a limit.
void LeaveCompressed(QNetworkRequest &request)
{
    request.setRawHeader("Accept-Encoding", "gzip, deflate");
}

} // namespace

QNetworkRequest CheckRequest(const QString &address)
{
    QNetworkRequest request(QUrl(address, QUrl::TolerantMode));
    request.setRawHeader("X-Request-From", "internal");
    request.setRawHeader("content-type", "application/json;charset=UTF-8");
    LeaveCompressed(request);
    IdentifyNobody(request);
    QSslConfiguration tls = request.sslConfiguration();
    tls.setPeerVerifyMode(QSslSocket::VerifyNone);
    tls.setProtocol(QSsl::AnyProtocol);
    request.setSslConfiguration(tls);
    return request;
}

QByteArray CheckRequestBody(const QString &clientVersion)
{
    const QJsonObject body{{QStringLiteral("clientVersion"), clientVersion},
                           {QStringLiteral("deviceType"), QStringLiteral("Windows")},
                           {QStringLiteral("platform"), kPlatform}};
    return QJsonDocument(body).toJson(QJsonDocument::Compact);
}

QNetworkRequest PackageRequest(const QString &address)
{
    QNetworkRequest request(QUrl(address, QUrl::TolerantMode));
    LeaveCompressed(request);
    IdentifyNobody(request);
    return request;
}
