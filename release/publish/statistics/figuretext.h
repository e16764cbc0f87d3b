#pragma once

#include "release/publish/statistics/rolloutstatistics.h"

#include <QDateTime>
#include <QString>
#include <QVector>
#include <QtGlobal>

/// As people read a number: "1,234,567".
QString Grouped(qint64 number);

/// @p part of @p whole as "5.2 %"; a dash when there is no whole.
QString Share(qint64 part, qint64 whole);

QString InterruptedShare(const DownloadFigures &downloads);

/// The packages that no check was offered, with one more entry for the requests for unknown ones.
QVector<ReleaseFigures> OtherPackages(const ProductFigures &product);

/// What the columns of unanswered requests count.
QString UnansweredNote();

/// @p seconds since 1970.
QDateTime UtcTime(qint64 seconds);

/// What was read, in one or two sentences.
QString SourceText(const RolloutStatistics &statistics);
