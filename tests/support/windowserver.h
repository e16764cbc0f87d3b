// SPDX-License-Identifier: MIT
#pragma once

#include <QPoint>
#include <QProcess>
#include <QSize>
#include <QString>
#include <QStringList>

/// The numbers of the visible windows titled @p title, in no particular order; on Unix one empty
/// number when there is none.
QStringList VisibleWindows(const QString &title);

/**
 * A window server and its user, who presses buttons and keys. On Unix the test starts a server of
 * its own; on Windows it uses the session's. Programs started from here on show their windows
 * there. GUI thread.
 */
class WindowServer
{
public:
    WindowServer();
    ~WindowServer();

    /**
     * Waits for a visible window titled @p title other than @p former and returns its number; fails
     * the program when there is none in time.
     */
    QString WaitForWindow(const QString &title, const QString &former = QString()) const;

    /// True while a window titled @p title is visible.
    bool HasWindow(const QString &title) const;

    /// The size of the window in pixels, without its frame.
    QSize Size(const QString &window) const;

    /// Clicks with the left mouse button at @p position in the window.
    void Click(const QString &window, const QPoint &position) const;

    /// Focuses the window and presses a key: "Escape" or "Return".
    void Press(const QString &window, const QString &key) const;

private:
    Q_DISABLE_COPY(WindowServer)

    QProcess m_server; // not started on Windows
};
