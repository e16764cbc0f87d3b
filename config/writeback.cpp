// SPDX-License-Identifier: MIT
#include "config/configcontract.h"
#include "config/global.h"
#include "config/paths.h"

#include <QDebug>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

namespace Key = ConfigContract::Key;
namespace ClientKey = ConfigContract::ClientKey;
namespace Selector = ConfigContract::Selector;

namespace
{

/// Overwrites the old content without truncating it: the end of a longer old text remains.
void WriteOver(QFile &file, const QJsonObject &object)
{
    file.seek(0);
    file.write(ConfigContract::FileText(object));
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
    if (kind == Selector::SilencedVersion) {
        config.insert(Key::NoRemindVersion, latestVersion);
        config.insert(Key::NoRemind, 1);
        if (isNew)
            config.insert(Key::CurrentVersion, QString());
    } else if (kind == Selector::InstalledVersion) {
        config.insert(Key::CurrentVersion, latestVersion);
        if (isNew) {
            config.insert(Key::NoRemindVersion, QString());
            config.insert(Key::NoRemind, 0);
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
    QJsonObject client = config.value(ClientKey::Client).toObject();
    client.insert(ClientKey::Version, latestVersion);
    config.insert(ClientKey::Client, client);
    WriteOver(file, config);
    return Success;
}
