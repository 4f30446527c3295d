#pragma once

// Runs a timing model bundle's acoustic model on ONNX Runtime: a chunk of samples in, the
// log probability of every token in every frame out. Feeds raw audio (padded to a fixed
// input when the manifest declares one) or log-mel features, fills the length and mask
// inputs the manifest names, checks the output's shape and applies log-softmax to logits.
// Used by one thread at a time. Failures throw AlignmentError malformedModelOutput, or
// OnnxError when ONNX Runtime itself refuses.

#include "speech/align/alignment_model_manifest.h"
#include "speech/align/ctc_forced_aligner.h"

#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>

namespace orvelle {

class MelFeatureExtractor;
class OnnxSession;

class OnnxCTCLogitsProvider {
public:
    // Loads the model and, for a feature input, builds the feature extractor the manifest
    // describes. Throws AlignmentError when the model lacks an input the manifest names.
    OnnxCTCLogitsProvider(const std::filesystem::path& modelURL, AlignmentModelManifest manifest);
    ~OnnxCTCLogitsProvider();
    OnnxCTCLogitsProvider(const OnnxCTCLogitsProvider&) = delete;
    OnnxCTCLogitsProvider& operator=(const OnnxCTCLogitsProvider&) = delete;

    CTCFrameLogProbabilities logProbabilities(std::span<const float> samples);

    // The longest chunk the model takes in one run, from the manifest's input shape.
    std::optional<double> maximumAudioDuration() const;
    // The most samples one run takes; a chunk a few samples longer from rounding is cut.
    std::optional<size_t> maximumSampleCount() const;

    const AlignmentModelManifest& manifest() const { return manifest_; }

private:
    AlignmentModelManifest manifest_;
    std::unique_ptr<OnnxSession> model_;
    std::unique_ptr<MelFeatureExtractor> featureExtractor_;
};

// Frames the wav2vec2 feature encoder makes of n samples: its seven convolutions (kernels
// 10, 3, 3, 3, 3, 2, 2; strides 5, 2, 2, 2, 2, 2, 2) without padding; 1 below 400 samples.
int wav2vec2FrameCount(std::int64_t samples);

// Log-softmax of each frame in place; a frame whose exponentials sum to nothing takes
// -103.27893 as the log of the sum.
void logSoftmaxRows(std::span<float> values, int tokenCount);

} // namespace orvelle
