#pragma once

// The two clocks of an edit. Source time is the take's own clock; edit time is the clock
// of the finished movie, after cuts and speed changes. They are distinct types so that a
// time of one axis cannot be passed where the other is meant; only ResolvedEditTimeline
// converts between them. In JSON each is a bare number of seconds.

#include "core/json.h"

#include <compare>
#include <functional>

namespace orvelle {

// One frame at 600 units to the second: two instants closer than this are the same
// instant on the source axis.
inline constexpr double kTimelineBoundaryEpsilon = 1.0 / 600.0;

struct SourceTime {
    double seconds = 0;

    constexpr SourceTime() = default;
    constexpr explicit SourceTime(double value) : seconds(value) {}

    friend constexpr auto operator<=>(const SourceTime&, const SourceTime&) = default;
};

struct EditTime {
    double seconds = 0;

    constexpr EditTime() = default;
    constexpr explicit EditTime(double value) : seconds(value) {}

    friend constexpr auto operator<=>(const EditTime&, const EditTime&) = default;
};

// Both clocks share this shape: built from seconds, read as seconds.
template <class T>
concept TimelineTimeValue = requires(T value, double seconds) {
    T(seconds);
    { value.seconds } -> std::convertible_to<double>;
};

template <>
struct JsonCoder<SourceTime> {
    static SourceTime decode(const Json& json, const JsonDecodeContext& context) {
        return SourceTime(decodeJson<double>(json, context));
    }
    static Json encode(SourceTime value) { return value.seconds; }
};

template <>
struct JsonCoder<EditTime> {
    static EditTime decode(const Json& json, const JsonDecodeContext& context) {
        return EditTime(decodeJson<double>(json, context));
    }
    static Json encode(EditTime value) { return value.seconds; }
};

} // namespace orvelle

template <>
struct std::hash<orvelle::SourceTime> {
    size_t operator()(orvelle::SourceTime time) const noexcept {
        return std::hash<double>{}(time.seconds);
    }
};

template <>
struct std::hash<orvelle::EditTime> {
    size_t operator()(orvelle::EditTime time) const noexcept {
        return std::hash<double>{}(time.seconds);
    }
};
