#pragma once

#include <QtGlobal>

/**
 * When a run gives up. All in milliseconds since the last request was sent or data came; both
 * limits are looked at once per tick, so the real moment is the first tick at or after them.
 */
namespace TimeLimits
{

constexpr int FirstCheckDelayMs = 1000;
constexpr int TickMs = 2000;

/// A check that has not ended by then is stuck: a tick at the limit of CheckTimedOut() may be up to
/// a tick late, and has started the client by now.
constexpr int StuckCheckMs = 13000;

/// A worker that has not let go of the network for so long at the end of a run is stuck.
constexpr int WorkerLetsGoMs = 1000;

/// An answer that comes 9999 ms after the request is still in time.
constexpr bool CheckTimedOut(qint64 elapsedMs)
{
    return elapsedMs > 9999;
}

/// A download that stood still for 6000 ms is already given up.
constexpr bool DownloadStalled(qint64 elapsedMs)
{
    return elapsedMs >= 6000;
}

} // namespace TimeLimits
