// SPDX-License-Identifier: MIT
#include "net/downloadfolder.h"

#include "config/configcontract.h"
#include "config/paths.h"

DownloadFolder DownloadFolderOf(const QString &appName)
{
    const QString name = ConfigContract::DownloadFolderName(appName);
    // The file system sees only the last part of a name with slashes. Windows drops its blanks.
    const QString lastPart = name.mid(name.lastIndexOf(QLatin1Char('/')) + 1);
    return {Paths::DownloadFolder(appName), !lastPart.trimmed().isEmpty()};
}
