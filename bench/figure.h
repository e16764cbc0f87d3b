#pragma once

#include <QString>
#include <QVector>

#include <functional>

/**
 * One row of the table: what this program took in several runs, what something else took for the
 * same, and how much of it is allowed. Only measured here; scripts/lib/speed.py forms medians,
 * holds them against the bounds, and draws.
 */
struct Figure {
    /// What is held against the bound.
    enum Judged {
        Nothing,
        Ratio,      ///< of the two medians
        Difference, ///< of the two medians
        Worst       ///< of our runs
    };

    QString name;
    QString unit; ///< of every number but a ratio: "ms", "MiB", …
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

/// Keeps the log lines of what runs inside this process out of the way; what is fatal is told.
void KeepQuiet();
