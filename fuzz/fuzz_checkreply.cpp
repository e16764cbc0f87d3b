// SPDX-License-Identifier: MIT
// The body of the update service's answer.

#include "config/global.h"
#include "config/servicecontract.h"
#include "fuzz/support/require.h"
#include "tests/support/testhome.h"

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>

#include <cstddef>
#include <cstdint>
#include <limits>

namespace
{

constexpr qint64 kEarlierSize = 4711;

/// Everything that is filled from an answer's "biz", except the notes.
struct Offer {
    QStringList texts;
    qint64 packageSize;
    qint32 updateType;
    bool operator==(const Offer &other) const
    {
        return texts == other.texts && packageSize == other.packageSize &&
               updateType == other.updateType;
    }
};

Offer StoredOffer()
{
    const Global &global = Global::instance;
    return {{global.id, global.update, global.latestVersion, global.latestVersionUrl, global.md5,
             global.sha1},
            global.packageSize,
            global.updateType};
}

void StoreEarlierOffer()
{
    Global &global = Global::instance;
    for (QString *text :
         {&global.id, &global.update, &global.latestVersion, &global.latestVersionUrl,
          &global.latestVersionInfo, &global.md5, &global.sha1})
        *text = QStringLiteral("earlier");
    global.packageSize = kEarlierSize;
    global.updateType = ServiceContract::ZipPackage;
}

int Parse(const QByteArray &body, const char *language)
{
    ResetGlobal();
    const CleanLog log;
    StoreEarlierOffer();
    Global::instance.language = QLatin1String(language);
    return Global::instance.ParseServiceReply(body);
}

void RequireEarlierOffer()
{
    const Offer offer = StoredOffer();
    Require(offer.texts.count(QStringLiteral("earlier")) == offer.texts.size() &&
                offer.packageSize == kEarlierSize &&
                offer.updateType == ServiceContract::ZipPackage &&
                Global::instance.latestVersionInfo == QLatin1String("earlier"),
            "a refused answer leaves the earlier offer");
}

/// An answer with everything that is stored.
QByteArray AnswerOfStored()
{
    const Global &global = Global::instance;
    const QJsonObject biz{{QStringLiteral("id"), global.id},
                          {QStringLiteral("update"), global.update},
                          {QStringLiteral("latestVersion"), global.latestVersion},
                          {QStringLiteral("latestVersionUrl"), global.latestVersionUrl},
                          {QStringLiteral("latestVersionInfo"), global.latestVersionInfo},
                          {QStringLiteral("md5"), global.md5},
                          {QStringLiteral("sha1"), global.sha1},
                          {QStringLiteral("packageSize"), global.packageSize},
                          {QStringLiteral("updateType"), global.updateType}};
    return QJsonDocument(QJsonObject{{QStringLiteral("code"), global.code},
                                     {QStringLiteral("desc"), global.desc},
                                     {QStringLiteral("biz"), biz}})
        .toJson();
}

void RequireRightNotes(const QString &chinese, const QString &english)
{
    if (chinese == english)
        return;
    Require(!chinese.contains(QLatin1Char('&')) && !english.contains(QLatin1Char('&')),
            "the notes are those of one language");
    Require(english == english.trimmed(), "English notes have no blanks around them");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray body(reinterpret_cast<const char *>(data), int(size));
    const int chineseResult = Parse(body, "zh");
    const Offer offer = StoredOffer();
    const QString chinese = Global::instance.latestVersionInfo;

    const int result = Parse(body, "en");
    Require(result == chineseResult, "the result does not depend on the language");
    Require(result == Global::Success || result == Global::Failure, "the result is 0 or -1");
    if (result == Global::Failure) {
        RequireEarlierOffer();
        return 0;
    }
    Require(StoredOffer() == offer, "the language changes only the notes");
    Require(Global::instance.code == QLatin1String("000000"), "only the success code succeeds");
    Require(offer.packageSize >= std::numeric_limits<qint32>::min() &&
                offer.packageSize <= std::numeric_limits<qint32>::max(),
            "a package size is a 32-bit number");
    RequireRightNotes(chinese, Global::instance.latestVersionInfo);

    const QString english = Global::instance.latestVersionInfo;
    Require(Parse(AnswerOfStored(), "zh") == Global::Success && StoredOffer() == offer,
            "an answer made of the stored offer stores the same offer");
    Require(english.contains(QLatin1Char('&')) || Global::instance.latestVersionInfo == english,
            "an answer made of the stored offer stores the same notes");
    return 0;
}
