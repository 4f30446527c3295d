// The recorder of the real application on a private X server and sound server, driven with
// xdotool as a user drives it: an area dragged out on the overlay, a take with the test
// camera and a tone on the microphone, paused and resumed, stopped into the editor,
// transcribed there in the background, a word deleted in the transcript, exported, and
// exported again and uploaded to the stand-in YouTube on 127.0.0.1 with the
// account signed in through the browser; and a take cut off by a kill, recovered at the
// next start; and takes started and stopped from the tray icon's menu (in a panel's XEmbed
// tray) and with the keys for the whole desktop pressed in another window. What it did is
// read where a user would find it: the take's files, the windows on screen, what the
// upload server received.

#include "core/files.h"
#include "platform/crypto/sha256.h"
#include "platform/media/audio_decoder.h"
#include "platform/media/media_probe.h"
#include "project/take_manifest.h"
#include "support/child_process.h"
#include "support/online_test_server.h"
#include "support/run_program.h"
#include "support/sound_server.h"
#include "support/temporary_directory.h"
#include "support/test_media.h"
#include "support/x_server.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <sstream>
#include <thread>

namespace orvelle {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Kind = MediaTrackManifest::Kind;

// The area the tests drag out, in screen pixels.
constexpr int kAreaLeft = 200;
constexpr int kAreaTop = 150;
constexpr int kAreaWidth = 480;
constexpr int kAreaHeight = 270;

using testing::rootMeanSquare;

// A steady mono tone at 48 kHz: what the microphone hears.
std::vector<float> tone(double seconds) {
    return testing::sineTone(440, seconds, 48000, 1, 0.4f);
}

struct WindowGeometry {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};

class RecorderEndToEndTest : public ::testing::Test {
protected:
    void SetUp() override {
        environment_ = display_.applicationEnvironment(folder_.path());
        environment_.merge(sound_.environment());
        // The online services are the stand-ins, signed in to through curl.
        for (auto& [name, value] : online_.programEnvironment(folder_ / "data")) {
            environment_[name] = value;
        }
        // The devices a user chose the last time: remembered in the settings.
        fs::create_directories(folder_ / "config" / "Orvelle");
        writeFileAtomically(
            folder_ / "config" / "Orvelle" / "settings.json",
            R"({"OrvelleCameraEnabled": true, "OrvelleSelectedCameraID": "test-camera",
                      "OrvelleMicrophoneEnabled": true, "OrvelleSystemAudioEnabled": true})");
    }

    void launch(const std::vector<std::string>& arguments) {
        application_ = std::make_unique<testing::ChildProcess>(ORVELLE_APP_TEST_CAMERA, arguments,
                                                               environment_);
    }

    WindowGeometry geometry(const std::string& window) const {
        std::map<std::string, int> values;
        std::istringstream lines(display_.xdotool({"getwindowgeometry", "--shell", window}));
        for (std::string line; std::getline(lines, line);) {
            if (const auto equals = line.find('='); equals != std::string::npos) {
                values[line.substr(0, equals)] = std::atoi(line.c_str() + equals + 1);
            }
        }
        return {values["X"], values["Y"], values["WIDTH"], values["HEIGHT"]};
    }

    // Area mode, then the area dragged out on the overlay and taken with Return.
    void chooseArea(const std::string& recorder) {
        display_.key(recorder, {"ctrl+3"});
        const std::string overlay = display_.findWindow("^Select Area", 20s);
        ASSERT_FALSE(overlay.empty()) << "the area overlay never showed";
        display_.xdotool({"mousemove", std::to_string(kAreaLeft), std::to_string(kAreaTop)});
        display_.xdotool({"mousedown", "1"});
        for (int step = 1; step <= 4; ++step) {
            display_.xdotool({"mousemove", std::to_string(kAreaLeft + kAreaWidth * step / 4),
                              std::to_string(kAreaTop + kAreaHeight * step / 4)});
        }
        display_.xdotool({"mouseup", "1"});
        display_.key(overlay, {"Return"});
    }

