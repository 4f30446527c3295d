#pragma once

// Plain geometry of the stage: points, sizes and rectangles in stage points, origin top
// left. In an export one stage point is one output pixel.

#include "core/json.h"

namespace orvelle {

struct Point {
    double x = 0;
    double y = 0;

    friend bool operator==(const Point&, const Point&) = default;
};

struct Size {
    double width = 0;
    double height = 0;

    friend bool operator==(const Size&, const Size&) = default;
};

struct Rect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    double minX() const { return x; }
    double minY() const { return y; }
    double maxX() const { return x + width; }
    double maxY() const { return y + height; }
    Point center() const { return {x + width / 2, y + height / 2}; }

    friend bool operator==(const Rect&, const Rect&) = default;
};

template <>
struct JsonCoder<Point> {
    static Point decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const Point& value);
};

template <>
struct JsonCoder<Size> {
    static Size decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const Size& value);
};

template <>
struct JsonCoder<Rect> {
    static Rect decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const Rect& value);
};

} // namespace orvelle
