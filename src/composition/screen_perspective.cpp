#include "composition/screen_perspective.h"

#include <cmath>
#include <numbers>

namespace orvelle {

Transform3D ScreenPerspective::relativeTransform(double eyeDistance, bool yAxisDown) const {
    constexpr double kRadians = std::numbers::pi / 180;
    const double d = directionDegrees * kRadians;
    const double theta = angleDegrees * kRadians;
    // With y up the direction is (sin d, cos d); the axis is that turned a quarter clockwise.
    const double ax = std::cos(d);
    const double ay = -std::sin(d);
    const double c = std::cos(theta);
    const double s = std::sin(theta);
    const double perspective = eyeDistance != 0 ? -1 / eyeDistance : 0;

    Transform3D m;
    m.m11 = c + (1 - c) * ax * ax;
    m.m12 = (1 - c) * ax * ay;
    m.m13 = -s * ay;
    m.m21 = (1 - c) * ax * ay;
    m.m22 = c + (1 - c) * ay * ay;
    m.m23 = s * ax;
    m.m31 = s * ay;
    m.m32 = -s * ax;
    m.m33 = c;
    // The rotation followed by the projection: w picks up z / eyeDistance.
    m.m14 = m.m13 * perspective;
    m.m24 = m.m23 * perspective;
    m.m34 = m.m33 * perspective;
    if (yAxisDown) {
        // Conjugate by the flip of y: every term that mixes y with another axis changes sign.
        m.m12 = -m.m12;
        m.m21 = -m.m21;
        m.m23 = -m.m23;
        m.m32 = -m.m32;
        m.m24 = -m.m24;
        m.m42 = -m.m42;
    }
    return m;
}

ScreenPerspective JsonCoder<ScreenPerspective>::decode(const Json& json,
                                                       const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    return {reader.required<double>("directionDegrees"), reader.required<double>("angleDegrees")};
}

Json JsonCoder<ScreenPerspective>::encode(const ScreenPerspective& value) {
    return {{"directionDegrees", value.directionDegrees}, {"angleDegrees", value.angleDegrees}};
}

} // namespace orvelle
