// SPDX-License-Identifier: MIT
#include "tests/support/windowserver.h"

#include <QStringList>
#include <QTest>

#include <iterator>
#include <windows.h>

namespace
{

struct Search {
    QString title;
    QStringList found;
};

QString Title(HWND window)
{
    wchar_t text[256];
    const int length = GetWindowTextW(window, text, int(std::size(text)));
    return QString::fromWCharArray(text, length);
}

BOOL CALLBACK Examine(HWND window, LPARAM search)
{
    auto *wanted = reinterpret_cast<Search *>(search);
    if (IsWindowVisible(window) && Title(window) == wanted->title)
        wanted->found.append(QString::number(quintptr(window)));
    return TRUE;
}

} // namespace

QStringList VisibleWindows(const QString &title)
{
    Search search{title, {}};
    EnumWindows(Examine, reinterpret_cast<LPARAM>(&search));
    return search.found;
}

namespace
{

HWND Handle(const QString &window)
{
    return reinterpret_cast<HWND>(quintptr(window.toULongLong()));
}

void Send(INPUT *inputs, UINT count)
{
    if (SendInput(count, inputs, sizeof(INPUT)) != count)
        qFatal("no input was taken: error %lu", GetLastError());
}

/// A coordinate for input events, which divide the screen into 65536 parts.
LONG Normalized(LONG pixel, int screenPixels)
{
    return (pixel * 65536 + screenPixels / 2) / screenPixels;
}

WORD KeyCode(const QString &key)
{
    if (key == QLatin1String("Escape"))
        return VK_ESCAPE;
    if (key == QLatin1String("Return"))
        return VK_RETURN;
    qFatal("no key is named %s", qPrintable(key));
}

} // namespace

// The session already has a window server.
WindowServer::WindowServer()
{
    qputenv("QT_QPA_PLATFORM", "windows");
}

WindowServer::~WindowServer() = default;

QString WindowServer::WaitForWindow(const QString &title, const QString &former) const
{
    QString found;
    const auto isThere = [&] {
        QStringList windows = VisibleWindows(title);
        windows.removeAll(former);
        found = windows.value(0);
        return !found.isEmpty();
    };
    if (!QTest::qWaitFor(isThere, 30000))
        qFatal("no window \"%s\" came up", qPrintable(title));
    return found;
}

bool WindowServer::HasWindow(const QString &title) const
{
    return !VisibleWindows(title).isEmpty();
}

QSize WindowServer::Size(const QString &window) const
{
    RECT area{};
    GetClientRect(Handle(window), &area);
    return QSize(area.right, area.bottom);
}

void WindowServer::Click(const QString &window, const QPoint &position) const
{
    // A new window may still be moved or lie below another one.
    POINT point{};
    const auto isUnderThePointer = [&] {
        point = {position.x(), position.y()};
        return ClientToScreen(Handle(window), &point) && SetCursorPos(point.x, point.y) &&
               WindowFromPoint(point) == Handle(window) && GetForegroundWindow() == Handle(window);
    };
    if (!QTest::qWaitFor(isUnderThePointer, 30000))
        qFatal("the window does not come to the front");
    // Each event repeats the position, because a late report may have moved the pointer.
    INPUT inputs[2] = {};
    for (INPUT &input : inputs) {
        input.type = INPUT_MOUSE;
        input.mi.dx = Normalized(point.x, GetSystemMetrics(SM_CXSCREEN));
        input.mi.dy = Normalized(point.y, GetSystemMetrics(SM_CYSCREEN));
        input.mi.dwFlags = MOUSEEVENTF_ABSOLUTE | MOUSEEVENTF_MOVE;
    }
    inputs[0].mi.dwFlags |= MOUSEEVENTF_LEFTDOWN;
    inputs[1].mi.dwFlags |= MOUSEEVENTF_LEFTUP;
    Send(inputs, 2);
}

void WindowServer::Press(const QString &window, const QString &key) const
{
    // A visible window may not have the keyboard yet, and an earlier key is lost.
    const auto hasTheKeyboard = [&] {
        GUITHREADINFO thread{};
        thread.cbSize = sizeof thread;
        SetForegroundWindow(Handle(window));
        return GetForegroundWindow() == Handle(window) &&
               GetGUIThreadInfo(GetWindowThreadProcessId(Handle(window), nullptr), &thread) &&
               thread.hwndFocus == Handle(window);
    };
    if (!QTest::qWaitFor(hasTheKeyboard, 30000))
        qFatal("the window does not get the keyboard");
    INPUT inputs[2] = {};
    for (INPUT &input : inputs) {
        input.type = INPUT_KEYBOARD;
        input.ki.wVk = KeyCode(key);
    }
    inputs[1].ki.dwFlags = KEYEVENTF_KEYUP;
    Send(inputs, 2);
}
