#include "alignment_test_support.h"
#include "speech/align/alignment_engine.h"
#include "speech/align/alignment_error.h"
#include "speech/align/onnx_ctc_logits_provider.h"
#include "support/thrown.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <numeric>

namespace orvelle {
namespace {

using testing::Burst;
using testing::ctcBundle;
using testing::TemporaryDirectory;
using testing::wordsOnBursts;
using testing::writeBursts;

// Aligned times land on the bursts within a frame or two of the model (20 ms each); the
// feature model hears 16 ms beyond each mel frame's centre as well.
constexpr double kFrameTolerance = 0.065;

// The test models hear loudness, not letters: every letter of a frame scores alike, so a
// doubled letter ("ll"), which needs a blank between its halves, may borrow the first frame
// of the next word. The words of these tests have none.

AlignmentError alignmentErrorOf(const std::function<void()>& run) {
    return testing::thrown<AlignmentError>(run).value_or(
        AlignmentError(AlignmentErrorCode::noAlignableWords));
}

const AlignedWordTiming& timingOf(const AlignmentResult& result, const std::string& id) {
    for (const auto& word : result.words) {
        if (word.wordID == id) {
            return word;
        }
    }
    throw std::runtime_error("no word " + id);
}

bool hasWarning(const AlignmentResult& result, const std::string& start) {
    return std::any_of(result.warnings.begin(), result.warnings.end(),
                       [&](const AlignmentWarning& w) { return w.message.starts_with(start); });
}

void expectOnBursts(const AlignmentResult& result, const std::vector<AlignmentInputWord>& words,
                    const std::vector<Burst>& bursts) {
    for (size_t i = 0; i < words.size(); ++i) {
        const AlignedWordTiming& timing = timingOf(result, words[i].id);
        EXPECT_NEAR(timing.start, bursts[i].start, kFrameTolerance) << words[i].text;
        EXPECT_NEAR(timing.end, bursts[i].end, kFrameTolerance) << words[i].text;
        EXPECT_FALSE(timing.usedFallbackTiming) << words[i].text;
    }
}

class AlignmentEngineTest : public ::testing::Test {
protected:
    AlignmentRequest request(std::vector<AlignmentInputWord> words, double duration) {
        AlignmentRequest made{
            .audioFileURL = audio_, .words = std::move(words), .sourceDuration = duration};
        return made;
    }

