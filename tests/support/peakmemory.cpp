// SPDX-License-Identifier: MIT
#include "tests/support/peakmemory.h"

#ifdef Q_OS_LINUX

#include "tests/support/testhome.h"

#include <QByteArray>

#include <malloc.h>

namespace
{

#ifdef __SANITIZE_ADDRESS__
constexpr bool kCanBeMeasured = false;
#else
constexpr bool kCanBeMeasured = true;
#endif

} // namespace

qint64 LinuxMemory(const char *kind)
{
    const QByteArray wanted = QByteArray(kind) + ':';
    for (const QByteArray &line : ReadFile(QStringLiteral("/proc/self/status")).split('\n'))
        if (line.startsWith(wanted))
            return line.simplified().split(' ').at(1).toLongLong() * 1024;
    qFatal("the system does not tell %s", kind);
}

PeakMemory::PeakMemory()
{
    malloc_trim(0);
    // Resets the maximum to the current value, see proc(5).
    WriteFile(QStringLiteral("/proc/self/clear_refs"), "5");
    m_before = LinuxMemory("VmHWM");
}

qint64 PeakMemory::GrownBy() const
{
    return kCanBeMeasured ? LinuxMemory("VmHWM") - m_before : 0;
}

#else

PeakMemory::PeakMemory() = default;

qint64 PeakMemory::GrownBy() const
{
    return m_before;
}

#endif
