#pragma once

#include "release/publish/base/report.h"
#include "release/publish/commandline/commandline.h"

// What decides about whom the releases of a tree are offered to. Each command changes the tree at
// once or, when it refuses, not at all. Main thread.

/// Sets the share, the versions and the networks of a release; what is not given stays as it is.
Outcome RollOut(const Request &request);

/// Stops the offers of a release or, without a version, of all.
Outcome StopOffers(const Request &request);

/// Takes StopOffers() back.
Outcome ResumeOffers(const Request &request);

/// Withdraws a release, and offers the one before to those that have it when that is asked for.
Outcome RollBack(const Request &request);

/// Lists the releases, the newest first.
Outcome ListReleases(const Request &request);
