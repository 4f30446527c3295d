#include "speech/align/precise_word_timing_alignment_service.h"

#include "core/files.h"
#include "speech/transcript/orvelle_model_storage.h"

#include <cmath>
#include <cstdlib>

namespace orvelle {

namespace {

std::string milliseconds(double seconds) {
    return std::to_string(static_cast<long long>(std::llround(seconds * 1000))) + " ms";
}

bool moved(const std::optional<double>& before, double after) {
    return !before || std::abs(*before - after) > 1e-9;
}

} // namespace

PreciseWordTimingAlignmentError
PreciseWordTimingAlignmentError::audioMissing(const std::filesystem::path& path) {
    return {PreciseWordTimingAlignmentErrorCode::audioMissing,
            "The audio for precise word timing was not found at " + path.string() + "."};
}

PreciseWordTimingAlignmentError PreciseWordTimingAlignmentError::noWords() {
    return {PreciseWordTimingAlignmentErrorCode::noWords,
            "The transcript has no words to time precisely."};
}

std::string PreciseWordTimingReport::summaryText() const {
    const AlignmentReport& report = alignmentReport;
    // Every word is either aligned or kept with fallback timing: the two counts add up to
    // the words of the transcript.
    int fallbackWords = 0;
    for (const auto& span : report.failedSpans) {
        fallbackWords += span.wordCount;
    }
    std::string text = std::to_string(report.totalWords - fallbackWords) + " words aligned.\n";
    text += std::to_string(report.changedWords) + " words changed by at least " +
            milliseconds(AlignmentOptions{}.significantShiftThreshold) + ".\n";
    text += "Average boundary shift: " + milliseconds(report.averageBoundaryShift) + ".\n";
    text += "Largest boundary shift: " + milliseconds(report.largestBoundaryShift) + ".";
    if (report.largestShiftWord) {
        text += "\nLargest shift word: \"" + *report.largestShiftWord + "\".";
    }
    if (fallbackWords > 0) {
        text +=
            "\n" + std::to_string(fallbackWords) + " words used fallback or low-confidence timing.";
    }
    if (!warnings.empty()) {
        text += "\n" + std::to_string(warnings.size()) + " nonfatal alignment warnings.";
    }
    return text;
}

PreciseWordTimingAlignmentService::PreciseWordTimingAlignmentService(
    std::optional<std::filesystem::path> bundleURL, EngineFactory makeEngine)
    : bundleURL_(std::move(bundleURL)), makeEngine_(std::move(makeEngine)) {}

std::filesystem::path PreciseWordTimingAlignmentService::bundleURL() const {
    if (bundleURL_) {
        return *bundleURL_;
    }
    if (const char* path = std::getenv(kBundleEnvironmentVariable.data());
        path != nullptr && *path != '\0' && fileExists(path)) {
        return path;
    }
    return OrvelleModelStorage::preciseWordTimingModelDirectory();
}

PreciseWordTimingAlignmentResult PreciseWordTimingAlignmentService::alignTranscript(
    const EditorTranscript& transcript, const std::filesystem::path& audioURL,
    double sourceDuration, const AlignmentProgress& progress) {
    if (!fileExists(audioURL)) {
        throw PreciseWordTimingAlignmentError::audioMissing(audioURL);
    }
    const std::vector<TranscriptWord>& words = transcript.analysis.words;
    if (words.empty()) {
        throw PreciseWordTimingAlignmentError::noWords();
    }

    AlignmentRequest request;
    request.audioFileURL = audioURL;
    request.sourceDuration = sourceDuration;
    for (size_t index = 0; index < words.size(); ++index) {
        request.words.push_back({std::to_string(index), words[index].text, words[index].startTime,
                                 words[index].endTime});
    }
    if (words.back().endTime) {
        request.sourceDuration = std::max(request.sourceDuration, *words.back().endTime);
    }

    const std::unique_ptr<AlignmentEngine> engine = makeEngine_(bundleURL());
    const AlignmentResult aligned = engine->align(request, progress);

    PreciseWordTimingAlignmentResult result{transcript, {}};
    EditorTranscript& updated = result.transcript;
    for (const AlignedWordTiming& timing : aligned.words) {
        size_t index = 0;
        try {
            index = std::stoul(timing.wordID);
        } catch (const std::exception&) {
            continue;
        }
        if (index >= updated.analysis.words.size()) {
            continue;
        }
        TranscriptWord& word = updated.analysis.words[index];
        word.startTime = timing.start;
        word.endTime = timing.end;
        word.confidence = timing.confidence;
    }
    std::string& description = updated.analysis.source.modelDescription;
    if (!description.ends_with(kModelDescriptionSuffix)) {
        description += kModelDescriptionSuffix;
    }
    // Re-aligning compares with the times from before the first alignment, not the last.
    if (!updated.alignmentBaselineWords) {
        std::vector<EditorTranscriptAlignmentBaselineWord> baseline;
        for (size_t index = 0; index < words.size(); ++index) {
            baseline.push_back({static_cast<int>(index), words[index].text, words[index].startTime,
                                words[index].endTime});
        }
        updated.alignmentBaselineWords = std::move(baseline);
    }

    PreciseWordTimingReport& report = result.report;
    report.id = Uuid::random();
    report.alignmentReport = aligned.report;
    report.warnings = aligned.warnings;
    for (const auto& old : *updated.alignmentBaselineWords) {
        if (old.wordIndex < 0 ||
            static_cast<size_t>(old.wordIndex) >= updated.analysis.words.size()) {
            continue;
        }
        const TranscriptWord& now = updated.analysis.words[static_cast<size_t>(old.wordIndex)];
        if (!now.startTime || !now.endTime) {
            continue;
        }
        if (moved(old.startTime, *now.startTime) || moved(old.endTime, *now.endTime)) {
            report.baselineChanges.push_back(
                {now.text, old.startTime, old.endTime, *now.startTime, *now.endTime});
        }
    }
    return result;
}

Json JsonCoder<PreciseWordTimingChange>::encode(const PreciseWordTimingChange& change) {
    Json json = {{"word", change.word}, {"newStart", change.newStart}, {"newEnd", change.newEnd}};
    setOptional(json, "oldStart", change.oldStart);
    setOptional(json, "oldEnd", change.oldEnd);
    return json;
}

Json JsonCoder<PreciseWordTimingReport>::encode(const PreciseWordTimingReport& report) {
    return {{"id", encodeJson(report.id)},
            {"alignmentReport", encodeJson(report.alignmentReport)},
            {"warnings", encodeJson(report.warnings)},
            {"baselineChanges", encodeJson(report.baselineChanges)},
            {"summaryText", report.summaryText()}};
}

} // namespace orvelle
