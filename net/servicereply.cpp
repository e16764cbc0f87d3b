// SPDX-License-Identifier: MIT
#include "config/global.h"
#include "config/servicecontract.h"
#include "net/answerlimits.h"

#include <QDebug>
#include <QJsonDocument>
#include <QJsonObject>

namespace Key = ServiceContract::Key;

int Global::ParseServiceReply(const QByteArray &body)
{
    if (!AnswerLimits::CanBeTaken(body)) {
        qDebug() << "check answer cannot be taken, bytes:" << body.size();
        return Failure;
    }
    qInfo() << "Service Jsondata:" << LoggedAnswer{body};

    QJsonParseError parseError;
    const QJsonObject answer = QJsonDocument::fromJson(body, &parseError).object();
    if (parseError.error != QJsonParseError::NoError) {
        qDebug() << " Recv Services Jsondata Error:" << int(parseError.error);
        return Failure;
    }

    code = answer.value(Key::Code).toString();
    desc = answer.value(Key::Desc).toString();
    if (code != ServiceContract::SuccessCode) {
        qDebug() << "Services Jsondata Code Error:" << code;
        return Failure;
    }

    const QJsonObject biz = answer.value(Key::Biz).toObject();
    id = biz.value(Key::Id).toString();
    update = biz.value(Key::Update).toString();
    latestVersion = biz.value(Key::LatestVersion).toString();
    latestVersionUrl = biz.value(Key::LatestVersionUrl).toString();
    latestVersionInfo = biz.value(Key::LatestVersionInfo).toString();
    md5 = biz.value(Key::Md5).toString();
    sha1 = biz.value(Key::Sha1).toString();
    packageSize = biz.value(Key::PackageSize).toInt(0);
    updateType = biz.value(Key::UpdateType).toInt(0);

    latestVersionInfo = ServiceContract::NotesInLanguage(latestVersionInfo, language);
    return Success;
}
