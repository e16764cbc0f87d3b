// SPDX-License-Identifier: MIT
#include "config/configcontract.h"
#include "config/global.h"
#include "config/paths.h"

#include <QDebug>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>

namespace Key = ConfigContract::Key;
namespace ClientKey = ConfigContract::ClientKey;
namespace Language = ConfigContract::Language;

int Global::ReadConfig()
{
    if (!ReadUpdateConfig() || !ReadClientConfig())
        return Failure;

    qInfo() << "currentVersion:" << currentVersion << ",updateCheckUrl:" << updateCheckUrl
            << ",m_getPackUrl:" << updatePackageUrl << ",m_remide:" << noRemind;

    ReadLanguage();
    scriptPath = Paths::ScriptFile();
    return Success;
}

bool Global::ReadUpdateConfig()
{
    QFile file(Paths::UpdateConfigFile());
    if (!file.exists() || !file.open(QIODevice::ReadOnly)) {
        qDebug() << "updateconfig.json open failed:" << int(file.error());
        return false;
    }

    QJsonParseError parseError;
    const QJsonObject config = QJsonDocument::fromJson(file.readAll(), &parseError).object();
    if (parseError.error != QJsonParseError::NoError) {
        file.close();
        qDebug() << " Auto Jsondata Error:" << int(parseError.error);
        return false;
    }

    appName = config.value(Key::AppName).toString();
    appConfigFile = config.value(Key::AppConfigFile).toString();
    appPath = config.value(Key::AppPath).toString();
    updateCheckUrl = config.value(Key::UpdateCheckUrl).toString();
    updatePackageUrl = config.value(Key::UpdatePackageUrl).toString();
    noRemindVersion = config.value(Key::NoRemindVersion).toString();
    noRemind = config.value(Key::NoRemind).toInt(0);
    return true;
}

bool Global::ReadClientConfig()
{
    const QString path = ClientConfigFile();
    QFile file(path);
    if (!file.exists()) {
        qDebug() << path << " Not exists";
        return false;
    }
    if (!file.open(QIODevice::ReadOnly)) {
        qDebug() << path << " open failed:" << int(file.error());
        return false;
    }

    QJsonParseError parseError;
    const QJsonObject config = QJsonDocument::fromJson(file.readAll(), &parseError).object();
    if (parseError.error != QJsonParseError::NoError) {
        qDebug() << " APP Jsondata Error:" << int(parseError.error);
        return false;
    }

    const QJsonObject client = config.value(ClientKey::Client).toObject();
    currentVersion = client.value(ClientKey::Version).toString();
    return true;
}

void Global::ReadLanguage()
{
    QFile file(Paths::LanguageFile());
    if (file.exists()) {
        if (file.open(QIODevice::ReadOnly)) {
            // constData() makes the text end at the first zero byte; the array would not.
            language = QString::fromUtf8(file.readAll().trimmed().constData());
            return;
        }
        qWarning() << "languagefile open failed:" << int(file.error());
    } else {
        qInfo() << "languagefile not exist";
    }

    const bool chineseSystem = QLocale().language() == QLocale::Chinese;
    language = chineseSystem ? Language::Chinese : Language::English;
}
