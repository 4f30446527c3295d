#include "speech/align/alignment_engine.h"

#include "speech/align/alignment_audio_preprocessor.h"
#include "speech/align/alignment_chunk_plan.h"
#include "speech/align/alignment_error.h"
#include "speech/align/ctc_transcript_normalizer.h"
#include "speech/align/ctc_word_timing.h"
#include "speech/align/onnx_ctc_logits_provider.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace orvelle {

namespace {

// The samples of a stretch of the audio, at most as many as the model takes in one run.
std::span<const float> samplesBetween(const AlignmentAudioBuffer& audio, double start, double end,
                                      std::optional<size_t> limit) {
    const size_t total = audio.samples.size();
    const auto clampIndex = [total](double index) {
        if (!(index > 0)) {
            return size_t{0};
        }
        return std::min(total, static_cast<size_t>(index));
    };
    const size_t first = clampIndex(std::floor(audio.sampleRate * start));
    size_t last = std::max(first, clampIndex(std::ceil(audio.sampleRate * end)));
    if (limit && last - first > *limit) {
        last = first + *limit; // rounding of the chunk's ends; the plan keeps chunks in range
    }
    return std::span<const float>(audio.samples).subspan(first, last - first);
}

std::string chunkRange(const AlignmentChunk& chunk) {
    char text[64];
    std::snprintf(text, sizeof text, "%.2f-%.2fs", chunk.sourceStart, chunk.sourceEnd);
    return text;
}

std::string reasonOf(const Error& error) {
    if (const auto* alignment = dynamic_cast<const AlignmentError*>(&error);
        alignment != nullptr && !alignment->detail().empty()) {
        return alignment->detail();
    }
    return error.what();
}

std::vector<std::string> idsOf(const std::vector<AlignmentInputWord>& words) {
    std::vector<std::string> ids;
    ids.reserve(words.size());
    for (const auto& word : words) {
        ids.push_back(word.id);
    }
    return ids;
}

void append(std::vector<AlignmentWarning>& to, std::vector<AlignmentWarning> warnings) {
    to.insert(to.end(), std::make_move_iterator(warnings.begin()),
              std::make_move_iterator(warnings.end()));
}

} // namespace

OnnxAlignmentEngine::OnnxAlignmentEngine(AlignmentModelBundle bundle, CTCVocabulary vocabulary,
                                         std::unique_ptr<OnnxCTCLogitsProvider> logitsProvider)
    : bundle_(std::move(bundle)), vocabulary_(std::move(vocabulary)),
      logitsProvider_(std::move(logitsProvider)) {}

OnnxAlignmentEngine::~OnnxAlignmentEngine() = default;

