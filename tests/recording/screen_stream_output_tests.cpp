#include "core/files.h"
#include "platform/media/media_probe.h"
#include "platform/media/video_decoder.h"
#include "recording/screen_stream_output.h"
#include "support/temporary_directory.h"
#include "support/test_media.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <thread>

namespace orvelle {
namespace {

using testing::TemporaryDirectory;

constexpr int kWidth = 160;
constexpr int kHeight = 96;
constexpr double kFrame = 1.0 / 60;

// A frame numbered `number` (read back from the movie), captured at `time`.
CapturedVideoFrameRef
numberedFrame(int number, double time,
              std::optional<int> status = static_cast<int>(CaptureFrameStatus::complete)) {
    struct Owned {
        VideoFrame picture;
        CapturedVideoFrame frame;
    };
    auto owned = std::make_shared<Owned>();
    testing::paintNumberedFrame(owned->picture, number, kWidth, kHeight);
    owned->frame = {owned->picture.planes[0].data(),
                    owned->picture.strides[0],
                    kWidth,
                    kHeight,
                    time,
                    kFrame,
                    status};
    return {owned, &owned->frame};
}

std::vector<int> frameNumbers(const std::filesystem::path& movie) {
    VideoDecoder decoder(movie);
    VideoFrame frame;
    std::vector<int> numbers;
    while (decoder.nextFrame(frame)) {
        numbers.push_back(testing::readFrameNumber(frame));
    }
    return numbers;
}

class ScreenWriting : public ::testing::Test {
protected:
    std::unique_ptr<ScreenStreamOutput> makeOutput(bool includeAudio = false) {
        ScreenStreamOutput::Callbacks callbacks;
        callbacks.onReadyFrame = [this] { ++readyFrames_; };
        callbacks.onFirstFrame = [this](Date) { ++firstFrames_; };
        callbacks.onFailure = [this](std::string message) {
            std::lock_guard lock(mutex_);
            failures_.push_back(std::move(message));
        };
        return std::make_unique<ScreenStreamOutput>(first_, kWidth, kHeight, includeAudio,
                                                    callbacks);
    }
    // Frames number..number+count-1 at the sixtieths from `time` on, handed over at the
    // pace a stream has: the writer is a real-time one.
    void deliver(ScreenStreamOutput& output, int number, int count, double time) {
        auto due = std::chrono::steady_clock::now();
        for (int index = 0; index < count; ++index) {
            output.streamDidOutputVideoFrame(numberedFrame(number + index, time + index * kFrame));
            due += std::chrono::microseconds(16667);
            std::this_thread::sleep_until(due);
        }
    }
    std::vector<std::string> failures() {
        std::lock_guard lock(mutex_);
        return failures_;
    }

