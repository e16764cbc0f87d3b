#pragma once

#include <QPoint>
#include <QProcess>
#include <QSize>
#include <QString>

/**
 * A window server, and a user in front of it who presses buttons and keys. On Unix the server is
 * the test's own; on Windows it is the session's. Sets the environment so that programs started
 * from here on show their windows there. GUI thread.
 */
class WindowServer
{
public:
    WindowServer();
    ~WindowServer();

    /**
     * Waits for the one visible window titled @p title that is not @p former and returns its
     * number; fails the program when none comes up.
     */
    QString WaitForWindow(const QString &title, const QString &former = QString()) const;

    /// True while a window titled @p title is visible.
    bool HasWindow(const QString &title) const;

    /// The window's size in pixels, without its frame.
    QSize Size(const QString &window) const;

    /// A click of the left button at @p position in the window.
    void Click(const QString &window, const QPoint &position) const;

    /// Gives the window the focus and presses the key of that name: "Escape" or "Return".
    void Press(const QString &window, const QString &key) const;

private:
    Q_DISABLE_COPY(WindowServer)

    QProcess m_server; // not started on Windows
};
