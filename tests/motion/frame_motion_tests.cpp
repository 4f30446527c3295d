#include "motion/frame_motion.h"
#include "motion/playback_motion_engine.h"

#include <gtest/gtest.h>

#include <cmath>

namespace orvelle {
namespace {

TEST(FrameMotionAccumulatorTest, AttacksFastAndReleasesSlowly) {
    FrameMotionAccumulator accumulator;
    const double dt = 1.0 / 30;
    double x = 0.2;
    accumulator.update(0, CursorPoint{x, 0.5, true}, 1);
    EXPECT_EQ(accumulator.cameraFrameMotion(), MotionBlurVector{}); // the first frame: none
    // A steady pan of 0.6 frame widths a second is 0.01 per 60th.
    for (int i = 1; i <= 30; ++i) {
        x += 0.6 * dt;
        accumulator.update(i * dt, CursorPoint{x, 0.5, true}, 1);
    }
    EXPECT_NEAR(accumulator.cameraFrameMotion().dx, 0.01, 1e-4);
    EXPECT_NEAR(accumulator.cameraFrameMotion().dy, 0, 1e-12);
    // One frame of rest releases with the slow time constant.
    accumulator.update(31 * dt, CursorPoint{x, 0.5, true}, 1);
    const double released = accumulator.cameraFrameMotion().dx;
    EXPECT_NEAR(released, 0.01 * std::exp(-dt / 0.22), 1e-4);
}

TEST(FrameMotionAccumulatorTest, ZoomSpeedIsPerSixtiethAndNeverNegative) {
    FrameMotionAccumulator accumulator;
    const double dt = 1.0 / 60;
    accumulator.update(0, std::nullopt, 1);
    accumulator.update(dt, std::nullopt, 1.1);
    EXPECT_NEAR(accumulator.zoomFrameMotion(), 0.1 * (1 - std::exp(-dt / 0.07)), 1e-12);
    accumulator.update(2 * dt, std::nullopt, 1.0); // shrinking counts by its size too
    EXPECT_GT(accumulator.zoomFrameMotion(), 0);
}

TEST(FrameMotionAccumulatorTest, SeeksPausesScrubsAndHiddenPointsShowNoMotion) {
    struct Case {
        const char* name;
        double nextTime;
        bool visible;
        bool continues;
    };
    const Case cases[] = {
        {"a pause of 0.6 s", 0.6 + 1.0 / 30, true, true},
        {"exactly 0.5 s", 0.5 + 1.0 / 30, true, true},
        {"a step back", 0, true, true},
        {"the same time again", 1.0 / 30, true, true},
        {"a scrub", 2.0 / 30, true, false},
        {"a hidden point", 2.0 / 30, false, true},
    };
    for (const auto& c : cases) {
        FrameMotionAccumulator accumulator;
        accumulator.update(0, CursorPoint{0.1, 0.1, true}, 1);
        accumulator.update(1.0 / 30, CursorPoint{0.3, 0.3, true}, 1.5);
        ASSERT_GT(accumulator.cameraFrameMotion().length(), 0);
        accumulator.update(c.nextTime, CursorPoint{0.6, 0.6, c.visible}, 2.5, c.continues);
        if (c.visible) {
            EXPECT_EQ(accumulator.cameraFrameMotion(), MotionBlurVector{}) << c.name;
            EXPECT_EQ(accumulator.zoomFrameMotion(), 0) << c.name;
        } else {
            // The camera's velocity is taken as zero and released towards it.
            EXPECT_LT(accumulator.cameraFrameMotion().length(), 0.1) << c.name;
            EXPECT_GT(accumulator.zoomFrameMotion(), 0) << c.name;
        }
    }
}

TEST(PlaybackMotionEngineTest, RebuildsEveryTrackFromTheRecording) {
    CursorRecording recording;
    for (int i = 0; i < 120; ++i) {
        recording.samples.push_back({i / 60.0, 0.2 + i * 0.005, 0.5, true});
    }
    recording.clicks = {{0.5, 0}, {1.0, 1}, {1.5, 0}};
    PlaybackMotionEngine engine;
    engine.setRecording(recording);
    engine.configure(ScreenAnimationStyle::smooth);
    EXPECT_EQ(engine.cursorSpring, (SpringParameters{80, 14, 1.2}));
    const auto scale = [](double) { return 2.0; };
    const auto bias = [](double) { return 0.0; };
    engine.rebuildPreparedSamples(scale, bias);
    EXPECT_EQ(engine.preparedCursorSamples.size(), 120u);
    EXPECT_EQ(engine.filteredCursorSamples.size(), 120u);
    EXPECT_EQ(engine.cameraSamples.size(), 120u);
    EXPECT_EQ(engine.cursorTiltTrack.times.size(), 120u);
    // The spring lags behind the recorded pointer.
    EXPECT_LT(engine.cursorPoint(1.0)->x, 0.2 + 60 * 0.005);
    EXPECT_GT(engine.cursorTiltAngle(1.0), 0);

    engine.cursorSpringEnabled = false;
    engine.rebuildFilteredSamples();
    EXPECT_EQ(engine.filteredCursorSamples, engine.preparedCursorSamples);

    engine.setRecording({});
    engine.rebuildPreparedSamples(scale, bias);
    EXPECT_TRUE(engine.cameraSamples.empty());
    EXPECT_FALSE(engine.cursorPoint(1.0));
}

TEST(PlaybackMotionEngineTest, ClicksSoundOnlyWhilePlayingForwardsInsideClips) {
    CursorRecording recording;
    recording.clicks = {{1.0, 0}, {2.0, 0}, {5.0, 0}, {6.0, 0}};
    PlaybackMotionEngine engine;
    engine.setRecording(recording);
    TimelineClip first{.start = SourceTime(0), .end = SourceTime(4)};
    TimelineClip second{.start = SourceTime(5.5), .end = SourceTime(10)};
    const std::vector clips{first, second};

    EXPECT_EQ(engine.updateClicks(0.5, true, clips), 0); // the first tick only sets the index
    EXPECT_EQ(engine.updateClicks(1.5, true, clips), 1);
    EXPECT_EQ(engine.updateClicks(3.0, true, clips), 1);
    EXPECT_EQ(engine.updateClicks(5.2, true, clips), 0); // 5.0 lies in a deleted gap
    EXPECT_EQ(engine.updateClicks(6.0, true, clips), 1);
    EXPECT_EQ(engine.updateClicks(1.2, true, clips), 0); // a seek back resets
    EXPECT_EQ(engine.nextClickIndex, 1u);
    EXPECT_EQ(engine.updateClicks(2.5, false, clips), 0); // paused: only resets
    EXPECT_EQ(engine.nextClickIndex, 2u);
}

TEST(PlaybackMotionEngineTest, ScrubbingShowsNoBlur) {
    PlaybackMotionEngine engine;
    engine.updateVelocities(0, true, CursorPoint{0.1, 0.1, true}, 1);
    const auto moving = engine.updateVelocities(1.0 / 60, true, CursorPoint{0.2, 0.1, true}, 1);
    EXPECT_GT(moving.camera.dx, 0);
    const auto scrub = engine.updateVelocities(2.0 / 60, false, CursorPoint{0.3, 0.1, true}, 1);
    EXPECT_EQ(scrub, PlaybackMotionEngine::FrameMotion{});
    EXPECT_EQ(engine.frameMotion, scrub);
}

} // namespace
} // namespace orvelle
