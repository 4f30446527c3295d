#pragma once

// What the local model is told: the fixed system prompt, the user prompt built from the
// request (instruction, current draft, conversation, duration and the transcript twice,
// with times and plain), and the JSON schema its answer must follow.

#include "local_ai/youtube_metadata.h"

#include <string>
#include <string_view>
#include <vector>

namespace orvelle {

namespace YouTubeMetadataPromptBuilder {

inline constexpr double kLineMaximumSeconds = 12.0;
inline constexpr double kLinePauseSeconds = 5.0;
inline constexpr std::size_t kTimestampedSectionLimit = 96000; // bytes
inline constexpr std::size_t kPlainSectionLimit = 64000;       // bytes
inline constexpr std::size_t kRecentConversationTurns = 8;

std::string systemPrompt();
std::string userPrompt(const YouTubeMetadataGenerationRequest& request);

// Words grouped into lines that end at 12 s of length or before a pause of 5 s or more.
std::vector<TimestampedTranscriptLine> timestampedLines(const ExportTranscriptContext& context);
// "[m:ss] text" a line, cut at 96000 bytes with a note saying so.
std::string timestampedSection(const ExportTranscriptContext& context);
// All chunk text, cut at 64000 bytes with a note saying so.
std::string plainSection(const ExportTranscriptContext& context);

// The schema given to --json-schema: title, description, chapters (time, title) and tags,
// all required.
std::string outputSchema();

} // namespace YouTubeMetadataPromptBuilder

// "m:ss", or "h:mm:ss" from one hour up; negative and non-finite times read as 0.
std::string formatChapterTime(double seconds);

// The text cut to at most `limit` bytes without splitting a UTF-8 character.
std::string_view utf8Prefix(std::string_view text, std::size_t limit);

} // namespace orvelle
