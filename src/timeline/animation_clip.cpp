#include "timeline/animation_clip.h"

#include <cmath>

namespace orvelle {

namespace {

constexpr std::array<EnumName<AnimationZoomMode>, 2> kZoomModeNames{{
    {AnimationZoomMode::automatic, "auto"},
    {AnimationZoomMode::manual, "manual"},
}};

constexpr double kManualOffsetLimit = 3.0;

} // namespace

std::span<const EnumName<AnimationZoomMode>> jsonNames(AnimationZoomMode) {
    return kZoomModeNames;
}

ZoomManualOffset::ZoomManualOffset(double xValue, double yValue)
    : x(sanitisedNumber(xValue, -kManualOffsetLimit, kManualOffsetLimit, 0.0)),
      y(sanitisedNumber(yValue, -kManualOffsetLimit, kManualOffsetLimit, 0.0)) {}

double sanitisedTiltDegrees(double degrees) {
    return sanitisedNumber(degrees, 0.0, kMaximumTiltDegrees, 0.0);
}

double sanitisedTiltDirectionDegrees(double degrees) {
    if (!std::isfinite(degrees)) {
        return 0;
    }
    double result = std::fmod(degrees, 360.0);
    if (result < 0) {
        result += 360.0;
    }
    // A tiny negative remainder plus 360 rounds to 360 itself, which is 0 again.
    return result >= 360.0 ? 0.0 : result;
}

ZoomManualOffset JsonCoder<ZoomManualOffset>::decode(const Json& json,
                                                     const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    return ZoomManualOffset(reader.required<double>("x"), reader.required<double>("y"));
}

Json JsonCoder<ZoomManualOffset>::encode(const ZoomManualOffset& value) {
    return {{"x", value.x}, {"y", value.y}};
}

AnimationClip JsonCoder<AnimationClip>::decode(const Json& json, const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    AnimationClip clip;
    clip.id = reader.required<Uuid>("id");
    clip.start = reader.required<EditTime>("start");
    clip.end = reader.required<EditTime>("end");
    clip.zoomScale = reader.value<double>("zoomScale", 1.5);
    clip.zoomMode = reader.value<AnimationZoomMode>("zoomMode", AnimationZoomMode::automatic);
    clip.manualOffset = reader.optional<ZoomManualOffset>("manualOffset");
    clip.instantAnimation = reader.value<bool>("instantAnimation", false);
    clip.isDisabled = reader.value<bool>("isDisabled", false);
    clip.tiltDegrees = sanitisedTiltDegrees(reader.value<double>("tiltDegrees", 0));
    clip.tiltDirectionDegrees =
        sanitisedTiltDirectionDegrees(reader.value<double>("tiltDirectionDegrees", 0));
    clip.centerBias = reader.value<bool>("centerBias", false);
    return clip;
}

Json JsonCoder<AnimationClip>::encode(const AnimationClip& clip) {
    Json json = {{"id", encodeJson(clip.id)},
                 {"start", encodeJson(clip.start)},
                 {"end", encodeJson(clip.end)},
                 {"zoomScale", clip.zoomScale},
                 {"zoomMode", encodeJson(clip.zoomMode)},
                 {"instantAnimation", clip.instantAnimation},
                 {"isDisabled", clip.isDisabled},
                 {"tiltDegrees", clip.tiltDegrees},
                 {"tiltDirectionDegrees", clip.tiltDirectionDegrees},
                 {"centerBias", clip.centerBias}};
    setOptional(json, "manualOffset", clip.manualOffset);
    return json;
}

} // namespace orvelle
