// The real application on a private X server and a private sound server, driven with
// xdotool as a user drives it: keys go to its window, and what it does is read where a
// user would find it (the window's title, the sound it plays, the project it saves).

#include "core/files.h"
#include "core/json.h"
#include "platform/media/media_probe.h"
#include "support/child_process.h"
#include "support/interface_watchdog.h"
#include "support/run_program.h"
#include "support/sound_server.h"
#include "support/temporary_directory.h"
#include "support/test_media.h"
#include "support/tiny_take.h"
#include "support/x_server.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <iostream>
#include <thread>

namespace orvelle {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

// The edit as the package on disk holds it: the main lane's clips as source ranges.
struct SavedClip {
    double start = 0;
    double end = 0;
};

std::vector<SavedClip> savedClips(const fs::path& package) {
    const Json project = parseJson(readFile(package / "project.json"));
    std::vector<SavedClip> clips;
    for (const Json& clip : project.at("project").at("timeline").at("clips")) {
        clips.push_back({clip.at("start").get<double>(), clip.at("end").get<double>()});
    }
    return clips;
}

using testing::rootMeanSquare;

class ApplicationEndToEndTest : public ::testing::Test {
protected:
    void SetUp() override {
        testing::TinyTakeOptions options;
        options.width = 320;
        options.height = 180;
        options.seconds = 4;
        const testing::TinyTake take = testing::writeTinyTake(folder_ / "take", options);
        package_ = folder_ / "Tiny.orvelle";
        const auto saved =
            testing::runProgram(testing::orvelleBinary(),
                                {"project", "save", take.manifestURL.string(), package_.string()});
        ASSERT_EQ(saved.status, 0) << saved.err;

        // The application's own settings and caches, not the user's; exports go to the
        // Desktop of its home.
        std::map<std::string, std::string> environment =
            display_.applicationEnvironment(folder_.path());
        environment.merge(sound_.environment());
        application_ = std::make_unique<testing::ChildProcess>(
            ORVELLE_APP, std::vector<std::string>{package_.string()}, environment);
        window_ = display_.findWindow("^Tiny", 60s);
        ASSERT_FALSE(window_.empty()) << "the editor window never showed";
    }

    std::string title() const {
        std::string name = display_.xdotool({"getwindowname", window_});
        while (!name.empty() && name.back() == '\n') {
            name.pop_back();
        }
        return name;
    }
    bool titleShowsEdited() const { return title().find('*') != std::string::npos; }

    // Keys typed into the editor, with the pointer over it.
    void key(const std::vector<std::string>& keys) const {
        display_.xdotool({"mousemove", "--window", window_, "200", "200"});
        display_.key(window_, keys, 60);
    }

    bool waitFor(const std::function<bool()>& predicate, std::chrono::milliseconds wait) const {
        return testing::waitUntil(predicate, wait);
    }

    // Ctrl+S, then the clips of the package once the title says it is saved.
    std::vector<SavedClip> saveAndRead() {
        key({"ctrl+s"});
        EXPECT_TRUE(waitFor([&] { return !titleShowsEdited(); }, 20s))
            << "still unsaved: " << title();
        return savedClips(package_);
    }

