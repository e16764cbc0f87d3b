#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QPair>
#include <QProcess>
#include <QString>
#include <QUrl>
#include <QVector>

/// A web server on 127.0.0.1 that answers exactly what a test tells it to.
///
/// The server is a process of its own, so it goes on serving while the test blocks. What a step
/// of a script can hold is described at the top of scriptedserver.py.
///
/// An object belongs to the thread that made it, which needs a QCoreApplication. Methods that
/// talk to the server run that thread's event loop until the answer is there, so slots of the code
/// under test may run meanwhile. Whatever goes wrong with the server itself ends the test program
/// with qFatal: no test can tell anything after that.
class ScriptedServer
{
public:
    /// A request as it came over the wire.
    struct Request {
        QByteArray method;
        QByteArray target;  ///< Path and query, still encoded.
        QByteArray version; ///< "1.1" or "1.0".
        /// In the order and with the letter case of the wire, repeated names included.
        QVector<QPair<QByteArray, QByteArray>> headers;
        QByteArray body; ///< As sent: neither decompressed nor decoded.
        bool https = false;
        qint64 timeMs = 0;  ///< Arrival of the request's head, milliseconds since the epoch, UTC.
        int connection = 0; ///< Equal for requests that shared a connection.

        /// The value of the first header of that name in any letter case, null if there is none.
        QByteArray Header(const QByteArray &name) const;
    };

    /// Starts a server, or takes the one that the environment variable SCRIPTED_SERVER describes
    /// (the line a server prints on start) and resets it.
    ScriptedServer();

    /// Ends a server that the constructor started, cutting off its connections. A server taken
    /// from the environment stays as it is.
    ~ScriptedServer();

    ScriptedServer(const ScriptedServer &) = delete;
    ScriptedServer &operator=(const ScriptedServer &) = delete;

    /// The plain address of a path, which starts with a slash and may carry a query.
    QString HttpUrl(const QString &path) const;

    /// The same over TLS. The host is "localhost", since Qt 5.12 matches certificates by name only.
    QString HttpsUrl(const QString &path) const;

    /// The PEM file of the self-signed certificate, for clients that are to trust the server.
    QString CertificatePath() const;

    /// Sets the steps of a path, in place of those it had. Each request uses up one, the last one
    /// repeats. The path has no query, a request's query plays no part in finding its script.
    void Script(const QString &path, const QJsonArray &steps);

    /// The same for a path that always gives the one answer.
    void Script(const QString &path, const QJsonObject &step);

    /// All requests since the last reset whose bodies have arrived in full, in order of arrival.
    /// Requests to paths without a script, which are answered with 404, are among them.
    QVector<Request> Requests() const;

    /// Runs the event loop until at least count requests have been recorded, on the given path or,
    /// if that is empty, on any. Returns false when that took longer than timeoutMs milliseconds.
    bool WaitForRequests(int count, int timeoutMs = 15000, const QString &path = QString()) const;

    /// Lets the oldest held answer of the path go on, whether or not it has reached its hold yet.
    /// A recorded request is always ready for release. Returns false when there was nothing to
    /// release, for instance because the client has hung up; no release is saved up.
    bool Release(const QString &path);

    /// Forgets scripts and requests and aborts the answers that are under way.
    void Reset();

    /// The first size bytes of the body that a step with "fill" sends.
    static QByteArray Fill(qint64 size);

private:
    void Start();
    void Attach(const QByteArray &line);
    QJsonDocument Call(const QByteArray &method, const QString &path,
                       const QJsonObject &content = QJsonObject()) const;

    QProcess process;
    mutable QNetworkAccessManager manager;
    int httpPort = 0;
    int httpsPort = 0;
    QString certificatePath;
};