    // Each window a search finds, with where it is: none when the search finds nothing.
    std::vector<std::pair<std::string, WindowGeometry>>
    visibleWindows(const std::vector<std::string>& search) const {
        std::vector<std::string> arguments{"search", "--onlyvisible"};
        arguments.insert(arguments.end(), search.begin(), search.end());
        std::vector<std::pair<std::string, WindowGeometry>> windows;
        try {
            std::istringstream found(display_.xdotool(arguments));
            for (std::string window; std::getline(found, window);) {
                if (!window.empty()) {
                    windows.emplace_back(window, geometry(window));
                }
            }
        } catch (const std::runtime_error&) {
            // none, or gone while it was looked at
        }
        return windows;
    }

    // The take folders of the recording store.
    std::vector<fs::path> takeFolders() const {
        std::vector<fs::path> folders;
        std::error_code error;
        for (const auto& entry :
             fs::directory_iterator(folder_ / "data" / "Orvelle" / "Captures", error)) {
            if (entry.is_directory()) {
                folders.push_back(entry.path());
            }
        }
        return folders;
    }

    // The recording's sentinel appears once the stream is about to start.
    std::optional<fs::path> waitForRecordingFolder(std::chrono::milliseconds wait) const {
        std::optional<fs::path> found;
        testing::waitUntil(
            [&] {
                for (const auto& folder : takeFolders()) {
                    if (fs::exists(folder / ".orvelle-recording-in-progress")) {
                        found = folder;
                        return true;
                    }
                }
                return false;
            },
            wait);
        return found;
    }

    // The screen movie of the take in `folder`, once its manifest is written beside it.
    static std::optional<fs::path> screenMovieIn(const fs::path& folder) {
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(folder, error)) {
            const std::string name = entry.path().filename().string();
            if (name.size() > 10 && name.ends_with(".take.json")) {
                return folder / (name.substr(0, name.size() - 10) + ".mov");
            }
        }
        return std::nullopt;
    }

    testing::TemporaryDirectory folder_;
    testing::XvfbServer display_{1600, 1000};
    testing::PrivateSoundServer sound_;
    testing::OnlineTestServer online_{folder_.path()};
    std::map<std::string, std::string> environment_;
    std::unique_ptr<testing::ChildProcess> application_;
};

std::vector<TakeSegmentManifest> segmentsOf(const TakeManifest& manifest, Kind kind) {
    std::vector<TakeSegmentManifest> segments;
    for (const auto& segment : manifest.segments) {
        if (segment.kind == kind) {
            segments.push_back(segment);
        }
    }
    return segments;
}

double endOf(const std::vector<TakeSegmentManifest>& segments) {
    double end = 0;
    for (const auto& segment : segments) {
        end = std::max(end, segment.programStart + segment.duration);
    }
    return end;
}

