#pragma once

#include "tests/e2e/updaterrun.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

/// What a fault is to lead to, in the words of the table.
struct FaultOutcome {
    QString seen; ///< what the user saw, window by window
    QString left; ///< what was left on the disk
    int clientStarts;
    QString note = QString(); ///< where the run has to end otherwise: what can be done about it
};

/**
 * A run of the updater that meets a fault, and the run after it. What the user sees is read from
 * the program's own windows; the buttons are pressed there. Each fault becomes a row of the table
 * that scripts/faults prints: the very words that the test compared. GUI thread.
 */
class FaultRun
{
public:
    /// @p fault names the row.
    explicit FaultRun(QString fault);

    UpdaterRun run;

    /// The package that Offer() announces: its file name and content.
    static const QString PackageName;
    static const QByteArray &Package();

    /// The page with the package, on the scripted server.
    static const QString PackagePage;

    /// What the user sees of a run that ends well, or at least goes through.
    static const QString Progress;

    /// What the progress dialog says in the end, after the progress.
    static const QString NetworkError;
    static const QString Corrupted;

    /// What is left of the client as it was, and of a whole update.
    static const QString Untouched;
    static const QString Updated;

    /// The windows' parts that tests wait for or press.
    static const QString UpdateButton;
    static const QString LaterButton;
    static const QString NeverPromptBox;
    static const QString CancelOrRetryButton;
    static const QString ConfirmCancelButton;
    static const QString Prompt;

    /// Configures the run, with @p configuration in place of the usual, and publishes the update,
    /// with @p changes to its "biz".
    void Offer(const QJsonObject &changes = {}, const QJsonObject &configuration = {});

    /// The usual answer to the check, with @p changes to its "biz".
    static QByteArray CheckAnswer(const QJsonObject &changes = {});

    /// One step of the scripted server in the place of the usual answer or package.
    void ScriptCheck(QJsonObject step);
    void ScriptPackage(QJsonObject step);

    /// Starts the updater without a prompt and waits for its end.
    void RunThrough();

    /// Starts the updater without a prompt.
    void Start();

    /**
     * Waits until the updater has written as many bytes of the package, and lets the server's step,
     * which holds the rest back there, go on.
     */
    void ReleaseOnceWritten(qint64 bytes);

    /// Waits until the progress dialog offers "Retry".
    void WaitForError();

    /// Waits until the user sees a window that has this widget.
    void WaitForWidget(const QString &name);

    /// Presses a button, or closes a window, once the user sees it; by its object name.
    void Press(const QString &name);

    /// Closes the progress dialog and confirms that; waits for the end.
    void GiveUp();

    /// Ends the updater as a crash or the task manager does.
    void Kill();

    /// Compares what came of the fault, once the run is over or stands still, with @p wanted.
    void MustLeadTo(const FaultOutcome &wanted);

    /// The client was started as often since MustLeadTo(), by the end of the fault.
    void StartedSince(int count) { m_startsSince = count; }

    /// Gives up what still stands, publishes a further version, runs the updater again, and adds
    /// the row to the table. The cause of the fault is to be gone by then.
    void NextRunMustWork();

    /// MustLeadTo(), then NextRunMustWork().
    void MustEndWith(const FaultOutcome &wanted);

    /// What the user saw so far, such as: progress, then "Installation failed."
    QString Seen() const;

    /// What is left on the disk, such as: client as it was, the package
    QString Left() const;

private:
    QJsonObject Windows() const;
    QString WatchFile() const;
    QString ClientState() const;
    QStringList PackageState() const;
    QStringList RecordState() const;
    void AddRow() const;

    QString m_fault;
    FaultOutcome m_outcome{QString(), QString(), 0};
    int m_startsSince = 0;
};
