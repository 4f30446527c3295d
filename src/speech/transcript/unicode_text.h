#pragma once

// Small Unicode helpers for transcript text, which is UTF-8 throughout. Malformed bytes
// read as U+FFFD, so no input makes these fail.

#include <string>
#include <string_view>
#include <vector>

namespace orvelle {

std::u32string decodeUTF8(std::string_view text);
std::string encodeUTF8(std::u32string_view scalars);
void appendUTF8(std::string& text, char32_t scalar);

// Blanks of every script plus tab, line and paragraph breaks.
bool isWhitespaceOrNewline(char32_t scalar);

// The text without leading and trailing whitespace and newlines.
std::string trimmingWhitespace(std::string_view text);

// The pieces between runs of whitespace; no piece is empty.
std::vector<std::string> splitAtWhitespace(std::string_view text);

} // namespace orvelle
