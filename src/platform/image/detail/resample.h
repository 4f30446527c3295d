#pragma once

// Resampling a bitmap through a transform, in pixel space (x right, y down, pixel (i, j) of
// a bitmap at origin (ox, oy) covering [ox + i, ox + i + 1] x [oy + j, oy + j + 1]).

#include <opencv2/core.hpp>
#include <opencv2/core/matx.hpp>

namespace orvelle::detail {

// A source bitmap placed in pixel space; a mipmap level covers `pixelSize` units a pixel.
struct PlacedSource {
    cv::Mat pixels;
    double originX = 0;
    double originY = 0;
    double pixelSize = 1;
};

// x' = a x + c y + tx, y' = b x + d y + ty in pixel space.
struct PixelAffine {
    double a = 1, b = 0, c = 0, d = 1, tx = 0, ty = 0;

    PixelAffine then(const PixelAffine& next) const;
    PixelAffine inverted() const;
    cv::Point2d apply(cv::Point2d p) const {
        return {a * p.x + c * p.y + tx, b * p.x + d * p.y + ty};
    }
    bool isAxisAligned() const { return b == 0 && c == 0; }
    bool isIntegerTranslation() const;
    // How much the transform enlarges areas, as a length: sqrt(|det|).
    double linearScale() const;
};

// Fills `destination` (the region at `regionX`, `regionY` of pixel space) with the source
// seen through `transform` (source pixel space to destination pixel space). Outside the
// source is transparent, or its edge pixels repeated with `clampEdges`. Axis-aligned
// transforms are sampled separably with a tent filter (bilinear when enlarging, averaging
// over the footprint when reducing); others bilinearly.
void resample(const PlacedSource& source, const PixelAffine& transform, bool clampEdges,
              int regionX, int regionY, cv::Mat& destination);

// Bilinear sampling through a projective map from destination pixel space to source pixel
// space (row-major 3x3); points behind the eye (w <= 0) are transparent.
void resampleProjective(const PlacedSource& source, const cv::Matx33d& toSource, bool clampEdges,
                        int regionX, int regionY, cv::Mat& destination);

} // namespace orvelle::detail
