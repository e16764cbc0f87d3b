// SPDX-License-Identifier: MIT
#pragma once

/// The names of what a lane counts.
namespace Figure
{

constexpr char Updates[] = "updates";
constexpr char Checks[] = "checks";
constexpr char CleanExits[] = "cleanExits";
constexpr char LeakReports[] = "leakReports";
constexpr char EndReports[] = "endReports";
constexpr char Descriptors[] = "descriptors";
constexpr char Threads[] = "threads";
constexpr char Objects[] = "objects";
constexpr char Segments[] = "segments";
constexpr char LateDetachments[] = "lateDetachments";
constexpr char Semaphores[] = "semaphores";
constexpr char Processes[] = "processes";
constexpr char Files[] = "files";
constexpr char ClientStarts[] = "clientStarts";
constexpr char InstallerStarts[] = "installerStarts";
constexpr char Installed[] = "installed";
constexpr char LogEmptied[] = "logEmptied";
constexpr char LogBytesAboveLimit[] = "logBytesAboveLimit"; ///< maximum, not sum
constexpr char LogLongestLine[] = "logLongestLine";         ///< maximum, in bytes
constexpr char Findings[] = "findings";

} // namespace Figure
