#include "speech/align/ctc_forced_aligner.h"

#include "speech/align/alignment_error.h"

#include <algorithm>
#include <cstdint>

namespace orvelle {

namespace {

[[noreturn]] void fail(const std::string& reason) {
    throw AlignmentError(AlignmentErrorCode::ctcAlignmentFailed, reason);
}

// A backpointer holds how far back the chosen predecessor lies (0 stay, 1 or 2 states);
// the recursion never looks further, so one byte per cell does where a state index would
// take four.
using Backpointer = std::int8_t;
constexpr Backpointer kUnset = -1;

} // namespace

CTCFrameLogProbabilities::CTCFrameLogProbabilities(std::vector<float> values_, int frameCount_,
                                                   int tokenCount_, double frameStrideSeconds_)
    : values(std::move(values_)), frameCount(frameCount_), tokenCount(tokenCount_),
      frameStrideSeconds(frameStrideSeconds_) {
    if (frameCount < 1 || tokenCount < 1) {
        fail("CTC output must contain at least one frame and one token");
    }
    const auto expected = static_cast<size_t>(frameCount) * static_cast<size_t>(tokenCount);
    if (values.size() != expected) {
        fail("CTC output has " + std::to_string(values.size()) + " scores but expected " +
             std::to_string(expected));
    }
}

CTCForcedAlignmentTarget::CTCForcedAlignmentTarget(
    std::vector<int> tokenIDs_, std::vector<std::optional<std::string>> tokenWordIDs_)
    : tokenIDs(std::move(tokenIDs_)), tokenWordIDs(std::move(tokenWordIDs_)) {
    if (tokenIDs.size() != tokenWordIDs.size()) {
        fail("token-to-word map length does not match target token count");
    }
}

namespace CTCForcedAligner {

int requiredFrameCount(const std::vector<int>& tokenIDs) {
    int needed = static_cast<int>(tokenIDs.size());
    for (size_t i = 1; i < tokenIDs.size(); ++i) {
        if (tokenIDs[i] == tokenIDs[i - 1]) {
            needed += 1;
        }
    }
    return needed;
}

size_t backpointerTableBytes(int frameCount, int targetTokenCount) {
    return static_cast<size_t>(frameCount) * (2 * static_cast<size_t>(targetTokenCount) + 1) *
           sizeof(Backpointer);
}

CTCAlignmentPath align(const CTCFrameLogProbabilities& logProbabilities,
                       const CTCForcedAlignmentTarget& target, int blankTokenID) {
    const int vocabularySize = logProbabilities.tokenCount;
    if (blankTokenID < 0 || blankTokenID >= vocabularySize) {
        fail("blank token ID " + std::to_string(blankTokenID) +
             " is outside the model vocabulary size " + std::to_string(vocabularySize));
    }
    for (size_t i = 0; i < target.tokenIDs.size(); ++i) {
        const int id = target.tokenIDs[i];
        if (id < 0 || id >= vocabularySize) {
            fail("target token ID " + std::to_string(id) + " at transcript token index " +
                 std::to_string(i) + " is outside the model vocabulary size " +
                 std::to_string(vocabularySize));
        }
    }
    const int frames = logProbabilities.frameCount;
    const int tokenCount = static_cast<int>(target.tokenIDs.size());
    const int needed = requiredFrameCount(target.tokenIDs);
    if (frames < needed) {
        fail("not enough model frames (" + std::to_string(frames) + ") to align " +
             std::to_string(tokenCount) +
             " target tokens; repeated adjacent tokens require at least " + std::to_string(needed) +
             " frames");
    }

    // The extended sequence: blank, t0, blank, t1, ..., blank.
    const int states = 2 * tokenCount + 1;
    std::vector<int> extended(static_cast<size_t>(states), blankTokenID);
    for (int k = 0; k < tokenCount; ++k) {
        extended[2 * static_cast<size_t>(k) + 1] = target.tokenIDs[static_cast<size_t>(k)];
    }
    // Whether state s may be entered from s - 2: a token state whose token differs from the
    // one before it (equal neighbours must pass through the blank between them).
    std::vector<std::uint8_t> mayJump(static_cast<size_t>(states), 0);
    for (int s = 2; s < states; ++s) {
        const int token = extended[static_cast<size_t>(s)];
        mayJump[static_cast<size_t>(s)] =
            token != blankTokenID && token != extended[static_cast<size_t>(s - 2)];
    }

    const float* scores = logProbabilities.values.data();
    const auto rowLength = static_cast<size_t>(vocabularySize);
    std::vector<float> previous(static_cast<size_t>(states), kNegativeInfinity);
    std::vector<float> current(static_cast<size_t>(states), kNegativeInfinity);
    std::vector<Backpointer> backpointers(static_cast<size_t>(frames) * static_cast<size_t>(states),
                                          kUnset);

    previous[0] = scores[extended[0]];
    if (states >= 2) {
        previous[1] = scores[extended[1]];
    }
    for (int t = 1; t < frames; ++t) {
        const float* row = scores + static_cast<size_t>(t) * rowLength;
        Backpointer* back = backpointers.data() + static_cast<size_t>(t) * states;
        // States above 2t + 1 cannot be reached yet, and states that could no longer reach
        // the end (at most two states a frame) lie on no complete path; both stay out of
        // the search, which leaves every score on a complete path exactly as it would be.
        const int highest = std::min(states - 1, 2 * t + 1);
        const int lowest = std::max(0, states - 2 - 2 * (frames - 1 - t));
        for (int s = lowest; s <= highest; ++s) {
            float best = previous[static_cast<size_t>(s)];
            Backpointer step = 0;
            // On a tie the path stays: a move needs a strictly better score.
            if (s >= 1 && previous[static_cast<size_t>(s - 1)] > best) {
                best = previous[static_cast<size_t>(s - 1)];
                step = 1;
            }
            if (mayJump[static_cast<size_t>(s)] && previous[static_cast<size_t>(s - 2)] > best) {
                best = previous[static_cast<size_t>(s - 2)];
                step = 2;
            }
            if (best == kNegativeInfinity) {
                current[static_cast<size_t>(s)] = kNegativeInfinity;
                continue;
            }
            current[static_cast<size_t>(s)] = best + row[extended[static_cast<size_t>(s)]];
            back[s] = step;
        }
        std::swap(previous, current);
    }

    // The path ends in the last token or the closing blank; a tie favours the blank.
    int finalState = 0;
    if (states >= 2) {
        finalState =
            previous[static_cast<size_t>(states - 2)] <= previous[static_cast<size_t>(states - 1)]
                ? states - 1
                : states - 2;
    }
    if (previous[static_cast<size_t>(finalState)] == kNegativeInfinity) {
        fail("Viterbi search could not consume the target transcript");
    }

    CTCAlignmentPath path;
    path.totalLogProbability = previous[static_cast<size_t>(finalState)];
    path.statePath.resize(static_cast<size_t>(frames));
    path.statePath.back() = finalState;
    for (int t = frames - 1; t >= 1; --t) {
        const int state = path.statePath[static_cast<size_t>(t)];
        const Backpointer step = backpointers[static_cast<size_t>(t) * static_cast<size_t>(states) +
                                              static_cast<size_t>(state)];
        path.statePath[static_cast<size_t>(t - 1)] = step < 0 ? 0 : state - step;
    }

    // Token spans: odd state s stands for target token (s - 1) / 2.
    struct Visit {
        int first = -1;
        int last = -1;
        float sum = 0;
        int count = 0;
    };
    std::vector<Visit> visits(static_cast<size_t>(tokenCount));
    for (int t = 0; t < frames; ++t) {
        const int state = path.statePath[static_cast<size_t>(t)];
        if (state % 2 == 0) {
            continue;
        }
        Visit& visit = visits[static_cast<size_t>((state - 1) / 2)];
        if (visit.first < 0) {
            visit.first = t;
        }
        visit.last = t;
        visit.sum += logProbabilities.at(t, extended[static_cast<size_t>(state)]);
        visit.count += 1;
    }
    path.tokenSpans.reserve(static_cast<size_t>(tokenCount));
    for (int k = 0; k < tokenCount; ++k) {
        const Visit& visit = visits[static_cast<size_t>(k)];
        if (visit.count == 0) {
            fail("target token " + std::to_string(k) + " was not visited by the best CTC path");
        }
        path.tokenSpans.push_back(CTCAlignedTokenSpan{
            .targetTokenIndex = k,
            .tokenID = target.tokenIDs[static_cast<size_t>(k)],
            .wordID = target.tokenWordIDs[static_cast<size_t>(k)],
            .startFrame = visit.first,
            .endFrameExclusive = visit.last + 1,
            .averageLogProbability = visit.sum / static_cast<float>(visit.count),
        });
    }
    return path;
}

} // namespace CTCForcedAligner

} // namespace orvelle
