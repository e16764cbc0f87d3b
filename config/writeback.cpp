#include "config/global.h"
#include "config/paths.h"

#include <QDebug>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

namespace
{

const QLatin1String kNoRemindVersion("noRemindVersion");
const QLatin1String kNoRemind("noRemind");
const QLatin1String kCurrentVersion("currentVersion");
const QLatin1String kClient("client");
const QLatin1String kVersion("version");

/// Writes over the old content. The file keeps its length when the new text is the shorter one.
void WriteOver(QFile &file, const QJsonObject &object)
{
    file.seek(0);
    file.write(QJsonDocument(object).toJson());
    file.flush();
}

} // namespace

int Global::WriteConfigToFile(const QString &kind)
{
    QFile file(Paths::UpdateConfigFile());
    const bool isNew = !file.exists();
    if (!file.open(QIODevice::ReadWrite)) {
        qDebug() << "WriteConfigToFile failed:" << int(file.error());
        return Failure;
    }

    QJsonObject config = QJsonDocument::fromJson(file.readAll()).object();
    if (kind == QLatin1String("remid")) {
        config.insert(kNoRemindVersion, latestVersion);
        config.insert(kNoRemind, 1);
        if (isNew)
            config.insert(kCurrentVersion, QString());
    } else if (kind == QLatin1String("version")) {
        config.insert(kCurrentVersion, latestVersion);
        if (isNew) {
            config.insert(kNoRemindVersion, QString());
            config.insert(kNoRemind, 0);
        }
    }
    WriteOver(file, config);
    return Success;
}

int Global::WriteConfigToClientFile()
{
    QFile file(ClientConfigFile());
    if (!file.open(QIODevice::ReadWrite)) {
        qDebug() << "WriteConfigToClientFile failed:" << int(file.error());
        return Failure;
    }

    QJsonObject config = QJsonDocument::fromJson(file.readAll()).object();
    QJsonObject client = config.value(kClient).toObject();
    client.insert(kVersion, latestVersion);
    config.insert(kClient, client);
    WriteOver(file, config);
    return Success;
}
