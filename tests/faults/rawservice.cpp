// SPDX-License-Identifier: MIT
#include "tests/faults/rawservice.h"

#include <QSslSocket>
#include <QTimer>

#include <memory>
#include <sys/socket.h>

RawService::RawService()
{
    if (!listen(QHostAddress::LocalHost))
        qFatal("no port to listen on: %s", qPrintable(errorString()));
}

void RawService::UseTls(const QSslCertificate &certificate, const QSslKey &key)
{
    m_certificate = certificate;
    m_key = key;
}

QString RawService::Url(const QString &scheme, const QString &path) const
{
    const QString host = scheme == QLatin1String("https") ? QStringLiteral("localhost")
                                                          : QStringLiteral("127.0.0.1");
    return QStringLiteral("%1://%2:%3%4").arg(scheme, host).arg(serverPort()).arg(path);
}

QByteArray RawService::Http(const QByteArray &body, const QByteArray &headers)
{
    return "HTTP/1.1 200 OK\r\nContent-Length: " + QByteArray::number(body.size()) + "\r\n" +
           headers + "\r\n" + body;
}

void RawService::incomingConnection(qintptr descriptor)
{
    auto *socket = new QSslSocket(this);
    socket->setSocketDescriptor(descriptor);
    connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
    if (!m_key.isNull()) {
        socket->setLocalCertificate(m_certificate);
        socket->setPrivateKey(m_key);
        socket->startServerEncryption();
    }
    const auto heard = std::make_shared<QByteArray>();
    connect(socket, &QTcpSocket::readyRead, socket, [this, socket, heard] {
        const bool first = heard->isEmpty();
        const bool hadHead = heard->contains("\r\n\r\n");
        *heard += socket->readAll();
        const bool begins = m_answer.begin == Begin::AtTheFirstByte
                                ? first
                                : !hadHead && heard->contains("\r\n\r\n");
        if (begins)
            Play(socket, m_answer, 0);
    });
}

void RawService::Play(QTcpSocket *socket, const Answer &answer, int position)
{
    const int rest = answer.bytes.size() - position;
    const int piece = answer.bytesPerPiece > 0 ? qMin(answer.bytesPerPiece, rest) : rest;
    socket->write(answer.bytes.mid(position, piece));
    socket->flush();
    if (piece == rest) {
        Finish(socket, answer.end);
        return;
    }
    QTimer::singleShot(answer.pauseMs, socket,
                       [socket, answer, next = position + piece] { Play(socket, answer, next); });
}

void RawService::Finish(QTcpSocket *socket, End end)
{
    if (end == End::Close) {
        socket->disconnectFromHost();
    } else if (end == End::Reset) {
        // Without lingering the system closes the connection with a reset.
        const linger none = {1, 0};
        setsockopt(int(socket->socketDescriptor()), SOL_SOCKET, SO_LINGER, &none, sizeof none);
        socket->abort();
    }
}
