#pragma once

// The plain-text and JSON sidecars of a transcript, beside the file they describe:
// "<folder>/<name>.<ext>" has "<folder>/<name>.transcript.txt" and
// "<folder>/<name>.transcript.json". Both are written by atomic replace, creating the folder
// when needed; file errors pass on as FileError.

#include "speech/transcript/transcript_analysis.h"

#include <filesystem>
#include <string_view>

namespace orvelle::TranscriptOutputWriter {

std::filesystem::path defaultTextOutputURL(const std::filesystem::path& url);
std::filesystem::path defaultJSONOutputURL(const std::filesystem::path& url);

// The text trimmed of whitespace and newlines, with one newline at the end.
void writePlainText(std::string_view text, const std::filesystem::path& to);
void writeJSON(const TranscriptAnalysis& analysis, const std::filesystem::path& to);

} // namespace orvelle::TranscriptOutputWriter
