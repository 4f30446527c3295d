#pragma once

// The wallpapers' artwork, painted from nothing but the category and the image's number:
// the same inputs always give the same pixels.

#include "platform/image/bitmap.h"
#include "project/background_settings.h"

namespace orvelle::wallpapers {

// Image `index` (from 1) of a category at the given size.
Bitmap paintWallpaper(WallpaperCategory category, int index, int width, int height);

// A thumbnail of a painted wallpaper: the picture averaged down to the size.
Bitmap thumbnail(const Bitmap& wallpaper, int width, int height);

} // namespace orvelle::wallpapers
