// SPDX-License-Identifier: MIT
#include "release/publish/rules/configrules.h"

#include "config/configcontract.h"
#include "install/windowsnames.h"
#include "release/publish/rules/addressrules.h"
#include "release/publish/rules/clientpathrules.h"
#include "release/publish/rules/releaserules.h"

#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

namespace Key = ConfigContract::Key;
namespace ClientKey = ConfigContract::ClientKey;

namespace
{

using ReleaseRules::Shown;

/// A key that the updater reads.
struct KeyRule {
    QLatin1String name;
    QJsonValue::Type type;
    const char *whenEmpty; ///< the consequence and how to fix it; null when there is none
};

const KeyRule kKeys[] = {
    {Key::AppName, QJsonValue::String,
     "the updater would assume that the client is running and never check for updates; write the "
     "name of the client's program, such as Client.exe"},
    {Key::AppConfigFile, QJsonValue::String,
     "the updater would end without starting the client; write the name of the client's "
     "configuration, such as ~version/version.json"},
    {Key::AppPath, QJsonValue::String,
     "the updater would look for the client in its own folder; write the client's folder, such as "
     "C:/Norvane/Client/"},
    {Key::UpdateCheckUrl, QJsonValue::String,
     "every check would fail; write the service's address, such as "
     "https://updates.example.com/check"},
    {Key::UpdatePackageUrl, QJsonValue::String,
     "a forged answer could choose the server from which packages are downloaded; write the "
     "address of the packages, such as https://updates.example.com/packages/"},
    {Key::NoRemindVersion, QJsonValue::String, nullptr},
    {Key::NoRemind, QJsonValue::Double, nullptr},
    {Key::CurrentVersion, QJsonValue::String, nullptr},
};

Finding Found(const char *rule, const QString &message)
{
    return {QString::fromLatin1(rule), QString(), message};
}

/// The updater treats numbers with a fraction or more than 32 bits as missing.
bool IsWholeNumber(const QJsonValue &value)
{
    return value.isDouble() && value.toInt(0) == value.toInt(1);
}

bool HasType(const QJsonValue &value, QJsonValue::Type type)
{
    return type == QJsonValue::Double ? IsWholeNumber(value) : value.type() == type;
}

Findings CheckKeys(const QJsonObject &config)
{
    Findings findings;
    for (const KeyRule &key : kKeys) {
        const QJsonValue value = config.value(key.name);
        if (!value.isUndefined() && !HasType(value, key.type)) {
            const bool isText = key.type == QJsonValue::String;
            findings.append(Found(
                "type", QStringLiteral("\"%1\" is not a %2, so the updater would treat it as "
                                       "missing; write a %2 %3 quotes")
                            .arg(key.name,
                                 isText ? QStringLiteral("string") : QStringLiteral("whole number"),
                                 isText ? QStringLiteral("in") : QStringLiteral("without"))));
        } else if (key.whenEmpty != nullptr && value.toString().isEmpty()) {
            findings.append(Found("empty", QStringLiteral("\"%1\" is missing or empty, and %2")
                                               .arg(key.name, QLatin1String(key.whenEmpty))));
        }
    }
    return findings;
}

Findings WarnOfUnknownKeys(const QJsonObject &config)
{
    Findings warnings;
    const QStringList keys = config.keys();
    for (const QString &key : keys) {
        const auto alike =
            std::find_if(std::begin(kKeys), std::end(kKeys), [&key](const KeyRule &known) {
                return key.compare(known.name, Qt::CaseInsensitive) == 0;
            });
        if (alike == std::end(kKeys)) {
            warnings.append(
                Found("unknown-key",
                      QStringLiteral(
                          "\"%1\" is not a key that the updater reads; check that this is intended")
                          .arg(Shown(key))));
        } else if (key != alike->name) {
            warnings.append(
                Found("unknown-key", QStringLiteral("\"%1\" is not a key that the updater reads, "
                                                    "because letter case matters; write \"%2\"")
                                         .arg(key, alike->name)));
        }
    }
    return warnings;
}

Findings CheckAppName(const QString &name)
{
    if (name.isEmpty())
        return {};
    Findings findings;
    const auto refuse = [&](const QString &what) {
        findings.append(Found(
            "app-name", QStringLiteral("the client's program \"%1\" %2").arg(Shown(name), what)));
    };
    const QString objection = ReleaseRules::WindowsObjection(name);
    if (!objection.isEmpty())
        refuse(objection + QStringLiteral("; write the name of a file"));
    if (!ReleaseRules::IsAscii(name)) {
        refuse(QStringLiteral("is not plain ASCII, so the task list shows it differently with "
                              "another code page; rename it"));
    }
    if (!name.endsWith(QLatin1String(".exe"), Qt::CaseInsensitive)) {
        refuse(QStringLiteral("does not end with \".exe\", so a running client would not be found "
                              "in the task list; write the whole file name"));
    }
    return findings;
}

/// Checks the download folder, which is emptied before each download, of the client @p appName in
/// the folder @p appPath.
Findings CheckDownloadFolder(const QString &appName, const QString &appPath)
{
    if (appName.isEmpty())
        return {};
    const QString folder = WindowsNames::AsKept(ConfigContract::DownloadFolderName(appName));
    if (folder.isEmpty()) {
        return {Found("download-folder",
                      QStringLiteral("the client's program \"%1\" has nothing before its first "
                                     "dot, so the download folder would have no name; rename it")
                          .arg(Shown(appName)))};
    }
    static const QStringList foreign{QStringLiteral("AutoUpdate"), QStringLiteral("Microsoft"),
                                     QStringLiteral("Packages"), QStringLiteral("Programs"),
                                     QStringLiteral("Temp")};
    if (foreign.contains(folder, Qt::CaseInsensitive)) {
        return {Found(
            "download-folder",
            QStringLiteral(
                "packages for the client's program \"%1\" would be downloaded to AppData/Local/%2, "
                "which belongs to other programs and would be emptied first; rename it")
                .arg(Shown(appName), folder))};
    }
    QString client = appPath + QLatin1Char('/');
    client.replace(QLatin1Char('\\'), QLatin1Char('/'));
    if (client.contains(QStringLiteral("/AppData/Local/%1/").arg(folder), Qt::CaseInsensitive)) {
        return {Found(
            "download-folder",
            QStringLiteral(
                "packages would be downloaded to the client's folder \"%1\", which would be "
                "emptied first; install the client elsewhere, such as in AppData/Local/Programs/%2")
                .arg(Shown(appPath), Shown(folder)))};
    }
    return {};
}

Findings CheckAppConfigFile(const QString &name, ServiceContract::PackageKind packages)
{
    QString objection = ClientPathRules::NamesObjection(name);
    if (name.endsWith(QLatin1Char('/')) || name.endsWith(QLatin1Char('\\')))
        objection = QStringLiteral("ends with a slash, as folders do");
    else if (packages == ServiceContract::ZipPackage && !ReleaseRules::IsAscii(name))
        objection = QStringLiteral("is not plain ASCII, so zip packages cannot contain it");
    if (objection.isEmpty())
        return {};
    return {Found("app-config-file",
                  QStringLiteral("the client's configuration \"%1\" %2; write another file name")
                      .arg(Shown(name), objection))};
}

/// Judges by the name alone: files are copied first, then folders in the order of their names, and
/// those that begin with a letter or digit are rarely the last.
bool IsCopiedEarly(const QString &name)
{
    const QString path =
        QDir::cleanPath(QString(name).replace(QLatin1Char('\\'), QLatin1Char('/')));
    if (path.startsWith(QLatin1String("../"))) // it is in no package
        return false;
    return !path.contains(QLatin1Char('/')) || path.at(0).toUpper() <= QLatin1Char('Z');
}

Findings CheckCurrentVersion(const QString &version)
{
    if (version.isEmpty())
        return {};
    Findings findings = ReleaseRules::CheckVersion(version);
    for (Finding &finding : findings)
        finding.message.prepend(QStringLiteral("\"%1\": ").arg(Key::CurrentVersion));
    return findings;
}

Findings WarnOfSilencedVersion(const QString &version, int noRemind)
{
    if (version.isEmpty() && noRemind == 0)
        return {};
    return {Found("silenced", QStringLiteral("\"%1\" is %2 and \"%3\" is \"%4\", as if a user had "
                                             "silenced a version; ship 0 and \"\"")
                                  .arg(Key::NoRemind, QString::number(noRemind),
                                       Key::NoRemindVersion, Shown(version)))};
}

/// The first difference between @p text and @p written, which the updater would write.
QString FirstDifference(const QByteArray &text, const QByteArray &written)
{
    if (text.startsWith("\xEF\xBB\xBF"))
        return QStringLiteral("begins with a byte order mark");
    if (text.contains('\r'))
        return QStringLiteral("has carriage returns");
    const QList<QByteArray> lines = text.split('\n');
    const QList<QByteArray> expected = written.split('\n');
    const int shorter = std::min(lines.size(), expected.size());
    int same = 0;
    while (same < shorter && lines.at(same) == expected.at(same))
        ++same;
    if (same == lines.size())
        return QStringLiteral("does not end with a line feed");
    if (same == expected.size())
        return QStringLiteral("continues after the last line feed");
    return QStringLiteral("has `%2` in line %1, where the updater writes `%3`")
        .arg(QString::number(same + 1), Shown(QString::fromUtf8(lines.at(same))),
             Shown(QString::fromUtf8(expected.at(same))));
}

/// The updater overwrites the file without truncating it.
Findings CheckForm(const QByteArray &text, const QJsonObject &config)
{
    const QByteArray written = ConfigContract::FileText(config);
    if (text == written)
        return {};
    const int tooMany = text.size() - written.size();
    const QString result =
        tooMany > ReleaseRules::MaxShorterBy
            ? QStringLiteral("the last %1 bytes would remain after the updater's text, so the file "
                             "could not be read any more")
                  .arg(tooMany)
            : QStringLiteral("the file would change its length when the updater writes it");
    return {Found(
        "form",
        QStringLiteral("%1 %2, and %3; indent by four blanks, sort the keys, end every line with a "
                       "single line feed, and save it as UTF-8 without a byte order mark")
            .arg(ConfigContract::FileName, FirstDifference(text, written), result))};
}

int LineOf(const QByteArray &text, int offset)
{
    return text.left(offset).count('\n') + 1;
}

/// Refuses @p text, the content of @p name, when it is not a JSON object.
Findings CheckJson(const char *rule, const QByteArray &text, const QString &name)
{
    QJsonParseError error;
    const bool isObject = QJsonDocument::fromJson(text, &error).isObject();
    if (isObject)
        return {};
    const QString what =
        error.error == QJsonParseError::NoError
            ? QStringLiteral("not a JSON object")
            : QStringLiteral("not JSON (%1, in line %2)")
                  .arg(error.errorString(), QString::number(LineOf(text, error.offset)));
    return {Found(rule, QStringLiteral("%1 is %2, so the updater could not use it; correct it, "
                                       "without comments and without a comma after the last value")
                            .arg(Shown(name), what))};
}

/// Whether an update to a version as short as @p installed would leave too much of @p current.
bool IsTooLong(const QString &current, const QString &installed)
{
    return current.size() - installed.size() > ReleaseRules::MaxShorterBy;
}

QJsonObject Object(const QByteArray &text)
{
    return QJsonDocument::fromJson(text).object();
}

} // namespace

