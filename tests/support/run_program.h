#pragma once

// Runs a program built by this project (the `orvelle` command) the way a user would, and
// collects what it printed.

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
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

// The same, calling `whileRunning` with the program's process id once it has started (to
// signal it, say), and waiting for its end afterwards.
ProgramResult runProgram(const std::filesystem::path& program,
                         const std::vector<std::string>& arguments,
                         const std::map<std::string, std::string>& environment,
                         const std::function<void(int processID)>& whileRunning);

// A program's command line and the test's environment with `environment` laid over it (an
// empty value removes a variable), as execve takes them.
struct ProgramLaunch {
    ProgramLaunch(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                  const std::map<std::string, std::string>& environment);
    ProgramLaunch(const ProgramLaunch&) = delete;
    ProgramLaunch& operator=(const ProgramLaunch&) = delete;

    std::vector<std::string> words;
    std::vector<std::string> pairs;
    std::vector<char*> argv; // null-terminated, into `words`
    std::vector<char*> envp; // null-terminated, into `pairs`
};

// Finds a program on PATH; absent when it is not installed.
std::optional<std::filesystem::path> findProgram(const std::string& name);

// The `orvelle` binary of this build tree.
std::filesystem::path orvelleBinary();

} // namespace orvelle::testing
