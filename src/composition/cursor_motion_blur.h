#pragma once

// The pointer smeared along its motion. The export's frames and the preview's own pointer
// layer blur it the same way.

#include "composition/frame_rendering_context.h"
#include "platform/image/bitmap.h"
#include "platform/image/image.h"

#include <list>
#include <map>
#include <optional>
#include <tuple>

namespace orvelle {

namespace CursorMotionBlur {

// Clamped to its extent, blurred over `radius` pixels along `angle` (radians, counter-
// clockwise from the x axis), and cropped to the extent grown by ceil(radius).
Image blurred(const Image& image, double radius, double angle);

} // namespace CursorMotionBlur

// The blurred pointer art as a bitmap for a view that draws the pointer as a layer of its
// own, kept for the styles, sizes and blurs asked for again (blurs within a quarter pixel
// and a degree share a picture). One per view; not thread-safe.
class CursorMotionBlurPreview {
public:
    explicit CursorMotionBlurPreview(size_t limit = 32);

    // The art of the style at `pixelSize` pixels, blurred as blurred() blurs (the bitmap
    // grows by ceil(radius) on each side); absent when the art cannot be made.
    std::optional<Bitmap> previewImage(CursorStyle style, const BackgroundColorRGBA& dotColor,
                                       int pixelSize, double radius, double angle);
    size_t count() const { return pictures_.size(); }

private:
    using Key = std::tuple<CursorStyle, double, double, double, double, int, long, long>;

    size_t limit_;
    FrameRenderingContext context_; // the art
    std::map<Key, Bitmap> pictures_;
    std::list<Key> uses_; // most recent first
};

} // namespace orvelle
