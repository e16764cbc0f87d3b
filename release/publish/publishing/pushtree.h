// SPDX-License-Identifier: MIT
#pragma once

#include "release/publish/base/report.h"
#include "release/publish/commandline/commandline.h"

/**
 * Copies a tree to the nodes that serve it, with rsync: the packages to all nodes first, then the
 * answers, then the decisions, and finally one link is replaced on each node. Refuses, before
 * anything is written, when a node has a package with different content or when an offered package
 * is missing. The first node that fails ends the command; what was copied is harmless, and running
 * the command again completes the copy. A stop is copied before everything else, to every node that
 * can be reached. Main thread.
 */
Outcome PushTree(const Request &request);
