#pragma once

// Running `orvelle` in a test: its JSON answer, or its exit status and message.

#include "core/json.h"
#include "support/run_program.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <filesystem>
#include <string_view>
#include <thread>

namespace orvelle::testing {

// Runs orvelle and parses what it printed; a failure of the run fails the test.
inline Json orvelleJson(const std::vector<std::string>& arguments,
                        const std::map<std::string, std::string>& environment = {}) {
    const ProgramResult result = runProgram(orvelleBinary(), arguments, environment);
    EXPECT_EQ(result.status, 0) << result.err;
    try {
        return parseJson(result.out);
    } catch (const JsonDecodeError& error) {
        ADD_FAILURE() << "not JSON: " << result.out << "\n" << result.err;
        return nullptr;
    }
}

// Runs orvelle expecting a refusal: the exit status, and the message on its error output.
inline ::testing::AssertionResult
orvelleRefuses(const std::vector<std::string>& arguments, int status, std::string_view message,
               const std::map<std::string, std::string>& environment = {}) {
    const ProgramResult result = runProgram(orvelleBinary(), arguments, environment);
    if (result.status == status && result.err.find(message) != std::string::npos) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure()
           << "orvelle " << arguments.front() << " exited " << result.status << ", not " << status
           << ", saying: " << result.err << "(not \"" << message << "\")";
}

// The hidden files that commands write beside their outputs until they are finished.
inline std::vector<std::filesystem::path> partialFilesIn(const std::filesystem::path& folder) {
    std::vector<std::filesystem::path> found;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.path().filename().string().starts_with(".partial-")) {
            found.push_back(entry.path());
        }
    }
    return found;
}

// Runs orvelle and sends it `signal` as soon as it has begun a partial file in `folder`.
inline ProgramResult
orvelleSignalledWhileWriting(const std::vector<std::string>& arguments,
                             const std::map<std::string, std::string>& environment,
                             const std::filesystem::path& folder, int signal) {
    return runProgram(orvelleBinary(), arguments, environment, [&](int processID) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (partialFilesIn(folder).empty() && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        ::kill(processID, signal);
    });
}

} // namespace orvelle::testing
