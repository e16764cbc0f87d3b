// SPDX-License-Identifier: MIT
#include "scriptedserver.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QJsonValue>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>

namespace
{
constexpr int startTimeoutMs = 30000;
constexpr int callTimeoutMs = 60000;
constexpr int stopTimeoutMs = 5000;
constexpr int pollIntervalMs = 10;

/// A path as a query item. QUrlQuery does not encode plus signs, which servers read as spaces.
QString QueryValue(const QString &path)
{
    return QString::fromLatin1(QUrl::toPercentEncoding(path));
}

ScriptedServer::Request ReadRequest(const QJsonObject &object)
{
    ScriptedServer::Request request;
    request.method = object.value(QStringLiteral("method")).toString().toLatin1();
    request.target = object.value(QStringLiteral("target")).toString().toLatin1();
    request.version = object.value(QStringLiteral("version")).toString().toLatin1();
    const QJsonArray headers = object.value(QStringLiteral("headers")).toArray();
    for (const QJsonValue &header : headers) {
        const QJsonArray pair = header.toArray();
        request.headers.append(
            {pair.at(0).toString().toLatin1(), pair.at(1).toString().toLatin1()});
    }
    request.body =
        QByteArray::fromBase64(object.value(QStringLiteral("body")).toString().toLatin1());
    request.https = object.value(QStringLiteral("https")).toBool();
    request.timeMs = static_cast<qint64>(object.value(QStringLiteral("timeMs")).toDouble());
    request.connection = object.value(QStringLiteral("connection")).toInt();
    return request;
}

/// Runs the event loop for a while, or until something quits the given loop.
void RunFor(QEventLoop &loop, int ms)
{
    QTimer timer;
    timer.setSingleShot(true);
    QObject::connect(&timer, &QTimer::timeout, &loop, &QEventLoop::quit);
    timer.start(ms);
    loop.exec();
}
} // namespace

QByteArray ScriptedServer::Request::Header(const QByteArray &name) const
{
    for (const auto &header : headers) {
        if (qstricmp(header.first.constData(), name.constData()) == 0) {
            return header.second.isNull() ? QByteArray("") : header.second;
        }
    }
    return QByteArray();
}

ScriptedServer::ScriptedServer()
{
    // Tests may set a proxy for the code under test, which the control calls must not use.
    manager.setProxy(QNetworkProxy(QNetworkProxy::NoProxy));
    const QByteArray running = qgetenv("SCRIPTED_SERVER");
    if (running.isEmpty()) {
        Start();
    } else {
        Attach(running);
        Reset();
    }
}

ScriptedServer::~ScriptedServer()
{
    if (process.state() == QProcess::NotRunning) {
        return;
    }
    process.closeWriteChannel();
    if (!process.waitForFinished(stopTimeoutMs)) {
        qWarning("The scripted server did not end by itself and is killed.");
        process.kill();
        process.waitForFinished(stopTimeoutMs);
    }
}

void ScriptedServer::Start()
{
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(QStringLiteral("/usr/bin/python3"),
                  {QStringLiteral(TESTS_SUPPORT_DIR "/scriptedserver.py")});
    QElapsedTimer elapsed;
    elapsed.start();
    while (!process.canReadLine()) {
        const int remainingMs = startTimeoutMs - static_cast<int>(elapsed.elapsed());
        if (remainingMs <= 0 || !process.waitForReadyRead(remainingMs)) {
            qFatal("The scripted server did not start: %s; exit code %d, output \"%s\"",
                   qPrintable(process.errorString()), process.exitCode(),
                   process.readAllStandardOutput().constData());
        }
    }
    Attach(process.readLine());
}

void ScriptedServer::Attach(const QByteArray &line)
{
    const QJsonObject object = QJsonDocument::fromJson(line).object();
    httpPort = object.value(QStringLiteral("http")).toInt();
    httpsPort = object.value(QStringLiteral("https")).toInt();
    certificatePath = object.value(QStringLiteral("certificate")).toString();
    if (httpPort <= 0 || httpsPort <= 0 || certificatePath.isEmpty()) {
        qFatal("No scripted server is described by \"%s\"", line.constData());
    }
}