TEST_F(RecorderEndToEndTest,
       RecordsAnAreaWithCameraAndMicrophonePausesStopsIntoTheEditorExportsAndUploads) {
    // The Google account is signed in once, in the browser, as `orvelle account sign-in`
    // does it; the application finds it in the store.
    std::map<std::string, std::string> command = environment_;
    command["DISPLAY"] = "";
    const auto signedIn = testing::runProgram(testing::orvelleBinary(),
                                              {"account", "sign-in", "--timeout", "30"}, command);
    ASSERT_EQ(signedIn.status, 0) << signedIn.err;
    // The speech, alignment and language models installed as `orvelle models` installs them:
    // the tiny test models, which write the same words whatever they hear.
    const fs::path models = testing::binaryDirectory() / "test-models";
    for (const auto& [id, source] : {std::pair{"speech", models / "parakeet-split"},
                                     std::pair{"alignment", models / "ctc-char"},
                                     std::pair{"language", models / "tiny-qwen2.gguf"}}) {
        const auto installed =
            testing::runProgram(testing::orvelleBinary(),
                                {"models", "install", id, "--from", source.string()}, command);
        ASSERT_EQ(installed.status, 0) << installed.err;
    }
    // A steady tone is what the microphone hears for the whole test.
    sound_.play(tone(120), "voice", 1);
    launch({"--record"});
    const std::string recorder = display_.findWindow("^Orvelle$", 60s);
    ASSERT_FALSE(recorder.empty()) << "the recorder never showed";
    chooseArea(recorder);

    // The recorder comes back with the area chosen; Ctrl+R starts the take.
    ASSERT_FALSE(display_.findWindow("^Orvelle$", 20s).empty());
    display_.key(recorder, {"ctrl+r"});
    const auto take = waitForRecordingFolder(30s);
    ASSERT_TRUE(take) << "no take started";

    // During the take the recorder window keeps clear of the recorded area.
    std::this_thread::sleep_for(1500ms);
    const WindowGeometry window = geometry(recorder);
    const bool overlaps = window.x < kAreaLeft + kAreaWidth &&
                          kAreaLeft < window.x + window.width &&
                          window.y < kAreaTop + kAreaHeight && kAreaTop < window.y + window.height;
    EXPECT_FALSE(overlaps) << "the recorder window at " << window.x << "," << window.y << " "
                           << window.width << "x" << window.height << " is in the recorded area";

    // About 5 s of recording around a pause of a second and a half.
    std::this_thread::sleep_for(1000ms);
    display_.key(recorder, {"ctrl+p"});
    std::this_thread::sleep_for(1500ms);
    display_.key(recorder, {"ctrl+p"});
    std::this_thread::sleep_for(2500ms);
    display_.key(recorder, {"ctrl+r"});

    // Stop opens the editor on the take.
    const std::string editor = display_.findWindow("^Orvelle Recording .* — Orvelle$", 90s);
    ASSERT_FALSE(editor.empty()) << "the editor never opened on the take";
    EXPECT_FALSE(fs::exists(*take / ".orvelle-recording-in-progress"));
    const auto screenURL = screenMovieIn(*take);
    ASSERT_TRUE(screenURL);
    const auto manifest = TakeManifest::load(*screenURL);
    ASSERT_TRUE(manifest);

    // Every track, each in two runs around the pause, ending together.
    const auto screen = segmentsOf(*manifest, Kind::screen);
    const auto camera = segmentsOf(*manifest, Kind::camera);
    const auto microphone = segmentsOf(*manifest, Kind::microphone);
    ASSERT_EQ(screen.size(), 2u);
    ASSERT_EQ(camera.size(), 2u);
    ASSERT_EQ(microphone.size(), 2u);
    EXPECT_EQ(segmentsOf(*manifest, Kind::systemAudio).size(), 2u);
    EXPECT_EQ(segmentsOf(*manifest, Kind::cursor).size(), 1u);
    const double length = endOf(screen);
    EXPECT_GT(length, 3.5) << "the pause counted or the take was cut short";
    EXPECT_LT(length, 6.5) << "the pause was recorded";
    EXPECT_NEAR(endOf(camera), length, 0.3);
    EXPECT_NEAR(endOf(microphone), length, 0.3);

    // The screen movie is the dragged area; the camera's pictures and the tone are there.
    const MediaProbe screenProbe = probeMediaFile(screen.front().url);
    ASSERT_NE(screenProbe.firstVideo(), nullptr);
    EXPECT_EQ(screenProbe.firstVideo()->codedWidth, kAreaWidth);
    EXPECT_EQ(screenProbe.firstVideo()->codedHeight, kAreaHeight);
    const MediaProbe cameraProbe = probeMediaFile(camera.front().url);
    ASSERT_NE(cameraProbe.firstVideo(), nullptr);
    EXPECT_EQ(cameraProbe.firstVideo()->codedWidth, 320);
    for (const auto& segment : microphone) {
        const auto heard = decodeAudioFile(segment.url, AudioFormat{48000, 1});
        EXPECT_GT(rootMeanSquare(heard), 0.05) << segment.url << " did not hear the tone";
    }

    // The new take is transcribed in the background; the transcript is what
    // `orvelle transcript show` reads once the three passes have run.
    Json transcript;
    ASSERT_TRUE(testing::waitUntil(
        [&] {
            const auto shown =
                testing::runProgram(testing::orvelleBinary(),
                                    {"transcript", "show", screenURL->string(), "--json"}, command);
            if (shown.status != 0) {
                return false;
            }
            transcript = Json::parse(shown.out);
            return transcript["aligned"].get<bool>() &&
                   transcript["paragraphBreaksSuggested"].get<bool>();
        },
        180s))
        << "the take was never transcribed";
    std::vector<Json> words;
    for (const auto& paragraph : transcript["paragraphs"]) {
        for (const auto& word : paragraph) {
            words.push_back(word);
        }
    }
    ASSERT_GE(words.size(), 2u) << transcript["text"];
    // The first word goes: the transcript page (Ctrl+T), the first word selected from the
    // keyboard, Delete. The cut is the word and stops at the next one.
    const double wordStart = words[0]["editStart"].get<double>();
    const double wordEnd = words[0]["editEnd"].get<double>();
    const double nextStart = words[1]["editStart"].get<double>();
    std::this_thread::sleep_for(1000ms);
    display_.key(editor, {"ctrl+t"});
    display_.key(editor, {"ctrl+Home", "ctrl+shift+Right", "Delete"});

    // The take exports from the editor: Ctrl+E, Return, a movie of the take less the word.
    std::this_thread::sleep_for(1000ms);
    display_.key(editor, {"ctrl+e"});
    std::this_thread::sleep_for(300ms);
    display_.key(editor, {"Return"});
    std::optional<MediaProbe> exported;
    const bool done = testing::waitUntil(
        [&] {
            std::error_code error;
            for (const auto& entry : fs::directory_iterator(folder_ / "home" / "Desktop", error)) {
                if (entry.path().filename().string().starts_with(".")) {
                    continue; // still being written, under its hidden name
                }
                try {
                    exported = probeMediaFile(entry.path());
                    return exported->firstVideo() != nullptr;
                } catch (const std::exception&) {
                    // not a movie
                }
            }
            return false;
        },
        240s);
    ASSERT_TRUE(done) << "no exported movie of the take";
    EXPECT_NE(exported->firstAudio(), nullptr);
    const double cut = length - exported->duration;
    EXPECT_GT(cut, wordEnd - wordStart - 0.05) << "the word was not cut";
    EXPECT_LT(cut, nextStart + 0.02) << "more than the word was cut"; // within a frame

    // Export and Upload (Ctrl+Shift+U): a second movie, and the same bytes on the server,
    // with the project's title and privacy.
    display_.key(editor, {"ctrl+shift+u"});
    Json uploaded;
    ASSERT_TRUE(testing::waitUntil(
        [&] {
            const Json state = online_.state();
            for (const auto& [id, session] : state["sessions"].items()) {
                if (session["complete"].get<bool>()) {
                    uploaded = session;
                    return true;
                }
            }
            return false;
        },
        300s))
        << "nothing was uploaded";
    const fs::path second = folder_ / "home" / "Desktop" / (screenURL->stem().string() + " 2.mp4");
    ASSERT_TRUE(fs::exists(second));
    EXPECT_EQ(uploaded["received"].get<std::uint64_t>(), fs::file_size(second));
    EXPECT_EQ(uploaded["sha256"].get<std::string>(), sha256HexOfFile(second));
    EXPECT_EQ(uploaded["metadata"]["snippet"]["title"], "Orvelle Recording");
    EXPECT_EQ(uploaded["metadata"]["status"]["privacyStatus"], "private");
}

