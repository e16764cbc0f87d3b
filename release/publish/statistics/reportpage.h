// SPDX-License-Identifier: MIT
#pragma once

#include "release/publish/statistics/rolloutstatistics.h"

#include <QByteArray>

/**
 * @p statistics as one HTML file with charts and tables. It loads and runs nothing, whatever the
 * logs contain, follows the reader's light or dark colour scheme and fits narrow windows. Pure
 * function.
 */
QByteArray ReportPage(const RolloutStatistics &statistics);
