#include "support/thrown.h"
#include "timeline/animation_clip.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace orvelle {
namespace {

Json minimalClip() {
    return {{"id", "0F3C6B1A-3D0E-4B8C-9B2A-2D7E0A9C1F11"}, {"start", 2}, {"end", 5}};
}

TEST(AnimationClipJson, RoundTripsEveryField) {
    AnimationClip clip{.id = Uuid::random(),
                       .start = EditTime(1),
                       .end = EditTime(3.5),
                       .zoomScale = 2.25,
                       .zoomMode = AnimationZoomMode::manual,
                       .manualOffset = ZoomManualOffset(0.5, -1.25),
                       .instantAnimation = true,
                       .isDisabled = true,
                       .tiltDegrees = 12,
                       .tiltDirectionDegrees = 270,
                       .centerBias = true};
    const Json json = encodeJson(clip);
    EXPECT_EQ(json.at("zoomMode"), Json("manual"));
    // Only identity and times are needed; the rest reads as a new clip has it.
    AnimationClip plain{.id = clip.id, .start = clip.start, .end = clip.end};
    EXPECT_EQ(decodeJson<AnimationClip>(Json{{"id", json.at("id")}, {"start", 1}, {"end", 3.5}}),
              plain);
    EXPECT_EQ(plain.zoomScale, 1.5);
    EXPECT_EQ(decodeJson<AnimationClip>(json), clip);
    clip.manualOffset.reset();
    EXPECT_FALSE(encodeJson(clip).contains("manualOffset"));
}

TEST(AnimationClipJson, UnknownZoomModeNamesKeyAndValue) {
    Json json = minimalClip();
    json["zoomMode"] = "sideways";
    EXPECT_EQ(testing::messageOf<JsonDecodeError>([&] {
                  decodeJson<AnimationClip>(json, JsonDecodeContext{}.key("zoomClips").index(0));
              }),
              "zoomClips[0].zoomMode: unknown value \"sideways\"");
}

TEST(AnimationClipTilt, ReadsIntoRange) {
    for (const auto& [stored, degrees, direction] : std::vector<std::tuple<double, double, double>>{
             {30, 30, 30}, {75, 50, 75}, {-10, 0, 350}, {360, 50, 0}, {725, 50, 5}, {-720, 0, 0}}) {
        Json json = minimalClip();
        json["tiltDegrees"] = stored;
        json["tiltDirectionDegrees"] = stored;
        const auto clip = decodeJson<AnimationClip>(json);
        EXPECT_DOUBLE_EQ(clip.tiltDegrees, degrees) << stored;
        EXPECT_DOUBLE_EQ(clip.tiltDirectionDegrees, direction) << stored;
    }
    EXPECT_EQ(sanitisedTiltDegrees(std::numeric_limits<double>::infinity()), 0);
    EXPECT_EQ(sanitisedTiltDirectionDegrees(std::nan("")), 0);
    const double direction = sanitisedTiltDirectionDegrees(-1e-15);
    EXPECT_GE(direction, 0);
    EXPECT_LT(direction, 360);
}

TEST(ZoomManualOffset, HoldsComponentsToThreeEitherWay) {
    EXPECT_EQ(ZoomManualOffset(4, -5), ZoomManualOffset(3, -3));
    EXPECT_EQ(ZoomManualOffset(std::nan(""), 1).x, 0);
    EXPECT_EQ(ZoomManualOffset(std::numeric_limits<double>::infinity(), 1).x, 0);
    const auto offset = decodeJson<ZoomManualOffset>(Json{{"x", 9}, {"y", 0.5}});
    EXPECT_EQ(offset.x, 3);
    EXPECT_EQ(offset.y, 0.5);
    EXPECT_THROW(decodeJson<ZoomManualOffset>(Json{{"x", 1}}), JsonDecodeError);
}

} // namespace
} // namespace orvelle
