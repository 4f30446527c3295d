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

// Letters and digits of every script (the Unicode categories L and N).
bool isLetterOrDigit(char32_t scalar);

// The text lower-cased, with only its letters and digits kept: "Don't," gives "dont".
std::string lowercasedAlphanumerics(std::string_view text);

// The number of scalars, as a reader counts characters.
size_t scalarCount(std::string_view text);

// The text without leading and trailing whitespace and newlines.
std::string trimmingWhitespace(std::string_view text);

// The pieces between runs of whitespace; no piece is empty.
std::vector<std::string> splitAtWhitespace(std::string_view text);

} // namespace orvelle
