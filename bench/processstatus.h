// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QtGlobal>

/// A number from /proc/PID/status, such as "VmHWM" in KiB; ends the program with an error without
/// one.
double StatusNumber(qint64 processId, const QByteArray &key);

/// How often each thread has gone to sleep by itself so far, and therefore woken up, by the
/// thread's name. Threads of the same name are added up.
QMap<QByteArray, double> SleepCounts(qint64 processId);
