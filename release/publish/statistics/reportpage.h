#pragma once

#include "release/publish/statistics/rolloutstatistics.h"

#include <QByteArray>

/**
 * @p statistics as one HTML file with charts and tables. It loads nothing and runs nothing,
 * whatever the logs hold, follows the reader's light or dark scheme and fits narrow windows. Pure.
 */
QByteArray ReportPage(const RolloutStatistics &statistics);
