// SPDX-License-Identifier: MIT
#pragma once

#include "release/publish/statistics/rolloutstatistics.h"

#include <QDate>
#include <QString>
#include <QVector>
#include <QtGlobal>

/// A named series with one value per day.
struct DailySeries {
    QString name;
    QVector<qint64> values;
};

/// The figures of a product per day, without gaps, for tables and charts.
struct DailyFigures {
    QVector<QDate> days;
    QVector<DailySeries> checks; ///< by installed version: the most frequent first, "others" last
    DailySeries completed;       ///< downloads
    DailySeries interrupted;     ///< downloads
};

/// The last @p maxDays of @p product, with the @p maxVersions most frequent versions. Pure
/// function.
DailyFigures DailyFiguresOf(const ProductFigures &product, int maxDays, int maxVersions);
