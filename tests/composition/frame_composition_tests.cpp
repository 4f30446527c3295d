#include "composition/frame_composition.h"
#include "support/thrown.h"

#include <gtest/gtest.h>

#include <cmath>

namespace orvelle {
namespace {

FrameComposition everyFieldSet() {
    FrameComposition frame{.editTime = EditTime(3.5),
                           .sourceTime = SourceTime(7.25),
                           .stageSize = {1920, 1080},
                           .sourceNaturalSize = {2880, 1800},
                           .cameraNaturalSize = Size{1280, 720},
                           .embeddedVideoSize = {1728, 1080},
                           .movieRect = {0, 0, 1728, 1080}};
    frame.background.paddingAmount = 0.2;
    frame.cursorStyle = CursorStyle::dot;
    frame.cursorDotColor = {0.1, 0.2, 0.3, 0.4};
    frame.cursorIsHidden = true;
    frame.cursorClickPressScale = 0.84;
    frame.hasCameraOverlay = true;
    frame.preview.screen = {1.5,      {12, -8}, 0.3,  17.28, 12.5,    0.175,
                            {0, 7.5}, 1,        0.08, 0.8,   {45, 12}};
    frame.preview.cursor = CursorLayerComposition{{400, 300}, 0.975, {3, -1}, 0.2};
    frame.preview.camera = CameraLayerComposition{false, true, -1, {300, 300}, {1700, 880}, 75, 1};
    MaskLayerComposition mask{.sourceRect = {0.1, 0.2, 0.3, 0.4},
                              .stageRect = {100, 200, 300, 400},
                              .opacity = 0.72,
                              .borderStyle = MaskBorder::Style::twinComet,
                              .referenceTime = EditTime(2)};
    frame.preview.mask = mask;
    frame.preview.stageFadeOpacity = 0.25;
    frame.cursorFrameMotion = {0.01, -0.02};
    frame.cameraFrameMotion = {0.003, 0.004};
    frame.zoomFrameMotion = 0.05;
    TextClip text{.id = Uuid::random(), .start = EditTime(1), .end = EditTime(4), .text = "Hello"};
    frame.textClips = {text};
    return frame;
}

// The stage's numbers as the `frame` command prints them: every field round-trips, under
// the record's names in plain geometry, absent layers as null, and a missing key is named.
TEST(FrameCompositionJson, RoundTripsUnderTheRecordsNames) {
    FrameComposition frame = everyFieldSet();
    const Json json = encodeJson(frame);
    EXPECT_EQ(decodeJson<FrameComposition>(parseJson(prettyJson(json))), frame);
    EXPECT_EQ(json["movieRect"],
              (Json{{"x", 0.0}, {"y", 0.0}, {"width", 1728.0}, {"height", 1080.0}}));
    EXPECT_EQ(json["preview"]["cursor"]["position"], (Json{{"x", 400.0}, {"y", 300.0}}));
    EXPECT_EQ(json["preview"]["screen"]["perspective"]["angleDegrees"], 12.0);
    EXPECT_EQ(json["preview"]["mask"]["borderStyle"], "twinComet");
    EXPECT_EQ(json["cursorFrameMotion"], (Json{{"dx", 0.01}, {"dy", -0.02}}));

    frame.cameraNaturalSize.reset();
    frame.preview.cursor.reset();
    frame.preview.camera.reset();
    frame.preview.mask.reset();
    Json absent = encodeJson(frame);
    EXPECT_TRUE(absent.at("preview").at("mask").is_null());
    EXPECT_EQ(decodeJson<FrameComposition>(absent), frame);

    absent["preview"]["screen"].erase("strokeWidth");
    if (const auto error =
            testing::thrown<JsonDecodeError>([&] { decodeJson<FrameComposition>(absent); })) {
        EXPECT_EQ(error->path(), "preview.screen.strokeWidth");
    }
}

TEST(ScreenPerspectiveTransform, FlatWithoutAngleAndTheDirectionSideComesCloser) {
    const auto flat = ScreenPerspective{}.relativeTransform(1000, false);
    EXPECT_EQ(flat.m11, 1);
    EXPECT_EQ(flat.m22, 1);
    EXPECT_EQ(flat.m14, 0);
    EXPECT_EQ(flat.m24, 0);
    EXPECT_EQ(flat.m34, -1.0 / 1000); // the perspective term alone
    const double eye = 2880;
    const auto project = [&](const Transform3D& m, double x, double y) {
        const double w = x * m.m14 + y * m.m24 + 1;
        return std::pair{(x * m.m11 + y * m.m21) / w, (x * m.m12 + y * m.m22) / w};
    };
    // Direction 90: the right edge comes towards the viewer and grows, the left recedes.
    const ScreenPerspective right{90, 20};
    const auto m = right.relativeTransform(eye, false);
    const auto [rx, ry] = project(m, 500, 300);
    const auto [lx, ly] = project(m, -500, 300);
    EXPECT_GT(std::abs(ry), std::abs(ly));
    EXPECT_GT(rx, -lx);
    // Direction 0 with y up: the top edge grows.
    const auto up = ScreenPerspective{0, 20}.relativeTransform(eye, false);
    const auto [tx, ty] = project(up, 400, 300);
    const auto [bx, by] = project(up, 400, -300);
    EXPECT_GT(std::abs(tx), std::abs(bx));
    // The same picture in y-down coordinates: the top edge is at negative y there.
    const auto down = ScreenPerspective{0, 20}.relativeTransform(eye, true);
    const auto [dx, dy] = project(down, 400, -300);
    EXPECT_NEAR(dx, tx, 1e-9);
    EXPECT_NEAR(dy, -ty, 1e-9);
    // A pure rotation keeps the length of the axis through the centre.
    EXPECT_NEAR(m.m11 * m.m11 + m.m12 * m.m12 + m.m13 * m.m13, 1, 1e-12);
    (void)by;
}

} // namespace
} // namespace orvelle
