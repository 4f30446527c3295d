#pragma once

// Words from the recogniser's tokens. A token whose text begins with a blank or the word
// mark "▁" opens a word; any other token joins the word in progress, so punctuation that
// comes as its own piece stays with the word before it.

#include "speech/transcript/transcript_analysis.h"

#include <string>
#include <string_view>
#include <vector>

namespace orvelle::TranscriptWordBuilder {

std::vector<TranscriptWord> words(const std::vector<TranscriptToken>& tokens);

// The text without its leading blanks and word marks.
std::string stripWordPrefix(std::string_view text);

// Words of a text that came without tokens: split at whitespace, with no times.
std::vector<TranscriptWord> untimedWords(std::string_view text);

} // namespace orvelle::TranscriptWordBuilder
