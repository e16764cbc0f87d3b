// SPDX-License-Identifier: MIT
#pragma once

#include "release/publish/statistics/rolloutstatistics.h"

#include <QDateTime>
#include <QString>
#include <QVector>
#include <QtGlobal>

/// A number with grouped digits: "1,234,567".
QString Grouped(qint64 number);

/// The percentage of @p part in @p whole, such as "5.2 %"; a dash when @p whole is 0.
QString Share(qint64 part, qint64 whole);

QString InterruptedShare(const DownloadFigures &downloads);

/// The packages that no check was offered, and one more entry for requests for unknown packages.
QVector<ReleaseFigures> OtherPackages(const ProductFigures &product);

/// Explains the columns about unanswered requests.
QString UnansweredNote();

/// Converts @p seconds since 1970.
QDateTime UtcTime(qint64 seconds);

/// One or two sentences about what was read.
QString SourceText(const RolloutStatistics &statistics);
