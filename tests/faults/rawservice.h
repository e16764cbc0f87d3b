#pragma once

#include <QByteArray>
#include <QSslCertificate>
#include <QSslKey>
#include <QString>
#include <QTcpServer>

class QTcpSocket;

/**
 * A service on 127.0.0.1 that sends the bytes it was told to, without a thought for HTTP or TLS:
 * for faults below both. It serves while the event loop of its thread runs.
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

    /// Listens on a port of the system's choosing; fails the program when it cannot.
    RawService();

    /// What connections from here on get.
    void SetAnswer(const Answer &answer) { m_answer = answer; }

    /// Speaks TLS, with this certificate, on connections from here on.
    void UseTls(const QSslCertificate &certificate, const QSslKey &key);

    /// The host is "localhost" when @p scheme is "https", and 127.0.0.1 otherwise.
    QString Url(const QString &scheme, const QString &path) const;

    /// Whole answers of HTTP: 200 with @p body and its length, and @p headers, each ended by CR LF.
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
