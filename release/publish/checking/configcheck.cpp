// SPDX-License-Identifier: MIT
#include "release/publish/checking/configcheck.h"

#include "config/configcontract.h"
#include "release/publish/packing/clientfolder.h"
#include "release/publish/packing/exclusion.h"
#include "release/publish/rules/configrules.h"
#include "release/publish/rules/releaserules.h"
#include "release/publish/rules/versionfile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QVector>

#include <algorithm>

namespace Key = ConfigContract::Key;

namespace
{

using ReleaseRules::Shown;

/// The name in @p folder that Windows would find for @p name; empty when there is none.
QString NameIn(const QDir &folder, const QString &name)
{
    const QStringList names =
        folder.entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    if (names.contains(name))
        return name;
    for (const QString &other : names) {
        if (other.compare(name, Qt::CaseInsensitive) == 0)
            return other;
    }
    return QString();
}

/// The path below @p folder that Windows would find for @p path; empty when there is none.
QString PathIn(const QDir &folder, const QString &path)
{
    QString found;
    const QStringList names = path.split(QLatin1Char('/'));
    for (const QString &name : names) {
        const QString next = NameIn(QDir(folder.filePath(found)), name);
        if (next.isEmpty())
            return QString();
        found += found.isEmpty() ? next : QLatin1Char('/') + next;
    }
    return found;
}

bool LeadsOut(const QString &relativePath)
{
    return QDir::isAbsolutePath(relativePath) || relativePath == QLatin1String("..") ||
           relativePath.startsWith(QLatin1String("../"));
}

/// Checks one configuration and collects the findings.
class ConfigChecker
{
public:
    explicit ConfigChecker(const ConfigCheckOptions &options) : m_options(options) {}

    Outcome Run()
    {
        QByteArray text;
        if (!Read(m_options.file, text))
            return m_outcome;
        m_outcome.refusals = ConfigRules::CheckUpdateConfig(text, m_options.packages);
        m_outcome.warnings = ConfigRules::WarnOfUpdateConfig(text, m_options.packages);
        m_config = QJsonDocument::fromJson(text).object();
        if (!m_options.clientFolder.isEmpty())
            CheckClientFolder(text);
        else if (m_options.packages == ServiceContract::ZipPackage)
            m_outcome.warnings += ConfigRules::WarnOfOrder(text);
        if (m_outcome.refusals.isEmpty())
            DescribeResult();
        return m_outcome;
    }

private:
    void Refuse(const char *rule, const QString &path, const QString &message)
    {
        m_outcome.refusals.append({QString::fromLatin1(rule), path, message});
    }

    void Warn(const char *rule, const QString &path, const QString &message)
    {
        m_outcome.warnings.append({QString::fromLatin1(rule), path, message});
    }

    QString Text(const QLatin1String &key) const { return m_config.value(key).toString(); }

    bool Read(const QString &path, QByteArray &content)
    {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            Refuse("missing", path,
                   QStringLiteral("%1 cannot be read; check its name and permissions")
                       .arg(Shown(path)));
            return false;
        }
        content = file.readAll();
        return true;
    }

    void CheckClientFolder(const QByteArray &text)
    {
        if (!QFileInfo(m_options.clientFolder).isDir()) {
            Refuse("missing", m_options.clientFolder,
                   QStringLiteral("%1 is not a folder; name the client's folder as it ships")
                       .arg(Shown(m_options.clientFolder)));
            return;
        }
        m_folder = QDir(QFileInfo(m_options.clientFolder).canonicalFilePath());
        CheckProgram();
        CheckClientConfig();
        const QString file =
            m_folder.relativeFilePath(QFileInfo(m_options.file).canonicalFilePath());
        if (LeadsOut(file))
            CompareWithShipped(text);
        else
            CheckPlace(file);
        CheckCommands();
    }

