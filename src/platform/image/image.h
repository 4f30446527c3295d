#pragma once

// A picture described by the operations that make it. Every operation returns a new image
// at once and computes nothing; render() then computes only the pixels of the region asked
// for, in horizontal bands spread over the image threads, and each band only as far as
// each operation can change it. Images are immutable values, cheap to copy and safe to
// share between threads. Pixels are premultiplied BGRA, 8 bits a channel.
//
// Coordinates are those of image_geometry.h: points, origin bottom left, y up.

#include "platform/image/bitmap.h"
#include "platform/image/image_geometry.h"

#include <memory>

namespace orvelle {

namespace detail {
class ImageNode;
}

struct BitmapImageOptions {
    // The caller vouches that every pixel has alpha 255 (decoded video): what lies under
    // the image is then never drawn.
    bool opaque = false;
    // Halved copies are kept for drawing the image much smaller than it is (pointer art).
    bool mipmapped = false;
};

class Image {
public:
    Image(); // empty: transparent everywhere, empty extent

    // A colour without limit.
    static Image color(const ImageColor& color);
    // A bitmap whose bottom-left corner is at `origin`.
    static Image bitmap(const Bitmap& bitmap, ImagePoint origin = {},
                        BitmapImageOptions options = {});
    // A filled rounded rectangle; the radius is limited to half the shorter side.
    static Image roundedRectangle(const ImageRect& rect, double radius, const ImageColor& color);
    // The outline of a rounded rectangle, `width` wide and centred on the outline.
    static Image roundedRectangleStroke(const ImageRect& rect, double radius, double width,
                                        const ImageColor& color);

    ImageRect extent() const;
    bool isEmpty() const;
    bool isInfinite() const;

    // Transparent outside the rectangle; a pixel the edge cuts keeps the part inside it.
    Image cropped(const ImageRect& rect) const;
    // This image over the background (source-over).
    Image composited(const Image& background) const;
    // Extent and content through the transform; sampled once, bilinearly (with proper
    // averaging when made smaller), when the pixels are made.
    Image transformed(const AffineTransform& transform) const;
    // The edge pixels repeated without limit.
    Image clampedToExtent() const;
    // Gaussian blur with this standard deviation in points; the extent grows by 3 sigma.
    // (A blur "radius" in the sense of the renderer's filters is this sigma.)
    Image gaussianBlurred(double sigma) const;
    // Averaged along a line through each point, `radius` to either side, at `angle`
    // (radians, counter-clockwise from the x axis). The extent grows by the radius.
    Image motionBlurred(double radius, double angle) const;
    Image colorMatrixed(const ColorMatrix& matrix) const;
    // This image where the mask is white, the background where it is black (the mask's
    // green channel weighs the two).
    Image blendedWithMask(const Image& background, const Image& mask) const;
    // This image where the background is transparent.
    Image sourceOut(const Image& background) const;
    // The extent's corners mapped to the four points, the content following.
    Image perspectiveTransformed(ImagePoint topLeft, ImagePoint topRight, ImagePoint bottomRight,
                                 ImagePoint bottomLeft) const;
    // The channel-wise product with the background, where both exist.
    Image multiplied(const Image& background) const;

    // The pixels of a region, made now. The region is rounded out to whole points; what
    // lies outside the image is transparent.
    Bitmap render(const ImageRect& region) const;
    // The same into a bitmap of the region's size (whose pixels are all overwritten).
    void render(const ImageRect& region, Bitmap& destination) const;
    // The image made into a bitmap now, over the whole points its (finite) extent touches,
    // so that later renders only copy: for what a cache keeps.
    Image rendered() const;

    const detail::ImageNode* node() const { return node_.get(); }

private:
    explicit Image(std::shared_ptr<const detail::ImageNode> node);
    std::shared_ptr<const detail::ImageNode> node_;
};

// How many threads render() and the filters use, for the whole process; 1 renders on the
// calling thread only. The default is the number of processors.
void setImageThreadCount(int count);
int imageThreadCount();

} // namespace orvelle
