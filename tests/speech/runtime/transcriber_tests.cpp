#include "platform/media/audio_decoder.h"
#include "speech/runtime/audio_loader.h"
#include "speech/runtime/parakeet_error.h"
#include "speech/runtime/parakeet_transcriber.h"
#include "support/test_media.h"
#include "support/thrown.h"
#include "test_models.h"

#include <gtest/gtest.h>

#include <numeric>
#include <thread>

namespace orvelle {
namespace {

using testing::fullPath;
using testing::testModelFolder;

std::vector<float> tone(double seconds) {
    return testing::sineTone(300, seconds, 16000, 1, 0.3f);
}

class BothLayouts : public ::testing::TestWithParam<const char*> {};

// Two chunks of 30 s and 1 s: the second chunk's frames follow the first chunk's 375.
TEST_P(BothLayouts, ChunksAreStitchedByTheirEncoderFrames) {
    ParakeetTranscriber transcriber(testModelFolder(GetParam()), ParakeetComputeUnits::cpu);
    const auto samples = tone(31);
    const Transcription result = transcriber.transcribe(samples);

    testing::DecodedPath expected = fullPath();
    expected.tokenIds.insert(expected.tokenIds.end(), {5, 6});
    expected.frameIndices.insert(expected.frameIndices.end(), {385, 385});
    expected.durations.insert(expected.durations.end(), {0, 1});
    EXPECT_EQ((testing::DecodedPath{result.tokenIds, result.frameIndices, result.durations}),
              expected);
    EXPECT_EQ(result.text, "hello world! la la la la la la la la la la end hello");
    ASSERT_EQ(result.timedTokens.size(), expected.tokenIds.size());
    const ParakeetTimedToken& late = result.timedTokens[result.timedTokens.size() - 2];
    EXPECT_EQ(late, (ParakeetTimedToken{5, "▁hel", " hel", 385, 0, 385 * 0.08, 386 * 0.08}));
    EXPECT_DOUBLE_EQ(late.startTime, 30.8);
    const ParakeetTimedToken& world = result.timedTokens[2];
    EXPECT_DOUBLE_EQ(world.startTime, 15 * 0.08);
    EXPECT_DOUBLE_EQ(world.endTime, 17 * 0.08) << "its duration of 2 frames";
    EXPECT_DOUBLE_EQ(result.audioDurationSeconds, 31);
    EXPECT_GT(result.timing.melExtract, 0);
    EXPECT_GT(result.timing.encoder, 0);
    EXPECT_GT(result.timing.decoderLoop, 0);
    EXPECT_GT(result.inferenceDurationSeconds, 0);
}

INSTANTIATE_TEST_SUITE_P(Layouts, BothLayouts,
                         ::testing::Values("parakeet-split", "parakeet-fused", "parakeet-public"));

TEST(ParakeetTranscriber, TimesNeverPassTheEndOfTheAudio) {
    ParakeetTranscriber transcriber(testModelFolder("parakeet-split"), ParakeetComputeUnits::cpu);
    // 2.2 s: 221 mel frames, 28 encoder frames; "▁end" at 26 lasts 4 frames, to 2.4 s.
    const Transcription result = transcriber.transcribe(tone(2.2));
    ASSERT_FALSE(result.timedTokens.empty());
    const ParakeetTimedToken& last = result.timedTokens.back();
    EXPECT_EQ(last.piece, "▁end");
    EXPECT_DOUBLE_EQ(last.startTime, 26 * 0.08);
    EXPECT_DOUBLE_EQ(last.endTime, 2.2);
    // A token of duration 0 still lasts one frame.
    EXPECT_DOUBLE_EQ(result.timedTokens[0].endTime - result.timedTokens[0].startTime, 0.08);
    EXPECT_EQ(transcriber.transcribe(std::span<const float>{}), Transcription{});
}

// One-second chunks decode the same whatever the number of workers and the order in
// which they finish.
TEST(ParakeetTranscriber, ParallelDecodingStitchesInChunkOrder) {
    const auto samples = tone(7.5);
    std::vector<int> expectedFrames;
    for (int chunk = 0; chunk < 8; ++chunk) {
        expectedFrames.insert(expectedFrames.end(), {10 + 13 * chunk, 10 + 13 * chunk});
    }
    expectedFrames.resize(expectedFrames.size() - 2); // the last half second has 7 frames
    for (const int workers : {1, 2, 4}) {
        ParakeetTranscriber transcriber(testModelFolder("parakeet-split"),
                                        ParakeetComputeUnits::gpu, 100, 16000, workers);
        EXPECT_EQ(transcriber.runner().workerCount(), static_cast<size_t>(workers));
        std::vector<size_t> reported;
        const Transcription result =
            transcriber.transcribe(samples, [&](size_t decoded, size_t total) {
                EXPECT_EQ(total, 8u);
                reported.push_back(decoded);
            });
        EXPECT_EQ(result.frameIndices, expectedFrames) << workers;
        EXPECT_EQ(reported.size(), 8u);
    }
}

// The failing encoder refuses a chunk of digital silence: chunk 3 of 5.
TEST(ParakeetTranscriber, AnEncoderFailureFailsTheRunAfterTheOtherChunksEnd) {
    std::vector<float> samples = tone(5);
    std::fill(samples.begin() + 48000, samples.begin() + 64000, 0.0f); // seconds 3 to 4
    ParakeetTranscriber transcriber(testModelFolder("parakeet-failing"), ParakeetComputeUnits::gpu,
                                    100, 16000, 2);
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (const auto error =
                testing::thrown<OnnxError>([&] { transcriber.transcribe(samples); })) {
            EXPECT_NE(std::string(error->what()).find("Running the model encoder.onnx failed"),
                      std::string::npos)
                << error->what();
        }
    }
    // Every worker is back in the pool, and good audio still transcribes.
    std::vector<DecoderWorker*> workers{transcriber.runner().acquireWorker(),
                                        transcriber.runner().acquireWorker()};
    for (DecoderWorker* worker : workers) {
        ASSERT_NE(worker, nullptr);
        transcriber.runner().releaseWorker(worker);
    }
    EXPECT_EQ(transcriber.transcribe(tone(2)).tokenIds.size(), 4u);
}

// A folder that lacks files of its layout says which, all at once, before anything loads.
TEST(ParakeetTranscriber, AnIncompleteFolderNamesEveryMissingFile) {
    struct Case {
        const char* source;
        std::vector<std::string> present;
        std::string lacks;
    };
    const std::vector<Case> cases{
        {"parakeet-split",
         {},
         "encoder.onnx; decoder.onnx; joint.onnx or joiner.onnx; "
         "tokenizer.json or tokens.txt"},
        {"parakeet-split",
         {"encoder.onnx", "joint.onnx"},
         "decoder.onnx; tokenizer.json or tokens.txt"},
        {"parakeet-public",
         {"encoder.int8.onnx", "decoder.int8.onnx", "tokens.txt"},
         "joint.onnx or joiner.onnx"},
        {"parakeet-fused",
         {"encoder-model.onnx"},
         "decoder_joint-model.onnx; vocab.txt or tokens.txt"},
    };
    for (const Case& c : cases) {
        const testing::TemporaryDirectory folder;
        for (const auto& file : c.present) {
            std::filesystem::copy_file(testModelFolder(c.source) / file, folder / file);
        }
        SCOPED_TRACE(c.lacks);
        EXPECT_FALSE(ParakeetModelFolder::at(folder.path()).complete());
        EXPECT_EQ(testing::messageOf<Error>(
                      [&] { ParakeetTranscriber(folder.path(), ParakeetComputeUnits::cpu); }),
                  "The speech model in " + folder.path().string() + " is incomplete. It lacks: " +
                      c.lacks + ". Install the model again or copy the missing files there.");
    }
    // The full model wins over a quantised one beside it.
    const testing::TemporaryDirectory both;
    for (const char* file : {"encoder.onnx", "decoder.onnx", "joint.onnx", "tokenizer.json"}) {
        std::filesystem::copy_file(testModelFolder("parakeet-split") / file, both / file);
    }
    std::filesystem::copy_file(testModelFolder("parakeet-public") / "encoder.int8.onnx",
                               both / "encoder.int8.onnx");
    EXPECT_EQ(ParakeetModelFolder::at(both.path()).models.front(), both / "encoder.onnx");
    EXPECT_NO_THROW(ParakeetTranscriber(both.path(), ParakeetComputeUnits::cpu));
}

TEST(AudioLoader, DecodesAnyRateAndChannelCountToMono16k) {
    const testing::TemporaryDirectory folder;
    const auto stereo = testing::sineTone(440, 1.5, 44100, 2, 0.4f);
    testing::writeAudioFile(folder / "stereo.wav", stereo, AudioFormat{44100, 2});
    const auto samples = AudioLoader::loadMono16k(folder / "stereo.wav");
    EXPECT_NEAR(static_cast<double>(samples.size()), 1.5 * 16000, 16);
    EXPECT_NEAR(testing::estimateFrequency(samples, 16000, 1), 440, 1);

    // Already 16 kHz mono: the same samples come back.
    const auto mono = tone(0.5);
    testing::writeAudioFile(folder / "mono.wav", mono, AudioFormat{16000, 1});
    const auto same = AudioLoader::loadMono16k(folder / "mono.wav");
    ASSERT_EQ(same.size(), mono.size());
    for (size_t i = 0; i < mono.size(); i += 97) {
        EXPECT_NEAR(same[i], mono[i], 1e-4) << i;
    }
}

TEST(AudioLoader, FailuresNameTheFile) {
    const testing::TemporaryDirectory folder;
    testing::writeAudioFile(folder / "empty.wav", {}, AudioFormat{16000, 1});
    EXPECT_EQ(testing::messageOf<Error>([&] { AudioLoader::loadMono16k(folder / "empty.wav"); }),
              "Audio file at " + (folder / "empty.wav").string() + " contains no samples");
    testing::writeTextFile(folder / "notes.m4a", "not audio");
    EXPECT_EQ(testing::messageOf<Error>([&] {
                  AudioLoader::loadMono16k(folder / "notes.m4a");
              }).rfind("Failed to load audio at " + (folder / "notes.m4a").string() + ": ", 0),
              0u);
}

} // namespace
} // namespace orvelle
