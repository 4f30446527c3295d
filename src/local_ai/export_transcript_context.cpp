#include "local_ai/export_transcript_context.h"

#include "project/editor_document.h"
#include "speech/transcript/unicode_text.h"

#include <algorithm>
#include <cmath>

namespace orvelle {

namespace {

const TimelineClipLayout* clipAt(const ResolvedEditTimeline& timeline, double sourceTime) {
    for (const auto& layout : timeline.clipLayouts()) {
        if (sourceTime >= layout.sourceStart.seconds && sourceTime < layout.sourceEnd.seconds) {
            return &layout;
        }
    }
    return nullptr;
}

bool endsSentence(const std::string& text) {
    if (text.empty()) {
        return false;
    }
    const char last = text.back();
    return last == '.' || last == '?' || last == '!';
}

std::string joinedText(const std::vector<ExportTranscriptWord>& words) {
    std::string text;
    for (const auto& word : words) {
        if (!text.empty()) {
            text += ' ';
        }
        text += word.text;
    }
    return text;
}

} // namespace

std::optional<std::pair<double, double>> editedWordSpan(double sourceStart, double sourceEnd,
                                                        const ResolvedEditTimeline& timeline) {
    const double start = std::min(sourceStart, sourceEnd);
    const double end = std::max(sourceStart, sourceEnd);
    const TimelineClipLayout* clip = clipAt(timeline, (start + end) / 2);
    if (clip == nullptr) {
        return std::nullopt;
    }
    const double keptStart = std::max(start, clip->sourceStart.seconds);
    const double keptEnd = std::min(end, clip->sourceEnd.seconds);
    return std::pair{timeline.editTime(SourceTime(keptStart)).seconds,
                     timeline.editTime(SourceTime(keptEnd)).seconds};
}

std::vector<ExportTranscriptWord> editedTranscriptWords(const TranscriptAnalysis& analysis,
                                                        const ResolvedEditTimeline& timeline) {
    std::vector<ExportTranscriptWord> result;
    for (const auto& word : analysis.words) {
        const std::string text = trimmingWhitespace(word.text);
        if (text.empty() || !word.startTime || !word.endTime || !std::isfinite(*word.startTime) ||
            !std::isfinite(*word.endTime)) {
            continue;
        }
        const double sourceStart = std::min(*word.startTime, *word.endTime);
        const double sourceEnd = std::max(*word.startTime, *word.endTime);
        const auto span = editedWordSpan(sourceStart, sourceEnd, timeline);
        if (!span) {
            continue;
        }
        result.push_back({text, span->first, span->second, sourceStart, sourceEnd});
    }
    std::stable_sort(result.begin(), result.end(),
                     [](const auto& a, const auto& b) { return a.start < b.start; });
    return result;
}

std::vector<ExportTranscriptWord> editedTranscriptWords(const TranscriptAnalysis& analysis,
                                                        const EditorProjectState& project) {
    const TimelineState timeline =
        seededTimeline(project.timeline, takeSourceDuration(project.manifest));
    return editedTranscriptWords(analysis, ResolvedEditTimeline(EditTimeline::from(timeline)));
}

namespace ExportTranscriptContextBuilder {

ExportTranscriptContext make(std::vector<ExportTranscriptWord> words, double duration,
                             const Grouping& grouping) {
    std::stable_sort(words.begin(), words.end(),
                     [](const auto& a, const auto& b) { return a.start < b.start; });
    ExportTranscriptContext context;
    context.duration = std::max(0.0, duration);
    std::vector<ExportTranscriptWord> current;
    const auto close = [&] {
        if (current.empty()) {
            return;
        }
        ExportTranscriptChunk chunk;
        chunk.id = static_cast<int>(context.chunks.size());
        chunk.start = current.front().start;
        chunk.end = current.back().end;
        chunk.text = joinedText(current);
        chunk.words = std::move(current);
        context.chunks.push_back(std::move(chunk));
        current.clear();
    };
    for (auto& word : words) {
        if (!current.empty()) {
            const double length = current.back().end - current.front().start;
            const double pause = word.start - current.back().end;
            const bool sentenceBreak =
                endsSentence(current.back().text) && length >= grouping.sentenceSeconds;
            const bool pauseBreak =
                pause >= grouping.pauseSeconds && length >= grouping.minimumSeconds;
            const bool tooLong = word.end - current.front().start > grouping.maximumSeconds;
            if (sentenceBreak || pauseBreak || tooLong) {
                close();
            }
        }
        current.push_back(std::move(word));
    }
    close();
    return context;
}

ExportTranscriptContext make(const TranscriptAnalysis& analysis,
                             const EditorProjectState& project) {
    const TimelineState timeline =
        seededTimeline(project.timeline, takeSourceDuration(project.manifest));
    const ResolvedEditTimeline resolved(EditTimeline::from(timeline));
    return make(editedTranscriptWords(analysis, resolved), resolved.duration());
}

} // namespace ExportTranscriptContextBuilder

} // namespace orvelle
