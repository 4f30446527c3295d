#include "speech/align/alignment_error.h"
#include "speech/align/ctc_forced_aligner.h"
#include "support/thrown.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>

namespace orvelle {
namespace {

using CTCForcedAligner::kNegativeInfinity;

// Frame-major log probabilities from rows of probabilities.
CTCFrameLogProbabilities lattice(const std::vector<std::vector<float>>& probabilities) {
    std::vector<float> values;
    for (const auto& row : probabilities) {
        for (const float p : row) {
            values.push_back(std::log(p));
        }
    }
    return CTCFrameLogProbabilities(std::move(values), static_cast<int>(probabilities.size()),
                                    static_cast<int>(probabilities.front().size()), 0.02);
}

CTCForcedAlignmentTarget target(std::vector<int> ids) {
    std::vector<std::optional<std::string>> owners;
    for (size_t i = 0; i < ids.size(); ++i) {
        owners.emplace_back("w" + std::to_string(i));
    }
    return CTCForcedAlignmentTarget(std::move(ids), std::move(owners));
}

std::string failureOf(const std::function<void()>& run) {
    const auto error = testing::thrown<AlignmentError>(run);
    EXPECT_EQ(error ? error->code() : AlignmentErrorCode{}, AlignmentErrorCode::ctcAlignmentFailed);
    return error ? error->detail() : "no failure";
}

TEST(CTCForcedAligner, OneTokenOnOneFrameEndsInTheTokenState) {
    const auto path = CTCForcedAligner::align(lattice({{0.4f, 0.6f}}), target({1}), 0);
    EXPECT_EQ(path.statePath, std::vector<int>{1}); // the closing blank is unreached
    ASSERT_EQ(path.tokenSpans.size(), 1u);
    EXPECT_EQ(path.tokenSpans[0].startFrame, 0);
    EXPECT_EQ(path.tokenSpans[0].endFrameExclusive, 1);
    EXPECT_EQ(path.tokenSpans[0].wordID, "w0");
    EXPECT_FLOAT_EQ(path.totalLogProbability, std::log(0.6f));
}

TEST(CTCForcedAligner, HandComputedLattices) {
    struct Case {
        std::string name;
        std::vector<std::vector<float>> probabilities;
        std::vector<int> target;
        std::vector<int> statePath;
    };
    const std::vector<Case> table{
        // Frame 1: state 1 ties between staying and coming from the blank; it stays.
        {"a tie with the blank keeps the state", {{0.5f, 0.5f}, {0.1f, 0.9f}}, {1}, {1, 1}},
        // Both end states score the same: the closing blank wins.
        {"a final tie ends on the closing blank", {{0.5f, 0.5f}, {0.5f, 0.5f}}, {1}, {1, 2}},
        // Uniform scores: every comparison ties, yet the path must consume both tokens.
        {"uniform scores", {{1, 1, 1}, {1, 1, 1}, {1, 1, 1}}, {1, 2}, {1, 3, 4}},
        // At the last frame state 3 ties three ways (stay, blank, skip); it stays. Coming
        // from the blank would give 1 2 3, skipping would give 1 1 3.
        {"a skip needs a strictly better score",
         {{1, 1, 1}, {1, 1, 1}, {0.05f, 0.05f, 0.9f}},
         {1, 2},
         {1, 3, 3}},
        // Equal neighbours must pass through the blank between them.
        {"repeated tokens", {{0.1f, 0.9f}, {0.9f, 0.1f}, {0.1f, 0.9f}}, {1, 1}, {1, 2, 3}},
        {"repeated tokens, even when the blank is unlikely",
         {{0.01f, 0.99f}, {0.01f, 0.99f}, {0.01f, 0.99f}},
         {1, 1},
         {1, 2, 3}},
        // A clear token frame in the middle of blanks.
        {"blanks around a token",
         {{0.9f, 0.1f}, {0.2f, 0.8f}, {0.7f, 0.3f}, {0.9f, 0.1f}},
         {1},
         {0, 1, 2, 2}},
        {"no target: all blank", {{0.9f, 0.1f}, {0.5f, 0.5f}}, {}, {0, 0}},
    };
    for (const auto& test : table) {
        SCOPED_TRACE(test.name);
        const auto path =
            CTCForcedAligner::align(lattice(test.probabilities), target(test.target), 0);
        EXPECT_EQ(path.statePath, test.statePath);
        ASSERT_EQ(path.tokenSpans.size(), test.target.size());
    }
}

TEST(CTCForcedAligner, TokenSpansAverageTheirFrames) {
    const auto path = CTCForcedAligner::align(lattice({{0.9f, 0.1f, 0.01f},
                                                       {0.1f, 0.8f, 0.1f},
                                                       {0.1f, 0.6f, 0.3f},
                                                       {0.1f, 0.1f, 0.8f},
                                                       {0.9f, 0.05f, 0.05f}}),
                                              target({1, 2}), 0);
    EXPECT_EQ(path.statePath, (std::vector<int>{0, 1, 1, 3, 4}));
    ASSERT_EQ(path.tokenSpans.size(), 2u);
    EXPECT_EQ(path.tokenSpans[0].startFrame, 1);
    EXPECT_EQ(path.tokenSpans[0].endFrameExclusive, 3);
    EXPECT_FLOAT_EQ(path.tokenSpans[0].averageLogProbability,
                    (std::log(0.8f) + std::log(0.6f)) / 2);
    EXPECT_EQ(path.tokenSpans[1].tokenID, 2);
    EXPECT_EQ(path.tokenSpans[1].targetTokenIndex, 1);
    EXPECT_EQ(path.tokenSpans[1].startFrame, 3);
    EXPECT_EQ(path.tokenSpans[1].endFrameExclusive, 4);
    EXPECT_FLOAT_EQ(path.totalLogProbability, std::log(0.9f) + std::log(0.8f) + std::log(0.6f) +
                                                  std::log(0.8f) + std::log(0.9f));
}

TEST(CTCForcedAligner, RefusesWhatCannotBeAligned) {
    const auto twoFrames = lattice({{0.5f, 0.5f, 0.5f}, {0.5f, 0.5f, 0.5f}});
    EXPECT_EQ(failureOf([&] {
                  CTCForcedAligner::align(twoFrames, target({1, 1}), 0);
              }),
              "not enough model frames (2) to align 2 target tokens; repeated adjacent tokens "
              "require at least 3 frames");
    EXPECT_EQ(failureOf([&] { CTCForcedAligner::align(twoFrames, target({1}), 3); }),
              "blank token ID 3 is outside the model vocabulary size 3");
    EXPECT_EQ(failureOf([&] {
                  CTCForcedAligner::align(twoFrames, target({1, 7}), 0);
              }),
              "target token ID 7 at transcript token index 1 is outside the model vocabulary "
              "size 3");
    EXPECT_EQ(failureOf([&] { CTCForcedAligner::align(twoFrames, target({-1}), 0); }),
              "target token ID -1 at transcript token index 0 is outside the model vocabulary "
              "size 3");

    // A token the model never gives leaves the end unreachable.
    const CTCFrameLogProbabilities never(
        {std::log(0.5f), kNegativeInfinity, std::log(0.5f), kNegativeInfinity}, 2, 2, 0.02);
    EXPECT_EQ(failureOf([&] { CTCForcedAligner::align(never, target({1}), 0); }),
              "Viterbi search could not consume the target transcript");
}

TEST(CTCForcedAligner, InputRecordsCheckTheirSizes) {
    EXPECT_EQ(failureOf([] { CTCFrameLogProbabilities({}, 0, 3, 0.02); }),
              "CTC output must contain at least one frame and one token");
    EXPECT_EQ(failureOf([] {
                  CTCFrameLogProbabilities({1, 2, 3}, 2, 2, 0.02);
              }),
              "CTC output has 3 scores but expected 4");
    EXPECT_EQ(failureOf([] {
                  CTCForcedAlignmentTarget({1, 2}, {std::nullopt});
              }),
              "token-to-word map length does not match target token count");
    EXPECT_EQ(CTCForcedAligner::requiredFrameCount({1, 1, 2, 2, 2, 3}), 9);
}

// Every valid CTC path by brute force: its best total, summed in the same order as the
// search sums it, so the floats compare exactly.
float bestScoreByEnumeration(const CTCFrameLogProbabilities& scores, const std::vector<int>& ids,
                             int blank) {
    const int states = 2 * static_cast<int>(ids.size()) + 1;
    std::vector<int> extended(static_cast<size_t>(states), blank);
    for (size_t k = 0; k < ids.size(); ++k) {
        extended[2 * k + 1] = ids[k];
    }
    float best = -std::numeric_limits<float>::infinity();
    std::function<void(int, int, float)> walk = [&](int t, int state, float total) {
        if (t == scores.frameCount - 1) {
            if (state >= states - 2) {
                best = std::max(best, total);
            }
            return;
        }
        for (int next = state; next <= std::min(state + 2, states - 1); ++next) {
            if (next == state + 2 &&
                (extended[static_cast<size_t>(next)] == blank ||
                 extended[static_cast<size_t>(next)] == extended[static_cast<size_t>(state)])) {
                continue;
            }
            walk(t + 1, next, total + scores.at(t + 1, extended[static_cast<size_t>(next)]));
        }
    };
    walk(0, 0, scores.at(0, extended[0]));
    if (states > 1) {
        walk(0, 1, scores.at(0, extended[1]));
    }
    return best;
}

TEST(CTCForcedAligner, FindsTheBestPathOnRandomLattices) {
    std::mt19937 random(20240611);
    // Few distinct values make many ties, which is where search bugs hide.
    const std::vector<float> levels{std::log(0.5f), std::log(0.25f), std::log(0.125f)};
    for (int round = 0; round < 400; ++round) {
        const int vocabulary = 2 + static_cast<int>(random() % 3);
        const int tokens = static_cast<int>(random() % 4);
        std::vector<int> ids;
        for (int k = 0; k < tokens; ++k) {
            ids.push_back(1 + static_cast<int>(random() % (vocabulary - 1)));
        }
        const int frames =
            std::max(1, CTCForcedAligner::requiredFrameCount(ids)) + static_cast<int>(random() % 4);
        std::vector<float> values;
        for (int i = 0; i < frames * vocabulary; ++i) {
            values.push_back(round % 2 == 0 ? levels[random() % levels.size()]
                                            : -static_cast<float>(random() % 1000) / 100.0f);
        }
        const CTCFrameLogProbabilities scores(values, frames, vocabulary, 0.02);
        SCOPED_TRACE("round " + std::to_string(round));
        const auto path = CTCForcedAligner::align(scores, target(ids), 0);
        EXPECT_EQ(path.totalLogProbability, bestScoreByEnumeration(scores, ids, 0));

        // The path is a valid walk whose score is the total, and its spans follow each
        // other in target order.
        ASSERT_EQ(path.statePath.size(), static_cast<size_t>(frames));
        EXPECT_LE(path.statePath.front(), 1);
        EXPECT_GE(path.statePath.back(), 2 * tokens - 1);
        float total = 0;
        for (int t = 0; t < frames; ++t) {
            const int state = path.statePath[static_cast<size_t>(t)];
            total += scores.at(t, state % 2 == 1 ? ids[static_cast<size_t>(state / 2)] : 0);
            if (t > 0) {
                const int step = state - path.statePath[static_cast<size_t>(t - 1)];
                EXPECT_TRUE(step >= 0 && step <= 2);
            }
        }
        EXPECT_EQ(total, path.totalLogProbability);
        for (size_t k = 1; k < path.tokenSpans.size(); ++k) {
            EXPECT_GE(path.tokenSpans[k].startFrame, path.tokenSpans[k - 1].endFrameExclusive);
        }
    }
}

TEST(CTCForcedAligner, BackpointersTakeOneBytePerCell) {
    EXPECT_EQ(CTCForcedAligner::backpointerTableBytes(6000, 1800), 6000u * 3601u);
}

} // namespace
} // namespace orvelle
