// SPDX-License-Identifier: MIT
#pragma once

#include "release/publish/statistics/dailyseries.h"

#include <QDate>
#include <QString>
#include <QVector>
#include <QtGlobal>

/**
 * Charts as SVG in an HTML page. They fill the available width without scaling the text, and have a
 * title and a description for screen readers and a tooltip on every bar. The page defines their
 * colours in the classes "series0" to "series7", "others", "bad", "rail" and "grid". Pure
 * functions.
 */
namespace SvgChart
{

/// How many series have their own colour.
constexpr int Colours = 8;

/// Texts for screen readers. The id must be unique in the page.
struct Labels {
    QString id;
    QString title;
    QString description;
};

/// One stacked bar per day; the first of @p series is at the bottom.
QString StackedDays(const Labels &labels, const QVector<QDate> &days,
                    const QVector<DailySeries> &series);

/// The colour class of a series in StackedDays(), for the legend.
QString ColourClass(int series);

/// A stage of a funnel.
struct Stage {
    QString name;
    qint64 value;
    QString share; ///< of the first stage, as text
    bool isBad;    ///< a stage that should be small
};

/// One bar per line; the longest fills the width.
QString Funnel(const Labels &labels, const QVector<Stage> &stages);

} // namespace SvgChart
