#include "local_ai/youtube_metadata_prompt.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace orvelle {

namespace {

constexpr std::string_view kSystemPrompt =
    "You write YouTube metadata for edited screen recordings.\n\n"
    "Return only valid JSON that matches the requested schema. Do not include markdown, "
    "comments, or prose outside JSON.\n\n"
    "For revision requests, use the current draft as the starting point. Apply the latest user "
    "instruction, preserve any fields that do not need to change, and return a complete "
    "updated JSON object.\n\n"
    "Chapter markers are the default. Generate chapter markers unless the edited video is too "
    "short for useful YouTube chapters or the transcript is effectively empty. For any video 30 "
    "seconds or longer, try hard to include at least 3 chapters.\n\n"
    "Chapter rules:\n"
    "- The first chapter must start at 0 seconds.\n"
    "- Chapter times must use edited video timestamps.\n"
    "- Chapters must be in increasing order.\n"
    "- Keep chapters at least 10 seconds apart.\n"
    "- Do not put a chapter inside the last 10 seconds unless it is the only accurate "
    "endpoint.\n"
    "- Chapter titles should be short, specific, and useful to a viewer.\n\n"
    "Title and description rules:\n"
    "- Keep the title under 100 characters.\n"
    "- Write a clear description in 1-3 short paragraphs.\n"
    "- Do not include chapter timestamp lines in the description field; chapters belong in the "
    "chapters array.\n"
    "- Tags should be short search phrases, not hashtags.\n"
    "- Do not mention Orvelle unless the transcript is about Orvelle.";

constexpr std::string_view kUserPromptHead =
    "You are writing YouTube metadata for a screen recording.\n\n"
    "Return only valid JSON with this exact shape:\n"
    "{\n"
    "  \"title\": \"A concise useful YouTube title under 100 characters\",\n"
    "  \"description\": \"A clear 1-3 paragraph description. Do not include chapter timestamps "
    "here.\",\n"
    "  \"chapters\": [\n"
    "    { \"time\": 0, \"title\": \"Intro\" }\n"
    "  ],\n"
    "  \"tags\": [\"short tag\", \"another tag\"]\n"
    "}\n\n"
    "Rules:\n"
    "- Use the edited video timestamps, not source timestamps.\n"
    "- Generate chapters unless the video is too short or there is not enough transcript "
    "context.\n"
    "- For videos 30 seconds or longer, include at least 3 chapters whenever possible.\n"
    "- Chapters must start at 0 seconds and be at least 10 seconds apart.\n"
    "- Chapter time values are seconds, so 1:00 is 60 and 3:00 is 180.\n"
    "- Chapter titles should be short, human, and specific.\n"
    "- Tags should be short phrases, not hashtags.\n"
    "- Do not mention Orvelle unless the transcript is about Orvelle.\n\n";

constexpr std::string_view kTimestampedTruncation =
    "\n[Timestamped transcript truncated for local model context.]\n";
constexpr std::string_view kPlainTruncation = "\n[Transcript truncated for local model context.]\n";

std::string cutAt(std::string text, std::size_t limit, std::string_view note) {
    if (text.size() <= limit) {
        return text;
    }
    std::string result(utf8Prefix(text, limit));
    result += note;
    return result;
}

std::string formatSeconds(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", seconds);
    return text;
}

} // namespace

std::string formatChapterTime(double seconds) {
    const long total = std::isfinite(seconds) && seconds > 0 ? std::lround(std::floor(seconds)) : 0;
    char text[32];
    if (total >= 3600) {
        std::snprintf(text, sizeof text, "%ld:%02ld:%02ld", total / 3600, total / 60 % 60,
                      total % 60);
    } else {
        std::snprintf(text, sizeof text, "%ld:%02ld", total / 60, total % 60);
    }
    return text;
}

std::string_view utf8Prefix(std::string_view text, std::size_t limit) {
    if (text.size() <= limit) {
        return text;
    }
    std::size_t end = limit;
    // Step back over continuation bytes to the start of the character that was cut.
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) {
        --end;
    }
    return text.substr(0, end);
}