Findings ConfigRules::CheckUpdateConfig(const QByteArray &text,
                                        ServiceContract::PackageKind packages)
{
    const Findings unreadable = CheckJson("json", text, ConfigContract::FileName);
    if (!unreadable.isEmpty())
        return unreadable;
    const QJsonObject config = Object(text);
    const QString appName = config.value(Key::AppName).toString();
    const QString appPath = config.value(Key::AppPath).toString();
    return CheckKeys(config) + CheckAppName(appName) + CheckDownloadFolder(appName, appPath) +
           CheckAppConfigFile(config.value(Key::AppConfigFile).toString(), packages) +
           ClientPathRules::Check(appPath, packages) +
           AddressRules::Check(Key::UpdateCheckUrl, config.value(Key::UpdateCheckUrl).toString()) +
           AddressRules::CheckPrefix(Key::UpdatePackageUrl,
                                     config.value(Key::UpdatePackageUrl).toString()) +
           CheckCurrentVersion(config.value(Key::CurrentVersion).toString()) +
           CheckForm(text, config);
}

Findings ConfigRules::WarnOfUpdateConfig(const QByteArray &text,
                                         ServiceContract::PackageKind packages)
{
    const QJsonObject config = Object(text);
    Findings warnings = WarnOfUnknownKeys(config) +
                        ClientPathRules::Warn(config.value(Key::AppPath).toString(), packages) +
                        AddressRules::WarnOfCheck(Key::UpdateCheckUrl,
                                                  config.value(Key::UpdateCheckUrl).toString()) +
                        AddressRules::WarnOfHost(Key::UpdatePackageUrl,
                                                 config.value(Key::UpdatePackageUrl).toString()) +
                        WarnOfSilencedVersion(config.value(Key::NoRemindVersion).toString(),
                                              config.value(Key::NoRemind).toInt(0));
    if (text.size() > RoomySize) {
        warnings.append(Found("size", QStringLiteral("%1 has %2 bytes, and on a full disk only its "
                                                     "beginning may be written; keep it below %3")
                                          .arg(ConfigContract::FileName)
                                          .arg(text.size())
                                          .arg(RoomySize)));
    }
    return warnings;
}

