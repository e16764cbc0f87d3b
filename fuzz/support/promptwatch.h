// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/filewatch.h"

/// The processor time of this thread, in seconds.
double CpuSeconds();

/**
 * While it lives, requires that no files are looked for except fonts: Qt looks for a font with rare
 * characters. One at a time; one thread.
 */
class OnlyFonts
{
public:
    OnlyFonts() = default;
    ~OnlyFonts();
    Q_DISABLE_COPY(OnlyFonts)

private:
    FileWatch m_watch{QString()};
};
