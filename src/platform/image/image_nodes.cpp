#include "platform/image/detail/image_node.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>

namespace orvelle::detail {

namespace {

// Beyond this the pixel grid is never reached; keeps integer conversions safe.
constexpr double kPixelLimit = 1 << 28;

double limit(double v) {
    return std::clamp(v, -kPixelLimit, kPixelLimit);
}

} // namespace

// ---- Boxes -----------------------------------------------------------------------------

bool Box::isInfinite() const {
    return std::isinf(x0) || std::isinf(y0) || std::isinf(x1) || std::isinf(y1);
}

Box Box::intersection(const Box& o) const {
    Box r{std::max(x0, o.x0), std::max(y0, o.y0), std::min(x1, o.x1), std::min(y1, o.y1)};
    return r.isEmpty() ? empty() : r;
}

Box Box::unionWith(const Box& o) const {
    if (isEmpty()) {
        return o;
    }
    if (o.isEmpty()) {
        return *this;
    }
    return {std::min(x0, o.x0), std::min(y0, o.y0), std::max(x1, o.x1), std::max(y1, o.y1)};
}

// Edges within this of a whole pixel count as on it: arithmetic noise from transforms must
// not add a row of pixels on one path and not on another.
constexpr double kEdgeTolerance = 1e-6;

cv::Rect Box::outerPixels() const {
    if (isEmpty()) {
        return {};
    }
    const int left = static_cast<int>(std::floor(limit(x0) + kEdgeTolerance));
    const int top = static_cast<int>(std::floor(limit(y0) + kEdgeTolerance));
    const int right = static_cast<int>(std::ceil(limit(x1) - kEdgeTolerance));
    const int bottom = static_cast<int>(std::ceil(limit(y1) - kEdgeTolerance));
    if (right <= left || bottom <= top) {
        return {};
    }
    return {left, top, right - left, bottom - top};
}

cv::Rect Box::innerPixels() const {
    if (isEmpty()) {
        return {};
    }
    const int left = static_cast<int>(std::ceil(limit(x0) - kEdgeTolerance));
    const int top = static_cast<int>(std::ceil(limit(y0) - kEdgeTolerance));
    const int right = static_cast<int>(std::floor(limit(x1) + kEdgeTolerance));
    const int bottom = static_cast<int>(std::floor(limit(y1) + kEdgeTolerance));
    if (right <= left || bottom <= top) {
        return {};
    }
    return {left, top, right - left, bottom - top};
}

Box Box::transformed(const PixelAffine& t) const {
    if (isEmpty()) {
        return empty();
    }
    if (isInfinite()) {
        return infinite();
    }
    const cv::Point2d corners[] = {t.apply({x0, y0}), t.apply({x1, y0}), t.apply({x0, y1}),
                                   t.apply({x1, y1})};
    Box box{corners[0].x, corners[0].y, corners[0].x, corners[0].y};
    for (const auto& p : corners) {
        box.x0 = std::min(box.x0, p.x);
        box.y0 = std::min(box.y0, p.y);
        box.x1 = std::max(box.x1, p.x);
        box.y1 = std::max(box.y1, p.y);
    }
    return box;
}

cv::Rect intersect(const cv::Rect& a, const cv::Rect& b) {
    const cv::Rect r = a & b;
    return r.area() > 0 ? r : cv::Rect();
}

cv::Rect grow(const cv::Rect& r, int d) {
    return {r.x - d, r.y - d, r.width + 2 * d, r.height + 2 * d};
}

namespace {

Box boxOf(const cv::Rect& r) {
    return {static_cast<double>(r.x), static_cast<double>(r.y), static_cast<double>(r.x + r.width),
            static_cast<double>(r.y + r.height)};
}

// The part of `destination` (which shows `region`) that shows `part`.
cv::Mat view(cv::Mat& destination, const cv::Rect& region, const cv::Rect& part) {
    return destination(cv::Rect(part.x - region.x, part.y - region.y, part.width, part.height));
}

// Renders `node` into `destination` for `region`, asking the node only for what its extent
// covers and clearing the rest.
void renderClipped(const ImageNode& node, const cv::Rect& region, cv::Mat& destination) {
    const cv::Rect inside = intersect(region, node.extent().outerPixels());
    if (inside.area() == 0 || node.clear().contains(region)) {
        destination.setTo(cv::Scalar::all(0));
        return;
    }
    if (inside != region) {
        destination.setTo(cv::Scalar::all(0));
        cv::Mat part = view(destination, region, inside);
        node.render(inside, part);
        return;
    }
    node.render(region, destination);
}

// The region minus a rectangle inside it, as up to four bands.
std::vector<cv::Rect> subtract(const cv::Rect& region, const cv::Rect& hole) {
    const cv::Rect inner = intersect(region, hole);
    if (inner.area() == 0) {
        return {region};
    }
    std::vector<cv::Rect> parts;
    if (inner.y > region.y) {
        parts.emplace_back(region.x, region.y, region.width, inner.y - region.y);
    }
    if (inner.br().y < region.br().y) {
        parts.emplace_back(region.x, inner.br().y, region.width, region.br().y - inner.br().y);
    }
    if (inner.x > region.x) {
        parts.emplace_back(region.x, inner.y, inner.x - region.x, inner.height);
    }
    if (inner.br().x < region.br().x) {
        parts.emplace_back(inner.br().x, inner.y, region.br().x - inner.br().x, inner.height);
    }
    return parts;
}

Box largerBox(const Box& a, const Box& b) {
    const auto area = [](const Box& box) {
        return box.isEmpty() ? 0.0 : (box.x1 - box.x0) * (box.y1 - box.y0);
    };
    return area(a) >= area(b) ? a : b;
}

Box shrunkBy(const Box& box, double by) {
    const Box smaller = box.grown(-by);
    return smaller.isEmpty() ? Box::empty() : smaller;
}

bool isSimilarity(const PixelAffine& t) {
    return std::abs(t.a - t.d) < 1e-12 && std::abs(t.b + t.c) < 1e-12;
}

// ---- Empty and solid ---------------------------------------------------------------------

class EmptyNode final : public ImageNode {
public:
    EmptyNode() : ImageNode(Box::empty(), Box::empty()) {}
    void render(const cv::Rect&, cv::Mat& destination) const override {
        destination.setTo(cv::Scalar::all(0));
    }
    NodePointer transformed(const PixelAffine&) const override { return self(); }
};

class SolidNode final : public ImageNode {
public:
    explicit SolidNode(Bgra color)
        : ImageNode(color[3] == 0 ? Box::empty() : Box::infinite(),
                    color[3] == 255 ? Box::infinite() : Box::empty(),
                    color == Bgra{255, 255, 255, 255} ? Box::infinite() : Box::empty()),
          color_(color) {}
    void render(const cv::Rect&, cv::Mat& destination) const override { fill(destination, color_); }
    NodePointer transformed(const PixelAffine&) const override { return self(); }
    Bgra color() const { return color_; }

private:
    Bgra color_;
};

// ---- Bitmaps -------------------------------------------------------------------------------

class BitmapNode final : public ImageNode {
public:
    BitmapNode(Bitmap bitmap, std::shared_ptr<const std::vector<cv::Mat>> mipmaps, double originX,
               double originY, bool opaque)
        : ImageNode(Box{originX, originY, originX + bitmap.width(), originY + bitmap.height()},
                    opaque
                        ? Box{originX, originY, originX + bitmap.width(), originY + bitmap.height()}
                        : Box::empty()),
          bitmap_(std::move(bitmap)), mipmaps_(std::move(mipmaps)), originX_(originX),
          originY_(originY) {
        pixels_ = cv::Mat(bitmap_.height(), bitmap_.width(), CV_8UC4,
                          const_cast<uint8_t*>(bitmap_.row(0)), bitmap_.stride());
    }

