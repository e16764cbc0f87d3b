// SPDX-License-Identifier: MIT
#include "release/publish/tree/reply.h"

#include "config/servicecontract.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

namespace Key = ServiceContract::Key;
namespace Mode = ServiceContract::Mode;

namespace
{

QByteArray Answer(const QLatin1String &desc, const QJsonObject &biz)
{
    const QJsonObject answer{{Key::Code, QString(ServiceContract::SuccessCode)},
                             {Key::Desc, QString(desc)},
                             {Key::Biz, biz}};
    return QJsonDocument(answer).toJson(QJsonDocument::Compact) + '\n';
}

Finding Wrong(const QString &what)
{
    return {QStringLiteral("reply"), QString(),
            QStringLiteral("the reply's %1; publish the release again").arg(what)};
}

/// Checks the outer object and returns the inner one with the keys of the offer.
QJsonObject ReadFrame(const QByteArray &reply, Findings &findings)
{
    QJsonParseError error;
    const QJsonObject answer = QJsonDocument::fromJson(reply, &error).object();
    if (error.error != QJsonParseError::NoError) {
        findings.append(Wrong(QStringLiteral("text is not JSON (%1)").arg(error.errorString())));
        return {};
    }
    if (answer.value(Key::Code).toString() != ServiceContract::SuccessCode) {
        findings.append(Wrong(QStringLiteral("\"%1\" is not the string \"%2\"")
                                  .arg(Key::Code, ServiceContract::SuccessCode)));
    }
    if (!answer.value(Key::Desc).isString())
        findings.append(Wrong(QStringLiteral("\"%1\" is not a string").arg(Key::Desc)));
    if (answer.value(Key::Biz).toObject().isEmpty()) {
        findings.append(
            Wrong(QStringLiteral("\"%1\" is not an object, or is empty").arg(Key::Biz)));
    }
    return answer.value(Key::Biz).toObject();
}

QString ReadText(const QJsonObject &biz, const QLatin1String &key, Findings &findings)
{
    const QString text = biz.value(key).toString();
    if (text.isEmpty())
        findings.append(Wrong(QStringLiteral("\"%1\" is not a string, or is empty").arg(key)));
    return text;
}

int ReadNumber(const QJsonObject &biz, const QLatin1String &key, Findings &findings)
{
    // The updater reads anything else, fractions and numbers of more than 32 bits included, as 0.
    const int number = biz.value(key).toInt(-1);
    if (number < 0)
        findings.append(Wrong(QStringLiteral("\"%1\" is not a whole number below 2 GiB").arg(key)));
    return number;
}

QString ReadDigest(const QJsonObject &biz, const QLatin1String &key, int digits, Findings &findings)
{
    const QString digest = biz.value(key).toString();
    const QRegularExpression pattern(QStringLiteral("\\A[0-9a-f]{%1}\\z").arg(digits));
    if (!pattern.match(digest).hasMatch()) {
        findings.append(Wrong(
            QStringLiteral("\"%1\" is not %2 lower-case hexadecimal digits").arg(key).arg(digits)));
    }
    return digest;
}

} // namespace

QString NotesFor(const Offer &offer, const QString &language)
{
    return ServiceContract::NotesInLanguage(offer.notes, language);
}

QByteArray OfferReply(const Offer &offer)
{
    return Answer(QLatin1String("success"),
                  {{Key::Id, offer.id},
                   {Key::Update, QString(offer.forced ? Mode::Forced : Mode::Optional)},
                   {Key::LatestVersion, offer.version},
                   {Key::LatestVersionUrl, offer.url},
                   {Key::LatestVersionInfo, offer.notes},
                   {Key::Md5, offer.package.md5},
                   {Key::Sha1, offer.package.sha1},
                   {Key::PackageSize, offer.package.size},
                   {Key::UpdateType, int(offer.kind)}});
}

QByteArray NoOfferReply()
{
    return Answer(QLatin1String("no newer version"),
                  {{Key::Id, QString()},
                   {Key::Update, QString(Mode::NoUpdate)},
                   {Key::LatestVersion, QString()},
                   {Key::LatestVersionUrl, QString()},
                   {Key::LatestVersionInfo, QString()},
                   {Key::Md5, QString()},
                   {Key::Sha1, QString()},
                   {Key::PackageSize, 0},
                   {Key::UpdateType, int(ServiceContract::ZipPackage)}});
}

Findings ReadOffer(const QByteArray &reply, Offer &offer)
{
    Findings findings;
    const QJsonObject biz = ReadFrame(reply, findings);
    if (!findings.isEmpty())
        return findings;

    offer.id = ReadText(biz, Key::Id, findings);
    offer.version = ReadText(biz, Key::LatestVersion, findings);
    offer.url = ReadText(biz, Key::LatestVersionUrl, findings);
    offer.notes = ReadText(biz, Key::LatestVersionInfo, findings);
    offer.package.md5 = ReadDigest(biz, Key::Md5, 32, findings);
    offer.package.sha1 = ReadDigest(biz, Key::Sha1, 40, findings);
    offer.package.size = ReadNumber(biz, Key::PackageSize, findings);

    const QString mode = biz.value(Key::Update).toString();
    offer.forced = mode == Mode::Forced;
    if (mode != Mode::Optional && mode != Mode::Forced) {
        findings.append(Wrong(QStringLiteral("\"%1\" is neither the string \"%2\" nor \"%3\"")
                                  .arg(Key::Update, Mode::Optional, Mode::Forced)));
    }
    const int kind = ReadNumber(biz, Key::UpdateType, findings);
    offer.kind = kind == ServiceContract::InstallerPackage ? ServiceContract::InstallerPackage
                                                           : ServiceContract::ZipPackage;
    if (kind > ServiceContract::ZipPackage) {
        findings.append(Wrong(QStringLiteral("\"%1\" is neither %2 nor %3")
                                  .arg(Key::UpdateType)
                                  .arg(ServiceContract::InstallerPackage)
                                  .arg(ServiceContract::ZipPackage)));
    }
    return findings;
}

Findings CheckNoOffer(const QByteArray &reply)
{
    Findings findings;
    const QJsonObject biz = ReadFrame(reply, findings);
    if (findings.isEmpty() && biz.value(Key::Update).toString() != Mode::NoUpdate) {
        findings.append(Wrong(
            QStringLiteral("\"%1\" is not the string \"%2\"").arg(Key::Update, Mode::NoUpdate)));
    }
    return findings;
}
