#include "speech/align/ctc_number_expansion.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>
#include <utf8proc.h>

#include <array>
#include <charconv>
#include <memory>
#include <optional>
#include <stdexcept>
#include <vector>

namespace orvelle::CTCNumberExpansion {

namespace {

constexpr std::array<std::string_view, 20> kOnes{
    "zero",     "one",     "two",     "three",     "four",     "five",    "six",
    "seven",    "eight",   "nine",    "ten",       "eleven",   "twelve",  "thirteen",
    "fourteen", "fifteen", "sixteen", "seventeen", "eighteen", "nineteen"};

constexpr std::array<std::string_view, 10> kTens{"",      "",      "twenty",  "thirty", "forty",
                                                 "fifty", "sixty", "seventy", "eighty", "ninety"};

struct Scale {
    std::uint64_t value;
    std::string_view name;
};

constexpr std::array<Scale, 4> kScales{{
    {1'000'000'000'000ULL, "trillion"},
    {1'000'000'000ULL, "billion"},
    {1'000'000ULL, "million"},
    {1'000ULL, "thousand"},
}};

struct OrdinalException {
    std::string_view cardinal;
    std::string_view ordinal;
};

constexpr std::array<OrdinalException, 7> kOrdinalExceptions{{
    {"one", "first"},
    {"two", "second"},
    {"three", "third"},
    {"five", "fifth"},
    {"eight", "eighth"},
    {"nine", "ninth"},
    {"twelve", "twelfth"},
}};

std::string magnitudeWords(std::uint64_t n) {
    if (n < 20) {
        return std::string(kOnes[n]);
    }
    if (n < 100) {
        std::string words(kTens[n / 10]);
        if (n % 10 != 0) {
            words += " ";
            words += kOnes[n % 10];
        }
        return words;
    }
    if (n < 1000) {
        std::string words = magnitudeWords(n / 100) + " hundred";
        if (n % 100 != 0) {
            words += " " + magnitudeWords(n % 100);
        }
        return words;
    }
    for (const Scale& scale : kScales) {
        if (n >= scale.value) {
            std::string words = magnitudeWords(n / scale.value) + " " + std::string(scale.name);
            if (n % scale.value != 0) {
                words += " " + magnitudeWords(n % scale.value);
            }
            return words;
        }
    }
    return {}; // not reached: every n >= 1000 has a scale
}

// A whole string of ASCII digits as a 64-bit value; absent when empty, not all digits, or
// too large.
std::optional<std::int64_t> parseInteger(std::string_view text) {
    if (text.empty()) {
        return std::nullopt;
    }
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

std::vector<std::string_view> splitDroppingEmpty(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    size_t start = 0;
    while (start <= text.size()) {
        const size_t end = std::min(text.find(separator, start), text.size());
        if (end > start) {
            parts.push_back(text.substr(start, end - start));
        }
        start = end + 1;
    }
    return parts;
}

std::string integerWords(std::string_view text, bool embeddedInWord, bool ordinal) {
    const auto value = parseInteger(text);
    if (!value) {
        return digitWords(text);
    }
    if (ordinal) {
        return ordinalWords(*value);
    }
    if (embeddedInWord && text.size() >= 2) {
        return digitWords(text);
    }
    if (text.size() == 4 && *value >= 1100 && *value <= 2099 && text[0] != '0') {
        return yearWords(*value);
    }
    if (text.size() > 12) {
        return digitWords(text);
    }
    if (text[0] == '0' && text.size() >= 2) {
        return digitWords(text);
    }
    return cardinalWords(*value);
}

std::string pointWords(const std::vector<std::string_view>& parts) {
    std::string words = integerWords(parts[0], false, false);
    for (size_t i = 1; i < parts.size(); ++i) {
        words += " point " + digitWords(parts[i]);
    }
    return words;
}

std::string currencyWords(const std::vector<std::string_view>& parts) {
    if (parts.empty()) {
        return {};
    }
    const bool hasCents = parts.size() == 2 && parts[1].size() == 2 && parseInteger(parts[1]);
    if (parts.size() > 1 && !hasCents) {
        return pointWords(parts) + " dollars";
    }
    std::string words = integerWords(parts[0], false, false);
    words += parseInteger(parts[0]) == 1 ? " dollar" : " dollars";
    if (hasCents) {
        const std::int64_t cents = *parseInteger(parts[1]);
        if (cents > 0) {
            words += " and " + cardinalWords(cents) + (cents == 1 ? " cent" : " cents");
        }
    }
    return words;
}

std::string expandToken(std::string_view match, bool embeddedInWord) {
    std::string token(match);
    for (char& c : token) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    bool currency = false;
    bool percent = false;
    bool ordinal = false;
    if (token.starts_with('$')) {
        currency = true;
        token.erase(0, 1);
    }
    if (token.ends_with('%')) {
        percent = true;
        token.pop_back();
    }
    for (const std::string_view suffix : {"st", "nd", "rd", "th"}) {
        if (token.ends_with(suffix)) {
            ordinal = true;
            token.erase(token.size() - suffix.size());
            break;
        }
    }
    std::erase(token, ',');

    if (token.find(':') != std::string::npos) {
        const auto parts = splitDroppingEmpty(token, ':');
        if (parts.size() == 2) {
            const auto hour = parseInteger(parts[0]);
            const auto minute = parseInteger(parts[1]);
            if (hour && minute) {
                return timeWords(*hour, *minute);
            }
        }
    }

    const auto parts = splitDroppingEmpty(token, '.');
    if (currency) {
        return currencyWords(parts);
    }
    const std::string percentWords = percent ? " percent" : "";
    if (parts.size() == 1) {
        return integerWords(parts[0], embeddedInWord, ordinal) + percentWords;
    }
    if (parts.size() > 1) {
        return pointWords(parts) + percentWords;
    }
    return {};
}

struct PatternDeleter {
    void operator()(pcre2_code* code) const { pcre2_code_free(code); }
};

struct MatchDataDeleter {
    void operator()(pcre2_match_data* data) const { pcre2_match_data_free(data); }
};

// Compiled on first use and kept for the life of the process; a compiled pattern may be
// shared between threads, match data may not.
const pcre2_code* numberPattern() {
    static const std::unique_ptr<pcre2_code, PatternDeleter> pattern = [] {
        static constexpr std::string_view kPattern =
            R"(\$?\d+(?:,\d{3})*(?::\d{2})?(?:\.\d+)*(?:st|nd|rd|th)?%?)";
        int error = 0;
        PCRE2_SIZE errorOffset = 0;
        pcre2_code* code = pcre2_compile(
            reinterpret_cast<PCRE2_SPTR>(kPattern.data()), kPattern.size(),
            PCRE2_UTF | PCRE2_UCP | PCRE2_MATCH_INVALID_UTF, &error, &errorOffset, nullptr);
        if (code == nullptr) {
            throw std::logic_error("the number pattern does not compile");
        }
        pcre2_jit_compile(code, PCRE2_JIT_COMPLETE); // interpreted when JIT is unavailable
        return std::unique_ptr<pcre2_code, PatternDeleter>(code);
    }();
    return pattern.get();
}

// The scalar that ends just before `offset`, or absent at the start or on broken bytes.
std::optional<char32_t> scalarBefore(std::string_view text, size_t offset) {
    size_t start = offset;
    while (start > 0 && offset - start < 4) {
        --start;
        if ((static_cast<unsigned char>(text[start]) & 0xC0) != 0x80) {
            break;
        }
    }
    if (start == offset) {
        return std::nullopt;
    }
    utf8proc_int32_t scalar = -1;
    const auto length =
        utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data() + start),
                         static_cast<utf8proc_ssize_t>(offset - start), &scalar);
    if (length != static_cast<utf8proc_ssize_t>(offset - start) || scalar < 0) {
        return std::nullopt;
    }
    return static_cast<char32_t>(scalar);
}

std::optional<char32_t> scalarAt(std::string_view text, size_t offset) {
    if (offset >= text.size()) {
        return std::nullopt;
    }
    utf8proc_int32_t scalar = -1;
    const auto length =
        utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data() + offset),
                         static_cast<utf8proc_ssize_t>(text.size() - offset), &scalar);
    if (length <= 0 || scalar < 0) {
        return std::nullopt;
    }
    return static_cast<char32_t>(scalar);
}

// A letter in the sense of one UTF-16 unit: scalars beyond the basic plane are surrogate
// pairs there, and a surrogate is no letter.
bool isLetterUnit(std::optional<char32_t> scalar) {
    if (!scalar || *scalar > 0xFFFF) {
        return false;
    }
    switch (utf8proc_category(static_cast<utf8proc_int32_t>(*scalar))) {
    case UTF8PROC_CATEGORY_LU:
    case UTF8PROC_CATEGORY_LL:
    case UTF8PROC_CATEGORY_LT:
    case UTF8PROC_CATEGORY_LM:
    case UTF8PROC_CATEGORY_LO:
    case UTF8PROC_CATEGORY_MN:
    case UTF8PROC_CATEGORY_MC:
    case UTF8PROC_CATEGORY_ME:
        return true;
    default:
        return false;
    }
}

bool containsDecimalDigit(std::string_view text) {
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
    auto remaining = static_cast<utf8proc_ssize_t>(text.size());
    while (remaining > 0) {
        utf8proc_int32_t scalar = -1;
        utf8proc_ssize_t length = utf8proc_iterate(bytes, remaining, &scalar);
        if (length <= 0) {
            length = 1;
        } else if (utf8proc_category(scalar) == UTF8PROC_CATEGORY_ND) {
            return true;
        }
        bytes += length;
        remaining -= length;
    }
    return false;
}

} // namespace

