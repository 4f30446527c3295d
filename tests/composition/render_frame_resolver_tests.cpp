#include "composition/render_frame_resolver.h"
#include "support/temporary_directory.h"
#include "support/timeline_builders.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <thread>

namespace orvelle {
namespace {

using testing::clip;
using testing::zoomClip;

// Ten seconds: the pointer rests left of centre, sweeps to the right between 4 and 5 s and
// rests there; clicks at 2 and 6 s.
CursorRecording sweepingPointer() {
    CursorRecording recording;
    for (int i = 0; i <= 600; ++i) {
        const double t = i / 60.0;
        const double x = t < 4 ? 0.3 : (t < 5 ? 0.3 + 0.5 * (t - 4) : 0.8);
        recording.samples.push_back({t, x, 0.6, true});
    }
    recording.clicks = {{6.0, 0}, {2.0, 0}};
    return recording;
}

RenderFrameSource source(const CursorRecording& recording) {
    RenderFrameSource source;
    source.project.timeline.sourceDuration = SourceTime(10);
    source.project.timeline.clips = {clip(0, 10)};
    source.project.background.paddingAmount = 0;
    source.cursorRecording = recording;
    source.sourceNaturalSize = {1920, 1080};
    source.stageSize = {1280, 720};
    return source;
}

TEST(RenderFrameResolverTest, FollowsThePointerIntoTheZoomAndOut) {
    auto input = source(sweepingPointer());
    input.project.animation.zoomClips = {zoomClip(3, 8, 2)};
    RenderFrameResolver resolver(input);
    std::vector<FrameComposition> frames;
    for (int i = 0; i < 300; ++i) {
        frames.push_back(resolver.resolve(i / 30.0));
    }
    const auto& wide = frames[30]; // 1 s
    EXPECT_EQ(wide.preview.screen.zoomScale, 1);
    EXPECT_EQ(wide.preview.screen.offset, Size{});
    EXPECT_EQ(wide.embeddedVideoSize, (Size{1280, 720}));
    EXPECT_EQ(wide.movieRect, (Rect{0, 0, 1280, 720}));
    ASSERT_TRUE(wide.preview.cursor);

    const auto& before = frames[105]; // 3.5 s: zoomed, pointer still on the left
    EXPECT_EQ(before.preview.screen.zoomScale, 2);
    EXPECT_GT(before.preview.screen.offset.width, 0); // the card moves right to show the left

    const auto& after = frames[200]; // 6.67 s: the pointer rests on the right
    EXPECT_EQ(after.preview.screen.zoomScale, 2);
    EXPECT_LT(after.preview.screen.offset.width, 0);

    const auto& out = frames[270]; // 9 s: zoomed out again
    EXPECT_EQ(out.preview.screen.zoomScale, 1);
    EXPECT_EQ(out.preview.screen.offset, Size{});

    // While the camera pans after the pointer there is motion, and blur follows it.
    double largestPan = 0;
    for (size_t i = 120; i < 180; ++i) {
        largestPan = std::max(largestPan, frames[i].cameraFrameMotion.length());
    }
    EXPECT_GT(largestPan, 0.001);
    // The zoom's own motion shows while it ramps in.
    EXPECT_GT(frames[92].zoomFrameMotion, 0);
    EXPECT_EQ(frames[30].zoomFrameMotion, 0);
}

TEST(RenderFrameResolverTest, CutsHiddenClipsAndClicks) {
    auto input = source(sweepingPointer());
    auto hidden = clip(6, 10);
    hidden.hidesCursor = true;
    input.project.timeline.clips = {clip(0, 3), hidden};
    DeletedTimelineGap gap{
        .id = Uuid::random(), .sourceStart = SourceTime(3), .sourceEnd = SourceTime(6)};
    input.project.timeline.deletedGaps = {gap};
    RenderFrameResolver resolver(input);
    EXPECT_NEAR(resolver.timelineDuration(), 7, 1e-12);

    const auto pressed = resolver.resolve(2.07);
    EXPECT_NEAR(pressed.cursorClickPressScale, 0.84, 1e-9);
    EXPECT_FALSE(pressed.cursorIsHidden);
    const auto cut = resolver.resolve(3.5);
    EXPECT_NEAR(cut.sourceTime.seconds, 6.5, 1e-12);
    EXPECT_TRUE(cut.cursorIsHidden);
    EXPECT_FALSE(cut.preview.cursor);
    // A glide across the cut was found beforehand.
    ASSERT_EQ(resolver.transitions().transitions().size(), 1u);
    EXPECT_EQ(resolver.transitions().transitions()[0].startEditTime, 3);
    // Negative times are the start.
    EXPECT_EQ(resolver.resolve(-1).editTime, EditTime(0));
}

TEST(RenderFrameResolverTest, PointerMotionTiltAndClicksAreReadAtTheSourceTime) {
    // The edit starts at source 4.5 s, where the pointer sweeps right; at edit 0.25 s it is
    // moving although at source 0.25 s it rests. The click at source 6 s presses at edit
    // 1.5 s, long after the one at source 2 s.
    auto input = source(sweepingPointer());
    input.project.timeline.clips = {clip(4.5, 10)};
    RenderFrameResolver resolver(input);
    const auto moving = resolver.resolve(0.25);
    ASSERT_EQ(moving.sourceTime, SourceTime(4.75));
    EXPECT_GT(moving.cursorFrameMotion.dx, 0.001);
    ASSERT_TRUE(moving.preview.cursor);
    EXPECT_GT(moving.preview.cursor->tiltAngle, 0.1);
    EXPECT_NEAR(resolver.resolve(1.57).cursorClickPressScale, 0.84, 1e-9);
}

TEST(RenderFrameResolverTest, WithoutPointerDataTheCameraStaysCentred) {
    auto input = source({});
    input.project.animation.zoomClips = {zoomClip(0, 10, 2)};
    input.cameraNaturalSize = Size{1280, 720};
    input.project.text.clips = {TextClip{}};
    RenderFrameResolver resolver(input);
    const auto frame = resolver.resolve(5);
    EXPECT_FALSE(frame.preview.cursor);
    EXPECT_EQ(frame.preview.screen.zoomScale, 2);
    EXPECT_EQ(frame.preview.screen.offset, Size{});
    EXPECT_TRUE(frame.hasCameraOverlay);
    EXPECT_TRUE(frame.preview.camera);
    EXPECT_EQ(frame.cameraNaturalSize, (Size{1280, 720}));
    EXPECT_EQ(frame.textClips.size(), 1u);
    // A timeline with no clips still answers, at source time 0.
    auto empty = source({});
    empty.project.timeline.clips.clear();
    RenderFrameResolver emptyResolver(empty);
    EXPECT_EQ(emptyResolver.resolve(3).sourceTime, SourceTime(0));
}

TEST(RenderFrameResolverTest, AFrameOutOfOrderResetsTheMotion) {
    auto input = source(sweepingPointer());
    input.project.animation.zoomClips = {zoomClip(3, 8, 2)};
    RenderFrameResolver resolver(input);
    for (int i = 0; i <= 140; ++i) {
        resolver.resolve(i / 30.0);
    }
    EXPECT_GT(resolver.resolve(141 / 30.0).cameraFrameMotion.length(), 0);
    EXPECT_EQ(resolver.resolve(1).cameraFrameMotion, MotionBlurVector{});
}

TEST(RenderFrameResolverTest, FramesFromTwoThreadsAtOnce) {
    auto input = source(sweepingPointer());
    input.project.animation.zoomClips = {zoomClip(3, 8, 2)};
    RenderFrameResolver resolver(input);
    const auto reference = RenderFrameResolver(input).resolve(6);
    const auto work = [&](int offset) {
        for (int i = offset; i < 300; i += 2) {
            const auto frame = resolver.resolve(i / 30.0);
            EXPECT_EQ(frame.editTime, EditTime(i / 30.0));
        }
    };
    std::thread first(work, 0);
    std::thread second(work, 1);
    first.join();
    second.join();
    // Geometry other than motion does not depend on what came before.
    const auto again = resolver.resolve(6);
    EXPECT_EQ(again.preview.screen.zoomScale, reference.preview.screen.zoomScale);
    EXPECT_EQ(again.preview.cursor, reference.preview.cursor);
}

TEST(RenderPreparedSamples, NormalisedClipsAndPointerFilesThatDoNotRead) {
    auto late = clip(8, 14);
    late.speed = 100;
    auto early = clip(-2, 3);
    const auto clips =
        RenderComposition::normalizedTimelineClips(std::vector{late, early}, SourceTime(10));
    ASSERT_EQ(clips.size(), 2u);
    EXPECT_EQ(clips[0].start, SourceTime(0));
    EXPECT_EQ(clips[1].end, SourceTime(10));
    EXPECT_EQ(clips[1].speed, 24);

    testing::TemporaryDirectory folder;
    const auto movie = folder / "take.mov";
    EXPECT_TRUE(RenderComposition::cursorRecording(std::nullopt, movie).samples.empty());
    std::ofstream(folder / "take.cursor.json") << "{ not json";
    EXPECT_TRUE(RenderComposition::cursorRecording(std::nullopt, movie).samples.empty());
    sweepingPointer().save(folder / "take.cursor.json");
    EXPECT_EQ(RenderComposition::cursorRecording(folder / "missing.json", movie).samples.size(),
              601u);
    const auto clicks = RenderComposition::preparedClicks(sweepingPointer());
    EXPECT_EQ(clicks.front().time, 2);
}

TEST(RenderPreparedSamples, PlanningScaleComesFromTheEditTimeOfEachSample) {
    EditorProjectState project;
    project.background.paddingAmount = 0.5;
    project.animation.zoomClips = {zoomClip(0, 4, 3)};
    const std::vector clips{clip(5, 10)};
    const auto timeline = RenderComposition::renderEditTimeline(clips, {}, SourceTime(10));
    // Source 7 is edit 2: fully zoomed, times the padding scale.
    EXPECT_NEAR(RenderComposition::cameraPlanningZoomScale(7, project, timeline), 1.5, 1e-12);
    // Nothing maps to before the first clip's edit time 0; a scale below 1 is raised to 1.
    EXPECT_EQ(RenderComposition::cameraPlanningZoomScale(2, project, timeline), 1);
    EXPECT_EQ(RenderComposition::cameraPlanningZoomScale(9.5, project, timeline), 1);
}

} // namespace
} // namespace orvelle
