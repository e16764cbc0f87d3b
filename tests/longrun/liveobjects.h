// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

/**
 * Counts the QObjects of this process: timers, windows, network replies and everything else that
 * must be destroyed when an update is over. Any thread.
 */
namespace LiveObjects
{

/// Starts counting: objects created earlier do not count.
void Watch();

/// The class names of the live objects, sorted, one entry per object.
std::vector<std::string> Classes();

/// The number of their timers on the calling thread.
int Timers();

} // namespace LiveObjects
