// SPDX-License-Identifier: MIT
#include "release/publish/statistics/svgchart.h"

#include "release/publish/rules/releaserules.h"
#include "release/publish/statistics/figuretext.h"

#include <cmath>

namespace
{

// In pixels.
constexpr int kPlotHeight = 200;
constexpr int kPlotTop = 10; // half a label is above the highest line
constexpr int kDayLabelBaseline = kPlotTop + kPlotHeight + 20;
constexpr int kDaysHeight = kDayLabelBaseline + 8;
constexpr int kLetterDrop = 4; // from the middle of a letter to the baseline
constexpr int kStageHeight = 44;
constexpr int kStageBaseline = 16;
constexpr int kStageBarTop = 22;
constexpr int kStageBarHeight = 14;

/// With fewer days, the bars do not become wider.
constexpr int kMinSlots = 7;
constexpr double kBarOfSlot = 0.8;
constexpr int kMaxDayLabels = 6;

/// The approximate number of lines across the plot.
constexpr int kValueLines = 4;

QString Html(const QString &text)
{
    return ReleaseRules::Shown(text).toHtmlEscaped();
}

QString Percent(double part)
{
    return QString::number(100 * part, 'f', 3) + QLatin1Char('%');
}

QString Begin(const SvgChart::Labels &labels, int height)
{
    return QStringLiteral("<svg role=\"img\" aria-labelledby=\"%1-title %1-text\" width=\"100%\" "
                          "height=\"%2\">\n<title id=\"%1-title\">%3</title>\n"
                          "<desc id=\"%1-text\">%4</desc>\n")
        .arg(labels.id, QString::number(height), Html(labels.title), Html(labels.description));
}

QString Bar(const QString &colour, double left, double width, double top, double height,
            const QString &tip)
{
    return QStringLiteral("<rect class=\"%1\" x=\"%2\" y=\"%3\" width=\"%4\" height=\"%5\">"
                          "<title>%6</title></rect>\n")
        .arg(colour, Percent(left), QString::number(top, 'f', 1), Percent(width),
             QString::number(height, 'f', 1), Html(tip));
}

/// A round number such that about kValueLines steps reach @p largest.
qint64 ValueStep(qint64 largest)
{
    const double rough = qMax(1.0, double(largest) / kValueLines);
    const double power = std::pow(10, std::floor(std::log10(rough)));
    for (const int factor : {1, 2, 5}) {
        if (factor * power >= rough)
            return qint64(factor * power);
    }
    return qint64(10 * power);
}

qint64 LargestSum(int days, const QVector<DailySeries> &series)
{
    qint64 largest = 1;
    for (int day = 0; day < days; ++day) {
        qint64 sum = 0;
        for (const DailySeries &one : series)
            sum += one.values.at(day);
        largest = qMax(largest, sum);
    }
    return largest;
}

QString ValueLine(double y, qint64 value)
{
    return QStringLiteral("<line class=\"grid\" x1=\"0\" x2=\"100%\" y1=\"%1\" y2=\"%1\"/>"
                          "<text x=\"-8\" y=\"%2\" text-anchor=\"end\">%3</text>\n")
        .arg(QString::number(y, 'f', 1), QString::number(y + kLetterDrop, 'f', 1), Grouped(value));
}

} // namespace

QString SvgChart::ColourClass(int series)
{
    return series < Colours ? QStringLiteral("series%1").arg(series) : QStringLiteral("others");
}

QString SvgChart::StackedDays(const Labels &labels, const QVector<QDate> &days,
                              const QVector<DailySeries> &series)
{
    const qint64 largest = LargestSum(days.size(), series);
    const qint64 step = ValueStep(largest);
    const qint64 top = (largest + step - 1) / step * step;
    const double bottom = kPlotTop + kPlotHeight;
    const auto heightOf = [top](qint64 value) { return kPlotHeight * double(value) / double(top); };

    QString svg = Begin(labels, kDaysHeight);
    for (qint64 value = 0; value <= top; value += step)
        svg += ValueLine(bottom - heightOf(value), value);

    const double slot = 1.0 / qMax(kMinSlots, days.size());
    const int labelEvery = (days.size() + kMaxDayLabels - 1) / kMaxDayLabels;
    for (int day = 0; day < days.size(); ++day) {
        const QString date = days.at(day).toString(Qt::ISODate);
        const double left = (day + (1 - kBarOfSlot) / 2) * slot;
        double y = bottom;
        for (int index = 0; index < series.size(); ++index) {
            const qint64 value = series.at(index).values.at(day);
            if (value == 0)
                continue;
            const double height = heightOf(value);
            y -= height;
            svg +=
                Bar(ColourClass(index), left, kBarOfSlot * slot, y, height,
                    QStringLiteral("%1, %2: %3").arg(date, series.at(index).name, Grouped(value)));
        }
        if (day % labelEvery == 0) {
            svg += QStringLiteral("<text x=\"%1\" y=\"%2\" text-anchor=\"middle\">%3</text>\n")
                       .arg(Percent((day + 0.5) * slot))
                       .arg(kDayLabelBaseline)
                       .arg(days.at(day).toString(QStringLiteral("MM-dd")));
        }
    }
    return svg + QStringLiteral("</svg>\n");
}

QString SvgChart::Funnel(const Labels &labels, const QVector<Stage> &stages)
{
    qint64 largest = 1;
    for (const Stage &stage : stages)
        largest = qMax(largest, stage.value);

    QString svg = Begin(labels, stages.size() * kStageHeight);
    for (int index = 0; index < stages.size(); ++index) {
        const Stage &stage = stages.at(index);
        const int top = index * kStageHeight;
        svg += QStringLiteral("<text x=\"0\" y=\"%1\">%2</text>"
                              "<text x=\"100%\" y=\"%1\" text-anchor=\"end\">%3 (%4)</text>\n"
                              "<rect class=\"rail\" x=\"0\" y=\"%5\" width=\"100%\" "
                              "height=\"%6\"/>\n")
                   .arg(QString::number(top + kStageBaseline), Html(stage.name),
                        Grouped(stage.value), stage.share, QString::number(top + kStageBarTop),
                        QString::number(kStageBarHeight));
        svg += Bar(stage.isBad ? QStringLiteral("bad") : ColourClass(0), 0,
                   double(stage.value) / double(largest), top + kStageBarTop, kStageBarHeight,
                   QStringLiteral("%1: %2").arg(stage.name, Grouped(stage.value)));
    }
    return svg + QStringLiteral("</svg>\n");
}
