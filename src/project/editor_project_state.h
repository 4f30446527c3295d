#pragma once

// The whole content of an edit as one value: the take's manifest, the timeline and one
// settings record per look or layer. Everything that changes the picture or the sound is
// here and nothing else is. Reading fills every missing key with its default and clamps
// numbers, so the rest of the system can trust each field; an error in a required key or
// an unknown enumeration value fails the whole read, naming the key.

#include "project/background_settings.h"
#include "project/camera_overlay_settings.h"
#include "project/cursor_settings.h"
#include "project/mask_settings.h"
#include "project/music_settings.h"
#include "project/project_export_settings.h"
#include "project/take_manifest.h"
#include "project/text_overlay_settings.h"
#include "timeline/animation_clip.h"
#include "timeline/timeline_state.h"

#include <optional>

namespace orvelle {

enum class ScreenAnimationStyle { focused, smooth };
std::span<const EnumName<ScreenAnimationStyle>> jsonNames(ScreenAnimationStyle);

struct AnimationSettings {
    ScreenAnimationStyle screenStyle = ScreenAnimationStyle::focused;
    std::vector<AnimationClip> zoomClips;

    friend bool operator==(const AnimationSettings&, const AnimationSettings&) = default;
};

struct AudioSettings {
    bool isEnabled = true;
    double microphoneVolume = 1.0;
    double systemAudioVolume = 1.0;
    double musicVolume = 0.5;
    bool removesNoise = false;

    friend bool operator==(const AudioSettings&, const AudioSettings&) = default;
};

enum class AspectRatio { automatic, wide, square, classic, vertical, tall, portrait };
std::span<const EnumName<AspectRatio>> jsonNames(AspectRatio);

struct ScreenSettings {
    double zoomScale = 1.5;
    AspectRatio aspectRatio = AspectRatio::wide;

    friend bool operator==(const ScreenSettings&, const ScreenSettings&) = default;
};

struct EditorProjectState {
    TakeManifest manifest;
    TimelineState timeline;
    AnimationSettings animation;
    BackgroundSettings background;
    CursorSettings cursor;
    CameraOverlaySettings camera;
    MaskSettings mask;
    MusicSettings music;
    TextOverlaySettings text;
    AudioSettings audio;
    ScreenSettings screen;
    std::optional<ProjectExportSettings> exportSettings; // JSON key "export"

    friend bool operator==(const EditorProjectState&, const EditorProjectState&) = default;
};

template <>
struct JsonCoder<AnimationSettings> {
    static AnimationSettings decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const AnimationSettings& value);
};

template <>
struct JsonCoder<AudioSettings> {
    static AudioSettings decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const AudioSettings& value);
};

template <>
struct JsonCoder<ScreenSettings> {
    static ScreenSettings decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const ScreenSettings& value);
};

template <>
struct JsonCoder<EditorProjectState> {
    static EditorProjectState decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const EditorProjectState& value);
};

} // namespace orvelle
