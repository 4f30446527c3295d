#pragma once

// The three overlapping stages of a transcription: mel extraction on one thread, the
// encoder on another, and the decoding of several chunks at once on the runner's workers,
// dispatched from the calling thread. Bounded queues between the stages keep memory
// flat: at most 2 feature sets wait for the encoder, and one encoder output more than
// there are workers waits for a decoder.

#include "speech/runtime/mel_feature_extractor.h"
#include "speech/runtime/model_runner.h"

#include <functional>
#include <span>
#include <vector>

namespace orvelle::Pipeline {

struct Result {
    std::vector<int> tokenIds;
    std::vector<int> frameIndices; // over the whole input: each chunk's own frames plus the
                                   // encoder frames of the chunks before it
    std::vector<int> durations;
    double melSeconds = 0;     // summed over chunks
    double encoderSeconds = 0; // summed over chunks
    double decoderSeconds = 0; // summed over the parallel decoders; may exceed wall time
    // How long the encoder waited for features after its first chunk: 0 when mel
    // extraction keeps ahead of it.
    double encoderWaitSeconds = 0;
    friend bool operator==(const Result&, const Result&) = default;
};

// Called from a decoder thread after each chunk, with the chunks decoded so far.
using Progress = std::function<void(size_t decoded, size_t total)>;

// Blocks the calling thread until every chunk is decoded. The first failure of any stage
// is thrown after all decode tasks have ended; results of chunks already decoded are
// dropped and every worker is back in the pool.
Result run(std::span<const std::span<const float>> chunks,
           const MelFeatureExtractor& featureExtractor, ModelRunner& runner,
           const Progress& progress = {});

} // namespace orvelle::Pipeline
