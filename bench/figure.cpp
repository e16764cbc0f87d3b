// SPDX-License-Identifier: MIT
#include "bench/figure.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

namespace
{

QString Word(Figure::Judged judged)
{
    switch (judged) {
    case Figure::Ratio:
        return QStringLiteral("ratio");
    case Figure::Difference:
        return QStringLiteral("difference");
    case Figure::Worst:
        return QStringLiteral("worst");
    case Figure::Nothing:
        break;
    }
    return QString();
}

QJsonArray Numbers(const QVector<double> &values)
{
    QJsonArray numbers;
    for (const double value : values)
        numbers.append(value);
    return numbers;
}

void OnlyTrouble(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    if (type == QtFatalMsg)
        std::fprintf(stderr, "%s\n", qPrintable(text));
}

} // namespace

void Print(const Figure &figure)
{
    const QJsonObject line{{QStringLiteral("name"), figure.name},
                           {QStringLiteral("unit"), figure.unit},
                           {QStringLiteral("ours"), Numbers(figure.ours)},
                           {QStringLiteral("comparedWith"), figure.comparedWith},
                           {QStringLiteral("theirs"), Numbers(figure.theirs)},
                           {QStringLiteral("judged"), Word(figure.judged)},
                           {QStringLiteral("bound"), figure.bound},
                           {QStringLiteral("chart"), figure.chart},
                           {QStringLiteral("x"), figure.x}};
    std::printf("%s\n", QJsonDocument(line).toJson(QJsonDocument::Compact).constData());
    std::fflush(stdout);
}

double Milliseconds(const std::function<void()> &action)
{
    QElapsedTimer timer;
    timer.start();
    action();
    return double(timer.nsecsElapsed()) / 1e6;
}

void KeepQuiet()
{
    qInstallMessageHandler(OnlyTrouble);
}
