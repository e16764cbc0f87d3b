#pragma once

#include "tests/support/scriptedserver.h"
#include "tests/support/standinfile.h"
#include "tests/support/testhome.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QProcess>
#include <QStringList>

/**
 * One installation of a client with the built updater in a direct sub-folder of its own, the
 * services it talks to, and the process under test. The client 1.0.0 is a stand-in that records how
 * it was started. GUI thread.
 */
class UpdaterRun
{
public:
    UpdaterRun();
    ~UpdaterRun();

    TestHome home;
    ScriptedServer server;
    QString imageName;
    StandIn client;
    QProcess process;

    /// Configures updater and client completely; the check goes to the server over HTTPS.
    void Configure();

    /// updateconfig.json with @p changes made to what Configure() writes.
    void Configure(const QJsonObject &changes);

    /// The client's language choice.
    void SetLanguage(const QByteArray &language);

    /// The service's answer to the check that carries @p biz as its "biz" object.
    static QByteArray CheckAnswer(const QJsonObject &biz);

    /// The "biz" object that offers @p package as @p name and version 2.1.3, with @p changes to it.
    static QJsonObject Offer(const QByteArray &package, const QString &name,
                             const QJsonObject &changes = {});

    /// What the service answers to the check: @p biz as its "biz" object.
    void AnswerCheck(const QJsonObject &biz);

    /// As many header lines for a step of the server, %1 in @p name replaced by their number.
    static QJsonArray ManyHeaders(const QString &name, int count);

    /// Publishes @p package as @p name, and answers the check with it and @p changes to its "biz".
    void Publish(const QByteArray &package, const QString &name, const QJsonObject &changes = {});

    /// Full path of the package of that name once it is downloaded.
    QString PackagePath(const QString &name) const;

    /// Full path of the program under test.
    QString ProgramPath() const;

    /// Starts the updater from a foreign working directory.
    void Start(const QStringList &arguments = {});

    /// Waits for the end and returns the exit code; fails the program when there is none in time.
    int WaitForEnd(int timeoutMs = 60000);

    /// Start() and WaitForEnd().
    int Run(const QStringList &arguments = {});

    /// The log as "[LEVEL] (:0) message" lines; fails the program when a line has another form.
    QStringList Log() const;

    /// Waits until the log has this line.
    bool WaitForLog(const QString &line, int timeoutMs = 30000) const;

    /// The log line that the configuration leaves.
    QString ConfigurationLine() const;
};
