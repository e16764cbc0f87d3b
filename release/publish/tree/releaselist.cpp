// SPDX-License-Identifier: MIT
#include "release/publish/tree/releaselist.h"

#include "release/publish/rules/releaserules.h"
#include "release/publish/tree/networkprefix.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

#include <algorithm>
#include <array>

namespace
{

constexpr int kFormat = 1;
constexpr int kMaxPatternParts = 3;

/// A unit of the times in a plan.
struct Unit {
    QLatin1Char letter;
    qint64 seconds;
};

constexpr std::array<Unit, 4> kUnits{{{QLatin1Char('w'), 604800},
                                      {QLatin1Char('d'), 86400},
                                      {QLatin1Char('h'), 3600},
                                      {QLatin1Char('m'), 60}}};

namespace Key
{
const QLatin1String Format("format");
const QLatin1String Releases("releases");
const QLatin1String Activity("activity");
const QLatin1String Version("version");
const QLatin1String Id("id");
const QLatin1String Kind("kind");
const QLatin1String Forced("forced");
const QLatin1String Size("size");
const QLatin1String Sha256("sha256");
const QLatin1String Published("published");
const QLatin1String ConfigFile("configFile");
const QLatin1String Revision("revision");
const QLatin1String Share("share");
const QLatin1String From("from");
const QLatin1String Networks("networks");
const QLatin1String Plan("plan");
const QLatin1String PlanBegan("planBegan");
const QLatin1String StepBegan("stepBegan");
const QLatin1String Stopped("stopped");
const QLatin1String Withdrawn("withdrawn");
const QLatin1String OffersPrevious("offersPrevious");
} // namespace Key

const QLatin1String kZip("zip");
const QLatin1String kInstaller("installer");

const QString kAnyVersion = QStringLiteral("*");
const QString kAnyRest = QStringLiteral(".*");

QString TimeText(const QDateTime &time)
{
    return time.isValid() ? time.toUTC().toString(Qt::ISODate) : QString();
}

QDateTime ReadTime(const QJsonValue &text)
{
    return QDateTime::fromString(text.toString(), Qt::ISODate);
}

QJsonObject ToJson(const Release &release)
{
    return {{Key::Version, release.version},
            {Key::Id, release.id},
            {Key::Kind, release.kind == ServiceContract::ZipPackage ? kZip : kInstaller},
            {Key::Forced, release.forced},
            {Key::Size, release.size},
            {Key::Sha256, release.sha256},
            {Key::Published, TimeText(release.published)},
            {Key::ConfigFile, release.configFile},
            {Key::Revision, release.revision},
            {Key::Share, release.share},
            {Key::From, QJsonArray::fromStringList(release.from)},
            {Key::Networks, QJsonArray::fromStringList(release.networks)},
            {Key::Plan, release.plan},
            {Key::PlanBegan, TimeText(release.planBegan)},
            {Key::StepBegan, TimeText(release.stepBegan)},
            {Key::Stopped, release.isStopped},
            {Key::Withdrawn, release.isWithdrawn},
            {Key::OffersPrevious, release.offersPrevious}};
}

QStringList Texts(const QJsonValue &value)
{
    QStringList texts;
    const QJsonArray array = value.toArray();
    for (const QJsonValue text : array)
        texts.append(text.toString());
    return texts;
}

bool IsRevision(const QString &text)
{
    static const QRegularExpression digits(QStringLiteral("\\A(?:[0-9a-f]{8})?\\z"));
    return digits.match(text).hasMatch();
}

/// The key with an invalid value in @p release, which was read from a file; empty when there is
/// none.
QString Objection(const Release &release, const QString &kind)
{
    if (!ReleaseRules::CheckVersion(release.version).isEmpty())
        return Key::Version;
    if (kind != kZip && kind != kInstaller)
        return Key::Kind;
    const Findings wrongId = kind == kZip ? ReleaseRules::CheckZipName(release.id)
                                          : ReleaseRules::CheckInstallerName(release.id);
    if (!wrongId.isEmpty())
        return Key::Id;
    if (!IsRevision(release.revision))
        return Key::Revision;
    // Patterns and networks become names of links.
    if (!std::all_of(release.from.cbegin(), release.from.cend(), IsVersionPattern))
        return Key::From;
    const auto isNetwork = [](const QString &text) {
        NetworkPrefix network;
        return !NetworkPrefix::Read(text, network);
    };
    if (!std::all_of(release.networks.cbegin(), release.networks.cend(), isNetwork))
        return Key::Networks;
    if (release.share < 0 || release.share > AllParts)
        return Key::Share;
    if (!release.published.isValid())
        return Key::Published;
    if (release.plan.isEmpty())
        return QString();
    // A misread plan could offer the release to everyone at once.
    if (ReadPlan(release.plan).isEmpty())
        return Key::Plan;
    if (!release.planBegan.isValid())
        return Key::PlanBegan;
    if (!release.stepBegan.isValid())
        return Key::StepBegan;
    return QString();
}

Release ReadRelease(const QJsonObject &object)
{
    Release release;
    release.version = object.value(Key::Version).toString();
    release.id = object.value(Key::Id).toString();
    release.kind = object.value(Key::Kind).toString() == kInstaller
                       ? ServiceContract::InstallerPackage
                       : ServiceContract::ZipPackage;
    release.forced = object.value(Key::Forced).toBool();
    release.size = qint64(object.value(Key::Size).toDouble());
    release.sha256 = object.value(Key::Sha256).toString();
    release.published = ReadTime(object.value(Key::Published));
    release.configFile = object.value(Key::ConfigFile).toString();
    release.revision = object.value(Key::Revision).toString();
    release.share = object.value(Key::Share).toInt(-1);
    release.from = Texts(object.value(Key::From));
    release.networks = Texts(object.value(Key::Networks));
    release.plan = object.value(Key::Plan).toString();
    release.planBegan = ReadTime(object.value(Key::PlanBegan));
    release.stepBegan = ReadTime(object.value(Key::StepBegan));
    release.isStopped = object.value(Key::Stopped).toBool(true);
    release.isWithdrawn = object.value(Key::Withdrawn).toBool(true);
    release.offersPrevious = object.value(Key::OffersPrevious).toBool();
    return release;
}

} // namespace

