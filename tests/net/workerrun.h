#pragma once

#include "tests/support/logcapture.h"
#include "tests/support/peakmemory.h"
#include "tests/support/scriptedserver.h"
#include "tests/support/standinfile.h"
#include "tests/support/testhome.h"

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

/// The object that a JSON text holds; anything else ends the program.
QJsonObject Json(const QByteArray &text);

/**
 * The body of an answer that offers version 2.1.3, optional, as the zip package "Package.zip" with
 * the id "4711". @p changes are members of "biz" that differ: JSON without the outer braces.
 */
QByteArray Offer(const QByteArray &changes = QByteArray());

/// The same for a package that is exactly @p content and is left alone once verified.
QByteArray OfferOf(const QByteArray &content);

/// The line that tells that a package came in whole, and as announced by OfferOf().
QString Verified(const QByteArray &content);

/// A server's step that sends @p body, with further members such as "\"hold\":\"before\"".
QJsonObject Sends(const QByteArray &body, const QByteArray &members = QByteArray());

/// The MD5 digest as the service announces it.
QByteArray Md5(const QByteArray &content);

/**
 * A machine with an installed client of version 1.0.0 in English, configured for the service at
 * /check and packages at /package/, both over plain HTTP.
 */
class UpdateScene
{
public:
    explicit UpdateScene(ScriptedServer &server);

    /// Where packages are put.
    QString DownloadFolder() const;

    /// The package of Offer().
    QString PackagePath() const { return DownloadFolder() + QStringLiteral("/Package.zip"); }

    /// What was logged so far, without the window system's own remarks.
    QStringList Log() const;

    /// The same from the first line on that comes after the logged answer of the service.
    QStringList LogAfterAnswer() const;

    /// "[INFO] "NAME"  starting..." for the client.
    QString ClientStarts() const;

    const TestHome home;
    const StandIn client;
    const LogCapture log;
};

/**
 * The update worker on its own thread, built and torn down as the program's entry function does it.
 * Waits run the application's event loop, so that a quit of the program ends them.
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

    /// False when the program quits before the condition holds, or when that takes too long.
    bool RunUntil(const std::function<bool()> &condition, int timeoutMs = 15000);

    /// Afterwards the signals that the worker sent before it wrote the line have arrived, too.
    bool RunUntilLogged(const UpdateScene &scene, const QString &line, int timeoutMs = 15000);
    bool RunUntilPrompt();

    /// Waits for the prompt and presses "Update".
    bool StartDownload();

    /// The same with the event loop running all the while, until the program quits.
    bool DownloadUntilQuit();

    /// Waits until the progress dialog was told an error, the @p count th of this run.
    bool RunUntilError(int count = 1, int timeoutMs = 15000);

    /// Presses the progress dialog's one button.
    void PressProgressButton();

    /// What the progress dialog says of the download.
    QString ProgressLine() const;
    QString ProgressButton() const;

    /// The "update" values announced so far.
    const QStringList &Announced() const { return m_announced; }

    /// The error texts sent to the progress dialog so far.
    const QStringList &Errors() const { return m_errors; }

    /// The progress reported so far.
    const QVector<QPair<qint64, qint64>> &Steps() const { return m_steps; }

    /// Runs @p function on the worker's thread and waits for it.
    void OnWorkerThread(const std::function<void()> &function);

    /// The ids of the worker's timers that run, in no order.
    QVector<int> Timers();

    /// Interval in milliseconds and precision of each of them, in the same order.
    QVector<TimerKind> TimerKinds();

    /// Lets the worker have a timer event without waiting for it.
    void Tick(int timerId);

    /// Timer events that came to the worker so far, those of Tick() included.
    int TickCount() const { return m_ticks->count.loadAcquire(); }

    /// Ends the run as the entry function does; the destructor does it otherwise.
    void Shutdown();

private:
    Q_DISABLE_COPY(WorkerRun)

    /// Lives on the worker's thread, as event filters have to.
    class TickCounter : public QObject
    {
    public:
        QAtomicInt count;

    protected:
        bool eventFilter(QObject *watched, QEvent *event) override;
    };

    void Listen();
    void PressUpdate();
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
