#include "transcript_edit/transcript_text_editing.h"

#include "core/cancellation.h"
#include "core/log.h"
#include "local_ai/export_transcript_context.h"
#include "speech/transcript/recording_transcription_service.h"
#include "timeline/resolved_edit_timeline.h"
#include "timeline_media/voice_activity_detector.h"
#include "timeline_media/waveform_extractor.h"

#include <algorithm>

namespace orvelle {

namespace {

// The timeline as the editor plays it: one never built plays the whole source.
ResolvedEditTimeline resolved(const TimelineState& timeline, double lastWordEnd) {
    return ResolvedEditTimeline(EditTimeline::from(seededTimeline(
        timeline, SourceTime(std::max(timeline.sourceDuration.seconds, lastWordEnd)))));
}

double lastWordEnd(const std::vector<EditorTranscriptWordToken>& tokens) {
    double end = 0;
    for (const auto& token : tokens) {
        if (token.endTime) {
            end = std::max(end, *token.endTime);
        }
    }
    return end;
}

} // namespace

TranscriptTimelineEditing::TranscriptTimelineEditing(
    EditorTranscript transcript, std::optional<TranscriptSpliceEnergyProfile> energy)
    : transcript_(std::move(transcript)), paragraphs_(makeWordParagraphs(transcript_)),
      tokens_(flattenedTokens(paragraphs_)), energy_(std::move(energy)) {}

std::optional<TranscriptSpliceContext>
TranscriptTimelineEditing::spliceContext(const TranscriptTokenIDRange& range,
                                         const TimelineState& timeline) const {
    return orvelle::spliceContext(paragraphs_, range, timeline.sourceDuration.seconds);
}

std::optional<TranscriptSourceRange>
TranscriptTimelineEditing::deletionRange(const TranscriptTokenIDRange& range,
                                         const TimelineState& timeline) const {
    const auto context = spliceContext(range, timeline);
    if (!context) {
        return std::nullopt;
    }
    return TranscriptTimelineEditPolicy::deletionRange(*context, energy_ ? &*energy_ : nullptr,
                                                       kMinimumCutDuration);
}

std::vector<EditorTranscriptCollapsedRange> TranscriptTimelineEditing::collapsedRanges(
    const TimelineState& timeline,
    const std::vector<EditorTranscriptCollapsedRange>& previous) const {
    return orvelle::collapsedRanges(paragraphs_, timeline, previous);
}

std::vector<TranscriptTokenEditTime>
TranscriptTimelineEditing::editTimes(const TimelineState& timeline) const {
    const ResolvedEditTimeline edit = resolved(timeline, lastWordEnd(tokens_));
    std::vector<TranscriptTokenEditTime> times;
    times.reserve(tokens_.size());
    for (const auto& token : tokens_) {
        TranscriptTokenEditTime time{token.id, std::nullopt, std::nullopt};
        if (token.hasTimes()) {
            if (const auto span = editedWordSpan(*token.startTime, *token.endTime, edit)) {
                time.editStart = span->first;
                time.editEnd = span->second;
            }
        }
        times.push_back(time);
    }
    return times;
}

std::optional<int> TranscriptTimelineEditing::wordIDAt(double sourceTime) const {
    // Word tokens are in source order; the last one starting at or before the time.
    std::optional<int> found;
    for (const auto& token : tokens_) {
        if (token.isPause() || !token.hasTimes()) {
            continue;
        }
        if (*token.startTime > sourceTime) {
            break;
        }
        if (sourceTime <= *token.endTime) {
            found = token.id;
        }
    }
    return found;
}

std::vector<TranscriptCleanupSuggestion> TranscriptTimelineEditing::cleanupSuggestions(
    const TimelineState& timeline,
    const std::optional<TranscriptCleanupAudioActivity>& systemAudio) const {
    const ResolvedEditTimeline edit = resolved(timeline, lastWordEnd(tokens_));
    // Words already cut take no part.
    TranscriptAnalysis playing = transcript_.analysis;
    for (TranscriptWord& word : playing.words) {
        if (word.startTime && word.endTime &&
            !editedWordSpan(*word.startTime, *word.endTime, edit)) {
            word.startTime.reset();
            word.endTime.reset();
        }
    }
    auto suggestions = TranscriptCleanupSuggester::suggestions(
        playing, edit.sourceDuration().seconds, systemAudio);
    std::erase_if(suggestions, [&](const TranscriptCleanupSuggestion& suggestion) {
        const double played = edit.editTime(SourceTime(suggestion.sourceEnd)).seconds -
                              edit.editTime(SourceTime(suggestion.sourceStart)).seconds;
        return played < kMinimumCutDuration;
    });
    return suggestions;
}

std::optional<TranscriptSourceRange>
TranscriptTimelineEditing::suggestionRange(const TranscriptCleanupSuggestion& suggestion,
                                           const TimelineState& timeline) const {
    if (suggestion.wordRange) {
        if (auto range = deletionRange(*suggestion.wordRange, timeline)) {
            return range;
        }
    }
    if (suggestion.sourceEnd - suggestion.sourceStart < kMinimumCutDuration) {
        return std::nullopt;
    }
    return TranscriptSourceRange{suggestion.sourceStart, suggestion.sourceEnd};
}

std::optional<DeletedTimelineGap>
TranscriptTimelineEditing::applySuggestion(const TranscriptCleanupSuggestion& suggestion,
                                           EditorStore& store,
                                           TimelineEditGestures& gestures) const {
    const auto range = suggestionRange(suggestion, store.project().timeline);
    if (!range) {
        return std::nullopt;
    }
    return gestures.deleteSourceRange(SourceTime(range->start), SourceTime(range->end));
}

std::optional<TranscriptWordCut>
TranscriptTimelineEditing::cutWords(const TranscriptTokenIDRange& range, EditorStore& store,
                                    TimelineEditGestures& gestures) const {
    const auto cut = deletionRange(range, store.project().timeline);
    if (!cut) {
        return std::nullopt;
    }
    const auto gap = gestures.deleteSourceRange(SourceTime(cut->start), SourceTime(cut->end));
    if (!gap) {
        return std::nullopt;
    }
    return TranscriptWordCut{range, *cut, *gap};
}

std::optional<TimelineClip>
TranscriptTimelineEditing::restore(const EditorTranscriptCollapsedRange& marker, EditorStore& store,
                                   TimelineEditGestures& gestures) {
    gestures.finishAllEditSessions();
    return store.restoreTimelineSourceRange(SourceTime(marker.sourceStart),
                                            SourceTime(marker.sourceEnd), kMinimumCutDuration);
}

std::optional<TranscriptSpliceEnergyProfile> loadSpliceEnergyProfile(const EditorDocument& document,
                                                                     const std::stop_token& stop) {
    try {
        const auto audio = RecordingTranscriptionService::prepareAudio(document);
        if (!audio) {
            return std::nullopt;
        }
        throwIfCancelled(stop);
        return TranscriptSpliceEnergyProfileExtractor::extract(
            *audio, TranscriptSpliceEnergyProfile::kDefaultBucketDuration, stop);
    } catch (const CancellationError&) {
        throw;
    } catch (const Error& error) {
        logInfo("transcript", "cuts fall back to word times: ", error.what());
        return std::nullopt;
    }
}

std::optional<TranscriptCleanupAudioActivity>
loadSystemAudioActivity(const EditorDocument& document) {
    const auto segments = document.manifest.segmentsFor(MediaTrackManifest::Kind::systemAudio);
    if (segments.empty()) {
        return std::nullopt;
    }
    try {
        Waveform waveform = WaveformExtractor::extractWaveform(
            segments.front().url, VoiceActivityDetector::kWaveformBucketCount);
        return TranscriptCleanupAudioActivity::fromWaveform(std::move(waveform.peaks),
                                                            waveform.duration);
    } catch (const Error& error) {
        logInfo("transcript", "no system audio activity: ", error.what());
        return std::nullopt;
    }
}

} // namespace orvelle
