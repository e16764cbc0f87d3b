#include "net/checkwatchdog.h"

#include "config/global.h"
#include "install/platform.h"
#include "net/timelimits.h"

#include <QCoreApplication>
#include <QDebug>
#include <QSemaphore>

#include <memory>
#include <utility>

namespace
{

constexpr int kNoCheckYet = 0;
constexpr int kUnderWay = -1;

} // namespace

CheckWatchdog::CheckWatchdog(QObject *worker, std::function<void()> release)
    : m_worker(worker), m_release(std::move(release)), m_state(kNoCheckYet)
{
    m_limit.setSingleShot(true);
    m_limit.setInterval(TimeLimits::StuckCheckMs);
    connect(&m_limit, &QTimer::timeout, this, &CheckWatchdog::StartClient);
    connect(qApp, &QCoreApplication::aboutToQuit, this, &CheckWatchdog::LeaveWhenStuck);
}

void CheckWatchdog::Begin()
{
    m_state.storeRelease(kUnderWay);
    QMetaObject::invokeMethod(&m_limit, QOverload<>::of(&QTimer::start), Qt::QueuedConnection);
}

bool CheckWatchdog::End(Ending ending)
{
    return m_state.testAndSetOrdered(kUnderWay, ending);
}

void CheckWatchdog::StartClient()
{
    if (!End(ClientStarted))
        return;
    Global::instance.LaunchClient();
    qDebug() << "check is stuck, client started without it";
}

void CheckWatchdog::LeaveWhenStuck()
{
    if (m_state.loadAcquire() != ClientStarted)
        return;
    // Shared: a worker that is stuck for now may answer when this function is long over.
    const auto answered = std::make_shared<QSemaphore>();
    const auto answer = [answered, release = m_release] {
        release();
        answered->release();
    };
    QMetaObject::invokeMethod(m_worker, answer, Qt::QueuedConnection);
    if (!answered->tryAcquire(1, TimeLimits::WorkerAnswersMs))
        Platform::LeaveAtOnce(0);
}
