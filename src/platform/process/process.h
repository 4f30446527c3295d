#pragma once

// Child processes: started with posix_spawn, fed and read through pipes that are watched
// with poll, bounded in time and in output, cancelled by a stop token, and stopped with
// their whole process group, so that nothing they started outlives them.

#include "core/error.h"

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvelle {

enum class ProcessErrorCode {
    launchFailed,        // the program could not be started (missing, not executable, ...)
    timedOut,            // it ran past its time-out and was stopped
    outputLimitExceeded, // it wrote more than its output limit and was stopped
};

class ProcessError : public CodedError<ProcessErrorCode> {
public:
    // `reason` is the system's reason for a launch failure, empty otherwise.
    ProcessError(ProcessErrorCode code, const std::string& message, std::string reason = {})
        : CodedError(code, message), reason_(std::move(reason)) {}
    const std::string& reason() const { return reason_; }

private:
    std::string reason_;
};

struct ProcessOptions {
    std::vector<std::string> arguments; // after the program's own name
    // Set in the child's copy of this program's environment (a value replaces ours).
    std::vector<std::pair<std::string, std::string>> environment;
    std::filesystem::path workingDirectory; // empty: this program's
    // Written to standard input, which is then closed. Without it the child reads
    // /dev/null.
    std::optional<std::string> input;
    std::optional<std::chrono::milliseconds> timeout;
    // Between the polite SIGTERM and SIGKILL when the process has to be stopped.
    std::chrono::milliseconds terminationGrace{2000};
    // Standard output beyond this many bytes stops the process (outputLimitExceeded).
    std::size_t outputLimit = std::size_t{256} << 20;
    // Standard error is read all the time but only its last this many bytes are kept.
    std::size_t errorLimit = std::size_t{1} << 20;
    // The child leads a process group of its own, which is stopped as a whole; without it
    // the child stays in ours and only the child itself is signalled.
    bool ownProcessGroup = true;
    // Listed in HelperProcessRegistry while it runs, so terminateAll reaches it.
    bool tracked = true;
    // Each piece of standard output or error as it is read, on the calling thread. An
    // exception thrown here stops the process and is passed on.
    std::function<void(std::string_view)> onOutput;
    std::function<void(std::string_view)> onError;
};

struct ProcessResult {
    int status = 0; // the exit code, or 128 + the number of the signal that ended it
    int signal = 0; // the signal that ended the process; 0 when it exited
    std::string output;
    std::string error;           // the last ProcessOptions::errorLimit bytes
    bool errorTruncated = false; // earlier standard error was dropped
};

// Runs the program to its end and returns what it wrote and how it ended; a non-zero
// status is no error here. Throws ProcessError, or CancellationError once `stop` is
// requested and the process has been stopped. Whatever way it ends, the process has been
// reaped and its group (with ownProcessGroup) has been killed when this returns.
ProcessResult runProcess(const std::filesystem::path& executable, const ProcessOptions& options,
                         const std::stop_token& stop = {});

// A regular file (or a link to one) that this user may execute.
bool isExecutableFile(const std::filesystem::path& path);

// The first executable file of that name in the folders of $PATH.
std::optional<std::filesystem::path> findExecutableInPath(std::string_view name);

} // namespace orvelle
