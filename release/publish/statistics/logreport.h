// SPDX-License-Identifier: MIT
#pragma once

#include "release/publish/base/progress.h"
#include "release/publish/base/report.h"
#include "release/publish/statistics/rolloutstatistics.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

/// What to report on and where to write the page.
struct ReportOptions {
    QStringList logs; ///< of any number of nodes, rotated or not, plain or gzip, in any order
    QString htmlFile; ///< where to write a page with charts; empty: nowhere
};

/// Reads the service's access logs and reports how the releases are doing. Main thread.
Outcome ReportLogs(const ReportOptions &options, Progress &progress);

/// @p statistics as tables for a terminal. Pure function.
QString ReportText(const RolloutStatistics &statistics);

/// @p statistics for scripts; docs/report.md lists the keys. Pure function.
QJsonObject ReportFacts(const RolloutStatistics &statistics);
