#include "cli/cli_test_support.h"
#include "platform/image/bitmap.h"
#include "platform/media/video_decoder.h"
#include "project/cursor_recording.h"
#include "project/take_manifest.h"
#include "support/child_process.h"
#include "support/painter_counter.h"
#include "support/temporary_directory.h"
#include "support/x_server.h"
#include "x11_painter/painter_layout.h"

#include <signal.h>

#include <fstream>
#include <thread>

namespace orvelle {
namespace {

using namespace std::chrono_literals;
using testing::ChildProcess;
using testing::TemporaryDirectory;
using testing::XvfbServer;

class CaptureCommands : public ::testing::Test {
protected:
    void SetUp() override {
        painter_ = std::make_unique<ChildProcess>(
            ORVELLE_X11_PAINTER,
            std::vector<std::string>{"--geometry", "640x360+200+100", "--title", "Counter",
                                     "--class", "Painter", "--ready", (folder_ / "ready").string()},
            x_.environment());
        ASSERT_TRUE(
            testing::waitUntil([&] { return std::filesystem::exists(folder_ / "ready"); }, 20s));
        std::ifstream(folder_ / "ready") >> window_;
    }

    XvfbServer x_{1280, 720};
    TemporaryDirectory folder_;
    std::unique_ptr<ChildProcess> painter_;
    uint32_t window_ = 0;
};

TEST_F(CaptureCommands, SourcesListTheDesktopWithAStillOfEach) {
    const auto stills = folder_ / "stills";
    const Json sources =
        testing::orvelleJson({"sources", "--json", "--preview", stills.string()}, x_.environment());
    EXPECT_EQ(sources["backend"], "x11");
    ASSERT_EQ(sources["displays"].size(), 1U);
    EXPECT_EQ(sources["displays"][0]["frame"]["width"], 1280);
    ASSERT_EQ(sources["windows"].size(), 1U);
    const Json& window = sources["windows"][0];
    EXPECT_EQ(window["id"], window_);
    EXPECT_EQ(window["title"], "Counter");
    EXPECT_EQ(window["application"], "Painter");
    EXPECT_EQ(window["pid"], painter_->pid());
    EXPECT_EQ(window["frame"], (Json{{"x", 200}, {"y", 100}, {"width", 640}, {"height", 360}}));

    // The window's still: a centred square of its picture, the painter's colour at its
    // middle.
    const Bitmap still = readPNG(window["preview"].get<std::string>());
    EXPECT_EQ(still.width(), 360);
    EXPECT_EQ(still.height(), 360);
    const auto middle = still.pixel(180, 180);
    EXPECT_NEAR(middle[2], painter::kBackgroundRed, 8);
    EXPECT_NEAR(middle[1], painter::kBackgroundGreen, 8);
    EXPECT_NEAR(middle[0], painter::kBackgroundBlue, 8);
    const Bitmap display = readPNG(sources["displays"][0]["preview"].get<std::string>());
    EXPECT_EQ(display.width(), 720);
}

TEST_F(CaptureCommands, CaptureRecordsAnAreaWithItsPointerDataAndReportsDrops) {
    const auto movie = folder_ / "Take.mov";
    // A click a second into the take: counted from when the movie is opened, since a busy
    // machine may take a while to start the program.
    std::thread clicker([&] {
        testing::waitUntil([&] { return std::filesystem::exists(movie); }, 20s);
        std::this_thread::sleep_for(1000ms);
        x_.xdotool({"mousemove", "520", "280", "click", "1"});
    });
    const auto result = testing::runProgram(
        testing::orvelleBinary(),
        {"capture", "--area", "200,100,641,361", "--seconds", "3", "-o", movie.string(), "--json"},
        x_.environment());
    clicker.join();
    ASSERT_EQ(result.status, 0) << result.err;
    const Json report = parseJson(result.out);
    EXPECT_EQ(report["width"], 642);
    EXPECT_EQ(report["height"], 362);
    EXPECT_EQ(report["segments"].size(), 1U);
    EXPECT_GT(report["framesWritten"].get<int>(), 30);
    EXPECT_EQ(report["droppedFrames"].get<int>(), report["framesSkippedByCapture"].get<int>() +
                                                      report["framesDroppedByWriter"].get<int>());
    EXPECT_TRUE(report["failure"].is_null());

    const auto manifest = TakeManifest::load(movie);
    ASSERT_TRUE(manifest);
    EXPECT_FALSE(manifest->segmentsFor(MediaTrackManifest::Kind::screen).empty());
    EXPECT_FALSE(manifest->segmentsFor(MediaTrackManifest::Kind::cursor).empty());
    const auto pointer = CursorRecording::load(CursorRecording::fileURL(movie));
    ASSERT_EQ(pointer.clicks.size(), 1U);
    EXPECT_GT(pointer.clicks[0].time, 0.5);
    const auto counters = testing::readPainterCounters(movie, painter::kMargin, painter::kMargin);
    EXPECT_EQ(static_cast<int>(counters.size()), report["framesWritten"].get<int>());
}

TEST_F(CaptureCommands, CtrlCFinishesTheMovieAndAKillLeavesItReadable) {
    // Ctrl-C: a finished movie and a zero status.
    const auto stopped = folder_ / "Stopped.mov";
    const auto interrupted = testing::runProgram(
        testing::orvelleBinary(),
        {"capture", "--window", std::to_string(window_), "-o", stopped.string(), "--json"},
        x_.environment(), [](int pid) {
            std::this_thread::sleep_for(2500ms);
            ::kill(pid, SIGINT);
        });
    ASSERT_EQ(interrupted.status, 0) << interrupted.err;
    EXPECT_TRUE(parseJson(interrupted.out)["interrupted"].get<bool>());
    EXPECT_GT(VideoDecoder(stopped).duration(), 0.5);

    // Killed without warning: the movie reads up to its last two-second fragment.
    const auto killed = folder_ / "Killed.mov";
    const auto crashed = testing::runProgram(
        testing::orvelleBinary(),
        {"capture", "--window", std::to_string(window_), "--seconds", "60", "-o", killed.string()},
        x_.environment(), [](int pid) {
            std::this_thread::sleep_for(6s);
            ::kill(pid, SIGKILL);
        });
    EXPECT_EQ(crashed.status, -1);
    const auto counters = testing::readPainterCounters(killed, painter::kMargin, painter::kMargin);
    ASSERT_GE(counters.size(), 90U) << "less than 1.5 s survived the kill";
    EXPECT_TRUE(counters.back().counter.has_value());
    EXPECT_FALSE(std::filesystem::exists(TakeManifest::sidecarURL(killed)));
}

TEST_F(CaptureCommands, BadRequestsSayWhatToDo) {
    const auto movie = (folder_ / "Take.mov").string();
    auto withoutSoundServer = x_.environment();
    withoutSoundServer["PULSE_SERVER"] = "unix:/nonexistent/orvelle-test/pulse.sock";
    const struct {
        std::vector<std::string> arguments;
        std::map<std::string, std::string> environment;
        int status;
        std::string message;
    } cases[] = {
        {{"capture", "-o", movie}, x_.environment(), 2, "Name one source"},
        {{"capture", "--display", "1", "--window", "2", "-o", movie},
         x_.environment(),
         2,
         "Name one source"},
        {{"capture", "--window", "0x7777777", "-o", movie},
         x_.environment(),
         1,
         "Choose a single window to record."},
        {{"capture", "--area", "10,10,0,5", "-o", movie},
         x_.environment(),
         2,
         "positive width and height"},
        {{"capture", "--area", "5000,5000,100,100", "-o", movie},
         x_.environment(),
         1,
         "Choose a single area to record."},
        {{"capture", "--window", "1", "-o", (folder_ / "none" / "T.mov").string()},
         x_.environment(),
         1,
         "does not exist"},
        {{"capture", "--area", "0,0,100,100", "--system-audio", "--seconds", "1", "-o", movie},
         withoutSoundServer,
         1,
         "System audio cannot be recorded: No sound server could be reached"},
        {{"sources"},
         {{"DISPLAY", ""}, {"WAYLAND_DISPLAY", ""}, {"XDG_SESSION_TYPE", ""}},
         1,
         "There is no desktop session to record"},
    };
    for (const auto& c : cases) {
        EXPECT_TRUE(testing::orvelleRefuses(c.arguments, c.status, c.message, c.environment));
    }
    EXPECT_FALSE(std::filesystem::exists(movie));
}

} // namespace
} // namespace orvelle
