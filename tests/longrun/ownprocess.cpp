// SPDX-License-Identifier: MIT
#include "tests/longrun/ownprocess.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <unistd.h>

namespace fs = std::filesystem;

std::vector<std::string> OwnProcess::Descriptors()
{
    std::vector<std::string> descriptors;
    for (const fs::directory_entry &entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        std::string target = fs::read_symlink(entry.path(), gone).string();
        // Without the number of a socket or pipe, which differs each time.
        target.erase(std::min(target.find(":["), target.size()));
        // The folder that is being read is open too.
        const bool own = target.rfind("/proc/", 0) == 0 && target.find("/fd") != std::string::npos;
        if (!gone && !own)
            descriptors.push_back(entry.path().filename().string() + ' ' + target);
    }
    std::sort(descriptors.begin(), descriptors.end());
    return descriptors;
}

std::vector<std::string> OwnProcess::Threads()
{
    std::vector<std::string> names;
    for (const fs::directory_entry &entry : fs::directory_iterator("/proc/self/task")) {
        if (entry.path().filename() == std::to_string(getpid()))
            continue;
        std::string name;
        std::getline(std::ifstream(entry.path() / "comm"), name);
        names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
}
