#pragma once

#include <QProcess>
#include <QStringList>

/**
 * Starts the bare window program as @p process and waits until its window is drawn; fails the
 * program when it never is.
 */
inline void StartBareWindow(QProcess &process, const QStringList &arguments = {})
{
    process.start(QStringLiteral(BARE_WINDOW_PROGRAM), arguments);
    if (!process.waitForReadyRead() || process.readLine().trimmed() != "drawn")
        qFatal("the bare window was never drawn");
}
