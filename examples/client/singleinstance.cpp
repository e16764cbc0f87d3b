// SPDX-License-Identifier: MIT
#include "examples/client/singleinstance.h"

#include "examples/client/clientfiles.h"

#include <QCryptographicHash>
#include <QDataStream>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QLocalSocket>
#include <QThread>

#ifdef Q_OS_WIN
#include <qt_windows.h>
#endif

namespace
{

constexpr int kLimitMs = 5000;
constexpr unsigned long kPauseMs = 50;

/// Sockets of all users share their names.
QString ServerName()
{
    const QByteArray user = QFile::encodeName(QDir::homePath());
    const QByteArray digest = QCryptographicHash::hash(user, QCryptographicHash::Sha256).toHex();
    return QLatin1String("SampleClient-") + QString::fromLatin1(digest.left(16));
}

} // namespace

SingleInstance::SingleInstance()
    : m_name(ServerName()), m_lock(ClientFiles::DataFolder() + QLatin1String("/running.lock"))
{
    m_lock.setStaleLockTime(0); // however long it is held
    m_server.setSocketOptions(QLocalServer::UserAccessOption);
    connect(&m_server, &QLocalServer::newConnection, this, &SingleInstance::Receive);
}

SingleInstance::Result SingleInstance::Start(const QStringList &arguments)
{
    QElapsedTimer time;
    time.start();
    // The first copy may be about to listen, or about to end.
    while (!time.hasExpired(kLimitMs)) {
        if (m_lock.tryLock(0)) {
            QLocalServer::removeServer(m_name); // a killed client's
            return m_server.listen(m_name) ? First : Unreachable;
        }
        if (HandOver(arguments))
            return HandedOver;
        QThread::msleep(kPauseMs);
    }
    return Unreachable;
}

bool SingleInstance::HandOver(const QStringList &arguments)
{
#ifdef Q_OS_WIN
    // Only the program that the user has started may let another one come to the front.
    AllowSetForegroundWindow(ASFW_ANY);
#endif
    QLocalSocket first;
    first.connectToServer(m_name);
    if (!first.waitForConnected(kLimitMs))
        return false;
    QDataStream stream(&first);
    stream << arguments;
    first.waitForBytesWritten(kLimitMs); // Windows sends nothing before
    // Not before it has answered: until then it may be killed, and this copy is the first.
    return first.waitForReadyRead(kLimitMs);
}

void SingleInstance::Receive()
{
    QLocalSocket *second = m_server.nextPendingConnection();
    connect(second, &QLocalSocket::disconnected, second, &QObject::deleteLater);
    connect(second, &QLocalSocket::readyRead, this, [this, second] {
        QDataStream stream(second);
        stream.startTransaction();
        QStringList arguments;
        stream >> arguments;
        if (!stream.commitTransaction())
            return; // there is more to come
        second->write("\n");
        second->flush();
        emit StartedAgain(arguments);
    });
}
