#pragma once

#include <string>
#include <vector>

/**
 * Counts the framework's objects of this process: timers, windows, network replies and all else
 * that must be gone when an update is over. Any thread.
 */
namespace LiveObjects
{

/// Every object made from here on counts, until it is destroyed.
void Watch();

/// The classes of those that live, sorted, a class as often as it has objects.
std::vector<std::string> Classes();

/// How many timers of theirs run on the calling thread.
int Timers();

} // namespace LiveObjects
