// SPDX-License-Identifier: MIT
#include "release/publish/rollout/advance.h"

#include "release/publish/statistics/rolloutstatistics.h"
#include "release/publish/tree/releasetree.h"
#include "release/publish/tree/treechange.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QVector>

#include <algorithm>
#include <cmath>

namespace
{

/// Fewer downloads than this prove nothing.
constexpr int kLeastDownloads = 10;

/// With fewer downloads than this, a figure must exceed its limit by more than chance explains.
constexpr int kManyDownloads = 100;

/// How much chance explains, in standard errors.
constexpr double kStandardErrors = 2;

constexpr double kPercent = 100;

double Percent(qint64 part, qint64 whole)
{
    return whole > 0 ? kPercent * double(part) / double(whole) : 0;
}

/// The variance of Percent() for a binomial distribution. One more of each kind is assumed, because
/// "none of a few" and "all of a few" are not certain either.
double Variance(qint64 part, qint64 whole)
{
    const double share = (double(part) + 1) / (double(whole) + 2);
    return kPercent * kPercent * share * (1 - share) / double(whole);
}

QString PercentText(double percent)
{
    return QString::number(percent, 'f', 1) + QStringLiteral(" %");
}

/// By how many percentage points a figure may exceed its limit by chance.
double Tolerance(bool isOfMany, double variance)
{
    return isOfMany ? 0 : kStandardErrors * std::sqrt(variance);
}

/// Why too many downloads were interrupted, compared with earlier ones; empty when they were not.
QString WhyInterrupted(const ReleaseFigures &figures, double limit)
{
    const DownloadFigures &now = figures.downloads;
    const DownloadFigures &before = figures.before;
    if (now.downloads < kLeastDownloads)
        return QString();
    const bool hasBefore = before.downloads >= kLeastDownloads;
    const double share = Percent(now.interrupted, now.downloads);
    const double shareBefore = hasBefore ? Percent(before.interrupted, before.downloads) : 0;
    double variance = Variance(now.interrupted, now.downloads);
    if (hasBefore)
        variance += Variance(before.interrupted, before.downloads);
    const bool isOfMany =
        now.downloads >= kManyDownloads && (!hasBefore || before.downloads >= kManyDownloads);
    if (share - shareBefore <= limit + Tolerance(isOfMany, variance))
        return QString();
    const QString compared =
        hasBefore ? QStringLiteral("%1 before this release").arg(PercentText(shareBefore))
                  : QStringLiteral("the logs have no earlier downloads to compare with");
    return QStringLiteral("%1 of %2 downloads were interrupted, and %3")
        .arg(PercentText(share), QString::number(now.downloads), compared);
}

/// Why too many networks came back with the old version; empty when they did not.
QString WhyUnchanged(const ReleaseFigures &figures, double limit)
{
    if (figures.completed < kLeastDownloads)
        return QString();
    const double share = Percent(figures.cameBackWithout, figures.completed);
    const double variance = Variance(figures.cameBackWithout, figures.completed);
    if (share <= limit + Tolerance(figures.completed >= kManyDownloads, variance))
        return QString();
    return QStringLiteral("%1 of the %2 networks that downloaded the package came back "
                          "with the old version")
        .arg(PercentText(share), QString::number(figures.completed));
}

/// Why the release must be stopped; empty when it need not.
QString ReasonToStop(const Request &request, const ReleaseFigures &figures)
{
    const QString interrupted = WhyInterrupted(figures, request.stopAboveInterrupted);
    return interrupted.isEmpty() ? WhyUnchanged(figures, request.stopAboveUnchanged) : interrupted;
}

/// Advances the plans of a tree; each release adds to the outcome.
class Advancer
{
public:
    Advancer(const Request &request, Progress &progress)
        : m_request(request), m_progress(progress), m_tree(request.source)
    {
    }

