// SPDX-License-Identifier: MIT
#include "net/checkwatchdog.h"

#include "config/global.h"
#include "net/processend.h"
#include "net/timelimits.h"

#include <QCoreApplication>
#include <QDebug>
#include <QSemaphore>

#include <memory>
#include <utility>

CheckWatchdog::CheckWatchdog(QObject *worker, std::function<void()> release)
    : m_worker(worker), m_release(std::move(release))
{
    m_limit.setSingleShot(true);
    m_limit.setInterval(TimeLimits::StuckCheckMs);
    connect(&m_limit, &QTimer::timeout, this, &CheckWatchdog::StartClient);
    connect(qApp, &QCoreApplication::aboutToQuit, this, &CheckWatchdog::LeaveWhenStuck);
}

void CheckWatchdog::Begin()
{
    m_clientStarted.storeRelease(0);
    m_underWay.ref();
    QMetaObject::invokeMethod(&m_limit, QOverload<>::of(&QTimer::start), Qt::QueuedConnection);
}

bool CheckWatchdog::IsUnderWay() const
{
    return m_underWay.loadAcquire() > 0;
}

bool CheckWatchdog::EndWithPrompt()
{
    for (int count = m_underWay.loadAcquire(); count > 0; count = m_underWay.loadAcquire()) {
        if (m_underWay.testAndSetOrdered(count, count - 1))
            return true;
    }
    return false;
}

bool CheckWatchdog::EndWithClient()
{
    if (m_underWay.fetchAndStoreOrdered(0) == 0)
        return false;
    m_clientStarted.storeRelease(1);
    return true;
}

void CheckWatchdog::StartClient()
{
    if (!EndWithClient())
        return;
    Global::instance.LaunchClient();
    qDebug() << "check is stuck, client started without it";
}

void CheckWatchdog::LeaveWhenStuck()
{
    if (m_clientStarted.loadAcquire() == 0)
        return;
    // Shared, because a worker that is stuck now may run this long after this function has
    // returned.
    const auto released = std::make_shared<QSemaphore>();
    const auto letGo = [released, release = m_release] {
        release();
        released->release();
    };
    QMetaObject::invokeMethod(m_worker, letGo, Qt::QueuedConnection);
    if (!released->tryAcquire(1, TimeLimits::WorkerLetsGoMs))
        ProcessEnd::LeaveAtOnce(0);
}