namespace YouTubeMetadataPromptBuilder {

std::string systemPrompt() {
    return std::string(kSystemPrompt);
}

std::vector<TimestampedTranscriptLine> timestampedLines(const ExportTranscriptContext& context) {
    std::vector<TimestampedTranscriptLine> lines;
    for (const auto& chunk : context.chunks) {
        for (const auto& word : chunk.words) {
            const bool startsLine = lines.empty() ||
                                    word.start - lines.back().end >= kLinePauseSeconds ||
                                    lines.back().end - lines.back().start >= kLineMaximumSeconds;
            if (startsLine) {
                lines.push_back({word.start, word.end, word.text});
            } else {
                auto& line = lines.back();
                line.end = std::max(line.end, word.end);
                line.text += ' ';
                line.text += word.text;
            }
        }
    }
    return lines;
}

std::string timestampedSection(const ExportTranscriptContext& context) {
    std::string text;
    for (const auto& line : timestampedLines(context)) {
        text += "[" + formatChapterTime(line.start) + "] " + line.text + "\n";
        if (text.size() > kTimestampedSectionLimit) {
            break; // the rest would be cut anyway
        }
    }
    return cutAt(std::move(text), kTimestampedSectionLimit, kTimestampedTruncation);
}

std::string plainSection(const ExportTranscriptContext& context) {
    std::string text;
    for (const auto& chunk : context.chunks) {
        if (!text.empty()) {
            text += "\n";
        }
        text += chunk.text;
        if (text.size() > kPlainSectionLimit) {
            break;
        }
    }
    return cutAt(std::move(text), kPlainSectionLimit, kPlainTruncation);
}

std::string userPrompt(const YouTubeMetadataGenerationRequest& request) {
    std::string prompt(kUserPromptHead);
    if (request.instruction.empty()) {
        prompt += "Latest user instruction: Generate the best YouTube title, description, "
                  "chapters, and tags from the transcript.";
    } else {
        prompt += "Latest user instruction:\n" + request.instruction;
    }
    prompt += "\n\n";
    if (request.currentDraft) {
        prompt += "Current draft:\n" + encodeJson(*request.currentDraft).dump(2);
    } else {
        prompt += "Current draft: none.";
    }
    prompt += "\n\n";
    if (request.conversation.empty()) {
        prompt += "Recent revision conversation: none.";
    } else {
        prompt += "Recent revision conversation:";
        const auto& turns = request.conversation;
        const std::size_t first =
            turns.size() > kRecentConversationTurns ? turns.size() - kRecentConversationTurns : 0;
        for (std::size_t i = first; i < turns.size(); ++i) {
            prompt += turns[i].role == YouTubeMetadataConversationTurn::Role::user
                          ? "\nUser: "
                          : "\nAssistant: ";
            prompt += turns[i].text;
        }
    }
    prompt += "\n\nVideo duration: " + formatSeconds(request.context.duration) + " seconds (" +
              formatChapterTime(request.context.duration) + ")";
    prompt += "\n\nTimestamped transcript:\n" + timestampedSection(request.context);
    prompt += "\n\nPlain transcript:\n" + plainSection(request.context);
    return prompt;
}

std::string outputSchema() {
    // Written out rather than built as a Json value, whose keys would come out sorted: the
    // model fills the properties in this order, title first.
    return R"({"type":"object","properties":{)"
           R"("title":{"type":"string"},)"
           R"("description":{"type":"string"},)"
           R"("chapters":{"type":"array","items":{"type":"object","properties":{)"
           R"("time":{"type":"number"},"title":{"type":"string"}},"required":["time","title"]}},)"
           R"("tags":{"type":"array","items":{"type":"string"}}},)"
           R"("required":["title","description","chapters","tags"]})";
}

} // namespace YouTubeMetadataPromptBuilder

} // namespace orvelle
