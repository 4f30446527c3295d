#include "transcript_edit/transcript_captions.h"

#include "core/files.h"
#include "local_ai/export_transcript_context.h"
#include "speech/transcript/unicode_text.h"
#include "timeline/resolved_edit_timeline.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <ranges>

namespace orvelle {

namespace {

size_t joinedLength(const std::vector<std::string>& words, size_t from, size_t to) {
    size_t length = 0;
    for (size_t i = from; i < to; ++i) {
        length += scalarCount(words[i]) + (i > from ? 1 : 0);
    }
    return length;
}

std::string joined(const std::vector<std::string>& words, size_t from, size_t to) {
    std::string text;
    for (size_t i = from; i < to; ++i) {
        text += (i > from ? " " : "") + words[i];
    }
    return text;
}

bool endsSentence(const std::string& text) {
    const std::u32string scalars = decodeUTF8(text);
    for (const char32_t scalar : std::ranges::reverse_view(scalars)) {
        if (isLetterOrDigit(scalar)) {
            return false;
        }
        if (scalar == U'.' || scalar == U'!' || scalar == U'?' || scalar == U'\u2026') {
            return true;
        }
    }
    return false;
}

std::string timestamp(double seconds, char fractionSeparator) {
    const auto total = static_cast<long long>(std::llround(std::max(seconds, 0.0) * 1000));
    char text[32];
    std::snprintf(text, sizeof text, "%02lld:%02lld:%02lld%c%03lld", total / 3600000,
                  total / 60000 % 60, total / 1000 % 60, fractionSeparator, total % 1000);
    return text;
}

std::string cueText(const CaptionCue& cue) {
    std::string text;
    for (const auto& line : cue.lines) {
        text += line + "\n";
    }
    return text;
}

} // namespace

namespace TranscriptCaptions {

std::vector<std::string> lines(const std::vector<std::string>& words, const CaptionLayout& layout) {
    const auto limit = static_cast<size_t>(std::max(layout.maximumLineLength, 1));
    if (words.empty()) {
        return {};
    }
    if (joinedLength(words, 0, words.size()) <= limit) {
        return {joined(words, 0, words.size())};
    }
    if (layout.maximumLines < 2) {
        return {};
    }
    // Two lines, the break where the longer of them is shortest.
    std::optional<size_t> best;
    size_t bestLength = 0;
    for (size_t split = 1; split < words.size(); ++split) {
        const size_t longer =
            std::max(joinedLength(words, 0, split), joinedLength(words, split, words.size()));
        if (longer <= limit && (!best || longer < bestLength)) {
            best = split;
            bestLength = longer;
        }
    }
    if (!best) {
        return {};
    }
    return {joined(words, 0, *best), joined(words, *best, words.size())};
}

std::vector<CaptionCue> cues(const std::vector<ExportTranscriptWord>& words, double editDuration,
                             const CaptionLayout& layout) {
    std::vector<std::vector<const ExportTranscriptWord*>> groups;
    std::vector<const ExportTranscriptWord*> current;
    std::vector<std::string> texts;
    for (const auto& word : words) {
        if (!current.empty()) {
            const auto* previous = current.back();
            std::vector<std::string> extended = texts;
            extended.push_back(word.text);
            const double lengthSoFar = previous->end - current.front()->start;
            const bool breaks =
                lines(extended, layout).empty() ||
                word.end - current.front()->start > layout.maximumDuration ||
                word.start - previous->end >= layout.pauseBreak ||
                (endsSentence(previous->text) && lengthSoFar >= layout.minimumDuration);
            if (breaks) {
                groups.push_back(std::move(current));
                current.clear();
                texts.clear();
            }
        }
        current.push_back(&word);
        texts.push_back(word.text);
    }
    if (!current.empty()) {
        groups.push_back(std::move(current));
    }

    std::vector<CaptionCue> cues;
    for (size_t g = 0; g < groups.size(); ++g) {
        const auto& group = groups[g];
        CaptionCue cue;
        cue.start = group.front()->start;
        cue.end = group.back()->end;
        std::vector<std::string> groupTexts;
        for (const auto* word : group) {
            groupTexts.push_back(word->text);
        }
        cue.lines = lines(groupTexts, layout);
        if (cue.lines.empty()) { // one word longer than a line stands alone
            cue.lines = {joined(groupTexts, 0, groupTexts.size())};
        }
        // Long enough to read, but never over the next cue or past the movie.
        const double limit =
            g + 1 < groups.size() ? groups[g + 1].front()->start : std::max(editDuration, cue.end);
        if (cue.end - cue.start < layout.minimumDuration) {
            cue.end = std::max(cue.end, std::min(cue.start + layout.minimumDuration, limit));
        }
        cue.end = std::min(cue.end, cue.start + layout.maximumDuration);
        if (cue.end > cue.start) {
            cues.push_back(std::move(cue));
        }
    }
    return cues;
}

std::vector<CaptionCue> cues(const EditorTranscript& transcript, const EditorProjectState& project,
                             const CaptionLayout& layout) {
    const TimelineState timeline =
        seededTimeline(project.timeline, takeSourceDuration(project.manifest));
    const ResolvedEditTimeline resolved(EditTimeline::from(timeline));
    return cues(editedTranscriptWords(transcript.analysis, resolved), resolved.duration(), layout);
}

std::string srt(const std::vector<CaptionCue>& cues) {
    std::string text;
    for (size_t i = 0; i < cues.size(); ++i) {
        text += std::to_string(i + 1) + "\n" + timestamp(cues[i].start, ',') + " --> " +
                timestamp(cues[i].end, ',') + "\n" + cueText(cues[i]) + "\n";
    }
    return text;
}

std::string webVTT(const std::vector<CaptionCue>& cues) {
    std::string text = "WEBVTT\n\n";
    for (const auto& cue : cues) {
        text += timestamp(cue.start, '.') + " --> " + timestamp(cue.end, '.') + "\n" +
                cueText(cue) + "\n";
    }
    return text;
}

CaptionFormat formatFor(const std::filesystem::path& url) {
    std::string extension = url.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (extension == ".srt") {
        return CaptionFormat::srt;
    }
    if (extension == ".vtt") {
        return CaptionFormat::webVTT;
    }
    throw Error("Captions are written as .srt or .vtt files, not \"" + url.filename().string() +
                "\".");
}

void write(const std::vector<CaptionCue>& cues, const std::filesystem::path& url) {
    writeFileAtomically(url, formatFor(url) == CaptionFormat::srt ? srt(cues) : webVTT(cues));
}

std::vector<TextClip> burnedInTextClips(const std::vector<CaptionCue>& cues) {
    std::vector<TextClip> clips;
    for (const auto& cue : cues) {
        TextClip clip;
        clip.id = Uuid::random();
        clip.start = EditTime(cue.start);
        clip.end = EditTime(cue.end);
        clip.text.clear();
        for (size_t i = 0; i < cue.lines.size(); ++i) {
            clip.text += (i > 0 ? "\n" : "") + cue.lines[i];
        }
        clip.preset = TextAnimationPreset::rise;
        clip.animationSpeed = 3.0; // in and out quickly: the words are what matter
        clip.alignment = TextBlockAlignment::center;
        clip.size = 1.2;
        clip.lineHeight = 1.25;
        clip.position = {0.5, 0.86};
        clips.push_back(std::move(clip));
    }
    return clips;
}

} // namespace TranscriptCaptions

Json JsonCoder<CaptionCue>::encode(const CaptionCue& cue) {
    return {{"start", cue.start}, {"end", cue.end}, {"lines", cue.lines}};
}

} // namespace orvelle