    /// The updater starts these programs by name, and Windows searches the updater's own folder
    /// first.
    void CheckCommands()
    {
        const QStringList folders = UpdaterFolders();
        for (const QString &folder : folders) {
            for (const char *command : {"tasklist.exe", "taskkill.exe", "xcopy.exe"}) {
                const QString path =
                    PathIn(m_folder, folder + QLatin1Char('/') + QLatin1String(command));
                if (path.isEmpty())
                    continue;
                Refuse("updater-command", path,
                       QStringLiteral("%1 is next to %2, which would start it instead of the one "
                                      "of Windows; remove it")
                           .arg(Shown(path), ReleaseRules::UpdaterProgram));
            }
        }
    }

    /// The path of the file in the client's folder that @p key names, spelled as in the folder;
    /// empty when there is no such file. @p use is the consequence for the refusal. Different
    /// letter case is added to @p caseFindings.
    QString FileNamedBy(const QLatin1String &key, const QString &use, Findings &caseFindings)
    {
        const QString path =
            QDir::cleanPath(Text(key).replace(QLatin1Char('\\'), QLatin1Char('/')));
        if (LeadsOut(path)) {
            Warn("client-file", path,
                 QStringLiteral("\"%1\" is outside the client's folder, so %2 was not checked; "
                                "make sure that it exists on every machine")
                     .arg(key, Shown(path)));
            return QString();
        }
        const QString found = PathIn(m_folder, path);
        if (!QFileInfo(m_folder.filePath(found)).isFile()) {
            Refuse("client-file", path,
                   QStringLiteral("\"%1\" names %2, which is not a file in %3, so %4; write the "
                                  "name of a file that ships")
                       .arg(key, Shown(path), Shown(m_options.clientFolder), use));
            return QString();
        }
        if (found != path) {
            caseFindings.append(
                {QStringLiteral("letter-case"), found,
                 QStringLiteral(
                     "\"%1\" names %2, but the file is called %3; use the same letter case")
                     .arg(key, Shown(path), Shown(found))});
        }
        return found;
    }

    /// The updater searches the task list for exactly this letter case.
    void CheckProgram()
    {
        if (!Text(Key::AppName).isEmpty()) {
            FileNamedBy(Key::AppName, QStringLiteral("no client would be started"),
                        m_outcome.refusals);
        }
    }

    /// Windows finds this file whatever its letter case.
    void CheckClientConfig()
    {
        if (Text(Key::AppConfigFile).isEmpty())
            return;
        const QString name = FileNamedBy(
            Key::AppConfigFile, QStringLiteral("the updater would end without starting the client"),
            m_outcome.warnings);
        QByteArray text;
        if (name.isEmpty() || !Read(m_folder.filePath(name), text))
            return;
        const QString current = Text(Key::CurrentVersion);
        m_outcome.refusals += ConfigRules::CheckClientConfig(text, name, current);
        m_version = ConfigRules::ClientVersion(text);
        m_outcome.refusals +=
            ConfigRules::CheckSilencedVersion(Text(Key::NoRemindVersion), m_version);
        if (m_options.packages == ServiceContract::ZipPackage)
            m_outcome.warnings += VersionFile::WarnOfOrder(name, PackagedFiles());
    }

    /// The contents of a zip package of the client: everything except the updater's folder.
    QVector<ReleaseRules::Entry> PackagedFiles() const
    {
        QVector<ReleaseRules::Entry> files =
            ListClientFolder(m_folder.path(), Exclusion(Exclusion::Defaults())).entries;
        const QStringList updaterFolders = UpdaterFolders();
        const auto isOfTheUpdater = [&updaterFolders](const ReleaseRules::Entry &file) {
            return updaterFolders.contains(file.path.section(QLatin1Char('/'), 0, 0));
        };
        files.erase(std::remove_if(files.begin(), files.end(), isOfTheUpdater), files.end());
        return files;
    }

    /// The folders directly in the client's folder that contain an updater.
    QStringList UpdaterFolders() const
    {
        QStringList found;
        const QStringList folders = m_folder.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
        for (const QString &folder : folders) {
            if (!NameIn(QDir(m_folder.filePath(folder)), ReleaseRules::UpdaterProgram).isEmpty())
                found.append(folder);
        }
        return found;
    }

