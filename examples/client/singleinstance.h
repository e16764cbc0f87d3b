#pragma once

#include <QLocalServer>
#include <QLockFile>
#include <QObject>
#include <QString>
#include <QStringList>

/**
 * Makes sure that each user has one copy of the client: a second one hands its arguments to the
 * first. A lock file says who is first, and not the server, because Windows lets two servers have
 * the same name. The lock of a killed client counts for nothing.
 */
class SingleInstance : public QObject
{
    Q_OBJECT

public:
    SingleInstance();

    enum Result { First, HandedOver, Unreachable };

    /// Becomes the first copy, or hands @p arguments to it. Blocks for up to some seconds.
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
