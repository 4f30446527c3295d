// The speech runtime's throughput.
//   MelExtraction     30 s chunks of speech-like audio on one core; "xRealtime" is audio
//                     seconds per second of computation (the goal is at least 500).
//   DecoderLoop       the greedy loop over one 30 s chunk of the tiny test models: the cost
//                     of ONNX Runtime's calls per decoder and joint step.
//   PipelineOverlap   ten 30 s chunks through the three stages with an encoder that does a
//                     fixed amount of matrix work per chunk; "encoderWaitMs" is how long
//                     the encoder waited for features after its first chunk (0: mel
//                     extraction always kept ahead), "overlap" the summed stage times over
//                     the wall time.
// The tiny models are written by tools/make_test_models.py into the build tree first.

#include "speech/runtime/greedy_tdt_decoder.h"
#include "speech/runtime/parakeet_transcriber.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <numbers>
#include <random>

namespace {

using namespace orvelle;

const std::filesystem::path modelsRoot = std::filesystem::path(ORVELLE_BINARY_DIR) / "test-models";

void writeTestModels() {
    const std::string command = "/usr/bin/python3 '" ORVELLE_SOURCE_DIR
                                "/tools/make_test_models.py' '" +
                                modelsRoot.string() + "'";
    if (std::system(command.c_str()) != 0) {
        std::fprintf(stderr, "could not write the test models: %s\n", command.c_str());
        std::exit(1);
    }
}

// Voiced-like harmonics that glide, with noise bursts and pauses.
std::vector<float> speechLike(double seconds) {
    const auto count = static_cast<size_t>(seconds * 16000);
    std::vector<float> samples(count);
    std::mt19937 random(3);
    std::normal_distribution<float> noise(0.0f, 0.05f);
    for (size_t i = 0; i < count; ++i) {
        const double t = static_cast<double>(i) / 16000;
        const double syllable = std::fmod(t, 0.4);
        if (syllable > 0.3) {
            samples[i] = noise(random) * 0.1f;
            continue;
        }
        const double pitch = 120 + 40 * std::sin(2 * std::numbers::pi * 0.7 * t);
        double value = 0;
        for (int harmonic = 1; harmonic <= 8; ++harmonic) {
            value += std::sin(2 * std::numbers::pi * pitch * harmonic * t) / harmonic;
        }
        samples[i] = static_cast<float>(0.2 * value) + noise(random);
    }
    return samples;
}

void MelExtraction(benchmark::State& state) {
    const auto samples = speechLike(30);
    const MelFeatureExtractor extractor;
    for (auto _ : state) {
        benchmark::DoNotOptimize(extractor.extract(samples));
    }
    state.counters["xRealtime"] = benchmark::Counter(30.0 * static_cast<double>(state.iterations()),
                                                     benchmark::Counter::kIsRate);
}
BENCHMARK(MelExtraction)->Unit(benchmark::kMillisecond);

void DecoderLoop(benchmark::State& state) {
    ParakeetTranscriber transcriber(modelsRoot / "parakeet-split", ParakeetComputeUnits::cpu);
    ModelRunner& runner = transcriber.runner();
    const auto features = transcriber.featureExtractor().extract(speechLike(30));
    const EncoderOutput encoded = runner.runEncoder(features);
    DecoderWorker* worker = runner.acquireWorker();
    for (auto _ : state) {
        benchmark::DoNotOptimize(GreedyTDTDecoder::decode(encoded, *worker, runner.blankTokenId(),
                                                          runner.durations(),
                                                          runner.maxSymbolsPerStep()));
    }
    runner.releaseWorker(worker);
    state.counters["framesPerSecond"] = benchmark::Counter(
        static_cast<double>(encoded.hiddenShape[1]) * static_cast<double>(state.iterations()),
        benchmark::Counter::kIsRate);
}
BENCHMARK(DecoderLoop)->Unit(benchmark::kMillisecond);

void PipelineOverlap(benchmark::State& state) {
    ParakeetTranscriber transcriber(modelsRoot / "parakeet-slow", ParakeetComputeUnits::gpu);
    const auto samples = speechLike(300);
    const auto chunks = ParakeetTranscriber::audioChunks(samples, 480000);

    // The encoder's own time per chunk, alone.
    const auto features = transcriber.featureExtractor().extract(chunks[0]);
    const auto encoderStart = std::chrono::steady_clock::now();
    for (int i = 0; i < 3; ++i) {
        benchmark::DoNotOptimize(transcriber.runner().runEncoder(features));
    }
    const double encoderAlone =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - encoderStart).count() / 3;

    Pipeline::Result result;
    double wall = 0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        result = Pipeline::run(chunks, transcriber.featureExtractor(), transcriber.runner());
        wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    state.counters["encoderAloneMsPerChunk"] = encoderAlone * 1000;
    state.counters["melMsPerChunk"] = result.melSeconds * 1000 / static_cast<double>(chunks.size());
    state.counters["encoderMsPerChunk"] =
        result.encoderSeconds * 1000 / static_cast<double>(chunks.size());
    state.counters["encoderWaitMs"] = result.encoderWaitSeconds * 1000;
    state.counters["overlap"] =
        (result.melSeconds + result.encoderSeconds + result.decoderSeconds) / wall;
    state.counters["xRealtime"] = 300 / wall;
}
BENCHMARK(PipelineOverlap)->Unit(benchmark::kMillisecond)->Iterations(2)->UseRealTime();

} // namespace

int main(int argc, char** argv) {
    writeTestModels();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
