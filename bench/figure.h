// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QVector>

#include <functional>

/**
 * One row of the table: the measurements of the updater in several runs, those of another program
 * that does the same, and the bound. scripts/lib/speed.py computes the medians, compares them with
 * the bounds and draws the charts.
 */
struct Figure {
    /// What is compared with the bound.
    enum Judged {
        Nothing,
        Ratio,      ///< of the two medians
        Difference, ///< of the two medians
        Worst       ///< of our runs
    };

    QString name;
    QString unit; ///< of all numbers except a ratio: "ms", "MiB", …
    QVector<double> ours;
    QString comparedWith;
    QVector<double> theirs; ///< empty when there is nothing to compare with
    Judged judged = Nothing;
    double bound = 0;

    /// The chart in which this row is one point, and where; empty for none.
    QString chart;
    double x = 0;
};

/// Writes @p figure to the standard output as one line of JSON.
void Print(const Figure &figure);

/// How long @p action takes, in milliseconds.
double Milliseconds(const std::function<void()> &action);

/// Suppresses Qt's messages in this process, except fatal ones.
void KeepQuiet();
