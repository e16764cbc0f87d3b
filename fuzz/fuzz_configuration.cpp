// SPDX-License-Identifier: MIT
// The three configuration files, in the order in which they are read, separated by lines with only
// "=". A file that is not in the input does not exist.

#include "config/global.h"
#include "config/paths.h"
#include "fuzz/support/require.h"
#include "tests/support/testhome.h"

#include <QByteArray>
#include <QFile>
#include <QFileInfo>
#include <QStringList>

#include <QtCore/private/qabstractfileengine_p.h>
#include <QtCore/private/qfsfileengine_p.h>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace
{

const QByteArray kNextFile("\n=\n");
constexpr qint32 kEarlierNoRemind = 4711;

/// Whatever path the updater's configuration names for the client's one, this file is opened.
class ClientConfigHandler : public QAbstractFileEngineHandler
{
public:
    explicit ClientConfigHandler(const QString &clientConfig)
        : m_clientConfig(clientConfig), m_others{Paths::UpdateConfigFile(), Paths::LanguageFile(),
                                                 clientConfig}
    {
    }

    QAbstractFileEngine *create(const QString &fileName) const override
    {
        if (fileName.isEmpty() || m_others.contains(fileName))
            return nullptr;
        return new QFSFileEngine(m_clientConfig);
    }

private:
    QString m_clientConfig;
    QStringList m_others;
};

/// The machine with the files, created once.
struct Machine {
    TestHome home;
    QString updateConfig = home.ProgramFolder() + QStringLiteral("/updateconfig.json");
    QString clientConfig = home.ClientFolder() + QStringLiteral("/config.json");
    QString language = home.ClientDataFolder() + QStringLiteral("/language.txt");
};

const Machine &TheMachine()
{
    static const Machine machine;
    return machine;
}

/// The contents of the files of one run.
struct Files {
    QByteArray updateConfig;
    QByteArray clientConfig;
    QByteArray language;
    bool hasClientConfig;
    bool hasLanguage;
};

Files Split(const QByteArray &input)
{
    Files files{};
    const int first = input.indexOf(kNextFile);
    const int second = first < 0 ? -1 : input.indexOf(kNextFile, first + kNextFile.size());
    files.updateConfig = input.mid(0, first);
    files.hasClientConfig = first >= 0;
    files.hasLanguage = second >= 0;
    if (files.hasClientConfig) {
        const int start = first + kNextFile.size();
        files.clientConfig = input.mid(start, files.hasLanguage ? second - start : -1);
    }
    if (files.hasLanguage)
        files.language = input.mid(second + kNextFile.size());
    return files;
}

void Put(const QString &path, bool isThere, const QByteArray &content)
{
    // A new file each time: file systems flush a truncated file to the disk early, which is slow.
    QFile::remove(path);
    if (isThere)
        WriteFile(path, content);
}

QStringList StoredTexts()
{
    const Global &global = Global::instance;
    return {global.appName,        global.appConfigFile,    global.appPath,
            global.updateCheckUrl, global.updatePackageUrl, global.noRemindVersion};
}

/// The language code in the file: without blanks around it, up to the first zero byte.
QString CodeIn(const QByteArray &content)
{
    const char *const blanks = " \t\n\v\f\r";
    int start = 0;
    int end = content.size();
    while (start < end && content.at(start) != '\0' && std::strchr(blanks, content.at(start)))
        ++start;
    while (end > start && content.at(end - 1) != '\0' && std::strchr(blanks, content.at(end - 1)))
        --end;
    const QByteArray code = content.mid(start, end - start);
    return QString::fromUtf8(code.mid(0, code.indexOf('\0')));
}

int Read()
{
    ResetGlobal();
    Global &global = Global::instance;
    for (QString *text :
         {&global.appName, &global.appConfigFile, &global.appPath, &global.updateCheckUrl,
          &global.updatePackageUrl, &global.noRemindVersion, &global.currentVersion})
        *text = QStringLiteral("earlier");
    global.noRemind = kEarlierNoRemind;
    return global.ReadConfig();
}

void RequireRightFailure(const CleanLog &log)
{
    const Global &global = Global::instance;
    Require(global.language.isEmpty() && global.scriptPath.isEmpty(),
            "a failed load does not read the language");
    Require(global.currentVersion == QLatin1String("earlier"), "a failed load stores no version");
    if (log.Has(QStringLiteral(" Auto Jsondata Error:")))
        Require(StoredTexts().count(QStringLiteral("earlier")) == StoredTexts().size() &&
                    global.noRemind == kEarlierNoRemind,
                "an updateconfig.json that cannot be read stores nothing");
}

/// Writes the choice that the user made in the prompt into the file, and reads it back.
void RequireRightWriteBack(const Files &files)
{
    const QStringList texts = StoredTexts();
    const QString version = Global::instance.currentVersion;
    Global::instance.latestVersion = QStringLiteral("2.1.3");
    Require(Global::instance.WriteConfigToFile(QStringLiteral("remid")) == Global::Success,
            "a choice can be written");

    const QByteArray written = ReadFile(Paths::UpdateConfigFile());
    Require(written.size() >= files.updateConfig.size(), "the file does not get shorter");
    Require(written.startsWith('{'), "the file has an object");
    // The end of a longer old text stays after the new one.
    if (written.size() == files.updateConfig.size())
        return;
    // To Qt, a key with a byte order mark is another key than without it, but it writes both alike.
    if (files.updateConfig.contains("\xef\xbb\xbf"))
        return;
    Require(Read() == Global::Success, "the written file can be read");
    Require(Global::instance.noRemind == 1 &&
                Global::instance.noRemindVersion == QLatin1String("2.1.3"),
            "the written choice is read back");
    Require(StoredTexts().mid(0, 5) == texts.mid(0, 5) &&
                Global::instance.currentVersion == version,
            "everything else is unchanged");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const Machine &machine = TheMachine();
    const Files files = Split(QByteArray(reinterpret_cast<const char *>(data), int(size)));
    Put(machine.updateConfig, true, files.updateConfig);
    Put(machine.clientConfig, files.hasClientConfig, files.clientConfig);
    Put(machine.language, files.hasLanguage, files.language);

    const ClientConfigHandler handler(machine.clientConfig);
    const CleanLog log;
    const int result = Read();
    Require(!log.Has(QStringLiteral("updateconfig.json open failed")), "updateconfig.json exists");
    const Global &global = Global::instance;
    Require(result == Global::Success || result == Global::Failure, "the result is 0 or -1");
    if (result == Global::Failure) {
        RequireRightFailure(log);
        return 0;
    }
    Require(files.hasClientConfig, "nothing is loaded without the client's configuration");
    Require(global.scriptPath == Paths::ScriptFile(), "the script's path does not depend on files");
    if (files.hasLanguage)
        Require(global.language == CodeIn(files.language), "the language is that of the file");
    else
        Require(global.language == QLatin1String("en"), "the language falls back to the system's");
    RequireRightWriteBack(files);
    return 0;
}
