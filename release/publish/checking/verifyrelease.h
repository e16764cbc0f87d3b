#pragma once

#include "release/publish/base/progress.h"
#include "release/publish/base/report.h"
#include "release/publish/commandline/commandline.h"

/// Holds the release that @p request, a verification, names against every rule. Writes nothing.
Outcome VerifyRelease(const Request &request, Progress &progress);
