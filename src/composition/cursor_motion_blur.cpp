#include "composition/cursor_motion_blur.h"

#include <algorithm>
#include <cmath>

namespace orvelle {

namespace CursorMotionBlur {

Image blurred(const Image& image, double radius, double angle) {
    const ImageRect extent = image.extent();
    const double grow = std::ceil(std::max(radius, 0.0));
    return image.clampedToExtent()
        .motionBlurred(radius, angle)
        .cropped(extent.insetBy(-grow, -grow));
}

} // namespace CursorMotionBlur

CursorMotionBlurPreview::CursorMotionBlurPreview(size_t limit)
    : limit_(std::max<size_t>(limit, 1)) {}

std::optional<Bitmap> CursorMotionBlurPreview::previewImage(CursorStyle style,
                                                            const BackgroundColorRGBA& dotColor,
                                                            int pixelSize, double radius,
                                                            double angle) {
    if (pixelSize <= 0) {
        return std::nullopt;
    }
    radius = std::isfinite(radius) ? std::max(radius, 0.0) : 0.0;
    const long radiusStep = std::lround(radius * 4);
    const long degrees = std::isfinite(angle) ? std::lround(angle * 180 / M_PI) % 360 : 0;
    const Key key{style,          dotColor.red, dotColor.green, dotColor.blue,
                  dotColor.alpha, pixelSize,    radiusStep,     degrees};
    if (const auto found = pictures_.find(key); found != pictures_.end()) {
        uses_.remove(key);
        uses_.push_front(key);
        return found->second;
    }
    const auto art = context_.cursorImage(style, dotColor);
    if (!art) {
        return std::nullopt;
    }
    const ImageRect artExtent = art->extent();
    Image pointer = art->transformed(
        AffineTransform::scale(pixelSize / artExtent.width, pixelSize / artExtent.height));
    const double quantisedRadius = static_cast<double>(radiusStep) / 4;
    if (quantisedRadius > 0) {
        pointer = CursorMotionBlur::blurred(pointer, quantisedRadius,
                                            static_cast<double>(degrees) * M_PI / 180);
    }
    const Bitmap picture = pointer.render(pointer.extent());
    if (pictures_.size() >= limit_) {
        pictures_.erase(uses_.back());
        uses_.pop_back();
    }
    pictures_.emplace(key, picture);
    uses_.push_front(key);
    return picture;
}

} // namespace orvelle
