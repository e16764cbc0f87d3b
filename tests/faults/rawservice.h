// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QSslCertificate>
#include <QSslKey>
#include <QString>
#include <QTcpServer>

class QTcpSocket;

/**
 * A service on 127.0.0.1 that sends exactly the given bytes, valid HTTP and TLS or not. It serves
 * while the event loop of its thread runs.
 */
class RawService : public QTcpServer
{
public:
    enum class Begin { AfterTheRequestsHead, AtTheFirstByte };
    enum class End { Stay, Close, Reset };

    struct Answer {
        QByteArray bytes;
        End end = End::Stay;
        Begin begin = Begin::AfterTheRequestsHead;
        int bytesPerPiece = 0; ///< 0: all at once
        int pauseMs = 0;       ///< before each piece but the first
    };

    /// Listens on a free port; fails the program when it cannot.
    RawService();

    /// Sets the answer for later connections.
    void SetAnswer(const Answer &answer) { m_answer = answer; }

    /// Uses TLS with this certificate for later connections.
    void UseTls(const QSslCertificate &certificate, const QSslKey &key);

    /// The host is "localhost" when @p scheme is "https", and 127.0.0.1 otherwise.
    QString Url(const QString &scheme, const QString &path) const;

    /// A complete answer with status 200, @p headers, each ending with CR LF, and @p body.
    static QByteArray Http(const QByteArray &body, const QByteArray &headers = QByteArray());

protected:
    void incomingConnection(qintptr descriptor) override;

private:
    static void Play(QTcpSocket *socket, const Answer &answer, int position);
    static void Finish(QTcpSocket *socket, End end);

    Answer m_answer;
    QSslCertificate m_certificate;
    QSslKey m_key;
};
