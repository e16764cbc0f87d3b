// SPDX-License-Identifier: MIT
#pragma once

#include <QElapsedTimer>
#include <QString>
#include <QtGlobal>

/**
 * Shows the progress of long steps on standard error: as a bar on a terminal, otherwise as one line
 * per step. Main thread.
 */
class Progress
{
public:
    enum Style { Silent, Lines, Bar };

    explicit Progress(Style style) : m_style(style) {}
    ~Progress() { End(); }
    Q_DISABLE_COPY(Progress)

    /// Begins a step of @p total bytes, such as "packing", and ends the previous one.
    void Begin(const QString &step, qint64 total);

    /// Reports that @p bytes more are done. False when the user has interrupted the command.
    bool Advance(qint64 bytes);

    /// Removes the bar.
    void End();

private:
    void Draw();

    Style m_style;
    QString m_step;
    qint64 m_total = 0;
    qint64 m_done = 0;
    bool m_drawn = false;
    QElapsedTimer m_sinceDrawn;
};
