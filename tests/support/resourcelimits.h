// SPDX-License-Identifier: MIT
#pragma once

#include <QtGlobal>

#ifdef Q_OS_UNIX

#include "tests/support/peakmemory.h"

#include <csignal>
#include <sys/resource.h>

/// Lowers a limit of this process while it lives. POSIX only, as are all classes of this header.
class ResourceLimit
{
public:
    using Resource = decltype(RLIMIT_FSIZE); // an enumeration on some systems

    ResourceLimit(Resource resource, rlim_t limit) : m_resource(resource)
    {
        getrlimit(m_resource, &m_oldLimit);
        const rlimit lower = {limit, m_oldLimit.rlim_max};
        setrlimit(m_resource, &lower);
    }

    ~ResourceLimit() { setrlimit(m_resource, &m_oldLimit); }

    Q_DISABLE_COPY(ResourceLimit)

private:
    const Resource m_resource;
    rlimit m_oldLimit = {};
};

/**
 * While it lives every write of this process to a file fails beyond the first @p room bytes of the
 * file, as on a full disk. Files can still be opened, created and removed.
 */
class FullDisk
{
public:
    explicit FullDisk(rlim_t room = 0)
        : m_oldHandler(std::signal(SIGXFSZ, SIG_IGN)), m_limit(RLIMIT_FSIZE, room)
    {
    }

    ~FullDisk() { std::signal(SIGXFSZ, m_oldHandler); }

    Q_DISABLE_COPY(FullDisk)

private:
    void (*m_oldHandler)(int);
    ResourceLimit m_limit;
};

/**
 * While it lives this process cannot open another file: that fails with QFileDevice::ResourceError,
 * number 4. Open files stay open.
 */
class NoFilesLeft : public ResourceLimit
{
public:
    NoFilesLeft() : ResourceLimit(RLIMIT_NOFILE, 0) {}
};

#ifdef Q_OS_LINUX
/// While it lives this process can allocate only @p room more bytes of memory.
class LittleMemory : public ResourceLimit
{
public:
    explicit LittleMemory(qint64 room)
        : ResourceLimit(RLIMIT_AS, rlim_t(LinuxMemory("VmSize") + room))
    {
    }
};
#endif

#endif
