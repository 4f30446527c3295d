#include "platform/media/media_probe.h"
#include "recording/segmented_sample_buffer_recorder.h"
#include "support/temporary_directory.h"
#include "support/test_media.h"

#include <gtest/gtest.h>

#include <mutex>
#include <thread>

namespace orvelle {
namespace {

using testing::TemporaryDirectory;
using Kind = MediaTrackManifest::Kind;

CapturedAudio toneAt(double time, double seconds, int channels = 1) {
    CapturedAudio audio;
    audio.samples = testing::sineTone(330, seconds, 48000, channels);
    audio.sampleRate = 48000;
    audio.channelCount = channels;
    audio.presentationTime = time;
    return audio;
}

CapturedVideoFrameRef cameraFrame(int number, double time, int width = 320, int height = 180) {
    struct Owned {
        VideoFrame picture;
        CapturedVideoFrame frame;
    };
    auto owned = std::make_shared<Owned>();
    testing::paintNumberedFrame(owned->picture, number, width, height);
    owned->frame = {owned->picture.planes[0].data(),
                    owned->picture.strides[0],
                    width,
                    height,
                    time,
                    1.0 / 30,
                    std::nullopt};
    return {owned, &owned->frame};
}

// Hands samples over at the pace a device has: the writers are real-time ones.
class Pace {
public:
    explicit Pace(double interval) : interval_(interval) {}
    void next() {
        due_ += std::chrono::duration_cast<std::chrono::steady_clock::duration>(
            std::chrono::duration<double>(interval_));
        std::this_thread::sleep_until(due_);
    }

private:
    double interval_;
    std::chrono::steady_clock::time_point due_ = std::chrono::steady_clock::now();
};

class SideTrackWriting : public ::testing::Test {
protected:
    template <class Segment>
    std::unique_ptr<SegmentedSampleBufferRecorder<Segment>> make(Kind kind, const char* queue) {
        return std::make_unique<SegmentedSampleBufferRecorder<Segment>>(
            queue, kind, folder_.path(), "Take", "device-7", "Desk Microphone",
            [this](std::string message) {
                std::lock_guard lock(mutex_);
                failures_.push_back(std::move(message));
            });
    }
    std::vector<std::string> failures() {
        std::lock_guard lock(mutex_);
        return failures_;
    }

