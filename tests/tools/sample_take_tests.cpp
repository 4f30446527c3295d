#include "core/files.h"
#include "platform/media/audio_decoder.h"
#include "platform/media/media_probe.h"
#include "platform/media/video_decoder.h"
#include "project/cursor_recording.h"
#include "project/editor_document.h"
#include "sample_take/sample_take.h"
#include "support/temporary_directory.h"
#include "support/test_media.h"
#include "support/thrown.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <set>

namespace orvelle::SampleTake {
namespace {

namespace fs = std::filesystem;
using testing::TemporaryDirectory;

constexpr int kWidth = 384; // a fifth of the design: quick to make, big enough to look at
constexpr double kScale = kWidth / kDesignWidth;

double rms(const std::vector<float>& samples, double from, double to, int channels = 1) {
    return testing::rootMeanSquare(samples, channels, kAudioSampleRate, from, to);
}

// One take for all the tests below: making it is the slow part.
class SampleTakeFiles : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        folder_ = new TemporaryDirectory();
        Options options;
        options.width = kWidth;
        result_ = new Result(make(folder_->path() / "take", options));
    }
    static void TearDownTestSuite() {
        delete result_;
        delete folder_;
    }

    // The colour of the picture at a point of the design, at a time.
    static std::array<int, 3> colourAt(Point point, double time) {
        VideoDecoder decoder(result_->screenURL);
        VideoFrame frame;
        EXPECT_TRUE(decoder.frameAt(time, frame));
        const int x = static_cast<int>(point.x * kScale);
        const int y = static_cast<int>(point.y * kScale);
        const uint8_t* pixel = frame.row(0, y) + 4 * x;
        return {pixel[2], pixel[1], pixel[0]};
    }

    static TemporaryDirectory* folder_;
    static Result* result_;
    SampleScript script_ = makeSampleScript();
};

TemporaryDirectory* SampleTakeFiles::folder_ = nullptr;
Result* SampleTakeFiles::result_ = nullptr;

bool isDark(std::array<int, 3> colour) {
    return colour[0] < 70 && colour[1] < 70 && colour[2] < 70;
}

bool isLight(std::array<int, 3> colour) {
    return colour[0] > 200 && colour[1] > 200 && colour[2] > 200;
}

TEST_F(SampleTakeFiles, AreTheFilesOfARecording) {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder_->path() / "take")) {
        names.insert(entry.path().filename().string());
    }
    // Nothing else is left behind: no scratch folder, no speech files.
    EXPECT_EQ(names, (std::set<std::string>{"Orvelle Sample.mov", "Orvelle Sample.cursor.json",
                                            "Orvelle Sample.take.json",
                                            "Orvelle Sample-microphone-001.m4a"}));
    const auto manifest = TakeManifest::load(result_->screenURL);
    ASSERT_TRUE(manifest.has_value());
    EXPECT_EQ(*manifest, result_->manifest);
    std::vector<std::string> tracks;
    for (const auto& track : manifest->tracks) {
        tracks.push_back(track.id + ":" + track.displayName.value_or(""));
    }
    EXPECT_EQ(tracks, (std::vector<std::string>{"cursor:Cursor", "microphone:Desk Microphone",
                                                "screen:Screen", "systemAudio:System Audio"}));
    EXPECT_DOUBLE_EQ(manifest->duration(), 20.0);
    for (const auto& segment : manifest->segments) {
        EXPECT_NEAR(segment.duration, 20.0, 0.01) << segment.id;
        EXPECT_EQ(segment.programStart, 0) << segment.id;
    }
    const auto document = EditorDocument::load(result_->screenURL);
    EXPECT_EQ(document.displayTitle(), "Orvelle Sample");
    EXPECT_EQ(document.manifest, *manifest);
}

TEST_F(SampleTakeFiles, TheScreenMovieHoldsTheDesktopAndTheSystemSound) {
    const MediaProbe probe = probeMediaFile(result_->screenURL);
    ASSERT_NE(probe.firstVideo(), nullptr);
    EXPECT_EQ(probe.firstVideo()->naturalWidth, kWidth);
    EXPECT_EQ(probe.firstVideo()->naturalHeight, 216);
    EXPECT_NEAR(probe.firstVideo()->nominalFrameRate.value_or(0), 30, 0.01);
    EXPECT_NEAR(probe.duration, 20, 0.1);
    EXPECT_EQ(result_->frameCount, 600);
    ASSERT_NE(probe.firstAudio(), nullptr);
    const auto sound = decodeAudioFile(result_->screenURL, {kAudioSampleRate, 2});
    // Silent until the tests pass, then the chime.
    EXPECT_LT(rms(sound, 1, script_.chimeTime - 0.5, 2), 1e-3);
    EXPECT_GT(rms(sound, script_.chimeTime, script_.chimeTime + 0.5, 2), 0.02);
}

