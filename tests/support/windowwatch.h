// SPDX-License-Identifier: MIT
#pragma once

#include <QJsonObject>
#include <QString>
#include <QVector>

/**
 * Sees the windows of another program as its user does, and presses their buttons. A plugin of Qt
 * (windowwatch_plugin.cpp) does this inside the program, which stays as it is shipped; it looks 50
 * times a second, so do not measure with it what a program does while idle. Unix only; GUI thread.
 */
class WindowWatch
{
public:
    /// Watches the programs that are started from here on. @p file must not exist yet.
    explicit WindowWatch(QString file);

    /// What is shown now: {"WINDOW": {"WIDGET": "text", ...}, ...}, by object names.
    QJsonObject Now() const;

    /// The same for each change so far, in order.
    QVector<QJsonObject> Changes() const;

    /// Waits until a window or a widget of this object name is visible; false when it never is.
    bool WaitFor(const QString &name, int timeoutMs = 30000) const;

    /// Presses the button, or closes the window, of this object name once it is visible; false when
    /// it never is.
    bool Press(const QString &name, int timeoutMs = 30000) const;

private:
    Q_DISABLE_COPY(WindowWatch)

    const QString m_file;
};