    void render(const cv::Rect& region, cv::Mat& destination) const override {
        const cv::Rect own(static_cast<int>(originX_), static_cast<int>(originY_), pixels_.cols,
                           pixels_.rows);
        const cv::Rect inside = intersect(region, own);
        if (inside != region) {
            destination.setTo(cv::Scalar::all(0));
        }
        if (inside.area() == 0) {
            return;
        }
        cv::Mat part = view(destination, region, inside);
        pixels_(cv::Rect(inside.x - own.x, inside.y - own.y, inside.width, inside.height))
            .copyTo(part);
    }

    cv::Mat storedPixels(const cv::Rect& region) const override {
        if (originX_ != std::floor(originX_) || originY_ != std::floor(originY_)) {
            return {};
        }
        const cv::Rect own(static_cast<int>(originX_), static_cast<int>(originY_), pixels_.cols,
                           pixels_.rows);
        if (region.area() == 0 || intersect(region, own) != region) {
            return {};
        }
        return pixels_(cv::Rect(region.x - own.x, region.y - own.y, region.width, region.height));
    }

    NodePointer transformed(const PixelAffine& t) const override {
        if (t.isIntegerTranslation()) {
            return std::make_shared<BitmapNode>(bitmap_, mipmaps_, originX_ + t.tx, originY_ + t.ty,
                                                !opaque().isEmpty());
        }
        return ImageNode::transformed(t);
    }

    // The level that is at most halved again by a transform of this scale.
    PlacedSource source(double scale) const {
        PlacedSource placed{pixels_, originX_, originY_, 1};
        if (mipmaps_) {
            for (const cv::Mat& level : *mipmaps_) {
                const double size = placed.pixelSize * 2;
                if (scale * size > 1.0) {
                    break;
                }
                placed.pixels = level;
                placed.pixelSize = size;
            }
        }
        return placed;
    }

private:
    Bitmap bitmap_;
    std::shared_ptr<const std::vector<cv::Mat>> mipmaps_;
    cv::Mat pixels_;
    double originX_;
    double originY_;
};

// ---- Rounded rectangles --------------------------------------------------------------------

// How much of each pixel a rounded rectangle covers: exact along the straight sides, from
// the distance to the arc at the corners. Computed for each pixel from its own position, so
// that every piece of a region gets the same values.
class RoundedRectCoverage {
public:
    RoundedRectCoverage(const Box& rect, double radius)
        : rect_(rect),
          radius_(std::clamp(radius, 0.0, std::min(rect.x1 - rect.x0, rect.y1 - rect.y0) / 2)) {}

    // Coverage in 0...256 of the pixel at (x, y), given the sides' shares of its column and row.
    int at(int x, int y, double column, double row) const {
        double coverage = column * row;
        const double cx = x + 0.5;
        const double cy = y + 0.5;
        if (radius_ > 0) {
            const double left = rect_.x0 + radius_;
            const double right = rect_.x1 - radius_;
            const double top = rect_.y0 + radius_;
            const double bottom = rect_.y1 - radius_;
            const bool inCornerColumn = cx < left || cx > right;
            const bool inCornerRow = cy < top || cy > bottom;
            if (inCornerColumn && inCornerRow) {
                const double dx = cx < left ? left - cx : cx - right;
                const double dy = cy < top ? top - cy : cy - bottom;
                const double arc = std::clamp(radius_ - std::hypot(dx, dy) + 0.5, 0.0, 1.0);
                coverage = std::min(coverage, arc);
            }
        }
        return quantizedCoverage(coverage);
    }

    // Coverage 0...1 as 0...256, rounded.
    static int quantizedCoverage(double coverage) { return static_cast<int>(coverage * 256 + 0.5); }

    // The share of the pixel span [p, p + 1] inside [low, high].
    static double share(int p, double low, double high) {
        return std::clamp(std::min(p + 1.0, high) - std::max(static_cast<double>(p), low), 0.0,
                          1.0);
    }

    // The columns [first, last) of row y where the coverage is the row's share alone:
    // whole columns of the straight part, clear of the corners.
    std::pair<int, int> uniformColumns(int y) const {
        const double cy = y + 0.5;
        double left = rect_.x0;
        double right = rect_.x1;
        if (radius_ > 0 && (cy < rect_.y0 + radius_ || cy > rect_.y1 - radius_)) {
            left = rect_.x0 + radius_ + 0.5;
            right = rect_.x1 - radius_ - 0.5;
        }
        const int first = static_cast<int>(std::ceil(std::max(left, rect_.x0)));
        const int last = static_cast<int>(std::floor(std::min(right, rect_.x1)));
        return {first, std::max(first, last)};
    }

