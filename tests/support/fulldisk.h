#pragma once

#include <QtGlobal>

#ifdef Q_OS_UNIX

#include <csignal>
#include <sys/resource.h>

/**
 * While it lives every write of this process to a file fails, as on a full disk; opening, making
 * and removing files go on working. POSIX only.
 */
class FullDisk
{
public:
    FullDisk() : m_oldHandler(std::signal(SIGXFSZ, SIG_IGN))
    {
        getrlimit(RLIMIT_FSIZE, &m_oldLimit);
        const rlimit none = {0, m_oldLimit.rlim_max};
        setrlimit(RLIMIT_FSIZE, &none);
    }

    ~FullDisk()
    {
        setrlimit(RLIMIT_FSIZE, &m_oldLimit);
        std::signal(SIGXFSZ, m_oldHandler);
    }

    Q_DISABLE_COPY(FullDisk)

private:
    void (*m_oldHandler)(int);
    rlimit m_oldLimit = {};
};

#endif
