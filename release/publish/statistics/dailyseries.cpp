// SPDX-License-Identifier: MIT
#include "release/publish/statistics/dailyseries.h"

#include <QMap>

#include <algorithm>

namespace
{

QString NameOf(const std::optional<QString> &version)
{
    if (!version)
        return QStringLiteral("others");
    return version->isEmpty() ? QStringLiteral("unknown") : *version;
}

/// The names of the versions with the most checks, in that order.
QVector<QString> MostFrequentVersions(const QVector<DayFigures> &days, int count)
{
    QMap<QString, qint64> totals;
    for (const DayFigures &day : days) {
        for (const CheckCount &check : day.checks) {
            if (check.version)
                totals[NameOf(check.version)] += check.count;
        }
    }
    QVector<QString> names = totals.keys().toVector();
    std::stable_sort(names.begin(), names.end(),
                     [&totals](const QString &one, const QString &other) {
                         return totals.value(one) > totals.value(other);
                     });
    return names.mid(0, count);
}

} // namespace

DailyFigures DailyFiguresOf(const ProductFigures &product, int maxDays, int maxVersions)
{
    DailyFigures figures;
    if (product.days.isEmpty())
        return figures;
    const QDate last = product.days.constLast().day;
    const QDate first = std::max(product.days.constFirst().day, last.addDays(1 - maxDays));
    for (QDate day = first; day <= last; day = day.addDays(1))
        figures.days.append(day);
    const QVector<qint64> none(figures.days.size());

    const auto isBefore = [](const DayFigures &day, const QDate &date) { return day.day < date; };
    const auto begin =
        std::lower_bound(product.days.cbegin(), product.days.cend(), first, isBefore);
    const QVector<DayFigures> shown = product.days.mid(int(begin - product.days.cbegin()));
    for (const QString &name : MostFrequentVersions(shown, maxVersions))
        figures.checks.append({name, none});
    DailySeries others{NameOf({}), none};
    figures.completed = {QStringLiteral("completed"), none};
    figures.interrupted = {QStringLiteral("interrupted"), none};

    bool hasOthers = false;
    for (const DayFigures &day : shown) {
        const auto index = int(first.daysTo(day.day));
        for (const CheckCount &check : day.checks) {
            const QString name = NameOf(check.version);
            const auto series =
                std::find_if(figures.checks.begin(), figures.checks.end(),
                             [&name](const DailySeries &one) { return one.name == name; });
            hasOthers = hasOthers || series == figures.checks.end();
            (series == figures.checks.end() ? others : *series).values[index] += check.count;
        }
        figures.interrupted.values[index] = day.downloads.interrupted;
        figures.completed.values[index] = day.downloads.downloads - day.downloads.interrupted;
    }
    if (hasOthers)
        figures.checks.append(others);
    return figures;
}
