#include "platform/image/image_geometry.h"

#include <algorithm>

namespace orvelle {

ImageRect ImageRect::infinite() {
    constexpr double inf = std::numeric_limits<double>::infinity();
    return {-inf, -inf, inf, inf};
}

ImageRect ImageRect::insetBy(double dx, double dy) const {
    if (isInfinite()) {
        return *this;
    }
    return {x + dx, y + dy, width - 2 * dx, height - 2 * dy};
}

ImageRect ImageRect::intersection(const ImageRect& other) const {
    if (isInfinite()) {
        return other;
    }
    if (other.isInfinite()) {
        return *this;
    }
    const double x0 = std::max(x, other.x);
    const double y0 = std::max(y, other.y);
    const double x1 = std::min(maxX(), other.maxX());
    const double y1 = std::min(maxY(), other.maxY());
    if (!(x1 > x0) || !(y1 > y0)) {
        return {};
    }
    return {x0, y0, x1 - x0, y1 - y0};
}

ImageRect ImageRect::unionWith(const ImageRect& other) const {
    if (isEmpty()) {
        return other;
    }
    if (other.isEmpty()) {
        return *this;
    }
    if (isInfinite() || other.isInfinite()) {
        return infinite();
    }
    const double x0 = std::min(x, other.x);
    const double y0 = std::min(y, other.y);
    return {x0, y0, std::max(maxX(), other.maxX()) - x0, std::max(maxY(), other.maxY()) - y0};
}

bool ImageRect::contains(ImagePoint point) const {
    if (isInfinite()) {
        return true;
    }
    return point.x >= x && point.x <= maxX() && point.y >= y && point.y <= maxY();
}

AffineTransform AffineTransform::rotation(double radians) {
    const double c = std::cos(radians);
    const double s = std::sin(radians);
    return {c, s, -s, c, 0, 0};
}

AffineTransform AffineTransform::then(const AffineTransform& n) const {
    return {a * n.a + b * n.c, a * n.b + b * n.d,          c * n.a + d * n.c,
            c * n.b + d * n.d, tx * n.a + ty * n.c + n.tx, tx * n.b + ty * n.d + n.ty};
}

AffineTransform AffineTransform::inverted() const {
    const double det = a * d - b * c;
    if (det == 0 || !std::isfinite(det)) {
        return {};
    }
    const double ia = d / det;
    const double ib = -b / det;
    const double ic = -c / det;
    const double id = a / det;
    return {ia, ib, ic, id, -(tx * ia + ty * ic), -(tx * ib + ty * id)};
}

ImagePoint AffineTransform::apply(ImagePoint p) const {
    return {a * p.x + c * p.y + tx, b * p.x + d * p.y + ty};
}

ImageRect AffineTransform::apply(const ImageRect& rect) const {
    if (rect.isInfinite()) {
        return rect;
    }
    const ImagePoint corners[] = {
        apply(ImagePoint{rect.minX(), rect.minY()}), apply(ImagePoint{rect.maxX(), rect.minY()}),
        apply(ImagePoint{rect.minX(), rect.maxY()}), apply(ImagePoint{rect.maxX(), rect.maxY()})};
    double x0 = corners[0].x;
    double x1 = x0;
    double y0 = corners[0].y;
    double y1 = y0;
    for (const auto& p : corners) {
        x0 = std::min(x0, p.x);
        x1 = std::max(x1, p.x);
        y0 = std::min(y0, p.y);
        y1 = std::max(y1, p.y);
    }
    return {x0, y0, x1 - x0, y1 - y0};
}

ColorMatrix ColorMatrix::multiplying(double factor) {
    ColorMatrix m;
    m.red = {factor, 0, 0, 0};
    m.green = {0, factor, 0, 0};
    m.blue = {0, 0, factor, 0};
    m.alpha = {0, 0, 0, factor};
    return m;
}

} // namespace orvelle