    const Box& rect() const { return rect_; }
    double radius() const { return radius_; }

private:
    Box rect_;
    double radius_;
};

class RoundedRectNode final : public ImageNode {
public:
    RoundedRectNode(const Box& rect, double radius, double strokeWidth, Bgra color)
        : ImageNode(strokeWidth > 0 ? rect.grown(strokeWidth / 2) : rect,
                    opaqueInterior(rect, radius, strokeWidth, color),
                    color == Bgra{255, 255, 255, 255}
                        ? opaqueInterior(rect, radius, strokeWidth, color)
                        : Box::empty()),
          rect_(rect),
          radius_(std::clamp(radius, 0.0, std::min(rect.x1 - rect.x0, rect.y1 - rect.y0) / 2)),
          strokeWidth_(strokeWidth), color_(color),
          outer_(strokeWidth > 0 ? rect.grown(strokeWidth / 2) : rect,
                 strokeWidth > 0 ? radius_ + strokeWidth / 2 : radius_),
          inner_(rect.grown(-strokeWidth / 2), std::max(radius_ - strokeWidth / 2, 0.0)) {
        if (strokeWidth > 0 && !inner_.rect().isEmpty()) {
            setClear(shrunkBy(inner_.rect(), inner_.radius() * (1 - M_SQRT1_2) + 1));
        }
    }

    void render(const cv::Rect& region, cv::Mat& destination) const override {
        destination.setTo(cv::Scalar::all(0));
        const cv::Rect touched = intersect(region, extent().outerPixels());
        if (touched.area() == 0) {
            return;
        }
        const bool stroked = strokeWidth_ > 0;
        const Box& o = outer_.rect();
        const Box& i = inner_.rect();
        std::vector<double> outerColumns(static_cast<size_t>(touched.width));
        std::vector<double> innerColumns(static_cast<size_t>(touched.width));
        for (int x = 0; x < touched.width; ++x) {
            outerColumns[static_cast<size_t>(x)] =
                RoundedRectCoverage::share(touched.x + x, o.x0, o.x1);
            innerColumns[static_cast<size_t>(x)] =
                i.isEmpty() ? 0 : RoundedRectCoverage::share(touched.x + x, i.x0, i.x1);
        }
        for (int y = touched.y; y < touched.br().y; ++y) {
            uint8_t* row = destination.ptr<uint8_t>(y - region.y) + 4 * (touched.x - region.x);
            const double outerRow = RoundedRectCoverage::share(y, o.y0, o.y1);
            const double innerRow = i.isEmpty() ? 0 : RoundedRectCoverage::share(y, i.y0, i.y1);
            // Most of a row is one value: fill that run and work out only its two ends.
            auto [first, last] = outer_.uniformColumns(y);
            int uniform = RoundedRectCoverage::quantizedCoverage(outerRow);
            if (stroked && innerRow > 0) {
                const auto [innerFirst, innerLast] = inner_.uniformColumns(y);
                first = std::max(first, innerFirst);
                last = std::min(last, innerLast);
                uniform -= RoundedRectCoverage::quantizedCoverage(innerRow);
            }
            first = std::clamp(first, touched.x, touched.br().x);
            last = std::clamp(last, first, touched.br().x);
            const auto paint = [&](uint8_t* out, int coverage) {
                for (int c = 0; c < 4; ++c) {
                    out[c] = static_cast<uint8_t>(
                        (color_[static_cast<size_t>(c)] * coverage + 128) >> 8);
                }
            };
            if (uniform > 0 && last > first) {
                uint8_t pixel[4];
                paint(pixel, uniform);
                uint8_t* out = row + 4 * (first - touched.x);
                for (int x = first; x < last; ++x, out += 4) {
                    std::memcpy(out, pixel, 4);
                }
            }
            const auto edge = [&](int from, int to) {
                for (int px = from; px < to; ++px) {
                    const auto x = static_cast<size_t>(px - touched.x);
                    int coverage = outer_.at(px, y, outerColumns[x], outerRow);
                    if (stroked && coverage > 0 && innerRow > 0) {
                        coverage -= inner_.at(px, y, innerColumns[x], innerRow);
                    }
                    if (coverage > 0) {
                        paint(row + 4 * x, coverage);
                    }
                }
            };
            edge(touched.x, first);
            edge(last, touched.br().x);
        }
    }

    NodePointer transformed(const PixelAffine& t) const override {
        if (t.isAxisAligned() && std::abs(std::abs(t.a) - std::abs(t.d)) < 1e-12) {
            const double s = std::abs(t.a);
            return roundedRectNode(rect_.transformed(t), radius_ * s, strokeWidth_ * s, color_);
        }
        return ImageNode::transformed(t);
    }

private:
    static Box opaqueInterior(const Box& rect, double radius, double strokeWidth, Bgra color) {
        if (strokeWidth > 0 || color[3] != 255) {
            return Box::empty();
        }
        // The largest axis-aligned box inside the rounded shape, less a pixel of edge.
        const double r =
            std::clamp(radius, 0.0, std::min(rect.x1 - rect.x0, rect.y1 - rect.y0) / 2);
        const Box inner = rect.grown(-(r * (1 - M_SQRT1_2) + 1));
        return inner.isEmpty() ? Box::empty() : inner;
    }

    Box rect_;
    double radius_;
    double strokeWidth_;
    Bgra color_;
    RoundedRectCoverage outer_;
    RoundedRectCoverage inner_;
};

// ---- Crop ----------------------------------------------------------------------------------

class CropNode final : public ImageNode {
public:
    CropNode(NodePointer input, const Box& rect)
        : ImageNode(input->extent().intersection(rect),
                    input->opaque().intersection(boxOf(rect.innerPixels())),
                    input->white().intersection(boxOf(rect.innerPixels()))),
          input_(std::move(input)), rect_(rect) {
        setClear(input_->clear());
    }