    Outcome Run()
    {
        if (!QFileInfo(m_tree.ListFile()).isFile()) {
            Refuse("missing",
                   QStringLiteral("%1 is not a release tree; check the path").arg(m_tree.Folder()));
            return m_outcome;
        }
        // Reading the logs may take minutes. The tree is not locked meanwhile, because stopping a
        // release must not wait.
        if (const Failure failure = m_tree.Read(m_list)) {
            m_outcome.refusals.append(*failure);
            return m_outcome;
        }
        const QVector<int> plans = FindPlans();
        if (plans.isEmpty()) {
            if (m_outcome.summary.isEmpty() && m_outcome.refusals.isEmpty())
                Tell(QStringLiteral("%1 has no plan").arg(m_tree.Folder()));
        } else if (ReadFigures(plans)) {
            for (int plan = 0; plan < plans.size(); ++plan)
                Advance(m_list.releases.at(plans.at(plan)), m_statistics.at(plan));
            Commit();
        }
        m_outcome.facts = {{QStringLiteral("done"), QJsonArray::fromStringList(m_done)},
                           {QStringLiteral("dryRun"), m_request.dryRun}};
        return m_outcome;
    }

private:
    /// A change to one release.
    struct Edit {
        Release before;
        Release after;
        QString activity;
        QString refusal; ///< only when the release is stopped
    };

    void Refuse(const char *rule, const QString &message)
    {
        m_outcome.refusals.append({QString::fromLatin1(rule), QString(), message});
    }

    void Tell(const QString &line) { m_outcome.summary += line + QLatin1Char('\n'); }

    QString DryRunText() const
    {
        return m_request.dryRun ? QStringLiteral("would be done: ") : QString();
    }

    /// The releases with an active plan, as indices in the list.
    QVector<int> FindPlans()
    {
        QVector<int> plans;
        QString newest; // of the releases that every client is offered
        for (int index = m_list.releases.size() - 1; index >= 0; --index) {
            const Release &release = m_list.releases.at(index);
            if (!release.plan.isEmpty() && !release.isWithdrawn) {
                if (!newest.isEmpty())
                    Tell(QStringLiteral("%1 stays unchanged, because %2 is offered to everyone")
                             .arg(release.version, newest));
                else if (release.isStopped || QFileInfo::exists(m_tree.StopFile()))
                    RefuseStopped(release);
                else
                    plans.prepend(index);
            }
            if (newest.isEmpty() && release.IsForEverybody())
                newest = release.version;
        }
        return plans;
    }

    void RefuseStopped(const Release &release)
    {
        Refuse(
            "stopped",
            QStringLiteral(
                "%1 is stopped; run \"publish report\" to see why, then resume it or roll it back")
                .arg(release.version));
    }

    /// Counts what has happened since each of @p plans began. False, with a refusal, when a log is
    /// unreadable.
    bool ReadFigures(const QVector<int> &plans)
    {
        QVector<qint64> since;
        for (const int plan : plans)
            since.append(m_list.releases.at(plan).planBegan.toSecsSinceEpoch());
        LogSelection selection{m_request.logs, {}, {}};
        for (const Release &release : qAsConst(m_list.releases))
            selection.releases.append({release.version, release.id});
        const Failure failure = ReadLogsSince(since, selection, m_progress, m_statistics);
        if (failure)
            m_outcome.refusals.append(*failure);
        return !failure;
    }

    void Advance(const Release &release, const RolloutStatistics &statistics)
    {
        const QVector<PlanStep> steps = ReadPlan(release.plan);
        // The share may already have exceeded the first step when the plan began.
        int step = 0;
        while (step + 1 < steps.size() && steps.at(step + 1).share <= release.share)
            ++step;
        const bool isLast = step == steps.size() - 1;

        const ProductFigures *product = statistics.Product(m_request.product);
        const ReleaseFigures *figures =
            product != nullptr ? product->ReleaseWith(release.id) : nullptr;
        // After the last step, no larger share is possible, so missing figures are harmless.
        if (figures == nullptr && !isLast) {
            RefuseWithoutFigures(release, statistics);
            return;
        }
        const QString reason = figures != nullptr ? ReasonToStop(m_request, *figures) : QString();
        if (!reason.isEmpty()) {
            Stop(release, reason);
            return;
        }
        // The last step has no duration. It is watched as long as the step before it.
        const qint64 seconds = steps.at(isLast ? qMax(step - 1, 0) : step).seconds;
        const QDateTime next = release.stepBegan.addSecs(seconds);
        const bool isDue = QDateTime::currentDateTimeUtc() >= next;
        if (isDue)
            TakeStep(release, steps, step);
        else
            TellToWait(release, isLast, next);
    }

