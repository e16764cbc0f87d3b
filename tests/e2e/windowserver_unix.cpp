#include "tests/e2e/windowserver.h"

#include <QRegularExpression>
#include <QStringList>
#include <QTest>

namespace
{

/// What xdotool says; empty when it fails, as it does when a search finds nothing.
QString Xdotool(const QStringList &arguments)
{
    QProcess xdotool;
    xdotool.start(QStringLiteral("xdotool"), arguments);
    if (!xdotool.waitForFinished())
        qFatal("xdotool: %s", qPrintable(xdotool.errorString()));
    return QString::fromLatin1(xdotool.readAllStandardOutput()).trimmed();
}

QStringList VisibleWindows(const QString &title)
{
    return Xdotool({QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                    QStringLiteral("--name"),
                    QLatin1Char('^') + QRegularExpression::escape(title) + QLatin1Char('$')})
        .split(QLatin1Char('\n'));
}

} // namespace

WindowServer::WindowServer()
{
    m_server.setProcessChannelMode(QProcess::SeparateChannels);
    // Without "-noreset" it would start afresh whenever its last client goes, an xdotool most of
    // the time, and turn away a program that comes at that moment. The server keeps the screen's
    // size in whole millimetres: only a screen like this one has exactly the given resolution.
    m_server.start(QStringLiteral("Xvfb"),
                   {QStringLiteral("-displayfd"), QStringLiteral("1"), QStringLiteral("-noreset"),
                    QStringLiteral("-screen"), QStringLiteral("0"), QStringLiteral("1440x960x24"),
                    QStringLiteral("-dpi"), QStringLiteral("96"), QStringLiteral("-nolisten"),
                    QStringLiteral("tcp")});
    if (!m_server.waitForReadyRead(30000))
        qFatal("Xvfb does not start: %s", qPrintable(m_server.errorString()));
    qputenv("DISPLAY", ':' + m_server.readLine().trimmed());
    qputenv("QT_QPA_PLATFORM", "xcb");
    // The dialogs draw nothing with OpenGL, and its driver does not clean up behind itself.
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
        Xdotool({QStringLiteral("getwindowgeometry"), QStringLiteral("--shell"), window});
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