    void render(const cv::Rect& region, cv::Mat& destination) const override {
        const cv::Rect outer = extent().outerPixels();
        const cv::Rect inside = intersect(region, outer);
        if (inside.area() == 0) {
            destination.setTo(cv::Scalar::all(0));
            return;
        }
        if (inside != region) {
            destination.setTo(cv::Scalar::all(0));
        }
        {
            cv::Mat part = view(destination, region, inside);
            input_->render(inside, part);
        }
        // Weigh the pixels that the crop's edges cut by the share they keep.
        const auto weigh = [&](int coverage, const cv::Rect& part) {
            if (coverage >= 256 || part.area() == 0) {
                return;
            }
            cv::Mat pixels = view(destination, region, part);
            for (int y = 0; y < pixels.rows; ++y) {
                scaleRow(pixels.ptr<uint8_t>(y), pixels.cols, coverage);
            }
        };
        const Box& e = extent();
        const auto share = [](double fraction) {
            return static_cast<int>(std::lround(std::clamp(fraction, 0.0, 1.0) * 256));
        };
        if (e.x0 > outer.x) {
            weigh(share(outer.x + 1 - e.x0),
                  intersect(inside, {outer.x, outer.y, 1, outer.height}));
        }
        if (e.x1 < outer.br().x) {
            weigh(share(e.x1 - (outer.br().x - 1)),
                  intersect(inside, {outer.br().x - 1, outer.y, 1, outer.height}));
        }
        if (e.y0 > outer.y) {
            weigh(share(outer.y + 1 - e.y0), intersect(inside, {outer.x, outer.y, outer.width, 1}));
        }
        if (e.y1 < outer.br().y) {
            weigh(share(e.y1 - (outer.br().y - 1)),
                  intersect(inside, {outer.x, outer.br().y - 1, outer.width, 1}));
        }
    }

    // Within the whole pixels of the crop the input's own pixels are the crop's.
    cv::Mat storedPixels(const cv::Rect& region) const override {
        if (!boxOf(rect_.innerPixels()).contains(region)) {
            return {};
        }
        return input_->storedPixels(region);
    }

    NodePointer transformed(const PixelAffine& t) const override {
        if (t.isAxisAligned()) {
            return cropNode(input_->transformed(t), rect_.transformed(t));
        }
        return ImageNode::transformed(t);
    }

    const NodePointer& input() const { return input_; }
    const Box& rect() const { return rect_; }

private:
    NodePointer input_;
    Box rect_;
};

// ---- Source-over ---------------------------------------------------------------------------

class OverNode final : public ImageNode {
public:
    OverNode(NodePointer foreground, NodePointer background)
        : ImageNode(foreground->extent().unionWith(background->extent()),
                    largerBox(foreground->opaque(), background->opaque()), foreground->white()),
          foreground_(std::move(foreground)), background_(std::move(background)) {
        setClear(foreground_->clear().intersection(background_->clear()));
    }

    void render(const cv::Rect& region, cv::Mat& destination) const override {
        // Where the foreground is known clear, the background alone is the answer.
        const cv::Rect clear = intersect(region, foreground_->clear().innerPixels());
        if (clear.area() > 0) {
            cv::Mat part = view(destination, region, clear);
            renderClipped(*background_, clear, part);
        }
        for (const cv::Rect& part : subtract(region, clear)) {
            cv::Mat target = view(destination, region, part);
            renderOver(part, target);
        }
    }

    NodePointer transformed(const PixelAffine& t) const override {
        return overNode(foreground_->transformed(t), background_->transformed(t));
    }

private:
    void renderOver(const cv::Rect& region, cv::Mat& destination) const {
        renderClipped(*foreground_, region, destination);
        // Only where the foreground is not known to be opaque can the background show.
        const cv::Rect background = background_->extent().outerPixels();
        for (const cv::Rect& part : subtract(region, foreground_->opaque().innerPixels())) {
            const cv::Rect needed = intersect(part, background);
            if (needed.area() == 0 || background_->clear().contains(needed)) {
                continue;
            }
            const cv::Mat under = background_->rendered(needed);
            cv::Mat target = view(destination, region, needed);
            blendUnder(target, under);
        }
    }

    NodePointer foreground_;
    NodePointer background_;
};

// ---- Clamp ---------------------------------------------------------------------------------

class ClampNode final : public ImageNode {
public:
    explicit ClampNode(NodePointer input)
        : ImageNode(Box::infinite(), Box::empty()), input_(std::move(input)) {}

    const NodePointer& input() const { return input_; }

    void render(const cv::Rect& region, cv::Mat& destination) const override {
        const cv::Rect source = input_->extent().outerPixels();
        const auto clampX = [&](int x) { return std::clamp(x, source.x, source.br().x - 1); };
        const auto clampY = [&](int y) { return std::clamp(y, source.y, source.br().y - 1); };
        const int left = clampX(region.x);
        const int right = clampX(region.br().x - 1);
        const int top = clampY(region.y);
        const int bottom = clampY(region.br().y - 1);
        const cv::Rect core(left, top, right - left + 1, bottom - top + 1);
        const cv::Mat pixels = input_->rendered(core);
        for (int y = 0; y < region.height; ++y) {
            const uint8_t* in = pixels.ptr<uint8_t>(clampY(region.y + y) - top);
            uint8_t* out = destination.ptr<uint8_t>(y);
            for (int x = 0; x < region.width; ++x) {
                std::memcpy(out + 4 * x, in + 4 * (clampX(region.x + x) - left), 4);
            }
        }
    }

private:
    NodePointer input_;
};

// ---- Transform -----------------------------------------------------------------------------

class TransformNode final : public ImageNode {
public:
    TransformNode(NodePointer input, const PixelAffine& transform)
        : ImageNode(input->extent().transformed(transform), inside(input->opaque(), transform),
                    inside(input->white(), transform)),
          input_(std::move(input)), transform_(transform) {
        setClear(inside(input_->clear(), transform_));
    }

