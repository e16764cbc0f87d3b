#pragma once

#include "release/publish/statistics/rolloutstatistics.h"

#include <QDate>
#include <QString>
#include <QVector>
#include <QtGlobal>

/// What is counted under one name, a value for each day.
struct DailySeries {
    QString name;
    QVector<qint64> values;
};

/// The days of a product without gaps, for tables and charts.
struct DailyFigures {
    QVector<QDate> days;
    QVector<DailySeries> checks; ///< by installed version, the most frequent first, others last
    DailySeries completed;       ///< downloads
    DailySeries interrupted;     ///< downloads
};

/// The last days of @p product, @p maxDays at the most, with @p maxVersions told apart. Pure.
DailyFigures DailyFiguresOf(const ProductFigures &product, int maxDays, int maxVersions);
