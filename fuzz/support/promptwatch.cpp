// SPDX-License-Identifier: MIT
#include "fuzz/support/promptwatch.h"

#include "fuzz/support/require.h"

#include <ctime>

double CpuSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

OnlyFonts::~OnlyFonts()
{
    for (const QString &name : m_watch.Names())
        Require(name.startsWith(QLatin1String("/usr/share/fonts/")), "no file is loaded", name);
}
