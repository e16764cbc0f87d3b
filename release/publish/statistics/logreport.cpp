// SPDX-License-Identifier: MIT
#include "release/publish/statistics/logreport.h"

#include "release/publish/base/cannotwrite.h"
#include "release/publish/rules/releaserules.h"
#include "release/publish/statistics/dailyseries.h"
#include "release/publish/statistics/figuretext.h"
#include "release/publish/statistics/reportpage.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QSaveFile>
#include <QVector>

#include <algorithm>

namespace
{

using ReleaseRules::Shown;

/// As many as fit on a terminal.
constexpr int kMaxDays = 14;
constexpr int kMaxVersions = 6;

/// A table for a terminal. The first column is left-aligned, the others are right-aligned.
class TextTable
{
public:
    explicit TextTable(const QStringList &head) { Add(head); }

    void Add(const QStringList &cells) { m_rows.append(cells); }

    QString Text() const
    {
        QString text;
        for (const QStringList &row : m_rows) {
            QString line;
            for (int column = 0; column < row.size(); ++column) {
                const int width = column == 0 ? -WidthOf(column) : WidthOf(column);
                line += QStringLiteral("  %1").arg(row.at(column), width);
            }
            while (line.endsWith(QLatin1Char(' ')))
                line.chop(1);
            text += line + QLatin1Char('\n');
        }
        return text;
    }

private:
    int WidthOf(int column) const
    {
        int width = 0;
        for (const QStringList &row : m_rows)
            width = qMax(width, row.at(column).size());
        return width;
    }

