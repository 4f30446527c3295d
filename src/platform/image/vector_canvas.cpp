#include "platform/image/vector_canvas.h"

#include <cairo.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace orvelle {

struct VectorCanvas::State {
    cairo_surface_t* surface = nullptr;
    cairo_t* cr = nullptr;
    double lineWidth = 1;
};

VectorCanvas::VectorCanvas(int width, int height) : state_(std::make_unique<State>()) {
    state_->surface =
        cairo_image_surface_create(CAIRO_FORMAT_ARGB32, std::max(width, 1), std::max(height, 1));
    state_->cr = cairo_create(state_->surface);
    cairo_set_antialias(state_->cr, CAIRO_ANTIALIAS_GOOD);
}

VectorCanvas::~VectorCanvas() {
    cairo_destroy(state_->cr);
    cairo_surface_destroy(state_->surface);
}

int VectorCanvas::width() const {
    return cairo_image_surface_get_width(state_->surface);
}
int VectorCanvas::height() const {
    return cairo_image_surface_get_height(state_->surface);
}

void VectorCanvas::save() {
    cairo_save(state_->cr);
}
void VectorCanvas::restore() {
    cairo_restore(state_->cr);
}
void VectorCanvas::translate(double x, double y) {
    cairo_translate(state_->cr, x, y);
}
void VectorCanvas::scale(double x, double y) {
    cairo_scale(state_->cr, x, y);
}
void VectorCanvas::rotate(double radians) {
    cairo_rotate(state_->cr, radians);
}

void VectorCanvas::newPath() {
    cairo_new_path(state_->cr);
}
void VectorCanvas::moveTo(double x, double y) {
    cairo_move_to(state_->cr, x, y);
}
void VectorCanvas::lineTo(double x, double y) {
    cairo_line_to(state_->cr, x, y);
}
void VectorCanvas::curveTo(double x1, double y1, double x2, double y2, double x3, double y3) {
    cairo_curve_to(state_->cr, x1, y1, x2, y2, x3, y3);
}
void VectorCanvas::arc(double cx, double cy, double radius, double from, double to) {
    cairo_arc(state_->cr, cx, cy, radius, from, to);
}
void VectorCanvas::closePath() {
    cairo_close_path(state_->cr);
}
void VectorCanvas::rectangle(double x, double y, double width, double height) {
    cairo_rectangle(state_->cr, x, y, width, height);
}

void VectorCanvas::roundedRectangle(double x, double y, double width, double height,
                                    double radius) {
    const double r = std::clamp(radius, 0.0, std::min(width, height) / 2);
    if (r <= 0) {
        rectangle(x, y, width, height);
        return;
    }
    cairo_t* cr = state_->cr;
    cairo_new_sub_path(cr);
    cairo_arc(cr, x + width - r, y + r, r, -M_PI / 2, 0);
    cairo_arc(cr, x + width - r, y + height - r, r, 0, M_PI / 2);
    cairo_arc(cr, x + r, y + height - r, r, M_PI / 2, M_PI);
    cairo_arc(cr, x + r, y + r, r, M_PI, 3 * M_PI / 2);
    cairo_close_path(cr);
}

void VectorCanvas::ellipse(double cx, double cy, double rx, double ry) {
    if (rx <= 0 || ry <= 0) {
        return;
    }
    cairo_t* cr = state_->cr;
    cairo_save(cr);
    cairo_translate(cr, cx, cy);
    cairo_scale(cr, rx, ry);
    cairo_new_sub_path(cr);
    cairo_arc(cr, 0, 0, 1, 0, 2 * M_PI);
    cairo_close_path(cr);
    cairo_restore(cr);
}

void VectorCanvas::setColor(const ImageColor& c) {
    cairo_set_source_rgba(state_->cr, c.red, c.green, c.blue, c.alpha);
}