TEST_F(RecorderEndToEndTest, QuitKeepsTheTakeAndAKilledTakeIsRecoveredAtTheNextStart) {
    sound_.play(tone(60), "voice", 1);

    // Quit (SIGTERM, as the desktop's logout sends) during a take stops and keeps it.
    launch({"--record"});
    std::string recorder = display_.findWindow("^Orvelle$", 60s);
    ASSERT_FALSE(recorder.empty());
    chooseArea(recorder);
    ASSERT_FALSE(display_.findWindow("^Orvelle$", 20s).empty());
    display_.key(recorder, {"ctrl+r"});
    const auto quitTake = waitForRecordingFolder(30s);
    ASSERT_TRUE(quitTake);
    std::this_thread::sleep_for(2500ms);
    EXPECT_EQ(application_->terminate(SIGTERM), 0);
    EXPECT_FALSE(fs::exists(*quitTake / ".orvelle-recording-in-progress"));
    const auto quitManifest = screenMovieIn(*quitTake);
    ASSERT_TRUE(quitManifest) << "the take stopped at quit has no manifest";

    // Killed during a take: the next start offers the take, and Open in Editor opens it.
    launch({"--record"});
    recorder = display_.findWindow("^Orvelle$", 60s);
    ASSERT_FALSE(recorder.empty());
    display_.key(recorder, {"ctrl+r"}); // the area is remembered from the first run
    std::optional<fs::path> killedTake;
    ASSERT_TRUE(testing::waitUntil(
        [&] {
            killedTake = waitForRecordingFolder(1s);
            return killedTake && *killedTake != *quitTake;
        },
        30s))
        << "no second take started";
    // Killed once the camera has written its first fragments (every 2 s; later on a busy
    // machine): what a crash leaves of each track is up to its last whole fragment.
    const auto cameraBytes = [&] {
        std::uintmax_t size = 0;
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(*killedTake, error)) {
            if (entry.path().filename().string().find("-camera-") != std::string::npos) {
                size += entry.file_size(error);
            }
        }
        return size;
    };
    std::this_thread::sleep_for(3000ms);
    EXPECT_TRUE(testing::waitUntil([&] { return cameraBytes() > 8000; }, 30s))
        << "the camera wrote " << cameraBytes() << " bytes";
    std::this_thread::sleep_for(500ms);
    application_->terminate(SIGKILL);
    ASSERT_TRUE(fs::exists(*killedTake / ".orvelle-recording-in-progress"));
    EXPECT_FALSE(screenMovieIn(*killedTake));

    launch({});
    const std::string dialog = display_.findWindow("^Orvelle$", 60s);
    ASSERT_FALSE(dialog.empty()) << "no recovery offered";
    display_.key(dialog, {"Return"});
    const std::string editor = display_.findWindow("^Orvelle Recording .* — Orvelle$", 90s);
    ASSERT_FALSE(editor.empty()) << "the recovered take never opened";
    EXPECT_FALSE(fs::exists(*killedTake / ".orvelle-recording-in-progress"));
    const auto recovered = screenMovieIn(*killedTake);
    ASSERT_TRUE(recovered);
    const auto manifest = TakeManifest::load(*recovered);
    ASSERT_TRUE(manifest);
    // What was written before the kill: a few seconds of screen, camera and microphone.
    EXPECT_GT(endOf(segmentsOf(*manifest, Kind::screen)), 1.0);
    EXPECT_FALSE(segmentsOf(*manifest, Kind::camera).empty());
}

