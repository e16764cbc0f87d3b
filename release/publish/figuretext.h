#pragma once

#include "release/publish/rolloutstatistics.h"

#include <QDateTime>
#include <QString>
#include <QtGlobal>

/// As people read a number: "1,234,567".
QString Grouped(qint64 number);

/// @p part of @p whole as "5.2 %"; a dash when there is no whole.
QString Share(qint64 part, qint64 whole);

QString InterruptedShare(const DownloadFigures &downloads);

/// @p seconds since 1970.
QDateTime UtcTime(qint64 seconds);

/// What was read, in one or two sentences.
QString SourceText(const RolloutStatistics &statistics);
