#pragma once

#include <chrono>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace orvelle {

// A point in time with millisecond resolution, so that it survives a round trip through
// its ISO 8601 text unchanged.
struct Date {
    std::int64_t millisecondsSince1970 = 0;

    static Date now();
    static Date fromSecondsSince1970(double seconds);
    // The numeric date form of older files: seconds since 2001-01-01T00:00:00Z.
    static Date fromSecondsSinceReferenceDate(double seconds);

    double secondsSince1970() const { return static_cast<double>(millisecondsSince1970) / 1000.0; }
    double secondsSinceReferenceDate() const;

    // "2026-11-21T23:51:27.123Z"
    std::string iso8601() const;
    // Accepts "YYYY-MM-DDTHH:MM:SS[.fraction](Z|±HH:MM|±HHMM)"; absent on anything else.
    static std::optional<Date> parseISO8601(std::string_view text);

    friend auto operator<=>(const Date&, const Date&) = default;
};

// Seconds between 1970-01-01 and 2001-01-01, both UTC.
inline constexpr double kReferenceDateOffsetSeconds = 978307200.0;

} // namespace orvelle