QString Release::AnswerName() const
{
    const QString folder = revision.isEmpty() ? version : version + QLatin1Char('/') + revision;
    return QStringLiteral("%1/%2.json").arg(folder, id);
}

int ReleaseList::IndexOf(const QString &version) const
{
    for (int index = 0; index < releases.size(); ++index) {
        if (releases.at(index).version == version)
            return index;
    }
    return -1;
}

int ReleaseList::PreviousForEverybody(int index) const
{
    while (--index >= 0) {
        if (releases.at(index).IsForEverybody())
            break;
    }
    return index;
}

QByteArray ToJson(const ReleaseList &list)
{
    QJsonArray releases;
    for (const Release &release : list.releases)
        releases.append(ToJson(release));
    return QJsonDocument(QJsonObject{{Key::Format, kFormat},
                                     {Key::Releases, releases},
                                     {Key::Activity, QJsonArray::fromStringList(list.activity)}})
        .toJson();
}

Failure ReadReleaseList(const QByteArray &json, ReleaseList &list)
{
    const auto wrong = [](const QString &what) {
        return Finding{
            QStringLiteral("releases"), QString(),
            QStringLiteral("releases.json: %1; restore the tree from a backup").arg(what)};
    };
    QJsonParseError error;
    const QJsonObject object = QJsonDocument::fromJson(json, &error).object();
    if (error.error != QJsonParseError::NoError)
        return wrong(QStringLiteral("it is not JSON (%1)").arg(error.errorString()));
    if (object.value(Key::Format).toInt() != kFormat)
        return wrong(QStringLiteral("\"%1\" is not %2").arg(Key::Format).arg(kFormat));

    ReleaseList read;
    const QJsonArray releases = object.value(Key::Releases).toArray();
    for (const QJsonValue value : releases) {
        const Release release = ReadRelease(value.toObject());
        const QString objection = Objection(release, value.toObject().value(Key::Kind).toString());
        if (!objection.isEmpty())
            return wrong(QStringLiteral("\"%1\" of a release cannot be read").arg(objection));
        if (read.IndexOf(release.version) >= 0)
            return wrong(QStringLiteral("%1 is listed twice").arg(release.version));
        read.releases.append(release);
    }
    read.activity = Texts(object.value(Key::Activity));
    list = read;
    return {};
}

int ReadShare(const QString &percent)
{
    static const QRegularExpression share(QStringLiteral("\\A([0-9]{1,3})(?:\\.([0-9]))?\\z"));
    const QRegularExpressionMatch match = share.match(percent);
    const int parts = match.captured(1).toInt() * (AllParts / 100) + match.captured(2).toInt();
    return match.hasMatch() && parts <= AllParts ? parts : 0;
}

QVector<PlanStep> ReadPlan(const QString &plan)
{
    static const QRegularExpression step(
        QStringLiteral("\\A\\s*([0-9.]+)\\s*%\\s*(?:([1-9][0-9]{0,3})\\s*([mhdw]))?\\s*\\z"));
    QVector<PlanStep> steps;
    const QStringList texts = plan.split(QLatin1Char(','));
    for (const QString &text : texts) {
        const QRegularExpressionMatch match = step.match(text);
        PlanStep read;
        read.share = ReadShare(match.captured(1));
        for (const Unit &unit : kUnits) {
            if (match.captured(3) == unit.letter)
                read.seconds = match.captured(2).toLongLong() * unit.seconds;
        }
        const bool isLast = steps.size() == texts.size() - 1;
        const bool grows = steps.isEmpty() || read.share > steps.last().share;
        if (read.share == 0 || !grows || (read.seconds == 0) != isLast)
            return {};
        steps.append(read);
    }
    return steps;
}

QString PlanText(const QVector<PlanStep> &steps)
{
    QStringList texts;
    for (const PlanStep &step : steps) {
        QString text = QString::number(PercentOf(step.share)) + QLatin1Char('%');
        const auto *const unit =
            std::find_if(kUnits.cbegin(), kUnits.cend(),
                         [&step](const Unit &each) { return step.seconds % each.seconds == 0; });
        if (step.seconds > 0 && unit != kUnits.cend())
            text += QLatin1Char(' ') + QString::number(step.seconds / unit->seconds) + unit->letter;
        texts.append(text);
    }
    return texts.join(QStringLiteral(", "));
}

QString ShareText(int share)
{
    return QString::number(PercentOf(share)) + QStringLiteral(" %");
}

bool IsVersionPattern(const QString &pattern)
{
    if (pattern == kAnyVersion)
        return true;
    if (!pattern.endsWith(kAnyRest))
        return ReleaseRules::CheckVersion(pattern).isEmpty();
    const QString beginning = pattern.chopped(kAnyRest.size());
    return ReleaseRules::CheckVersion(beginning).isEmpty() &&
           beginning.count(QLatin1Char('.')) < kMaxPatternParts;
}

bool MatchesVersion(const QString &pattern, const QString &version)
{
    if (pattern == kAnyVersion)
        return true;
    if (pattern.endsWith(kAnyRest))
        return version.startsWith(pattern.chopped(1));
    return version == pattern;
}
