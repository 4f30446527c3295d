#include "motion/visual_transition.h"
#include "support/timeline_builders.h"

#include <gtest/gtest.h>

namespace orvelle {
namespace {

using testing::clip;

using VisualTransitionBlending::blendCursorPoint;
using VisualTransitionBlending::blendManualZoomOffset;

TEST(VisualTransitionTiming, DurationAndJumpDetection) {
    EXPECT_NEAR(visualTransitionDuration(2), 0.16, 1e-12);
    EXPECT_EQ(visualTransitionDuration(10), 0.35);
    EXPECT_EQ(visualTransitionDuration(0.1), 0.14);
    EXPECT_NEAR(visualTransitionDuration(-3), 0.24, 1e-12);

    EXPECT_TRUE(isVisualJump(-0.06, 1.0 / 60, 1));
    EXPECT_FALSE(isVisualJump(-0.04, 1.0 / 60, 1));
    EXPECT_FALSE(isVisualJump(1.0 / 60 + 0.079, 1.0 / 60, 1));
    EXPECT_TRUE(isVisualJump(1.0 / 60 + 0.081, 1.0 / 60, 1));
    EXPECT_FALSE(isVisualJump(2.0 / 60 + 0.07, 1.0 / 60, 2)); // fast playback is no jump
    EXPECT_FALSE(isVisualJump(5, 0, 1)); // the edit clock stood still: a seek, no glide
}

TEST(Blending, PointsAppearAndDisappearHalfWay) {
    const CursorPoint from{0.2, 0.2, true};
    const CursorPoint to{0.6, 0.4, false};
    const auto quarter = blendCursorPoint(from, to, 0.25);
    EXPECT_NEAR(quarter->x, 0.3, 1e-12);
    EXPECT_TRUE(quarter->visible);
    EXPECT_FALSE(blendCursorPoint(from, to, 0.5)->visible);
    EXPECT_EQ(blendCursorPoint(std::nullopt, to, 0), std::nullopt);
    EXPECT_EQ(blendCursorPoint(std::nullopt, to, 0.01), to);
    EXPECT_EQ(blendCursorPoint(from, std::nullopt, 0.99), from);
    EXPECT_EQ(blendCursorPoint(from, std::nullopt, 1), std::nullopt);
}

TEST(Blending, ManualOffsetsLinearOrHeld) {
    const auto middle = blendManualZoomOffset(ZoomManualOffset(-2, 0), ZoomManualOffset(2, 3), 0.5);
    EXPECT_EQ(middle, ZoomManualOffset(0, 1.5));
    EXPECT_EQ(blendManualZoomOffset(ZoomManualOffset(1, 1), std::nullopt, 0.9),
              ZoomManualOffset(1, 1));
    EXPECT_EQ(blendManualZoomOffset(ZoomManualOffset(1, 1), std::nullopt, 1), std::nullopt);
    EXPECT_EQ(blendManualZoomOffset(std::nullopt, ZoomManualOffset(1, 1), 0),
              ZoomManualOffset(1, 1));
}

TEST(PlaybackVisualTransitionTest, GlidesFromTheStartStateAndEnds) {
    FrameVisualState current{CursorPoint{0.1, 0.1, true}, CursorPoint{0.3, 0.3, true}, 1, 2,
                             std::nullopt};
    EXPECT_FALSE(PlaybackVisualTransition::begin(2, INFINITY, current));
    const auto transition = PlaybackVisualTransition::begin(2, 10, current);
    ASSERT_TRUE(transition);
    EXPECT_NEAR(transition->duration, 0.16, 1e-12);
    FrameVisualState target{CursorPoint{0.9, 0.9, true}, CursorPoint{0.7, 0.7, true}, 0, 1,
                            std::nullopt};
    EXPECT_EQ(transition->apply(10, target), current);
    // The glide eases in and out: a quarter of the way in time is smoothstep(0.25) of it.
    EXPECT_NEAR(transition->apply(10.04, target)->cursorPoint->x, 0.1 + 0.8 * 0.15625, 1e-12);
    const auto middle = transition->apply(10.08, target);
    ASSERT_TRUE(middle);
    EXPECT_NEAR(middle->cursorPoint->x, 0.5, 1e-12);
    EXPECT_NEAR(middle->cameraAnimationAmount, 0.5, 1e-12);
    EXPECT_NEAR(middle->cameraZoomScale, 1.5, 1e-12);
    EXPECT_FALSE(transition->apply(10.16, target));
}

class RenderTransitions : public ::testing::Test {
protected:
    RenderTransitions() {
        for (int i = 0; i <= 600; ++i) {
            const double t = i / 60.0;
            cursor.push_back({t, t / 10, 0.5, true});
            camera.push_back({t, 0.5, t / 10, true});
        }
    }

