#pragma once

// Vector drawing into a bitmap: paths filled or stroked with colours and gradients,
// antialiased. Coordinates run right and down from the top-left corner, in pixels, through
// the current transform. One canvas belongs to one thread.

#include "platform/image/bitmap.h"
#include "platform/image/image_geometry.h"

#include <memory>
#include <vector>

namespace orvelle {

struct GradientStop {
    double offset = 0; // 0...1 along the gradient
    ImageColor color;
};

enum class LineJoin { miter, round, bevel };

class VectorCanvas {
public:
    VectorCanvas(int width, int height); // transparent
    ~VectorCanvas();
    VectorCanvas(const VectorCanvas&) = delete;
    VectorCanvas& operator=(const VectorCanvas&) = delete;

    int width() const;
    int height() const;

    void save();
    void restore();
    void translate(double x, double y);
    void scale(double x, double y);
    void rotate(double radians); // clockwise, the y axis pointing down

    void newPath();
    void moveTo(double x, double y);
    void lineTo(double x, double y);
    void curveTo(double x1, double y1, double x2, double y2, double x3, double y3);
    void arc(double cx, double cy, double radius, double from, double to);
    void closePath();
    void rectangle(double x, double y, double width, double height);
    void roundedRectangle(double x, double y, double width, double height, double radius);
    void ellipse(double cx, double cy, double rx, double ry);

    void setColor(const ImageColor& color);
    void setLinearGradient(ImagePoint from, ImagePoint to, const std::vector<GradientStop>& stops);
    void setRadialGradient(ImagePoint center, double radius,
                           const std::vector<GradientStop>& stops);
    void setLineWidth(double width);
    void setLineJoin(LineJoin join);

    // Each ends the path unless asked to keep it.
    void fill(bool keepPath = false);
    void stroke(bool keepPath = false);
    // Limits later drawing to the current path (until restore()); ends the path.
    void clip();
    // The whole canvas (within the clip) with the current source, at an opacity.
    void paint(double alpha = 1);
    // A bitmap drawn with its top-left corner at (x, y) of the current transform.
    void drawBitmap(const Bitmap& bitmap, double x, double y, double alpha = 1);

    // The pixels drawn so far (a copy; the canvas stays usable).
    Bitmap bitmap() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace orvelle
