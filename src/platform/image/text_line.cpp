#include "platform/image/text_line.h"

#include "platform/image/image.h"

#include <pango/pangocairo.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <string>

namespace orvelle {

namespace {

template <class T, void (*Free)(T*)>
struct Releaser {
    void operator()(T* p) const { Free(p); }
};
void unrefObject(void* p) {
    g_object_unref(p);
}

using Surface = std::unique_ptr<cairo_surface_t, Releaser<cairo_surface_t, cairo_surface_destroy>>;
using Context = std::unique_ptr<cairo_t, Releaser<cairo_t, cairo_destroy>>;
using Font = std::unique_ptr<PangoFontDescription,
                             Releaser<PangoFontDescription, pango_font_description_free>>;

struct LayoutDeleter {
    void operator()(PangoLayout* layout) const { unrefObject(layout); }
};
using Layout = std::unique_ptr<PangoLayout, LayoutDeleter>;

// A layout of the line in the interface font, made for the given Cairo context.
Layout makeLayout(cairo_t* cr, std::string_view text, const TextLineStyle& style) {
    Layout layout(pango_cairo_create_layout(cr));
    cairo_font_options_t* options = cairo_font_options_create();
    cairo_font_options_set_antialias(options, CAIRO_ANTIALIAS_GRAY);
    cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_NONE);
    cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
    pango_cairo_context_set_font_options(pango_layout_get_context(layout.get()), options);
    cairo_font_options_destroy(options);
    pango_layout_context_changed(layout.get());
    Font font(pango_font_description_new());
    pango_font_description_set_family(font.get(), "Inter, sans-serif");
    pango_font_description_set_weight(font.get(),
                                      style.bold ? PANGO_WEIGHT_BOLD : PANGO_WEIGHT_SEMIBOLD);
    pango_font_description_set_absolute_size(font.get(),
                                             std::max(style.pixelSize, 0.5) * PANGO_SCALE);
    pango_layout_set_font_description(layout.get(), font.get());
    pango_layout_set_single_paragraph_mode(layout.get(), TRUE);
    pango_layout_set_text(layout.get(), text.data(), static_cast<int>(text.size()));
    return layout;
}

Bitmap copyOut(cairo_surface_t* surface) {
    cairo_surface_flush(surface);
    const int width = cairo_image_surface_get_width(surface);
    const int height = cairo_image_surface_get_height(surface);
    const uint8_t* data = cairo_image_surface_get_data(surface);
    const int stride = cairo_image_surface_get_stride(surface);
    Bitmap bitmap(width, height);
    for (int y = 0; y < height; ++y) {
        std::memcpy(bitmap.row(y), data + static_cast<ptrdiff_t>(y) * stride,
                    static_cast<size_t>(width) * 4);
    }
    return bitmap;
}

} // namespace

TextLineBitmap renderTextLine(std::string_view text, const TextLineStyle& style) {
    TextLineBitmap line;
    line.padding = std::max(style.padding, 0);

    // Measure on a scratch surface.
    Surface scratch(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 1, 1));
    Context measure(cairo_create(scratch.get()));
    Layout measured = makeLayout(measure.get(), text, style);
    PangoRectangle logical{};
    pango_layout_get_extents(measured.get(), nullptr, &logical);
    line.glyphWidth = static_cast<double>(logical.width) / PANGO_SCALE;
    line.ascent = static_cast<double>(pango_layout_get_baseline(measured.get())) / PANGO_SCALE;
    line.descent = static_cast<double>(logical.height) / PANGO_SCALE - line.ascent;

    const int width = static_cast<int>(std::ceil(line.glyphWidth)) + 2 * line.padding;
    const int height = static_cast<int>(std::ceil(line.ascent + line.descent)) + 2 * line.padding;
    Surface surface(
        cairo_image_surface_create(CAIRO_FORMAT_ARGB32, std::max(width, 1), std::max(height, 1)));
    {
        Context cr(cairo_create(surface.get()));
        Layout layout = makeLayout(cr.get(), text, style);
        cairo_set_source_rgba(cr.get(), style.color.red, style.color.green, style.color.blue,
                              style.color.alpha);
        cairo_move_to(cr.get(), line.padding - static_cast<double>(logical.x) / PANGO_SCALE,
                      line.padding);
        pango_cairo_show_layout(cr.get(), layout.get());
    }
    Bitmap glyphs = copyOut(surface.get());
    if (style.shadowAlpha <= 0) {
        line.bitmap = glyphs;
        return line;
    }
    // The shadow: the glyphs' coverage in black, blurred, moved down, under the glyphs.
    ColorMatrix black;
    black.red = black.green = black.blue = {0, 0, 0, 0};
    black.alpha = {0, 0, 0, std::clamp(style.shadowAlpha, 0.0, 1.0)};
    const Image glyphImage = Image::bitmap(glyphs);
    const Image shadow = glyphImage.colorMatrixed(black)
                             .gaussianBlurred(style.shadowBlur / 2)
                             .transformed(AffineTransform::translation(0, -style.shadowDrop));
    const ImageRect bounds{0, 0, static_cast<double>(glyphs.width()),
                           static_cast<double>(glyphs.height())};
    line.bitmap = glyphImage.composited(shadow).render(bounds);
    return line;
}

} // namespace orvelle
