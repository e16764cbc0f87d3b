// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/clientmachine.h"
#include "tests/support/logcapture.h"
#include "tests/support/peakmemory.h"
#include "tests/support/scriptedserver.h"

#include <QAbstractEventDispatcher>
#include <QAtomicInt>
#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QPair>
#include <QString>
#include <QStringList>
#include <QThread>
#include <QVector>

#include <functional>
#include <memory>

class DwonDialog;
class HttpDownLoadFile;
class UpdateDialog;

/// Parses a JSON object; fails the program when it is none.
QJsonObject Json(const QByteArray &text);

/**
 * The body of an answer that offers the optional version 2.1.3 as the zip package "Package.zip"
 * with the id "4711". @p changes are other members of "biz": JSON without the outer braces.
 */
QByteArray Offer(const QByteArray &changes = QByteArray());

/// The same for a package with @p content that is neither installed nor started.
QByteArray OfferOf(const QByteArray &content);

/// The log line for the complete package of OfferOf().
QString Verified(const QByteArray &content);

/// A step of the server that sends @p body, with more members such as "\"hold\":\"before\"".
QJsonObject Sends(const QByteArray &body, const QByteArray &members = QByteArray());

/// The MD5 digest in hexadecimal digits.
QByteArray Md5(const QByteArray &content);

/**
 * A machine with an English client 1.0.0, which is configured for the service at /check and
 * packages at /package/, both over plain HTTP. Catches the log.
 */
class UpdateScene : public ClientMachine
{
public:
    explicit UpdateScene(ScriptedServer &server);

    /// The full path of the package of Offer() once it is downloaded.
    QString PackagePath() const { return DownloadFolder() + QStringLiteral("/Package.zip"); }

    /// The log so far, without messages of the window system.
    QStringList Log() const;

    /// The log after the line with the service's answer.
    QStringList LogAfterAnswer() const;

    const LogCapture log;
};

/**
 * The update worker on its own thread, created and destroyed as main() does it. The check begins
 * with the first wait: the pause of one second before it is skipped. Waits run the application's
 * event loop, so a quit of the program ends them. GUI thread.
 */
class WorkerRun
{
public:
    using TimerKind = QPair<int, Qt::TimerType>;

    WorkerRun();
    ~WorkerRun();

    HttpDownLoadFile *Worker() const { return m_worker; }
    QThread *Thread() const { return m_thread; }
    UpdateDialog *Prompt() const { return m_prompt; }
    DwonDialog *Progress() const { return m_progress; }

    /// False when the program quits before the condition holds or when it does not hold in time.
    bool RunUntil(const std::function<bool()> &condition, int timeoutMs = 15000);

    /// Afterwards the signals that the worker sent before the line have been delivered too.
    bool RunUntilLogged(const UpdateScene &scene, const QString &line, int timeoutMs = 15000);
    bool RunUntilPrompt();

    /// Waits for the prompt and presses "Update".
    bool StartDownload();

    /// The same, and then runs the event loop until the program quits.
    bool DownloadUntilQuit();

    /// Waits until the progress dialog got @p count errors in all.
    bool RunUntilError(int count = 1, int timeoutMs = 15000);

    /// Presses the button of the progress dialog.
    void PressProgressButton();

    /// The texts of the progress dialog.
    QString ProgressLine() const;
    QString ProgressButton() const;

    /// The "update" values that were announced.
    const QStringList &Announced() const { return m_announced; }

    /// The errors that the progress dialog got.
    const QStringList &Errors() const { return m_errors; }

    /// The reported progress, as bytes read and bytes in total.
    const QVector<QPair<qint64, qint64>> &Steps() const { return m_steps; }

    /// Runs @p function on the worker's thread and waits for it.
    void OnWorkerThread(const std::function<void()> &function);

    /// The ids of the worker's running timers, in no order.
    QVector<int> Timers();

    /// Their intervals in milliseconds and precisions, in the same order.
    QVector<TimerKind> TimerKinds();

    /// Sends the worker a timer event at once.
    void Tick(int timerId);

    /// The number of timer events that the worker got, including those of Tick().
    int TickCount() const { return m_ticks->count.loadAcquire(); }

    /// Ends the run as main() does, which the destructor does otherwise.
    void Shutdown();

private:
    Q_DISABLE_COPY(WorkerRun)

    /// Lives on the worker's thread, as event filters must.
    class TickCounter : public QObject
    {
    public:
        QAtomicInt count;

    protected:
        bool eventFilter(QObject *watched, QEvent *event) override;
    };

    void Listen();
    void PressUpdate();
    static void SkipPauseBeforeCheck();
    QList<QAbstractEventDispatcher::TimerInfo> RegisteredTimers();

    QThread *m_thread;
    HttpDownLoadFile *m_worker;
    UpdateDialog *m_prompt = nullptr;
    DwonDialog *m_progress = nullptr;
    std::unique_ptr<TickCounter> m_ticks;
    QObject m_listener;
    QStringList m_announced;
    QStringList m_errors;
    QVector<QPair<qint64, qint64>> m_steps;
};
