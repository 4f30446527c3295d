#pragma once

// The webcam picture over the stage, and the camera lane's layout clips that change it
// over stretches of the edit.

#include "core/json.h"
#include "core/uuid.h"
#include "timeline/timeline_time.h"

#include <optional>
#include <vector>

namespace orvelle {

enum class CameraOverlayPosition {
    topLeft,
    top,
    topRight,
    left,
    center,
    right,
    bottomLeft,
    bottom,
    bottomRight
};
std::span<const EnumName<CameraOverlayPosition>> jsonNames(CameraOverlayPosition);

enum class CameraOverlayShape { square, horizontal, vertical, original };
std::span<const EnumName<CameraOverlayShape>> jsonNames(CameraOverlayShape);

enum class CameraLayoutMode { fullscreen, defaultOverlay, hidden };
std::span<const EnumName<CameraLayoutMode>> jsonNames(CameraLayoutMode);

inline constexpr double kDefaultCameraSizeAmount = 0.25;

struct CameraLayoutClip {
    Uuid id;
    EditTime start;
    EditTime end;
    CameraLayoutMode mode = CameraLayoutMode::defaultOverlay;
    bool isDisabled = false;
    bool animatesTransition = true;
    std::optional<CameraOverlayPosition> position; // absent: the settings' position
    double sizeAmount = kDefaultCameraSizeAmount;
    std::optional<bool> isMirrored; // absent: the settings' value

    friend bool operator==(const CameraLayoutClip&, const CameraLayoutClip&) = default;
};

struct CameraOverlaySettings {
    CameraOverlayPosition position = CameraOverlayPosition::bottomRight;
    double sizeAmount = kDefaultCameraSizeAmount;
    double roundnessAmount = 0.5;
    CameraOverlayShape shape = CameraOverlayShape::square;
    bool isMirrored = false;
    bool isHidden = false;
    double zoomSizeAmount = 0.75;
    std::vector<CameraLayoutClip> dynamicLayoutClips;

    // The first enabled clip, in list order, with start <= t < end.
    std::optional<CameraLayoutClip> activeLayoutClip(EditTime time) const;

    friend bool operator==(const CameraOverlaySettings&, const CameraOverlaySettings&) = default;
};

template <>
struct JsonCoder<CameraLayoutClip> {
    static CameraLayoutClip decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const CameraLayoutClip& value);
};

template <>
struct JsonCoder<CameraOverlaySettings> {
    static CameraOverlaySettings decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const CameraOverlaySettings& value);
};

} // namespace orvelle
