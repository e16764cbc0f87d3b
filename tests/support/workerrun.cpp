// SPDX-License-Identifier: MIT
#include "tests/support/workerrun.h"

#include "config/global.h"
#include "net/httpdownloadfile.h"
#include "net/timelimits.h"
#include "tests/support/loglines.h"
#include "ui/dwondialog.h"
#include "ui/updatedialog.h"

#include <QApplication>
#include <QCryptographicHash>
#include <QJsonDocument>
#include <QLabel>
#include <QPushButton>
#include <QTest>
#include <QTimer>
#include <QTimerEvent>

#include <algorithm>

/// The pictures of the dialogs. Resources of a library must be requested outside of namespaces.
static void LoadResources()
{
    Q_INIT_RESOURCE(resources);
}

namespace
{

/// The only window of a class; the worker does not give its dialogs away.
template <class Window> Window *FindWindow()
{
    Window *found = nullptr;
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (auto *window = qobject_cast<Window *>(widget)) {
            if (found != nullptr)
                qFatal("there is more than one %s", Window::staticMetaObject.className());
            found = window;
        }
    }
    if (found == nullptr)
        qFatal("there is no %s", Window::staticMetaObject.className());
    return found;
}

/// @p object with the members @p changes added or replaced.
QJsonObject Merged(QJsonObject object, const QByteArray &changes)
{
    const QJsonObject other = Json('{' + changes + '}');
    for (auto member = other.begin(); member != other.end(); ++member)
        object.insert(member.key(), member.value());
    return object;
}

QByteArray Compact(const QJsonObject &object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

/// The worker creates its dialogs, which belong to the GUI thread.
HttpDownLoadFile *MakeWorker()
{
    LoadResources();
    return new HttpDownLoadFile(nullptr);
}

QPushButton *ButtonOf(QWidget *window, const char *name)
{
    return window->findChild<QPushButton *>(QLatin1String(name));
}

} // namespace

QJsonObject Json(const QByteArray &text)
{
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(text, &error);
    if (!document.isObject())
        qFatal("no JSON object: %s (%s)", text.constData(), qPrintable(error.errorString()));
    return document.object();
}

QByteArray Offer(const QByteArray &changes)
{
    const QJsonObject biz = Merged(Json(R"({"id":"4711","update":"1","latestVersion":"2.1.3",
                 "latestVersionUrl":"https://packages.example/files/Package.zip",
                 "latestVersionInfo":"&Fixes","md5":"","sha1":"","packageSize":3,"updateType":1})"),
                                   changes);
    return Compact({{QStringLiteral("code"), QStringLiteral("000000")},
                    {QStringLiteral("desc"), QStringLiteral("ok")},
                    {QStringLiteral("biz"), biz}});
}

QByteArray OfferOf(const QByteArray &content)
{
    return Offer(R"("updateType":2,"md5":")" + Md5(content) + '"');
}

QString Verified(const QByteArray &content)
{
    const QString digest = QString::fromLatin1(Md5(content));
    return LogLine::Digests(digest, digest);
}

QJsonObject Sends(const QByteArray &body, const QByteArray &members)
{
    return Merged({{QStringLiteral("bodyBase64"), QString::fromLatin1(body.toBase64())}}, members);
}

QByteArray Md5(const QByteArray &content)
{
    return QCryptographicHash::hash(content, QCryptographicHash::Md5).toHex();
}

UpdateScene::UpdateScene(ScriptedServer &server)
{
    server.Reset();
    Global &global = Global::instance;
    global.currentVersion = QStringLiteral("1.0.0");
    global.updateCheckUrl = server.HttpUrl(QStringLiteral("/check"));
    global.updatePackageUrl = server.HttpUrl(QStringLiteral("/package/"));
    global.language = QStringLiteral("en");
}

QStringList UpdateScene::Log() const
{
    QStringList lines;
    for (const QString &line : log.Messages())
        if (!line.contains(QLatin1String("This plugin does not support")))
            lines.append(line);
    return lines;
}

QStringList UpdateScene::LogAfterAnswer() const
{
    const QStringList lines = Log();
    const auto answer = std::find_if(lines.cbegin(), lines.cend(), [](const QString &line) {
        return line.startsWith(LogLine::Answer(QString()));
    });
    return lines.mid(int(answer - lines.cbegin()) + 1);
}

WorkerRun::WorkerRun()
    : m_thread(new QThread), m_worker(MakeWorker()), m_prompt(FindWindow<UpdateDialog>()),
      m_progress(FindWindow<DwonDialog>()), m_ticks(std::make_unique<TickCounter>())
{
    m_worker->moveToThread(m_thread);
    QObject::connect(m_thread, &QThread::finished, m_worker, &HttpDownLoadFile::DeleteResource,
                     Qt::DirectConnection);
    Listen();
    m_thread->start(QThread::InheritPriority);
    m_ticks->moveToThread(m_thread);
    OnWorkerThread([this] { m_worker->installEventFilter(m_ticks.get()); });
    SkipPauseBeforeCheck();
}

