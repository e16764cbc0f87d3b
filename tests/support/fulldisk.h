#pragma once

#include <QtGlobal>

#ifdef Q_OS_UNIX

#include <csignal>
#include <sys/resource.h>

/**
 * While it lives every write of this process to a file fails, as on a full disk, or every one
 * beyond the first bytes of the file; opening, making and removing files go on working. POSIX only.
 */
class FullDisk
{
public:
    explicit FullDisk(rlim_t room = 0) : m_oldHandler(std::signal(SIGXFSZ, SIG_IGN))
    {
        getrlimit(RLIMIT_FSIZE, &m_oldLimit);
        const rlimit little = {room, m_oldLimit.rlim_max};
        setrlimit(RLIMIT_FSIZE, &little);
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
