#include "composition/cursor_vector_art.h"

#include "platform/image/image.h"
#include "platform/image/vector_canvas.h"

#include <algorithm>
#include <cstdio>
#include <functional>
#include <list>
#include <mutex>
#include <utility>

namespace orvelle::CursorVectorArt {

namespace {

using PathBuilder = std::function<void(VectorCanvas&)>;

ImageColor rgb(int hex, double alpha = 1) {
    return {((hex >> 16) & 0xFF) / 255.0, ((hex >> 8) & 0xFF) / 255.0, (hex & 0xFF) / 255.0, alpha};
}

// ---- Shapes, in box units ----------------------------------------------------------------

void polygon(VectorCanvas& canvas, std::initializer_list<std::pair<double, double>> points) {
    bool first = true;
    for (const auto& [x, y] : points) {
        first ? canvas.moveTo(x, y) : canvas.lineTo(x, y);
        first = false;
    }
    canvas.closePath();
}

// The classic arrow: a long left edge, a notch, and a tail leaning right.
void classicArrow(VectorCanvas& canvas) {
    polygon(
        canvas,
        {{5, 4}, {5, 36.5}, {12.6, 29.6}, {17.6, 41.2}, {23.2, 38.8}, {18.3, 27.4}, {28.4, 27.4}});
}

// Narrower and sharper, for the glassy style.
void slimArrow(VectorCanvas& canvas) {
    polygon(
        canvas,
        {{5, 4}, {5, 34.5}, {11.8, 28.4}, {16.6, 39.2}, {21, 37.3}, {16.4, 26.8}, {25.8, 26.8}});
}

// Broad and blunt, for the flat poster style.
void chunkyArrow(VectorCanvas& canvas) {
    polygon(
        canvas,
        {{5, 4}, {5, 37.5}, {13.2, 30.4}, {18.6, 42.4}, {25.4, 39.6}, {20.2, 28.2}, {31, 28.2}});
}

// A dart pointing up and left, like a navigation arrow.
void dart(VectorCanvas& canvas) {
    polygon(canvas, {{5, 4}, {35, 17.2}, {20.6, 21.2}, {16.6, 35.6}});
}

// ---- Shared helpers ----------------------------------------------------------------------

struct Box {
    double x, y, width, height;
};

// A gradient across a rectangle of the box, top to bottom or left to right.
void drawLinearGradient(VectorCanvas& canvas, Box rect, const std::vector<GradientStop>& stops,
                        bool vertical) {
    const ImagePoint from{rect.x, rect.y};
    const ImagePoint to = vertical ? ImagePoint{rect.x, rect.y + rect.height}
                                   : ImagePoint{rect.x + rect.width, rect.y};
    canvas.setLinearGradient(from, to, stops);
}

// A light band along the shape's left edge, as if lit from the left: the shape is
// clipped and a gradient from white fades out towards the right.
void shadeLeftEdge(VectorCanvas& canvas, const PathBuilder& shape, double alpha) {
    canvas.save();
    shape(canvas);
    canvas.clip();
    drawLinearGradient(canvas, {5, 0, 6, 48},
                       {{0, ImageColor::white(alpha)}, {1, ImageColor::white(0)}}, false);
    canvas.rectangle(0, 0, 48, 48);
    canvas.fill();
    canvas.restore();
}

// A canvas of the pixel size whose drawing units are those of the box.
std::unique_ptr<VectorCanvas> boxCanvas(int pixelSize) {
    auto canvas = std::make_unique<VectorCanvas>(pixelSize, pixelSize);
    canvas->scale(pixelSize / kBoxSize, pixelSize / kBoxSize);
    canvas->setLineJoin(LineJoin::round);
    return canvas;
}

struct Shadow {
    double blur = 1.2;  // standard deviation, box units
    double dropX = 0;   // box units, right
    double dropY = 1.3; // box units, down
    double alpha = 0.35;
};

// The art over a shadow of the given silhouette, in one bitmap.
Bitmap withShadow(const Bitmap& art, const PathBuilder& silhouette, int pixelSize,
                  const Shadow& shadow) {
    auto shape = boxCanvas(pixelSize);
    shape->setLineWidth(2.4);
    silhouette(*shape);
    shape->setColor(ImageColor::black());
    shape->fill(true);
    shape->stroke();
    const double unit = pixelSize / kBoxSize;
    ColorMatrix black;
    black.red = black.green = black.blue = {0, 0, 0, 0};
    black.alpha = {0, 0, 0, shadow.alpha};
    Image under = Image::bitmap(shape->bitmap()).colorMatrixed(black);
    if (shadow.blur > 0) {
        under = under.gaussianBlurred(shadow.blur * unit);
    }
    // Box y runs down, image y runs up.
    under =
        under.transformed(AffineTransform::translation(shadow.dropX * unit, -shadow.dropY * unit));
    const ImageRect bounds{0, 0, static_cast<double>(pixelSize), static_cast<double>(pixelSize)};
    return Image::bitmap(art).composited(under).render(bounds);
}

// ---- The styles --------------------------------------------------------------------------

Bitmap drawSoft(int size) {
    auto canvas = boxCanvas(size);
    classicArrow(*canvas);
    canvas->setLineWidth(2.8);
    canvas->setColor(rgb(0x1c1f24, 0.92));
    canvas->stroke(true);
    drawLinearGradient(*canvas, {0, 4, 48, 38}, {{0, rgb(0xffffff)}, {1, rgb(0xe9ecf1)}}, true);
    canvas->fill();
    return withShadow(canvas->bitmap(), classicArrow, size, {1.4, 0, 1.6, 0.32});
}

Bitmap drawCrisp(int size) {
    auto canvas = boxCanvas(size);
    classicArrow(*canvas);
    canvas->setLineWidth(3.2);
    canvas->setColor(ImageColor::white());
    canvas->stroke(true);
    canvas->setColor(rgb(0x0e0f11));
    canvas->fill();
    return withShadow(canvas->bitmap(), classicArrow, size, {0.7, 0, 0.8, 0.45});
}

Bitmap drawObsidian(int size) {
    auto canvas = boxCanvas(size);
    slimArrow(*canvas);
    canvas->setLineWidth(2.2);
    canvas->setColor(rgb(0x05060a, 0.95));
    canvas->stroke(true);
    canvas->setLinearGradient({5, 4}, {22, 40},
                              {{0, rgb(0x555c6e)}, {0.45, rgb(0x22262f)}, {1, rgb(0x07080b)}});
    canvas->fill();
    // A thin bright rim inside the edge, stronger at the top.
    canvas->save();
    slimArrow(*canvas);
    canvas->clip();
    slimArrow(*canvas);
    canvas->setLineWidth(1.3);
    drawLinearGradient(*canvas, {0, 4, 48, 36},
                       {{0, ImageColor::white(0.55)}, {1, ImageColor::white(0.08)}}, true);
    canvas->stroke();
    canvas->restore();
    shadeLeftEdge(*canvas, slimArrow, 0.28);
    return withShadow(canvas->bitmap(), slimArrow, size, {1.6, 0, 1.8, 0.42});
}

Bitmap drawBrutalist(int size) {
    auto canvas = boxCanvas(size);
    canvas->setLineJoin(LineJoin::miter);
    // A hard shadow: the same shape, solid and offset, no blur.
    canvas->save();
    canvas->translate(2.6, 2.6);
    chunkyArrow(*canvas);
    canvas->setColor(rgb(0x000000));
    canvas->fill();
    canvas->restore();
    chunkyArrow(*canvas);
    canvas->setColor(rgb(0xffd83d));
    canvas->fill();
    // The heavy outline lies inside the shape, so that its sharp point stays on the
    // hot spot instead of a mitre reaching past it.
    canvas->save();
    chunkyArrow(*canvas);
    canvas->clip();
    chunkyArrow(*canvas);
    canvas->setLineWidth(3.6);
    canvas->setColor(rgb(0x000000));
    canvas->stroke();
    canvas->restore();
    return canvas->bitmap();
}

Bitmap drawBeveled(int size) {
    auto canvas = boxCanvas(size);
    classicArrow(*canvas);
    canvas->setLineWidth(2.2);
    canvas->setColor(rgb(0x2a2e35));
    canvas->stroke(true);
    drawLinearGradient(*canvas, {0, 4, 48, 38},
                       {{0, rgb(0xf7f8fa)}, {0.55, rgb(0xd3d8de)}, {1, rgb(0xa9b1bb)}}, true);
    canvas->fill();
    // Bevel: the inner edge lit at the top left and shaded at the bottom right.
    canvas->save();
    classicArrow(*canvas);
    canvas->clip();
    classicArrow(*canvas);
    canvas->setLineWidth(3.0);
    canvas->setLinearGradient({5, 4}, {24, 40},
                              {{0, ImageColor::white(0.95)},
                               {0.5, ImageColor::white(0)},
                               {0.5, ImageColor::black(0)},
                               {1, ImageColor::black(0.28)}});
    canvas->stroke();
    canvas->restore();
    return withShadow(canvas->bitmap(), classicArrow, size, {1.2, 0, 1.4, 0.34});
}

Bitmap drawPointer(int size) {
    auto canvas = boxCanvas(size);
    dart(*canvas);
    canvas->setLineWidth(3.4);
    canvas->setColor(ImageColor::white());
    canvas->stroke(true);
    canvas->setLinearGradient({5, 4}, {26, 30}, {{0, rgb(0x5b95ff)}, {1, rgb(0x1f4fe0)}});
    canvas->fill();
    shadeLeftEdge(*canvas, dart, 0.22);
    return withShadow(canvas->bitmap(), dart, size, {1.3, 0, 1.5, 0.38});
}

Bitmap drawDot(int size, const BackgroundColorRGBA& color) {
    auto canvas = boxCanvas(size);
    const ImageColor fill{std::clamp(color.red, 0.0, 1.0), std::clamp(color.green, 0.0, 1.0),
                          std::clamp(color.blue, 0.0, 1.0), std::clamp(color.alpha, 0.0, 1.0)};
    canvas->ellipse(24, 24, 11, 11);
    canvas->setColor(fill);
    canvas->fill();
    // A firmer ring of the same colour gives the translucent dot an edge.
    canvas->ellipse(24, 24, 10.4, 10.4);
    canvas->setLineWidth(1.2);
    canvas->setColor({fill.red, fill.green, fill.blue, std::min(1.0, fill.alpha * 1.8)});
    canvas->stroke();
    return canvas->bitmap();
}

Bitmap draw(CursorStyle style, int size, const BackgroundColorRGBA& dotColor) {
    switch (style) {
    case CursorStyle::soft:
        return drawSoft(size);
    case CursorStyle::crisp:
        return drawCrisp(size);
    case CursorStyle::obsidian:
        return drawObsidian(size);
    case CursorStyle::brutalist:
        return drawBrutalist(size);
    case CursorStyle::beveled:
        return drawBeveled(size);
    case CursorStyle::pointer:
        return drawPointer(size);
    case CursorStyle::dot:
        return drawDot(size, dotColor);
    }
    return drawSoft(size);
}

// The last few renderings, most recent first.
struct ArtCache {
    std::mutex mutex;
    std::list<std::pair<std::string, Bitmap>> entries;
};

ArtCache& artCache() {
    static ArtCache cache;
    return cache;
}

constexpr size_t kCachedRenderings = 16;

} // namespace

Point hotSpot(CursorStyle style) {
    return style == CursorStyle::dot ? Point{24, 24} : Point{5, 4};
}

std::string cacheKey(CursorStyle style, int pixelSize, const BackgroundColorRGBA& dotColor) {
    std::string key = std::string(enumName(style)) + "-" + std::to_string(pixelSize);
    if (style == CursorStyle::dot) {
        char color[96];
        std::snprintf(color, sizeof color, "-%.3f,%.3f,%.3f,%.3f", dotColor.red, dotColor.green,
                      dotColor.blue, dotColor.alpha);
        key += color;
    }
    return key;
}

std::optional<Bitmap> render(CursorStyle style, int pixelSize,
                             const BackgroundColorRGBA& dotColor) {
    if (pixelSize <= 0) {
        return std::nullopt;
    }
    const std::string key = cacheKey(style, pixelSize, dotColor);
    ArtCache& cache = artCache();
    {
        const std::lock_guard lock(cache.mutex);
        for (auto it = cache.entries.begin(); it != cache.entries.end(); ++it) {
            if (it->first == key) {
                cache.entries.splice(cache.entries.begin(), cache.entries, it);
                return it->second;
            }
        }
    }
    Bitmap art = draw(style, pixelSize, dotColor);
    const std::lock_guard lock(cache.mutex);
    cache.entries.emplace_front(key, art);
    if (cache.entries.size() > kCachedRenderings) {
        cache.entries.pop_back();
    }
    return art;
}

} // namespace orvelle::CursorVectorArt
