#pragma once

// The card's perspective tilt: a rotation out of the stage's plane about the axis at right
// angles to a direction, seen from a finite distance.

#include "core/json.h"

#include <array>

namespace orvelle {

// A 3-D transform of row vectors, (x, y, z, 1) * M, as a compositor applies it: the
// projected point of (x, y) is ((x m11 + y m21) / w, (x m12 + y m22) / w) with
// w = x m14 + y m24 + 1.
struct Transform3D {
    double m11 = 1, m12 = 0, m13 = 0, m14 = 0;
    double m21 = 0, m22 = 1, m23 = 0, m24 = 0;
    double m31 = 0, m32 = 0, m33 = 1, m34 = 0;
    double m41 = 0, m42 = 0, m43 = 0, m44 = 1;

    friend bool operator==(const Transform3D&, const Transform3D&) = default;
};

struct ScreenPerspective {
    // Compass-like with the stage's top as 0 and its right side as 90: the edge of the card
    // this direction points to comes towards the viewer.
    double directionDegrees = 0;
    double angleDegrees = 0;

    bool isZero() const { return directionDegrees == 0 && angleDegrees == 0; }

    // The rotation by angleDegrees about the axis at right angles to the direction, through
    // the card's centre (the origin), with a perspective term of 1 / eyeDistance. With
    // yAxisDown the transform is for coordinates whose y grows downwards (a top-left
    // origin); otherwise y grows upwards. Both give the same picture.
    Transform3D relativeTransform(double eyeDistance, bool yAxisDown) const;

    friend bool operator==(const ScreenPerspective&, const ScreenPerspective&) = default;
};

template <>
struct JsonCoder<ScreenPerspective> {
    static ScreenPerspective decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const ScreenPerspective& value);
};

} // namespace orvelle
