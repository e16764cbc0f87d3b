// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/updaterrun.h"
#include "tests/support/windowwatch.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

/// The expected outcome of a fault, in the words of the table.
struct FaultOutcome {
    QString seen; ///< the windows that the user saw, in order
    QString left; ///< the state of the disk
    int clientStarts;
    QString note = QString(); ///< the remedy, when the run has to end differently
};

/**
 * A run of the updater with a fault, and the run after it. The test reads the windows of the
 * program and presses its buttons. Each fault becomes a row of the table that scripts/faults
 * prints, with the same words that the test compared. GUI thread.
 */
class FaultRun
{
public:
    /// @p fault is the name of the row.
    explicit FaultRun(QString fault);

    UpdaterRun run;

    /// The file name and the content of the package that Offer() publishes.
    static const QString PackageName;
    static const QByteArray &Package();

    /// The path of the package on the server.
    static const QString PackagePage;

    /// What the user sees of a run without an error message.
    static const QString Progress;

    /// What the user sees of a run with this error message.
    static const QString NetworkError;
    static const QString Corrupted;

    /// The state of the disk without an update, and after a complete one.
    static const QString Untouched;
    static const QString Updated;

    /// The widgets that tests wait for or press.
    static const QString UpdateButton;
    static const QString LaterButton;
    static const QString NeverPromptBox;
    static const QString CancelOrRetryButton;
    static const QString ConfirmCancelButton;
    static const QString Prompt;

    /// Configures the run with @p configuration, and publishes the update with @p changes to its
    /// "biz".
    void Offer(const QJsonObject &changes = {}, const QJsonObject &configuration = {});

    /// The body of the usual answer to the check, with @p changes to its "biz".
    static QByteArray CheckAnswer(const QJsonObject &changes = {});

    /// Replaces the usual answer or package by a step of the scripted server.
    void ScriptCheck(QJsonObject step);
    void ScriptPackage(QJsonObject step);

    /// Starts the updater without a prompt and waits until it ends.
    void RunThrough();

    /// Starts the updater without a prompt.
    void Start();

    /// Waits until the updater has written @p bytes of the package, and then releases the answer,
    /// which the server must hold there.
    void ReleaseOnceWritten(qint64 bytes);

    /// Waits until the progress dialog offers "Retry".
    void WaitForError();

    /// Waits until this widget is visible.
    void WaitForWidget(const QString &name);

    /// Presses a button or closes a window, by its object name, once it is visible.
    void Press(const QString &name);

    /// Closes the progress dialog, confirms that and waits for the end.
    void GiveUp();

    /// Kills the updater, as a crash or the task manager does.
    void Kill();

    /// Compares the outcome with @p wanted, once the run has ended or stands still.
    void MustLeadTo(const FaultOutcome &wanted);

    /// Tells how often the end of the fault started the client after MustLeadTo().
    void StartedSince(int count) { m_startsSince = count; }

    /// Ends the run, publishes another version, verifies that the next run installs it, and adds
    /// the row to the table. The test has to remove the cause of the fault first.
    void NextRunMustWork();

    /// MustLeadTo(), then NextRunMustWork().
    void MustEndWith(const FaultOutcome &wanted);

    /// What the user has seen so far, such as: progress, then "Installation failed."
    QString Seen() const;

    /// The state of the disk, such as: old client, the package
    QString Left() const;

private:
    QString ClientState() const;
    QStringList PackageState() const;
    QStringList RecordState() const;
    void AddRow() const;

    const WindowWatch m_windows;
    QString m_fault;
    FaultOutcome m_outcome{QString(), QString(), 0};
    int m_startsSince = 0;
};
