// SPDX-License-Identifier: MIT
#pragma once

#include "release/publish/base/progress.h"
#include "release/publish/base/report.h"
#include "release/publish/commandline/commandline.h"

/**
 * Takes the next step of each plan that is due, judging by the access logs since the plan began.
 * When there are more failures than the request allows, stops the release instead and refuses.
 * Changes nothing when the logs do not tell. Never lowers a share. Main thread.
 */
Outcome AdvancePlans(const Request &request, Progress &progress);