    TemporaryDirectory folder_;
    std::filesystem::path audio_ = folder_ / "speech.wav";
};

TEST_F(AlignmentEngineTest, MovesRoughTimesOntoTheSpeech) {
    const std::vector<Burst> bursts{{0.5, 0.8}, {1.2, 1.5}, {2.0, 2.4}, {3.0, 3.3}};
    writeBursts(audio_, 4.0, bursts);
    const auto words = wordsOnBursts({"One", "two,", "six!", "four"}, bursts, 0.25);
    for (const char* bundle : {"ctc-char", "ctc-features"}) {
        SCOPED_TRACE(bundle);
        const auto engine = AlignmentEngineFactory::makeEngine(ctcBundle(bundle));
        std::vector<double> progress;
        const AlignmentResult result =
            engine->align(request(words, 4.0), [&](double done) { progress.push_back(done); });
        ASSERT_EQ(result.words.size(), 4u);
        expectOnBursts(result, words, bursts);
        EXPECT_EQ(result.report.totalWords, 4);
        EXPECT_EQ(result.report.changedWords, 4);
        EXPECT_NEAR(result.report.largestBoundaryShift, 0.25, kFrameTolerance);
        EXPECT_FALSE(hasWarning(result, "Aligned long audio"));
        EXPECT_EQ(progress.back(), 1.0);
    }
}

TEST_F(AlignmentEngineTest, LongAudioIsAlignedInChunksThatFitTheModel) {
    // The padded model takes 10 s at a time: chunks of 6 s heard with 2 s on either side
    // (0-6, 6-12, 12-18, 18-20). A test model would take speech in the overlap for its own
    // words, so the overlaps here are quiet.
    const std::vector<Burst> bursts{{0.4, 0.8}, {1.3, 1.7}, {2.2, 2.6},   {3.1, 3.5},
                                    {8.4, 8.8}, {9.2, 9.6}, {14.4, 14.8}, {15.2, 15.6}};
    const std::vector<std::string> texts{"the", "a", "so", "the", "a", "so", "the", "a"};
    writeBursts(audio_, 20.0, bursts);
    const auto words = wordsOnBursts(texts, bursts, -0.2);
    const auto engine = AlignmentEngineFactory::makeEngine(ctcBundle("ctc-bpe-padded"));
    const AlignmentResult result = engine->align(request(words, 20.0));
    expectOnBursts(result, words, bursts);
    EXPECT_TRUE(hasWarning(result, "Aligned long audio in 4 chunks with overlap."));

    // 9 s is longer than the 6 s a chunk of long audio answers for, but the model hears it
    // whole.
    const std::vector<Burst> fitting{{0.4, 0.8}, {4.2, 4.6}, {8.1, 8.5}};
    writeBursts(audio_, 9.0, fitting);
    const auto fittingWords = wordsOnBursts({"the", "a", "so"}, fitting, -0.2);
    const AlignmentResult whole = engine->align(request(fittingWords, 9.0));
    expectOnBursts(whole, fittingWords, fitting);
    EXPECT_FALSE(hasWarning(whole, "Aligned long audio"));
}

TEST_F(AlignmentEngineTest, LettersTheModelCannotTellApartAreLowConfidence) {
    const std::vector<Burst> bursts{{0.5, 0.8}, {1.2, 1.5}};
    writeBursts(audio_, 2.0, bursts);
    const auto words = wordsOnBursts({"one", "two"}, bursts, 0.1);
    const auto engine = AlignmentEngineFactory::makeEngine(ctcBundle("ctc-char"));
    const AlignmentResult result = engine->align(request(words, 2.0));
    // Twenty-six letters share each loud frame: each has about 1/27 of it.
    for (const auto& word : result.words) {
        EXPECT_EQ(word.quality, AlignmentWordQuality::lowConfidence);
        EXPECT_NEAR(*word.confidence, 1.0 / 27, 0.01);
        EXPECT_FALSE(word.usedFallbackTiming);
    }
    EXPECT_TRUE(hasWarning(result, "Low confidence timing for 'one'."));
    ASSERT_EQ(result.report.failedSpans.size(), 1u);
    EXPECT_EQ(result.report.failedSpans[0].reason, "low_confidence");
}

TEST_F(AlignmentEngineTest, AFailingMiddleChunkKeepsRoughTimes) {
    // Chunks of 4 s with 1 s of overlap: 0-4, 4-8, 8-12. The middle one gets far more
    // letters than its 6 s of audio has frames, so its alignment fails.
    const std::vector<Burst> early{{0.5, 0.8}, {1.5, 1.9}};
    const std::vector<Burst> late{{9.0, 9.4}, {10.5, 10.8}};
    std::vector<Burst> all = early;
    all.insert(all.end(), late.begin(), late.end());
    writeBursts(audio_, 12.0, all);

    std::vector<AlignmentInputWord> words = wordsOnBursts({"hi", "there"}, early, 0.1);
    for (int i = 0; i < 100; ++i) {
        const double start = 4.0 + 0.04 * i;
        words.push_back({"m" + std::to_string(i), "crowded", start, start + 0.04});
    }
    const auto lateWords = wordsOnBursts({"so", "long"}, late, -0.1, 200);
    words.insert(words.end(), lateWords.begin(), lateWords.end());

    AlignmentRequest asked = request(words, 12.0);
    asked.options.maximumChunkDuration = 4;
    asked.options.chunkOverlap = 1;
    asked.options.lowConfidenceThreshold = 0.01; // letters the test model cannot tell apart
    const auto engine = AlignmentEngineFactory::makeEngine(ctcBundle("ctc-char"));
    const AlignmentResult result = engine->align(asked);

    ASSERT_EQ(result.words.size(), words.size());
    expectOnBursts(result, wordsOnBursts({"hi", "there"}, early, 0.1), early);
    expectOnBursts(result, lateWords, late);
    const AlignedWordTiming& crowded = timingOf(result, "m10");
    EXPECT_EQ(crowded.quality, AlignmentWordQuality::fallback);
    EXPECT_TRUE(crowded.usedFallbackTiming);
    EXPECT_NEAR(crowded.start, 4.4, 1e-9);
    EXPECT_NEAR(crowded.end, 4.44, 1e-9);
    EXPECT_TRUE(hasWarning(result, "Skipped precise timing for chunk 4.00-8.00s because not "
                                   "enough model frames (299) to align"));
    EXPECT_TRUE(hasWarning(
        result, "Preserved rough timing for 100 words that could not be aligned in a chunk."));
    EXPECT_TRUE(hasWarning(result, "Aligned long audio in 3 chunks with overlap."));
    ASSERT_EQ(result.report.failedSpans.size(), 1u);
    EXPECT_EQ(result.report.failedSpans[0].wordCount, 100);
    EXPECT_EQ(result.report.failedSpans[0].reason, "fallback");
}

TEST_F(AlignmentEngineTest, AWordWithoutRoughTimesIsPlacedEvenlyBetweenItsNeighbours) {
    const std::vector<Burst> bursts{{0.5, 0.8}, {3.0, 3.3}, {5.0, 5.3}};
    writeBursts(audio_, 6.0, bursts);
    auto words = wordsOnBursts({"one", "two", "three"}, bursts, 0.05);
    words.insert(words.begin() + 2,
                 {{"x", "and", std::nullopt, std::nullopt}, {"y", "then", 4.0, std::nullopt}});
    AlignmentRequest asked = request(words, 6.0);
    asked.options.maximumChunkDuration = 2;
    asked.options.chunkOverlap = 0.5;
    const auto engine = AlignmentEngineFactory::makeEngine(ctcBundle("ctc-char"));
    const AlignmentResult result = engine->align(asked);

    const AlignedWordTiming& two = timingOf(result, "1");
    const AlignedWordTiming& three = timingOf(result, "2");
    const AlignedWordTiming& x = timingOf(result, "x");
    const AlignedWordTiming& y = timingOf(result, "y");
    const double share = (three.start - two.end) / 2;
    EXPECT_NEAR(x.start, two.end, 1e-9);
    EXPECT_NEAR(x.end, two.end + share, 1e-9);
    EXPECT_NEAR(y.start, two.end + share, 1e-9);
    EXPECT_NEAR(y.end, three.start, 1e-9);
    EXPECT_EQ(x.quality, AlignmentWordQuality::fallback);
    EXPECT_TRUE(hasWarning(
        result, "Interpolated fallback timing for 2 words without usable rough timestamps."));
}

TEST_F(AlignmentEngineTest, ShortAudioFailsWhenItsOneChunkFails) {
    writeBursts(audio_, 0.5, {{0.1, 0.4}});
    const auto engine = AlignmentEngineFactory::makeEngine(ctcBundle("ctc-char"));
    std::vector<AlignmentInputWord> words;
    for (int i = 0; i < 20; ++i) {
        words.push_back({std::to_string(i), "everything", 0.0, 0.5});
    }
    EXPECT_EQ(alignmentErrorOf([&] { engine->align(request(words, 0.5)); }).code(),
              AlignmentErrorCode::ctcAlignmentFailed);
    EXPECT_EQ(alignmentErrorOf([&] { engine->align(request({}, 0.5)); }).code(),
              AlignmentErrorCode::noAlignableWords);
    const auto punctuation = alignmentErrorOf([&] {
        engine->align(request({{"0", "...", 0.0, 0.2}, {"1", "!?", 0.2, 0.4}}, 0.5));
    });
    EXPECT_EQ(std::string(punctuation.what()), "The transcript has no timestampable words.");

    AlignmentRequest missing = request({{"0", "hello", 0.0, 0.2}}, 0.5);
    missing.audioFileURL = folder_ / "absent.wav";
    const auto decode = alignmentErrorOf([&] { engine->align(missing); });
    EXPECT_EQ(decode.code(), AlignmentErrorCode::audioDecodeFailed);
    EXPECT_TRUE(std::string(decode.what())
                    .starts_with("Audio could not be prepared for precise word timing: "));
}

// A copy of a test bundle whose manifest a test may change.
std::filesystem::path copyBundle(const std::string& name, const std::filesystem::path& to) {
    std::filesystem::copy(ctcBundle(name), to, std::filesystem::copy_options::recursive);
    return to;
}

void editManifest(const std::filesystem::path& bundle, const std::function<void(Json&)>& edit) {
    Json manifest = readJsonFile(bundle / "model_manifest.json");
    edit(manifest);
    writeJsonAtomically(bundle / "model_manifest.json", manifest);
}

TEST(AlignmentEngineFactory, RefusesBundlesItCannotRun) {
    TemporaryDirectory folder;
    const auto coreml = copyBundle("ctc-char", folder / "coreml");
    editManifest(coreml, [](Json& manifest) { manifest["runtime_type"] = "coreml"; });
    const auto runtime = alignmentErrorOf([&] { AlignmentEngineFactory::makeEngine(coreml); });
    EXPECT_EQ(runtime.code(), AlignmentErrorCode::unsupportedRuntime);
    EXPECT_EQ(std::string(runtime.what()),
              "Precise word timing runtime 'coreml' is not supported in this build.");

    const auto renamed = copyBundle("ctc-char", folder / "renamed");
    editManifest(renamed, [](Json& manifest) { manifest["model"]["audio_input_name"] = "wave"; });
    EXPECT_EQ(alignmentErrorOf([&] { AlignmentEngineFactory::makeEngine(renamed); }).detail(),
              "the model has no input named 'wave'");

    const auto tampered = copyBundle("ctc-char", folder / "tampered");
    testing::writeTextFile(tampered / "vocab.json", R"({"vocab": {"<pad>": 0}})");
    EXPECT_EQ(alignmentErrorOf([&] { AlignmentEngineFactory::makeEngine(tampered); }).detail(),
              "checksum mismatch for 'vocab.json'");
}

std::vector<float> noise(size_t count) {
    std::vector<float> samples(count);
    std::mt19937 random(9);
    std::uniform_real_distribution<float> value(-0.3f, 0.3f);
    for (float& sample : samples) {
        sample = value(random);
    }
    return samples;
}

AlignmentModelManifest manifestOf(const std::string& bundle) {
    return AlignmentModelBundle::load(ctcBundle(bundle)).manifest;
}

void expectNormalisedRows(const CTCFrameLogProbabilities& scores) {
    for (int t = 0; t < scores.frameCount; ++t) {
        double sum = 0;
        for (int k = 0; k < scores.tokenCount; ++k) {
            sum += std::exp(static_cast<double>(scores.at(t, k)));
        }
        EXPECT_NEAR(sum, 1.0, 1e-4) << "frame " << t;
    }
}

TEST(OnnxCTCLogitsProvider, FramesFollowTheFeatureEncoderArithmetic) {
    OnnxCTCLogitsProvider raw(ctcBundle("ctc-char") / "model.onnx", manifestOf("ctc-char"));
    EXPECT_EQ(raw.maximumAudioDuration(), std::nullopt);
    // The feature encoder's arithmetic: 400 samples make the first frame, 320 each next.
    for (const auto& [count, frames] : std::vector<std::pair<size_t, int>>{
             {400, 1}, {719, 1}, {720, 2}, {16000, 49}, {12345, 38}}) {
        const auto scores = raw.logProbabilities(noise(count));
        EXPECT_EQ(scores.frameCount, frames) << count;
        EXPECT_EQ(scores.tokenCount, 32);
        EXPECT_EQ(scores.frameStrideSeconds, 0.02);
        expectNormalisedRows(scores);
    }

    // The padded model hears 10 s; a shorter chunk's frames are cut to what its samples make.
    OnnxCTCLogitsProvider padded(ctcBundle("ctc-bpe-padded") / "model.onnx",
                                 manifestOf("ctc-bpe-padded"));
    EXPECT_EQ(padded.maximumAudioDuration(), 10.0);
    EXPECT_EQ(padded.logProbabilities(noise(48000)).frameCount, 149);
    EXPECT_EQ(padded.logProbabilities(noise(100)).frameCount, 1);
    EXPECT_EQ(padded.logProbabilities(noise(160000)).frameCount, 499);

    // The feature model takes 10 ms mel frames and answers every second one.
    OnnxCTCLogitsProvider features(ctcBundle("ctc-features") / "model.onnx",
                                   manifestOf("ctc-features"));
    EXPECT_EQ(features.maximumAudioDuration(), 10.0);
    const auto scores = features.logProbabilities(noise(16000));
    EXPECT_EQ(scores.frameCount, 51); // 101 mel frames
    expectNormalisedRows(scores);

    // Rows of huge logits stay finite.
    std::vector<float> values{1000, 1000, -1000};
    logSoftmaxRows(values, 3);
    EXPECT_NEAR(values[0], -std::log(2.0), 1e-4);
    EXPECT_LT(values[2], -1000);
}

TEST(OnnxCTCLogitsProvider, RefusesOutputItCannotRead) {
    const std::vector<std::pair<std::function<void()>, std::string>> table{
        {[] {
             OnnxCTCLogitsProvider rank4(ctcBundle("ctc-rank4") / "model.onnx",
                                         manifestOf("ctc-rank4"));
             rank4.logProbabilities(noise(16000));
         },
         "expected CTC logits shaped [frames, vocab] or [batch, frames, vocab], got "
         "[1, 1, 49, 32]"},
        {[] {
             OnnxCTCLogitsProvider raw(ctcBundle("ctc-char") / "model.onnx",
                                       manifestOf("ctc-char"));
             raw.logProbabilities({});
         },
         "audio chunk contained no samples"},
        {[] {
             OnnxCTCLogitsProvider features(ctcBundle("ctc-features") / "model.onnx",
                                            manifestOf("ctc-features"));
             features.logProbabilities(noise(161000));
         },
         "audio chunk produced 1007 feature frames, exceeding model limit 1000 (about 10s)"},
        {[] {
             AlignmentModelManifest manifest = manifestOf("ctc-char");
             manifest.model.logitsOutputName = "scores";
             OnnxCTCLogitsProvider raw(ctcBundle("ctc-char") / "model.onnx", manifest);
             raw.logProbabilities(noise(16000));
         },
         "missing ONNX output 'scores'"},
        {[] {
             AlignmentModelManifest manifest = manifestOf("ctc-char");
             manifest.model.inputShape = std::vector<std::int64_t>{1, 1, 1, 16000};
             OnnxCTCLogitsProvider raw(ctcBundle("ctc-char") / "model.onnx", manifest);
             raw.logProbabilities(noise(16000));
         },
         "raw audio input_shape must be [samples] or [batch, samples], got [1, 1, 1, 16000]"},
        {[] {
             AlignmentModelManifest manifest = manifestOf("ctc-char");
             manifest.model.inputShape = std::vector<std::int64_t>{1, 0};
             OnnxCTCLogitsProvider raw(ctcBundle("ctc-char") / "model.onnx", manifest);
             raw.logProbabilities(noise(16000));
         },
         "raw audio input_shape does not declare a positive sample count"},
    };
    for (const auto& [run, reason] : table) {
        if (const auto error = testing::thrown<AlignmentError>([&] { run(); })) {
            EXPECT_EQ(error->code(), AlignmentErrorCode::malformedModelOutput);
            EXPECT_EQ(error->detail(), reason);
        }
    }
}

} // namespace
} // namespace orvelle
