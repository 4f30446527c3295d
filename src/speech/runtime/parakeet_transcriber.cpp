#include "speech/runtime/parakeet_transcriber.h"

#include "speech/runtime/audio_loader.h"
#include "speech/runtime/parakeet_error.h"

#include <algorithm>
#include <chrono>

namespace orvelle {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int encoderSubsampling = 8;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

} // namespace

std::string_view text(ParakeetComputeUnits units) {
    switch (units) {
    case ParakeetComputeUnits::ane:
        return "ane";
    case ParakeetComputeUnits::gpu:
        return "gpu";
    case ParakeetComputeUnits::cpu:
        return "cpu";
    case ParakeetComputeUnits::all:
        return "all";
    }
    return "cpu";
}

std::optional<ParakeetComputeUnits> parakeetComputeUnits(std::string_view name) {
    for (const auto units : {ParakeetComputeUnits::ane, ParakeetComputeUnits::gpu,
                             ParakeetComputeUnits::cpu, ParakeetComputeUnits::all}) {
        if (text(units) == name) {
            return units;
        }
    }
    return std::nullopt;
}

int defaultDecoderWorkers(ParakeetComputeUnits units) {
    switch (units) {
    case ParakeetComputeUnits::ane:
        return 2;
    case ParakeetComputeUnits::gpu:
    case ParakeetComputeUnits::all:
        return 4;
    case ParakeetComputeUnits::cpu:
        return 1;
    }
    return 1;
}

OnnxDevice onnxDevice(ParakeetComputeUnits units) {
    switch (units) {
    case ParakeetComputeUnits::ane:
        return OnnxDevice::npu;
    case ParakeetComputeUnits::gpu:
        return OnnxDevice::gpu;
    case ParakeetComputeUnits::cpu:
        return OnnxDevice::cpu;
    case ParakeetComputeUnits::all:
        return OnnxDevice::any;
    }
    return OnnxDevice::cpu;
}

ParakeetTranscriber::ParakeetTranscriber(const std::filesystem::path& modelsRoot,
                                         ParakeetComputeUnits computeUnits, int chunkMelFrames,
                                         int sampleRate, std::optional<int> decoderWorkers)
    : computeUnits_(computeUnits), chunkMelFrames_(chunkMelFrames), sampleRate_(sampleRate),
      folder_(ParakeetModelFolder::at(modelsRoot)) {
    if (!folder_.complete()) {
        throw ParakeetError::modelNotFound(folder_.root, folder_.missing);
    }
    ModelRunner::Configuration configuration;
    configuration.encoderShapes = EncoderShapes{1, chunkMelFrames, 128};
    configuration.workerCount =
        decoderWorkers ? std::max(*decoderWorkers, 1) : defaultDecoderWorkers(computeUnits);
    configuration.device = onnxDevice(computeUnits);
    runner_ = std::make_unique<ModelRunner>(folder_, configuration);

    // tokenizer.json, or a list of "piece id" lines (tokens.txt, vocab.txt).
    tokenizer_ =
        folder_.tokenizer.extension() == ".json"
            ? std::make_unique<Tokenizer>(folder_.tokenizer)
            : std::make_unique<Tokenizer>(Tokenizer::fromVocabularyFile(folder_.tokenizer));
    MelFeatureExtractor::Settings settings;
    settings.sampleRate = sampleRate;
    featureExtractor_ = std::make_unique<MelFeatureExtractor>(settings);
}

double ParakeetTranscriber::secondsPerFrame() const {
    return static_cast<double>(featureExtractor_->settings().hopLength) * encoderSubsampling /
           sampleRate_;
}

std::vector<std::span<const float>> ParakeetTranscriber::audioChunks(std::span<const float> samples,
                                                                     size_t chunkSamples) {
    std::vector<std::span<const float>> chunks;
    if (chunkSamples < 1) {
        return chunks;
    }
    for (size_t start = 0; start < samples.size(); start += chunkSamples) {
        chunks.push_back(samples.subspan(start, std::min(chunkSamples, samples.size() - start)));
    }
    return chunks;
}

Transcription ParakeetTranscriber::transcribe(const std::filesystem::path& audioURL,
                                              const Pipeline::Progress& progress) {
    const std::vector<float> samples = AudioLoader::loadMono16k(audioURL);
    return transcribe(samples, progress);
}

Transcription ParakeetTranscriber::transcribe(std::span<const float> samples,
                                              const Pipeline::Progress& progress) {
    Transcription transcription;
    if (samples.empty()) {
        return transcription;
    }
    transcription.audioDurationSeconds = static_cast<double>(samples.size()) / sampleRate_;
    const size_t chunkSamples = static_cast<size_t>(chunkMelFrames_) *
                                static_cast<size_t>(featureExtractor_->settings().hopLength);
    const auto chunks = audioChunks(samples, chunkSamples);

    const auto started = Clock::now();
    const Pipeline::Result result = Pipeline::run(chunks, *featureExtractor_, *runner_, progress);
    transcription.inferenceDurationSeconds = secondsSince(started);

    const auto detokenizeStarted = Clock::now();
    transcription.text = tokenizer_->decode(result.tokenIds, true);
    transcription.timedTokens = timedTokens(result, transcription.audioDurationSeconds);
    transcription.timing.detokenize = secondsSince(detokenizeStarted);

    transcription.tokenIds = result.tokenIds;
    transcription.frameIndices = result.frameIndices;
    transcription.durations = result.durations;
    transcription.timing.melExtract = result.melSeconds;
    transcription.timing.encoder = result.encoderSeconds;
    transcription.timing.decoderLoop = result.decoderSeconds;
    return transcription;
}

std::vector<ParakeetTimedToken> ParakeetTranscriber::timedTokens(const Pipeline::Result& result,
                                                                 double audioDuration) const {
    const double perFrame = secondsPerFrame();
    const auto& pieces = tokenizer_->idToPiece();
    std::vector<ParakeetTimedToken> tokens;
    for (size_t i = 0; i < result.tokenIds.size(); ++i) {
        const int id = result.tokenIds[i];
        if (id < 0 || static_cast<size_t>(id) >= pieces.size() || tokenizer_->isSpecial(id) ||
            pieces[static_cast<size_t>(id)].empty()) {
            continue;
        }
        const int frame = i < result.frameIndices.size() ? result.frameIndices[i] : 0;
        const int duration = i < result.durations.size() ? result.durations[i] : 0;
        ParakeetTimedToken token;
        token.tokenID = id;
        token.piece = pieces[static_cast<size_t>(id)];
        token.text = Tokenizer::text(token.piece);
        token.frameIndex = frame;
        token.durationFrames = duration;
        // At least one frame long, never past the end of the audio.
        token.startTime = std::min(perFrame * frame, audioDuration);
        token.endTime = std::min(
            std::max(token.startTime, perFrame * (frame + std::max(duration, 1))), audioDuration);
        tokens.push_back(std::move(token));
    }
    return tokens;
}

} // namespace orvelle