/// Lets the single shot that begins the check expire in the event loop at once. Single shots are
/// children of the event dispatcher.
void WorkerRun::SkipPauseBeforeCheck()
{
    auto *dispatcher = QAbstractEventDispatcher::instance();
    for (QObject *owner : dispatcher->children()) {
        for (const QAbstractEventDispatcher::TimerInfo &timer : dispatcher->registeredTimers(owner))
            if (timer.interval == TimeLimits::FirstCheckDelayMs)
                QCoreApplication::postEvent(owner, new QTimerEvent(timer.timerId));
    }
}

WorkerRun::~WorkerRun()
{
    Shutdown();
}

void WorkerRun::Listen()
{
    // All of these signals are queued for the GUI thread, after the connections of the dialogs.
    QObject::connect(m_worker, &HttpDownLoadFile::Aupdate, &m_listener,
                     [this](const QString &mode) { m_announced.append(mode); });
    QObject::connect(m_worker, &HttpDownLoadFile::UpdateBar, &m_listener,
                     [this](qint64 read, qint64 total) {
                         m_steps.append({read, total});
                     });
    QObject::connect(m_progress, &DwonDialog::ErrSignal, &m_listener,
                     [this](const QString &text) { m_errors.append(text); });
}

bool WorkerRun::RunUntil(const std::function<bool()> &condition, int timeoutMs)
{
    constexpr int met = 78;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        if (condition())
            QCoreApplication::exit(met);
    });
    QTimer limit;
    limit.setSingleShot(true);
    QObject::connect(&limit, &QTimer::timeout, [] { QCoreApplication::exit(met + 1); });
    poll.start(5);
    limit.start(timeoutMs);
    return QCoreApplication::exec() == met;
}

bool WorkerRun::RunUntilLogged(const UpdateScene &scene, const QString &line, int timeoutMs)
{
    const bool isLogged = RunUntil([&] { return scene.log.Messages().contains(line); }, timeoutMs);
    // This thread may not have handled signals that the worker sent before the line.
    QCoreApplication::sendPostedEvents();
    return isLogged;
}

bool WorkerRun::RunUntilPrompt()
{
    return RunUntil([this] { return m_prompt->isVisible() && !m_announced.isEmpty(); });
}

bool WorkerRun::StartDownload()
{
    if (!RunUntilPrompt())
        return false;
    PressUpdate();
    return m_progress->isVisible();
}

bool WorkerRun::DownloadUntilQuit()
{
    if (!RunUntilPrompt())
        return false;
    // Pressed in the event loop, because a quit before it starts would be lost.
    QTimer::singleShot(0, &m_listener, [this] { PressUpdate(); });
    return RunUntilQuit();
}

void WorkerRun::PressUpdate()
{
    QTest::mouseClick(ButtonOf(m_prompt, "immedBtn"), Qt::LeftButton);
}

bool WorkerRun::RunUntilError(int count, int timeoutMs)
{
    return RunUntil([&] { return m_errors.size() >= count; }, timeoutMs);
}

void WorkerRun::PressProgressButton()
{
    QTest::mouseClick(ButtonOf(m_progress, "cancleBtn"), Qt::LeftButton);
}

QString WorkerRun::ProgressLine() const
{
    return m_progress->findChild<QLabel *>(QStringLiteral("labInstall"))->text();
}

QString WorkerRun::ProgressButton() const
{
    return ButtonOf(m_progress, "cancleBtn")->text();
}

void WorkerRun::OnWorkerThread(const std::function<void()> &function)
{
    QMetaObject::invokeMethod(m_worker, function, Qt::BlockingQueuedConnection);
}

QList<QAbstractEventDispatcher::TimerInfo> WorkerRun::RegisteredTimers()
{
    QList<QAbstractEventDispatcher::TimerInfo> timers;
    OnWorkerThread(
        [&] { timers = QAbstractEventDispatcher::instance()->registeredTimers(m_worker); });
    return timers;
}

QVector<int> WorkerRun::Timers()
{
    QVector<int> ids;
    for (const QAbstractEventDispatcher::TimerInfo &timer : RegisteredTimers())
        ids.append(timer.timerId);
    return ids;
}

QVector<WorkerRun::TimerKind> WorkerRun::TimerKinds()
{
    QVector<TimerKind> kinds;
    for (const QAbstractEventDispatcher::TimerInfo &timer : RegisteredTimers())
        kinds.append({timer.interval, timer.timerType});
    return kinds;
}

void WorkerRun::Tick(int timerId)
{
    OnWorkerThread([&] {
        QTimerEvent event(timerId);
        QCoreApplication::sendEvent(m_worker, &event);
    });
}

bool WorkerRun::TickCounter::eventFilter(QObject *, QEvent *event)
{
    if (event->type() == QEvent::Timer)
        count.fetchAndAddRelease(1);
    return false;
}

void WorkerRun::Shutdown()
{
    if (m_worker == nullptr)
        return;
    m_thread->exit(0);
    m_thread->wait();
    delete m_worker;
    delete m_thread;
    m_worker = nullptr;
    m_thread = nullptr;
    // A late quit would end the first wait of the next test.
    QTimer::singleShot(0, qApp, &QCoreApplication::quit);
    QCoreApplication::exec();
}
