#include "platform/image/image.h"

#include "platform/image/detail/image_node.h"

#include <opencv2/core.hpp>

#include <cmath>

namespace orvelle {

using detail::Box;
using detail::NodePointer;
using detail::PixelAffine;

namespace {

// The one place where the stage's y-up plane meets pixel rows: pixel y = -(stage y).
Box toPixels(const ImageRect& rect) {
    if (rect.isInfinite()) {
        return Box::infinite();
    }
    if (rect.isEmpty()) {
        return Box::empty();
    }
    return {rect.minX(), -rect.maxY(), rect.maxX(), -rect.minY()};
}

ImageRect toStage(const Box& box) {
    if (box.isEmpty()) {
        return {};
    }
    if (box.isInfinite()) {
        return ImageRect::infinite();
    }
    return {box.x0, -box.y1, box.x1 - box.x0, box.y1 - box.y0};
}

PixelAffine toPixels(const AffineTransform& t) {
    return {t.a, -t.b, -t.c, t.d, t.tx, -t.ty};
}

cv::Point2d toPixels(ImagePoint p) {
    return {p.x, -p.y};
}

detail::Bgra premultiplied(const ImageColor& c) {
    return detail::premultipliedBgra(c.red, c.green, c.blue, c.alpha);
}

// The homography that takes four points to four others (both in order).
cv::Matx33d homographyBetween(const std::array<cv::Point2d, 4>& from,
                              const std::array<cv::Point2d, 4>& to) {
    cv::Matx<double, 8, 8> a;
    cv::Matx<double, 8, 1> b;
    for (int i = 0; i < 4; ++i) {
        const double x = from[static_cast<size_t>(i)].x;
        const double y = from[static_cast<size_t>(i)].y;
        const double u = to[static_cast<size_t>(i)].x;
        const double v = to[static_cast<size_t>(i)].y;
        const double rowU[8] = {x, y, 1, 0, 0, 0, -x * u, -y * u};
        const double rowV[8] = {0, 0, 0, x, y, 1, -x * v, -y * v};
        for (int k = 0; k < 8; ++k) {
            a(2 * i, k) = rowU[k];
            a(2 * i + 1, k) = rowV[k];
        }
        b(2 * i) = u;
        b(2 * i + 1) = v;
    }
    cv::Matx<double, 8, 1> h;
    if (!cv::solve(a, b, h, cv::DECOMP_LU)) {
        return cv::Matx33d::zeros();
    }
    return {h(0), h(1), h(2), h(3), h(4), h(5), h(6), h(7), 1};
}

} // namespace

Image::Image() : node_(detail::emptyNode()) {}

Image::Image(std::shared_ptr<const detail::ImageNode> node) : node_(std::move(node)) {}

Image Image::color(const ImageColor& color) {
    return Image(detail::solidNode(premultiplied(color)));
}

Image Image::bitmap(const Bitmap& bitmap, ImagePoint origin, BitmapImageOptions options) {
    const double top = -(origin.y + bitmap.height());
    return Image(detail::bitmapNode(bitmap, origin.x, top, options.mipmapped, options.opaque));
}

Image Image::roundedRectangle(const ImageRect& rect, double radius, const ImageColor& color) {
    return Image(
        detail::roundedRectNode(toPixels(rect), std::max(radius, 0.0), 0, premultiplied(color)));
}

Image Image::roundedRectangleStroke(const ImageRect& rect, double radius, double width,
                                    const ImageColor& color) {
    if (!(width > 0)) {
        return {};
    }
    return Image(detail::roundedRectNode(toPixels(rect), std::max(radius, 0.0), width,
                                         premultiplied(color)));
}

ImageRect Image::extent() const {
    return toStage(node_->extent());
}

bool Image::isEmpty() const {
    return node_->extent().isEmpty();
}

bool Image::isInfinite() const {
    return !isEmpty() && node_->extent().isInfinite();
}

Image Image::cropped(const ImageRect& rect) const {
    return Image(detail::cropNode(node_, toPixels(rect)));
}

Image Image::composited(const Image& background) const {
    return Image(detail::overNode(node_, background.node_));
}

Image Image::transformed(const AffineTransform& transform) const {
    if (transform.isIdentity()) {
        return *this;
    }
    return Image(node_->transformed(toPixels(transform)));
}

Image Image::clampedToExtent() const {
    return Image(detail::clampNode(node_));
}

Image Image::gaussianBlurred(double sigma) const {
    return Image(detail::gaussianBlurNode(node_, sigma));
}

Image Image::motionBlurred(double radius, double angle) const {
    return Image(detail::motionBlurNode(node_, radius, angle));
}

Image Image::colorMatrixed(const ColorMatrix& m) const {
    detail::ColorMatrixCoefficients coefficients{};
    const std::array<const std::array<double, 4>*, 4> rows{&m.red, &m.green, &m.blue, &m.alpha};
    for (size_t r = 0; r < 4; ++r) {
        for (size_t c = 0; c < 4; ++c) {
            coefficients.rows[r][c] = static_cast<float>((*rows[r])[c]);
        }
        coefficients.rows[r][4] = static_cast<float>(m.bias[r]);
    }
    return Image(detail::colorMatrixNode(node_, coefficients));
}

Image Image::blendedWithMask(const Image& background, const Image& mask) const {
    return Image(detail::blendWithMaskNode(node_, background.node_, mask.node_));
}

Image Image::sourceOut(const Image& background) const {
    return Image(detail::sourceOutNode(node_, background.node_));
}

Image Image::perspectiveTransformed(ImagePoint topLeft, ImagePoint topRight, ImagePoint bottomRight,
                                    ImagePoint bottomLeft) const {
    const Box e = node_->extent();
    if (e.isEmpty() || e.isInfinite()) {
        return *this;
    }
    // The extent's top left is its smallest pixel-space corner.
    const std::array<cv::Point2d, 4> from{cv::Point2d(e.x0, e.y0), cv::Point2d(e.x1, e.y0),
                                          cv::Point2d(e.x1, e.y1), cv::Point2d(e.x0, e.y1)};
    const std::array<cv::Point2d, 4> to{toPixels(topLeft), toPixels(topRight),
                                        toPixels(bottomRight), toPixels(bottomLeft)};
    const cv::Matx33d h = homographyBetween(from, to);
    if (h(2, 2) == 0) {
        return *this;
    }
    return Image(detail::perspectiveNode(node_, h));
}

Image Image::multiplied(const Image& background) const {
    return Image(detail::multiplyNode(node_, background.node_));
}

Bitmap Image::render(const ImageRect& region) const {
    const cv::Rect pixels = toPixels(region).outerPixels();
    Bitmap bitmap(pixels.width, pixels.height);
    if (!bitmap.empty()) {
        render(region, bitmap);
    }
    return bitmap;
}

void Image::render(const ImageRect& region, Bitmap& destination) const {
    const cv::Rect pixels = toPixels(region).outerPixels();
    if (pixels.width != destination.width() || pixels.height != destination.height()) {
        throw Error("An image region of " + std::to_string(pixels.width) + "x" +
                    std::to_string(pixels.height) + " cannot be rendered into a bitmap of " +
                    std::to_string(destination.width()) + "x" +
                    std::to_string(destination.height()) + ".");
    }
    if (destination.empty()) {
        return;
    }
    cv::Mat target(destination.height(), destination.width(), CV_8UC4, destination.row(0),
                   destination.stride());
    detail::renderInBands(*node_, pixels, target);
}

Image Image::rendered() const {
    if (isEmpty() || isInfinite()) {
        return *this;
    }
    const cv::Rect pixels = node_->extent().outerPixels();
    Bitmap bitmap(pixels.width, pixels.height);
    cv::Mat target(bitmap.height(), bitmap.width(), CV_8UC4, bitmap.row(0), bitmap.stride());
    detail::renderInBands(*node_, pixels, target);
    const bool opaque = node_->opaque().contains(pixels);
    return Image(detail::bitmapNode(bitmap, pixels.x, pixels.y, false, opaque));
}

void setImageThreadCount(int count) {
    detail::setThreadCount(count);
}

int imageThreadCount() {
    return detail::threadCount();
}

} // namespace orvelle
