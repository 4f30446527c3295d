#pragma once

// The model's answer is never trusted: the draft is parsed out of free text, repaired where
// the intent is plain, normalised to what YouTube takes, and given chapters of our own when
// the model's are too few.

#include "local_ai/youtube_metadata.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvelle {

namespace YouTubeMetadataDraftParser {

// The balanced top-level {...} spans of a text, in order; braces inside JSON strings (with
// their escapes) do not count.
std::vector<std::string_view> jsonObjectTexts(std::string_view text);

// The last span that decodes as a draft wins. Every field may be missing (it becomes
// empty); a field of the wrong type fails the span. Repairs: trailing commas, a chapter time
// written "1:30" or "90", tags given as one comma-separated text, leading '#' of tags.
// Absent when no span decodes.
std::optional<YouTubeMetadataDraft> parse(std::string_view output);

} // namespace YouTubeMetadataDraftParser

namespace YouTubeMetadataDraftValidator {

inline constexpr std::size_t kTitleCharacters = 100;
inline constexpr std::size_t kDescriptionBytes = 5000;
inline constexpr double kMinimumChapterVideoSeconds = 30.0;
inline constexpr double kMinimumChapterSpacing = 10.0;
inline constexpr std::size_t kMinimumChapterCount = 3;

// Trimmed, then at most 100 characters (grapheme clusters), trimmed again.
std::string normalizedTitle(std::string_view title);
// Trimmed; 5001 bytes or more are cut to 5000 (never inside a character); trimmed again.
std::string normalizedDescription(std::string_view description);
// Each trimmed; empty ones and repeats (compared in lower case) dropped.
std::vector<std::string> normalizedTags(const std::vector<std::string>& tags);
// No chapters under 30 s of video. Otherwise: titled, finite, clamped to the video, sorted;
// the first moved to 0; each later one at least 10 s after the last kept and 10 s before
// the end; fewer than 3 left gives none.
std::vector<YouTubeChapter> normalizedChapters(std::vector<YouTubeChapter> chapters,
                                               double videoDuration);

// Everything above at once.
YouTubeMetadataDraft normalized(const YouTubeMetadataDraft& draft, double videoDuration);

// "0:00 Intro", one line a chapter.
std::vector<std::string> chapterLines(const std::vector<YouTubeChapter>& chapters);
// The description, an empty line and the chapter lines: what is uploaded.
std::string composedDescription(const YouTubeMetadataDraft& draft);

} // namespace YouTubeMetadataDraftValidator

namespace YouTubeMetadataChapterFallback {

// A title for a chapter from the words at that point: the first words of its sentence (at
// most six, 48 bytes), capitalised, without closing punctuation; empty without words.
std::string chapterTitle(const std::vector<ExportTranscriptWord>& words);

// Chapters made from the transcript for a video of at least 30 s; none for a shorter one.
std::vector<YouTubeChapter> chapters(const ExportTranscriptContext& context);

} // namespace YouTubeMetadataChapterFallback

} // namespace orvelle
