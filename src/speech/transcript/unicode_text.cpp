#include "speech/transcript/unicode_text.h"

#include <utf8proc.h>

namespace orvelle {

std::u32string decodeUTF8(std::string_view text) {
    std::u32string result;
    result.reserve(text.size());
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
    auto remaining = static_cast<utf8proc_ssize_t>(text.size());
    while (remaining > 0) {
        utf8proc_int32_t scalar = 0;
        const utf8proc_ssize_t length = utf8proc_iterate(bytes, remaining, &scalar);
        if (length <= 0) {
            result.push_back(U'\uFFFD');
            bytes += 1;
            remaining -= 1;
            continue;
        }
        result.push_back(static_cast<char32_t>(scalar));
        bytes += length;
        remaining -= length;
    }
    return result;
}

void appendUTF8(std::string& text, char32_t scalar) {
    utf8proc_uint8_t buffer[4];
    const utf8proc_ssize_t length =
        utf8proc_encode_char(static_cast<utf8proc_int32_t>(scalar), buffer);
    text.append(reinterpret_cast<const char*>(buffer), static_cast<size_t>(length));
}

std::string encodeUTF8(std::u32string_view scalars) {
    std::string result;
    result.reserve(scalars.size());
    for (const char32_t scalar : scalars) {
        appendUTF8(result, scalar);
    }
    return result;
}

bool isWhitespaceOrNewline(char32_t scalar) {
    if ((scalar >= 0x09 && scalar <= 0x0D) || scalar == 0x85 || scalar == 0x2028 ||
        scalar == 0x2029) {
        return true;
    }
    return scalar <= 0x10FFFF &&
           utf8proc_category(static_cast<utf8proc_int32_t>(scalar)) == UTF8PROC_CATEGORY_ZS;
}

bool isLetterOrDigit(char32_t scalar) {
    if (scalar > 0x10FFFF) {
        return false;
    }
    switch (utf8proc_category(static_cast<utf8proc_int32_t>(scalar))) {
    case UTF8PROC_CATEGORY_LU:
    case UTF8PROC_CATEGORY_LL:
    case UTF8PROC_CATEGORY_LT:
    case UTF8PROC_CATEGORY_LM:
    case UTF8PROC_CATEGORY_LO:
    case UTF8PROC_CATEGORY_ND:
    case UTF8PROC_CATEGORY_NL:
    case UTF8PROC_CATEGORY_NO:
        return true;
    default:
        return false;
    }
}

std::string lowercasedAlphanumerics(std::string_view text) {
    std::string result;
    for (const char32_t scalar : decodeUTF8(text)) {
        if (isLetterOrDigit(scalar)) {
            appendUTF8(result, static_cast<char32_t>(
                                   utf8proc_tolower(static_cast<utf8proc_int32_t>(scalar))));
        }
    }
    return result;
}

size_t scalarCount(std::string_view text) {
    return decodeUTF8(text).size();
}

std::string trimmingWhitespace(std::string_view text) {
    const std::u32string scalars = decodeUTF8(text);
    size_t begin = 0;
    size_t end = scalars.size();
    while (begin < end && isWhitespaceOrNewline(scalars[begin])) {
        ++begin;
    }
    while (end > begin && isWhitespaceOrNewline(scalars[end - 1])) {
        --end;
    }
    return encodeUTF8(std::u32string_view(scalars).substr(begin, end - begin));
}

std::vector<std::string> splitAtWhitespace(std::string_view text) {
    std::vector<std::string> pieces;
    std::string piece;
    for (const char32_t scalar : decodeUTF8(text)) {
        if (isWhitespaceOrNewline(scalar)) {
            if (!piece.empty()) {
                pieces.push_back(std::move(piece));
                piece.clear();
            }
        } else {
            appendUTF8(piece, scalar);
        }
    }
    if (!piece.empty()) {
        pieces.push_back(std::move(piece));
    }
    return pieces;
}

} // namespace orvelle