    void render(const cv::Rect& region, cv::Mat& destination) const override {
        if (const auto* bitmap = dynamic_cast<const BitmapNode*>(input_.get())) {
            resample(bitmap->source(transform_.linearScale()), transform_, false, region.x,
                     region.y, destination);
            return;
        }
        if (const auto* clamp = dynamic_cast<const ClampNode*>(input_.get())) {
            if (const auto* bitmap = dynamic_cast<const BitmapNode*>(clamp->input().get())) {
                resample(bitmap->source(transform_.linearScale()), transform_, true, region.x,
                         region.y, destination);
                return;
            }
        }
        // Render the input where this region comes from, with room for the filter.
        const PixelAffine inverse = transform_.inverted();
        const double support = std::max(1.0, 1.0 / std::max(transform_.linearScale(), 1e-6)) + 1;
        cv::Rect needed = boxOf(region).transformed(inverse).grown(support).outerPixels();
        needed = intersect(needed, input_->extent().outerPixels());
        if (needed.area() == 0) {
            destination.setTo(cv::Scalar::all(0));
            return;
        }
        const cv::Mat pixels = input_->rendered(needed);
        resample(
            PlacedSource{pixels, static_cast<double>(needed.x), static_cast<double>(needed.y), 1},
            transform_, false, region.x, region.y, destination);
    }

    NodePointer transformed(const PixelAffine& t) const override {
        return transformNode(input_, transform_.then(t));
    }

private:
    // A region known before the transform, less the pixel that sampling may soften.
    static Box inside(const Box& region, const PixelAffine& t) {
        if (!t.isAxisAligned() || region.isEmpty()) {
            return Box::empty();
        }
        const Box box = region.transformed(t).grown(-1);
        return box.isEmpty() ? Box::empty() : box;
    }

    NodePointer input_;
    PixelAffine transform_;
};

// ---- Blurs ---------------------------------------------------------------------------------

// Runs a filter that reaches `reach` pixels. Only the input's pixels within reach of the
// region are rendered; the filter runs over them and the part of the region they reach,
// with zeros beyond, which is exactly what lies there.
template <class Filter>
void renderFiltered(const ImageNode& input, int reach, const cv::Rect& region, cv::Mat& destination,
                    Filter filter) {
    destination.setTo(cv::Scalar::all(0));
    const cv::Rect source = intersect(grow(region, reach), input.extent().outerPixels());
    if (source.area() == 0) {
        return;
    }
    const cv::Rect reached = intersect(region, grow(source, reach));
    const cv::Rect span = reached | source;
    cv::Mat padded(span.size(), CV_8UC4, cv::Scalar::all(0));
    {
        cv::Mat target =
            padded(cv::Rect(source.x - span.x, source.y - span.y, source.width, source.height));
        input.render(source, target);
    }
    cv::Mat filtered;
    filter(padded, filtered);
    cv::Mat out = view(destination, region, reached);
    filtered(cv::Rect(reached.x - span.x, reached.y - span.y, reached.width, reached.height))
        .copyTo(out);
}

Box shrunk(const Box& box, double by) {
    const Box smaller = box.grown(-by);
    return smaller.isEmpty() ? Box::empty() : smaller;
}

class GaussianBlurNode final : public ImageNode {
public:
    GaussianBlurNode(NodePointer input, double sigma)
        : ImageNode(input->extent().grown(std::ceil(3 * sigma)),
                    shrunk(input->opaque(), std::ceil(3 * sigma)),
                    shrunk(input->white(), std::ceil(3 * sigma))),
          input_(std::move(input)), sigma_(sigma), reach_(static_cast<int>(std::ceil(3 * sigma))) {
        setClear(shrunkBy(input_->clear(), reach_));
    }

    void render(const cv::Rect& region, cv::Mat& destination) const override {
        renderFiltered(*input_, reach_, region, destination, [&](const cv::Mat& in, cv::Mat& out) {
            const int size = 2 * reach_ + 1;
            cv::GaussianBlur(in, out, cv::Size(size, size), sigma_, sigma_, cv::BORDER_CONSTANT);
        });
    }

    NodePointer transformed(const PixelAffine& t) const override {
        if (isSimilarity(t)) {
            return gaussianBlurNode(input_->transformed(t), sigma_ * t.linearScale());
        }
        return ImageNode::transformed(t);
    }

private:
    NodePointer input_;
    double sigma_;
    int reach_;
};

class MotionBlurNode final : public ImageNode {
public:
    MotionBlurNode(NodePointer input, double radius, double angle)
        : ImageNode(input->extent().grown(std::ceil(radius) + 1), Box::empty()),
          input_(std::move(input)), reach_(static_cast<int>(std::ceil(radius)) + 1) {
        // A line of samples from -radius to +radius, splatted bilinearly into the kernel.
        const int size = 2 * reach_ + 1;
        kernel_ = cv::Mat::zeros(size, size, CV_32F);
        const double dx = std::cos(angle);
        const double dy = -std::sin(angle); // pixel space runs downwards
        const int samples = std::max(2, static_cast<int>(std::ceil(4 * radius)) + 1);
        for (int i = 0; i < samples; ++i) {
            const double t = -radius + 2 * radius * i / (samples - 1);
            const double x = reach_ + t * dx;
            const double y = reach_ + t * dy;
            const int ix = static_cast<int>(std::floor(x));
            const int iy = static_cast<int>(std::floor(y));
            const double fx = x - ix;
            const double fy = y - iy;
            const auto add = [&](int kx, int ky, double w) {
                if (kx >= 0 && ky >= 0 && kx < size && ky < size) {
                    kernel_.at<float>(ky, kx) += static_cast<float>(w);
                }
            };
            add(ix, iy, (1 - fx) * (1 - fy));
            add(ix + 1, iy, fx * (1 - fy));
            add(ix, iy + 1, (1 - fx) * fy);
            add(ix + 1, iy + 1, fx * fy);
        }
        // Whole-number weights keep the sum exact and the result the same for every region.
        const double total = cv::sum(kernel_)[0];
        for (int y = 0; y < size; ++y) {
            for (int x = 0; x < size; ++x) {
                const auto weight =
                    static_cast<int32_t>(std::lround(kernel_.at<float>(y, x) / total * 65536));
                if (weight > 0) {
                    taps_.push_back({x - reach_, y - reach_, weight});
                }
            }
        }
    }

    void render(const cv::Rect& region, cv::Mat& destination) const override {
        renderFiltered(*input_, reach_, region, destination,
                       [&](const cv::Mat& in, cv::Mat& out) { convolve(in, out); });
    }

private:
    struct Tap {
        int dx;
        int dy;
        int32_t weight;
    };

