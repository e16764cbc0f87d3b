#pragma once

#include "tests/support/filewatch.h"

/// The processor time of this thread, in seconds.
double CpuSeconds();

/**
 * Requires of what runs while it lives that it looks for no file but fonts: rare characters let the
 * framework look for a font that has them. One at a time; one thread.
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