AlignmentResult OnnxAlignmentEngine::align(const AlignmentRequest& request,
                                           const AlignmentProgress& progress) {
    if (request.words.empty()) {
        throw AlignmentError(AlignmentErrorCode::noAlignableWords);
    }
    const AlignmentOptions& options = request.options;
    const AlignmentAudioBuffer audio = AlignmentAudioPreprocessor::decodeMonoFloat32(
        request.audioFileURL, bundle_.manifest.sampleRate);
    const double audioDuration = audio.duration();

    // Audio that fits the model's fixed input is heard whole, in one run. Longer audio is
    // heard chunk by chunk with the overlap on both sides, so then the answerable part of a
    // chunk is the input less the overlap at both ends: a chunk the model cannot hear whole
    // would leave its last words timed against silence.
    double maximum = options.maximumChunkDuration;
    double overlap = options.chunkOverlap;
    if (const auto limit = logitsProvider_->maximumAudioDuration()) {
        maximum = std::min(maximum, *limit);
        if (audioDuration > maximum) {
            overlap = std::min(overlap, *limit / 5);
            maximum = std::min(maximum, *limit - 2 * std::max(overlap, 0.0));
        }
    }
    const std::vector<AlignmentChunk> chunks =
        AlignmentChunkPlan::make(audioDuration, maximum, overlap);
    const auto sampleLimit = logitsProvider_->maximumSampleCount();

    AlignmentResult result;
    if (chunks.size() <= 1) {
        const CTCNormalizedTranscript normalized =
            CTCTranscriptNormalizer::normalize(request.words, vocabulary_);
        if (normalized.targetTokenIDs.empty()) {
            throw AlignmentError(AlignmentErrorCode::noAlignableWords);
        }
        const CTCFrameLogProbabilities scores =
            logitsProvider_->logProbabilities(samplesBetween(audio, 0, audioDuration, sampleLimit));
        const CTCAlignmentPath path = CTCForcedAligner::align(
            scores,
            CTCForcedAlignmentTarget(normalized.targetTokenIDs, normalized.targetTokenWordIDs),
            vocabulary_.blankTokenID);
        CTCWordTimings timings = CTCWordTimingBuilder::buildWordTimings(
            request.words, path.tokenSpans, request.sourceDuration, scores.frameStrideSeconds,
            options);
        result.warnings = normalized.warnings;
        append(result.warnings, std::move(timings.warnings));
        result.words = std::move(timings.words);
    } else {
        std::unordered_map<std::string, AlignedWordTiming> aligned;
        for (size_t index = 0; index < chunks.size(); ++index) {
            if (progress) {
                progress(static_cast<double>(index) / static_cast<double>(chunks.size()));
            }
            const AlignmentChunk& chunk = chunks[index];
            std::vector<AlignmentInputWord> words =
                AlignmentMerge::wordsForChunk(request.words, chunk, audioDuration);
            if (words.empty()) {
                continue;
            }
            try {
                const CTCNormalizedTranscript normalized =
                    CTCTranscriptNormalizer::normalize(words, vocabulary_);
                append(result.warnings, normalized.warnings);
                const CTCFrameLogProbabilities scores = logitsProvider_->logProbabilities(
                    samplesBetween(audio, chunk.inferenceStart, chunk.inferenceEnd, sampleLimit));
                const CTCAlignmentPath path =
                    CTCForcedAligner::align(scores,
                                            CTCForcedAlignmentTarget(normalized.targetTokenIDs,
                                                                     normalized.targetTokenWordIDs),
                                            vocabulary_.blankTokenID);
                // The chunk works in its own time, from the start of what the model heard.
                for (AlignmentInputWord& word : words) {
                    if (word.roughStart) {
                        *word.roughStart -= chunk.inferenceStart;
                    }
                    if (word.roughEnd) {
                        *word.roughEnd -= chunk.inferenceStart;
                    }
                }
                CTCWordTimings timings = CTCWordTimingBuilder::buildWordTimings(
                    words, path.tokenSpans, chunk.inferenceEnd - chunk.inferenceStart,
                    scores.frameStrideSeconds, options);
                append(result.warnings, std::move(timings.warnings));
                for (AlignedWordTiming& timing : timings.words) {
                    timing.start += chunk.inferenceStart;
                    timing.end += chunk.inferenceStart;
                    aligned.insert_or_assign(timing.wordID, std::move(timing));
                }
            } catch (const Error& error) {
                result.warnings.push_back({"Skipped precise timing for chunk " + chunkRange(chunk) +
                                               " because " + reasonOf(error),
                                           idsOf(words)});
            }
        }
        result.words = AlignmentMerge::mergeAlignedChunkWords(
            request.words, aligned, request.sourceDuration, options, result.warnings);
        result.warnings.push_back(
            {"Aligned long audio in " + std::to_string(chunks.size()) + " chunks with overlap.",
             {}});
    }
    if (progress) {
        progress(1);
    }
    result.report = AlignmentReport::make(result.words, request.words, options);
    return result;
}

namespace AlignmentEngineFactory {

std::unique_ptr<AlignmentEngine> makeEngine(const std::filesystem::path& modelBundleURL) {
    AlignmentModelBundle bundle = AlignmentModelBundle::load(modelBundleURL);
    if (bundle.manifest.runtimeType != "onnx") {
        throw AlignmentError(AlignmentErrorCode::unsupportedRuntime, bundle.manifest.runtimeType);
    }
    bundle.validateInstalledFilesStrict();
    CTCVocabulary vocabulary =
        CTCVocabulary::load(bundle.vocabularyURL(), bundle.manifest.tokenizer);
    auto provider = std::make_unique<OnnxCTCLogitsProvider>(bundle.modelURL(), bundle.manifest);
    return std::make_unique<OnnxAlignmentEngine>(std::move(bundle), std::move(vocabulary),
                                                 std::move(provider));
}

} // namespace AlignmentEngineFactory

