// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

/// What this process holds, read from /proc. Linux only; any thread.
namespace OwnProcess
{

/// The open descriptors as "NUMBER TARGET", without that of the search itself.
std::vector<std::string> Descriptors();

/// The names of all threads except the main one.
std::vector<std::string> Threads();

} // namespace OwnProcess
