// SPDX-License-Identifier: MIT
#include "bench/closewatch.h"

#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>

#include <chrono>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace
{

constexpr int kIntervalMs = 20;
constexpr qint64 kTimeoutMs = 120000;

} // namespace

CloseWatch::CloseWatch(const QString &path)
    : m_name(QFile::encodeName(QFileInfo(path).fileName())), m_queue(inotify_init1(IN_CLOEXEC))
{
    const QByteArray folder = QFile::encodeName(QFileInfo(path).absolutePath());
    if (inotify_add_watch(m_queue, folder.constData(), IN_CLOSE_WRITE) < 0)
        qFatal("cannot watch %s", folder.constData());
}

CloseWatch::~CloseWatch()
{
    ::close(m_queue);
}

double CloseWatch::Wait(const std::function<void()> &meanwhile) const
{
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < kTimeoutMs) {
        pollfd waiting{m_queue, POLLIN, 0};
        if (::poll(&waiting, 1, kIntervalMs) > 0) {
            const auto now = std::chrono::system_clock::now().time_since_epoch();
            if (WasClosed())
                return std::chrono::duration<double, std::milli>(now).count();
        }
        meanwhile();
    }
    qFatal("%s never came in whole", m_name.constData());
}

bool CloseWatch::WasClosed() const
{
    alignas(inotify_event) char events[4096];
    const ssize_t size = ::read(m_queue, events, sizeof events);
    for (ssize_t offset = 0; offset < size;) {
        const auto *const event = reinterpret_cast<const inotify_event *>(events + offset);
        if (m_name == event->name)
            return true;
        offset += ssize_t(sizeof(inotify_event) + event->len);
    }
    return false;
}
