#pragma once

#include "release/publish/base/report.h"
#include "release/publish/commandline/commandline.h"

/**
 * Copies a tree to the nodes that serve it, with rsync: the packages to all of them first, then the
 * answers, then the decisions, with the replacement of one link at the end. Refuses, before
 * anything is written, when a node has a package with other bytes, or when a package that is
 * offered is missing. A node that fails ends it; what was done is harmless, and repeating it
 * completes the copy. Only a stop goes first of all, to every node that can be reached. Main
 * thread.
 */
Outcome PushTree(const Request &request);