    QVector<QStringList> m_rows;
};

/// The last columns of all tables about requests.
const QStringList kUnansweredHead{QStringLiteral("4xx"), QStringLiteral("429"),
                                  QStringLiteral("5xx"), QStringLiteral("ended")};

QStringList Cells(const UnansweredRequests &requests)
{
    return {Grouped(requests.refused), Grouped(requests.tooMany), Grouped(requests.serverErrors),
            Grouped(requests.ended)};
}

QString CheckTable(const ProductFigures &product)
{
    TextTable table(QStringList{QStringLiteral("checks"), QStringLiteral("answered"),
                                QStringLiteral("with a release")} +
                    kUnansweredHead);
    table.Add(QStringList{Grouped(product.checks), Grouped(product.answeredChecks),
                          Grouped(product.offers)} +
              Cells(product.unansweredChecks));
    return table.Text();
}

QString ReleaseTable(const QVector<ReleaseFigures> &releases)
{
    TextTable table({QStringLiteral("networks"), QStringLiteral("offered"),
                     QStringLiteral("started"), QStringLiteral("completed"),
                     QStringLiteral("came back"), QStringLiteral("without it"),
                     QStringLiteral("in ranges")});
    for (const ReleaseFigures &release : releases) {
        table.Add({Shown(release.version), Grouped(release.offered), Grouped(release.started),
                   Grouped(release.completed), Grouped(release.cameBack),
                   Grouped(release.cameBackWithout), Grouped(release.inRanges)});
    }
    return table.Text();
}

QString DownloadTable(const QString &title, const QVector<ReleaseFigures> &packages)
{
    TextTable table(QStringList{title, QStringLiteral("begun"), QStringLiteral("interrupted"),
                                QStringLiteral("share"), QStringLiteral("before"),
                                QStringLiteral("retries"), QStringLiteral("ranges")} +
                    kUnansweredHead);
    for (const ReleaseFigures &package : packages) {
        table.Add(QStringList{Shown(package.package), Grouped(package.downloads.downloads),
                              Grouped(package.downloads.interrupted),
                              InterruptedShare(package.downloads), InterruptedShare(package.before),
                              Grouped(package.retries), Grouped(package.ranges)} +
                  Cells(package.unanswered));
    }
    return table.Text();
}

QString DayTable(const ProductFigures &product)
{
    const DailyFigures figures = DailyFiguresOf(product, kMaxDays, kMaxVersions);
    QStringList head{QStringLiteral("checks a day from")};
    for (const DailySeries &series : figures.checks)
        head.append(Shown(series.name));
    TextTable table(head);
    for (int day = 0; day < figures.days.size(); ++day) {
        QStringList row{figures.days.at(day).toString(Qt::ISODate)};
        for (const DailySeries &series : figures.checks)
            row.append(Grouped(series.values.at(day)));
        table.Add(row);
    }
    return table.Text();
}

QString ProductText(const ProductFigures &product)
{
    QStringList parts;
    if (!product.product.isEmpty())
        parts.append(QStringLiteral("Product %1\n").arg(Shown(product.product)));
    parts.append(CheckTable(product));
    if (!product.releases.isEmpty()) {
        parts.append(ReleaseTable(product.releases));
        parts.append(DownloadTable(QStringLiteral("downloads"), product.releases));
    }
    const QVector<ReleaseFigures> others = OtherPackages(product);
    if (!others.isEmpty())
        parts.append(DownloadTable(QStringLiteral("other packages"), others));
    parts.append(DayTable(product));
    return parts.join(QLatin1Char('\n'));
}

void Insert(const UnansweredRequests &requests, QJsonObject &object)
{
    object.insert(QStringLiteral("refused"), requests.refused);
    object.insert(QStringLiteral("tooMany"), requests.tooMany);
    object.insert(QStringLiteral("serverErrors"), requests.serverErrors);
    object.insert(QStringLiteral("ended"), requests.ended);
}

void Insert(const DownloadFigures &downloads, QJsonObject &object)
{
    object.insert(QStringLiteral("downloads"), downloads.downloads);
    object.insert(QStringLiteral("interrupted"), downloads.interrupted);
}

QJsonValue TimeValue(std::optional<qint64> time)
{
    return time ? QJsonValue(UtcTime(*time).toString(Qt::ISODate)) : QJsonValue();
}

QJsonObject RequestFacts(const ReleaseFigures &package)
{
    QJsonObject facts{{QStringLiteral("offers"), package.offers},
                      {QStringLiteral("retries"), package.retries},
                      {QStringLiteral("ranges"), package.ranges},
                      {QStringLiteral("unchanged"), package.unchanged},
                      {QStringLiteral("unsatisfiable"), package.unsatisfiable},
                      {QStringLiteral("heads"), package.heads},
                      {QStringLiteral("bytes"), package.bytes}};
    Insert(package.downloads, facts);
    Insert(package.unanswered, facts);
    return facts;
}

QJsonArray PackageFacts(const QVector<ReleaseFigures> &packages)
{
    QJsonArray facts;
    for (const ReleaseFigures &package : packages) {
        QJsonObject before;
        Insert(package.before, before);
        const bool isOffered = package.firstOffered > 0;
        facts.append(QJsonObject{
            {QStringLiteral("version"), isOffered ? QJsonValue(package.version) : QJsonValue()},
            {QStringLiteral("package"), package.package},
            {QStringLiteral("firstOffered"),
             isOffered ? TimeValue(package.firstOffered) : QJsonValue()},
            {QStringLiteral("networks"),
             QJsonObject{{QStringLiteral("offered"), package.offered},
                         {QStringLiteral("started"), package.started},
                         {QStringLiteral("completed"), package.completed},
                         {QStringLiteral("cameBack"), package.cameBack},
                         {QStringLiteral("cameBackWithout"), package.cameBackWithout},
                         {QStringLiteral("inRanges"), package.inRanges}}},
            {QStringLiteral("requests"), RequestFacts(package)},
            {QStringLiteral("before"), before}});
    }
    return facts;
}

QJsonArray DayFacts(const QVector<DayFigures> &days)
{
    QJsonArray facts;
    for (const DayFigures &day : days) {
        QJsonArray checks;
        for (const CheckCount &check : day.checks) {
            checks.append(QJsonObject{{QStringLiteral("version"),
                                       check.version ? QJsonValue(*check.version) : QJsonValue()},
                                      {QStringLiteral("answer"), check.answer},
                                      {QStringLiteral("count"), check.count}});
        }
        QJsonObject object{{QStringLiteral("day"), day.day.toString(Qt::ISODate)},
                           {QStringLiteral("checks"), checks},
                           {QStringLiteral("bytes"), day.bytes}};
        Insert(day.downloads, object);
        facts.append(object);
    }
    return facts;
}

QJsonObject ProductFacts(const ProductFigures &product)
{
    QJsonObject checks{{QStringLiteral("total"), product.checks},
                       {QStringLiteral("answered"), product.answeredChecks},
                       {QStringLiteral("offers"), product.offers}};
    Insert(product.unansweredChecks, checks);
    QJsonObject unknownPackages;
    Insert(product.unknownPackages, unknownPackages);
    return {{QStringLiteral("product"), product.product},
            {QStringLiteral("checks"), checks},
            {QStringLiteral("unknownPackages"), unknownPackages},
            {QStringLiteral("releases"), PackageFacts(product.releases)},
            {QStringLiteral("otherPackages"), PackageFacts(product.otherPackages)},
            {QStringLiteral("days"), DayFacts(product.days)}};
}

/// Replaces the page atomically.
Failure WritePage(const QString &path, const QByteArray &page)
{
    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly) && file.write(page) == page.size() && file.commit())
        return {};
    Finding failure =
        QFileInfo(path).dir().exists()
            ? CannotWrite(file)
            : CannotWrite(path, file.errorString(), QStringLiteral("create the folder"));
    failure.path = path;
    return failure;
}