namespace AlignmentMerge {

std::vector<AlignmentInputWord> wordsForChunk(const std::vector<AlignmentInputWord>& words,
                                              const AlignmentChunk& chunk, double audioDuration) {
    std::vector<AlignmentInputWord> result;
    const bool lastChunk = chunk.sourceEnd >= audioDuration;
    for (const AlignmentInputWord& word : words) {
        if (!word.roughStart || !word.roughEnd) {
            continue;
        }
        const double middle = (*word.roughStart + *word.roughEnd) / 2;
        if ((middle >= chunk.sourceStart && middle < chunk.sourceEnd) ||
            (lastChunk && middle == chunk.sourceEnd)) {
            result.push_back(word);
        }
    }
    return result;
}

std::vector<AlignedWordTiming>
mergeAlignedChunkWords(const std::vector<AlignmentInputWord>& words,
                       const std::unordered_map<std::string, AlignedWordTiming>& aligned,
                       double sourceDuration, const AlignmentOptions& options,
                       std::vector<AlignmentWarning>& warnings) {
    std::vector<std::optional<AlignedWordTiming>> merged;
    merged.reserve(words.size());
    std::vector<std::string> preserved;
    for (const AlignmentInputWord& word : words) {
        if (const auto found = aligned.find(word.id); found != aligned.end()) {
            merged.emplace_back(found->second);
        } else if (word.roughStart && word.roughEnd && *word.roughStart < *word.roughEnd) {
            const double top = std::max(sourceDuration, 0.0);
            merged.emplace_back(AlignedWordTiming{
                .wordID = word.id,
                .text = word.text,
                .start = std::clamp(*word.roughStart, 0.0, top),
                .end = std::clamp(*word.roughEnd, 0.0, top),
                .confidence = std::nullopt,
                .quality = AlignmentWordQuality::fallback,
                .usedFallbackTiming = true,
            });
            preserved.push_back(word.id);
        } else {
            merged.emplace_back(std::nullopt);
        }
    }
    if (!preserved.empty()) {
        warnings.push_back({"Preserved rough timing for " + std::to_string(preserved.size()) +
                                " words that could not be aligned in a chunk.",
                            preserved});
    }

    // Each run of holes shares the span between its neighbours evenly.
    std::vector<std::string> interpolated;
    for (size_t first = 0; first < merged.size();) {
        if (merged[first]) {
            ++first;
            continue;
        }
        size_t end = first;
        while (end < merged.size() && !merged[end]) {
            ++end;
        }
        const double left = first > 0 ? merged[first - 1]->end : 0.0;
        const double right = end < merged.size() ? merged[end]->start : sourceDuration;
        const double share = (right - left) / static_cast<double>(end - first);
        for (size_t i = first; i < end; ++i) {
            const auto k = static_cast<double>(i - first);
            merged[i] = AlignedWordTiming{
                .wordID = words[i].id,
                .text = words[i].text,
                .start = left + share * k,
                .end = left + share * (k + 1),
                .confidence = std::nullopt,
                .quality = AlignmentWordQuality::fallback,
                .usedFallbackTiming = true,
            };
            interpolated.push_back(words[i].id);
        }
        first = end;
    }
    if (!interpolated.empty()) {
        warnings.push_back({"Interpolated fallback timing for " +
                                std::to_string(interpolated.size()) +
                                " words without usable rough timestamps.",
                            interpolated});
    }

    std::vector<AlignedWordTiming> result;
    result.reserve(merged.size());
    for (auto& timing : merged) {
        result.push_back(std::move(*timing));
    }
    return MonotonicWordTimingSmoother::smooth(std::move(result), sourceDuration,
                                               options.minimumWordDuration);
}

} // namespace AlignmentMerge

} // namespace orvelle
