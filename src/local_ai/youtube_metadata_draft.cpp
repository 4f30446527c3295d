#include "local_ai/youtube_metadata_draft.h"

#include "local_ai/youtube_metadata_prompt.h"
#include "speech/transcript/unicode_text.h"

#include <utf8proc.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <set>

namespace orvelle {

namespace {

// A JSON text with commas before a closing bracket removed (outside strings).
std::string withoutTrailingCommas(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    bool inString = false;
    bool escaped = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            escaped = !escaped && c == '\\';
            inString = escaped || c != '"';
            result += c;
            continue;
        }
        if (c == '"') {
            inString = true;
        } else if (c == ',') {
            std::size_t next = i + 1;
            while (next < text.size() && std::isspace(static_cast<unsigned char>(text[next]))) {
                ++next;
            }
            if (next < text.size() && (text[next] == '}' || text[next] == ']')) {
                continue;
            }
        }
        result += c;
    }
    return result;
}

// "90", "90.5", "1:30" or "1:02:03" as seconds.
std::optional<double> secondsFromText(std::string_view text) {
    const std::string trimmed = trimmingWhitespace(text);
    if (trimmed.empty()) {
        return std::nullopt;
    }
    double total = 0;
    std::size_t start = 0;
    int fields = 0;
    while (start <= trimmed.size()) {
        const std::size_t colon = trimmed.find(':', start);
        const std::string field =
            trimmed.substr(start, colon == std::string::npos ? std::string::npos : colon - start);
        if (field.empty() || field.find_first_not_of("0123456789.") != std::string::npos ||
            ++fields > 3) {
            return std::nullopt;
        }
        total = total * 60 + std::stod(field);
        if (colon == std::string::npos) {
            break;
        }
        start = colon + 1;
    }
    return total;
}

class PayloadError {};

std::string stringField(const Json& object, const char* key) {
    if (!object.contains(key) || object[key].is_null()) {
        return {};
    }
    if (!object[key].is_string()) {
        throw PayloadError();
    }
    return object[key].get<std::string>();
}

std::vector<YouTubeChapter> chaptersField(const Json& object) {
    if (!object.contains("chapters") || object["chapters"].is_null()) {
        return {};
    }
    const Json& list = object["chapters"];
    if (!list.is_array()) {
        throw PayloadError();
    }
    std::vector<YouTubeChapter> chapters;
    for (const Json& entry : list) {
        if (!entry.is_object()) {
            throw PayloadError();
        }
        YouTubeChapter chapter;
        chapter.title = stringField(entry, "title");
        // A chapter without a usable time is kept with a time that the validator drops.
        chapter.time = std::nan("");
        if (entry.contains("time")) {
            const Json& time = entry["time"];
            if (time.is_number()) {
                chapter.time = time.get<double>();
            } else if (time.is_string()) {
                chapter.time = secondsFromText(time.get<std::string>()).value_or(std::nan(""));
            } else if (!time.is_null()) {
                throw PayloadError();
            }
        }
        chapters.push_back(std::move(chapter));
    }
    return chapters;
}

std::vector<std::string> tagsField(const Json& object) {
    if (!object.contains("tags") || object["tags"].is_null()) {
        return {};
    }
    const Json& tags = object["tags"];
    std::vector<std::string> result;
    if (tags.is_string()) {
        std::string text = tags.get<std::string>();
        std::size_t start = 0;
        while (start <= text.size()) {
            const std::size_t comma = text.find(',', start);
            result.push_back(
                text.substr(start, comma == std::string::npos ? std::string::npos : comma - start));
            if (comma == std::string::npos) {
                break;
            }
            start = comma + 1;
        }
    } else if (tags.is_array()) {
        for (const Json& tag : tags) {
            if (!tag.is_string()) {
                throw PayloadError();
            }
            result.push_back(tag.get<std::string>());
        }
    } else {
        throw PayloadError();
    }
    for (auto& tag : result) {
        tag = trimmingWhitespace(tag);
        const auto first = tag.find_first_not_of('#');
        tag = first == std::string::npos ? std::string() : tag.substr(first);
    }
    return result;
}

