#pragma once

// The pointer as the program draws it: seven styles of vector art in a 48 by 48 box,
// rendered at any pixel size. The arrows' hot spot is (5, 4) of the box (from its top
// left); the dot is centred on (24, 24) and takes its colour from the project.

#include "composition/geometry.h"
#include "platform/image/bitmap.h"
#include "project/background_settings.h"
#include "project/cursor_settings.h"

#include <optional>
#include <string>

namespace orvelle::CursorVectorArt {

inline constexpr double kBoxSize = 48;

// Where the pointer's point lies in the box.
Point hotSpot(CursorStyle style);

// The cache key of a rendering: the style's name, a hyphen and the size, and for the dot
// its colour as well, so that each dot colour has its own art.
std::string cacheKey(CursorStyle style, int pixelSize, const BackgroundColorRGBA& dotColor);

// The art in a square bitmap of `pixelSize`, made once per key and then kept (a few
// entries, safe from any thread). Absent for a size of 0 or less.
std::optional<Bitmap> render(CursorStyle style, int pixelSize, const BackgroundColorRGBA& dotColor);

} // namespace orvelle::CursorVectorArt
