#pragma once

#include <QtGlobal>

#ifdef Q_OS_UNIX

#include <sys/resource.h>

/**
 * While it lives this process has no room for another open file: opening one fails with
 * QFileDevice::ResourceError, number 4. Those that are open stay so. POSIX only.
 */
class NoFilesLeft
{
public:
    NoFilesLeft()
    {
        getrlimit(RLIMIT_NOFILE, &m_oldLimit);
        const rlimit none = {0, m_oldLimit.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    }

    ~NoFilesLeft() { setrlimit(RLIMIT_NOFILE, &m_oldLimit); }

    Q_DISABLE_COPY(NoFilesLeft)

private:
    rlimit m_oldLimit = {};
};

#endif
