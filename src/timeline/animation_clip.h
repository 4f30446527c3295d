#pragma once

// The zoom clip: a range clip on the edit axis, the one every other lane's clips follow.

#include "core/json.h"
#include "core/uuid.h"
#include "timeline/timeline_time.h"

#include <array>
#include <optional>
#include <span>

namespace orvelle {

enum class AnimationZoomMode { automatic, manual };
std::span<const EnumName<AnimationZoomMode>> jsonNames(AnimationZoomMode);

// Where a manual zoom looks, as an offset of the frame; each component held to [-3, 3].
struct ZoomManualOffset {
    double x = 0;
    double y = 0;

    ZoomManualOffset() = default;
    // Not finite becomes 0; anything else is held to [-3, 3].
    ZoomManualOffset(double xValue, double yValue);

    friend bool operator==(const ZoomManualOffset&, const ZoomManualOffset&) = default;
};

inline constexpr double kMaximumTiltDegrees = 50.0;

struct AnimationClip {
    Uuid id;
    EditTime start;
    EditTime end;
    double zoomScale = 1.5;
    AnimationZoomMode zoomMode = AnimationZoomMode::automatic;
    std::optional<ZoomManualOffset> manualOffset;
    bool instantAnimation = false;
    bool isDisabled = false;
    double tiltDegrees = 0;          // [0, 50]
    double tiltDirectionDegrees = 0; // [0, 360)
    bool centerBias = false;

    friend bool operator==(const AnimationClip&, const AnimationClip&) = default;
};

// Not finite reads 0; otherwise [0, 50].
double sanitisedTiltDegrees(double degrees);
// Not finite reads 0; otherwise brought into [0, 360) by the remainder.
double sanitisedTiltDirectionDegrees(double degrees);

template <>
struct JsonCoder<ZoomManualOffset> {
    static ZoomManualOffset decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const ZoomManualOffset& value);
};

template <>
struct JsonCoder<AnimationClip> {
    static AnimationClip decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const AnimationClip& value);
};

} // namespace orvelle
