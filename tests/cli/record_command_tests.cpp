#include "cli/cli_test_support.h"
#include "core/files.h"
#include "platform/media/media_probe.h"
#include "project/take_manifest.h"
#include "support/child_process.h"
#include "support/sound_server.h"
#include "support/temporary_directory.h"
#include "support/x_server.h"

#include <signal.h>

#include <fstream>
#include <random>
#include <thread>

namespace orvelle {
namespace {

using namespace std::chrono_literals;
using testing::ChildProcess;
using testing::TemporaryDirectory;
using testing::XvfbServer;
namespace fs = std::filesystem;

// `orvelle record` on a private X server and sound server, into a store of its own.
class RecordCommands : public ::testing::Test {
protected:
    std::map<std::string, std::string> environment() const {
        auto environment = x_.environment();
        environment["PULSE_SERVER"] = sound_.address();
        environment["XDG_DATA_HOME"] = (home_ / "data").string();
        return environment;
    }
    fs::path store() const { return home_ / "data" / "Orvelle" / "Captures"; }
    std::vector<fs::path> takeFolders() const {
        std::vector<fs::path> folders;
        if (fs::exists(store())) {
            for (const auto& entry : fs::directory_iterator(store())) {
                folders.push_back(entry.path());
            }
        }
        std::sort(folders.begin(), folders.end());
        return folders;
    }
    std::string displayID() {
        const Json sources = testing::orvelleJson({"sources", "--json"}, environment());
        return std::to_string(sources["displays"][0]["id"].get<uint32_t>());
    }
    // orvelle record with its answer in a file, so that the test has its process id.
    std::unique_ptr<ChildProcess> startRecording(const std::vector<std::string>& options,
                                                 const fs::path& answer) {
        std::string command = "exec '" + testing::orvelleBinary().string() + "' record";
        for (const auto& option : options) {
            command += " '" + option + "'";
        }
        command += " > '" + answer.string() + "'";
        return std::make_unique<ChildProcess>("/bin/sh", std::vector<std::string>{"-c", command},
                                              environment());
    }