QString ScriptedServer::HttpUrl(const QString &path) const
{
    return QStringLiteral("http://127.0.0.1:%1").arg(httpPort) + path;
}

QString ScriptedServer::HttpsUrl(const QString &path) const
{
    return QStringLiteral("https://localhost:%1").arg(httpsPort) + path;
}

QString ScriptedServer::CertificatePath() const
{
    return certificatePath;
}

void ScriptedServer::Script(const QString &path, const QJsonArray &steps)
{
    Call("POST", QStringLiteral("/_control/script"),
         {{QStringLiteral("path"), path}, {QStringLiteral("steps"), steps}});
}

void ScriptedServer::Script(const QString &path, const QJsonObject &step)
{
    Script(path, QJsonArray{step});
}

QVector<ScriptedServer::Request> ScriptedServer::Requests() const
{
    QVector<Request> requests;
    const QJsonArray recorded = Call("GET", QStringLiteral("/_control/requests")).array();
    for (const QJsonValue &request : recorded) {
        requests.append(ReadRequest(request.toObject()));
    }
    return requests;
}

bool ScriptedServer::WaitForRequests(int count, int timeoutMs, const QString &path) const
{
    QString counter = QStringLiteral("/_control/count");
    if (!path.isEmpty()) {
        counter += QStringLiteral("?path=") + QueryValue(path);
    }
    QElapsedTimer elapsed;
    elapsed.start();
    for (;;) {
        const QJsonObject answer = Call("GET", counter).object();
        if (answer.value(QStringLiteral("count")).toInt() >= count) {
            return true;
        }
        if (elapsed.elapsed() >= timeoutMs) {
            return false;
        }
        QEventLoop loop;
        RunFor(loop, pollIntervalMs);
    }
}

bool ScriptedServer::Release(const QString &path)
{
    const QJsonDocument answer =
        Call("POST", QStringLiteral("/_control/release"), {{QStringLiteral("path"), path}});
    return answer.object().value(QStringLiteral("released")).toBool();
}

void ScriptedServer::Reset()
{
    Call("POST", QStringLiteral("/_control/reset"));
}

QByteArray ScriptedServer::Fill(qint64 size)
{
    QByteArray bytes(static_cast<int>(size), Qt::Uninitialized);
    char *out = bytes.data();
    for (qint64 i = 0; i < size; ++i) {
        out[i] = static_cast<char>((i * 31 + 7) % 251);
    }
    return bytes;
}

QJsonDocument ScriptedServer::Call(const QByteArray &method, const QString &path,
                                   const QJsonObject &content) const
{
    QNetworkRequest request{QUrl(HttpUrl(path))};
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArray("application/json"));
    const QByteArray body =
        method == "GET" ? QByteArray() : QJsonDocument(content).toJson(QJsonDocument::Compact);
    QNetworkReply *reply = manager.sendCustomRequest(request, method, body);
    QEventLoop loop;
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    if (!reply->isFinished()) {
        RunFor(loop, callTimeoutMs);
    }
    const QByteArray answer = reply->readAll();
    QJsonParseError parsing{};
    const QJsonDocument document = QJsonDocument::fromJson(answer, &parsing);
    if (!reply->isFinished() || reply->error() != QNetworkReply::NoError ||
        parsing.error != QJsonParseError::NoError) {
        qFatal("The scripted server failed at %s %s (sent \"%s\"): %s, answer \"%s\"",
               method.constData(), qPrintable(path), body.constData(),
               qPrintable(reply->isFinished() ? reply->errorString()
                                              : QStringLiteral("no answer in time")),
               answer.constData());
    }
    // Not deleteLater(), because some tests never run an event loop.
    delete reply;
    return document;
}
