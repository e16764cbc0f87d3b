#include "app/arguments.h"
#include "app/logmessagehandler.h"
#include "app/qtenvironment.h"
#include "config/global.h"
#include "net/httpdownloadfile.h"

#include <QApplication>
#include <QDir>
#include <QFont>
#include <QSharedMemory>
#include <QThread>

#include <algorithm>
#include <memory>

namespace
{

constexpr int kAlreadyRunning = -1;
constexpr int kNotConfigured = 0;

/// True when this process now holds the key. The guard is released when the object is destroyed.
bool TakeGuard(QSharedMemory &guard)
{
    // A segment that a crashed run left behind goes away with its last user; one that a live copy
    // holds stays.
    if (guard.attach(QSharedMemory::ReadWrite))
        guard.detach();
    return guard.create(1, QSharedMemory::ReadWrite);
}

/// Draws at exactly the screen's scale. Qt takes these settings when the application is built.
void FollowTheScreensScale()
{
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
#if QT_VERSION >= QT_VERSION_CHECK(5, 14, 0)
    // By default Qt rounds: 125 % would be drawn as 100 %, and 150 % as 200 %.
    QGuiApplication::setHighDpiScaleFactorRoundingPolicy(
        Qt::HighDpiScaleFactorRoundingPolicy::PassThrough);
#endif
}

} // namespace

int main(int argc, char *argv[])
{
    Q_INIT_RESOURCE(resources);
    FollowTheScreensScale();

    // Qt sees the program's name only. It would take options such as -stylesheet for its own: they
    // would not reach the client, and open files that whoever wrote a link has chosen.
    int ownArguments = std::min(argc, 1);
    auto environment = std::make_unique<QtEnvironmentGuard>();
    QApplication application(ownArguments, argv);
    environment.reset();

    QFont font;
    font.setFamily(QStringLiteral("微软雅黑"));
    QApplication::setFont(font);

    QSharedMemory guard(QStringLiteral("ZellAutoUpdate"));
    if (!TakeGuard(guard))
        return kAlreadyRunning;

    QDir::setCurrent(QCoreApplication::applicationDirPath());
    qInstallMessageHandler(LogMessageHandler);
    if (Global::instance.ReadConfig() != Global::Success)
        return kNotConfigured;
    CaptureArguments(argc, argv);

    auto *thread = new QThread;
    auto *worker = new HttpDownLoadFile(nullptr);
    worker->moveToThread(thread);
    // Direct: what the worker holds of the network is released on its own thread, as its last act.
    QObject::connect(thread, &QThread::finished, worker, &HttpDownLoadFile::DeleteResource,
                     Qt::DirectConnection);
    thread->start(QThread::InheritPriority);

    const int result = QApplication::exec();

    thread->exit(0);
    thread->wait();
    delete worker;
    delete thread;
    return result;
}
