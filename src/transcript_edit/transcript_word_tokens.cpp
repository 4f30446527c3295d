#include "transcript_edit/transcript_word_tokens.h"

#include "speech/transcript/unicode_text.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <set>

namespace orvelle {

namespace {

constexpr double kLengthSlack = 1e-9;

std::string secondsLabel(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1fs", seconds);
    return text;
}

bool finite(const std::optional<double>& value) {
    return value && std::isfinite(*value);
}

// UTF-16 code units of a UTF-8 text.
int utf16Length(std::string_view text) {
    int length = 0;
    for (const char32_t scalar : decodeUTF8(text)) {
        length += scalar > 0xFFFF ? 2 : 1;
    }
    return length;
}

} // namespace

TranscriptWordParagraphs makeWordParagraphs(const EditorTranscript& transcript) {
    const auto& words = transcript.analysis.words;
    const std::set<int> breaks(transcript.paragraphBreakAfterWordIndices.begin(),
                               transcript.paragraphBreakAfterWordIndices.end());
    TranscriptWordParagraphs paragraphs;
    std::vector<EditorTranscriptWordToken> current;
    for (size_t i = 0; i < words.size(); ++i) {
        const TranscriptWord& word = words[i];
        const int index = static_cast<int>(i);
        EditorTranscriptWordToken token;
        token.id = 2 * index;
        token.text = trimmingWhitespace(word.text);
        token.kind = {EditorTranscriptTokenKind::Case::word, index};
        if (finite(word.startTime) && finite(word.endTime)) {
            token.startTime = std::min(*word.startTime, *word.endTime);
            token.endTime = std::max(*word.startTime, *word.endTime);
        }
        current.push_back(token);
        if (i + 1 < words.size() && token.hasTimes()) {
            const TranscriptWord& next = words[i + 1];
            if (finite(next.startTime) && finite(next.endTime)) {
                const double nextStart = std::min(*next.startTime, *next.endTime);
                const double gap = nextStart - *token.endTime;
                if (gap >= kTranscriptPauseTokenMinimumGap) {
                    EditorTranscriptWordToken pause;
                    pause.id = 2 * index + 1;
                    pause.text = secondsLabel(gap);
                    pause.startTime = token.endTime;
                    pause.endTime = nextStart;
                    pause.kind = {EditorTranscriptTokenKind::Case::pause, index};
                    current.push_back(pause);
                }
            }
        }
        if (breaks.contains(index) && i + 1 < words.size()) {
            paragraphs.push_back(std::move(current));
            current.clear();
        }
    }
    if (!current.empty()) {
        paragraphs.push_back(std::move(current));
    }
    return paragraphs;
}

std::vector<EditorTranscriptWordToken> flattenedTokens(const TranscriptWordParagraphs& paragraphs) {
    std::vector<EditorTranscriptWordToken> tokens;
    for (const auto& paragraph : paragraphs) {
        tokens.insert(tokens.end(), paragraph.begin(), paragraph.end());
    }
    return tokens;
}

std::vector<TimelineSourceOmission> timelineOmissions(const TimelineState& timeline,
                                                      double lastWordEnd) {
    const double total = std::max(timeline.sourceDuration.seconds, lastWordEnd);
    std::vector<TimelineSourceOmission> omissions;
    if (!(total >= kTranscriptMinimumOmission)) {
        return omissions;
    }
    std::vector<TimelineClip> clips = timeline.clips;
    std::stable_sort(clips.begin(), clips.end(),
                     [](const auto& a, const auto& b) { return a.start < b.start; });
    double cursor = 0;
    for (const auto& clip : clips) {
        const double a = std::clamp(clip.start.seconds, 0.0, total);
        const double b = std::clamp(clip.end.seconds, 0.0, total);
        if (a - cursor >= kTranscriptMinimumOmission - kLengthSlack) {
            omissions.push_back({cursor, a});
        }
        cursor = std::max(cursor, b);
    }
    if (total - cursor >= kTranscriptMinimumOmission - kLengthSlack) {
        omissions.push_back({cursor, total});
    }
    return omissions;
}

std::vector<EditorTranscriptCollapsedRange>
mergedCollapsedRanges(std::vector<EditorTranscriptCollapsedRange> ranges) {
    std::stable_sort(ranges.begin(), ranges.end(), [](const auto& a, const auto& b) {
        return a.wordRange.lower < b.wordRange.lower;
    });
    std::vector<EditorTranscriptCollapsedRange> merged;
    for (const auto& range : ranges) {
        if (!merged.empty() && range.wordRange.lower <= merged.back().wordRange.upper + 1) {
            auto& last = merged.back();
            last.wordRange.lower = std::min(last.wordRange.lower, range.wordRange.lower);
            last.wordRange.upper = std::max(last.wordRange.upper, range.wordRange.upper);
            last.sourceStart = std::min(last.sourceStart, range.sourceStart);
            last.sourceEnd = std::max(last.sourceEnd, range.sourceEnd);
        } else {
            merged.push_back(range);
        }
    }
    return merged;
}

std::vector<EditorTranscriptCollapsedRange>
collapsedRanges(const TranscriptWordParagraphs& paragraphs, const TimelineState& timeline,
                const std::vector<EditorTranscriptCollapsedRange>& previous) {
    if (timeline.clips.empty()) {
        return {}; // a timeline never built plays everything once it is seeded
    }
    const auto tokens = flattenedTokens(paragraphs);
    double lastWordEnd = 0;
    for (const auto& token : tokens) {
        if (token.endTime) {
            lastWordEnd = std::max(lastWordEnd, *token.endTime);
        }
    }
    std::vector<EditorTranscriptCollapsedRange> ranges;
    for (const auto& omission : timelineOmissions(timeline, lastWordEnd)) {
        std::optional<TranscriptTokenIDRange> ids;
        for (const auto& token : tokens) {
            if (!token.hasTimes()) {
                continue;
            }
            const double middle = (*token.startTime + *token.endTime) / 2;
            if (middle > omission.sourceStart && middle < omission.sourceEnd) {
                ids = ids ? TranscriptTokenIDRange{std::min(ids->lower, token.id),
                                                   std::max(ids->upper, token.id)}
                          : TranscriptTokenIDRange{token.id, token.id};
            }
        }
        if (!ids) {
            continue;
        }
        EditorTranscriptCollapsedRange range{Uuid::random(), *ids, omission.sourceStart,
                                             omission.sourceEnd};
        for (const auto& existing : previous) {
            if (existing.wordRange == *ids &&
                std::abs(existing.sourceStart - omission.sourceStart) <=
                    kTranscriptMarkerTolerance &&
                std::abs(existing.sourceEnd - omission.sourceEnd) <= kTranscriptMarkerTolerance) {
                range.id = existing.id;
                break;
            }
        }
        ranges.push_back(range);
    }
    return mergedCollapsedRanges(std::move(ranges));
}

std::optional<TranscriptTokenIDRange> TranscriptTextLayout::tokenIDs(int begin, int end) const {
    if (end < begin) {
        std::swap(begin, end);
    }
    std::optional<TranscriptTokenIDRange> ids;
    for (const auto& word : wordRanges) {
        const int from = word.range.location;
        const int to = from + word.range.length;
        const bool touches =
            begin == end ? (from <= begin && begin <= to) : (from < end && begin < to);
        if (!touches) {
            continue;
        }
        ids = ids ? TranscriptTokenIDRange{std::min(ids->lower, word.wordID),
                                           std::max(ids->upper, word.wordID)}
                  : TranscriptTokenIDRange{word.wordID, word.wordID};
        if (begin == end) {
            break;
        }
    }
    return ids;
}

std::string collapsedRangeLabel(const EditorTranscriptCollapsedRange& range) {
    // Word ids are even: the words of [lower, upper] are the even ids in it.
    const int firstWord = (range.wordRange.lower + 1) / 2;
    const int lastWord = range.wordRange.upper / 2;
    const int words = std::max(0, lastWord - firstWord + 1);
    if (words == 0) {
        return "[pause cut]";
    }
    return "[" + std::to_string(words) + (words == 1 ? " word cut]" : " words cut]");
}

TranscriptTextLayout
layoutTranscriptText(const TranscriptWordParagraphs& paragraphs,
                     const std::vector<EditorTranscriptCollapsedRange>& ranges) {
    TranscriptTextLayout layout;
    int position = 0;
    std::set<Uuid> shown;
    const auto append = [&](std::string_view piece) {
        layout.text += piece;
        position += utf16Length(piece);
    };
    for (const auto& paragraph : paragraphs) {
        bool started = false;
        const auto separate = [&] {
            if (!layout.text.empty()) {
                append(started ? " " : "\n\n");
            }
            started = true;
        };
        for (const auto& token : paragraph) {
            const auto range = std::find_if(ranges.begin(), ranges.end(), [&](const auto& r) {
                return r.wordRange.contains(token.id);
            });
            if (range != ranges.end()) {
                if (shown.insert(range->id).second) {
                    separate();
                    const std::string label = collapsedRangeLabel(*range);
                    layout.markerRanges.push_back({range->id, {position, utf16Length(label)}});
                    append(label);
                }
                continue;
            }
            separate();
            const std::string text = token.isPause() ? "[" + token.text + "]" : token.text;
            layout.wordRanges.push_back({token.id, {position, utf16Length(text)}});
            append(text);
        }
    }
    return layout;
}

std::string transcriptCutLink(const TranscriptTokenIDRange& range) {
    return "orvelle-transcript-cut:" + std::to_string(range.lower) + ":" +
           std::to_string(range.upper);
}

std::string transcriptCollapseLink(const Uuid& markerID) {
    return "orvelle-transcript-collapse:" + markerID.string();
}

std::optional<TranscriptActionLink> parseTranscriptActionLink(std::string_view link) {
    constexpr std::string_view cut = "orvelle-transcript-cut:";
    constexpr std::string_view collapse = "orvelle-transcript-collapse:";
    if (link.starts_with(collapse)) {
        if (const auto id = Uuid::parse(link.substr(collapse.size()))) {
            return TranscriptActionLink{std::nullopt, *id};
        }
        return std::nullopt;
    }
    if (!link.starts_with(cut)) {
        return std::nullopt;
    }
    const std::string rest(link.substr(cut.size()));
    int lower = 0;
    int upper = 0;
    char tail = 0;
    if (std::sscanf(rest.c_str(), "%d:%d%c", &lower, &upper, &tail) != 2 || lower > upper ||
        lower < 0) {
        return std::nullopt;
    }
    return TranscriptActionLink{TranscriptTokenIDRange{lower, upper}, std::nullopt};
}

TranscriptTokenIDRange JsonCoder<TranscriptTokenIDRange>::decode(const Json& json,
                                                                 const JsonDecodeContext& context) {
    if (!json.is_array() || json.size() != 2 || !json[0].is_number_integer() ||
        !json[1].is_number_integer()) {
        context.fail("expected [lower, upper], two whole numbers");
    }
    const TranscriptTokenIDRange range{json[0].get<int>(), json[1].get<int>()};
    if (range.lower > range.upper) {
        context.fail("the lower id is above the upper one");
    }
    return range;
}

Json JsonCoder<TranscriptTokenIDRange>::encode(const TranscriptTokenIDRange& range) {
    return Json::array({range.lower, range.upper});
}

Json JsonCoder<EditorTranscriptWordToken>::encode(const EditorTranscriptWordToken& token) {
    Json json = {{"id", token.id},
                 {"text", token.text},
                 {"kind", token.isPause() ? "pause" : "word"},
                 {token.isPause() ? "afterWordIndex" : "index", token.kind.index}};
    json["startTime"] = token.startTime ? Json(*token.startTime) : Json(nullptr);
    json["endTime"] = token.endTime ? Json(*token.endTime) : Json(nullptr);
    return json;
}

Json JsonCoder<EditorTranscriptCollapsedRange>::encode(
    const EditorTranscriptCollapsedRange& range) {
    return {{"id", encodeJson(range.id)},
            {"wordRange", encodeJson(range.wordRange)},
            {"sourceStart", range.sourceStart},
            {"sourceEnd", range.sourceEnd}};
}

} // namespace orvelle
