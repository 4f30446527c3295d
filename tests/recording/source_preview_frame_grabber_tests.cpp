#include "core/error.h"
#include "recording/source_preview_frame_grabber.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace orvelle {
namespace {

using namespace std::chrono_literals;

// A picture of one grey level, w x h, with a bright column at x = `marker` (to see where a
// crop was taken), delivered with a status.
struct Picture {
    int level = 0;
    int width = 64;
    int height = 48;
    std::optional<int> status = static_cast<int>(CaptureFrameStatus::complete);
    int marker = -1;
};

CapturedVideoFrameRef frameOf(const Picture& picture) {
    struct Owned {
        std::vector<uint8_t> pixels;
        CapturedVideoFrame frame;
    };
    auto owned = std::make_shared<Owned>();
    const int stride = picture.width * 4 + 16; // rows padded, as streams deliver them
    owned->pixels.assign(static_cast<size_t>(stride) * picture.height,
                         static_cast<uint8_t>(picture.level));
    if (picture.marker >= 0) {
        for (int row = 0; row < picture.height; ++row) {
            std::fill_n(owned->pixels.begin() + row * stride + picture.marker * 4, 3, 255);
        }
    }
    owned->frame = {owned->pixels.data(), stride, picture.width, picture.height, 0, 0,
                    picture.status};
    return {owned, &owned->frame};
}

struct GrabberCase {
    std::string name;
    std::vector<Picture> pictures;
    std::optional<int> expectedLevel; // of the still; absent: no still
};

class PreviewStills : public ::testing::TestWithParam<GrabberCase> {};

TEST_P(PreviewStills, TakeTheFirstUsablePictureOrTheFirstBlackOne) {
    const GrabberCase& testCase = GetParam();
    SourcePreviewFrameGrabber grabber;
    for (const Picture& picture : testCase.pictures) {
        grabber.streamDidOutputVideoFrame(frameOf(picture));
    }
    const auto still = grabber.waitForStill(1ms);
    ASSERT_EQ(still.has_value(), testCase.expectedLevel.has_value());
    if (still) {
        EXPECT_EQ(still->pixels[0], *testCase.expectedLevel);
        EXPECT_EQ(still->width, still->height);
    }
}

constexpr int kBlank = static_cast<int>(CaptureFrameStatus::blank);
constexpr int kSuspended = static_cast<int>(CaptureFrameStatus::suspended);
constexpr int kStopped = static_cast<int>(CaptureFrameStatus::stopped);

std::vector<Picture> blacks(int count, int firstLevel = 3) {
    std::vector<Picture> pictures(static_cast<size_t>(count), Picture{5});
    pictures.front().level = firstLevel;
    return pictures;
}

std::vector<Picture> then(std::vector<Picture> pictures, const Picture& next) {
    pictures.push_back(next);
    return pictures;
}

INSTANTIATE_TEST_SUITE_P(
    Grabber, PreviewStills,
    ::testing::Values(GrabberCase{"AColouredPictureAtOnce", {{120}, {200}}, 120},
                      GrabberCase{"PastElevenBlackOnes", then(blacks(11), {90}), 90},
                      // The twelfth black picture ends the wait with the first of them.
                      GrabberCase{"TwelveBlackOnesGiveTheFirst", then(blacks(12), {90}), 3},
                      GrabberCase{"FewBlackOnesGiveTheFirstAtTheTimeOut", blacks(4), 3},
                      // Dark but not black: a mean of 8 is a picture.
                      GrabberCase{"DarkIsNotBlack", {{8}}, 8},
                      GrabberCase{"BlankSuspendedAndStoppedAreSkipped",
                                  {{150, 64, 48, kBlank},
                                   {160, 64, 48, kSuspended},
                                   {170, 64, 48, kStopped},
                                   {180, 64, 48, std::nullopt}},
                                  180},
                      GrabberCase{"SkippedPicturesDoNotCountAsTries",
                                  then(then(blacks(11), {99, 64, 48, kBlank}), {77}), 77},
                      GrabberCase{"NothingGivesNothing", {}, std::nullopt}),
    [](const auto& testInfo) { return testInfo.param.name; });

TEST(PreviewStill, IsTheCentredSquareOfThePicture) {
    // Wide: the middle columns are kept; the marker column 40 of 64 lands at 40 - 8.
    const auto wide = SourcePreviewFrameGrabber::squareCropped(*frameOf({20, 64, 48, {}, 40}));
    ASSERT_EQ(wide.width, 48);
    ASSERT_EQ(wide.height, 48);
    EXPECT_EQ(wide.pixels[(10 * 48 + 32) * 4], 255);
    EXPECT_EQ(wide.pixels[(10 * 48 + 31) * 4], 20);
    // Tall: every column stays.
    const auto tall = SourcePreviewFrameGrabber::squareCropped(*frameOf({20, 30, 50, {}, 0}));
    EXPECT_EQ(tall.width, 30);
    EXPECT_EQ(tall.height, 30);
    EXPECT_EQ(tall.pixels[0], 255);
}

TEST(PreviewStill, AStreamThatEndsFirstIsAnError) {
    SourcePreviewFrameGrabber grabber;
    grabber.streamDidOutputVideoFrame(frameOf({2}));
    grabber.streamDidStop("The window was closed.");
    // A picture after the end changes nothing.
    grabber.streamDidOutputVideoFrame(frameOf({120}));
    try {
        grabber.waitForStill(1s);
        ADD_FAILURE() << "no error";
    } catch (const Error& error) {
        EXPECT_STREQ(error.what(), "The window was closed.");
    }
}

} // namespace
} // namespace orvelle