    testing::TemporaryDirectory folder_;
    testing::XvfbServer display_{1600, 1000};
    testing::PrivateSoundServer sound_;
    fs::path package_;
    std::unique_ptr<testing::ChildProcess> application_;
    std::string window_;
};

TEST_F(ApplicationEndToEndTest, KeysSplitDeleteUndoAndRedoTheSavedEdit) {
    ASSERT_EQ(savedClips(package_).size(), 1u);
    // Two seconds in, then S. Until the take has loaded there is nothing to split, so
    // the keys are sent again until the title says the document changed.
    const bool split = waitFor(
        [&] {
            key({"Home", "shift+Right", "shift+Right"});
            std::this_thread::sleep_for(300ms); // the seek lands
            key({"s"});
            return waitFor([&] { return titleShowsEdited(); }, 5s);
        },
        60s);
    ASSERT_TRUE(split) << "S never split the clip: " << title();
    auto clips = saveAndRead();
    ASSERT_EQ(clips.size(), 2u);
    // At the playhead, a second or two in (keys that come quickly may seek from where
    // the previous seek has not yet landed).
    EXPECT_NEAR(clips[0].start, 0, 1e-6);
    EXPECT_GT(clips[0].end, 0.9);
    EXPECT_LT(clips[0].end, 2.1);
    EXPECT_NEAR(clips[1].start, clips[0].end, 1e-6);
    EXPECT_NEAR(clips[1].end, 4, 0.05);
    const double splitAt = clips[0].end;

    // The split selects the second half: Delete takes it out.
    key({"Delete"});
    ASSERT_TRUE(waitFor([&] { return titleShowsEdited(); }, 10s));
    clips = saveAndRead();
    ASSERT_EQ(clips.size(), 1u);
    EXPECT_NEAR(clips[0].end, splitAt, 1e-6);

    // Undo brings the half back, a second undo the whole clip; redo splits again.
    key({"ctrl+z"});
    ASSERT_TRUE(waitFor([&] { return titleShowsEdited(); }, 10s));
    EXPECT_EQ(saveAndRead().size(), 2u);
    key({"ctrl+z"});
    ASSERT_TRUE(waitFor([&] { return titleShowsEdited(); }, 10s));
    clips = saveAndRead();
    ASSERT_EQ(clips.size(), 1u);
    EXPECT_NEAR(clips[0].end, 4, 0.05);
    key({"ctrl+shift+z"});
    ASSERT_TRUE(waitFor([&] { return titleShowsEdited(); }, 10s));
    EXPECT_EQ(saveAndRead().size(), 2u);
}

TEST_F(ApplicationEndToEndTest, PlaysAloudScrubsAndExportsWithoutHoldingUpTheInterface) {
    // The window answers a window manager's pings all along: the longest wait for an answer
    // is the longest the interface was held up.
    testing::InterfaceWatchdog watchdog(display_.display(), window_);
    ASSERT_TRUE(waitFor([&] { return watchdog.answered() > 0; }, 30s)) << "no answer to a ping";
    // Opening is behind us; what follows is playing, scrubbing and exporting.
    ASSERT_TRUE(waitFor([&] { return watchdog.answered() > 20; }, 30s));
    watchdog.restart();

    // The take's microphone is a steady tone: playing it sounds on the sound server.
    sound_.startRecording();
    std::this_thread::sleep_for(1000ms);
    EXPECT_LT(rootMeanSquare(sound_.stopRecording()), 0.001) << "sound before anything played";
    const bool played = waitFor(
        [&] {
            sound_.startRecording();
            key({"Home", "space"});
            std::this_thread::sleep_for(1500ms);
            return rootMeanSquare(sound_.stopRecording()) > 0.01;
        },
        60s);
    ASSERT_TRUE(played) << "space never played the take aloud";

    // Space again pauses: the sound stops (the sink's latency aside).
    key({"space"});
    std::this_thread::sleep_for(500ms);
    sound_.startRecording();
    std::this_thread::sleep_for(1000ms);
    EXPECT_LT(rootMeanSquare(sound_.stopRecording()), 0.001) << "still sounding after the pause";

    // Scrubbing: seek after seek, a frame and a second at a time.
    for (int i = 0; i < 6; ++i) {
        key({"Home", "shift+Right", "Right", "Right", "shift+Right", "Left", "shift+Right"});
    }
    EXPECT_FALSE(titleShowsEdited()) << "playing and seeking changed the edit: " << title();

    // Ctrl+E shows the export page with its button ready: Return exports to the Desktop.
    key({"ctrl+e"});
    std::this_thread::sleep_for(300ms);
    key({"Return"});
    const fs::path movie = folder_ / "home" / "Desktop" / "Tiny.mp4";
    std::optional<MediaProbe> probe;
    const bool exported = waitFor(
        [&] {
            // The file is complete once it reads as the whole edit.
            try {
                probe = probeMediaFile(movie);
                return probe->firstVideo() != nullptr && std::abs(probe->duration - 4) < 0.1;
            } catch (const std::exception&) {
                return false;
            }
        },
        180s);
    ASSERT_TRUE(exported) << "no finished movie at " << movie;
    // 1920 x 1080 (the size offered first) fitted to the take's 16:9.
    EXPECT_EQ(probe->firstVideo()->codedWidth, 1920);
    EXPECT_EQ(probe->firstVideo()->codedHeight, 1080);
    EXPECT_NE(probe->firstAudio(), nullptr);

    // Loading, playing and exporting run off the interface's thread: it never stalls for
    // long. Its target, 50 ms, is met on a quiet machine (35 ms measured); on two cores
    // shared with other test programs a busy moment alone reaches a few hundred. The bound
    // is what a user takes for a hang, which rendering or decoding on that thread (seconds
    // for this movie) would exceed at once.
    const auto stall = watchdog.longestStall();
    std::cout << "longest interface stall while playing, scrubbing and exporting: " << stall.count()
              << " ms over " << watchdog.answered() << " pings\n";
    RecordProperty("longestStallMilliseconds", int(stall.count()));
    EXPECT_GT(watchdog.answered(), 100);
    EXPECT_LT(stall.count(), 1000) << "the interface was held up";
}

} // namespace
} // namespace orvelle
