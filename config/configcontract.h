// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLatin1String>
#include <QString>

/**
 * The words and the format of the configuration files, shared by the updater and the tool that
 * checks a configuration before it ships. Callable from every thread.
 */
namespace ConfigContract
{

/// The updater's configuration, in the program's folder.
inline const QLatin1String FileName("updateconfig.json");

/// Keys of updateconfig.json.
namespace Key
{
inline const QLatin1String AppName("appName");
inline const QLatin1String AppConfigFile("appConfigFile");
inline const QLatin1String AppPath("appPath");
inline const QLatin1String UpdateCheckUrl("updateCheckUrl");
inline const QLatin1String UpdatePackageUrl("updatePackageUrl");
inline const QLatin1String NoRemindVersion("noRemindVersion");
inline const QLatin1String NoRemind("noRemind");
inline const QLatin1String CurrentVersion("currentVersion");
} // namespace Key

/// Keys of the client's own configuration.
namespace ClientKey
{
inline const QLatin1String Client("client"); ///< the object that holds the version
inline const QLatin1String Version("version");
} // namespace ClientKey

/// What Global::WriteConfigToFile() records.
namespace Selector
{
inline const QLatin1String SilencedVersion("remid");    ///< never prompt for the offered version
inline const QLatin1String InstalledVersion("version"); ///< the offered version is installed
} // namespace Selector

/// Codes of the interface language, as the client's language file contains them.
namespace Language
{
inline const QLatin1String English("en");
inline const QLatin1String Chinese("zh");
} // namespace Language

/// The bytes that the updater writes for @p object: indented by four blanks, keys sorted, UTF-8
/// without a byte order mark, each line ended by a line feed.
inline QByteArray FileText(const QJsonObject &object)
{
    return QJsonDocument(object).toJson();
}

/// The name of the folder that receives the package of the client whose image name is @p appName.
inline QString DownloadFolderName(const QString &appName)
{
    return appName.section(QLatin1Char('.'), 0, 0);
}

} // namespace ConfigContract
