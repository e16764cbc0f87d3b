#pragma once

#include <QAtomicInt>
#include <QObject>
#include <QTimer>

#include <functional>

/**
 * Sees to it that every check ends, with the prompt or with the client started, and that a run
 * whose check started the client ends soon after.
 *
 * The check's own time limit is a timer of the worker's thread. An answer can keep that thread busy
 * for minutes, for instance with a hundred thousand header lines, each of which Qt compares with
 * all others; then the timer never fires. This object lives on the GUI thread, which nothing that
 * the service sends reaches before the prompt, and starts the client from there.
 *
 * The process must not wait for a stuck thread either: QThread::wait() would hold it for as long as
 * the answer keeps the thread busy, with the guard taken, and every later start would end at once
 * without the client. A stuck thread cannot be ended in any other way, so the process leaves
 * without it. All that it holds at that point belongs to the check: no file is open but the log.
 */
class CheckWatchdog : public QObject
{
    Q_OBJECT

public:
    /**
     * Watches the checks of @p worker. @p release frees what the worker holds of the network, which
     * may take seconds while an answer without end comes in. It is run on the worker's thread once
     * the run is over. GUI thread.
     */
    CheckWatchdog(QObject *worker, std::function<void()> release);

    /// A check request was sent: the time counts from now. Any thread.
    void Begin();

    /// True while a check has not ended. Any thread.
    bool IsUnderWay() const;

    /// Claims the end of one check. True for one caller after each Begin(): only that one may show
    /// the prompt. Any thread.
    bool EndWithPrompt();

    /// Claims the end of all checks under way, for the run is over then. True for one caller: only
    /// that one may start the client. Any thread.
    bool EndWithClient();

private:
    void StartClient();
    void LeaveWhenStuck();

    QObject *const m_worker;
    const std::function<void()> m_release;
    QTimer m_limit;
    QAtomicInt m_underWay;      ///< how many checks have not ended
    QAtomicInt m_clientStarted; ///< whether the last check ended with the client
};
