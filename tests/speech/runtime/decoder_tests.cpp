#include "speech/runtime/greedy_tdt_decoder.h"
#include "speech/runtime/parakeet_error.h"
#include "support/thrown.h"
#include "test_models.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

namespace orvelle {
namespace {

using testing::DecodedPath;
using testing::fullPath;
using testing::testModelFolder;

// Features of `frames` mel frames (their values do not matter to these encoders) whose
// first `maskedIn` frames are valid.
MelFeatureExtractor::Features features(size_t frames, size_t maskedIn) {
    MelFeatureExtractor::Features result;
    result.numMelFilters = 128;
    result.mel.assign(frames * 128, 0.5f);
    result.attentionMask.assign(frames, 0);
    std::fill_n(result.attentionMask.begin(), std::min(frames, maskedIn), 1);
    return result;
}

ModelRunner::Configuration configuration(int maxTime, int workers = 1) {
    ModelRunner::Configuration result;
    result.encoderShapes.maxTime = maxTime;
    result.workerCount = workers;
    return result;
}

DecodedPath decodeWith(ModelRunner& runner, const MelFeatureExtractor::Features& input,
                       int maxSymbolsPerStep = 10) {
    const EncoderOutput encoded = runner.runEncoder(input);
    DecoderWorker* worker = runner.acquireWorker();
    const auto output = GreedyTDTDecoder::decode(encoded, *worker, runner.blankTokenId(),
                                                 runner.durations(), maxSymbolsPerStep);
    runner.releaseWorker(worker);
    EXPECT_EQ(output.tokenIds.size(), output.frameIndices.size());
    EXPECT_EQ(output.tokenIds.size(), output.durations.size());
    return {output.tokenIds, output.frameIndices, output.durations};
}

class EveryLayout : public ::testing::TestWithParam<const char*> {
protected:
    ModelRunner makeRunner(int maxTime) {
        return ModelRunner(ParakeetModelFolder::at(testModelFolder(GetParam())),
                           configuration(maxTime));
    }
};

TEST_P(EveryLayout, EncoderGivesFramesOfEightMelFramesWithTheirMask) {
    ModelRunner runner = makeRunner(224);
    // 230 frames are cut to 224; 100 valid mel frames make 13 valid encoder frames.
    const EncoderOutput encoded = runner.runEncoder(features(230, 100));
    ASSERT_EQ(encoded.hiddenShape.size(), 3u);
    EXPECT_EQ(encoded.hiddenShape[1], 28);
    const auto width = static_cast<size_t>(encoded.hiddenShape[2]);
    EXPECT_EQ(encoded.hidden[27 * width], 27.0f) << "frame-major: the frame number";
    ASSERT_EQ(encoded.mask.size(), 28u);
    EXPECT_EQ(std::count(encoded.mask.begin(), encoded.mask.end(), 1), 13);
    // These encoders take any length: a short chunk is not padded to the longest.
    const EncoderOutput shorter = runner.runEncoder(features(100, 100));
    EXPECT_EQ(shorter.hiddenShape[1], 13);
    EXPECT_EQ(std::count(shorter.mask.begin(), shorter.mask.end(), 1), 13);
}

TEST_P(EveryLayout, GreedyDecodingWalksTheKnownPath) {
    ModelRunner runner = makeRunner(224);
    // 28 valid frames: "▁end" at 26 with duration 4 overshoots the end and is kept.
    EXPECT_EQ(decodeWith(runner, features(224, 224)), fullPath());
    // Decoding again starts from a fresh predictor.
    EXPECT_EQ(decodeWith(runner, features(224, 224)), fullPath());
}

TEST_P(EveryLayout, TheMaskLimitsTheFramesDecoded) {
    ModelRunner runner = makeRunner(224);
    // 13 valid frames: the blank of duration 3 at 12 leaves them.
    EXPECT_EQ(decodeWith(runner, features(224, 100)), (DecodedPath{{5, 6}, {10, 10}, {0, 1}}));
    EXPECT_EQ(decodeWith(runner, features(224, 0)), DecodedPath{});
}

TEST_P(EveryLayout, SymbolLimitMovesOneFrameOnAndTheDecoderKeepsCountingAfterBlanks) {
    ModelRunner runner = makeRunner(400);
    // Three symbols per frame: the ten "▁la" spread over frames 21 to 24; the decoder runs
    // once per step on the held id, so the table moves on by the same count.
    DecodedPath expected{{5, 6, 7, 8}, {10, 10, 15, 17}, {0, 1, 2, 4}};
    for (const int frame : {21, 21, 21, 22, 22, 22, 23, 23, 23, 24}) {
        expected.tokenIds.push_back(9);
        expected.frameIndices.push_back(frame);
        expected.durations.push_back(0);
    }
    expected.tokenIds.push_back(10);
    expected.frameIndices.push_back(28);
    expected.durations.push_back(4);
    EXPECT_EQ(decodeWith(runner, features(400, 400), 3), expected);
}

INSTANTIATE_TEST_SUITE_P(Layouts, EveryLayout,
                         ::testing::Values("parakeet-split", "parakeet-fused", "parakeet-unshaped",
                                           "parakeet-public"));

TEST(ModelRunner, ReadsTheDecoderStateShapeOrFallsBack) {
    const ModelRunner split(ParakeetModelFolder::at(testModelFolder("parakeet-split")),
                            configuration(80, 3));
    EXPECT_EQ(split.layout(), ParakeetModelLayout::split);
    EXPECT_EQ(split.decoderHiddenLayers(), 2);
    EXPECT_EQ(split.decoderHiddenSize(), 8);
    EXPECT_EQ(split.workerCount(), 3u);

    // A state input without a shape reads as 2 layers of 640.
    const ModelRunner unshaped(ParakeetModelFolder::at(testModelFolder("parakeet-unshaped")),
                               configuration(80));
    EXPECT_EQ(unshaped.decoderHiddenLayers(), 2);
    EXPECT_EQ(unshaped.decoderHiddenSize(), 640);

    const ModelRunner fused(ParakeetModelFolder::at(testModelFolder("parakeet-fused")),
                            configuration(80));
    EXPECT_EQ(fused.layout(), ParakeetModelLayout::fused);
    EXPECT_EQ(fused.decoderHiddenSize(), 8);
}

TEST(GreedyTDTDecoder, RejectsAnEncoderOutputOfAnotherRank) {
    ModelRunner runner(ParakeetModelFolder::at(testModelFolder("parakeet-split")),
                       configuration(80));
    EncoderOutput encoded = runner.runEncoder(features(80, 80));
    encoded.hiddenShape = {10, 8};
    DecoderWorker* worker = runner.acquireWorker();
    if (const auto error = testing::thrown<ParakeetError>(
            [&] { GreedyTDTDecoder::decode(encoded, *worker, 8192, runner.durations(), 10); })) {
        EXPECT_EQ(error->code(), ParakeetErrorCode::unexpectedOutputShape);
        EXPECT_STREQ(
            error->what(),
            "Output \"encoder_hidden\" has unexpected shape [10, 8]; expected [1, T, hidden]");
    }
    runner.releaseWorker(worker);
}

// A model that is not the part it stands in for is refused when it is loaded, with the
// tensors it has: here a decoder copied in as the joint.
TEST(ModelRunner, AModelThatIsNotItsPartIsRefusedWithItsTensors) {
    const testing::TemporaryDirectory folder;
    const auto source = testModelFolder("parakeet-split");
    for (const char* file : {"encoder.onnx", "decoder.onnx", "tokenizer.json"}) {
        std::filesystem::copy_file(source / file, folder / file);
    }
    std::filesystem::copy_file(source / "decoder.onnx", folder / "joint.onnx");
    if (const auto error = testing::thrown<ParakeetError>([&] {
            ModelRunner runner(ParakeetModelFolder::at(folder.path()), configuration(80));
        })) {
        EXPECT_EQ(error->code(), ParakeetErrorCode::unsupportedModel);
        EXPECT_EQ(std::string(error->what()),
                  "The speech model " + (folder / "joint.onnx").string() +
                      " cannot be used: a joint takes two float inputs, an encoder frame and a "
                      "decoder state, but it takes \"input_ids\", \"hidden\" and \"cell\".");
    }
}

TEST(BlockingWorkerPool, HandsOutEachWorkerOnceAndNothingWhenClosed) {
    ModelRunner runner(ParakeetModelFolder::at(testModelFolder("parakeet-split")),
                       configuration(80, 2));
    DecoderWorker* first = runner.acquireWorker();
    DecoderWorker* second = runner.acquireWorker();
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first, second);
    runner.releaseWorker(first);
    EXPECT_EQ(runner.acquireWorker(), first);
    runner.releaseWorker(first);
    runner.releaseWorker(second);

    BlockingWorkerPool pool({runner.acquireWorker(), runner.acquireWorker()});
    DecoderWorker* a = pool.acquire();
    DecoderWorker* b = pool.acquire();
    std::thread waiter([&] { EXPECT_EQ(pool.acquire(), nullptr); });
    pool.close(); // wakes the waiter with nothing
    waiter.join();
    pool.release(a);
    EXPECT_EQ(pool.acquire(), nullptr) << "closed";
    runner.releaseWorker(a);
    runner.releaseWorker(b);
}

} // namespace
} // namespace orvelle
