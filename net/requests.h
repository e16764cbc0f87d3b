#pragma once

#include <QByteArray>
#include <QNetworkRequest>
#include <QString>

/**
 * The program's two requests. Neither ever signs in: a server that asks for credentials, be it with
 * 401 or 407, gets no second request, and the reply ends with the error. Callable from every
 * thread.
 */

/// The check, a POST. It accepts every certificate.
QNetworkRequest CheckRequest(const QString &address);

/// What the check tells of the client whose version is @p clientVersion: compact JSON.
QByteArray CheckRequestBody(const QString &clientVersion);

/// The package, a GET. The server's certificate is verified.
QNetworkRequest PackageRequest(const QString &address);
