#pragma once

// Greedy decoding of a token-and-duration transducer: at each encoder frame the joint
// gives a token and a duration, and the duration says how many frames to move on. Blanks
// leave no trace in the output. All state lives in the worker handed in.

#include "speech/runtime/model_runner.h"

#include <span>
#include <vector>

namespace orvelle::GreedyTDTDecoder {

struct Output {
    std::vector<int> tokenIds;
    std::vector<int> frameIndices; // the encoder frame each token was emitted at
    std::vector<int> durations;    // the duration given with each token
    double elapsedSeconds = 0;
    friend bool operator==(const Output&, const Output&) = default;
};

// Resets the worker's predictor, then decodes the valid frames of one chunk. Throws
// ParakeetError when the encoder output is not [1, T, hidden] or the joint gives a
// duration index beyond the table, and whatever the worker's runs throw.
Output decode(const EncoderOutput& encoder, DecoderWorker& worker, int blankTokenId,
              std::span<const int> durations, int maxSymbolsPerStep);

} // namespace orvelle::GreedyTDTDecoder