std::optional<YouTubeMetadataDraft> decodePayload(std::string_view text) {
    Json object;
    try {
        object = Json::parse(withoutTrailingCommas(text));
    } catch (const Json::exception&) {
        return std::nullopt;
    }
    if (!object.is_object()) {
        return std::nullopt;
    }
    try {
        return YouTubeMetadataDraft{stringField(object, "title"),
                                    stringField(object, "description"), chaptersField(object),
                                    tagsField(object)};
    } catch (const PayloadError&) {
        return std::nullopt;
    }
}

// Byte offsets where each grapheme cluster of a UTF-8 text begins, and the text's size.
std::vector<std::size_t> graphemeStarts(std::string_view text) {
    std::vector<std::size_t> starts;
    utf8proc_int32_t state = 0;
    utf8proc_int32_t previous = -1;
    std::size_t offset = 0;
    while (offset < text.size()) {
        utf8proc_int32_t scalar = 0;
        auto length =
            utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()) + offset,
                             static_cast<utf8proc_ssize_t>(text.size() - offset), &scalar);
        if (length <= 0) {
            length = 1; // a malformed byte is a character of its own
            scalar = 0xFFFD;
        }
        if (previous < 0 || utf8proc_grapheme_break_stateful(previous, scalar, &state)) {
            starts.push_back(offset);
        }
        previous = scalar;
        offset += static_cast<std::size_t>(length);
    }
    return starts;
}

std::string lowercased(std::string_view text) {
    std::u32string scalars = decodeUTF8(text);
    for (auto& scalar : scalars) {
        scalar = static_cast<char32_t>(utf8proc_tolower(static_cast<utf8proc_int32_t>(scalar)));
    }
    return encodeUTF8(scalars);
}

} // namespace

namespace YouTubeMetadataDraftParser {

std::vector<std::string_view> jsonObjectTexts(std::string_view text) {
    std::vector<std::string_view> spans;
    int depth = 0;
    std::size_t start = 0;
    bool inString = false;
    bool escaped = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            if (escaped) {
                escaped = false;
            } else if (c == '\\') {
                escaped = true;
            } else if (c == '"') {
                inString = false;
            }
            continue;
        }
        if (c == '"' && depth > 0) {
            inString = true;
        } else if (c == '{') {
            if (depth++ == 0) {
                start = i;
            }
        } else if (c == '}' && depth > 0) {
            if (--depth == 0) {
                spans.push_back(text.substr(start, i - start + 1));
            }
        }
    }
    return spans;
}

std::optional<YouTubeMetadataDraft> parse(std::string_view output) {
    const std::string trimmed = trimmingWhitespace(output);
    const auto spans = jsonObjectTexts(trimmed);
    for (auto span = spans.rbegin(); span != spans.rend(); ++span) {
        if (auto draft = decodePayload(*span)) {
            return draft;
        }
    }
    return std::nullopt;
}

} // namespace YouTubeMetadataDraftParser

namespace YouTubeMetadataDraftValidator {

std::string normalizedTitle(std::string_view title) {
    const std::string trimmed = trimmingWhitespace(title);
    const auto starts = graphemeStarts(trimmed);
    if (starts.size() <= kTitleCharacters) {
        return trimmed;
    }
    return trimmingWhitespace(std::string_view(trimmed).substr(0, starts[kTitleCharacters]));
}

std::string normalizedDescription(std::string_view description) {
    const std::string trimmed = trimmingWhitespace(description);
    if (trimmed.size() <= kDescriptionBytes) {
        return trimmed;
    }
    return trimmingWhitespace(utf8Prefix(trimmed, kDescriptionBytes));
}

std::vector<std::string> normalizedTags(const std::vector<std::string>& tags) {
    std::vector<std::string> result;
    std::set<std::string> seen;
    for (const auto& tag : tags) {
        std::string trimmed = trimmingWhitespace(tag);
        if (!trimmed.empty() && seen.insert(lowercased(trimmed)).second) {
            result.push_back(std::move(trimmed));
        }
    }
    return result;
}

std::vector<YouTubeChapter> normalizedChapters(std::vector<YouTubeChapter> chapters,
                                               double videoDuration) {
    if (!std::isfinite(videoDuration) || videoDuration < kMinimumChapterVideoSeconds) {
        return {};
    }
    std::vector<YouTubeChapter> usable;
    for (auto& chapter : chapters) {
        chapter.title = trimmingWhitespace(chapter.title);
        if (chapter.title.empty() || !std::isfinite(chapter.time)) {
            continue;
        }
        chapter.time = std::clamp(chapter.time, 0.0, videoDuration);
        usable.push_back(std::move(chapter));
    }
    std::stable_sort(usable.begin(), usable.end(),
                     [](const auto& a, const auto& b) { return a.time < b.time; });
    std::vector<YouTubeChapter> kept;
    for (auto& chapter : usable) {
        if (kept.empty()) {
            chapter.time = 0;
            kept.push_back(std::move(chapter));
        } else if (chapter.time >= kept.back().time + kMinimumChapterSpacing &&
                   chapter.time <= videoDuration - kMinimumChapterSpacing) {
            kept.push_back(std::move(chapter));
        }
    }
    if (kept.size() < kMinimumChapterCount) {
        return {};
    }
    return kept;
}

YouTubeMetadataDraft normalized(const YouTubeMetadataDraft& draft, double videoDuration) {
    return {normalizedTitle(draft.title), normalizedDescription(draft.description),
            normalizedChapters(draft.chapters, videoDuration), normalizedTags(draft.tags)};
}

std::vector<std::string> chapterLines(const std::vector<YouTubeChapter>& chapters) {
    std::vector<std::string> lines;
    lines.reserve(chapters.size());
    for (const auto& chapter : chapters) {
        lines.push_back(formatChapterTime(chapter.time) + " " + chapter.title);
    }
    return lines;
}

std::string composedDescription(const YouTubeMetadataDraft& draft) {
    std::string text = draft.description;
    if (draft.chapters.empty()) {
        return text;
    }
    text += "\n";
    for (const auto& line : chapterLines(draft.chapters)) {
        text += "\n" + line;
    }
    return text;
}

} // namespace YouTubeMetadataDraftValidator

