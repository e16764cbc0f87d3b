#pragma once

#include "release/publish/statistics/dailyseries.h"

#include <QDate>
#include <QString>
#include <QVector>
#include <QtGlobal>

/**
 * Charts as SVG inside an HTML page. They take the width of their place and keep the size of their
 * letters, have a title and a description for screen readers, and a tooltip on every bar. The page
 * defines the classes of their colours: "series0" to "series7", "others", "bad", "rail" and "grid".
 * Pure.
 */
namespace SvgChart
{

/// How many series have a colour of their own.
constexpr int Colours = 8;

/// What a screen reader says about the picture. @p id is unique in the page.
struct Labels {
    QString id;
    QString title;
    QString description;
};

/// One bar a day, stacked of @p series; the first is at the bottom.
QString StackedDays(const Labels &labels, const QVector<QDate> &days,
                    const QVector<DailySeries> &series);

/// The class of the colour of a series of StackedDays(), for its legend.
QString ColourClass(int series);

/// A stage of a funnel.
struct Stage {
    QString name;
    qint64 value;
    QString share; ///< of the first stage, as a text
    bool isBad;    ///< the fewer the better
};

/// One bar below the other; the longest takes the whole width.
QString Funnel(const Labels &labels, const QVector<Stage> &stages);

} // namespace SvgChart
