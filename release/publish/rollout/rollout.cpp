// SPDX-License-Identifier: MIT
#include "release/publish/rollout/rollout.h"

#include "release/publish/base/cannotwrite.h"
#include "release/publish/base/hostsystem.h"
#include "release/publish/rules/releaserules.h"
#include "release/publish/tree/releasetree.h"
#include "release/publish/tree/treechange.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>

#include <algorithm>
#include <functional>

namespace
{

const QString kAnyVersion = QStringLiteral("*");

Finding Refusal(const char *rule, const QString &message)
{
    return {QString::fromLatin1(rule), QString(), message};
}

QString StateText(const Release &release)
{
    if (release.isWithdrawn) {
        return release.offersPrevious ? QStringLiteral("rolled back, with downgrade")
                                      : QStringLiteral("rolled back");
    }
    if (release.isStopped)
        return QStringLiteral("stopped");
    return release.IsRolledOut() ? QStringLiteral("rolled out") : QStringLiteral("published");
}

QString RestrictionText(const Release &release)
{
    QStringList parts;
    if (!release.from.isEmpty())
        parts.append(QStringLiteral("from ") + release.from.join(QStringLiteral(", ")));
    if (!release.plan.isEmpty())
        parts.append(QStringLiteral("plan ") + release.plan);
    if (!release.networks.isEmpty())
        parts.append(QStringLiteral("first ") + release.networks.join(QStringLiteral(", ")));
    return parts.join(QStringLiteral("; "));
}

/// @p isStopped is true when all offers of the tree are stopped.
QJsonObject Facts(const Release &release, bool isStopped)
{
    return {{QStringLiteral("version"), release.version},
            {QStringLiteral("id"), release.id},
            {QStringLiteral("kind"), release.kind == ServiceContract::ZipPackage
                                         ? QStringLiteral("zip")
                                         : QStringLiteral("installer")},
            {QStringLiteral("update"),
             release.forced ? QStringLiteral("forced") : QStringLiteral("optional")},
            {QStringLiteral("size"), release.size},
            {QStringLiteral("sha256"), release.sha256},
            {QStringLiteral("published"), release.published.toUTC().toString(Qt::ISODate)},
            {QStringLiteral("share"), PercentOf(release.share)},
            {QStringLiteral("from"), QJsonArray::fromStringList(release.from)},
            {QStringLiteral("networks"), QJsonArray::fromStringList(release.networks)},
            {QStringLiteral("plan"), release.plan},
            {QStringLiteral("state"), StateText(release)},
            {QStringLiteral("offered"), release.IsOffered() && !isStopped}};
}

QString Line(const Release &release)
{
    QString line =
        QStringLiteral("%1 %2 %3 %4 %5 %6  %7")
            .arg(release.version, -12)
            .arg(release.kind == ServiceContract::ZipPackage ? QStringLiteral("zip")
                                                             : QStringLiteral("installer"),
                 -9)
            .arg(SizeText(release.size), 12)
            .arg(release.published.toUTC().toString(QStringLiteral("yyyy-MM-dd")), 10)
            .arg(ShareText(release.share), 7)
            .arg(StateText(release), -11)
            .arg(RestrictionText(release));
    while (line.endsWith(QLatin1Char(' ')))
        line.chop(1);
    return line + QLatin1Char('\n');
}

/// The result of editing a release: a line about what was done, or why it is refused.
struct Edit {
    QString line;
    Failure failure;
};

/// Why there are no releases in @p tree. A damaged tree is not called missing, because publishing
/// into it would not help.
Failure FindNoReleases(const ReleaseTree &tree)
{
    ReleaseList list;
    if (Failure failure = tree.Read(list))
        return failure;
    if (!QFileInfo(tree.ListFile()).isFile()) {
        return Refusal(
            "missing",
            QStringLiteral("%1 is not a release tree; check the path").arg(tree.Folder()));
    }
    return {};
}

/// Applies @p edit to the release that @p request names.
Outcome EditRelease(const Request &request, const std::function<Edit(ReleaseList &, int)> &edit)
{
    Outcome outcome;
    const ReleaseTree tree(request.source);
    const auto refused = [&outcome](const Finding &finding) {
        outcome.refusals.append(finding);
        return outcome;
    };
    if (!HostSystem::HasLinks()) {
        return refused(Refusal(
            "links",
            QStringLiteral(
                "releases cannot be rolled out from this system; run the command on the server")));
    }
    if (const Failure failure = FindNoReleases(tree))
        return refused(*failure);
    TreeChange change(tree);
    if (const Failure failure = request.dryRun ? tree.Read(change.List()) : change.Begin())
        return refused(*failure);
    const int index = change.List().IndexOf(request.version);
    if (index < 0) {
        return refused(
            Refusal("unknown-version",
                    QStringLiteral("%1 has no release %2; run \"publish list\" to see its releases")
                        .arg(tree.Folder(), ReleaseRules::Shown(request.version))));
    }
    const Edit done = edit(change.List(), index);
    if (done.failure)
        return refused(*done.failure);
    if (!request.dryRun) {
        if (const Failure failure = change.Commit(done.line))
            return refused(*failure);
    }
    const bool isStopped = QFileInfo::exists(tree.StopFile());
    outcome.facts = Facts(change.List().releases.at(index), isStopped);
    outcome.facts.insert(QStringLiteral("dryRun"), request.dryRun);
    outcome.summary = (request.dryRun ? QStringLiteral("would be done: ") : QString()) + done.line +
                      QLatin1Char('\n');
    outcome.warnings += FindUnreadable(tree, change.List());
    if (isStopped) {
        outcome.warnings.append(Refusal(
            "stopped",
            QStringLiteral(
                "%1 exists, so no client is offered anything; remove it with \"publish resume\"")
                .arg(tree.StopFile())));
    }
    return outcome;
}

/// The bandwidth for downloads of @p release in the busiest hour, in Gbit/s. See docs/service.md,
/// Capacity.
double PeakGbit(const Release &release, double clients)
{
    constexpr double checksPerDay = 2;
    constexpr double peakToAverage = 10;
    constexpr double secondsPerDay = 86400;
    constexpr double gbitPerByte = 8e-9;
    const double offersPerSecond =
        clients * release.share / AllParts * checksPerDay * peakToAverage / secondsPerDay;
    return offersPerSecond * double(release.size) * gbitPerByte;
}

/// The time of the current step and the figures of the plan count from now on.
void RestartPlan(Release &release)
{
    release.planBegan = QDateTime::currentDateTimeUtc();
    release.stepBegan = release.planBegan;
}

/// Begins with the first share of @p plan, unless the release already has a larger one.
void BeginPlan(Release &release, const QString &plan)
{
    release.plan = plan;
    release.share = qMax(release.share, ReadPlan(plan).first().share);
    RestartPlan(release);
}

Edit Refuse(const char *rule, const QString &message)
{
    return {QString(), Refusal(rule, message)};
}

/// One line per release in @p list that is stopped individually.
QString StillStopped(const ReleaseList &list)
{
    QString lines;
    for (const Release &release : list.releases) {
        if (release.isStopped && !release.isWithdrawn) {
            lines += QStringLiteral("%1 stays stopped; resume it with --version %1\n")
                         .arg(release.version);
        }
    }
    return lines;
}

/// Restarts all plans of a tree whose offers are all stopped.
Failure RestartPlans(const Request &request)
{
    const ReleaseTree tree(request.source);
    if (request.dryRun || !QFileInfo::exists(tree.StopFile()) ||
        !QFileInfo(tree.ListFile()).isFile())
        return {};
    const auto hasPlan = [](const Release &release) { return !release.plan.isEmpty(); };
    ReleaseList list;
    if (Failure failure = tree.Read(list))
        return failure;
    if (std::none_of(list.releases.cbegin(), list.releases.cend(), hasPlan))
        return {};
    TreeChange change(tree);
    if (Failure failure = change.Begin())
        return failure;
    for (Release &release : change.List().releases) {
        if (hasPlan(release))
            RestartPlan(release);
    }
    return change.Commit(QString()); // the stop file still exists, so nothing is resumed yet
}

/// Creates or removes the stop file.
Outcome SetStopFile(const Request &request, bool isStopped)
{
    Outcome outcome;
    const ReleaseTree tree(request.source);
    QFile file(tree.StopFile());
    const bool wasStopped = file.exists();
    const bool isTree = QFileInfo(QFileInfo(file).path()).isDir();
    const bool isDone = isTree && (request.dryRun || wasStopped == isStopped ||
                                   (isStopped ? file.open(QIODevice::WriteOnly) : file.remove()));
    if (!isDone) {
        outcome.refusals.append(CannotWrite(
            file.fileName(), isTree ? file.errorString() : QStringLiteral("no such folder"),
            QStringLiteral("check the path and the permissions of the tree")));
        return outcome;
    }
    // Independent of the umask, because other users copy the file to the nodes too.
    if (isStopped && file.isOpen())
        file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                            QFileDevice::ReadGroup | QFileDevice::ReadOther);
    outcome.facts = {{QStringLiteral("stopped"), isStopped},
                     {QStringLiteral("dryRun"), request.dryRun}};
    outcome.summary = isStopped    ? QStringLiteral("%1: all offers are stopped\n")
                      : wasStopped ? QStringLiteral("%1: the stop is lifted\n")
                                   : QStringLiteral("%1: the offers were not stopped\n");
    outcome.summary = (request.dryRun ? QStringLiteral("would be done: ") : QString()) +
                      outcome.summary.arg(tree.Folder());
    ReleaseList list;
    if (!isStopped && !tree.Read(list))
        outcome.summary += StillStopped(list);
    return outcome;
}

} // namespace

