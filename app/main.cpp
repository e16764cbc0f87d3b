// SPDX-License-Identifier: MIT
#include "app/capturearguments.h"
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

/// True when this process now holds the guard. Destroying @p guard releases it.
bool TakeGuard(QSharedMemory &guard)
{
    // Detaching removes a segment that a crashed run left behind. A segment that a running copy
    // holds stays.
    if (guard.attach(QSharedMemory::ReadWrite))
        guard.detach();
    return guard.create(1, QSharedMemory::ReadWrite);
}

/// Makes Qt draw at exactly the screen's scale. Qt reads these settings when the application object
/// is created.
void FollowTheScreensScale()
{
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
#if QT_VERSION >= QT_VERSION_CHECK(5, 14, 0)
    // By default Qt rounds the scale: 125 % would be drawn as 100 %, and 150 % as 200 %.
    QGuiApplication::setHighDpiScaleFactorRoundingPolicy(
        Qt::HighDpiScaleFactorRoundingPolicy::PassThrough);
#endif
}

} // namespace

int main(int argc, char *argv[])
{
    Q_INIT_RESOURCE(resources);
    FollowTheScreensScale();

    // Qt gets only the program's name. It would take options such as -stylesheet as its own: they
    // would not reach the client, and they would open files chosen by the author of a link.
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
    // Direct, so that the worker's network objects are released on its own thread, as the last
    // thing that thread does.
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
