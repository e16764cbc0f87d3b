// SPDX-License-Identifier: MIT
#pragma once

#include <QLocalServer>
#include <QLockFile>
#include <QObject>
#include <QString>
#include <QStringList>

/**
 * Makes sure that each user runs one copy of the client: a second one passes its arguments to the
 * first. A lock file decides which one is first, not the server, because Windows allows two servers
 * with the same name. The lock of a killed client is ignored.
 */
class SingleInstance : public QObject
{
    Q_OBJECT

public:
    SingleInstance();

    enum Result { First, HandedOver, Unreachable };

    /// Becomes the first copy, or passes @p arguments to it. Blocks for up to some seconds.
    Result Start(const QStringList &arguments);

signals:
    /// Another copy was started with these arguments, and has ended.
    void StartedAgain(const QStringList &arguments);

private:
    bool HandOver(const QStringList &arguments);
    void Receive();

    const QString m_name;
    QLockFile m_lock;
    QLocalServer m_server;
};
