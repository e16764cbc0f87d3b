#include "release/publish/advance.h"

#include "release/publish/releasetree.h"
#include "release/publish/rolloutstatistics.h"
#include "release/publish/treechange.h"

#include <QFileInfo>
#include <QJsonArray>

namespace
{

/// Fewer downloads than this say nothing about a release.
constexpr int kLeastDownloads = 10;

constexpr double kPercent = 100;

double Percent(qint64 part, qint64 whole)
{
    return whole > 0 ? kPercent * double(part) / double(whole) : 0;
}

QString PercentText(double percent)
{
    return QString::number(percent, 'f', 1) + QStringLiteral(" %");
}

/// Why @p figures are above what @p request allows; empty when they are not.
QString ReasonToStop(const Request &request, const ReleaseFigures &figures)
{
    const DownloadFigures &now = figures.downloads;
    const double before = Percent(figures.before.interrupted, figures.before.downloads);
    const double interrupted = Percent(now.interrupted, now.downloads);
    if (now.downloads >= kLeastDownloads && interrupted - before > request.stopAboveInterrupted) {
        return QStringLiteral("%1 of %2 downloads were interrupted, and %3 before this release")
            .arg(PercentText(interrupted))
            .arg(now.downloads)
            .arg(PercentText(before));
    }
    const double unchanged = Percent(figures.cameBackWithout, figures.completed);
    if (figures.completed >= kLeastDownloads && unchanged > request.stopAboveUnchanged) {
        return QStringLiteral("%1 of the %2 networks that downloaded the package came back with "
                              "the old version")
            .arg(PercentText(unchanged))
            .arg(figures.completed);
    }
    return QString();
}

/// The plans of a tree on their way; each release adds to the outcome.
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
            Refuse("missing", QStringLiteral("%1 is no tree of releases; name one with a plan")
                                  .arg(m_tree.Folder()));
            return m_outcome;
        }
        TreeChange change(m_tree);
        if (const Failure failure =
                m_request.dryRun ? m_tree.Read(change.List()) : change.Begin()) {
            m_outcome.refusals.append(*failure);
            return m_outcome;
        }
        for (Release &release : change.List().releases) {
            if (!release.plan.isEmpty() && !release.isWithdrawn)
                Advance(release);
        }
        if (!m_done.isEmpty() && !m_request.dryRun) {
            if (const Failure failure = change.Commit(m_done.join(QStringLiteral("; "))))
                m_outcome.refusals.append(*failure);
        }
        if (m_outcome.summary.isEmpty() && m_outcome.refusals.isEmpty())
            Tell(QStringLiteral("%1 has no plan").arg(m_tree.Folder()));
        m_outcome.facts = {{QStringLiteral("done"), QJsonArray::fromStringList(m_done)},
                           {QStringLiteral("dryRun"), m_request.dryRun}};
        return m_outcome;
    }

private:
    void Refuse(const char *rule, const QString &message)
    {
        m_outcome.refusals.append({QString::fromLatin1(rule), QString(), message});
    }

    void Tell(const QString &line) { m_outcome.summary += line + QLatin1Char('\n'); }

    void Advance(Release &release)
    {
        if (release.isStopped || QFileInfo::exists(m_tree.StopFile())) {
            Refuse("stopped",
                   QStringLiteral("%1 is stopped; look at \"publish report\", and resume "
                                  "it or roll it back")
                       .arg(release.version));
            return;
        }
        const QVector<PlanStep> steps = ReadPlan(release.plan);
        // The share may have been larger than the first one when the plan began.
        int step = 0;
        while (step + 1 < steps.size() && steps.at(step + 1).share <= release.share)
            ++step;
        const ReleaseFigures *figures = FiguresOf(release);
        if (figures == nullptr)
            return;
        const QString reason = ReasonToStop(m_request, *figures);
        if (!reason.isEmpty()) {
            release.isStopped = true;
            m_done.append(QStringLiteral("stopped %1: %2").arg(release.version, reason));
            Refuse("stopped", QStringLiteral("%1 is stopped: %2; look at \"publish report\"")
                                  .arg(release.version, reason));
            return;
        }
        if (step >= steps.size() - 1) {
            Tell(QStringLiteral("%1 has reached the end of its plan, %2")
                     .arg(release.version, ShareText(release.share)));
            return;
        }
        const QDateTime next = release.stepBegan.addSecs(steps.at(step).seconds);
        if (QDateTime::currentDateTimeUtc() < next) {
            Tell(QStringLiteral("%1 stays at %2 until %3")
                     .arg(release.version, ShareText(release.share),
                          next.toUTC().toString(Qt::ISODate)));
            return;
        }
        release.share = steps.at(step + 1).share;
        release.stepBegan = QDateTime::currentDateTimeUtc();
        m_done.append(
            QStringLiteral("advanced %1 to %2").arg(release.version, ShareText(release.share)));
        Tell(m_done.last());
    }

    /// What happened since the plan began; nothing, with a refusal, when the logs do not tell.
    const ReleaseFigures *FiguresOf(const Release &release)
    {
        m_statistics = {};
        const LogSelection selection{m_request.logs, release.planBegan.toSecsSinceEpoch()};
        if (const Failure failure = ReadLogs(selection, m_progress, m_statistics)) {
            m_outcome.refusals.append(*failure);
            return nullptr;
        }
        const ProductFigures *product = m_statistics.Product(m_request.product);
        const ReleaseFigures *figures =
            product != nullptr ? product->ReleaseWith(release.id) : nullptr;
        if (figures == nullptr) {
            Refuse("no-figures",
                   QStringLiteral("the logs have no check that was offered %1 since %2; name the "
                                  "current logs of all nodes")
                       .arg(release.version, release.planBegan.toUTC().toString(Qt::ISODate)));
        }
        return figures;
    }

    const Request &m_request;
    Progress &m_progress;
    ReleaseTree m_tree;
    RolloutStatistics m_statistics;
    QStringList m_done;
    Outcome m_outcome;
};

} // namespace

Outcome AdvancePlans(const Request &request, Progress &progress)
{
    return Advancer(request, progress).Run();
}
