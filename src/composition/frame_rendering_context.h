#pragma once

// What is expensive to make and the same from frame to frame: rounded masks, pointer art,
// text lines and the wallpaper fitted to the stage. One context serves one render thread;
// the images it hands out are immutable and may be rendered on any thread.

#include "composition/geometry.h"
#include "platform/image/image.h"
#include "project/background_settings.h"
#include "project/cursor_settings.h"

#include <cstddef>
#include <filesystem>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <tuple>

namespace orvelle {

// A mask's size and corner radius, each as twice its value in points, rounded: masks that
// differ by less than half a point share an entry.
struct MaskKey {
    int width = 0;
    int height = 0;
    int radius = 0;

    friend auto operator<=>(const MaskKey&, const MaskKey&) = default;
};

// A colour's components made whole (in 255ths), so that the key compares exactly.
struct TextLineColorKey {
    int red = 0;
    int green = 0;
    int blue = 0;
    int alpha = 0;

    friend auto operator<=>(const TextLineColorKey&, const TextLineColorKey&) = default;
};

struct TextLineKey {
    std::string text;
    TextLineColorKey color;
    int fontSize = 0; // twice the point size, rounded
    bool bold = false;

    friend auto operator<=>(const TextLineKey&, const TextLineKey&) = default;
};

// One line of text drawn with its shadow; the glyphs' origin (left end of the baseline)
// lies at (padding, padding + descent) from the image's bottom-left corner.
struct TextLineImage {
    Image image;
    double glyphWidth = 0;
    double ascent = 0;
    double descent = 0;
    double padding = 0;
};

// A shadow's mask key with its blur and the margin it is cropped to, in half points.
struct ShadowKey {
    MaskKey mask;
    int blur = 0;
    int margin = 0;
    friend auto operator<=>(const ShadowKey&, const ShadowKey&) = default;
};

struct BakedBackground {
    std::filesystem::path url;
    Size stageSize;
    Image image;
};

class FrameRenderingContext {
public:
    // Pointer art is made at this size and scaled down for each frame.
    static constexpr int kCursorArtPixelSize = 1024;

    // A white rounded rectangle over the extent (a white rectangle for radius 0).
    Image roundedRectMask(const ImageRect& extent, double cornerRadius);
    // The style's art at 1024 pixels, extent (0, 0, 1024, 1024); absent if it cannot be made.
    std::optional<Image> cursorImage(CursorStyle style, const BackgroundColorRGBA& dotColor);
    // The rounded mask blurred by `blur` (a Gaussian's sigma) and cropped to the extent grown
    // by `margin`: the coverage of a card's or the camera's shadow. A shape asked for twice
    // in a row (a card that keeps its size while the zoom moves it) is kept as pixels, so
    // that later frames only sample it; one whose size animates stays a description.
    Image shadowMask(const ImageRect& extent, double cornerRadius, double blur, double margin);
    // A line in the interface font, semibold or bold, with a shadow that keeps light text
    // readable on a light picture (dark text has none).
    std::optional<TextLineImage> textLineImage(const std::string& text,
                                               const BackgroundColorRGBA& color,
                                               double fontPointSize, bool bold);
    // The wallpaper of the settings covering the stage, with a fine grain; absent for a
    // solid colour background or a wallpaper file that does not decode. One entry: made
    // again when the wallpaper or the stage size changes.
    std::optional<Image> bakedBackground(const BackgroundSettings& settings, Size stageSize);

    size_t maskCount() const { return maskCache_.size(); }
    size_t textLineCount() const { return textLineCache_.size(); }
    size_t shadowCount() const { return shadowCache_.size(); }

private:
    // Each cache keeps its most recent entries; beyond these counts the oldest goes.
    static constexpr size_t kMaskLimit = 256;
    static constexpr size_t kCursorLimit = 16;
    static constexpr size_t kTextLineLimit = 128;
    static constexpr size_t kShadowLimit = 4; // each a picture of about the card's size

    template <class Key, class Value>
    struct Lru {
        std::list<std::pair<Key, Value>> entries; // most recent first
        std::map<Key, typename std::list<std::pair<Key, Value>>::iterator> index;
        size_t size() const { return entries.size(); }
        const Value* find(const Key& key);
        void insert(const Key& key, Value value, size_t limit);
    };

    Lru<MaskKey, Image> maskCache_;
    Lru<std::string, Image> cursorImageCache_;
    Lru<TextLineKey, TextLineImage> textLineCache_;
    Lru<ShadowKey, Image> shadowCache_;
    std::optional<ShadowKey> lastShadow_; // the shape asked for last, rendered or not
    std::optional<BakedBackground> bakedBackgroundCache_;
};

} // namespace orvelle
