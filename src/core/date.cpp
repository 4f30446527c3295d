#include "core/date.h"

#include <cmath>
#include <cstdio>

namespace orvelle {

namespace {

// Days from 1970-01-01 to the given civil date (proleptic Gregorian).
std::int64_t daysFromCivil(std::int64_t y, unsigned m, unsigned d) {
    y -= m <= 2 ? 1 : 0;
    const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
    const auto yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<std::int64_t>(doe) - 719468;
}

bool readDigits(std::string_view text, size_t& pos, size_t count, int& out) {
    if (pos + count > text.size()) {
        return false;
    }
    int value = 0;
    for (size_t i = 0; i < count; ++i) {
        const char c = text[pos + i];
        if (c < '0' || c > '9') {
            return false;
        }
        value = value * 10 + (c - '0');
    }
    pos += count;
    out = value;
    return true;
}

bool expect(std::string_view text, size_t& pos, char c) {
    if (pos < text.size() && text[pos] == c) {
        ++pos;
        return true;
    }
    return false;
}

} // namespace

Date Date::now() {
    const auto now = std::chrono::system_clock::now();
    return Date{
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count()};
}

Date Date::fromSecondsSince1970(double seconds) {
    return Date{static_cast<std::int64_t>(std::llround(seconds * 1000.0))};
}

Date Date::fromSecondsSinceReferenceDate(double seconds) {
    return fromSecondsSince1970(seconds + kReferenceDateOffsetSeconds);
}

double Date::secondsSinceReferenceDate() const {
    return secondsSince1970() - kReferenceDateOffsetSeconds;
}

std::string Date::iso8601() const {
    std::int64_t ms = millisecondsSince1970;
    std::int64_t days = ms >= 0 ? ms / 86400000 : -((-ms + 86399999) / 86400000);
    std::int64_t msOfDay = ms - days * 86400000;
    // civil from days
    days += 719468;
    const std::int64_t era = (days >= 0 ? days : days - 146096) / 146097;
    const auto doe = static_cast<unsigned>(days - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    const unsigned d = doy - (153 * mp + 2) / 5 + 1;
    const unsigned m = mp < 10 ? mp + 3 : mp - 9;
    const std::int64_t y = static_cast<std::int64_t>(yoe) + era * 400 + (m <= 2 ? 1 : 0);

    const auto hour = static_cast<int>(msOfDay / 3600000);
    const auto minute = static_cast<int>(msOfDay / 60000 % 60);
    const auto second = static_cast<int>(msOfDay / 1000 % 60);
    const auto milli = static_cast<int>(msOfDay % 1000);
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%04lld-%02u-%02uT%02d:%02d:%02d.%03dZ",
                  static_cast<long long>(y), m, d, hour, minute, second, milli);
    return buffer;
}

std::optional<Date> Date::parseISO8601(std::string_view text) {
    size_t pos = 0;
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    if (!readDigits(text, pos, 4, year) || !expect(text, pos, '-') ||
        !readDigits(text, pos, 2, month) || !expect(text, pos, '-') ||
        !readDigits(text, pos, 2, day)) {
        return std::nullopt;
    }
    if (!(expect(text, pos, 'T') || expect(text, pos, 't') || expect(text, pos, ' '))) {
        return std::nullopt;
    }
    if (!readDigits(text, pos, 2, hour) || !expect(text, pos, ':') ||
        !readDigits(text, pos, 2, minute) || !expect(text, pos, ':') ||
        !readDigits(text, pos, 2, second)) {
        return std::nullopt;
    }
    if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60) {
        return std::nullopt;
    }
    double fraction = 0;
    if (expect(text, pos, '.') || expect(text, pos, ',')) {
        double scale = 0.1;
        const size_t digitsStart = pos;
        while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9') {
            fraction += (text[pos] - '0') * scale;
            scale /= 10;
            ++pos;
        }
        if (pos == digitsStart) {
            return std::nullopt;
        }
    }
    int offsetSeconds = 0;
    if (expect(text, pos, 'Z') || expect(text, pos, 'z')) {
        offsetSeconds = 0;
    } else if (pos < text.size() && (text[pos] == '+' || text[pos] == '-')) {
        const int sign = text[pos] == '-' ? -1 : 1;
        ++pos;
        int offHour = 0, offMinute = 0;
        if (!readDigits(text, pos, 2, offHour)) {
            return std::nullopt;
        }
        expect(text, pos, ':');
        if (!readDigits(text, pos, 2, offMinute) || offHour > 23 || offMinute > 59) {
            return std::nullopt;
        }
        offsetSeconds = sign * (offHour * 3600 + offMinute * 60);
    } else {
        return std::nullopt;
    }
    if (pos != text.size()) {
        return std::nullopt;
    }
    const std::int64_t days =
        daysFromCivil(year, static_cast<unsigned>(month), static_cast<unsigned>(day));
    const std::int64_t seconds = days * 86400 + std::int64_t{hour} * 3600 +
                                 std::int64_t{minute} * 60 + second - offsetSeconds;
    return Date{seconds * 1000 + static_cast<std::int64_t>(std::llround(fraction * 1000.0))};
}

} // namespace orvelle
