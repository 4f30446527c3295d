#include "composition/frame_rendering_context.h"

#include "composition/cursor_vector_art.h"
#include "composition/frame_renderer.h"
#include "core/log.h"
#include "platform/image/text_line.h"

#include <algorithm>
#include <cmath>

namespace orvelle {

template <class Key, class Value>
const Value* FrameRenderingContext::Lru<Key, Value>::find(const Key& key) {
    const auto found = index.find(key);
    if (found == index.end()) {
        return nullptr;
    }
    entries.splice(entries.begin(), entries, found->second);
    return &found->second->second;
}

template <class Key, class Value>
void FrameRenderingContext::Lru<Key, Value>::insert(const Key& key, Value value, size_t limit) {
    entries.emplace_front(key, std::move(value));
    index[key] = entries.begin();
    while (entries.size() > limit) {
        index.erase(entries.back().first);
        entries.pop_back();
    }
}

namespace {

int halfPoints(double value) {
    return static_cast<int>(std::lround(value * 2));
}

int wholeComponent(double value) {
    return static_cast<int>(std::lround(std::clamp(value, 0.0, 1.0) * 255));
}

// A fine, fixed grain over the wallpaper: it breaks up the steps of smooth gradients and
// gives the picture some texture at the size it is shown. The same pixel always gets the
// same grain.
void addGrain(Bitmap& bitmap) {
    for (int y = 0; y < bitmap.height(); ++y) {
        uint8_t* p = bitmap.row(y);
        for (int x = 0; x < bitmap.width(); ++x, p += 4) {
            uint32_t h =
                static_cast<uint32_t>(x) * 0x9E3779B1u ^ static_cast<uint32_t>(y) * 0x85EBCA77u;
            h ^= h >> 15;
            h *= 0x2C1B3C6Du;
            h ^= h >> 12;
            // Two small uniform values summed: a triangle from -2 to 2.
            const int grain = static_cast<int>(h & 3u) + static_cast<int>((h >> 8) & 3u) - 3;
            for (int c = 0; c < 3; ++c) {
                p[c] = static_cast<uint8_t>(std::clamp(p[c] + grain, 0, static_cast<int>(p[3])));
            }
        }
    }
}

} // namespace

Image FrameRenderingContext::roundedRectMask(const ImageRect& extent, double cornerRadius) {
    const MaskKey key{halfPoints(extent.width), halfPoints(extent.height),
                      halfPoints(std::max(cornerRadius, 0.0))};
    if (const Image* mask = maskCache_.find(key)) {
        return *mask;
    }
    Image mask = Image::roundedRectangle(extent, std::max(cornerRadius, 0.0), ImageColor::white())
                     .cropped(extent);
    maskCache_.insert(key, mask, kMaskLimit);
    return mask;
}

Image FrameRenderingContext::shadowMask(const ImageRect& extent, double cornerRadius, double blur,
                                        double margin) {
    const ShadowKey key{{halfPoints(extent.width), halfPoints(extent.height),
                         halfPoints(std::max(cornerRadius, 0.0))},
                        halfPoints(blur),
                        halfPoints(margin)};
    if (const Image* shadow = shadowCache_.find(key)) {
        return *shadow;
    }
    const Image shadow = roundedRectMask(extent, cornerRadius)
                             .gaussianBlurred(blur)
                             .cropped(extent.insetBy(-margin, -margin));
    const bool again = lastShadow_ == key;
    lastShadow_ = key;
    if (!again) {
        return shadow;
    }
    Image kept = shadow.rendered();
    shadowCache_.insert(key, kept, kShadowLimit);
    return kept;
}

std::optional<Image> FrameRenderingContext::cursorImage(CursorStyle style,
                                                        const BackgroundColorRGBA& dotColor) {
    const std::string key = CursorVectorArt::cacheKey(style, kCursorArtPixelSize, dotColor);
    if (const Image* art = cursorImageCache_.find(key)) {
        return *art;
    }
    const auto art = CursorVectorArt::render(style, kCursorArtPixelSize, dotColor);
    if (!art) {
        return std::nullopt;
    }
    Image image = Image::bitmap(*art, {}, {.mipmapped = true});
    cursorImageCache_.insert(key, image, kCursorLimit);
    return image;
}

std::optional<TextLineImage> FrameRenderingContext::textLineImage(const std::string& text,
                                                                  const BackgroundColorRGBA& color,
                                                                  double fontPointSize, bool bold) {
    if (!(fontPointSize > 0) || !std::isfinite(fontPointSize)) {
        return std::nullopt;
    }
    const TextLineKey key{text,
                          {wholeComponent(color.red), wholeComponent(color.green),
                           wholeComponent(color.blue), wholeComponent(color.alpha)},
                          halfPoints(fontPointSize),
                          bold};
    if (const TextLineImage* line = textLineCache_.find(key)) {
        return *line;
    }
    const double blur = std::max(fontPointSize * 0.18, 1.0);
    const double drop = std::max(fontPointSize * 0.04, 0.5);
    TextLineStyle style;
    style.pixelSize = fontPointSize;
    style.bold = bold;
    style.color = {color.red, color.green, color.blue, color.alpha};
    style.padding = static_cast<int>(std::ceil(drop + 2 * blur + 2));
    // Dark text needs no shadow; light text gets more of it the lighter it is.
    const double luminance = 0.299 * color.red + 0.587 * color.green + 0.114 * color.blue;
    const double shadowAlpha = std::clamp((luminance - 0.45) / 0.1, 0.0, 1.0) * 0.55;
    if (shadowAlpha > 0) {
        style.shadowAlpha = shadowAlpha;
        style.shadowBlur = blur;
        style.shadowDrop = drop;
    }
    const TextLineBitmap drawn = renderTextLine(text, style);
    TextLineImage line;
    line.image = Image::bitmap(drawn.bitmap);
    line.glyphWidth = drawn.glyphWidth;
    // The bitmap's rows were rounded up below the descent; fold that into the descent so
    // that the origin sits at (padding, padding + descent) from the bottom.
    line.ascent = drawn.ascent;
    line.descent = drawn.bitmap.height() - 2 * drawn.padding - drawn.ascent;
    line.padding = drawn.padding;
    textLineCache_.insert(key, line, kTextLineLimit);
    return line;
}

std::optional<Image> FrameRenderingContext::bakedBackground(const BackgroundSettings& settings,
                                                            Size stageSize) {
    if (settings.kind != BackgroundKind::wallpaper) {
        return std::nullopt;
    }
    const std::filesystem::path url = settings.wallpaper.resourceURL();
    if (bakedBackgroundCache_ && bakedBackgroundCache_->url == url &&
        bakedBackgroundCache_->stageSize == stageSize) {
        return bakedBackgroundCache_->image;
    }
    const ImageRect stage{0, 0, std::round(stageSize.width), std::round(stageSize.height)};
    if (stage.isEmpty()) {
        return std::nullopt;
    }
    Bitmap decoded;
    try {
        decoded = readPNG(url);
    } catch (const ImageFileError& error) {
        logWarning("wallpaper", error.what());
        return std::nullopt;
    }
    const Image source = Image::bitmap(decoded, {}, {.opaque = decoded.isOpaque()});
    const Image fitted = FrameRenderer::aspectFillCachedBackground(
        source, {static_cast<double>(decoded.width()), static_cast<double>(decoded.height())},
        stageSize);
    Bitmap baked = fitted.render(stage);
    addGrain(baked);
    Image image = Image::bitmap(baked, {}, {.opaque = baked.isOpaque()});
    bakedBackgroundCache_ = BakedBackground{url, stageSize, image};
    return image;
}

} // namespace orvelle
