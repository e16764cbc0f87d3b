#pragma once

#include "release/publish/commandline.h"
#include "release/publish/progress.h"
#include "release/publish/report.h"

/// Holds the release that @p request, a verification, names against every rule. Writes nothing.
Outcome VerifyRelease(const Request &request, Progress &progress);
