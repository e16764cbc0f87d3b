// SPDX-License-Identifier: MIT
#pragma once

#include <QtGlobal>

/**
 * The time limits of a run, in milliseconds. Elapsed times count from the last request or the last
 * data received. Both limits are checked once per tick, so a run gives up at the first tick at or
 * after the limit.
 */
namespace TimeLimits
{

constexpr int FirstCheckDelayMs = 1000;
constexpr int TickMs = 2000;

/// A check that has not ended by then is stuck: the first tick after the limit of CheckTimedOut()
/// should have started the client.
constexpr int StuckCheckMs = 13000;

/// A worker that takes longer than this to delete its network objects at the end of a run is stuck.
constexpr int WorkerLetsGoMs = 1000;

/// An answer that comes 9999 ms after the request is still in time.
constexpr bool CheckTimedOut(qint64 elapsedMs)
{
    return elapsedMs > 9999;
}

/// A download that has received nothing for 6000 ms is given up.
constexpr bool DownloadStalled(qint64 elapsedMs)
{
    return elapsedMs >= 6000;
}

} // namespace TimeLimits
