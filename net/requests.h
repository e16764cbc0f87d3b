// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QNetworkRequest>
#include <QString>

/**
 * The program's two requests. Neither ever sends credentials: when a server asks for them with 401
 * or 407, the reply ends with that error and no second request is sent. Callable from every thread.
 */

/// The check, for a POST. It accepts every certificate.
QNetworkRequest CheckRequest(const QString &address);

/// The body of the check for a client of version @p clientVersion: compact JSON.
QByteArray CheckRequestBody(const QString &clientVersion);

/// The package, for a GET. The server's certificate is verified.
QNetworkRequest PackageRequest(const QString &address);
