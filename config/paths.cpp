// SPDX-License-Identifier: MIT
#include "config/paths.h"

#include "config/configcontract.h"

#include <QDir>

namespace
{

QString UnderHome(const QString &tail)
{
    return QDir::homePath() + tail;
}

QString InClientData(const QString &name)
{
    return UnderHome(QStringLiteral("/AppData/Roaming/norvaneAssistant/")) + name;
}

} // namespace

QString Paths::UpdateConfigFile()
{
    return ConfigContract::FileName;
}

QString Paths::LogFolder()
{
    return UnderHome(QStringLiteral("/AppData/Local/AutoUpdate"));
}

QString Paths::LogFile()
{
    return LogFolder() + QStringLiteral("/AutoUpdate.log");
}

QString Paths::LanguageFile()
{
    return InClientData(QStringLiteral("language.txt"));
}

QString Paths::NotesFile()
{
    return InClientData(QStringLiteral("update.log"));
}

QString Paths::NotesMarkerFile()
{
    return InClientData(QStringLiteral("isShowUpdataInfo.txt"));
}

QString Paths::ScriptFile()
{
    return UnderHome(QStringLiteral("/AutoUpdate/update.scpt"));
}

QString Paths::DownloadFolder(const QString &appName)
{
    return UnderHome(QStringLiteral("/AppData/Local/")) +
           ConfigContract::DownloadFolderName(appName);
}