Outcome RollOut(const Request &request)
{
    double peakGbit = 0;
    Outcome outcome = EditRelease(request, [&](ReleaseList &list, int index) -> Edit {
        Release &release = list.releases[index];
        if (release.isWithdrawn) {
            return Refuse(
                "withdrawn",
                QStringLiteral("%1 was rolled back; publish a new version").arg(release.version));
        }
        if (request.share > 0) {
            release.share = request.share;
            release.plan.clear();
        }
        if (!request.plan.isEmpty()) {
            if (ReadPlan(request.plan).last().share <= release.share) {
                return Refuse(
                    "plan",
                    QStringLiteral(
                        "%1 is already offered to %2; give a plan that ends with a larger share")
                        .arg(release.version, ShareText(release.share)));
            }
            BeginPlan(release, request.plan);
        }
        if (!request.from.isEmpty())
            release.from = request.from.contains(kAnyVersion) ? QStringList() : request.from;
        if (request.forgetsNetworks)
            release.networks.clear();
        for (const QString &network : request.networks) {
            if (!release.networks.contains(network))
                release.networks.append(network);
        }
        if (!release.IsRolledOut()) {
            return Refuse(
                "share",
                QStringLiteral(
                    "%1 has neither a share nor a network; give one with --share or --network")
                    .arg(release.version));
        }
        QString line =
            QStringLiteral("rolled out %1 to %2").arg(release.version, ShareText(release.share));
        if (!RestrictionText(release).isEmpty())
            line += QStringLiteral(" (%1)").arg(RestrictionText(release));
        if (release.isStopped)
            line += QStringLiteral("; it is stopped until it is resumed");
        peakGbit = PeakGbit(release, request.clients);
        return {line, {}};
    });
    if (peakGbit > request.linkGbit) {
        outcome.warnings.append(Refusal(
            "bandwidth", QStringLiteral("in the busiest hour the downloads may need %1 Gbit/s, but "
                                        "only %2 are available; begin with a smaller share")
                             .arg(peakGbit, 0, 'f', 1)
                             .arg(request.linkGbit)));
    }
    return outcome;
}

