// SPDX-License-Identifier: MIT
#include "tests/support/windowserver.h"

#include <QRegularExpression>
#include <QStringList>
#include <QTest>

namespace
{

struct XdotoolResult {
    QString output;
    QByteArray errors;
};

XdotoolResult Xdotool(const QStringList &arguments)
{
    QProcess xdotool;
    xdotool.start(QStringLiteral("xdotool"), arguments);
    if (!xdotool.waitForFinished())
        qFatal("xdotool: %s", qPrintable(xdotool.errorString()));
    return {QString::fromLatin1(xdotool.readAllStandardOutput()).trimmed(),
            xdotool.readAllStandardError()};
}

} // namespace

QStringList VisibleWindows(const QString &title)
{
    XdotoolResult search;
    do {
        search = Xdotool({QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                          QStringLiteral("--name"),
                          QLatin1Char('^') + QRegularExpression::escape(title) + QLatin1Char('$')});
        // Finds nothing at all when another window closes while xdotool looks at it.
    } while (search.errors.contains("BadWindow"));
    return search.output.split(QLatin1Char('\n'));
}

WindowServer::WindowServer()
{
    m_server.setProcessChannelMode(QProcess::SeparateChannels);
    // Without "-noreset" the server restarts whenever its last client leaves, usually an xdotool,
    // and refuses programs that connect at that moment. The screen's size has to be a whole number
    // of millimetres, or the resolution would not be exactly 96 dpi.
    m_server.start(QStringLiteral("Xvfb"),
                   {QStringLiteral("-displayfd"), QStringLiteral("1"), QStringLiteral("-noreset"),
                    QStringLiteral("-screen"), QStringLiteral("0"), QStringLiteral("1440x960x24"),
                    QStringLiteral("-dpi"), QStringLiteral("96"), QStringLiteral("-nolisten"),
                    QStringLiteral("tcp")});
    if (!m_server.waitForReadyRead(30000))
        qFatal("Xvfb does not start: %s", qPrintable(m_server.errorString()));
    qputenv("DISPLAY", ':' + m_server.readLine().trimmed());
    qputenv("QT_QPA_PLATFORM", "xcb");
    // The dialogs do not use OpenGL, and its driver leaks.
    qputenv("QT_XCB_GL_INTEGRATION", "none");
}

WindowServer::~WindowServer()
{
    m_server.terminate();
    m_server.waitForFinished();
}

QString WindowServer::WaitForWindow(const QString &title, const QString &former) const
{
    QString found;
    const auto isThere = [&] {
        found = VisibleWindows(title).last();
        return !found.isEmpty() && found != former;
    };
    if (!QTest::qWaitFor(isThere, 30000))
        qFatal("no window \"%s\" came up", qPrintable(title));
    return found;
}

bool WindowServer::HasWindow(const QString &title) const
{
    return !VisibleWindows(title).last().isEmpty();
}

QSize WindowServer::Size(const QString &window) const
{
    const QString geometry =
        Xdotool({QStringLiteral("getwindowgeometry"), QStringLiteral("--shell"), window}).output;
    static const QRegularExpression form(QStringLiteral("WIDTH=(\\d+)\nHEIGHT=(\\d+)"));
    const QRegularExpressionMatch size = form.match(geometry);
    return QSize(size.captured(1).toInt(), size.captured(2).toInt());
}

void WindowServer::Click(const QString &window, const QPoint &position) const
{
    Xdotool({QStringLiteral("mousemove"), QStringLiteral("--window"), window,
             QString::number(position.x()), QString::number(position.y()), QStringLiteral("click"),
             QStringLiteral("1")});
}

void WindowServer::Press(const QString &window, const QString &key) const
{
    Xdotool({QStringLiteral("windowfocus"), QStringLiteral("--sync"), window, QStringLiteral("key"),
             key});
}
