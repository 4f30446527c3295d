#pragma once

// Text clips: lines of text over the stage on the edit axis, animated in and out.

#include "core/json.h"
#include "core/uuid.h"
#include "project/background_settings.h"
#include "timeline/timeline_time.h"

#include <string>
#include <vector>

namespace orvelle {

enum class TextAnimationPreset { rise, slide, pop };
std::span<const EnumName<TextAnimationPreset>> jsonNames(TextAnimationPreset);

enum class TextBlockAlignment { leading, center, trailing };
std::span<const EnumName<TextBlockAlignment>> jsonNames(TextBlockAlignment);

// Where the text block stands, as fractions of the stage.
struct TextAnchor {
    double x = 0.5;
    double y = 0.78;

    friend bool operator==(const TextAnchor&, const TextAnchor&) = default;
};

struct TextClip {
    Uuid id;
    EditTime start;
    EditTime end;
    std::string text = "Lorem ipsum dolor sit amet";
    TextAnimationPreset preset = TextAnimationPreset::rise;
    BackgroundColorRGBA color{1.0, 1.0, 1.0, 1.0};
    TextBlockAlignment alignment = TextBlockAlignment::leading;
    double size = 1.5;           // [0.5, 4]
    double lineHeight = 1.25;    // [1, 4]
    double animationSpeed = 1.0; // [0.25, 3]
    TextAnchor position;

    friend bool operator==(const TextClip&, const TextClip&) = default;
};

struct TextOverlaySettings {
    std::vector<TextClip> clips;

    // Every clip with start <= t < end, in list order.
    std::vector<TextClip> activeClips(EditTime time) const;

    friend bool operator==(const TextOverlaySettings&, const TextOverlaySettings&) = default;
};

template <>
struct JsonCoder<TextAnchor> {
    static TextAnchor decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const TextAnchor& value);
};

template <>
struct JsonCoder<TextClip> {
    static TextClip decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const TextClip& value);
};

template <>
struct JsonCoder<TextOverlaySettings> {
    static TextOverlaySettings decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const TextOverlaySettings& value);
};

} // namespace orvelle
