// SPDX-License-Identifier: MIT
#include "release/publish/base/progress.h"

#include "release/publish/base/hostsystem.h"
#include "release/publish/base/report.h"

#include <QByteArray>

#include <cstdio>

namespace
{

constexpr int kBarWidth = 40;       // in characters
constexpr qint64 kRedrawPause = 80; // in milliseconds; more frequent redraws are not visible

int PartOf(qint64 done, qint64 total, int whole)
{
    return total > 0 ? int(qMin(done, total) * whole / total) : whole;
}

} // namespace

void Progress::Begin(const QString &step, qint64 total)
{
    End();
    m_step = step;
    m_total = total;
    m_done = 0;
    if (m_style == Lines) {
        std::fprintf(stderr, "publish: %s, %s\n", qPrintable(step), qPrintable(SizeText(total)));
        std::fflush(stderr);
    }
    if (m_style == Bar)
        Draw();
}

bool Progress::Advance(qint64 bytes)
{
    m_done += bytes;
    if (m_style == Bar && m_sinceDrawn.hasExpired(kRedrawPause))
        Draw();
    return !HostSystem::WasInterrupted();
}

void Progress::End()
{
    if (!m_drawn)
        return;
    // Overwrites the bar with blanks, which needs no escape sequences.
    std::fprintf(stderr, "\r%*s\r", kBarWidth + 40, "");
    std::fflush(stderr);
    m_drawn = false;
}

void Progress::Draw()
{
    const int full = PartOf(m_done, m_total, kBarWidth);
    const QByteArray bar = QByteArray(full, '#') + QByteArray(kBarWidth - full, '.');
    std::fprintf(stderr, "\r%-16.16s [%s] %3d%% of %-12.12s", qPrintable(m_step), bar.constData(),
                 PartOf(m_done, m_total, 100), qPrintable(SizeText(m_total)));
    std::fflush(stderr);
    m_drawn = true;
    m_sinceDrawn.start();
}