    TemporaryDirectory folder_;
    std::mutex mutex_;
    std::vector<std::string> failures_;
};

TEST_F(SideTrackWriting, MicrophoneRunsBecomeNumberedFilesOnTheScreensClock) {
    auto microphone = make<AudioSegment>(Kind::microphone, "com.tolvanic.orvelle.segmented-m4a");
    // A run without samples leaves no file, yet uses its number.
    EXPECT_EQ(microphone->startSegment(0), folder_ / "Take-microphone-001.m4a");
    microphone->finishActiveSegment(0.5);
    EXPECT_FALSE(std::filesystem::exists(folder_ / "Take-microphone-001.m4a"));

    EXPECT_EQ(microphone->startSegment(0.5), folder_ / "Take-microphone-002.m4a");
    for (int index = 0; index < 10; ++index) {
        microphone->append(toneAt(100.0 + index * 0.1, 0.1));
    }
    // The screen's pause ended the run at 1.6 on the take's clock.
    microphone->finishActiveSegment(1.6);

    microphone->startSegment(2.0);
    microphone->append(toneAt(200.0, 0.5));
    // An end before the start: no time on the clock, but the file is kept.
    const auto segments = microphone->finish(1.0);
    ASSERT_EQ(segments.size(), 2U);
    EXPECT_EQ(segments[0].url, folder_ / "Take-microphone-002.m4a");
    EXPECT_EQ(segments[0].kind, Kind::microphone);
    EXPECT_EQ(segments[0].trackID, "microphone");
    EXPECT_EQ(segments[0].deviceName, "Desk Microphone");
    EXPECT_DOUBLE_EQ(segments[0].programStart, 0.5);
    EXPECT_NEAR(segments[0].duration, 1.1, 1e-9);
    EXPECT_NEAR(segments[0].mediaDuration, 1.0, 1e-6);
    EXPECT_FALSE(segments[0].width);
    EXPECT_EQ(segments[1].url, folder_ / "Take-microphone-003.m4a");
    EXPECT_EQ(segments[1].duration, 0);
    EXPECT_NEAR(segments[1].mediaDuration, 0.5, 1e-6);

    const auto probe = probeMediaFile(segments[0].url);
    ASSERT_NE(probe.firstAudio(), nullptr);
    EXPECT_EQ(probe.firstAudio()->channelCount, 1);
    EXPECT_NEAR(probe.lengthOf(*probe.firstAudio()), 1.0, 0.05);
    // Without a program end the run's own length counts.
    microphone->startSegment(3.0);
    microphone->append(toneAt(300.0, 0.3));
    EXPECT_NEAR(microphone->finish(std::nullopt).back().duration, 0.3, 1e-6);
}

TEST_F(SideTrackWriting, CameraRunsAreSizedByTheirPicturesAndCancelRemovesThem) {
    auto camera = make<VideoSegment>(Kind::camera, "com.tolvanic.orvelle.segmented-mov");
    camera->startSegment(0);
    Pace pace(1.0 / 30);
    for (int index = 0; index < 15; ++index) {
        camera->append(cameraFrame(index, 50.0 + index / 30.0));
        pace.next();
    }
    camera->finishActiveSegment(0.5);
    camera->startSegment(0.5);
    for (int index = 0; index < 6; ++index) {
        camera->append(cameraFrame(index, 60.0 + index / 30.0));
        pace.next();
    }
    const auto segments = camera->segments();
    ASSERT_EQ(segments.size(), 1U);
    EXPECT_EQ(segments[0].width, 320);
    EXPECT_EQ(segments[0].height, 180);
    EXPECT_EQ(segments[0].duration, 0.5);
    // The picture at 50.0 starts the file and the last one written ends it.
    EXPECT_GT(segments[0].mediaDuration, 0.3);
    EXPECT_LE(segments[0].mediaDuration, 0.5 + 1e-9);
    EXPECT_EQ(probeMediaFile(segments[0].url).firstVideo()->codedWidth, 320);
    ASSERT_TRUE(std::filesystem::exists(folder_ / "Take-camera-002.mov"));

    camera->cancel();
    EXPECT_TRUE(camera->segments().empty());
    EXPECT_FALSE(std::filesystem::exists(folder_ / "Take-camera-001.mov"));
    EXPECT_FALSE(std::filesystem::exists(folder_ / "Take-camera-002.mov"));
}

TEST_F(SideTrackWriting, AWriterFailureIsReportedOnceAndWhatWasClosedStays) {
    auto camera = make<VideoSegment>(Kind::camera, "com.tolvanic.orvelle.segmented-mov");
    camera->startSegment(0);
    Pace pace(1.0 / 30);
    for (int index = 0; index < 10; ++index) {
        camera->append(cameraFrame(index, index / 30.0));
        pace.next();
    }
    camera->finishActiveSegment(std::nullopt);
    camera->startSegment(1);
    camera->append(cameraFrame(0, 10.0));
    // The device changed its size mid-run: the writer cannot take it.
    camera->append(cameraFrame(1, 10.1, 640, 360));
    camera->append(cameraFrame(2, 10.2, 640, 360));
    const auto segments = camera->finish(std::nullopt);
    ASSERT_EQ(failures().size(), 1U);
    EXPECT_EQ(failures()[0], "The camera changed its picture size from 320x180 to 640x360 "
                             "during the recording.");
    ASSERT_GE(segments.size(), 1U);
    EXPECT_EQ(segments[0].url, folder_ / "Take-camera-001.mov");

    // A sample without a picture cannot start a camera file.
    auto empty = make<VideoSegment>(Kind::camera, "com.tolvanic.orvelle.segmented-mov");
    empty->startSegment(0);
    empty->append(std::make_shared<CapturedVideoFrame>());
    empty->segments();
    EXPECT_EQ(failures().back(), "The camera sample did not contain a video frame.");
}

} // namespace
} // namespace orvelle
