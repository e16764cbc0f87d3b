// SPDX-License-Identifier: MIT
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

/// A web server on 127.0.0.1 that answers what a test tells it to.
///
/// The server is a process of its own, so it serves while the test blocks. The top of
/// scriptedserver.py describes the steps of a script.
///
/// An object belongs to the thread that created it, which needs a QCoreApplication. Methods that
/// talk to the server run the event loop until it answers, so slots of the code under test may run
/// meanwhile. A failure of the server itself ends the test program with qFatal().
class ScriptedServer
{
public:
    /// A request as it was sent.
    struct Request {
        QByteArray method;
        QByteArray target;  ///< Path and query, still encoded.
        QByteArray version; ///< "1.1" or "1.0".
        /// As sent: in their order and letter case, with repeated names.
        QVector<QPair<QByteArray, QByteArray>> headers;
        QByteArray body; ///< As sent: neither decompressed nor decoded.
        bool https = false;
        qint64 timeMs = 0;  ///< When the head arrived, in milliseconds since the epoch, UTC.
        int connection = 0; ///< The same for requests on one connection.

        /// The value of the first header of that name, ignoring case; null if there is none.
        QByteArray Header(const QByteArray &name) const;
    };

    /// Starts a server, or resets and uses the one that the environment variable SCRIPTED_SERVER
    /// describes (with the line that a server prints when it starts).
    ScriptedServer();

    /// Ends the server and cuts its connections if the constructor started it.
    ~ScriptedServer();

    ScriptedServer(const ScriptedServer &) = delete;
    ScriptedServer &operator=(const ScriptedServer &) = delete;

    /// The HTTP address of a path, which starts with a slash and may have a query.
    QString HttpUrl(const QString &path) const;

    /// The same over TLS. The host is "localhost", since Qt 5.12 matches certificates by name only.
    QString HttpsUrl(const QString &path) const;

    /// The PEM file of the self-signed certificate, for clients that are to trust the server.
    QString CertificatePath() const;

    /// Replaces the steps of a path. Each request uses up one step; the last one repeats. Queries
    /// are ignored.
    void Script(const QString &path, const QJsonArray &steps);

    /// The same with one step for all requests.
    void Script(const QString &path, const QJsonObject &step);

    /// All complete requests since the last reset, in order of arrival, including those to paths
    /// without a script, which get 404.
    QVector<Request> Requests() const;

    /// Runs the event loop until @p count requests have been recorded, on the given path or, if
    /// that is empty, on any; false when that takes longer than @p timeoutMs.
    bool WaitForRequests(int count, int timeoutMs = 15000, const QString &path = QString()) const;

    /// Releases the oldest held answer of the path, even if it has not reached its hold yet. False
    /// when there is none, for instance because the client has hung up; releases are not saved up.
    bool Release(const QString &path);

    /// Forgets scripts and requests, and aborts unfinished answers.
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
