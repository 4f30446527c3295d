// Forced alignment of the longest chunk the engine hands the aligner: 120 s of 20 ms frames
// (6000 frames) against a 300-word transcript spelt in a 32-token character alphabet.
// Reports frames x states searched per second and the backpointer table's size.

#include "speech/align/ctc_forced_aligner.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <random>

namespace {

using namespace orvelle;

constexpr int kFrames = 6000;
constexpr int kVocabulary = 32;
constexpr int kBlank = 0;
constexpr int kSeparator = 4;
constexpr int kWords = 300;

// Words of 2 to 8 letters (ids 5 to 31) with a separator between words, as the normaliser
// builds them.
CTCForcedAlignmentTarget transcriptTarget(std::mt19937& random) {
    std::vector<int> ids;
    std::vector<std::optional<std::string>> owners;
    for (int word = 0; word < kWords; ++word) {
        if (word > 0) {
            ids.push_back(kSeparator);
            owners.emplace_back(std::nullopt);
        }
        const int letters = 2 + static_cast<int>(random() % 7);
        for (int i = 0; i < letters; ++i) {
            ids.push_back(5 + static_cast<int>(random() % (kVocabulary - 5)));
            owners.emplace_back(std::to_string(word));
        }
    }
    return CTCForcedAlignmentTarget(std::move(ids), std::move(owners));
}

// Log-softmax of random logits, frame by frame.
CTCFrameLogProbabilities modelOutput(std::mt19937& random) {
    std::normal_distribution<float> logit(0.0f, 3.0f);
    std::vector<float> values(static_cast<size_t>(kFrames) * kVocabulary);
    for (int t = 0; t < kFrames; ++t) {
        float* row = values.data() + static_cast<size_t>(t) * kVocabulary;
        float largest = -1e30f;
        for (int k = 0; k < kVocabulary; ++k) {
            row[k] = logit(random);
            largest = std::max(largest, row[k]);
        }
        float sum = 0;
        for (int k = 0; k < kVocabulary; ++k) {
            sum += std::exp(row[k] - largest);
        }
        const float logSum = largest + std::log(sum);
        for (int k = 0; k < kVocabulary; ++k) {
            row[k] -= logSum;
        }
    }
    return CTCFrameLogProbabilities(std::move(values), kFrames, kVocabulary, 0.02);
}

void BM_ViterbiLongestChunk(benchmark::State& state) {
    std::mt19937 random(42);
    const CTCForcedAlignmentTarget target = transcriptTarget(random);
    const CTCFrameLogProbabilities scores = modelOutput(random);
    const auto states = static_cast<double>(2 * target.tokenIDs.size() + 1);
    for (auto _ : state) {
        const CTCAlignmentPath path = CTCForcedAligner::align(scores, target, kBlank);
        benchmark::DoNotOptimize(path.totalLogProbability);
    }
    state.counters["frames"] = kFrames;
    state.counters["targetTokens"] = static_cast<double>(target.tokenIDs.size());
    state.counters["states"] = states;
    state.counters["cellsPerSecond"] =
        benchmark::Counter(kFrames * states, benchmark::Counter::kIsIterationInvariantRate);
    state.counters["backpointerMiB"] = static_cast<double>(CTCForcedAligner::backpointerTableBytes(
                                           kFrames, static_cast<int>(target.tokenIDs.size()))) /
                                       (1024.0 * 1024.0);
}
BENCHMARK(BM_ViterbiLongestChunk)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
