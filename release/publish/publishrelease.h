#pragma once

#include "release/publish/commandline.h"
#include "release/publish/progress.h"
#include "release/publish/report.h"

/**
 * Publishes what @p request, which is no verification, asks for. Every rule that can be checked
 * before is checked before anything is written; a refused release leaves the tree as it was.
 */
Outcome PublishRelease(const Request &request, Progress &progress);
