// SPDX-License-Identifier: MIT
#include "net/requests.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QSslConfiguration>
#include <QUrl>

namespace
{

/// The update service's number for Windows.
constexpr int kPlatform = 6;

/// Without this, Qt answers a challenge itself, on Windows with the account of the current user,
/// and sends cookies back with the next request.
void IdentifyNobody(QNetworkRequest &request)
{
    for (const QNetworkRequest::Attribute attribute :
         {QNetworkRequest::AuthenticationReuseAttribute,
          QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::CookieSaveControlAttribute})
        request.setAttribute(attribute, QNetworkRequest::Manual);
}

/// Sets the header to the value that Qt would send anyway. Qt leaves the body compressed only when
/// the program has set it; otherwise it decompresses without a limit.
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