TEST_F(RecorderEndToEndTest, StartsAndStopsFromTheTrayAndWithKeysPressedInAnotherWindow) {
    sound_.play(tone(90), "voice", 1);
    // The area of the last take is remembered, so both start at once.
    writeFileAtomically(folder_ / "config" / "Orvelle" / "settings.json",
                        R"({"OrvelleCameraEnabled": true, "OrvelleSelectedCameraID": "test-camera",
            "OrvelleMicrophoneEnabled": true, "OrvelleRecorderCaptureMode": "area",
            "OrvelleRecorderArea": [200, 150, 480, 270]})");
    // A panel with a system tray, as a desktop has.
    const auto trayer = testing::findProgram("trayer");
    ASSERT_TRUE(trayer) << "trayer is not installed (run scripts/bootstrap)";
    testing::ChildProcess panel(
        *trayer, {"--edge", "top", "--align", "right", "--widthtype", "request", "--height", "24"},
        display_.environment());
    ASSERT_TRUE(testing::waitUntil(
        [&] {
            return !visibleWindows({"--class", "trayer"}).empty();
        },
        20s))
        << "the panel never showed";

    launch({});
    ASSERT_FALSE(display_.findWindow("^Orvelle$", 60s).empty()) << "the start window never showed";
    // The application's icon docks in the panel.
    std::optional<WindowGeometry> icon;
    ASSERT_TRUE(testing::waitUntil(
        [&] {
            // The panel grows by each icon it takes in.
            const auto panels = visibleWindows({"--class", "trayer"});
            if (panels.empty()) {
                return false;
            }
            const WindowGeometry tray = panels.front().second;
            for (const auto& [window, at] : visibleWindows({"--class", "Orvelle"})) {
                if (at.x >= tray.x && at.x + at.width <= tray.x + tray.width && at.y >= tray.y &&
                    at.y + at.height <= tray.y + tray.height) {
                    icon = at;
                }
            }
            return icon.has_value();
        },
        30s))
        << "no icon in the tray";
    // The icon's menu, opened with the right button; an item taken by its underlined key.
    const auto fromTrayMenu = [&](const std::string& item) {
        const size_t before = visibleWindows({"--class", "Orvelle"}).size();
        display_.xdotool({"mousemove", std::to_string(icon->x + icon->width / 2),
                          std::to_string(icon->y + icon->height / 2), "click", "3"});
        ASSERT_TRUE(testing::waitUntil(
            [&] {
                return visibleWindows({"--class", "Orvelle"}).size() > before;
            },
            10s))
            << "the tray menu never opened";
        display_.xdotool({"key", item});
    };

    fromTrayMenu("s"); // Start Recording
    const auto trayTake = waitForRecordingFolder(30s);
    ASSERT_TRUE(trayTake) << "the tray started no take";
    std::this_thread::sleep_for(2500ms);
    fromTrayMenu("t"); // Stop Recording
    const std::string editor = display_.findWindow("^Orvelle Recording .* — Orvelle$", 90s);
    ASSERT_FALSE(editor.empty()) << "the take stopped from the tray never opened";
    const auto trayManifest = screenMovieIn(*trayTake);
    ASSERT_TRUE(trayManifest) << "the take stopped from the tray has no manifest";

    // With the editor in front, the keys for the whole desktop start a take, pause and
    // resume it, and stop it into a second editor.
    std::this_thread::sleep_for(1000ms);
    display_.key(editor, {"ctrl+alt+r"});
    std::optional<fs::path> keysTake;
    ASSERT_TRUE(testing::waitUntil(
        [&] {
            keysTake = waitForRecordingFolder(1s);
            return keysTake && *keysTake != *trayTake;
        },
        30s))
        << "Ctrl+Alt+R started no take";
    std::this_thread::sleep_for(1500ms);
    display_.key(editor, {"ctrl+alt+p"});
    std::this_thread::sleep_for(2500ms);
    display_.key(editor, {"ctrl+alt+p"});
    std::this_thread::sleep_for(1500ms);
    display_.key(editor, {"ctrl+alt+r"});
    ASSERT_TRUE(testing::waitUntil(
        [&] {
            return visibleWindows({"--name", "^Orvelle Recording .* — Orvelle$"}).size() == 2;
        },
        90s))
        << "the take stopped with the keys never opened";
    const auto keysTakeMovie = screenMovieIn(*keysTake);
    ASSERT_TRUE(keysTakeMovie);
    const auto manifest = TakeManifest::load(*keysTakeMovie);
    ASSERT_TRUE(manifest);
    // Two runs of the screen and the camera (on again after the first take) around the
    // pause, which is not in the take.
    const auto screen = segmentsOf(*manifest, Kind::screen);
    EXPECT_EQ(screen.size(), 2u);
    EXPECT_EQ(segmentsOf(*manifest, Kind::camera).size(), 2u);
    EXPECT_GT(endOf(screen), 2.0);
    EXPECT_LT(endOf(screen), 4.5) << "the pause was recorded";
}

} // namespace
} // namespace orvelle
