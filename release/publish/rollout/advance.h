#pragma once

#include "release/publish/base/progress.h"
#include "release/publish/base/report.h"
#include "release/publish/commandline/commandline.h"

/**
 * Performs the next step of each plan in a tree whose time has come, by what the access logs tell
 * since the plan began. Stops the release instead, and refuses, when more goes wrong than the
 * request allows. Changes nothing when it cannot tell. Never lowers a share. Main thread.
 */
Outcome AdvancePlans(const Request &request, Progress &progress);