    // out(p) = sum of weight * in(p + offset) over the taps, with zeros beyond the buffer.
    void convolve(const cv::Mat& in, cv::Mat& out) const {
        out.create(in.size(), CV_8UC4);
        const int width = in.cols * 4;
        std::vector<int32_t> sums(static_cast<size_t>(width));
        for (int y = 0; y < in.rows; ++y) {
            std::fill(sums.begin(), sums.end(), 0);
            for (const Tap& tap : taps_) {
                const int sy = y + tap.dy;
                if (sy < 0 || sy >= in.rows) {
                    continue;
                }
                const uint8_t* row = in.ptr<uint8_t>(sy);
                const int from = std::max(0, -tap.dx) * 4;
                const int to = std::min(in.cols, in.cols - tap.dx) * 4;
                const int shift = tap.dx * 4;
                for (int i = from; i < to; ++i) {
                    sums[static_cast<size_t>(i)] += tap.weight * row[i + shift];
                }
            }
            uint8_t* target = out.ptr<uint8_t>(y);
            for (int i = 0; i < width; ++i) {
                target[i] = static_cast<uint8_t>(
                    std::min(255, (sums[static_cast<size_t>(i)] + 32768) >> 16));
            }
        }
    }

    NodePointer input_;
    int reach_;
    cv::Mat kernel_;
    std::vector<Tap> taps_;
};

// ---- Per-pixel combinations ----------------------------------------------------------------

class ColorMatrixNode final : public ImageNode {
public:
    ColorMatrixNode(NodePointer input, const ColorMatrixCoefficients& matrix)
        : ImageNode(input->extent(), keepsAlpha(matrix) ? input->opaque() : Box::empty()),
          input_(std::move(input)), matrix_(matrix) {
        if (matrix_.rows[0][4] == 0 && matrix_.rows[1][4] == 0 && matrix_.rows[2][4] == 0 &&
            matrix_.rows[3][4] == 0) {
            setClear(input_->clear());
        }
    }

    const NodePointer& input() const { return input_; }
    const ColorMatrixCoefficients& matrix() const { return matrix_; }

    void render(const cv::Rect& region, cv::Mat& destination) const override {
        renderClipped(*input_, region, destination);
        colorMatrix(destination, matrix_);
    }

    NodePointer transformed(const PixelAffine& t) const override {
        return colorMatrixNode(input_->transformed(t), matrix_);
    }

private:
    static bool keepsAlpha(const ColorMatrixCoefficients& m) {
        return m.rows[3][0] == 0 && m.rows[3][1] == 0 && m.rows[3][2] == 0 && m.rows[3][3] == 1 &&
               m.rows[3][4] == 0;
    }

    NodePointer input_;
    ColorMatrixCoefficients matrix_;
};

class BlendWithMaskNode final : public ImageNode {
public:
    BlendWithMaskNode(NodePointer input, NodePointer background, NodePointer mask)
        : ImageNode(input->extent().intersection(mask->extent()).unionWith(background->extent()),
                    largerBox(input->opaque().intersection(mask->white()),
                              input->opaque().intersection(background->opaque()))),
          input_(std::move(input)), background_(std::move(background)), mask_(std::move(mask)) {
        setClear(input_->clear().intersection(background_->clear()));
    }

    void render(const cv::Rect& region, cv::Mat& destination) const override {
        const cv::Rect maskPixels = mask_->extent().outerPixels();
        if (intersect(region, maskPixels).area() == 0 || mask_->clear().contains(region)) {
            renderClipped(*background_, region, destination);
            return;
        }
        // A background that is the input through a colour matrix (a dimmed copy) is made
        // from the input's pixels instead of rendering the input twice; likewise the other
        // way round.
        const auto* dimmedBackground = dynamic_cast<const ColorMatrixNode*>(background_.get());
        const auto* dimmedInput = dynamic_cast<const ColorMatrixNode*>(input_.get());
        const bool backgroundFromInput = dimmedBackground && dimmedBackground->input() == input_;
        const bool inputFromBackground = dimmedInput && dimmedInput->input() == background_;
        cv::Mat under;
        if (inputFromBackground) {
            under.create(region.size(), CV_8UC4);
            renderClipped(*background_, region, under);
            under.copyTo(destination);
            colorMatrix(destination, dimmedInput->matrix());
        } else {
            renderClipped(*input_, region, destination);
        }
        // Where the mask is known white the input stands alone.
        for (const cv::Rect& part : subtract(region, mask_->white().innerPixels())) {
            cv::Mat target = view(destination, region, part);
            cv::Mat partUnder;
            if (inputFromBackground) {
                partUnder = view(under, region, part);
            } else if (backgroundFromInput) {
                target.copyTo(partUnder);
                colorMatrix(partUnder, dimmedBackground->matrix());
            } else {
                partUnder.create(part.size(), CV_8UC4);
                renderClipped(*background_, part, partUnder);
            }
            cv::Mat weights(part.size(), CV_8UC4);
            renderClipped(*mask_, part, weights);
            blendWithMask(target, partUnder, weights);
        }
    }

    NodePointer transformed(const PixelAffine& t) const override {
        return blendWithMaskNode(input_->transformed(t), background_->transformed(t),
                                 mask_->transformed(t));
    }

private:
    NodePointer input_;
    NodePointer background_;
    NodePointer mask_;
};

class SourceOutNode final : public ImageNode {
public:
    SourceOutNode(NodePointer input, NodePointer background)
        : ImageNode(input->extent(), background->extent().intersection(input->opaque()).isEmpty()
                                         ? input->opaque()
                                         : Box::empty()),
          input_(std::move(input)), background_(std::move(background)) {
        setClear(largerBox(input_->clear(), background_->opaque()));
    }

    void render(const cv::Rect& region, cv::Mat& destination) const override {
        // Under an opaque background nothing of the input is left.
        const cv::Rect hidden = intersect(region, background_->opaque().innerPixels());
        if (hidden.area() > 0) {
            view(destination, region, hidden).setTo(cv::Scalar::all(0));
        }
        for (const cv::Rect& part : subtract(region, hidden)) {
            cv::Mat target = view(destination, region, part);
            renderClipped(*input_, part, target);
            const cv::Rect needed = intersect(part, background_->extent().outerPixels());
            if (needed.area() == 0) {
                continue;
            }
            const cv::Mat cover = background_->rendered(needed);
            cv::Mat covered = view(destination, region, needed);
            sourceOut(covered, cover);
        }
    }

