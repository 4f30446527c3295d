#pragma once

// What tests of child processes check: which processes of a group are still alive, and
// stand-in programs written as scripts.

#include <sys/types.h>

#include <filesystem>
#include <string_view>
#include <vector>

namespace orvelle::testing {

// The processes of the group that are alive (zombies, which nothing reaps inside some
// containers, count as gone), from /proc.
std::vector<pid_t> livingProcessesInGroup(pid_t group);

// Writes an executable script (the text starts with its #! line).
void writeExecutableScript(const std::filesystem::path& path, std::string_view text);

} // namespace orvelle::testing