Findings ConfigRules::CheckSilencedVersion(const QString &silenced, const QString &version)
{
    if (version.isEmpty() || !IsTooLong(silenced, version))
        return {};
    return {Found(
        "silenced",
        QStringLiteral("\"%1\" is \"%2\", and \"Never Prompt\" for a version as short as the "
                       "client's \"%3\" would make %4 unreadable; ship \"\"")
            .arg(Key::NoRemindVersion, Shown(silenced), Shown(version), ConfigContract::FileName))};
}

Findings ConfigRules::WarnOfOrder(const QByteArray &text)
{
    const QString name = Object(text).value(Key::AppConfigFile).toString();
    if (name.isEmpty() || !IsCopiedEarly(name))
        return {};
    return {
        Found("config-order",
              QStringLiteral(
                  "\"%1\" names %2, which may be copied before other files of a zip package: if "
                  "the copy is interrupted in between, the client looks up to date although it is "
                  "not; put the version where it is copied last, such as ~version/version.json")
                  .arg(Key::AppConfigFile, Shown(name)))};
}

QString ConfigRules::ClientVersion(const QByteArray &text)
{
    return Object(text).value(ClientKey::Client).toObject().value(ClientKey::Version).toString();
}

Findings ConfigRules::CheckClientConfig(const QByteArray &text, const QString &name,
                                        const QString &currentVersion)
{
    const Findings unreadable = CheckJson("client-config", text, name);
    if (!unreadable.isEmpty())
        return unreadable;
    const QString version = ClientVersion(text);
    if (version.isEmpty()) {
        return {Found("client-config",
                      QStringLiteral("%1 has no version, so every offer would count as newer; "
                                     "write it like {\"%2\": {\"%3\": \"1.0.0\"}}")
                          .arg(Shown(name), ClientKey::Client, ClientKey::Version))};
    }
    Findings findings = ReleaseRules::CheckVersion(version);
    for (Finding &finding : findings)
        finding.message.prepend(Shown(name) + QStringLiteral(": "));
    if (!currentVersion.isEmpty() && currentVersion != version) {
        findings.append(Found(
            "current-version",
            QStringLiteral("\"%1\" is \"%2\", and the version in %3 is \"%4\", which %5; write "
                           "the client's version in both")
                .arg(Key::CurrentVersion, Shown(currentVersion), Shown(name), Shown(version),
                     IsTooLong(currentVersion, version)
                         ? QStringLiteral(
                               "would make %1 unreadable after an update to a version as short")
                               .arg(ConfigContract::FileName)
                         : QStringLiteral(
                               "would mislead anyone who looks for the installed version"))));
    }
    return findings;
}