    NodePointer transformed(const PixelAffine& t) const override {
        return sourceOutNode(input_->transformed(t), background_->transformed(t));
    }

private:
    NodePointer input_;
    NodePointer background_;
};

class MultiplyNode final : public ImageNode {
public:
    MultiplyNode(NodePointer input, NodePointer background)
        : ImageNode(input->extent().intersection(background->extent()),
                    input->opaque().intersection(background->opaque())),
          input_(std::move(input)), background_(std::move(background)) {
        setClear(largerBox(input_->clear(), background_->clear()));
    }

    void render(const cv::Rect& region, cv::Mat& destination) const override {
        renderClipped(*input_, region, destination);
        cv::Mat other(region.size(), CV_8UC4);
        renderClipped(*background_, region, other);
        multiply(destination, other);
    }

    NodePointer transformed(const PixelAffine& t) const override {
        return multiplyNode(input_->transformed(t), background_->transformed(t));
    }

private:
    NodePointer input_;
    NodePointer background_;
};

// ---- Perspective ---------------------------------------------------------------------------

cv::Point2d project(const cv::Matx33d& h, cv::Point2d p, double* w = nullptr) {
    const double x = h(0, 0) * p.x + h(0, 1) * p.y + h(0, 2);
    const double y = h(1, 0) * p.x + h(1, 1) * p.y + h(1, 2);
    const double z = h(2, 0) * p.x + h(2, 1) * p.y + h(2, 2);
    if (w != nullptr) {
        *w = z;
    }
    return {x / z, y / z};
}

class PerspectiveNode final : public ImageNode {
public:
    PerspectiveNode(NodePointer input, const cv::Matx33d& homography, const Box& extent)
        : ImageNode(extent, Box::empty()), input_(std::move(input)), homography_(homography),
          inverse_(homography.inv()) {}