    void RefuseWithoutFigures(const Release &release, const RolloutStatistics &statistics)
    {
        QString message =
            QStringLiteral("the logs contain no check that was offered %1 since %2; name the "
                           "current logs of all nodes")
                .arg(release.version, release.planBegan.toUTC().toString(Qt::ISODate));
        const bool hasOthers =
            std::any_of(statistics.products.cbegin(), statistics.products.cend(),
                        [](const ProductFigures &product) { return !product.product.isEmpty(); });
        if (m_request.product.isEmpty() && hasOthers) {
            message += QStringLiteral(
                "; if there are several products, name the one of the tree with --product");
        }
        Refuse("no-figures", message);
    }

    void Stop(const Release &release, const QString &reason)
    {
        Edit edit{release, release, {}, {}};
        edit.after.isStopped = true;
        edit.activity = QStringLiteral("stopped %1: %2").arg(release.version, reason);
        edit.refusal = QStringLiteral("%1 is stopped: %2; run \"publish report\" for details")
                           .arg(release.version, reason);
        m_edits.append(edit);
    }

    void TakeStep(const Release &release, const QVector<PlanStep> &steps, int step)
    {
        Edit edit{release, release, {}, {}};
        if (step == steps.size() - 1) {
            edit.after.plan.clear();
            edit.activity = QStringLiteral("ended the plan of %1 at %2")
                                .arg(release.version, ShareText(release.share));
        } else {
            edit.after.share = steps.at(step + 1).share;
            edit.after.stepBegan = QDateTime::currentDateTimeUtc();
            edit.activity = QStringLiteral("advanced %1 to %2")
                                .arg(release.version, ShareText(edit.after.share));
        }
        m_edits.append(edit);
    }

    void TellToWait(const Release &release, bool isLast, const QDateTime &next)
    {
        const QString text =
            isLast
                ? QStringLiteral("%1 has reached the end of its plan, %2; it is watched until %3")
                : QStringLiteral("%1 stays at %2 until %3");
        Tell(text.arg(release.version, ShareText(release.share),
                      next.toUTC().toString(Qt::ISODate)));
    }

    /// Commits the edits, except those of releases that have been changed meanwhile.
    void Commit()
    {
        if (m_edits.isEmpty())
            return;
        TreeChange change(m_tree);
        if (const Failure failure =
                m_request.dryRun ? m_tree.Read(change.List()) : change.Begin()) {
            m_outcome.refusals.append(*failure);
            return;
        }
        QVector<Edit> applied;
        for (const Edit &edit : qAsConst(m_edits)) {
            const int index = change.List().IndexOf(edit.before.version);
            const bool isUnchanged = index >= 0 && ToJson({{change.List().releases.at(index)},
                                                           {}}) == ToJson({{edit.before}, {}});
            if (!isUnchanged || QFileInfo::exists(m_tree.StopFile())) {
                Tell(QStringLiteral("%1 was changed while the logs were read; it stays unchanged")
                         .arg(edit.before.version));
                continue;
            }
            change.List().releases[index] = edit.after;
            m_done.append(edit.activity);
            applied.append(edit);
        }
        if (!m_done.isEmpty() && !m_request.dryRun) {
            if (const Failure failure = change.Commit(m_done.join(QStringLiteral("; ")))) {
                m_done.clear();
                m_outcome.refusals.append(*failure);
                return;
            }
        }
        for (const Edit &edit : qAsConst(applied)) {
            if (edit.refusal.isEmpty())
                Tell(DryRunText() + edit.activity);
            else
                Refuse("stopped", DryRunText() + edit.refusal);
        }
    }

    const Request &m_request;
    Progress &m_progress;
    ReleaseTree m_tree;
    ReleaseList m_list; ///< as it was before the logs were read
    QVector<RolloutStatistics> m_statistics;
    QVector<Edit> m_edits;
    QStringList m_done;
    Outcome m_outcome;
};

} // namespace

Outcome AdvancePlans(const Request &request, Progress &progress)
{
    return Advancer(request, progress).Run();
}
