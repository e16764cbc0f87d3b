// SPDX-License-Identifier: MIT
#pragma once

#include "release/publish/base/progress.h"
#include "release/publish/base/report.h"
#include "release/publish/commandline/commandline.h"

/**
 * Performs the commands zip, installer and promote. Every rule that can be checked in advance is
 * checked before anything is written. A refused release leaves the tree unchanged.
 */
Outcome PublishRelease(const Request &request, Progress &progress);