std::string cardinalWords(std::int64_t value) {
    if (value < 0) {
        // The magnitude of the most negative value does not fit a signed 64-bit integer.
        const std::uint64_t magnitude = static_cast<std::uint64_t>(-(value + 1)) + 1;
        return "minus " + magnitudeWords(magnitude);
    }
    return magnitudeWords(static_cast<std::uint64_t>(value));
}

std::string ordinalWords(std::int64_t value) {
    std::string words = cardinalWords(value);
    const size_t lastStart = words.rfind(' ') == std::string::npos ? 0 : words.rfind(' ') + 1;
    const std::string_view last = std::string_view(words).substr(lastStart);
    for (const auto& exception : kOrdinalExceptions) {
        if (last == exception.cardinal) {
            return words.substr(0, lastStart) + std::string(exception.ordinal);
        }
    }
    if (last.ends_with('y')) {
        words.pop_back();
        return words + "ieth";
    }
    return words + "th";
}

std::string digitWords(std::string_view digits) {
    std::string words;
    for (const char c : digits) {
        if (c < '0' || c > '9') {
            continue;
        }
        if (!words.empty()) {
            words += ' ';
        }
        words += kOnes[static_cast<size_t>(c - '0')];
    }
    return words;
}

std::string yearWords(std::int64_t year) {
    if (year >= 2000 && year <= 2009) {
        return year == 2000 ? "two thousand" : "two thousand " + cardinalWords(year % 10);
    }
    const std::int64_t century = year / 100;
    const std::int64_t rest = year % 100;
    if (rest == 0) {
        return cardinalWords(century) + " hundred";
    }
    if (rest >= 1 && rest <= 9) {
        return cardinalWords(century) + " oh " + cardinalWords(rest);
    }
    return cardinalWords(century) + " " + cardinalWords(rest);
}

