#include "support/run_program.h"

#include "core/files.h"
#include "support/temporary_directory.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <sstream>
#include <stdexcept>

extern char** environ;

namespace orvelle::testing {

ProgramLaunch::ProgramLaunch(const std::filesystem::path& program,
                             const std::vector<std::string>& arguments,
                             const std::map<std::string, std::string>& environment) {
    words.push_back(program.string());
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::map<std::string, std::string> merged;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        const auto equals = text.find('=');
        merged[text.substr(0, equals)] = equals == std::string::npos ? "" : text.substr(equals + 1);
    }
    for (const auto& [key, value] : environment) {
        merged[key] = value;
    }
    for (const auto& [key, value] : merged) {
        if (!value.empty()) {
            pairs.push_back(key + "=" + value);
        }
    }
    for (auto* list : {&words, &pairs}) {
        auto& pointers = list == &words ? argv : envp;
        for (auto& text : *list) {
            pointers.push_back(text.data());
        }
        pointers.push_back(nullptr);
    }
}

std::optional<std::filesystem::path> findProgram(const std::string& name) {
    const char* path = std::getenv("PATH");
    std::istringstream folders(path != nullptr ? path : "/usr/bin:/bin");
    for (std::string folder; std::getline(folders, folder, ':');) {
        const auto candidate = std::filesystem::path(folder) / name;
        if (::access(candidate.c_str(), X_OK) == 0) {
            return candidate;
        }
    }
    return std::nullopt;
}

ProgramResult runProgram(const std::filesystem::path& program,
                         const std::vector<std::string>& arguments,
                         const std::map<std::string, std::string>& environment) {
    return runProgram(program, arguments, environment, {});
}

ProgramResult runProgram(const std::filesystem::path& program,
                         const std::vector<std::string>& arguments,
                         const std::map<std::string, std::string>& environment,
                         const std::function<void(int processID)>& whileRunning) {
    // Output goes to files, so that a chatty program never blocks on a full pipe.
    TemporaryDirectory folder;
    const auto outPath = folder / "out";
    const auto errPath = folder / "err";

    ProgramLaunch launch(program, arguments, environment);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outPath.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errPath.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
    pid_t pid = 0;
    const int spawned = ::posix_spawn(&pid, launch.argv[0], &actions, nullptr, launch.argv.data(),
                                      launch.envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) {
        throw std::runtime_error("could not run " + program.string() + ": " +
                                 std::strerror(spawned));
    }
    if (whileRunning) {
        whileRunning(pid);
    }
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) {
            throw std::runtime_error("waitpid failed");
        }
    }
    ProgramResult result{.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1,
                         .out = readFile(outPath),
                         .err = readFile(errPath)};
    return result;
}

std::filesystem::path orvelleBinary() {
    return ORVELLE_COMMAND;
}

} // namespace orvelle::testing
