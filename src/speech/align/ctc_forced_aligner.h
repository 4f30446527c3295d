#pragma once

// The single best path of a CTC model's frame scores through a known transcript: Viterbi
// over the blank-interleaved token sequence, then the frames each target token holds.
// Pure computation; every failure is AlignmentError ctcAlignmentFailed.

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace orvelle {

// Log probabilities of every token in every frame, frame-major: token k of frame t is at
// t * tokenCount + k.
struct CTCFrameLogProbabilities {
    std::vector<float> values;
    int frameCount = 0;
    int tokenCount = 0;
    double frameStrideSeconds = 0;

    // Throws when either count is below 1 or the values are not frames x tokens.
    CTCFrameLogProbabilities(std::vector<float> values, int frameCount, int tokenCount,
                             double frameStrideSeconds);

    float at(int frame, int token) const {
        return values[static_cast<size_t>(frame) * static_cast<size_t>(tokenCount) +
                      static_cast<size_t>(token)];
    }

    friend bool operator==(const CTCFrameLogProbabilities&,
                           const CTCFrameLogProbabilities&) = default;
};

struct CTCForcedAlignmentTarget {
    std::vector<int> tokenIDs;
    std::vector<std::optional<std::string>> tokenWordIDs; // absent for separators

    // Throws when the two lists differ in length.
    CTCForcedAlignmentTarget(std::vector<int> tokenIDs,
                             std::vector<std::optional<std::string>> tokenWordIDs);

    friend bool operator==(const CTCForcedAlignmentTarget&,
                           const CTCForcedAlignmentTarget&) = default;
};

struct CTCAlignedTokenSpan {
    int targetTokenIndex = 0;
    int tokenID = 0;
    std::optional<std::string> wordID;
    int startFrame = 0;
    int endFrameExclusive = 0;
    float averageLogProbability = 0;

    friend bool operator==(const CTCAlignedTokenSpan&, const CTCAlignedTokenSpan&) = default;
};

struct CTCAlignmentPath {
    std::vector<int> statePath;                  // one state of the extended sequence per frame
    std::vector<CTCAlignedTokenSpan> tokenSpans; // in target order
    float totalLogProbability = 0;

    friend bool operator==(const CTCAlignmentPath&, const CTCAlignmentPath&) = default;
};

namespace CTCForcedAligner {

// The stand-in for minus infinity: the most negative finite float. A state whose best
// predecessor scores exactly this was never reached.
inline constexpr float kNegativeInfinity = -3.4028235e38f;

CTCAlignmentPath align(const CTCFrameLogProbabilities& logProbabilities,
                       const CTCForcedAlignmentTarget& target, int blankTokenID);

// The least number of frames a target needs: one per token and one more between equal
// neighbours, which must be parted by a blank.
int requiredFrameCount(const std::vector<int>& tokenIDs);

// Bytes of the backpointer table for a search of this size: one byte per frame and state.
size_t backpointerTableBytes(int frameCount, int targetTokenCount);

} // namespace CTCForcedAligner

} // namespace orvelle
