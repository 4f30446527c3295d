#include "project/mask_settings.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace orvelle {
namespace {

constexpr double kTolerance = 1e-9;

void expectRect(const MaskRect& actual, const MaskRect& expected) {
    EXPECT_NEAR(actual.x, expected.x, kTolerance);
    EXPECT_NEAR(actual.y, expected.y, kTolerance);
    EXPECT_NEAR(actual.width, expected.width, kTolerance);
    EXPECT_NEAR(actual.height, expected.height, kTolerance);
}

MaskClip maskClip(double start, double end) {
    MaskClip clip{.id = Uuid::random(), .start = EditTime(start), .end = EditTime(end)};
    return clip;
}

const double kNaN = std::numeric_limits<double>::quiet_NaN();

// Every way of making a rectangle keeps it on the stage, at least 0.01 on a side.
TEST(MaskRect, EveryEditKeepsTheRectangleOnTheStage) {
    for (const auto& [input, expected] : std::vector<std::pair<MaskRect, MaskRect>>{
             {{0.5, 0, 2, 0.5}, {0, 0, 1, 0.5}},
             {{0.9, -0.1, 0.3, 0.005}, {0.7, 0, 0.3, 0.01}},
             {{kNaN, 0.2, kNaN, 0.3}, {0, 0.2, 0.01, 0.3}},
             {{0.1, 0.2, 0.3, 0.4}, {0.1, 0.2, 0.3, 0.4}},
             {{0.995, 0.999, -1, -1}, {0.99, 0.99, 0.01, 0.01}}}) {
        expectRect(input.normalized(), expected);
    }
    // An offset slides along an edge keeping the size.
    const MaskRect rect{0.6, 0.2, 0.3, 0.3};
    expectRect(rect.offsetBy(0.05, 0.1), {0.65, 0.3, 0.3, 0.3});
    expectRect(rect.offsetBy(0.3, -0.5), {0.7, 0, 0.3, 0.3});
    expectRect(rect.offsetBy(-1, 2), {0, 0.7, 0.3, 0.3});
    expectRect(MaskRect::fromCorners({0.7, 0.2}, {0.3, 0.6}), {0.3, 0.2, 0.4, 0.4});
    expectRect(MaskRect::fromCorners({0.5, 0.5}, {0.5, 0.5}), {0.5, 0.5, 0.01, 0.01});
    expectRect(MaskRect::fromCorners({0.995, 0.2}, {0.999, 0.3}), {0.99, 0.2, 0.01, 0.1});
    const MaskRect a{0, 0, 0.2, 0.2};
    const MaskRect b{0.6, 0.4, 0.4, 0.6};
    expectRect(MaskRect::lerp(a, b, 0.5), {0.3, 0.2, 0.3, 0.4});
    expectRect(MaskRect::lerp(a, b, 2), {0.4, 0, 0.6, 1.0}); // past b, normalised
}

// A handle moves its edges of a rectangle with edges at 0.2 and 0.6 on both axes (centre
// 0.4); from the centre, the opposite edges move too.
TEST(MaskRect, ResizingMovesTheHandlesEdges) {
    using H = MaskResizeHandle;
    const std::vector<std::tuple<H, MaskPoint, bool, MaskRect>> table{
        {H::bottomRight, {0.8, 0.9}, false, {0.2, 0.2, 0.6, 0.7}},
        {H::topLeft, {0.7, 0.1}, false, {0.59, 0.1, 0.01, 0.5}},
        {H::left, {-0.5, 0.9}, false, {0, 0.2, 0.6, 0.4}},
        {H::top, {0.9, 0.05}, false, {0.2, 0.05, 0.4, 0.55}},
        {H::bottom, {0.0, 0.1}, false, {0.2, 0.2, 0.4, 0.01}},
        {H::right, {1.4, 0.5}, false, {0.2, 0.2, 0.8, 0.4}},
        {H::right, {0.5, 0.9}, true, {0.3, 0.2, 0.2, 0.4}},
        {H::right, {0.95, 0.9}, true, {0, 0.2, 0.8, 0.4}},
        {H::left, {0.4, 0.9}, true, {0.395, 0.2, 0.01, 0.4}},
        {H::bottomRight, {0.5, 0.7}, true, {0.3, 0.1, 0.2, 0.6}},
        {H::top, {0.0, 0.3}, true, {0.2, 0.3, 0.4, 0.2}}};
    for (const auto& [handle, to, fromCenter, expected] : table) {
        SCOPED_TRACE(static_cast<int>(handle));
        expectRect(MaskRect{0.2, 0.2, 0.4, 0.4}.resized(handle, to, fromCenter), expected);
    }
}

TEST(MaskEffectiveOpacity, FadesAtBothEndsUnlessANeighbourContinues) {
    struct Case {
        double start, end;
        bool fadesIn, fadesOut;
        double time;
        bool suppressIn, suppressOut;
        double expected;
    };
    const std::vector<Case> table{// A 0.4 s clip fades over 0.2 s, a long one over 0.35 s.
                                  {0, 0.4, true, true, 0.1, false, false, 0.36},
                                  {0, 0.4, true, true, 0.2, false, false, 0.72},
                                  {0, 0.4, true, true, 0.3, false, false, 0.36},
                                  {1, 5, true, true, 1.175, false, false, 0.36},
                                  // One flag set: the clip still fades at both ends.
                                  {0, 2, true, false, 1.93, false, false, 0.72 * 0.2},
                                  {0, 2, false, true, 0.07, false, false, 0.72 * 0.2},
                                  {0, 2, false, false, 0.0, false, false, 0.72},
                                  // A neighbour continuing the mask holds that side steady.
                                  {0, 2, true, true, 0.0, true, false, 0.72},
                                  {0, 2, true, true, 2.0, false, true, 0.72},
                                  {0, 2, true, true, -1, false, false, 0.0},
                                  {3, 3, true, true, 3, false, false, 0.0},
                                  {3, 2, false, false, 2.5, false, false, 0.0}};
    for (const Case& c : table) {
        MaskClip clip = maskClip(c.start, c.end);
        clip.fadesIn = c.fadesIn;
        clip.fadesOut = c.fadesOut;
        EXPECT_NEAR(clip.effectiveOpacity(EditTime(c.time), c.suppressIn, c.suppressOut),
                    c.expected, 1e-9)
            << c.start << "-" << c.end << " at " << c.time;
    }
    // The base opacity is held to 0...1, a non-finite one is the default.
    MaskClip clip = maskClip(0, 10);
    for (const auto& [opacity, expected] :
         std::vector<std::pair<double, double>>{{1.5, 1.0}, {kNaN, 0.72}, {0, 0}, {-0.2, 0}}) {
        clip.opacity = opacity;
        EXPECT_DOUBLE_EQ(clip.effectiveOpacity(EditTime(5), false, false), expected) << opacity;
    }
}

using Style = MaskBorder::Style;

TEST(MaskBorder, BrightnessAroundTheLoop) {
    const double behindHead = (8.0 / 9.0) * (8.0 / 9.0) * (3 - 16.0 / 9.0);
    const std::vector<std::tuple<Style, double, double, double>> table{
        {Style::none, 0.3, 0.1, 1},
        {Style::pulse, 0.9, 0.4, 1},
        {Style::comet, 0.3, 0.25, 0.5},
        {Style::comet, 0.2, 0.25, behindHead}, // wraps to 0.95
        {Style::comet, 0.5, 0.0, 0.0},
        {Style::twinComet, 0.275, 0.25, 0.5},
        {Style::twinComet, 0.775, 0.25, 0.5},
        {Style::trace, 0.47, 0.25, 0.5},
        {Style::trace, 0.2, 0.25, 1},
        {Style::trace, 0.6, 0.25, 0},
        {Style::trace, 0.9, 0.7, 1}};
    for (const auto& [style, bearing, phase, expected] : table) {
        EXPECT_NEAR(MaskBorder::angularBrightness(bearing, phase, style), expected, 1e-9)
            << static_cast<int>(style) << " at " << bearing;
    }
    for (const auto& [cycle, expected] : std::vector<std::pair<double, double>>{
             {0, 1}, {0.05, 0.5}, {0.3, 0}, {0.775, 0.5}, {1, 1}, {7, 1}}) {
        EXPECT_DOUBLE_EQ(MaskBorder::energyBrightness(cycle), expected) << cycle;
    }
}

// A repeating border never fades; one that does not fades a quarter cycle after its runs.
TEST(MaskBorder, ABorderThatDoesNotRepeatFadesAfterItsRuns) {
    MaskClip clip = maskClip(0, 10);
    clip.borderStyle = Style::comet;
    EXPECT_EQ(MaskBorder::repeatEnvelope(100, clip), 1);
    clip.borderRepeats = false;
    const std::vector<std::tuple<Style, double, double, double>> table{
        {Style::comet, 2, 2, 1},     {Style::comet, 2, 2.125, 0.5},
        {Style::comet, 2, 2.25, 0},  {Style::twinComet, 0.25, 1.125, 0.5},
        {Style::pulse, 5, 3.5, 0.5}, {Style::pulse, 5, 4, 0},
        {Style::trace, 1, 0.5, 1},   {Style::trace, 1, 1, 0}};
    for (const auto& [style, speed, cycles, expected] : table) {
        clip.borderStyle = style;
        clip.borderSpeed = speed;
        EXPECT_NEAR(MaskBorder::repeatEnvelope(cycles, clip), expected, 1e-9)
            << static_cast<int>(style) << " after " << cycles;
    }
}

TEST(MaskBorderOpacity, FollowsStyleFadeAndPhase) {
    MaskClip clip = maskClip(2, 10);
    clip.borderStyle = Style::none;
    EXPECT_EQ(MaskBorder::opacity(clip, 1, EditTime(3)), 0);
    clip.borderStyle = Style::comet;
    EXPECT_DOUBLE_EQ(MaskBorder::opacity(clip, 0.8, EditTime(3)), 0.8);
    EXPECT_DOUBLE_EQ(MaskBorder::opacity(clip, 1.5, EditTime(3)), 1.0);
    clip.isDisabled = true;
    EXPECT_EQ(MaskBorder::opacity(clip, 1, EditTime(3)), 0);
    clip.isDisabled = false;

    clip.borderStyle = Style::pulse;
    EXPECT_NEAR(MaskBorder::opacity(clip, 1, EditTime(3)), 1.0, 1e-12);  // phase 1
    EXPECT_NEAR(MaskBorder::opacity(clip, 1, EditTime(2)), 0.45, 1e-12); // phase 0
    EXPECT_NEAR(MaskBorder::opacity(clip, 1, EditTime(0)), 0.45, 1e-12); // before the start

    clip.borderStyle = Style::trace;
    EXPECT_NEAR(MaskBorder::opacity(clip, 1, EditTime(3.5)), 1.0, 1e-12); // f = 0.5
    EXPECT_NEAR(MaskBorder::opacity(clip, 1, EditTime(4.4)), 1 - MaskBorder::smoothStep(0.2),
                1e-12);

    clip.borderStyle = Style::comet;
    clip.borderRepeats = false;
    clip.borderSpeed = 1; // one run of three seconds, then a quarter cycle to fade
    EXPECT_NEAR(MaskBorder::opacity(clip, 1, EditTime(2 + 3 * 1.125)), 0.5, 1e-9);
    EXPECT_EQ(MaskBorder::opacity(clip, 1, EditTime(2 + 3 * 1.5)), 0);
}

TEST(MaskSettings, ActiveClipIsTheFirstEnabledOneCoveringTheTime) {
    MaskSettings settings;
    auto disabled = maskClip(0, 10);
    disabled.isDisabled = true;
    const auto first = maskClip(2, 6);
    const auto second = maskClip(4, 8);
    settings.clips = {disabled, first, second};
    EXPECT_FALSE(settings.activeClip(EditTime(1)).has_value());
    EXPECT_EQ(settings.activeClip(EditTime(2))->id, first.id);
    EXPECT_EQ(settings.activeClip(EditTime(5))->id, first.id);
    EXPECT_EQ(settings.activeClip(EditTime(6))->id, second.id); // end is exclusive
    EXPECT_FALSE(settings.activeClip(EditTime(8)).has_value());
}

TEST(MaskResolvedState, LoneClipFadesAtBothEnds) {
    MaskSettings settings;
    settings.clips = {maskClip(1, 3)};
    EXPECT_FALSE(settings.resolvedState(EditTime(0.5)));
    EXPECT_FALSE(settings.resolvedState(EditTime(3))); // the end is outside
    const auto start = settings.resolvedState(EditTime(1));
    ASSERT_TRUE(start);
    EXPECT_EQ(start->opacity, 0);
    EXPECT_NEAR(settings.resolvedState(EditTime(2))->opacity, 0.72, kTolerance);
    EXPECT_NEAR(settings.resolvedState(EditTime(2.825))->opacity, 0.72 * 0.5, kTolerance);
}

TEST(MaskResolvedState, TouchingClipsGlideInsteadOfFading) {
    MaskClip first = maskClip(0, 2);
    MaskClip second = maskClip(2, 4);
    first.rect = {0.1, 0.1, 0.2, 0.2};
    second.rect = {0.5, 0.5, 0.4, 0.4};
    second.opacity = 0.4;
    second.featherAmount = 1;
    MaskSettings settings;
    settings.clips = {second, first}; // list order does not matter, start order does
    // Before the window the first clip is itself, at full opacity up to its end.
    const auto before = settings.resolvedState(EditTime(1.6));
    expectRect(before->rect, first.rect);
    EXPECT_NEAR(before->opacity, 0.72, kTolerance);
    // The seam's window is 0.35 s either side; in the middle everything is half way.
    const auto seam = settings.resolvedState(EditTime(2));
    EXPECT_EQ(seam->clip.id, second.id);
    expectRect(seam->rect, {0.3, 0.3, 0.3, 0.3});
    EXPECT_NEAR(seam->opacity, 0.56, kTolerance);
    EXPECT_NEAR(seam->featherAmount, 0.5, kTolerance);
    // The earlier clip, still the active one, glides on its side of the seam too.
    const auto earlierSide = settings.resolvedState(EditTime(1.9));
    EXPECT_EQ(earlierSide->clip.id, first.id);
    expectRect(earlierSide->rect,
               MaskRect::lerp(first.rect, second.rect, MaskBorder::smoothStep(0.25 / 0.7)));
    const auto after = settings.resolvedState(EditTime(2.36));
    expectRect(after->rect, second.rect);
    EXPECT_NEAR(after->opacity, 0.4, kTolerance);
    // The opacity never dips across the seam.
    for (double t = 1.5; t < 2.5; t += 0.01) {
        EXPECT_GE(settings.resolvedState(EditTime(t))->opacity, 0.4 - kTolerance) << t;
    }
}

TEST(MaskResolvedState, InvertedDisabledAndDistantNeighboursDoNotGlide) {
    MaskClip first = maskClip(0, 2);
    MaskClip inverted = maskClip(2, 4);
    inverted.isInverted = true;
    MaskSettings settings;
    settings.clips = {first, inverted};
    EXPECT_NEAR(settings.resolvedState(EditTime(1.99))->opacity, 0.72 * 0.01 / 0.35, 1e-6);
    EXPECT_NEAR(settings.resolvedState(EditTime(2.01))->opacity, 0.72 * 0.01 / 0.35, 1e-6);
    MaskClip disabled = maskClip(2, 4);
    disabled.isDisabled = true;
    settings.clips = {first, disabled};
    EXPECT_NEAR(settings.resolvedState(EditTime(1.99))->opacity, 0.72 * 0.01 / 0.35, 1e-6);
    settings.clips = {first, maskClip(2.0011, 4)};
    EXPECT_NEAR(settings.resolvedState(EditTime(1.99))->opacity, 0.72 * 0.01 / 0.35, 1e-6);
    settings.clips = {first, maskClip(2.0009, 4)};
    EXPECT_NEAR(settings.resolvedState(EditTime(1.99))->opacity, 0.72, 1e-6);
}

TEST(MaskResolvedState, ShortClipsNarrowTheirSideOfTheSeam) {
    MaskClip first = maskClip(0, 2);
    MaskClip shortClip = maskClip(2, 2.2);
    shortClip.rect = {0.6, 0.6, 0.2, 0.2};
    MaskSettings settings;
    settings.clips = {first, shortClip};
    // The window is [1.65, 2.1]: 0.35 on the long side, half of 0.2 on the short one.
    const auto end = settings.resolvedState(EditTime(2.1));
    expectRect(end->rect, shortClip.rect);
    const double s = MaskBorder::smoothStep((2.0 - 1.65) / 0.45);
    expectRect(settings.resolvedState(EditTime(2.0))->rect,
               MaskRect::lerp(first.rect, shortClip.rect, s));
}

} // namespace
} // namespace orvelle
