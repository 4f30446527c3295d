#include "recording/recorder_geometry.h"
#include "recording/recorder_source_selection.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace orvelle {
namespace {

namespace Geometry = WindowRecorderGeometry;
namespace Area = AreaSelectionGeometry;

// Two monitors side by side on a 3840 x 1200 screen; the right one is shorter.
ShareableContent twoDisplays() {
    ShareableContent content;
    content.screenHeight = 1200;
    content.displays = {{11, "Left", {0, 0, 1920, 1200}, 1},
                        {22, "Right", {1920, 0, 1920, 1080}, 1}};
    content.windows = {
        {101, "Editor", "Code", "", 400, {100, 100, 800, 600}},
        {102, "Orvelle", "Orvelle", "", 77, {2000, 50, 300, 200}},
        {103, "Recorder", "Orvelle", "OrvelleRecorderWindow", 77, {10, 10, 200, 100}},
        {104, "Orvelle", "Other", "", 900, {0, 0, 50, 50}}};
    return content;
}

TEST(EvenDimension, RoundsUpToAnEvenSizeOfAtLeastSixteen) {
    const struct {
        double value;
        int expected;
    } cases[] = {{15.2, 16},
                 {100.2, 102},
                 {101, 102},
                 {100, 100},
                 {16, 16},
                 {17, 18},
                 {0, 16},
                 {-5, 16},
                 {1919.01, 1920},
                 {std::nan(""), 16},
                 {std::numeric_limits<double>::infinity(), 16}};
    for (const auto& c : cases) {
        EXPECT_EQ(Geometry::evenDimension(c.value), c.expected) << c.value;
    }
}

TEST(DisplayLookup, FindsByIdThenExactFrameThenLargestOverlap) {
    ShareableContent content = twoDisplays();
    EXPECT_EQ(Geometry::display(content, 22)->name, "Right");
    EXPECT_FALSE(Geometry::display(content, 33));

    // An unknown id with the right display's frame (to under a point) finds it by frame.
    DisplaySelectionTarget byFrame{33, {1920.4, 0.2, 1919.6, 1080.3}, "", ""};
    EXPECT_EQ(Geometry::display(content, byFrame)->id, 22U);
    // A frame that matches none: the one it overlaps most.
    DisplaySelectionTarget byOverlap{33, {1000, 0, 1000, 900}, "", ""};
    EXPECT_EQ(Geometry::display(content, byOverlap)->id, 11U);

    // Two displays with the same frame (mirrored): the identifier decides.
    content.displays.push_back({44, "Mirror", {0, 0, 1920, 1200}, 1});
    DisplaySelectionTarget mirrored{44, {0, 0, 1920, 1200}, "", ""};
    EXPECT_EQ(Geometry::display(content, mirrored)->id, 44U);

    EXPECT_EQ(Geometry::display(std::nullopt, content, CaptureRect{3000, 500, 100, 100})->id, 22U);
    EXPECT_FALSE(Geometry::display(std::nullopt, content, CaptureRect{5000, 0, 10, 10}));
    EXPECT_FALSE(
        Geometry::display(std::optional<uint32_t>(99), content, CaptureRect{0, 0, 100, 100}));
    EXPECT_DOUBLE_EQ(Geometry::overlapArea({0, 0, 10, 10}, {5, 5, 10, 10}), 25);
    EXPECT_DOUBLE_EQ(Geometry::overlapArea({0, 0, 10, 10}, {20, 0, 10, 10}), 0);
}

TEST(DisplayLookup, TargetsAndTheFlipToBottomLeftCoordinates) {
    const ShareableContent content = twoDisplays();
    const auto targets = Geometry::displaySelectionTargets(content);
    ASSERT_EQ(targets.size(), 2U);
    EXPECT_EQ(targets[1].title, "Right");
    EXPECT_EQ(targets[1].subtitle, "1920 x 1080");
    // The right display's top edge is at the screen's top: in bottom-left terms its origin
    // is 120 points up, where the shorter display ends.
    EXPECT_EQ(Geometry::flipped({1920, 0, 1920, 1080}, content),
              (CaptureRect{1920, 120, 1920, 1080}));
    EXPECT_FALSE(Geometry::flipped({0, 0, 0, 10}, content));
    EXPECT_FALSE(Geometry::flipped({0, 0, 10, 10}, ShareableContent{}));
}

TEST(RecorderWindows, OnlyThisProgramsRecorderWindowAndTitledWindows) {
    EXPECT_EQ(Geometry::recorderWindowIDs(twoDisplays(), 77), (std::vector<uint32_t>{102, 103}));
    EXPECT_TRUE(Geometry::recorderWindowIDs(twoDisplays(), 12345).empty());
}

TEST(AreaClamp, StandardisesAndHoldsCornersInTheCanvas) {
    const Area::CanvasSize canvas{1000, 800};
    const struct {
        CaptureRect in;
        CaptureRect expected;
    } cases[] = {
        {{100, 100, 200, 150}, {100, 100, 200, 150}},
        {{300, 250, -200, -150}, {100, 100, 200, 150}}, // dragged backwards
        {{-50, -20, 200, 100}, {0, 0, 150, 80}},
        {{900, 700, 300, 300}, {900, 700, 100, 100}},
        {{1200, 100, 50, 50}, {1000, 100, 0, 50}}, // wholly outside: zero width at the edge
        {{100, -300, 50, 100}, {100, 0, 50, 0}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Area::clamped(c.in, canvas), c.expected)
            << c.in.x << "," << c.in.y << " " << c.in.width << "x" << c.in.height;
    }
}

TEST(AreaResize, MovesTheHandlesEdgesWithinMinimumAndCanvas) {
    const Area::CanvasSize canvas{1000, 800};
    const CaptureRect start{200, 200, 300, 200};
    using H = AreaResizeHandle;
    const struct {
        H handle;
        Area::Delta delta;
        CaptureRect expected;
    } cases[] = {
        {H::right, {50, 99}, {200, 200, 350, 200}}, // only x moves
        {H::bottom, {99, 40}, {200, 200, 300, 240}},
        {H::topLeft, {-20, -30}, {180, 170, 320, 230}},
        {H::bottomRight, {-1000, -1000}, {200, 200, 96, 72}}, // stops at the minimum
        {H::left, {1000, 0}, {404, 200, 96, 200}},            // does not cross the right edge
        {H::top, {0, 500}, {200, 328, 300, 72}},
        {H::topRight, {900, -900}, {200, 0, 800, 400}}, // stops at the canvas
        {H::bottomLeft, {-900, 900}, {0, 200, 500, 600}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Area::resized(start, c.handle, c.delta, canvas), c.expected)
            << static_cast<int>(c.handle);
    }
    // A canvas smaller than the minimum: the canvas wins.
    EXPECT_EQ(Area::resized({0, 0, 50, 40}, H::right, {-10, 0}, {60, 50}),
              (CaptureRect{0, 0, 60, 40}));
}

TEST(SourceSelection, DisplayWindowAndAreaSelectionsCarryTheirGeometry) {
    const ShareableContent content = twoDisplays();
    const auto display = displaySelection(content, 22);
    EXPECT_EQ(display.mode, RecorderCaptureMode::display);
    EXPECT_EQ(display.title, "Right");
    EXPECT_EQ(display.filter.style, CaptureContentFilter::Style::display);
    EXPECT_EQ(display.captureFrame, (CaptureRect{1920, 120, 1920, 1080}));

    const auto window = windowSelection(content, 101);
    EXPECT_EQ(window.title, "Editor");
    EXPECT_EQ(window.owningProcessID, 400);
    EXPECT_EQ(window.filter.windowID, 101U);
    EXPECT_EQ(window.captureFrame, (CaptureRect{100, 500, 800, 600}));

    // An area reaching past the right display's bottom is clamped to it; its source
    // rectangle is local to the display.
    const auto area = areaSelection(content, {2020, 1000, 301, 203});
    EXPECT_EQ(area.title, "Selected Area");
    EXPECT_EQ(area.display->id, 22U);
    EXPECT_EQ(area.sourceRect, (CaptureRect{100, 1000, 301, 80}));
    EXPECT_EQ(area.captureFrame, (CaptureRect{2020, 120, 301, 80}));

    CaptureWindow untitled{200, "", "", "", 0, {0, 0, 10, 10}};
    EXPECT_EQ(windowTitle(untitled), "Window");
    untitled.application = "Terminal";
    EXPECT_EQ(windowTitle(untitled), "Terminal");

    const auto failureOf = [](auto&& make) -> std::string {
        try {
            make();
        } catch (const OrvelleError& error) {
            return error.what();
        }
        return "no error";
    };
    EXPECT_EQ(failureOf([&] { displaySelection(content, 5); }),
              "Display 5 is no longer available to record.");
    EXPECT_EQ(failureOf([&] { displaySelection(ShareableContent{}, 5); }),
              "No displays are available to record.");
    EXPECT_EQ(failureOf([&] { windowSelection(content, 5); }), "Choose a single window to record.");
    EXPECT_EQ(failureOf([&] {
                  areaSelection(content, {5000, 0, 100, 100});
              }),
              "Choose a single area to record.");
}

TEST(CaptureGeometry, ModesFiltersAndSizesMustAgree) {
    const ShareableContent content = twoDisplays();
    const auto display = displaySelection(content, 11);
    const auto window = windowSelection(content, 101);
    using M = RecorderCaptureMode;
    const CaptureRect area{0, 0, 100, 100};
    const struct {
        M mode;
        std::optional<CaptureRect> sourceRect;
        const CaptureContentFilter& filter;
        bool valid;
    } cases[] = {{M::display, std::nullopt, display.filter, true},
                 {M::window, std::nullopt, window.filter, true},
                 {M::area, area, display.filter, true},
                 {M::display, std::nullopt, window.filter, false},
                 {M::window, std::nullopt, display.filter, false},
                 {M::display, area, display.filter, false},
                 {M::area, area, window.filter, false},
                 {M::area, std::nullopt, display.filter, false}};
    for (const auto& c : cases) {
        if (c.valid) {
            EXPECT_NO_THROW(
                ScreenCaptureGeometry::validateSelection(c.mode, c.sourceRect, c.filter));
        } else {
            EXPECT_THROW(ScreenCaptureGeometry::validateSelection(c.mode, c.sourceRect, c.filter),
                         OrvelleError);
        }
    }

    // Odd sizes come out even, scaled by the display's pixels a point.
    CaptureContentFilter hiDPI = display.filter;
    hiDPI.pointPixelScale = 2;
    EXPECT_EQ(ScreenCaptureGeometry::captureDimensions(display.filter, M::area,
                                                       CaptureRect{0, 0, 301, 203}),
              std::make_pair(302, 204));
    EXPECT_EQ(ScreenCaptureGeometry::captureDimensions(hiDPI, M::display, std::nullopt),
              std::make_pair(3840, 2400));
    CaptureContentFilter empty = window.filter;
    empty.contentRect.width = 0;
    try {
        ScreenCaptureGeometry::captureDimensions(empty, M::window, std::nullopt);
        FAIL() << "an empty window has no capture size";
    } catch (const OrvelleError& error) {
        EXPECT_EQ(error.code(), OrvelleErrorCode::invalidCaptureSize);
        EXPECT_STREQ(error.what(), "The selected window did not report a usable capture size.");
    }
}

TEST(CaptureGeometry, RecordingFilterLeavesOutTheProgramsOwnWindows) {
    const ShareableContent content = twoDisplays();
    const auto display = displaySelection(content, 11);
    const auto rebuilt = ScreenCaptureGeometry::contentFilterForRecording(
        display.filter, RecorderCaptureMode::display, display.display, 104, content, 77);
    EXPECT_EQ(rebuilt.excludedWindowIDs, (std::vector<uint32_t>{102, 103, 104}));
    EXPECT_EQ(rebuilt.displayID, 11U);

    // Nothing of ours on screen: the filter comes back as it was.
    EXPECT_EQ(ScreenCaptureGeometry::contentFilterForRecording(
                  display.filter, RecorderCaptureMode::display, display.display, std::nullopt,
                  content, 12345),
              display.filter);
    // A window filter is never rebuilt.
    const auto window = windowSelection(content, 101);
    EXPECT_EQ(ScreenCaptureGeometry::contentFilterForRecording(
                  window.filter, RecorderCaptureMode::window, std::nullopt, 104, content, 77),
              window.filter);
    // The display went away between choosing and starting.
    ShareableContent unplugged = content;
    unplugged.displays.erase(unplugged.displays.begin());
    EXPECT_THROW(ScreenCaptureGeometry::contentFilterForRecording(
                     display.filter, RecorderCaptureMode::display, display.display, std::nullopt,
                     unplugged, 77),
                 OrvelleError);
}

} // namespace
} // namespace orvelle