namespace {

void addStops(cairo_pattern_t* pattern, const std::vector<GradientStop>& stops) {
    for (const auto& stop : stops) {
        cairo_pattern_add_color_stop_rgba(pattern, std::clamp(stop.offset, 0.0, 1.0),
                                          stop.color.red, stop.color.green, stop.color.blue,
                                          stop.color.alpha);
    }
}

} // namespace

void VectorCanvas::setLinearGradient(ImagePoint from, ImagePoint to,
                                     const std::vector<GradientStop>& stops) {
    cairo_pattern_t* pattern = cairo_pattern_create_linear(from.x, from.y, to.x, to.y);
    addStops(pattern, stops);
    cairo_set_source(state_->cr, pattern);
    cairo_pattern_destroy(pattern);
}

void VectorCanvas::setRadialGradient(ImagePoint center, double radius,
                                     const std::vector<GradientStop>& stops) {
    cairo_pattern_t* pattern = cairo_pattern_create_radial(center.x, center.y, 0, center.x,
                                                           center.y, std::max(radius, 1e-6));
    addStops(pattern, stops);
    cairo_set_source(state_->cr, pattern);
    cairo_pattern_destroy(pattern);
}

void VectorCanvas::setLineWidth(double width) {
    cairo_set_line_width(state_->cr, width);
}

void VectorCanvas::setLineJoin(LineJoin join) {
    cairo_set_line_join(state_->cr, join == LineJoin::round   ? CAIRO_LINE_JOIN_ROUND
                                    : join == LineJoin::bevel ? CAIRO_LINE_JOIN_BEVEL
                                                              : CAIRO_LINE_JOIN_MITER);
    cairo_set_line_cap(state_->cr,
                       join == LineJoin::round ? CAIRO_LINE_CAP_ROUND : CAIRO_LINE_CAP_BUTT);
}

void VectorCanvas::fill(bool keepPath) {
    keepPath ? cairo_fill_preserve(state_->cr) : cairo_fill(state_->cr);
}

void VectorCanvas::stroke(bool keepPath) {
    keepPath ? cairo_stroke_preserve(state_->cr) : cairo_stroke(state_->cr);
}

void VectorCanvas::clip() {
    cairo_clip(state_->cr);
}

void VectorCanvas::paint(double alpha) {
    cairo_paint_with_alpha(state_->cr, alpha);
}

void VectorCanvas::drawBitmap(const Bitmap& bitmap, double x, double y, double alpha) {
    if (bitmap.empty()) {
        return;
    }
    // Cairo wants its own row length; copy into a surface of that form.
    cairo_surface_t* source =
        cairo_image_surface_create(CAIRO_FORMAT_ARGB32, bitmap.width(), bitmap.height());
    cairo_surface_flush(source);
    uint8_t* data = cairo_image_surface_get_data(source);
    const int stride = cairo_image_surface_get_stride(source);
    for (int row = 0; row < bitmap.height(); ++row) {
        std::memcpy(data + static_cast<ptrdiff_t>(row) * stride, bitmap.row(row),
                    static_cast<size_t>(bitmap.width()) * 4);
    }
    cairo_surface_mark_dirty(source);
    cairo_t* cr = state_->cr;
    cairo_save(cr);
    cairo_set_source_surface(cr, source, x, y);
    cairo_paint_with_alpha(cr, alpha);
    cairo_restore(cr);
    cairo_surface_destroy(source);
}

Bitmap VectorCanvas::bitmap() const {
    cairo_surface_flush(state_->surface);
    const int w = width();
    const int h = height();
    const uint8_t* data = cairo_image_surface_get_data(state_->surface);
    const int stride = cairo_image_surface_get_stride(state_->surface);
    Bitmap result(w, h);
    for (int row = 0; row < h; ++row) {
        std::memcpy(result.row(row), data + static_cast<ptrdiff_t>(row) * stride,
                    static_cast<size_t>(w) * 4);
    }
    return result;
}

} // namespace orvelle