TEST_F(SampleTakeFiles, TheMicrophoneCarriesTheNarrationOverAQuietRoom) {
    const MediaProbe probe = probeMediaFile(result_->microphoneURL);
    ASSERT_NE(probe.firstAudio(), nullptr);
    EXPECT_EQ(probe.firstAudio()->channelCount, 1);
    EXPECT_NEAR(probe.duration, 20, 0.1);
    ASSERT_EQ(result_->narration.size(), script_.narration.size());
    const auto voice = decodeAudioFile(result_->microphoneURL, {kAudioSampleRate, 1});
    const double room = rms(voice, 0.02, 0.3); // before the first word and the first key
    EXPECT_GT(room, 0.0005);                   // a real room is never silent
    double previousEnd = 0;
    for (size_t i = 0; i < result_->narration.size(); ++i) {
        const auto& sentence = result_->narration[i];
        EXPECT_EQ(sentence.text, script_.narration[i].text);
        EXPECT_GE(sentence.start, script_.narration[i].earliest);
        EXPECT_GT(sentence.start, previousEnd) << "sentences overlap";
        EXPECT_LT(sentence.end, 20.0) << sentence.text;
        EXPECT_GT(sentence.end - sentence.start, 0.6) << sentence.text;
        EXPECT_GT(rms(voice, sentence.start, sentence.end), 20 * room) << sentence.text;
        previousEnd = sentence.end;
    }
}

TEST_F(SampleTakeFiles, ThePointerFileFollowsTheHand) {
    const auto pointer = CursorRecording::load(result_->cursorURL);
    EXPECT_EQ(pointer.captureFrame, (CodableRect{0, 0, 1920, 1080}));
    EXPECT_NEAR(static_cast<double>(pointer.samples.size()), 20 * 60, 2);
    for (size_t i = 1; i < pointer.samples.size(); ++i) {
        EXPECT_GT(pointer.samples[i].time, pointer.samples[i - 1].time);
        EXPECT_NEAR(pointer.samples[i].time - pointer.samples[i - 1].time, 1.0 / 60, 0.006);
    }
    ASSERT_EQ(pointer.clicks.size(), script_.clicks.size());
    EXPECT_EQ(result_->clickCount, 3);
    for (size_t i = 0; i < pointer.clicks.size(); ++i) {
        EXPECT_EQ(pointer.clicks[i].time, script_.clicks[i].time);
        EXPECT_EQ(pointer.clicks[i].button, 0);
        // The recorded pointer is where the script clicks.
        const auto nearest = std::min_element(
            pointer.samples.begin(), pointer.samples.end(), [&](const auto& a, const auto& b) {
                return std::fabs(a.time - pointer.clicks[i].time) <
                       std::fabs(b.time - pointer.clicks[i].time);
            });
        EXPECT_NEAR(nearest->x * 1920, script_.clicks[i].at.x, 3);
        EXPECT_NEAR(nearest->y * 1080, script_.clicks[i].at.y, 3);
        EXPECT_TRUE(nearest->visible);
    }
}

TEST_F(SampleTakeFiles, ThePictureFollowsTheClicksAndHasNoPointer) {
    // Where the browser comes to lie over the editor when it is clicked, and the terminal
    // over the browser.
    const Point overEditor{1000, 420};
    const Point overBrowser{1300, 900};
    const double browserClick = script_.clicks[1].time;
    const double terminalClick = script_.clicks[2].time;
    EXPECT_TRUE(isDark(colourAt(overEditor, browserClick - 0.2)));
    EXPECT_TRUE(isLight(colourAt(overEditor, browserClick + 0.2)));
    EXPECT_TRUE(isLight(colourAt(overBrowser, terminalClick - 0.2)));
    EXPECT_TRUE(isDark(colourAt(overBrowser, terminalClick + 0.2)));

    // While the pointer travels to the editor nothing else happens on the screen: the two
    // frames are the same, since the movie holds no pointer.
    const auto& reach = script_.moves.front();
    VideoDecoder decoder(result_->screenURL);
    VideoFrame before;
    VideoFrame after;
    ASSERT_TRUE(decoder.frameAt(reach.start + 0.1, before));
    ASSERT_TRUE(decoder.frameAt(reach.end - 0.05, after));
    int differing = 0;
    for (int y = 0; y < before.height; ++y) {
        for (int x = 0; x < 4 * before.width; ++x) {
            differing += std::abs(before.row(0, y)[x] - after.row(0, y)[x]) > 24 ? 1 : 0;
        }
    }
    EXPECT_EQ(differing, 0);
}

TEST(SampleTakeFailure, AMissingSpeakerLeavesTheLastSampleAsItWas) {
    TemporaryDirectory folder;
    testing::writeTextFile(folder / "Orvelle Sample.mov", "the last good sample");
    const std::string path = std::getenv("PATH") != nullptr ? std::getenv("PATH") : "";
    ::setenv("PATH", (folder / "nowhere").c_str(), 1);
    Options options;
    options.width = 128;
    options.duration = 2;
    const std::string refusal = testing::messageOf<Error>([&] { make(folder.path(), options); });
    EXPECT_NE(refusal.find("espeak-ng"), std::string::npos) << refusal;
    ::setenv("PATH", path.c_str(), 1);
    EXPECT_EQ(readFile(folder / "Orvelle Sample.mov"), "the last good sample");
    size_t entries = 0;
    for ([[maybe_unused]] const auto& entry : fs::directory_iterator(folder.path())) {
        ++entries;
    }
    EXPECT_EQ(entries, 1u); // no scratch folder left
}

} // namespace
} // namespace orvelle::SampleTake
