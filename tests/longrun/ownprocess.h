#pragma once

#include <string>
#include <vector>

/// What the system holds for this process. Linux only; any thread.
namespace OwnProcess
{

/// The open descriptors, each as "NUMBER TARGET", without the one that looks.
std::vector<std::string> Descriptors();

/// The names of the threads but the main one.
std::vector<std::string> Threads();

} // namespace OwnProcess
