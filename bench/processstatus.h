#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QtGlobal>

/// A number that the system tells of a process, such as "VmHWM" in KiB; fails the program when it
/// tells none.
double StatusNumber(qint64 processId, const QByteArray &key);

/// How often a thread has gone to sleep by itself so far, and so woken up, by the thread's name;
/// those of one name are summed up.
QMap<QByteArray, double> SleepCounts(qint64 processId);
