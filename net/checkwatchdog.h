// SPDX-License-Identifier: MIT
#pragma once

#include <QAtomicInt>
#include <QObject>
#include <QTimer>

#include <functional>

/**
 * Makes every check end, with the prompt or with the client started, and makes a run whose check
 * started the client end soon afterwards.
 *
 * The check's own time limit is a timer on the worker's thread. An answer can keep that thread busy
 * for minutes, for instance with a hundred thousand header lines, each of which Qt compares with
 * all others. Then the timer never fires. This object lives on the GUI thread, which no data of the
 * service reaches before the prompt, and starts the client from there.
 *
 * The process must not wait for a stuck thread either. QThread::wait() would block for as long as
 * the answer keeps the thread busy. The single-instance guard would stay taken, so every later
 * start would end at once without starting the client. There is no safe way to end a stuck thread,
 * so the process exits without it. The thread holds only objects of the check at that point; the
 * log is the only file in use.
 */
class CheckWatchdog : public QObject
{
    Q_OBJECT

public:
    /**
     * Watches the checks of @p worker. @p release deletes the worker's network objects, which may
     * take seconds while an endless answer arrives. It runs on the worker's thread once the run is
     * over. GUI thread.
     */
    CheckWatchdog(QObject *worker, std::function<void()> release);

    /// A check request is being sent. Its time starts now. Any thread.
    void Begin();

    /// True while a check has not ended. Any thread.
    bool IsUnderWay() const;

    /// Claims the end of one check. True for one caller after each Begin(); only that caller may
    /// show the prompt. Any thread.
    bool EndWithPrompt();

    /// Claims the end of all checks under way, because the run is over then. True for one caller;
    /// only that caller may start the client. Any thread.
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
