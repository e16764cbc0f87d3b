// SPDX-License-Identifier: MIT
#include "tests/support/windowwatch.h"

#include "tests/support/testhome.h"

#include <QFile>
#include <QJsonDocument>
#include <QTest>

#include <utility>

WindowWatch::WindowWatch(QString file) : m_file(std::move(file))
{
    qputenv("QT_PLUGIN_PATH", WINDOW_WATCH_PLUGINS);
    qputenv("QT_QPA_GENERIC_PLUGINS", "windowwatch");
    qputenv("WINDOW_WATCH", QFile::encodeName(m_file));
}

QJsonObject WindowWatch::Now() const
{
    const QVector<QJsonObject> changes = Changes();
    return changes.isEmpty() ? QJsonObject() : changes.last();
}

QVector<QJsonObject> WindowWatch::Changes() const
{
    if (!QFile::exists(m_file))
        return {};
    QVector<QJsonObject> changes;
    QList<QByteArray> lines = ReadFile(m_file).split('\n');
    lines.removeLast(); // empty, or not written in full yet
    for (const QByteArray &line : qAsConst(lines))
        changes.append(QJsonDocument::fromJson(line).object());
    return changes;
}

bool WindowWatch::WaitFor(const QString &name, int timeoutMs) const
{
    const auto isVisible = [&] {
        const QJsonObject windows = Now();
        for (const QJsonValue &window : windows) {
            if (window.toObject().contains(name))
                return true;
        }
        return windows.contains(name);
    };
    return QTest::qWaitFor(isVisible, timeoutMs);
}

bool WindowWatch::Press(const QString &name, int timeoutMs) const
{
    const QString order = m_file + QStringLiteral(".press");
    // Renamed into place, because the program may look at any time.
    WriteFile(order + QStringLiteral(".new"), name.toLatin1());
    QFile::rename(order + QStringLiteral(".new"), order);
    return QTest::qWaitFor([&] { return !QFile::exists(order); }, timeoutMs);
}