    /// For a checked file that is in the client's folder, as @p file.
    void CheckPlace(const QString &file)
    {
        const QString updaterFolder = QFileInfo(file).path();
        if (QFileInfo(file).fileName().compare(ConfigContract::FileName, Qt::CaseInsensitive) !=
            0) {
            Refuse("updater-folder", file,
                   QStringLiteral(
                       "%1 is not called %2, the only name that the updater looks for; rename it")
                       .arg(Shown(file), ConfigContract::FileName));
        }
        if (!QFileInfo(m_options.file).permission(QFileDevice::WriteOwner)) {
            Warn("read-only", file,
                 QStringLiteral("%1 is read-only, so the updater could not write to it; give its "
                                "owner write permission")
                     .arg(Shown(file)));
        }
        if (NameIn(QDir(m_folder.filePath(updaterFolder)), ReleaseRules::UpdaterProgram)
                .isEmpty()) {
            Refuse("updater-folder", file,
                   QStringLiteral(
                       "%1 is not next to %2, where the updater looks for it; move it there")
                       .arg(Shown(file), ReleaseRules::UpdaterProgram));
        } else if (!FindsClient(updaterFolder)) {
            Refuse("updater-folder", file,
                   QStringLiteral(
                       "%1 is not directly in the client's folder, so the updater would look for "
                       "the client elsewhere; move it to a folder such as AutoUpdate")
                       .arg(Shown(updaterFolder)));
        }
    }

    /// Whether an updater in @p updaterFolder finds the client. Zip packages are copied over the
    /// parent of its folder, and a relative path is relative to its folder.
    bool FindsClient(const QString &updaterFolder) const
    {
        QString path = Text(Key::AppPath);
        path.replace(QLatin1Char('\\'), QLatin1Char('/'));
        if (m_options.packages == ServiceContract::ZipPackage)
            path = QStringLiteral("..");
        else if (path.startsWith(QLatin1Char('/')) || path.contains(QLatin1Char(':')))
            return true;
        return QDir::cleanPath(updaterFolder + QLatin1Char('/') + path) == QLatin1String(".");
    }

    /// For a checked file that is outside the client's folder, which may contain another one.
    void CompareWithShipped(const QByteArray &text)
    {
        const QStringList updaterFolders = UpdaterFolders();
        for (const QString &folder : updaterFolders) {
            const QString shipped =
                PathIn(m_folder, folder + QLatin1Char('/') + ConfigContract::FileName);
            QByteArray shippedText;
            if (!shipped.isEmpty() && Read(m_folder.filePath(shipped), shippedText) &&
                shippedText != text) {
                Warn("other-config", shipped,
                     QStringLiteral("%1 in the client's folder differs from the checked file; "
                                    "replace it, or check it instead")
                         .arg(Shown(shipped)));
            }
        }
        if (updaterFolders.isEmpty()) {
            Warn("updater-folder", QString(),
                 QStringLiteral("no folder directly in %1 contains %2; put the updater into a "
                                "folder such as AutoUpdate")
                     .arg(Shown(m_options.clientFolder), ReleaseRules::UpdaterProgram));
        }
    }

    void DescribeResult()
    {
        const QString client = m_version.isEmpty()
                                   ? Text(Key::AppName)
                                   : QStringLiteral("%1 %2").arg(Text(Key::AppName), m_version);
        m_outcome.summary =
            QStringLiteral("%1: no objections (%2 in %3, checks at %4, packages from %5).\n")
                .arg(m_options.file, client, Text(Key::AppPath), Text(Key::UpdateCheckUrl),
                     Text(Key::UpdatePackageUrl));
        for (const QLatin1String &key : {Key::AppName, Key::AppConfigFile, Key::AppPath,
                                         Key::UpdateCheckUrl, Key::UpdatePackageUrl})
            m_outcome.facts.insert(key, Text(key));
        if (!m_version.isEmpty())
            m_outcome.facts.insert(QStringLiteral("version"), m_version);
    }

    const ConfigCheckOptions &m_options;
    QJsonObject m_config;
    QDir m_folder;     ///< of the client; the path contains no links
    QString m_version; ///< of the client in that folder
    Outcome m_outcome;
};

} // namespace

Outcome CheckConfig(const ConfigCheckOptions &options)
{
    return ConfigChecker(options).Run();
}