    void render(const cv::Rect& region, cv::Mat& destination) const override {
        const cv::Rect inputPixels = input_->extent().outerPixels();
        // Where the region comes from; a corner behind the eye means anywhere.
        cv::Rect needed = inputPixels;
        const Box box = boxOf(region);
        constexpr double inf = std::numeric_limits<double>::infinity();
        Box source{inf, inf, -inf, -inf};
        bool bounded = true;
        for (const cv::Point2d corner :
             {cv::Point2d(box.x0, box.y0), cv::Point2d(box.x1, box.y0), cv::Point2d(box.x0, box.y1),
              cv::Point2d(box.x1, box.y1)}) {
            double w = 0;
            const cv::Point2d p = project(inverse_, corner, &w);
            if (!(w > 0) || !std::isfinite(p.x) || !std::isfinite(p.y)) {
                bounded = false;
                break;
            }
            source = {std::min(source.x0, p.x), std::min(source.y0, p.y), std::max(source.x1, p.x),
                      std::max(source.y1, p.y)};
        }
        if (bounded) {
            needed = intersect(source.grown(2).outerPixels(), inputPixels);
        }
        if (needed.area() == 0) {
            destination.setTo(cv::Scalar::all(0));
            return;
        }
        const cv::Mat pixels = input_->rendered(needed);
        resampleProjective(
            PlacedSource{pixels, static_cast<double>(needed.x), static_cast<double>(needed.y), 1},
            inverse_, false, region.x, region.y, destination);
    }

private:
    NodePointer input_;
    cv::Matx33d homography_;
    cv::Matx33d inverse_;
};

std::atomic<int> gThreadCount{0};

} // namespace

// ---- Shared behaviour ----------------------------------------------------------------------

NodePointer ImageNode::transformed(const PixelAffine& transform) const {
    return transformNode(self(), transform);
}

cv::Mat ImageNode::storedPixels(const cv::Rect& /*region*/) const {
    return {};
}

cv::Mat ImageNode::rendered(const cv::Rect& region) const {
    if (cv::Mat stored = storedPixels(region); !stored.empty()) {
        return stored;
    }
    cv::Mat pixels(region.size(), CV_8UC4);
    render(region, pixels);
    return pixels;
}

// ---- Builders ------------------------------------------------------------------------------

NodePointer emptyNode() {
    static const NodePointer empty = std::make_shared<EmptyNode>();
    return empty;
}

NodePointer solidNode(Bgra color) {
    if (color[3] == 0) {
        return emptyNode();
    }
    return std::make_shared<SolidNode>(color);
}

NodePointer bitmapNode(const Bitmap& bitmap, double originX, double originY, bool mipmapped,
                       bool opaque) {
    if (bitmap.empty()) {
        return emptyNode();
    }
    std::shared_ptr<std::vector<cv::Mat>> mipmaps;
    if (mipmapped) {
        mipmaps = std::make_shared<std::vector<cv::Mat>>();
        cv::Mat level(bitmap.height(), bitmap.width(), CV_8UC4, const_cast<uint8_t*>(bitmap.row(0)),
                      bitmap.stride());
        while (level.cols >= 16 && level.rows >= 16) {
            cv::Mat half;
            cv::resize(level, half, cv::Size(level.cols / 2, level.rows / 2), 0, 0, cv::INTER_AREA);
            mipmaps->push_back(half);
            level = half;
        }
    }
    const auto node = std::make_shared<BitmapNode>(bitmap, std::move(mipmaps), 0, 0, opaque);
    return node->transformed(PixelAffine{1, 0, 0, 1, originX, originY});
}

NodePointer roundedRectNode(const Box& rect, double radius, double strokeWidth, Bgra color) {
    if (rect.isEmpty() || color[3] == 0 || rect.isInfinite()) {
        return emptyNode();
    }
    return std::make_shared<RoundedRectNode>(rect, radius, strokeWidth, color);
}

NodePointer cropNode(const NodePointer& input, const Box& rect) {
    const Box kept = input->extent().intersection(rect);
    if (kept.isEmpty()) {
        return emptyNode();
    }
    if (!input->extent().isInfinite() && kept.x0 == input->extent().x0 &&
        kept.y0 == input->extent().y0 && kept.x1 == input->extent().x1 &&
        kept.y1 == input->extent().y1) {
        return input;
    }
    if (const auto* crop = dynamic_cast<const CropNode*>(input.get())) {
        return std::make_shared<CropNode>(crop->input(), crop->rect().intersection(rect));
    }
    return std::make_shared<CropNode>(input, rect);
}

NodePointer overNode(const NodePointer& foreground, const NodePointer& background) {
    if (foreground->extent().isEmpty()) {
        return background;
    }
    if (background->extent().isEmpty()) {
        return foreground;
    }
    const Box& cover = foreground->opaque();
    const Box& under = background->extent();
    if (!cover.isEmpty() && cover.x0 <= under.x0 && cover.y0 <= under.y0 && cover.x1 >= under.x1 &&
        cover.y1 >= under.y1) {
        return foreground;
    }
    return std::make_shared<OverNode>(foreground, background);
}

NodePointer transformNode(const NodePointer& input, const PixelAffine& transform) {
    if (input->extent().isEmpty()) {
        return emptyNode();
    }
    if (transform.isIntegerTranslation() && transform.tx == 0 && transform.ty == 0) {
        return input;
    }
    if (transform.isIntegerTranslation()) {
        if (const auto* bitmap = dynamic_cast<const BitmapNode*>(input.get())) {
            return bitmap->transformed(transform);
        }
    }
    return std::make_shared<TransformNode>(input, transform);
}

NodePointer clampNode(const NodePointer& input) {
    if (input->extent().isEmpty() || input->extent().isInfinite()) {
        return input;
    }
    return std::make_shared<ClampNode>(input);
}

NodePointer gaussianBlurNode(const NodePointer& input, double sigma) {
    if (!(sigma > 0) || input->extent().isEmpty()) {
        return input;
    }
    if (dynamic_cast<const SolidNode*>(input.get()) != nullptr) {
        return input;
    }
    // Wide blurs are made at a reduced scale, where the kernel is a few pixels, and
    // enlarged again: the result is smooth, so nothing is lost.
    constexpr double kDirectSigma = 3.0;
    if (sigma > kDirectSigma) {
        const double factor = std::ceil(sigma / 2.0);
        const PixelAffine down{1 / factor, 0, 0, 1 / factor, 0, 0};
        const PixelAffine up{factor, 0, 0, factor, 0, 0};
        const NodePointer small =
            std::make_shared<GaussianBlurNode>(input->transformed(down), sigma / factor);
        return transformNode(small, up);
    }
    return std::make_shared<GaussianBlurNode>(input, sigma);
}

NodePointer motionBlurNode(const NodePointer& input, double radius, double angle) {
    // An infinite input (an image clamped to its extent) is smeared like any other: only the
    // pixels within reach of the region asked for are rendered.
    if (!(radius > 0) || input->extent().isEmpty()) {
        return input;
    }
    return std::make_shared<MotionBlurNode>(input, radius, angle);
}

NodePointer colorMatrixNode(const NodePointer& input, const ColorMatrixCoefficients& matrix) {
    if (input->extent().isEmpty()) {
        return input;
    }
    return std::make_shared<ColorMatrixNode>(input, matrix);
}

NodePointer blendWithMaskNode(const NodePointer& input, const NodePointer& background,
                              const NodePointer& mask) {
    if (mask->extent().isEmpty()) {
        return background;
    }
    return std::make_shared<BlendWithMaskNode>(input, background, mask);
}

NodePointer sourceOutNode(const NodePointer& input, const NodePointer& background) {
    if (input->extent().isEmpty() || background->extent().isEmpty()) {
        return input;
    }
    return std::make_shared<SourceOutNode>(input, background);
}

NodePointer perspectiveNode(const NodePointer& input, const cv::Matx33d& homography) {
    if (input->extent().isEmpty() || input->extent().isInfinite()) {
        return input;
    }
    const Box e = input->extent();
    constexpr double inf = std::numeric_limits<double>::infinity();
    Box extent{inf, inf, -inf, -inf};
    for (const cv::Point2d corner : {cv::Point2d(e.x0, e.y0), cv::Point2d(e.x1, e.y0),
                                     cv::Point2d(e.x0, e.y1), cv::Point2d(e.x1, e.y1)}) {
        const cv::Point2d p = project(homography, corner);
        if (!std::isfinite(p.x) || !std::isfinite(p.y)) {
            return input;
        }
        extent = {std::min(extent.x0, p.x), std::min(extent.y0, p.y), std::max(extent.x1, p.x),
                  std::max(extent.y1, p.y)};
    }
    if (!(extent.x1 > extent.x0) || !(extent.y1 > extent.y0)) {
        return emptyNode();
    }
    return std::make_shared<PerspectiveNode>(input, homography, extent);
}

NodePointer multiplyNode(const NodePointer& input, const NodePointer& background) {
    if (input->extent().intersection(background->extent()).isEmpty()) {
        return emptyNode();
    }
    return std::make_shared<MultiplyNode>(input, background);
}

// ---- Rendering in bands --------------------------------------------------------------------

void setThreadCount(int count) {
    gThreadCount = std::max(count, 1);
    cv::setNumThreads(gThreadCount);
}

int threadCount() {
    if (gThreadCount == 0) {
        setThreadCount(cv::getNumberOfCPUs());
    }
    return gThreadCount;
}

void renderInBands(const ImageNode& node, const cv::Rect& region, cv::Mat& destination) {
    // Bands small enough that each one's buffers stay in the processor's cache.
    constexpr int kBandHeight = 64;
    const int bands = (region.height + kBandHeight - 1) / kBandHeight;
    const auto renderBand = [&](int band) {
        const int top = band * kBandHeight;
        const int height = std::min(kBandHeight, region.height - top);
        const cv::Rect part(region.x, region.y + top, region.width, height);
        cv::Mat target = destination(cv::Rect(0, top, region.width, height));
        renderClipped(node, part, target);
    };
    if (threadCount() <= 1 || bands <= 1) {
        for (int band = 0; band < bands; ++band) {
            renderBand(band);
        }
        return;
    }
    cv::parallel_for_(
        cv::Range(0, bands),
        [&](const cv::Range& range) {
            for (int band = range.start; band < range.end; ++band) {
                renderBand(band);
            }
        },
        bands);
}

} // namespace orvelle::detail
