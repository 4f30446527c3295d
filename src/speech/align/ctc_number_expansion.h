#pragma once

// Digits to spoken English, so that "$3.50" can be matched against what the timing model
// hears ("three dollars and fifty cents"). Works on lower-cased text.

#include <cstdint>
#include <string>
#include <string_view>

namespace orvelle::CTCNumberExpansion {

// Every number in the text spelt out: cardinals, ordinals ("21st"), years ("1999"), times
// ("10:05"), currency ("$1"), percentages, decimals and numbers inside words ("mp3").
// Text without a decimal digit comes back unchanged.
std::string expandNumbers(std::string_view text);

// "one thousand two hundred thirty four": no "and", no hyphens; "minus " for negatives.
std::string cardinalWords(std::int64_t value);
// "twenty first", "thirtieth", "one hundredth".
std::string ordinalWords(std::int64_t value);
// "zero zero seven": each ASCII digit named; anything else is skipped.
std::string digitWords(std::string_view digits);
// For 1100 to 2099: "nineteen oh five", "nineteen hundred", "two thousand five".
std::string yearWords(std::int64_t year);
// "ten o clock", "ten oh five", "ten thirty".
std::string timeWords(std::int64_t hour, std::int64_t minute);

} // namespace orvelle::CTCNumberExpansion