    XvfbServer x_{640, 360};
    testing::PrivateSoundServer sound_;
    TemporaryDirectory home_;
};

TEST_F(RecordCommands, DevicesListTheSoundServersMicrophoneAndOutputs) {
    const Json devices = testing::orvelleJson({"devices", "--json"}, environment());
    ASSERT_TRUE(devices["microphones"].is_array());
    bool found = false;
    for (const auto& microphone : devices["microphones"]) {
        if (microphone["id"] == "microphone") {
            found = true;
            EXPECT_EQ(microphone["default"], true);
        }
        EXPECT_FALSE(microphone["id"].get<std::string>().ends_with(".monitor"));
    }
    EXPECT_TRUE(found) << devices.dump();
    bool sink = false;
    for (const auto& output : devices["outputs"]) {
        sink = sink || (output["id"] == "test" && output["default"] == true);
    }
    EXPECT_TRUE(sink) << devices.dump();
    EXPECT_TRUE(devices["cameras"].is_array());
    EXPECT_TRUE(devices["soundServerError"].is_null());
}

TEST_F(RecordCommands, PausesOnSignalAndKeepsTheTakeAtTheEnd) {
    const fs::path answer = home_ / "answer.json";
    auto recording = startRecording(
        {"--display", displayID(), "--microphone", "default", "--seconds", "4", "--json"}, answer);
    // The sentinel marks the take once it starts; pause and resume once it records.
    ASSERT_TRUE(testing::waitUntil(
        [&] {
            const auto folders = takeFolders();
            return !folders.empty() && fs::exists(folders[0] / ".orvelle-recording-in-progress");
        },
        15s));
    std::this_thread::sleep_for(1200ms);
    ::kill(recording->pid(), SIGUSR1);
    std::this_thread::sleep_for(800ms);
    ::kill(recording->pid(), SIGUSR1);
    ASSERT_EQ(recording->waitFor(30s), std::optional<int>(0));
    const Json result = parseJson(readFile(answer));
    EXPECT_EQ(result["pauses"], 1);
    EXPECT_EQ(result["systemAudio"], true);
    EXPECT_TRUE(result["failure"].is_null());
    // A loaded machine may lose a picture or two; a stalled writer loses hundreds.
    EXPECT_LT(result["droppedFrames"]["screen"].get<int64_t>(), 30);
    std::map<std::string, size_t> segments;
    for (const auto& track : result["tracks"]) {
        segments[track["id"].get<std::string>()] = track["segments"].size();
    }
    EXPECT_EQ(segments["screen"], 2u);
    EXPECT_EQ(segments["systemAudio"], 2u);
    EXPECT_EQ(segments["microphone"], 2u);
    EXPECT_EQ(segments["cursor"], 1u);
    // Four seconds from the start, less the pause.
    EXPECT_NEAR(result["duration"].get<double>(), 3.2, 0.5);
    const fs::path folder = result["folder"].get<std::string>();
    EXPECT_FALSE(fs::exists(folder / ".orvelle-recording-in-progress"));
    // Nothing to recover after a clean stop.
    const Json list = testing::orvelleJson({"recover", "--list", "--json"}, environment());
    EXPECT_TRUE(list["takes"].empty());
    // It opens as a document.
    const fs::path manifest =
        folder / (folder.filename().string().substr(0, folder.filename().string().size() - 37) +
                  ".take.json");
    ASSERT_TRUE(fs::exists(manifest));
    const Json document =
        testing::orvelleJson({"document", manifest.string(), "--json"}, environment());
    EXPECT_FALSE(document.is_null());

    // discard refuses what is not in the store and deletes what is.
    const fs::path outside = home_ / "elsewhere";
    fs::create_directories(outside / "take");
    testing::writeTextFile(outside / "take" / "take.mov", "mine");
    const auto refused = testing::runProgram(
        testing::orvelleBinary(), {"discard", (outside / "take").string()}, environment());
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.err.find("only takes there are deleted"), std::string::npos) << refused.err;
    EXPECT_TRUE(fs::exists(outside / "take" / "take.mov"));
    testing::orvelleJson({"discard", folder.filename().string(), "--json"}, environment());
    EXPECT_FALSE(fs::exists(folder));
}

// The program killed at random moments: at the start, while recording, while paused and
// while stopping. Each take that kept a whole fragment is recovered to what its files
// hold, opens and exports; one killed earlier has nothing to give and is discarded; nothing
// outside a take's folder is touched.
TEST_F(RecordCommands, EveryTakeSurvivesAKillAtAnyMoment) {
    const std::string display = displayID();
    const fs::path canary = home_ / "data" / "Orvelle" / "settings-canary.txt";
    testing::writeTextFile(canary, "untouched");
    std::mt19937 random(20261126);
    const auto between = [&](double low, double high) {
        return std::uniform_real_distribution<double>(low, high)(random);
    };
    enum class Phase { start, recording, paused, stopping };
    constexpr int kKills = 20;
    struct Kill {
        Phase phase;
        double afterSentinel; // seconds from the sentinel's appearance to the kill
    };
    std::map<std::string, Kill> kills; // by take folder name
    const auto sleepUntil = [](std::chrono::steady_clock::time_point start, double seconds) {
        std::this_thread::sleep_until(start + std::chrono::duration_cast<std::chrono::nanoseconds>(
                                                  std::chrono::duration<double>(seconds)));
    };
    for (int run = 0; run < kKills; ++run) {
        const auto before = takeFolders();
        const Phase phase = run < 3    ? Phase::start
                            : run < 13 ? Phase::recording
                            : run < 17 ? Phase::paused
                                       : Phase::stopping;
        auto recording =
            startRecording({"--display", display, "--microphone", "default", "--seconds", "3.5"},
                           home_ / "answer.txt");
        const auto spawned = std::chrono::steady_clock::now();
        std::optional<fs::path> folder;
        if (phase == Phase::start) {
            sleepUntil(spawned, between(0.02, 0.6));
        } else {
            ASSERT_TRUE(testing::waitUntil(
                [&] {
                    for (const auto& candidate : takeFolders()) {
                        if (std::find(before.begin(), before.end(), candidate) == before.end() &&
                            fs::exists(candidate / ".orvelle-recording-in-progress")) {
                            folder = candidate;
                        }
                    }
                    return folder.has_value();
                },
                20s));
        }
        const auto sentinelSeen = std::chrono::steady_clock::now();
        double at = 0;
        switch (phase) {
        case Phase::start:
            break;
        case Phase::recording:
            at = between(2.7, 3.6);
            break;
        case Phase::paused:
            sleepUntil(sentinelSeen, 2.7);
            ::kill(recording->pid(), SIGUSR1);
            at = between(2.9, 3.6);
            break;
        case Phase::stopping:
            at = between(3.8, 4.4);
            break;
        }
        sleepUntil(sentinelSeen, at);
        recording->terminate(SIGKILL);
        for (const auto& candidate : takeFolders()) {
            if (std::find(before.begin(), before.end(), candidate) == before.end()) {
                kills[candidate.filename().string()] = {phase, at};
            }
        }
    }

    const auto recovery = testing::runProgram(testing::orvelleBinary(),
                                              {"recover", "--all", "--json"}, environment());
    const Json recovered = parseJson(recovery.out);
    for (const auto& take : recovered["takes"]) {
        const fs::path folder = take["folder"].get<std::string>();
        const Kill kill = kills[folder.filename().string()];
        if (!take["recovered"].get<bool>()) {
            // Only a take killed before its first fragment was whole has nothing to give; it
            // keeps its sentinel and is offered again, until discarded.
            EXPECT_EQ(kill.phase, Phase::start) << folder;
            EXPECT_TRUE(fs::exists(folder / ".orvelle-recording-in-progress"));
            testing::orvelleJson({"discard", folder.string(), "--json"}, environment());
            EXPECT_FALSE(fs::exists(folder));
        }
    }
    EXPECT_TRUE(
        testing::orvelleJson({"recover", "--list", "--json"}, environment())["takes"].empty());

    int exported = 0;
    for (const auto& folder : takeFolders()) {
        SCOPED_TRACE(folder.filename().string());
        const Kill kill = kills[folder.filename().string()];
        std::vector<fs::path> manifests;
        for (const auto& entry : fs::directory_iterator(folder)) {
            if (entry.path().string().ends_with(".take.json")) {
                manifests.push_back(entry.path());
            }
        }
        if (kill.phase != Phase::start) {
            ASSERT_EQ(manifests.size(), 1u) << "killed after the first fragment, yet lost";
        }
        if (manifests.empty()) {
            continue; // killed at the start, before anything was written
        }
        const auto manifest = TakeManifest::decode(readFile(manifests[0]));
        ASSERT_TRUE(manifest);
        // At most what was recorded before the kill; at least all of it but the last
        // fragment (2 s) and the start-up before the first frame.
        if (kill.phase == Phase::recording) {
            EXPECT_LE(manifest->duration(), kill.afterSentinel);
            EXPECT_GE(manifest->duration(), kill.afterSentinel - 3.0);
        }
        for (const auto& segment : manifest->segments) {
            EXPECT_TRUE(fs::exists(segment.url));
            EXPECT_EQ(segment.url.parent_path(), folder);
        }
        const Json document =
            testing::orvelleJson({"document", manifests[0].string(), "--json"}, environment());
        EXPECT_FALSE(document.is_null());
        const fs::path movie = home_ / ("export-" + std::to_string(exported) + ".mp4");
        const auto result =
            testing::runProgram(testing::orvelleBinary(),
                                {"export", manifests[0].string(), "-o", movie.string(), "--size",
                                 "320x180", "--fps", "24"},
                                environment());
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_GT(probeMediaFile(movie).duration, 0.0);
        ++exported;
    }
    EXPECT_GE(exported, kKills - 3);
    EXPECT_EQ(readFile(canary), "untouched");
}

} // namespace
} // namespace orvelle
