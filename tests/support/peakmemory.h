// SPDX-License-Identifier: MIT
#pragma once

#include <QtGlobal>

#ifdef Q_OS_LINUX
/// A figure of /proc/self/status in bytes: "VmRSS" (memory now), "VmHWM" (its maximum) or "VmSize"
/// (the address space).
qint64 LinuxMemory(const char *kind);
#endif

/**
 * How far the memory of this process has grown at most since the object was created. Works on Linux
 * without sanitizers, which keep freed memory; elsewhere the growth is always 0.
 */
class PeakMemory
{
public:
    PeakMemory();

    /// In bytes.
    qint64 GrownBy() const;

private:
    qint64 m_before = 0;
};
