#include "config/global.h"

#include <QDebug>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>

namespace
{

const QLatin1String kSuccessCode("000000");
const QChar kNotesSeparator = QLatin1Char('&');

/**
 * The service sends the Chinese notes first and the English ones second. The Chinese ones are for
 * exactly "zh": an empty or unknown language has Chinese dialogs but English notes.
 */
QString NotesInLanguage(const QString &notes, const QString &language)
{
    if (!notes.contains(kNotesSeparator))
        return notes;
    const QStringList languages = notes.split(kNotesSeparator);
    return language == QLatin1String("zh") ? languages.at(0) : languages.at(1).trimmed();
}

} // namespace

int Global::ParseServiceReply(const QByteArray &body)
{
    qInfo() << "Service Jsondata:" << QString::fromUtf8(body);

    QJsonParseError parseError;
    const QJsonObject answer = QJsonDocument::fromJson(body, &parseError).object();
    if (parseError.error != QJsonParseError::NoError) {
        qDebug() << " Recv Services Jsondata Error:" << int(parseError.error);
        return Failure;
    }

    code = answer.value(QLatin1String("code")).toString();
    desc = answer.value(QLatin1String("desc")).toString();
    if (code != kSuccessCode) {
        qDebug() << "Services Jsondata Code Error:" << code;
        return Failure;
    }

    const QJsonObject biz = answer.value(QLatin1String("biz")).toObject();
    id = biz.value(QLatin1String("id")).toString();
    update = biz.value(QLatin1String("update")).toString();
    latestVersion = biz.value(QLatin1String("latestVersion")).toString();
    latestVersionUrl = biz.value(QLatin1String("latestVersionUrl")).toString();
    latestVersionInfo = biz.value(QLatin1String("latestVersionInfo")).toString();
    md5 = biz.value(QLatin1String("md5")).toString();
    sha1 = biz.value(QLatin1String("sha1")).toString();
    packageSize = biz.value(QLatin1String("packageSize")).toInt(0);
    updateType = biz.value(QLatin1String("updateType")).toInt(0);

    latestVersionInfo = NotesInLanguage(latestVersionInfo, language);
    return Success;
}
