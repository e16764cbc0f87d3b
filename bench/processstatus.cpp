// SPDX-License-Identifier: MIT
#include "bench/processstatus.h"

#include "tests/support/testhome.h"

#include <QDir>
#include <QStringList>

namespace
{

QByteArray Value(const QString &path, const QByteArray &key)
{
    const QByteArray status = '\n' + ReadFile(path);
    const QByteArray head = '\n' + key + ':';
    const int start = status.indexOf(head);
    if (start < 0)
        qFatal("%s tells no %s", qPrintable(path), key.constData());
    return status.mid(start + head.size()).split('\n').first().trimmed();
}

} // namespace

double StatusNumber(qint64 processId, const QByteArray &key)
{
    const QByteArray value = Value(QStringLiteral("/proc/%1/status").arg(processId), key);
    return value.split(' ').first().toDouble(); // without the unit
}

QMap<QByteArray, double> SleepCounts(qint64 processId)
{
    const QString tasks = QStringLiteral("/proc/%1/task/").arg(processId);
    QMap<QByteArray, double> counts;
    const QStringList threads = QDir(tasks).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &thread : threads) {
        const QString status = tasks + thread + QStringLiteral("/status");
        counts[Value(status, "Name")] += Value(status, "voluntary_ctxt_switches").toDouble();
    }
    return counts;
}
