#include "config/global.h"
#include "config/paths.h"

#include <QDebug>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>

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

    appName = config.value(QLatin1String("appName")).toString();
    appConfigFile = config.value(QLatin1String("appConfigFile")).toString();
    appPath = config.value(QLatin1String("appPath")).toString();
    updateCheckUrl = config.value(QLatin1String("updateCheckUrl")).toString();
    updatePackageUrl = config.value(QLatin1String("updatePackageUrl")).toString();
    noRemindVersion = config.value(QLatin1String("noRemindVersion")).toString();
    noRemind = config.value(QLatin1String("noRemind")).toInt(0);
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

    const QJsonObject client = config.value(QLatin1String("client")).toObject();
    currentVersion = client.value(QLatin1String("version")).toString();
    return true;
}

void Global::ReadLanguage()
{
    QFile file(Paths::LanguageFile());
    if (file.exists()) {
        if (file.open(QIODevice::ReadOnly)) {
            // From the bytes rather than the array: the code ends at the first zero byte.
            language = QString::fromUtf8(file.readAll().trimmed().constData());
            return;
        }
        qWarning() << "languagefile open failed:" << int(file.error());
    } else {
        qInfo() << "languagefile not exist";
    }

    const bool chineseSystem = QLocale().language() == QLocale::Chinese;
    language = chineseSystem ? QStringLiteral("zh") : QStringLiteral("en");
}
