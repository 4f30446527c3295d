#pragma once

// Runs a program built by this project (the `orvelle` command) the way a user would, and
// collects what it printed.

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace orvelle::testing {

struct ProgramResult {
    int status = -1; // the exit status; -1 when the program did not exit normally
    std::string out;
    std::string err;
};

// Runs the program with the arguments, the environment of the test plus `environment`,
// and no input. Waits for it to end.
ProgramResult runProgram(const std::filesystem::path& program,
                         const std::vector<std::string>& arguments,
                         const std::map<std::string, std::string>& environment = {});

// The `orvelle` binary of this build tree.
std::filesystem::path orvelleBinary();

} // namespace orvelle::testing
