#include "sample_take/sample_script.h"

#include <gtest/gtest.h>

#include <cmath>

namespace orvelle::SampleTake {
namespace {

double distance(Point a, Point b) {
    return std::hypot(a.x - b.x, a.y - b.y);
}

// The story holds for every seed: the seed only varies the human timing.
class SampleScriptStory : public ::testing::TestWithParam<std::uint32_t> {
protected:
    SampleScript script_ = makeSampleScript(GetParam());
};

TEST_P(SampleScriptStory, EachClickLandsOnTheWindowItBringsForward) {
    ASSERT_EQ(script_.clicks.size(), 3u);
    for (const auto& click : script_.clicks) {
        const WindowLayout* under = script_.windowAt(click.at, click.time - 0.001);
        ASSERT_NE(under, nullptr) << click.time;
        EXPECT_EQ(under->id, click.window)
            << "the click at " << click.time << " hits another window";
        // The hand is there: within its tremor of the place it clicks.
        EXPECT_LT(distance(pointerPosition(script_, click.time), click.at), 3.0) << click.time;
        EXPECT_EQ(script_.stackingOrder(click.time).back(), click.window);
    }
    EXPECT_EQ(script_.clicks[0].window, WindowID::editor);
    EXPECT_EQ(script_.clicks[1].window, WindowID::browser);
    EXPECT_EQ(script_.clicks[2].window, WindowID::terminal);
}

TEST_P(SampleScriptStory, TheEditorClickIsOnTheLineThatIsTyped) {
    const auto& editor = script_.window(WindowID::editor);
    const double top = editorLineTop(editor, script_.editorCaretLine);
    const Point at = script_.clicks[0].at;
    EXPECT_GE(at.y, top);
    EXPECT_LT(at.y, top + Layout::kCodeLineHeight);
    EXPECT_TRUE(script_.editorLines[static_cast<size_t>(script_.editorCaretLine)].empty());
}

TEST_P(SampleScriptStory, KeysGoToTheWindowThatHasTheFocus) {
    ASSERT_FALSE(script_.keys.empty());
    for (const auto& key : script_.keys) {
        const Click* focus = nullptr;
        for (const auto& click : script_.clicks) {
            if (click.time < key.time) {
                focus = &click;
            }
        }
        ASSERT_NE(focus, nullptr) << "a key before any click, at " << key.time;
        EXPECT_EQ(focus->window, key.window) << key.time;
    }
    // Scrolling happens over the browser, once it is in front.
    for (const auto& notch : script_.notches) {
        EXPECT_EQ(script_.stackingOrder(notch.time).back(), WindowID::browser);
        EXPECT_TRUE(
            script_.window(WindowID::browser).frame.contains(pointerPosition(script_, notch.time)));
    }
}

TEST_P(SampleScriptStory, TheStoryFitsItsDuration) {
    const double end = script_.duration;
    EXPECT_LT(script_.chimeTime, end - 1.5);
    EXPECT_LT(script_.keys.back().time, end - 2);
    EXPECT_LT(script_.terminalOutput.back().time, end - 1.5);
    EXPECT_LT(script_.narration.back().earliest, end - 1.5);
    double previousEnd = 0;
    for (const auto& move : script_.moves) {
        EXPECT_GE(move.start, previousEnd) << "moves overlap at " << move.start;
        EXPECT_GT(move.end, move.start);
        EXPECT_LT(move.end, end);
        previousEnd = move.end;
    }
    for (size_t i = 1; i < script_.narration.size(); ++i) {
        EXPECT_GT(script_.narration[i].earliest, script_.narration[i - 1].earliest);
    }
}

TEST_P(SampleScriptStory, ThePointerMovesLikeAHand) {
    Point previous = pointerPosition(script_, 0);
    for (int i = 1; i <= static_cast<int>(script_.duration * 60); ++i) {
        const double time = i / 60.0;
        const Point point = pointerPosition(script_, time);
        EXPECT_GE(point.x, 0);
        EXPECT_LT(point.x, kDesignWidth);
        EXPECT_GE(point.y, 0);
        EXPECT_LT(point.y, kDesignHeight);
        EXPECT_LT(distance(point, previous), 110) << "a jump at " << time;
        previous = point;
    }
    Point from = script_.pointerStart;
    for (const auto& move : script_.moves) {
        const double length = distance(from, move.to);
        // Speed is a bell: slow at both ends, fastest in the middle.
        const double dt = 1.0 / 120;
        const auto speed = [&](double t) {
            return distance(pointerPosition(script_, t + dt), pointerPosition(script_, t)) / dt;
        };
        const double span = move.end - move.start;
        EXPECT_GT(speed(move.start + 0.4 * span), 3 * speed(move.start + 0.02 * span));
        EXPECT_LT(speed(move.start + 0.4 * span), 6000);
        // The path bows to one side instead of running straight.
        const Point middle = pointerPosition(script_, move.start + 0.5 * span);
        const double dx = move.to.x - from.x;
        const double dy = move.to.y - from.y;
        const double offLine =
            std::fabs(dy * (middle.x - from.x) - dx * (middle.y - from.y)) / length;
        EXPECT_GT(offLine, 0.01 * length);
        // At rest after the move.
        EXPECT_LT(distance(pointerPosition(script_, move.end + 0.05), move.to), 2.5);
        from = move.to;
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, SampleScriptStory, ::testing::Values(7u, 1u, 2024u));

TEST(SampleScript, TheSameSeedTellsTheSameStory) {
    const auto a = makeSampleScript(11);
    const auto b = makeSampleScript(11);
    ASSERT_EQ(a.keys.size(), b.keys.size());
    for (size_t i = 0; i < a.keys.size(); ++i) {
        EXPECT_EQ(a.keys[i].time, b.keys[i].time);
    }
    EXPECT_EQ(pointerPosition(a, 7.3), pointerPosition(b, 7.3));
    const auto other = makeSampleScript(12);
    EXPECT_NE(other.keys.back().time, a.keys.back().time);
}

} // namespace
} // namespace orvelle::SampleTake
