#pragma once

// How the pointer is drawn over the recording.

#include "core/json.h"
#include "project/background_settings.h"

namespace orvelle {

enum class CursorStyle { soft, crisp, obsidian, brutalist, beveled, pointer, dot };
std::span<const EnumName<CursorStyle>> jsonNames(CursorStyle);

struct CursorSettings {
    double sizeAmount = 0.1;
    CursorStyle style = CursorStyle::soft;
    bool isHidden = false;
    double clickSoundVolume = 0.15;
    BackgroundColorRGBA dotColor{0.62, 0.62, 0.66, 0.34};
    bool tiltEnabled = true;

    friend bool operator==(const CursorSettings&, const CursorSettings&) = default;
};

// Styles of earlier builds read as crisp; any other unknown name fails with
// "Unknown cursor style: <name>".
template <>
struct JsonCoder<CursorStyle> {
    static CursorStyle decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(CursorStyle value) { return std::string(enumName(value)); }
};

template <>
struct JsonCoder<CursorSettings> {
    static CursorSettings decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const CursorSettings& value);
};

} // namespace orvelle
