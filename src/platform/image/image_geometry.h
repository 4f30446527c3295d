#pragma once

// The plane images live on: stage coordinates in points (one point is one output pixel),
// origin at the bottom left, y up. Rectangles may be infinite (a solid colour, an image
// clamped to its extent).

#include <array>
#include <cmath>
#include <limits>

namespace orvelle {

struct ImagePoint {
    double x = 0;
    double y = 0;

    friend bool operator==(const ImagePoint&, const ImagePoint&) = default;
};

struct ImageRect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    static ImageRect infinite();
    double minX() const { return x; }
    double minY() const { return y; }
    double maxX() const { return x + width; }
    double maxY() const { return y + height; }
    double midX() const { return x + width / 2; }
    double midY() const { return y + height / 2; }
    bool isEmpty() const { return !(width > 0) || !(height > 0); }
    bool isInfinite() const { return std::isinf(width) || std::isinf(height); }
    // Grown by d on every side (shrunk for a negative d).
    ImageRect insetBy(double dx, double dy) const;
    ImageRect intersection(const ImageRect& other) const; // empty when they do not meet
    ImageRect unionWith(const ImageRect& other) const;    // an empty side is ignored
    bool contains(ImagePoint point) const;

    friend bool operator==(const ImageRect&, const ImageRect&) = default;
};

// x' = a x + c y + tx, y' = b x + d y + ty.
struct AffineTransform {
    double a = 1;
    double b = 0;
    double c = 0;
    double d = 1;
    double tx = 0;
    double ty = 0;

    static AffineTransform translation(double x, double y) { return {1, 0, 0, 1, x, y}; }
    static AffineTransform scale(double x, double y) { return {x, 0, 0, y, 0, 0}; }
    static AffineTransform rotation(double radians); // counter-clockwise on a y-up plane
    // First this, then `next`.
    AffineTransform then(const AffineTransform& next) const;
    AffineTransform inverted() const; // the identity for a singular transform
    ImagePoint apply(ImagePoint point) const;
    // The bounding box of the transformed rectangle.
    ImageRect apply(const ImageRect& rect) const;
    bool isIdentity() const { return *this == AffineTransform{}; }

    friend bool operator==(const AffineTransform&, const AffineTransform&) = default;
};

// A colour with straight (not premultiplied) components in 0...1.
struct ImageColor {
    double red = 0;
    double green = 0;
    double blue = 0;
    double alpha = 1;

    static ImageColor clear() { return {0, 0, 0, 0}; }
    static ImageColor black(double alpha = 1) { return {0, 0, 0, alpha}; }
    static ImageColor white(double alpha = 1) { return {1, 1, 1, alpha}; }

    friend bool operator==(const ImageColor&, const ImageColor&) = default;
};

// Each output channel is the dot product of its vector with the input (r, g, b, a), plus
// the bias; computed on straight colour and premultiplied again afterwards.
struct ColorMatrix {
    std::array<double, 4> red{1, 0, 0, 0};
    std::array<double, 4> green{0, 1, 0, 0};
    std::array<double, 4> blue{0, 0, 1, 0};
    std::array<double, 4> alpha{0, 0, 0, 1};
    std::array<double, 4> bias{0, 0, 0, 0};

    // All four channels multiplied by one factor.
    static ColorMatrix multiplying(double factor);

    friend bool operator==(const ColorMatrix&, const ColorMatrix&) = default;
};

} // namespace orvelle
