#pragma once

#include <QtGlobal>

#ifdef Q_OS_LINUX
/// What the system says of this process's memory: "VmRSS" now, "VmHWM" at the most, "VmSize" with
/// what was only reserved. In bytes.
qint64 LinuxMemory(const char *kind);
#endif

/**
 * The most memory that this process has had since the object was made, above what it had then. Only
 * Linux tells, and only without the sanitizers, which keep what was freed: elsewhere the growth is
 * always 0.
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