/// Whether @p path is one of @p logs, even under another name.
bool IsOneOf(const QStringList &logs, const QString &path)
{
    const QString canonicalPath =
        QFileInfo(path).canonicalFilePath(); // empty when there is no file
    return !canonicalPath.isEmpty() &&
           std::any_of(logs.cbegin(), logs.cend(), [&canonicalPath](const QString &log) {
               return QFileInfo(log).canonicalFilePath() == canonicalPath;
           });
}

} // namespace

QString ReportText(const RolloutStatistics &statistics)
{
    QStringList parts{SourceText(statistics) + QLatin1Char('\n')};
    for (const ProductFigures &product : statistics.products)
        parts.append(ProductText(product));
    return parts.join(QLatin1Char('\n'));
}

QJsonObject ReportFacts(const RolloutStatistics &statistics)
{
    QJsonArray products;
    for (const ProductFigures &product : statistics.products)
        products.append(ProductFacts(product));
    return {{QStringLiteral("logs"), statistics.files},
            {QStringLiteral("lines"), statistics.lines},
            {QStringLiteral("damagedLines"), statistics.damagedLines},
            {QStringLiteral("otherRequests"), statistics.otherRequests},
            {QStringLiteral("from"), TimeValue(statistics.firstTime)},
            {QStringLiteral("to"), TimeValue(statistics.lastTime)},
            {QStringLiteral("products"), products}};
}

Outcome ReportLogs(const ReportOptions &options, Progress &progress)
{
    Outcome outcome;
    if (IsOneOf(options.logs, options.htmlFile)) {
        outcome.refusals.append({QStringLiteral("html"), options.htmlFile,
                                 QStringLiteral("%1 is one of the logs; give the page another name")
                                     .arg(options.htmlFile)});
        return outcome;
    }
    RolloutStatistics statistics;
    if (const Failure failure = ReadLogs({options.logs, {}}, progress, statistics)) {
        outcome.refusals.append(*failure);
        return outcome;
    }
    outcome.warnings = statistics.warnings;
    if (!options.htmlFile.isEmpty()) {
        if (const Failure failure = WritePage(options.htmlFile, ReportPage(statistics))) {
            outcome.refusals.append(*failure);
            return outcome;
        }
    }
    outcome.summary = ReportText(statistics);
    outcome.facts = ReportFacts(statistics);
    if (!options.htmlFile.isEmpty()) {
        outcome.summary += QStringLiteral("\nThe page is in %1.\n").arg(options.htmlFile);
        outcome.facts.insert(QStringLiteral("html"), options.htmlFile);
    }
    return outcome;
}
