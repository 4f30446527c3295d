#pragma once

// How far something moved over one 60th of a second, in normalised frame units. Blur is
// measured in this unit whatever the frame rate, so that it does not depend on it.

#include "core/json.h"

#include <cmath>

namespace orvelle {

struct MotionBlurVector {
    double dx = 0;
    double dy = 0;

    double length() const { return std::hypot(dx, dy); }

    friend bool operator==(const MotionBlurVector&, const MotionBlurVector&) = default;
};

template <>
struct JsonCoder<MotionBlurVector> {
    static MotionBlurVector decode(const Json& json, const JsonDecodeContext& context) {
        const JsonObjectReader reader(json, context);
        return {reader.required<double>("dx"), reader.required<double>("dy")};
    }
    static Json encode(const MotionBlurVector& value) {
        return {{"dx", value.dx}, {"dy", value.dy}};
    }
};

} // namespace orvelle