    RenderVisualTransitionStore store(const std::vector<TimelineClip>& clips) {
        project.timeline.sourceDuration = SourceTime(10);
        project.timeline.clips = clips;
        const ResolvedEditTimeline timeline(clips, {}, SourceTime(10));
        return RenderVisualTransitionStore(project, cursor, camera, timeline);
    }

    EditorProjectState project;
    std::vector<CursorSample> cursor;
    std::vector<CursorSample> camera;
};

TEST_F(RenderTransitions, OnlyJumpsOutsideTheToleranceGlide) {
    EXPECT_TRUE(store({clip(0, 10)}).transitions().empty());
    EXPECT_TRUE(store({clip(0, 4), clip(4, 10)}).transitions().empty());
    EXPECT_TRUE(store({clip(0, 4), clip(4.08, 10)}).transitions().empty());
    EXPECT_EQ(store({clip(0, 4), clip(4.081, 10)}).transitions().size(), 1u);
    EXPECT_TRUE(store({clip(0, 4), clip(3.95, 10)}).transitions().empty());
    // Clips are laid out in source order whatever their order in the list.
    const auto reordered = store({clip(6, 9), clip(0, 4)}).transitions();
    ASSERT_EQ(reordered.size(), 1u);
    EXPECT_EQ(reordered[0].startEditTime, 4);
}

TEST_F(RenderTransitions, GlideStartsFromTheStateJustBeforeTheCut) {
    const auto s = store({clip(0, 2), clip(6, 10)});
    ASSERT_EQ(s.transitions().size(), 1u);
    const auto& transition = s.transitions()[0];
    EXPECT_EQ(transition.startEditTime, 2);
    EXPECT_NEAR(transition.duration, 0.32, 1e-12);
    EXPECT_NEAR(transition.startState.cursorPoint->x, 0.2, 1e-9);
    EXPECT_NEAR(transition.startState.cameraPoint->y, 0.2, 1e-9);

    // Right at the cut the frame still shows where the pointer was; half way through it
    // is half way; after the glide it is where the source says.
    EXPECT_NEAR(s.resolve(2, 6).cursorPoint->x, 0.2, 1e-9);
    EXPECT_NEAR(s.resolve(2.16, 6.16).cursorPoint->x, 0.2 + (0.616 - 0.2) * 0.5, 1e-9);
    EXPECT_NEAR(s.resolve(2.32, 6.32).cursorPoint->x, 0.632, 1e-9);
    EXPECT_NEAR(s.resolve(1, 1).cursorPoint->x, 0.1, 1e-9);
}

TEST_F(RenderTransitions, ZoomComesFromTheEnvelopeAtTheEditTime) {
    AnimationClip zoom{
        .id = Uuid::random(), .start = EditTime(0), .end = EditTime(4), .zoomScale = 3};
    project.animation.zoomClips = {zoom};
    const auto s = store({clip(0, 10)});
    const auto state = s.resolve(2, 2);
    EXPECT_EQ(state.cameraAnimationAmount, 1);
    EXPECT_EQ(state.cameraZoomScale, 3);
    EXPECT_EQ(s.resolve(5, 5).cameraAnimationAmount, 0);
    EXPECT_EQ(s.resolve(5, 5).cameraZoomScale, project.screen.zoomScale);
}

} // namespace
} // namespace orvelle
