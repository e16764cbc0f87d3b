// SPDX-License-Identifier: MIT
#include "net/tlspreparation.h"

#include <QNetworkAccessManager>
#include <QSslConfiguration>

void PrepareTls()
{
    (void)QSslConfiguration::defaultConfiguration();
    const QNetworkAccessManager first;
}
