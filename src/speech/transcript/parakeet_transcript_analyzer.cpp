#include "speech/transcript/parakeet_transcript_analyzer.h"

#include "core/file_url.h"
#include "speech/runtime/parakeet_transcriber.h"
#include "speech/transcript/transcript_word_builder.h"
#include "speech/transcript/unicode_text.h"

namespace orvelle {

namespace {

ParakeetComputeUnits parakeetUnits(TranscriptComputeUnits units) {
    switch (units) {
    case TranscriptComputeUnits::ane:
        return ParakeetComputeUnits::ane;
    case TranscriptComputeUnits::gpu:
        return ParakeetComputeUnits::gpu;
    case TranscriptComputeUnits::cpu:
        return ParakeetComputeUnits::cpu;
    case TranscriptComputeUnits::all:
        return ParakeetComputeUnits::all;
    }
    return ParakeetComputeUnits::cpu;
}

} // namespace

ParakeetTranscriberRuntime::Loaded::~Loaded() = default;

ParakeetTranscriberRuntime& ParakeetTranscriberRuntime::shared() {
    static ParakeetTranscriberRuntime runtime;
    return runtime;
}

std::shared_ptr<ParakeetTranscriberRuntime::Loaded>
ParakeetTranscriberRuntime::transcriber(const TranscriptModelSource& modelSource,
                                        TranscriptComputeUnits computeUnits) {
    const RuntimeKey key{standardizedPath(modelSource.local).string(),
                         std::string(enumName(computeUnits))};
    std::promise<std::shared_ptr<Loaded>> promise;
    unsigned long long generation = 0;
    {
        std::unique_lock guard(lock_);
        if (const auto found = transcribers_.find(key); found != transcribers_.end()) {
            return found->second;
        }
        if (const auto loading = loadingTasks_.find(key); loading != loadingTasks_.end()) {
            const std::shared_future<std::shared_ptr<Loaded>> task = loading->second;
            guard.unlock();
            return task.get(); // rethrows the loader's failure
        }
        loadingTasks_.emplace(key, promise.get_future().share());
        generation = generation_;
        loads_ += 1;
    }
    try {
        auto loaded = std::make_shared<Loaded>();
        loaded->transcriber = std::make_unique<ParakeetTranscriber>(
            modelSource.local, parakeetUnits(computeUnits), 3000, 16000);
        {
            const std::lock_guard guard(lock_);
            if (generation == generation_) {
                loadingTasks_.erase(key);
                transcribers_.emplace(key, loaded);
            }
        }
        promise.set_value(loaded);
        return loaded;
    } catch (...) {
        {
            const std::lock_guard guard(lock_);
            if (generation == generation_) {
                loadingTasks_.erase(key);
            }
        }
        promise.set_exception(std::current_exception());
        throw;
    }
}

void ParakeetTranscriberRuntime::clear() {
    const std::lock_guard guard(lock_);
    generation_ += 1;
    loadingTasks_.clear();
    transcribers_.clear();
}

size_t ParakeetTranscriberRuntime::loadCount() const {
    const std::lock_guard guard(lock_);
    return loads_;
}

ParakeetTranscriptAnalyzer::ParakeetTranscriptAnalyzer(TranscriptModelSource modelSource,
                                                       TranscriptComputeUnits computeUnits)
    : modelSource_(std::move(modelSource)), computeUnits_(computeUnits) {}

void ParakeetTranscriptAnalyzer::prepare() const {
    ParakeetTranscriberRuntime::shared().transcriber(modelSource_, computeUnits_);
}

void ParakeetTranscriptAnalyzer::clearRuntimeCache() {
    ParakeetTranscriberRuntime::shared().clear();
}

TranscriptAnalysis
ParakeetTranscriptAnalyzer::analyze(const std::filesystem::path& audioURL) const {
    const auto loaded =
        ParakeetTranscriberRuntime::shared().transcriber(modelSource_, computeUnits_);
    Transcription transcription;
    {
        // One transcription at a time per recogniser: they share the encoder's buffers.
        const std::lock_guard busy(loaded->busy);
        transcription = loaded->transcriber->transcribe(audioURL);
    }

    TranscriptAnalysis analysis;
    analysis.text = transcription.text;
    for (const ParakeetTimedToken& token : transcription.timedTokens) {
        analysis.tokens.push_back({token.text, token.tokenID, token.startTime, token.endTime, 1.0});
    }
    analysis.words = TranscriptWordBuilder::words(analysis.tokens);
    if (analysis.words.empty() && !trimmingWhitespace(analysis.text).empty()) {
        analysis.words = TranscriptWordBuilder::untimedWords(analysis.text);
    }
    TranscriptSourceMetadata& source = analysis.source;
    source.analyzer = "ParakeetTDT";
    source.audioURL = audioURL;
    source.modelDescription = standardizedPath(modelSource_.local).string();
    source.computeUnits = std::string(enumName(computeUnits_));
    source.audioDurationSeconds = transcription.audioDurationSeconds;
    source.inferenceDurationSeconds = transcription.inferenceDurationSeconds;
    source.realtimeFactor =
        realtimeFactor(transcription.audioDurationSeconds, transcription.inferenceDurationSeconds);
    source.createdAt = Date::now();
    return analysis;
}

} // namespace orvelle
