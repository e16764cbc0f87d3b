#pragma once

#include <QElapsedTimer>
#include <QString>
#include <QtGlobal>

/**
 * Tells on the standard error stream how far a long step is: a bar that moves on a terminal, one
 * line a step otherwise. Main thread.
 */
class Progress
{
public:
    enum Style { Silent, Lines, Bar };

    explicit Progress(Style style) : m_style(style) {}
    ~Progress() { End(); }
    Q_DISABLE_COPY(Progress)

    /// A step of @p total bytes, named as in "packing"; ends the one before.
    void Begin(const QString &step, qint64 total);

    /// @p bytes more are done. False when the user has asked to end instead.
    bool Advance(qint64 bytes);

    /// Takes the bar away.
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
