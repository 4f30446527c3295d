#pragma once

// The entry point of the speech runtime: loads a model folder (either layout) and turns
// samples or an audio file into text with timed tokens. Long input is cut into chunks of
// chunkMelFrames mel frames (30 s by default) with no overlap; each chunk is decoded on
// its own and the results are joined by a running encoder-frame offset, so times stay true
// over the whole file. One transcribe() at a time per transcriber: the encoder's buffers
// are shared.

#include "speech/runtime/mel_feature_extractor.h"
#include "speech/runtime/model_runner.h"
#include "speech/runtime/pipeline.h"
#include "speech/runtime/tokenizer.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace orvelle {

// Where the models run. The CPU provider stands in for a device this machine's ONNX
// Runtime does not offer; the decoder worker counts stay those of the device.
enum class ParakeetComputeUnits { ane, gpu, cpu, all };

std::string_view text(ParakeetComputeUnits units);
std::optional<ParakeetComputeUnits> parakeetComputeUnits(std::string_view text);
int defaultDecoderWorkers(ParakeetComputeUnits units);
OnnxDevice onnxDevice(ParakeetComputeUnits units);

struct ParakeetTimedToken {
    int tokenID = 0;
    std::string piece; // as in the vocabulary
    std::string text;  // with "▁" as a blank
    int frameIndex = 0;
    int durationFrames = 0;
    double startTime = 0;
    double endTime = 0;
    friend bool operator==(const ParakeetTimedToken&, const ParakeetTimedToken&) = default;
};

struct TranscriptionTiming {
    double melExtract = 0;
    double encoder = 0;
    double decoderLoop = 0; // summed over parallel decoders; may exceed the wall time
    double detokenize = 0;
    friend bool operator==(const TranscriptionTiming&, const TranscriptionTiming&) = default;
};

struct Transcription {
    std::string text;
    std::vector<ParakeetTimedToken> timedTokens;
    std::vector<int> tokenIds;
    std::vector<int> frameIndices; // over the whole input
    std::vector<int> durations;
    double audioDurationSeconds = 0;
    double inferenceDurationSeconds = 0; // the pipeline alone
    TranscriptionTiming timing;
    friend bool operator==(const Transcription&, const Transcription&) = default;
};

class ParakeetTranscriber {
public:
    // Checks that the folder holds every file of its layout (modelNotFound names all that are
    // missing), loads the models, then the tokenizer and the feature extractor. Throws
    // ParakeetError, or OnnxError when ONNX Runtime is missing or refuses a model.
    ParakeetTranscriber(const std::filesystem::path& modelsRoot, ParakeetComputeUnits computeUnits,
                        int chunkMelFrames = 3000, int sampleRate = 16000,
                        std::optional<int> decoderWorkers = std::nullopt);

    // Loads the file with AudioLoader, then transcribes its samples.
    Transcription transcribe(const std::filesystem::path& audioURL,
                             const Pipeline::Progress& progress = {});
    Transcription transcribe(std::span<const float> samples,
                             const Pipeline::Progress& progress = {});

    // Cuts at every multiple of chunkSamples; the last chunk holds the rest. No chunks for
    // empty input or a size below 1.
    static std::vector<std::span<const float>> audioChunks(std::span<const float> samples,
                                                           size_t chunkSamples);

    ParakeetComputeUnits computeUnits() const { return computeUnits_; }
    int chunkMelFrames() const { return chunkMelFrames_; }
    int sampleRate() const { return sampleRate_; }
    const ParakeetModelFolder& modelFolder() const { return folder_; }
    ModelRunner& runner() { return *runner_; }
    const Tokenizer& tokenizer() const { return *tokenizer_; }
    const MelFeatureExtractor& featureExtractor() const { return *featureExtractor_; }
    // Seconds per encoder frame: eight mel frames.
    double secondsPerFrame() const;

private:
    std::vector<ParakeetTimedToken> timedTokens(const Pipeline::Result& result,
                                                double audioDuration) const;

    ParakeetComputeUnits computeUnits_;
    int chunkMelFrames_;
    int sampleRate_;
    ParakeetModelFolder folder_;
    std::unique_ptr<ModelRunner> runner_;
    std::unique_ptr<Tokenizer> tokenizer_;
    std::unique_ptr<MelFeatureExtractor> featureExtractor_;
};

} // namespace orvelle
