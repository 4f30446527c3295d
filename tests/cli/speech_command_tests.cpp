#include "cli/cli_test_support.h"
#include "support/temporary_directory.h"

namespace orvelle {
namespace {

using testing::orvelleJson;
using testing::TemporaryDirectory;

std::filesystem::path modelFolder(const std::string& name) {
    return testing::binaryDirectory() / "test-models" / name;
}

// A spoken sentence from espeak-ng, 22.05 kHz mono.
std::filesystem::path narration(const TemporaryDirectory& folder) {
    const auto path = folder / "narration.wav";
    const auto result = testing::runProgram(
        "/usr/bin/espeak-ng",
        {"-w", path.string(), "Recording the screen is easy. Editing the take is easier."});
    EXPECT_EQ(result.status, 0) << result.err;
    return path;
}

TEST(SpeechCommands, TranscribeANarrationWithEitherModelLayout) {
    const TemporaryDirectory folder;
    const auto audio = narration(folder);
    for (const char* model : {"parakeet-split", "parakeet-fused"}) {
        const Json result =
            orvelleJson({"transcribe", audio.string(), "--model", modelFolder(model).string(),
                         "--compute-units", "cpu", "--json"});
        // The tiny models do not listen: they walk the same path over any audio this long.
        EXPECT_EQ(result["text"], "hello world! la la la la la la la la la la end") << model;
        ASSERT_EQ(result["timedTokens"].size(), 15u);
        EXPECT_EQ(result["timedTokens"][2]["piece"], "▁world");
        EXPECT_DOUBLE_EQ(result["timedTokens"][2]["startTime"].get<double>(), 1.2);
        EXPECT_GT(result["audioDurationSeconds"].get<double>(), 3.0);
        EXPECT_GT(result["realtimeFactor"].get<double>(), 0.0);
        EXPECT_EQ(result["computeUnits"], "cpu");
        for (const char* stage : {"melExtract", "encoder", "decoderLoop", "detokenize"}) {
            EXPECT_TRUE(result["timing"].contains(stage)) << stage;
        }
    }
    const auto plain =
        testing::runProgram(testing::orvelleBinary(), {"transcribe", audio.string(), "--model",
                                                       modelFolder("parakeet-split").string()});
    EXPECT_EQ(plain.status, 0) << plain.err;
    EXPECT_EQ(plain.out, "hello world! la la la la la la la la la la end\n");
}

TEST(SpeechCommands, MelPrintsTheWholeFeatureMatrix) {
    const TemporaryDirectory folder;
    const auto audio = narration(folder);
    const Json result = orvelleJson({"speech", "mel", audio.string(), "--json"});
    const auto duration = result["audioDurationSeconds"].get<double>();
    const auto frames = result["frameCount"].get<size_t>();
    EXPECT_EQ(frames, static_cast<size_t>(std::llround(duration * 16000)) / 160 + 1);
    EXPECT_EQ(result["bins"], 128);
    ASSERT_EQ(result["features"].size(), frames);
    EXPECT_EQ(result["features"][frames / 2].size(), 128u);
}

TEST(SpeechCommands, FailuresSayWhatToDo) {
    const TemporaryDirectory folder;
    const auto audio = narration(folder);
    const auto missing =
        testing::runProgram(testing::orvelleBinary(),
                            {"transcribe", audio.string(), "--model", folder.path().string()});
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.err, "orvelle transcribe: The speech model in " + folder.path().string() +
                               " is incomplete. It lacks: encoder.onnx; decoder.onnx; joint.onnx "
                               "or joiner.onnx; tokenizer.json or tokens.txt. Install the model "
                               "again or copy the missing files there.\n");
    EXPECT_TRUE(
        testing::orvelleRefuses({"transcribe", audio.string(), "--model",
                                 modelFolder("parakeet-split").string(), "--compute-units", "tpu"},
                                2, "--compute-units is one of cpu, gpu, ane or all"));
    EXPECT_TRUE(testing::orvelleRefuses({"transcribe", audio.string()}, 2, ""));
    const auto empty = folder / "empty.txt";
    testing::writeTextFile(empty, "");
    EXPECT_TRUE(testing::orvelleRefuses({"speech", "mel", empty.string()}, 1,
                                        "Failed to load audio at " + empty.string()));

    const Json runtime = orvelleJson({"speech", "runtime", "--json"});
    EXPECT_FALSE(runtime["version"].get<std::string>().empty());
    EXPECT_TRUE(std::filesystem::exists(runtime["library"].get<std::string>()));
}

} // namespace
} // namespace orvelle