    TemporaryDirectory folder_;
    std::filesystem::path first_ = folder_ / "Take.mov";
    std::atomic<int> readyFrames_ = 0;
    std::atomic<int> firstFrames_ = 0;
    std::mutex mutex_;
    std::vector<std::string> failures_;
};

TEST_F(ScreenWriting, WritesOnlyArmedFramesWithTheirTimesAndSignalsOnce) {
    auto output = makeOutput();
    deliver(*output, 100, 5, 10.0); // before arming: ready, but not written
    output->segments();             // waits for the queue
    EXPECT_EQ(readyFrames_, 1);
    EXPECT_EQ(firstFrames_, 0);
    EXPECT_FALSE(std::filesystem::exists(first_));

    output->armWriting();
    deliver(*output, 0, 30, 20.0);
    const auto statistics = output->statistics();
    const auto result = output->finish();
    ASSERT_FALSE(result.tailError);
    ASSERT_EQ(result.segments.size(), 1U);
    const auto& segment = result.segments[0];
    EXPECT_EQ(segment.url, first_);
    EXPECT_EQ(segment.programStart, 0);
    EXPECT_EQ(segment.mediaDuration, segment.duration);
    EXPECT_EQ(segment.width, kWidth);
    EXPECT_EQ(segment.trackID, "screen");
    EXPECT_EQ(readyFrames_, 1);
    EXPECT_EQ(firstFrames_, 1);

    // A loaded machine may make the writer drop a frame; those written keep their order
    // and their times, and every frame is either written or counted as dropped.
    const auto numbers = frameNumbers(first_);
    EXPECT_EQ(statistics.framesReceived, 30);
    EXPECT_EQ(statistics.framesWritten + statistics.framesDroppedByWriter, 30);
    EXPECT_EQ(static_cast<int64_t>(numbers.size()), statistics.framesWritten);
    ASSERT_GE(numbers.size(), 24U);
    EXPECT_EQ(numbers.front(), 0);
    EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
    EXPECT_NEAR(segment.duration, (numbers.back() + 1) * kFrame, 1e-6);
    const auto probe = probeMediaFile(first_);
    EXPECT_NEAR(probe.firstVideo()->duration, segment.duration, 0.02);
}

TEST_F(ScreenWriting, BlankAndSuspendedFramesNeverOpenASegment) {
    const struct {
        std::optional<int> status;
        bool written;
    } cases[] = {{std::nullopt, true}, {0, true},  {1, true},  {4, true},
                 {2, false},           {3, false}, {5, false}, {9, false}};
    for (const auto& c : cases) {
        EXPECT_EQ(shouldWrite(c.status), c.written) << c.status.value_or(-1);
    }
    auto output = makeOutput();
    output->armWriting();
    for (int index = 0; index < 10; ++index) {
        output->streamDidOutputVideoFrame(numberedFrame(index, index * kFrame, 2));
        output->streamDidOutputVideoFrame(numberedFrame(index, index * kFrame, 3));
    }
    const auto result = output->finish();
    EXPECT_TRUE(result.segments.empty());
    EXPECT_FALSE(std::filesystem::exists(first_));
    EXPECT_EQ(readyFrames_, 0);
}

TEST_F(ScreenWriting, PausesMakeNumberedSegmentsOnTheProgramClock) {
    auto output = makeOutput();
    output->armWriting();
    // A pause before any frame: no file, and program time stays at 0.
    EXPECT_EQ(output->pauseRecording(), 0);
    output->resumeRecording(std::nullopt);

    deliver(*output, 0, 12, 1.0);
    const double firstEnd = output->pauseRecording();
    EXPECT_NEAR(firstEnd, (frameNumbers(first_).back() + 1) * kFrame, 1e-6);
    EXPECT_EQ(output->pauseRecording(), firstEnd); // a second pause changes nothing
    deliver(*output, 50, 5, 2.0);                  // the stream runs on; dropped

    output->resumeRecording(std::nullopt); // continues where the first ended
    output->resumeRecording(std::nullopt); // twice is harmless
    deliver(*output, 12, 6, 3.0);
    const double secondEnd = output->pauseRecording();
    const auto second = frameNumbers(folder_ / "Take-screen-002.mov");
    EXPECT_NEAR(secondEnd, firstEnd + (second.back() - 11) * kFrame, 1e-6);

    output->resumeRecording(5.0); // the session says where the next one starts
    deliver(*output, 18, 6, 4.0);
    const auto result = output->finish();
    ASSERT_EQ(result.segments.size(), 3U);
    EXPECT_EQ(result.segments[1].url, folder_ / "Take-screen-002.mov");
    EXPECT_EQ(result.segments[2].url, folder_ / "Take-screen-003.mov");
    EXPECT_NEAR(result.segments[1].programStart, firstEnd, 1e-9);
    EXPECT_NEAR(result.segments[2].programStart, 5.0, 1e-9);
    EXPECT_NEAR(result.segments[1].duration, secondEnd - firstEnd, 1e-9);
    // Only the frames between resume and pause: none of those sent while paused.
    EXPECT_EQ(second.front(), 12);
    for (const int number : second) {
        EXPECT_TRUE(number >= 12 && number < 18) << number;
    }
    EXPECT_EQ(firstFrames_, 1);

    // A negative start is held at 0; resuming after finish writes nothing.
    output->resumeRecording(-3.0);
    deliver(*output, 30, 3, 9.0);
    EXPECT_EQ(output->segments().size(), 3U);
}

TEST_F(ScreenWriting, CancelRemovesEveryFileOfTheTrack) {
    auto output = makeOutput();
    output->armWriting();
    deliver(*output, 0, 6, 0.0);
    output->pauseRecording();
    output->resumeRecording(std::nullopt);
    deliver(*output, 6, 6, 1.0);
    output->segments();
    ASSERT_TRUE(std::filesystem::exists(first_));
    ASSERT_TRUE(std::filesystem::exists(folder_ / "Take-screen-002.mov"));
    output->cancel();
    EXPECT_TRUE(output->segments().empty());
    EXPECT_FALSE(std::filesystem::exists(first_));
    EXPECT_FALSE(std::filesystem::exists(folder_ / "Take-screen-002.mov"));
}

TEST_F(ScreenWriting, AFailureIsReportedOnceAndTheClosedSegmentsStay) {
    auto output = makeOutput();
    output->armWriting();
    deliver(*output, 0, 6, 0.0);
    output->pauseRecording();
    output->resumeRecording(std::nullopt);
    deliver(*output, 6, 6, 1.0);
    // The stream ends on its own; what comes after is not written.
    output->streamDidStop("The window being recorded was closed.");
    output->streamDidStop("A second report");
    deliver(*output, 12, 6, 2.0);
    const auto result = output->finish();
    EXPECT_EQ(failures(), (std::vector<std::string>{"The window being recorded was closed."}));
    EXPECT_FALSE(result.tailError);
    ASSERT_EQ(result.segments.size(), 2U);
    EXPECT_LT(frameNumbers(result.segments[1].url).back(), 12);

    // A writer that cannot start reports the file it could not make, and leaves nothing.
    first_ = folder_ / "missing" / "Take.mov";
    auto unwritable = makeOutput();
    unwritable->armWriting();
    deliver(*unwritable, 0, 3, 0.0);
    EXPECT_TRUE(unwritable->finish().segments.empty());
    ASSERT_EQ(failures().size(), 2U);
    EXPECT_NE(failures()[1].find("Take.mov"), std::string::npos) << failures()[1];
}

TEST_F(ScreenWriting, SystemAudioStartsWithTheFirstPictureAndFollowsIt) {
    auto output = makeOutput(true);
    output->armWriting();
    const auto tone = testing::sineTone(440, 0.1, 48000, 2);
    const auto audioAt = [&](double time) {
        CapturedAudio audio;
        audio.samples = tone;
        audio.presentationTime = time;
        output->streamDidOutputAudio(audio);
    };
    audioAt(0.5); // before any segment: dropped
    deliver(*output, 0, 60, 1.0);
    // A second of sound from 1.0 on, with a 0.2 s hole after its first half.
    for (double time = 1.0; time < 1.5; time += 0.1) {
        audioAt(time);
    }
    for (double time = 1.7; time < 2.0; time += 0.1) {
        audioAt(time);
    }
    const auto result = output->finish();
    ASSERT_EQ(result.segments.size(), 1U);
    const auto probe = probeMediaFile(first_);
    ASSERT_NE(probe.firstAudio(), nullptr);
    EXPECT_EQ(probe.firstAudio()->sampleRate, 48000);
    // The hole is filled with silence, so the sound ends with the pictures.
    EXPECT_NEAR(probe.lengthOf(*probe.firstAudio()), 1.0, 0.05);
}

} // namespace
} // namespace orvelle
