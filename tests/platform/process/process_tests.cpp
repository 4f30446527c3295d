// The process runner against real programs (the shell, sleep, yes) and stand-in scripts for
// the ways a helper can misbehave: hanging, ignoring SIGTERM, flooding, leaving children.

#include "platform/process/helper_process_registry.h"
#include "platform/process/process.h"
#include "support/process_groups.h"
#include "support/temporary_directory.h"
#include "support/thrown.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <future>
#include <thread>

namespace orvelle {
namespace {

using namespace std::chrono_literals;
using testing::livingProcessesInGroup;
using testing::TemporaryDirectory;
using testing::writeExecutableScript;
using Clock = std::chrono::steady_clock;

const std::filesystem::path kShell = "/bin/sh";

ProcessOptions shell(std::string script) {
    ProcessOptions options;
    options.arguments = {"-c", std::move(script)};
    return options;
}

// The first line a child prints: scripts below print their process id first.
pid_t firstLineAsPid(const std::string& output) {
    return static_cast<pid_t>(std::stol(output.substr(0, output.find('\n'))));
}

// Waits until a group has no living member, for at most `limit`.
bool groupEnds(pid_t group, std::chrono::milliseconds limit = 5s) {
    const auto end = Clock::now() + limit;
    while (!livingProcessesInGroup(group).empty()) {
        if (Clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(20ms);
    }
    return true;
}

TEST(ProcessTest, PassesArgumentsInputEnvironmentAndFolderAndReportsHowItEnded) {
    TemporaryDirectory folder;
    struct Case {
        std::string script;
        int status;
        int signal;
    };
    const std::vector<Case> cases{
        {"exit 0", 0, 0},
        {"exit 3", 3, 0},
        {"kill -TERM $$", 128 + SIGTERM, SIGTERM},
        {"kill -KILL $$", 128 + SIGKILL, SIGKILL},
    };
    for (const auto& each : cases) {
        const auto result = runProcess(kShell, shell(each.script));
        EXPECT_EQ(result.status, each.status) << each.script;
        EXPECT_EQ(result.signal, each.signal) << each.script;
    }

    auto options = shell("printf '%s|' \"$1\" \"$ORVELLE_TEST_VALUE\" \"$(pwd)\"; cat; "
                         "echo diagnostic >&2");
    options.arguments.insert(options.arguments.end(), {"script-name", "word with blanks"});
    options.environment = {{"ORVELLE_TEST_VALUE", "from the parent"}};
    options.workingDirectory = folder.path();
    options.input = "typed input";
    const auto result = runProcess(kShell, options);
    EXPECT_EQ(result.output,
              "word with blanks|from the parent|" + folder.path().string() + "|typed input");
    EXPECT_EQ(result.error, "diagnostic\n");
    EXPECT_EQ(result.status, 0);
}

TEST(ProcessTest, ALargeInputAndAFloodOfStandardErrorNeverBlock) {
    // 8 MB each way: far more than a pipe holds, so a runner that wrote all input before
    // reading, or read one pipe at a time, would deadlock here.
    auto options = shell("cat; head -c 8000000 /dev/zero | tr '\\0' e >&2; echo done");
    options.input = std::string(8'000'000, 'i');
    options.errorLimit = 4096;
    std::size_t errorBytesSeen = 0;
    options.onError = [&](std::string_view piece) { errorBytesSeen += piece.size(); };
    const auto result = runProcess(kShell, options);
    EXPECT_EQ(result.output.size(), 8'000'000u + 5u);
    EXPECT_EQ(result.output.substr(result.output.size() - 5), "done\n");
    EXPECT_EQ(errorBytesSeen, 8'000'000u);
    EXPECT_TRUE(result.errorTruncated);
    EXPECT_GE(result.error.size(), 4096u);
    EXPECT_LE(result.error.size(), 2u * 4096u);
    EXPECT_EQ(result.error.find_first_not_of('e'), std::string::npos);
}

TEST(ProcessTest, OutputArrivesInPiecesWhileTheChildRuns) {
    auto options = shell("echo first; sleep 0.3; echo second");
    std::vector<std::pair<std::string, Clock::time_point>> pieces;
    options.onOutput = [&](std::string_view piece) {
        pieces.emplace_back(std::string(piece), Clock::now());
    };
    const auto result = runProcess(kShell, options);
    ASSERT_EQ(pieces.size(), 2u);
    EXPECT_EQ(pieces[0].first, "first\n");
    EXPECT_GE(pieces[1].second - pieces[0].second, 250ms);
    EXPECT_EQ(result.output, "first\nsecond\n");
}

TEST(ProcessTest, LaunchFailuresSayWhy) {
    TemporaryDirectory folder;
    writeExecutableScript(folder / "script", "#!/bin/sh\nexit 0\n");
    std::filesystem::permissions(folder / "script", std::filesystem::perms::owner_read);
    struct Case {
        std::filesystem::path program;
        std::string reason;
    };
    for (const auto& each :
         {Case{folder / "missing", "No such file or directory"},
          Case{folder / "script", "Permission denied"}, Case{folder.path(), "Permission denied"}}) {
        if (const auto error =
                testing::thrown<ProcessError>([&] { runProcess(each.program, {}); })) {
            EXPECT_EQ(error->code(), ProcessErrorCode::launchFailed);
            EXPECT_EQ(error->reason(), each.reason);
            EXPECT_NE(std::string(error->what()).find(each.program.string()), std::string::npos);
        }
    }
    EXPECT_TRUE(HelperProcessRegistry::trackedProcesses().empty());
    EXPECT_FALSE(isExecutableFile(folder / "script"));
    EXPECT_FALSE(isExecutableFile(folder.path()));
    EXPECT_TRUE(isExecutableFile(kShell));
}

// A helper that starts a grandchild and then hangs, ignoring SIGTERM: every way of stopping
// it must end the whole group, and within the grace period plus a little.
TEST(ProcessTest, TimeOutCancellationAndOutputLimitStopTheWholeGroup) {
    TemporaryDirectory folder;
    writeExecutableScript(folder / "hang", "#!/bin/sh\ntrap '' TERM\necho $$\nsleep 60 &\n"
                                           "while :; do sleep 1; done\n");
    writeExecutableScript(folder / "flood", "#!/bin/sh\necho $$\nsleep 60 &\nexec yes\n");

    const auto expectStopped = [](const std::string& what, auto start, pid_t group) {
        EXPECT_LT(Clock::now() - start, 4s) << what;
        EXPECT_TRUE(groupEnds(group, 1s)) << what;
        EXPECT_TRUE(HelperProcessRegistry::trackedProcesses().empty()) << what;
    };

    {
        ProcessOptions options{.timeout = 300ms, .terminationGrace = 500ms};
        std::string output;
        options.onOutput = [&](std::string_view piece) { output += piece; };
        const auto start = Clock::now();
        if (const auto error =
                testing::thrown<ProcessError>([&] { runProcess(folder / "hang", options); })) {
            EXPECT_EQ(error->code(), ProcessErrorCode::timedOut);
            EXPECT_STREQ(error->what(), "hang did not finish within 0.3 s and was stopped.");
        }
        expectStopped("time-out", start, firstLineAsPid(output));
    }
    {
        ProcessOptions options;
        options.terminationGrace = 500ms;
        std::string output;
        std::stop_source stop;
        options.onOutput = [&](std::string_view piece) {
            output += piece;
            if (output.find('\n') != std::string::npos) {
                std::thread([&stop] {
                    std::this_thread::sleep_for(100ms);
                    stop.request_stop();
                }).detach();
            }
        };
        const auto start = Clock::now();
        EXPECT_THROW(runProcess(folder / "hang", options, stop.get_token()), CancellationError);
        expectStopped("cancellation", start, firstLineAsPid(output));
    }
    {
        ProcessOptions options;
        options.outputLimit = 1 << 20;
        std::string output;
        options.onOutput = [&](std::string_view piece) {
            if (output.size() < 64) {
                output += piece;
            }
        };
        const auto start = Clock::now();
        if (const auto error =
                testing::thrown<ProcessError>([&] { runProcess(folder / "flood", options); })) {
            EXPECT_EQ(error->code(), ProcessErrorCode::outputLimitExceeded);
            EXPECT_STREQ(error->what(),
                         "flood wrote more than 1.0 MB to its standard output and was stopped.");
        }
        expectStopped("output limit", start, firstLineAsPid(output));
    }
    {
        ProcessOptions options;
        options.terminationGrace = 500ms;
        std::string output;
        options.onOutput = [&](std::string_view piece) {
            output += piece;
            throw Error("the reader gave up");
        };
        const auto start = Clock::now();
        EXPECT_THROW(runProcess(folder / "hang", options), Error);
        expectStopped("a failing reader", start, firstLineAsPid(output));
    }
}

TEST(ProcessTest, AChildThatDiesLeavingAGrandchildOnItsPipesReturnsAtOnce) {
    // The grandchild inherits standard output and would keep it open for a minute.
    const auto start = Clock::now();
    const auto result = runProcess(kShell, shell("echo $$; sleep 60 & exit 7"));
    EXPECT_LT(Clock::now() - start, 3s);
    EXPECT_EQ(result.status, 7);
    EXPECT_TRUE(groupEnds(firstLineAsPid(result.output), 1s));
}

TEST(ProcessTest, TerminateAllEndsEveryTrackedHelperAndItsGroup) {
    TemporaryDirectory folder;
    writeExecutableScript(folder / "polite", "#!/bin/sh\necho $$\nsleep 60 &\nwait\n");
    writeExecutableScript(
        folder / "stubborn",
        "#!/bin/sh\ntrap '' TERM\necho $$\nsleep 60 &\nwhile :; do sleep 1; done\n");
    std::vector<std::future<ProcessResult>> runs;
    std::vector<std::promise<pid_t>> started(2);
    const std::vector<std::filesystem::path> programs{folder / "polite", folder / "stubborn"};
    for (size_t i = 0; i < programs.size(); ++i) {
        runs.push_back(std::async(std::launch::async, [&, i] {
            ProcessOptions options;
            bool told = false;
            options.onOutput = [&](std::string_view piece) {
                if (!told) {
                    told = true;
                    started[i].set_value(firstLineAsPid(std::string(piece)));
                }
            };
            return runProcess(programs[i], options);
        }));
    }
    std::vector<pid_t> groups;
    for (auto& each : started) {
        groups.push_back(each.get_future().get());
    }
    auto tracked = HelperProcessRegistry::trackedProcesses();
    std::sort(tracked.begin(), tracked.end());
    auto expected = groups;
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(tracked, expected);

    const auto start = Clock::now();
    HelperProcessRegistry::terminateAll(500ms);
    EXPECT_LT(Clock::now() - start, 2s);
    EXPECT_EQ(runs[0].get().signal, SIGTERM);
    EXPECT_EQ(runs[1].get().signal, SIGKILL);
    for (const pid_t group : groups) {
        EXPECT_TRUE(groupEnds(group, 1s)) << group;
    }
    EXPECT_TRUE(HelperProcessRegistry::trackedProcesses().empty());
}

TEST(ProcessTest, FindsExecutablesOnThePath) {
    EXPECT_EQ(findExecutableInPath("sh").value_or("").filename(), "sh");
    EXPECT_FALSE(findExecutableInPath("orvelle-no-such-program").has_value());
}

} // namespace
} // namespace orvelle
