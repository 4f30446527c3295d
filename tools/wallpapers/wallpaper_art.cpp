#include "wallpaper_art.h"

#include "platform/image/image.h"
#include "platform/image/vector_canvas.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

namespace orvelle::wallpapers {

namespace {

// splitmix64: a small generator whose sequence is the same on every machine.
class Random {
public:
    explicit Random(uint64_t seed) : state_(seed) {}
    double unit() { return static_cast<double>(next() >> 11) * 0x1.0p-53; }
    double range(double low, double high) { return low + (high - low) * unit(); }
    int below(int n) { return static_cast<int>(next() % static_cast<uint64_t>(n)); }

private:
    uint64_t next() {
        uint64_t z = (state_ += 0x9e3779b97f4a7c15ULL);
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
        return z ^ (z >> 31);
    }
    uint64_t state_;
};

ImageColor hex(uint32_t value, double alpha = 1) {
    return {((value >> 16) & 0xFF) / 255.0, ((value >> 8) & 0xFF) / 255.0, (value & 0xFF) / 255.0,
            alpha};
}

// Hue in turns, saturation and lightness in 0...1.
ImageColor hsl(double hue, double saturation, double lightness, double alpha = 1) {
    hue -= std::floor(hue);
    const double c = (1 - std::abs(2 * lightness - 1)) * saturation;
    const double h = hue * 6;
    const double x = c * (1 - std::abs(std::fmod(h, 2.0) - 1));
    const double m = lightness - c / 2;
    double r = 0;
    double g = 0;
    double b = 0;
    if (h < 1) {
        r = c, g = x;
    } else if (h < 2) {
        r = x, g = c;
    } else if (h < 3) {
        g = c, b = x;
    } else if (h < 4) {
        g = x, b = c;
    } else if (h < 5) {
        r = x, b = c;
    } else {
        r = c, b = x;
    }
    return {r + m, g + m, b + m, alpha};
}

ImageColor mix(const ImageColor& a, const ImageColor& b, double t) {
    return {a.red + (b.red - a.red) * t, a.green + (b.green - a.green) * t,
            a.blue + (b.blue - a.blue) * t, a.alpha + (b.alpha - a.alpha) * t};
}

ImageColor withAlpha(ImageColor c, double alpha) {
    c.alpha = alpha;
    return c;
}

// ---- Layers on a canvas of the sketch size -----------------------------------------------

void fillVertical(VectorCanvas& canvas, const ImageColor& top, const ImageColor& bottom) {
    canvas.rectangle(0, 0, canvas.width(), canvas.height());
    canvas.setLinearGradient({0, 0}, {0, static_cast<double>(canvas.height())},
                             {{0, top}, {1, bottom}});
    canvas.fill();
}

void fillAngled(VectorCanvas& canvas, double angle, const std::vector<GradientStop>& stops) {
    const double w = canvas.width();
    const double h = canvas.height();
    const double reach = (std::abs(std::cos(angle)) * w + std::abs(std::sin(angle)) * h) / 2;
    const ImagePoint from{w / 2 - std::cos(angle) * reach, h / 2 - std::sin(angle) * reach};
    const ImagePoint to{w / 2 + std::cos(angle) * reach, h / 2 + std::sin(angle) * reach};
    canvas.rectangle(0, 0, w, h);
    canvas.setLinearGradient(from, to, stops);
    canvas.fill();
}

// A colour that fades out from a point: the blobs of a mesh of colour.
void glow(VectorCanvas& canvas, double x, double y, double radius, const ImageColor& color) {
    canvas.rectangle(0, 0, canvas.width(), canvas.height());
    canvas.setRadialGradient(
        {x, y}, radius,
        {{0, color}, {0.45, withAlpha(color, color.alpha * 0.6)}, {1, withAlpha(color, 0)}});
    canvas.fill();
}

void meshOfColour(VectorCanvas& canvas, Random& random, const std::vector<ImageColor>& colors,
                  int blobs, double alpha) {
    const double w = canvas.width();
    const double h = canvas.height();
    for (int i = 0; i < blobs; ++i) {
        const ImageColor& color = colors[static_cast<size_t>(i) % colors.size()];
        glow(canvas, random.range(-0.1, 1.1) * w, random.range(-0.1, 1.1) * h,
             random.range(0.35, 0.75) * w, withAlpha(color, alpha * random.range(0.75, 1.0)));
    }
}

// Rolling bands from the back to the front, each a smooth crest filled down to the bottom.
void waves(VectorCanvas& canvas, Random& random, const std::vector<ImageColor>& bands,
           double firstCrest, double spacing) {
    const double w = canvas.width();
    const double h = canvas.height();
    const int count = static_cast<int>(bands.size());
    for (int i = 0; i < count; ++i) {
        const double base = (firstCrest + spacing * i) * h;
        const double amplitude = random.range(0.05, 0.13) * h;
        const double phase = random.range(0, 2 * M_PI);
        const double frequency = random.range(0.7, 1.6) * 2 * M_PI / w;
        const double ripple = random.range(0.01, 0.03) * h;
        const auto crest = [&](double x) {
            return base + amplitude * std::sin(frequency * x + phase) +
                   ripple * std::sin(2.7 * frequency * x + 2 * phase);
        };
        constexpr int kSteps = 24;
        const double step = w / kSteps;
        canvas.moveTo(-2, crest(-2));
        for (int s = 0; s < kSteps; ++s) {
            const double x0 = s * step;
            const double x1 = x0 + step;
            // A cubic through the curve with tangents from its slope at both ends.
            const double d0 = (crest(x0 + 0.5) - crest(x0 - 0.5));
            const double d1 = (crest(x1 + 0.5) - crest(x1 - 0.5));
            canvas.curveTo(x0 + step / 3, crest(x0) + d0 * step / 3, x1 - step / 3,
                           crest(x1) - d1 * step / 3, x1, crest(x1));
        }
        canvas.lineTo(w + 2, h + 2);
        canvas.lineTo(-2, h + 2);
        canvas.closePath();
        const ImageColor& color = bands[static_cast<size_t>(i)];
        const ImageColor deeper = mix(color, hex(0x000000), 0.22);
        canvas.setLinearGradient({0, base - amplitude}, {0, h},
                                 {{0, mix(color, hex(0xffffff), 0.08)}, {1, deeper}});
        canvas.fill();
    }
}

void vignette(VectorCanvas& canvas, double strength) {
    const double w = canvas.width();
    const double h = canvas.height();
    canvas.save();
    canvas.translate(w / 2, h / 2);
    canvas.scale(1, h / w);
    canvas.rectangle(-w, -w, 2 * w, 2 * w);
    canvas.setRadialGradient({0, 0}, w * 0.75,
                             {{0, ImageColor::black(0)},
                              {0.55, ImageColor::black(0)},
                              {1, ImageColor::black(strength)}});
    canvas.fill();
    canvas.restore();
}

// Soft round lights of one colour, as out of focus.
void bokeh(VectorCanvas& canvas, Random& random, const ImageColor& color, int count) {
    const double w = canvas.width();
    const double h = canvas.height();
    for (int i = 0; i < count; ++i) {
        const double r = random.range(0.02, 0.09) * w;
        canvas.ellipse(random.range(0, 1) * w, random.range(0, 1) * h, r, r);
        canvas.setColor(withAlpha(color, random.range(0.08, 0.22)));
        canvas.fill();
    }
}

// Thin luminous curves across the picture.
void lightTrails(VectorCanvas& canvas, Random& random, const ImageColor& color, int count) {
    const double w = canvas.width();
    const double h = canvas.height();
    for (int i = 0; i < count; ++i) {
        const double y = random.range(0.2, 0.8) * h;
        canvas.moveTo(-10, y);
        canvas.curveTo(w * 0.3, y + random.range(-0.4, 0.4) * h, w * 0.7,
                       y + random.range(-0.4, 0.4) * h, w + 10, y + random.range(-0.3, 0.3) * h);
        canvas.setLineWidth(random.range(0.8, 2.2));
        canvas.setColor(withAlpha(color, random.range(0.12, 0.3)));
        canvas.stroke();
    }
}

// Wide soft folds of light, like silk, across the picture.
void ribbons(VectorCanvas& canvas, Random& random, const ImageColor& color, int count) {
    const double w = canvas.width();
    const double h = canvas.height();
    VectorCanvas layer(canvas.width(), canvas.height());
    for (int i = 0; i < count; ++i) {
        const double y = random.range(0.25, 0.75) * h;
        const double rise = random.range(-0.5, 0.5) * h;
        layer.moveTo(-0.1 * w, y);
        layer.curveTo(w * 0.35, y - rise, w * 0.65, y + rise, 1.1 * w,
                      y + random.range(-0.2, 0.2) * h);
        layer.setLineWidth(random.range(0.06, 0.14) * h);
        layer.setLinearGradient({0, 0}, {w, 0},
                                {{0, withAlpha(color, 0)},
                                 {0.5, withAlpha(color, random.range(0.25, 0.4))},
                                 {1, withAlpha(color, 0.05)}});
        layer.stroke();
    }
    const ImageRect bounds{0, 0, w, h};
    canvas.drawBitmap(Image::bitmap(layer.bitmap()).gaussianBlurred(w * 0.012).render(bounds), 0,
                      0);
}

// A sketch made softer: its pixels through a Gaussian blur of `sigma` sketch pixels.
Bitmap blurred(const Bitmap& sketch, double sigma) {
    const ImageRect bounds{0, 0, static_cast<double>(sketch.width()),
                           static_cast<double>(sketch.height())};
    return Image::bitmap(sketch).clampedToExtent().gaussianBlurred(sigma).cropped(bounds).render(
        bounds);
}

// ---- The categories ----------------------------------------------------------------------

struct WavePalette {
    uint32_t skyTop, skyBottom;
    std::array<uint32_t, 4> bands;
};

// Dunes and waves under a graded sky, in sixteen moods.
constexpr std::array<WavePalette, 16> kWavePalettes{{
    {0x1b1646, 0x5b3f8c, {0x8c4f9f, 0xd9668f, 0xf59e7a, 0xffd1a1}},
    {0x0a1931, 0x185adb, {0x2f80ed, 0x56ccf2, 0xa0e7ff, 0xe8fbff}},
    {0x2d1b3d, 0x8e4a5a, {0xc0604a, 0xe3884f, 0xf2b46d, 0xf9dcaa}},
    {0x061a2b, 0x0e3b53, {0x10707f, 0x23a494, 0x7fd8be, 0xe1f5c4}},
    {0x20062e, 0x4a1052, {0x7b1f6a, 0xb0307a, 0xe0558a, 0xff9aa2}},
    {0x0d1b2a, 0x415a77, {0x778da9, 0xa3b1c6, 0xe0e1dd, 0xfefae0}},
    {0xff9a8b, 0xff6a88, {0xff99ac, 0xfcb7c8, 0xffd6e0, 0xfff0f3}},
    {0x003b46, 0x07575b, {0x66a5ad, 0x8fd1d6, 0xc4dfe6, 0xf1fbfd}},
    {0x160f29, 0x3b1e54, {0x9b2242, 0xe2483d, 0xf68e5f, 0xffd07b}},
    {0xdbe9f4, 0xa9c6e8, {0x7ea6d9, 0x5c86c4, 0x3f5fa6, 0x26407a}},
    {0x0b1f1a, 0x1d4037, {0x2f6b57, 0x4e9a74, 0x8cc084, 0xd7e8a8}},
    {0x3b2a3f, 0x7d4e6d, {0xb76e79, 0xe0a39a, 0xf3c9b8, 0xfbe6dc}},
    {0x05051a, 0x1a1a4e, {0x2e2e8c, 0x4b4bc4, 0x7a7af0, 0xb8b8ff}},
    {0xffecd2, 0xfcb69f, {0xf6917a, 0xe86a6a, 0xc0487a, 0x7d2e7e}},
    {0x0f3443, 0x1b6f80, {0x2fa4a9, 0xf4a259, 0xf26b4e, 0xbf3b4a}},
    {0xe0c3fc, 0x8ec5fc, {0xa18cd1, 0x8f6ed5, 0x6a4fb8, 0x45308f}},
}};

Bitmap paintWaves(int w, int h, Random& random, const WavePalette& palette, double mistAlpha) {
    VectorCanvas canvas(w, h);
    fillVertical(canvas, hex(palette.skyTop), hex(palette.skyBottom));
    // A haze of the bands' colours in the sky.
    std::vector<ImageColor> haze;
    for (const uint32_t band : palette.bands) {
        haze.push_back(hex(band));
    }
    meshOfColour(canvas, random, haze, 3, mistAlpha);
    Bitmap sky = blurred(canvas.bitmap(), w * 0.04);
    VectorCanvas front(w, h);
    front.drawBitmap(sky, 0, 0);
    std::vector<ImageColor> bands;
    for (const uint32_t band : palette.bands) {
        bands.push_back(hex(band));
    }
    waves(front, random, bands, random.range(0.34, 0.46), random.range(0.1, 0.14));
    vignette(front, 0.18);
    return blurred(front.bitmap(), 1.1);
}

Bitmap paintMacOS(int index, int w, int h, Random& random) {
    return paintWaves(w, h, random, kWavePalettes[static_cast<size_t>(index - 1) % 16], 0.35);
}

Bitmap paintBright(int index, int w, int h, Random& random) {
    // Pastel mist: a pale ground with soft clouds of colour around one theme hue.
    const double theme = std::fmod(index * 0.6180339887, 1.0);
    VectorCanvas canvas(w, h);
    fillAngled(canvas, random.range(0, M_PI),
               {{0, hsl(theme, 0.6, 0.95)}, {1, hsl(theme + 0.08, 0.55, 0.9)}});
    std::vector<ImageColor> clouds;
    clouds.reserve(5);
    for (int i = 0; i < 5; ++i) {
        clouds.push_back(hsl(theme + random.range(-0.18, 0.18), random.range(0.6, 0.9),
                             random.range(0.72, 0.86)));
    }
    meshOfColour(canvas, random, clouds, 6, 0.85);
    bokeh(canvas, random, ImageColor::white(), 5 + index % 4);
    return blurred(canvas.bitmap(), w * 0.035);
}

Bitmap paintDark(int index, int w, int h, Random& random) {
    const double theme = std::fmod(0.55 + index * 0.381966, 1.0);
    VectorCanvas canvas(w, h);
    fillAngled(canvas, random.range(0, M_PI),
               {{0, hsl(theme, 0.35, 0.05)}, {1, hsl(theme + 0.1, 0.4, 0.11)}});
    std::vector<ImageColor> lights;
    lights.reserve(3);
    for (int i = 0; i < 3; ++i) {
        lights.push_back(hsl(theme + random.range(-0.15, 0.25), random.range(0.65, 0.9),
                             random.range(0.42, 0.55)));
    }
    meshOfColour(canvas, random, lights, 2 + index % 3, 0.55);
    Bitmap soft = blurred(canvas.bitmap(), w * 0.05);
    VectorCanvas front(w, h);
    front.drawBitmap(soft, 0, 0);
    if (index % 2 == 0) {
        lightTrails(front, random, hsl(theme + 0.1, 0.8, 0.7), 3 + index % 3);
    }
    vignette(front, 0.55);
    return blurred(front.bitmap(), 0.8);
}

// Colour families: mists and waves whose hues stay within a band.
Bitmap paintFamily(int index, int w, int h, Random& random, double hueLow, double hueHigh,
                   double saturation, bool withBokeh) {
    const double hue = hueLow + (hueHigh - hueLow) * std::fmod(index * 0.6180339887, 1.0);
    const auto inFamily = [&](double lightness) {
        return hsl(std::clamp(hue + random.range(-0.05, 0.05), hueLow, hueHigh),
                   saturation * random.range(0.85, 1.0), lightness);
    };
    if (index % 3 == 0) {
        std::vector<ImageColor> bands;
        const ImageColor top = inFamily(0.16);
        const ImageColor bottom = inFamily(0.32);
        VectorCanvas canvas(w, h);
        fillVertical(canvas, top, bottom);
        meshOfColour(canvas, random, {inFamily(0.5), inFamily(0.6)}, 3, 0.4);
        Bitmap sky = blurred(canvas.bitmap(), w * 0.04);
        VectorCanvas front(w, h);
        front.drawBitmap(sky, 0, 0);
        bands.reserve(4);
        for (int i = 0; i < 4; ++i) {
            bands.push_back(inFamily(0.35 + 0.13 * i));
        }
        waves(front, random, bands, random.range(0.36, 0.46), random.range(0.1, 0.13));
        vignette(front, 0.2);
        return blurred(front.bitmap(), 1.1);
    }
    VectorCanvas canvas(w, h);
    fillAngled(canvas, random.range(0, M_PI), {{0, inFamily(0.22)}, {1, inFamily(0.55)}});
    std::vector<ImageColor> clouds;
    clouds.reserve(4);
    for (int i = 0; i < 4; ++i) {
        clouds.push_back(inFamily(random.range(0.3, 0.75)));
    }
    meshOfColour(canvas, random, clouds, 5, 0.85);
    glow(canvas, random.range(0.2, 0.8) * w, random.range(0.1, 0.5) * h, w * 0.45,
         hsl(hue, saturation * 0.6, 0.88, 0.45));
    if (withBokeh) {
        bokeh(canvas, random, ImageColor::white(), 6);
    }
    Bitmap soft = blurred(canvas.bitmap(), w * 0.04);
    VectorCanvas front(w, h);
    front.drawBitmap(soft, 0, 0);
    if (index % 3 == 1) {
        ribbons(front, random, inFamily(0.85), 2 + index % 2);
    }
    vignette(front, 0.24);
    return blurred(front.bitmap(), 0.9);
}

struct GradientPalette {
    std::array<uint32_t, 3> colors;
    int count;
};

constexpr std::array<GradientPalette, 9> kGradients{{
    {{0xff7e5f, 0xfeb47b, 0}, 2},
    {{0x6a11cb, 0x2575fc, 0}, 2},
    {{0x00c6ff, 0x0072ff, 0}, 2},
    {{0xf953c6, 0xb91d73, 0}, 2},
    {{0x11998e, 0x38ef7d, 0}, 2},
    {{0xfc466b, 0x3f5efb, 0}, 2},
    {{0xee9ca7, 0xffdde1, 0}, 2},
    {{0x141e30, 0x243b55, 0x3a6073}, 3},
    {{0xf7971e, 0xffd200, 0xfff1a8}, 3},
}};

Bitmap paintGradient(int index, int w, int h, Random& random) {
    const GradientPalette& palette = kGradients[static_cast<size_t>(index - 1) % 9];
    std::vector<GradientStop> stops;
    stops.reserve(static_cast<size_t>(palette.count));
    for (int i = 0; i < palette.count; ++i) {
        stops.push_back({static_cast<double>(i) / (palette.count - 1),
                         hex(palette.colors[static_cast<size_t>(i)])});
    }
    VectorCanvas canvas(w, h);
    fillAngled(canvas, M_PI / 4 + random.range(-0.5, 0.5), stops);
    // A broad soft light in one corner gives the flat gradient some depth.
    glow(canvas, random.range(0, 0.3) * w, random.range(0, 0.3) * h, w * 0.7,
         ImageColor::white(0.22));
    vignette(canvas, 0.12);
    return blurred(canvas.bitmap(), 2);
}

uint64_t seedOf(WallpaperCategory category, int index) {
    return 0x6f7276656c6c65ULL * (static_cast<uint64_t>(category) + 1) +
           static_cast<uint64_t>(index);
}

} // namespace

Bitmap paintWallpaper(WallpaperCategory category, int index, int width, int height) {
    // The artwork is soft, so it is painted at a quarter of the size and enlarged.
    const int w = std::max(width / 4, 16);
    const int h = std::max(height / 4, 9);
    Random random(seedOf(category, index));
    Bitmap sketch;
    switch (category) {
    case WallpaperCategory::macOS:
        sketch = paintMacOS(index, w, h, random);
        break;
    case WallpaperCategory::bright:
        sketch = paintBright(index, w, h, random);
        break;
    case WallpaperCategory::dark:
        sketch = paintDark(index, w, h, random);
        break;
    case WallpaperCategory::blue:
        sketch = paintFamily(index, w, h, random, 0.54, 0.65, 0.75, false);
        break;
    case WallpaperCategory::green:
        sketch = paintFamily(index, w, h, random, 0.22, 0.46, 0.6, index % 4 == 1);
        break;
    case WallpaperCategory::pink:
        sketch = paintFamily(index, w, h, random, 0.86, 1.02, 0.75, true);
        break;
    case WallpaperCategory::gradient:
        sketch = paintGradient(index, w, h, random);
        break;
    }
    const ImageRect bounds{0, 0, static_cast<double>(width), static_cast<double>(height)};
    return Image::bitmap(sketch, {}, {.opaque = true})
        .clampedToExtent()
        .transformed(
            AffineTransform::scale(static_cast<double>(width) / w, static_cast<double>(height) / h))
        .cropped(bounds)
        .render(bounds);
}

Bitmap thumbnail(const Bitmap& wallpaper, int width, int height) {
    const ImageRect bounds{0, 0, static_cast<double>(width), static_cast<double>(height)};
    return Image::bitmap(wallpaper)
        .clampedToExtent()
        .transformed(AffineTransform::scale(static_cast<double>(width) / wallpaper.width(),
                                            static_cast<double>(height) / wallpaper.height()))
        .cropped(bounds)
        .render(bounds);
}

} // namespace orvelle::wallpapers