std::string timeWords(std::int64_t hour, std::int64_t minute) {
    if (minute == 0) {
        return cardinalWords(hour) + " o clock";
    }
    if (minute >= 1 && minute <= 9) {
        return cardinalWords(hour) + " oh " + cardinalWords(minute);
    }
    return cardinalWords(hour) + " " + cardinalWords(minute);
}

std::string expandNumbers(std::string_view text) {
    if (!containsDecimalDigit(text)) {
        return std::string(text);
    }
    const pcre2_code* pattern = numberPattern();
    const std::unique_ptr<pcre2_match_data, MatchDataDeleter> match(
        pcre2_match_data_create_from_pattern(pattern, nullptr));
    std::string result;
    result.reserve(text.size() * 2);
    size_t offset = 0;
    while (offset < text.size()) {
        const int found = pcre2_match(pattern, reinterpret_cast<PCRE2_SPTR>(text.data()),
                                      text.size(), offset, 0, match.get(), nullptr);
        if (found < 0) {
            break;
        }
        const PCRE2_SIZE* range = pcre2_get_ovector_pointer(match.get());
        const size_t start = range[0];
        const size_t end = range[1];
        result.append(text.substr(offset, start - offset));
        const bool before = isLetterUnit(scalarBefore(text, start));
        const bool after = isLetterUnit(scalarAt(text, end));
        const std::string expansion = expandToken(text.substr(start, end - start), before || after);
        if (!expansion.empty()) {
            if (before) {
                result += ' ';
            }
            result += expansion;
            if (after) {
                result += ' ';
            }
        }
        offset = end; // a match holds at least one digit, so this always moves on
    }
    if (offset < text.size()) {
        result.append(text.substr(offset));
    }
    return result;
}

} // namespace orvelle::CTCNumberExpansion
