// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/clientmachine.h"
#include "tests/support/scriptedserver.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QProcess>
#include <QStringList>

/**
 * A machine with client 1.0.0 and the built updater in its sub-folder, the services that the
 * updater talks to, and the process under test. GUI thread.
 */
class UpdaterRun : public ClientMachine
{
public:
    UpdaterRun();
    ~UpdaterRun();

    ScriptedServer server;
    QProcess process;

    /// Writes all configuration files; the check goes to the server over HTTPS.
    void Configure();

    /// The same with @p changes to updateconfig.json.
    void Configure(const QJsonObject &changes);

    /// Writes the client's language file.
    void SetLanguage(const QByteArray &language);

    /// The body of an answer to the check with @p biz as its "biz" object.
    static QByteArray CheckAnswer(const QJsonObject &biz);

    /// The "biz" object that offers @p package as @p name, version 2.1.3, with @p changes.
    static QJsonObject Offer(const QByteArray &package, const QString &name,
                             const QJsonObject &changes = {});

    /// Makes the service answer the check with @p biz as its "biz" object.
    void AnswerCheck(const QJsonObject &biz);

    /// @p count headers for a step of the server; %1 in @p name is replaced by their number.
    static QJsonArray ManyHeaders(const QString &name, int count);

    /// Serves @p package as @p name and offers it, with @p changes to the "biz" object.
    void Publish(const QByteArray &package, const QString &name, const QJsonObject &changes = {});

    /// The full path of the package once it is downloaded.
    QString PackagePath(const QString &name) const;

    /// The full path of the program under test.
    QString ProgramPath() const;

    /// Starts the updater in another working folder than its own.
    void Start(const QStringList &arguments = {});

    /// Waits for the end and returns the exit code; fails the program if the updater crashes or
    /// does not end in time.
    int WaitForEnd(int timeoutMs = 60000);

    /// Start() and WaitForEnd().
    int Run(const QStringList &arguments = {});

    /// The log as the lines of loglines.h; fails the program when a line of it has another form.
    QStringList Log() const;

    /// Waits until the log contains the line; false when it does not in time.
    bool WaitForLog(const QString &line, int timeoutMs = 30000) const;

    /// The log line of the configuration that Configure() writes.
    QString ConfigurationLine() const;
};
