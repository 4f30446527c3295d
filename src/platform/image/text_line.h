#pragma once

// One line of text in the interface font ("Inter", or the system's sans-serif where it is
// not installed), drawn into a bitmap with an optional soft shadow. Safe to call from any
// thread.

#include "platform/image/bitmap.h"
#include "platform/image/image_geometry.h"

#include <string_view>

namespace orvelle {

struct TextLineStyle {
    double pixelSize = 28; // the em, in pixels
    bool bold = false;     // semibold otherwise
    ImageColor color = ImageColor::white();
    // A blurred copy of the glyphs in black under them, moved down by `shadowDrop`; none
    // when its alpha is 0. The blur is twice the shadow's standard deviation.
    double shadowDrop = 0;
    double shadowBlur = 0;
    double shadowAlpha = 0;
    int padding = 0; // transparent margin on every side, whole pixels
};

struct TextLineBitmap {
    Bitmap bitmap;         // the line's size rounded up, plus the padding on every side
    double glyphWidth = 0; // advance width of the line
    double ascent = 0;     // above the baseline, which lies `padding + ascent` from the top
    double descent = 0;    // below it
    int padding = 0;
};

TextLineBitmap renderTextLine(std::string_view text, const TextLineStyle& style);

} // namespace orvelle
