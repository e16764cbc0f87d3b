// SPDX-License-Identifier: MIT
#include "release/publish/statistics/reportpage.h"

#include "release/publish/rules/releaserules.h"
#include "release/publish/statistics/dailyseries.h"
#include "release/publish/statistics/figuretext.h"
#include "release/publish/statistics/svgchart.h"

#include <QStringList>
#include <QVector>

namespace
{

constexpr int kMaxDays = 366;

// The colours also differ in lightness, for colour-blind readers.
const char *const kHead = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'">
<meta name="viewport" content="width=device-width">
<meta name="color-scheme" content="light dark">
<title>How the releases are doing</title>
<style>
:root { --paper: #ffffff; --ink: #203152; --faint: #d8dee9; --rail: #eef1f6; --others: #8a94a6; --bad: #b3261e;
    --series0: #2463c7; --series1: #e09a5b; --series2: #2e7d4f; --series3: #b79ae0; --series4: #8c4a12;
    --series5: #6cbccb; --series6: #a12f6b; --series7: #c9b458 }
@media (prefers-color-scheme: dark) {
    :root { --paper: #171c26; --ink: #dfe5f0; --faint: #39435a; --rail: #242c3b; --others: #7d879a; --bad: #ff8a80;
        --series0: #6ea0f0; --series1: #c2571a; --series2: #7fd3a4; --series3: #8457c2; --series4: #f0b98a;
        --series5: #1f8a9e; --series6: #f097c4; --series7: #8f7d22 }
}
body { font: 16px/1.5 sans-serif; color: var(--ink); background: var(--paper); margin: 2em auto; max-width: 60em;
    padding: 0 1em; overflow-wrap: anywhere }
figure { margin: 1.5em 0 2.5em }
figcaption { font-weight: bold }
figcaption span { display: block; font-weight: normal; font-size: 14px }
.note { font-size: 14px }
.scroll { overflow-x: auto }
.days { padding-left: 5em }
svg { display: block; overflow: visible; font-size: 12px; fill: var(--ink); margin-top: 1em }
.days rect { stroke: var(--paper); stroke-width: .5 }
.legend { display: flex; flex-wrap: wrap; gap: .2em 1.2em; list-style: none; margin: .5em 0; padding: 0;
    font-size: 14px }
.legend svg { display: inline; margin: 0 .4em 0 0; vertical-align: -1px }
table { border-collapse: collapse; font-size: 14px }
th, td { padding: .2em .8em; border-bottom: 1px solid var(--faint); text-align: right; white-space: nowrap }
th:first-child, td:first-child { text-align: left; padding-left: 0 }
summary { cursor: pointer; font-size: 14px }
.grid { stroke: var(--faint) }
.rail { fill: var(--rail) }
.bad { fill: var(--bad) }
.others { fill: var(--others) }
)";

QString Html(const QString &text)
{
    return ReleaseRules::Shown(text).toHtmlEscaped();
}

QString ColourRules()
{
    QString rules;
    for (int series = 0; series < SvgChart::Colours; ++series)
        rules += QStringLiteral(".series%1 { fill: var(--series%1) }\n").arg(series);
    return rules;
}

QString Row(const QStringList &cells, const QString &cellForm)
{
    QString row = QStringLiteral("<tr>");
    for (const QString &cell : cells)
        row += cellForm.arg(Html(cell));
    return row + QStringLiteral("</tr>\n");
}

QString Table(const QStringList &head, const QVector<QStringList> &rows)
{
    QString table = QStringLiteral("<div class=\"scroll\"><table>\n<thead>") +
                    Row(head, QStringLiteral("<th scope=\"col\">%1</th>")) +
                    QStringLiteral("</thead>\n<tbody>\n");
    for (const QStringList &row : rows)
        table += Row(row, QStringLiteral("<td>%1</td>"));
    return table + QStringLiteral("</tbody></table></div>\n");
}

QString Legend(const QVector<DailySeries> &series)
{
    QString legend = QStringLiteral("<ul class=\"legend\">\n");
    for (int index = 0; index < series.size(); ++index) {
        legend += QStringLiteral("<li><svg width=\"12\" height=\"12\" aria-hidden=\"true\">"
                                 "<rect class=\"%1\" width=\"12\" height=\"12\"/></svg>%2</li>\n")
                      .arg(SvgChart::ColourClass(index), Html(series.at(index).name));
    }
    return legend + QStringLiteral("</ul>\n");
}

QString DayTable(const QVector<QDate> &days, const QVector<DailySeries> &series)
{
    QStringList head{QStringLiteral("Day (UTC)")};
    for (const DailySeries &one : series)
        head.append(one.name);
    QVector<QStringList> rows;
    for (int day = 0; day < days.size(); ++day) {
        QStringList row{days.at(day).toString(Qt::ISODate)};
        for (const DailySeries &one : series)
            row.append(Grouped(one.values.at(day)));
        rows.append(row);
    }
    return Table(head, rows);
}

QString DayFigure(const SvgChart::Labels &labels, const QVector<QDate> &days,
                  const QVector<DailySeries> &series)
{
    return QStringLiteral("<figure>\n<figcaption>%1<span>%2</span></figcaption>\n")
               .arg(Html(labels.title), Html(labels.description)) +
           Legend(series) + QStringLiteral("<div class=\"days\">") +
           SvgChart::StackedDays(labels, days, series) +
           QStringLiteral("</div>\n<details><summary>The same as a table</summary>\n") +
           DayTable(days, series) + QStringLiteral("</details>\n</figure>\n");
}

QString FunnelFigure(const QString &id, const ReleaseFigures &release)
{
    const auto stage = [&release](const char *name, qint64 value, bool isBad) {
        return SvgChart::Stage{QLatin1String(name), value, Share(value, release.offered), isBad};
    };
    const QVector<SvgChart::Stage> stages{
        stage("Offered", release.offered, false), stage("Download started", release.started, false),
        stage("Download completed", release.completed, false),
        stage("Came back with the new version", release.cameBack, false),
        stage("Completed, but came back without it", release.cameBackWithout, true)};
    QVector<QStringList> rows;
    for (const SvgChart::Stage &one : stages)
        rows.append({one.name, Grouped(one.value), one.share});
    const SvgChart::Labels labels{
        id, QStringLiteral("Version %1: networks").arg(release.version),
        QStringLiteral("How many networks reached each stage, and their share of those that were "
                       "offered the release. First offered on %1.")
            .arg(UtcTime(release.firstOffered).toString(QStringLiteral("yyyy-MM-dd HH:mm 'UTC'")))};
    return QStringLiteral("<figure>\n<figcaption>%1<span>%2</span></figcaption>\n")
               .arg(Html(labels.title), Html(labels.description)) +
           SvgChart::Funnel(labels, stages) +
           QStringLiteral("<details><summary>The same as a table</summary>\n") +
           Table({QStringLiteral("Networks"), QStringLiteral("Count"), QStringLiteral("Share")},
                 rows) +
           QStringLiteral("</details>\n</figure>\n");
}

QString DownloadTable(const QVector<ReleaseFigures> &packages)
{
    QVector<QStringList> rows;
    for (const ReleaseFigures &package : packages) {
        rows.append({package.package, Grouped(package.downloads.downloads),
                     Grouped(package.downloads.interrupted), InterruptedShare(package.downloads),
                     InterruptedShare(package.before), Grouped(package.retries),
                     Grouped(package.ranges), Grouped(package.unanswered.refused),
                     Grouped(package.unanswered.tooMany), Grouped(package.unanswered.serverErrors),
                     Grouped(package.unanswered.ended)});
    }
    return Table({QStringLiteral("Package"), QStringLiteral("Begun"), QStringLiteral("Interrupted"),
                  QStringLiteral("Share"), QStringLiteral("Earlier releases"),
                  QStringLiteral("Retries"), QStringLiteral("Ranges"), QStringLiteral("4xx"),
                  QStringLiteral("429"), QStringLiteral("5xx"), QStringLiteral("Ended")},
                 rows);
}

QString CheckTable(const ProductFigures &product)
{
    const UnansweredRequests &requests = product.unansweredChecks;
    return Table({QStringLiteral("Checks"), QStringLiteral("Answered"),
                  QStringLiteral("With a release"), QStringLiteral("4xx"), QStringLiteral("429"),
                  QStringLiteral("5xx"), QStringLiteral("Ended")},
                 {{Grouped(product.checks), Grouped(product.answeredChecks),
                   Grouped(product.offers), Grouped(requests.refused), Grouped(requests.tooMany),
                   Grouped(requests.serverErrors), Grouped(requests.ended)}});
}

QString Heading(const QString &text)
{
    return QStringLiteral("<h3>%1</h3>\n").arg(text);
}

QString Note(const QString &text)
{
    return QStringLiteral("<p class=\"note\">%1</p>\n").arg(text);
}

/// @p id is the prefix of the ids of the product's charts.
QString ProductPart(const QString &id, const ProductFigures &product)
{
    const DailyFigures days = DailyFiguresOf(product, kMaxDays, SvgChart::Colours);
    QString part = QStringLiteral("<section>\n");
    if (!product.product.isEmpty())
        part += QStringLiteral("<h2>Product %1</h2>\n").arg(Html(product.product));
    part += Heading(QStringLiteral("Checks")) + CheckTable(product) + Note(UnansweredNote());
    if (!days.checks.isEmpty()) {
        part += DayFigure({id + QStringLiteral("-checks"), QStringLiteral("Checks per day"),
                           QStringLiteral("By installed version; days are UTC.")},
                          days.days, days.checks);
    }
    part += Heading(QStringLiteral("Releases"));
    for (int index = product.releases.size() - 1; index >= 0; --index) {
        part += FunnelFigure(QStringLiteral("%1-release%2").arg(id).arg(index),
                             product.releases.at(index));
    }
    if (product.releases.isEmpty())
        part += QStringLiteral("<p>No check was answered with a release.</p>\n");
    part += Heading(QStringLiteral("Downloads"));
    part += DayFigure({id + QStringLiteral("-downloads"), QStringLiteral("Downloads per day"),
                       QStringLiteral("Completed and interrupted; days are UTC.")},
                      days.days, {days.completed, days.interrupted});
    if (!product.releases.isEmpty())
        part += DownloadTable(product.releases);
    const QVector<ReleaseFigures> others = OtherPackages(product);
    if (!others.isEmpty())
        part +=
            Heading(QStringLiteral("Packages that no check was offered")) + DownloadTable(others);
    return part + QStringLiteral("</section>\n");
}

} // namespace

QByteArray ReportPage(const RolloutStatistics &statistics)
{
    QString page = QLatin1String(kHead) + ColourRules() +
                   QStringLiteral("</style>\n</head>\n<body>\n<h1>How the releases are doing</h1>\n"
                                  "<p>%1</p>\n")
                       .arg(Html(SourceText(statistics)));
    for (int index = 0; index < statistics.products.size(); ++index)
        page += ProductPart(QStringLiteral("product%1").arg(index), statistics.products.at(index));
    if (statistics.products.isEmpty())
        page += QStringLiteral("<p>The logs contain no checks and no downloads.</p>\n");
    return (page + QStringLiteral("</body>\n</html>\n")).toUtf8();
}
