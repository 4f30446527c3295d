#include "support/run_program.h"

#include "support/temporary_directory.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

extern char** environ;

namespace orvelle::testing {

namespace {

std::string readWhole(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return std::move(text).str();
}

} // namespace

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

    std::vector<std::string> words{program.string()};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (auto& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);

    std::map<std::string, std::string> merged;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        const auto equals = text.find('=');
        merged[text.substr(0, equals)] = equals == std::string::npos ? "" : text.substr(equals + 1);
    }
    for (const auto& [key, value] : environment) {
        merged[key] = value;
    }
    std::vector<std::string> pairs;
    for (const auto& [key, value] : merged) {
        pairs.push_back(key + "=" + value);
    }
    std::vector<char*> envp;
    for (auto& pair : pairs) {
        envp.push_back(pair.data());
    }
    envp.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outPath.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errPath.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
    pid_t pid = 0;
    const int spawned = ::posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), envp.data());
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
    ProgramResult result;
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.out = readWhole(outPath);
    result.err = readWhole(errPath);
    return result;
}

std::filesystem::path orvelleBinary() {
    return ORVELLE_COMMAND;
}

} // namespace orvelle::testing
