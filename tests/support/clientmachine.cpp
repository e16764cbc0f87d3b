// SPDX-License-Identifier: MIT
#include "tests/support/clientmachine.h"

#include "config/global.h"

#include <QFileInfo>

ClientMachine::ClientMachine() : client(Installed(UniqueImageName()))
{
    Global::instance.appName = ClientName();
    Global::instance.appPath = ClientFolder() + QLatin1Char('/');
}

QString ClientMachine::ClientName() const
{
    return QFileInfo(client.Path()).fileName();
}

QString ClientMachine::DownloadFolder() const
{
    return Home() + QStringLiteral("/AppData/Local/") +
           ClientName().section(QLatin1Char('.'), 0, 0);
}
