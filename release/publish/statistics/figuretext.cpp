// SPDX-License-Identifier: MIT
#include "release/publish/statistics/figuretext.h"

#include <QLocale>

namespace
{

QString Counted(qint64 count, const char *one, const char *many)
{
    return QStringLiteral("%1 %2").arg(Grouped(count), QLatin1String(count == 1 ? one : many));
}

QString Minute(qint64 time)
{
    return UtcTime(time).toString(QStringLiteral("yyyy-MM-dd HH:mm"));
}

} // namespace

QString Grouped(qint64 number)
{
    return QLocale(QLocale::English, QLocale::UnitedStates).toString(number);
}

QString Share(qint64 part, qint64 whole)
{
    if (whole == 0)
        return QStringLiteral("-");
    return QStringLiteral("%1 %").arg(100.0 * double(part) / double(whole), 0, 'f', 1);
}

QString InterruptedShare(const DownloadFigures &downloads)
{
    return Share(downloads.interrupted, downloads.downloads);
}

QVector<ReleaseFigures> OtherPackages(const ProductFigures &product)
{
    QVector<ReleaseFigures> packages = product.otherPackages;
    const UnansweredRequests &unknown = product.unknownPackages;
    if (unknown.refused + unknown.tooMany + unknown.serverErrors + unknown.ended > 0) {
        ReleaseFigures figures;
        figures.package = QStringLiteral("(unknown)");
        figures.unanswered = unknown;
        packages.append(figures);
    }
    return packages;
}

QString UnansweredNote()
{
    return QStringLiteral("4xx does not include 429, too many requests from one network. Ended: "
                          "the client disconnected before the answer.");
}

QDateTime UtcTime(qint64 seconds)
{
    return QDateTime::fromSecsSinceEpoch(seconds, Qt::UTC);
}

QString SourceText(const RolloutStatistics &statistics)
{
    QString text = QStringLiteral("Read %1 with %2")
                       .arg(Counted(statistics.files, "log", "logs"),
                            Counted(statistics.lines, "line", "lines"));
    if (statistics.firstTime && statistics.lastTime) {
        text += QStringLiteral(", %1 to %2 UTC")
                    .arg(Minute(*statistics.firstTime), Minute(*statistics.lastTime));
    }
    text += QLatin1Char('.');
    if (statistics.damagedLines > 0 || statistics.otherRequests > 0) {
        text += QStringLiteral(" Not counted: %1, %2.")
                    .arg(Counted(statistics.otherRequests, "other request", "other requests"),
                         Counted(statistics.damagedLines, "damaged line", "damaged lines"));
    }
    return text;
}