namespace YouTubeMetadataChapterFallback {

namespace {

constexpr std::size_t kTitleWords = 6;
constexpr std::size_t kTitleBytes = 48;

const ExportTranscriptChunk* chunkAt(const ExportTranscriptContext& context, double time) {
    for (const auto& chunk : context.chunks) {
        if (chunk.end > time) {
            return &chunk;
        }
    }
    return nullptr;
}

std::string titleOr(const ExportTranscriptChunk* chunk, std::string_view fallback) {
    std::string title = chunk == nullptr ? std::string() : chapterTitle(chunk->words);
    return title.empty() ? std::string(fallback) : title;
}

} // namespace

std::string chapterTitle(const std::vector<ExportTranscriptWord>& words) {
    std::string title;
    std::size_t count = 0;
    for (const auto& word : words) {
        const std::string text = trimmingWhitespace(word.text);
        if (text.empty()) {
            continue;
        }
        if (!title.empty() && title.size() + 1 + text.size() > kTitleBytes) {
            break;
        }
        if (!title.empty()) {
            title += ' ';
        }
        title += text;
        const char last = text.back();
        if (++count == kTitleWords || last == '.' || last == '?' || last == '!') {
            break;
        }
    }
    title = std::string(utf8Prefix(title, kTitleBytes));
    while (!title.empty() &&
           std::string_view(".,;:!?-").find(title.back()) != std::string_view::npos) {
        title.pop_back();
    }
    title = trimmingWhitespace(title);
    if (!title.empty() && std::islower(static_cast<unsigned char>(title.front()))) {
        title.front() = static_cast<char>(std::toupper(static_cast<unsigned char>(title.front())));
    }
    return title;
}

std::vector<YouTubeChapter> chapters(const ExportTranscriptContext& context) {
    using namespace YouTubeMetadataDraftValidator;
    const double duration = context.duration;
    if (!std::isfinite(duration) || duration < kMinimumChapterVideoSeconds) {
        return {};
    }
    std::vector<YouTubeChapter> result{{0, titleOr(chunkAt(context, 0), "Intro")}};
    for (const auto& chunk : context.chunks) {
        if (chunk.start >= kMinimumChapterSpacing &&
            chunk.start <= duration - kMinimumChapterSpacing &&
            chunk.start >= result.back().time + kMinimumChapterSpacing) {
            result.push_back({chunk.start, titleOr(&chunk, "Walkthrough")});
        }
    }
    if (result.size() >= kMinimumChapterCount) {
        return result;
    }
    return {{0, result.front().title},
            {duration / 3, "Main walkthrough"},
            {2 * duration / 3, titleOr(chunkAt(context, 2 * duration / 3), "Wrap-up")}};
}

} // namespace YouTubeMetadataChapterFallback

} // namespace orvelle
