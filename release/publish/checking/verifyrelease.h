// SPDX-License-Identifier: MIT
#pragma once

#include "release/publish/base/progress.h"
#include "release/publish/base/report.h"
#include "release/publish/commandline/commandline.h"

/// Checks every release of the tree that @p request names against all rules. Writes nothing.
Outcome VerifyRelease(const Request &request, Progress &progress);
