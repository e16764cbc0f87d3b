// SPDX-License-Identifier: MIT
#pragma once

#include "release/publish/base/report.h"
#include "release/publish/commandline/commandline.h"

// The commands that decide who is offered the releases of a tree. Each command changes the tree
// atomically or, when it refuses, not at all. Main thread.

/// Sets the share, the versions and the networks of a release. Options that are not given leave
/// them unchanged.
Outcome RollOut(const Request &request);

/// Stops one release or, without a version, all releases.
Outcome StopOffers(const Request &request);

/// Reverses StopOffers().
Outcome ResumeOffers(const Request &request);

/// Withdraws a release permanently and, on request, offers the previous one to clients that have
/// it.
Outcome RollBack(const Request &request);

/// Lists the releases, the newest first.
Outcome ListReleases(const Request &request);
