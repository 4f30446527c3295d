#pragma once

// The operations behind Image. Nodes work in pixel space: x right, y down, y = -(stage y),
// so that rows of memory run the same way as y; the flip happens only in image.cpp, where
// stage rectangles and transforms come in.
//
// Each node renders any integer region on request, writing every pixel of it (transparent
// outside its extent), and asks its inputs only for what that region needs. Nodes are
// immutable once made and render from many threads at once.

#include "platform/image/bitmap.h"
#include "platform/image/detail/pixel_kernels.h"
#include "platform/image/detail/resample.h"

#include <opencv2/core.hpp>

#include <limits>
#include <memory>
#include <vector>

namespace orvelle::detail {

// A rectangle of pixel space as its two corners; infinite sides are allowed.
struct Box {
    double x0 = 0, y0 = 0, x1 = 0, y1 = 0;

    static Box infinite() {
        constexpr double inf = std::numeric_limits<double>::infinity();
        return {-inf, -inf, inf, inf};
    }
    static Box empty() { return {0, 0, 0, 0}; }
    bool isEmpty() const { return !(x1 > x0) || !(y1 > y0); }
    bool isInfinite() const;
    Box intersection(const Box& o) const;
    Box unionWith(const Box& o) const;
    Box grown(double d) const { return isEmpty() ? *this : Box{x0 - d, y0 - d, x1 + d, y1 + d}; }
    bool contains(const cv::Rect& r) const {
        return !isEmpty() && x0 <= r.x && y0 <= r.y && x1 >= r.x + r.width && y1 >= r.y + r.height;
    }
    // The whole pixels that the box touches (limited to a sane range when infinite).
    cv::Rect outerPixels() const;
    // The whole pixels that lie entirely inside.
    cv::Rect innerPixels() const;
    Box transformed(const PixelAffine& t) const; // bounding box
};

cv::Rect intersect(const cv::Rect& a, const cv::Rect& b);
cv::Rect grow(const cv::Rect& r, int d);

class ImageNode;
using NodePointer = std::shared_ptr<const ImageNode>;

class ImageNode : public std::enable_shared_from_this<ImageNode> {
public:
    ImageNode(Box extent, Box opaque, Box white = Box::empty())
        : extent_(extent), opaque_(opaque), white_(white) {}
    virtual ~ImageNode() = default;

    const Box& extent() const { return extent_; }
    // A part of the extent known to be fully opaque (may be empty): what lies under it
    // need not be drawn.
    const Box& opaque() const { return opaque_; }
    // A part known to be opaque white: where this image, used as a mask, lets all through.
    const Box& white() const { return white_; }
    // A part known to be fully transparent: nothing there needs drawing.
    const Box& clear() const { return clear_; }

    // Writes every pixel of `region` into `destination` (CV_8UC4, region's size).
    virtual void render(const cv::Rect& region, cv::Mat& destination) const = 0;

    // This node seen through a transform. Operations that commute with transforms pass it
    // to their inputs, so that shapes are drawn at the size they are shown and bitmaps
    // are sampled once; the others wrap themselves in a transform node.
    virtual NodePointer transformed(const PixelAffine& transform) const;

    // The pixels of `region` for reading (what a caller usually wants for an input): a view
    // of the node's own pixels where it holds them as they are, otherwise a new buffer.
    cv::Mat rendered(const cv::Rect& region) const;

    // A view of the pixels this node keeps, when they are exactly its picture over all of
    // `region` (a bitmap at a whole-pixel position); empty otherwise. Read only.
    virtual cv::Mat storedPixels(const cv::Rect& region) const;

protected:
    NodePointer self() const { return shared_from_this(); }
    void setClear(const Box& clear) { clear_ = clear.isEmpty() ? Box::empty() : clear; }

private:
    Box extent_;
    Box opaque_;
    Box white_;
    Box clear_ = Box::empty();
};

// Builders that simplify as they go (an empty input, an identity transform).
NodePointer emptyNode();
NodePointer solidNode(Bgra color);
NodePointer bitmapNode(const Bitmap& bitmap, double originX, double originY, bool mipmapped,
                       bool opaque);
NodePointer roundedRectNode(const Box& rect, double radius, double strokeWidth, Bgra color);
NodePointer cropNode(const NodePointer& input, const Box& rect);
NodePointer overNode(const NodePointer& foreground, const NodePointer& background);
NodePointer transformNode(const NodePointer& input, const PixelAffine& transform);
NodePointer clampNode(const NodePointer& input);
NodePointer gaussianBlurNode(const NodePointer& input, double sigma);
NodePointer motionBlurNode(const NodePointer& input, double radius, double angle);
NodePointer colorMatrixNode(const NodePointer& input, const ColorMatrixCoefficients& matrix);
NodePointer blendWithMaskNode(const NodePointer& input, const NodePointer& background,
                              const NodePointer& mask);
NodePointer sourceOutNode(const NodePointer& input, const NodePointer& background);
// `homography` maps the input's pixel space to the output's (row-major 3x3).
NodePointer perspectiveNode(const NodePointer& input, const cv::Matx33d& homography);
NodePointer multiplyNode(const NodePointer& input, const NodePointer& background);

void setThreadCount(int count);
int threadCount();

// Renders a node over a region into a buffer, in bands over the image threads.
void renderInBands(const ImageNode& node, const cv::Rect& region, cv::Mat& destination);

} // namespace orvelle::detail
