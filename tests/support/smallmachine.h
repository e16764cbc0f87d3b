#pragma once

#include <QtGlobal>

#ifdef Q_OS_LINUX

#include "tests/support/peakmemory.h"

#include <sys/resource.h>

/// While it lives this process can have only so many more bytes of memory.
class SmallMachine
{
public:
    explicit SmallMachine(qint64 room)
    {
        getrlimit(RLIMIT_AS, &m_oldLimit);
        const rlimit little = {rlim_t(LinuxMemory("VmSize") + room), m_oldLimit.rlim_max};
        setrlimit(RLIMIT_AS, &little);
    }

    ~SmallMachine() { setrlimit(RLIMIT_AS, &m_oldLimit); }

    Q_DISABLE_COPY(SmallMachine)

private:
    rlimit m_oldLimit = {};
};

#endif