Outcome StopOffers(const Request &request)
{
    if (request.version.isEmpty())
        return SetStopFile(request, true);
    Outcome outcome = EditRelease(request, [](ReleaseList &list, int index) -> Edit {
        Release &release = list.releases[index];
        release.isStopped = true;
        return {QStringLiteral("stopped %1").arg(release.version), {}};
    });
    for (Finding &refusal : outcome.refusals) {
        // A push takes minutes, and stopping a release must not wait for it.
        if (refusal.rule == QLatin1String(TreeChange::kBusyRule)) {
            refusal.message +=
                QStringLiteral("; \"publish stop SITE\" without --version works at once");
        }
    }
    return outcome;
}

Outcome ResumeOffers(const Request &request)
{
    if (request.version.isEmpty()) {
        if (const Failure failure = RestartPlans(request)) {
            Outcome outcome;
            outcome.refusals.append(*failure);
            return outcome;
        }
        return SetStopFile(request, false);
    }
    return EditRelease(request, [](ReleaseList &list, int index) -> Edit {
        Release &release = list.releases[index];
        if (release.isWithdrawn) {
            return Refuse(
                "withdrawn",
                QStringLiteral("%1 was rolled back; publish a new version").arg(release.version));
        }
        // The figures that stopped a plan would stop it again, and the time during which it was
        // stopped does not count.
        if (release.isStopped)
            RestartPlan(release);
        release.isStopped = false;
        return {QStringLiteral("resumed %1 at %2").arg(release.version, ShareText(release.share)),
                {}};
    });
}

Outcome RollBack(const Request &request)
{
    return EditRelease(request, [&request](ReleaseList &list, int index) -> Edit {
        Release &release = list.releases[index];
        release.isWithdrawn = true;
        release.offersPrevious = request.downgrade;
        QString line = QStringLiteral("rolled back %1").arg(release.version);
        if (!request.downgrade)
            return {line, {}};
        const int previous = list.PreviousForEverybody(index);
        if (previous < 0) {
            return Refuse("no-previous",
                          QStringLiteral("no release before %1 is offered to everyone; roll one "
                                         "out to 100 first, or leave out --downgrade")
                              .arg(release.version));
        }
        const QString &version = list.releases.at(previous).version;
        const Findings shorter = ReleaseRules::CheckVersionLength(version, {release.version});
        if (!shorter.isEmpty() && !request.allowShorterVersion)
            return {QString(), shorter.first()};
        return {line + QStringLiteral(", %1 is offered to those that have it").arg(version), {}};
    });
}

Outcome ListReleases(const Request &request)
{
    Outcome outcome;
    const ReleaseTree tree(request.source);
    ReleaseList list;
    for (const Failure &failure : {tree.Read(list), FindNoReleases(tree)}) {
        if (failure) {
            outcome.refusals.append(*failure);
            return outcome;
        }
    }
    const bool isStopped = QFileInfo::exists(tree.StopFile());
    QJsonArray releases;
    if (isStopped)
        outcome.summary = QStringLiteral("All offers are stopped.\n");
    for (int index = list.releases.size() - 1; index >= 0; --index) {
        outcome.summary += Line(list.releases.at(index));
        releases.append(Facts(list.releases.at(index), isStopped));
    }
    outcome.facts = {{QStringLiteral("stopped"), isStopped},
                     {QStringLiteral("releases"), releases},
                     {QStringLiteral("activity"), QJsonArray::fromStringList(list.activity)}};
    return outcome;
}
