#pragma once

// The stage at an instant as plain numbers: where the card, the pointer, the camera, the
// mask and the fade are, and how they look. The preview moves its layers by it and the
// renderer draws it pixel for pixel, so both agree. Values only; JSON with the records'
// own field names, absent layers as null.

#include "composition/geometry.h"
#include "composition/screen_perspective.h"
#include "motion/motion_blur_vector.h"
#include "project/background_settings.h"
#include "project/cursor_settings.h"
#include "project/mask_settings.h"
#include "project/text_overlay_settings.h"
#include "timeline/timeline_time.h"

#include <optional>
#include <vector>

namespace orvelle {

// The card that shows the screen recording.
struct ScreenLayerComposition {
    double zoomScale = 1;        // effective zoom, without padding
    Size offset;                 // card centre relative to the stage centre
    double motionBlurRadius = 0; // a Gaussian sigma in stage points
    double cornerRadius = 0;
    double shadowRadius = 0;
    double shadowOpacity = 0;
    Size shadowOffset;
    double strokeWidth = 0;
    double strokeOpacity = 0;
    double paddingScale = 1;
    ScreenPerspective perspective;

    friend bool operator==(const ScreenLayerComposition&, const ScreenLayerComposition&) = default;
};

// The pointer, in the embedded rectangle's coordinates: the top left of its 48 by 48 art box
// plus (24, 24), that is the box's centre at size scale 1.
struct CursorLayerComposition {
    Point position;
    double sizeScale = 1;
    Size motionBlur;      // displacement over a 60th of a second, at most 20 long
    double tiltAngle = 0; // radians

    friend bool operator==(const CursorLayerComposition&, const CursorLayerComposition&) = default;
};

struct CameraLayerComposition {
    bool isFullscreen = false;
    bool isMirrored = false;
    double horizontalScale = 1; // 1 or -1, fractional during a transition
    Size frameSize;
    Point center;
    double cornerRadius = 0;
    double opacity = 1;

    friend bool operator==(const CameraLayerComposition&, const CameraLayerComposition&) = default;
};

struct MaskLayerComposition {
    MaskRect sourceRect; // normalised to the movie rectangle
    Rect stageRect;
    double opacity = 0;
    double cornerRadius = 0;
    double featherRadius = 0;
    bool isInverted = false;
    MaskBorder::Style borderStyle = MaskBorder::Style::none;
    double borderOpacity = 0;
    double borderPhase = 0; // fraction of the border's cycle
    BackgroundColorRGBA borderColor;
    EditTime referenceTime;

    friend bool operator==(const MaskLayerComposition&, const MaskLayerComposition&) = default;
};

struct PreviewComposition {
    ScreenLayerComposition screen;
    std::optional<CursorLayerComposition> cursor;
    std::optional<CameraLayerComposition> camera;
    std::optional<MaskLayerComposition> mask;
    double stageFadeOpacity = 0; // how much black covers the stage

    friend bool operator==(const PreviewComposition&, const PreviewComposition&) = default;
};

// What the renderer gets for a frame besides the images.
struct FrameComposition {
    EditTime editTime;
    SourceTime sourceTime;
    Size stageSize;
    Size sourceNaturalSize;
    std::optional<Size> cameraNaturalSize;
    Size embeddedVideoSize;
    Rect movieRect; // in the embedded rectangle's coordinates
    BackgroundSettings background;
    CursorStyle cursorStyle = CursorStyle::soft;
    BackgroundColorRGBA cursorDotColor;
    bool cursorIsHidden = false;
    double cursorClickPressScale = 1;
    bool hasCameraOverlay = false;
    PreviewComposition preview;
    MotionBlurVector cursorFrameMotion;
    MotionBlurVector cameraFrameMotion;
    double zoomFrameMotion = 0;
    std::vector<TextClip> textClips;

    friend bool operator==(const FrameComposition&, const FrameComposition&) = default;
};

template <>
struct JsonCoder<ScreenLayerComposition> {
    static ScreenLayerComposition decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const ScreenLayerComposition& value);
};

template <>
struct JsonCoder<CursorLayerComposition> {
    static CursorLayerComposition decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const CursorLayerComposition& value);
};

template <>
struct JsonCoder<CameraLayerComposition> {
    static CameraLayerComposition decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const CameraLayerComposition& value);
};

template <>
struct JsonCoder<MaskLayerComposition> {
    static MaskLayerComposition decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const MaskLayerComposition& value);
};

template <>
struct JsonCoder<PreviewComposition> {
    static PreviewComposition decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const PreviewComposition& value);
};

template <>
struct JsonCoder<FrameComposition> {
    static FrameComposition decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const FrameComposition& value);
};

} // namespace orvelle
