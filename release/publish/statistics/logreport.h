#pragma once

#include "release/publish/base/progress.h"
#include "release/publish/base/report.h"
#include "release/publish/statistics/rolloutstatistics.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

/// What to report on, and where to.
struct ReportOptions {
    QStringList logs; ///< of any number of nodes, rotated or not, plain or gzip, in any order
    QString htmlFile; ///< a page with charts; empty: none
};

/// Reads the service's access logs and tells how the releases in them are doing. Main thread.
Outcome ReportLogs(const ReportOptions &options, Progress &progress);

/// @p statistics as a table for a terminal. Pure.
QString ReportText(const RolloutStatistics &statistics);

/// @p statistics for scripts; docs/report.md lists the keys. Pure.
QJsonObject ReportFacts(const RolloutStatistics &statistics);
