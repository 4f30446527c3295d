#include "platform/onnx/onnx_session.h"
#include "support/temporary_directory.h"
#include "support/thrown.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

namespace orvelle {
namespace {

namespace fs = std::filesystem;

fs::path testModel(const std::string& folder, const std::string& file) {
    return testing::binaryDirectory() / "test-models" / folder / file;
}

size_t argmax(std::span<const float> values) {
    return static_cast<size_t>(std::max_element(values.begin(), values.end()) - values.begin());
}

TEST(OnnxRuntime, LoadsALibraryNewEnoughForThisBuild) {
    const OnnxRuntimeInfo& runtime = onnxRuntime();
    EXPECT_TRUE(fs::exists(runtime.library)) << runtime.library;
    const int major = std::stoi(runtime.version);
    const int minor = std::stoi(runtime.version.substr(runtime.version.find('.') + 1));
    EXPECT_TRUE(major > 1 || (major == 1 && minor >= 21)) << runtime.version;
    EXPECT_NE(std::find(runtime.providers.begin(), runtime.providers.end(), "CPUExecutionProvider"),
              runtime.providers.end());
    EXPECT_EQ(&onnxRuntime(), &runtime) << "loaded once per process";
}

TEST(OnnxSession, DescribesInputsAndOutputsWithOpenDimensions) {
    const OnnxSession encoder(testModel("parakeet-split", "encoder.onnx"));
    ASSERT_EQ(encoder.inputs().size(), 2u);
    EXPECT_EQ(encoder.inputs()[0],
              (OnnxTensorInfo{"input_features", OnnxElementType::float32, {1, -1, 128}}));
    EXPECT_EQ(encoder.inputs()[1],
              (OnnxTensorInfo{"attention_mask", OnnxElementType::int32, {1, -1}}));
    ASSERT_NE(encoder.output("encoder_hidden"), nullptr);
    EXPECT_EQ(encoder.output("encoder_hidden")->shape, (std::vector<int64_t>{1, -1, 8}));
    EXPECT_EQ(encoder.output("encoder_mask")->elementType, OnnxElementType::int32);
    EXPECT_EQ(encoder.input("nothing"), nullptr);
    EXPECT_EQ(encoder.provider(), "CPUExecutionProvider");

    const OnnxSession fused(testModel("parakeet-fused", "decoder_joint-model.onnx"));
    EXPECT_EQ(fused.input("targets")->elementType, OnnxElementType::int32);
    EXPECT_EQ(fused.input("input_states_1")->shape, (std::vector<int64_t>{2, -1, 8}));
}

// The joint of the test models answers by its table: blank with duration 2 before frame 10,
// then the row of the decoder's run count.
TEST(OnnxSession, RunsOnBoundInputsOverwrittenInPlace) {
    const OnnxSession joint(testModel("parakeet-split", "joint.onnx"));
    OnnxFeatureBag inputs;
    OnnxTensor& frame = inputs.add("encoder_frame", OnnxElementType::float32, {1, 8});
    OnnxTensor& state = inputs.add("decoder_state", OnnxElementType::float32, {1, 8});
    const std::vector<std::string> names{"token_logits", "duration_logits"};
    struct Case {
        float frame;
        float runs;
        size_t token;
        size_t duration;
    };
    for (const Case& c : {Case{0, 1, 8192, 2}, Case{9, 5, 8192, 2}, Case{10, 1, 5, 0},
                          Case{10, 2, 6, 1}, Case{40, 6, 8, 4}, Case{40, 500, 8192, 1}}) {
        frame.floats()[0] = c.frame;
        state.floats()[0] = c.runs;
        const auto outputs = joint.run(inputs, names);
        ASSERT_EQ(outputs.size(), 2u);
        EXPECT_EQ(outputs[0].shape(), (std::vector<int64_t>{1, 8193}));
        EXPECT_EQ(argmax(outputs[0].floats()), c.token) << c.frame << " " << c.runs;
        EXPECT_EQ(argmax(outputs[1].floats()), c.duration) << c.frame << " " << c.runs;
    }
}

TEST(OnnxSession, ReshapedInputsGiveOutputsOfTheNewShape) {
    const OnnxSession encoder(testModel("parakeet-split", "encoder.onnx"));
    OnnxFeatureBag inputs;
    OnnxTensor& features = inputs.add("input_features", OnnxElementType::float32, {1, 1, 128});
    OnnxTensor& mask = inputs.add("attention_mask", OnnxElementType::int32, {1, 1});
    const std::vector<std::string> names{"encoder_hidden", "encoder_mask"};
    for (const int64_t frames : {1, 8, 9, 100}) {
        features.reshape({1, frames, 128});
        mask.reshape({1, frames});
        features.zero();
        std::fill_n(mask.int32s(), frames, 1);
        const auto outputs = encoder.run(inputs, names);
        const int64_t encoded = (frames + 7) / 8;
        EXPECT_EQ(outputs[0].shape(), (std::vector<int64_t>{1, encoded, 8}));
        EXPECT_EQ(outputs[1].shape(), (std::vector<int64_t>{1, encoded}));
        const auto hidden = outputs[0].floats();
        for (int64_t t = 0; t < encoded; ++t) {
            EXPECT_EQ(hidden[static_cast<size_t>(t * 8)], static_cast<float>(t));
        }
        const auto maskOut = outputs[1].int32s();
        EXPECT_TRUE(std::all_of(maskOut.begin(), maskOut.end(), [](int32_t v) { return v == 1; }));
        EXPECT_THROW((void)outputs[1].floats(), OnnxError) << "int32 read as float";
    }
}

TEST(OnnxSession, OneSessionRunsOnSeveralThreadsAtOnce) {
    const OnnxSession joint(testModel("parakeet-split", "joint.onnx"));
    std::vector<int> mismatches(4, 0);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < mismatches.size(); ++i) {
        threads.emplace_back([&, i] {
            OnnxFeatureBag inputs;
            inputs.add("encoder_frame", OnnxElementType::float32, {1, 8}).floats()[0] = 20;
            OnnxTensor& state = inputs.add("decoder_state", OnnxElementType::float32, {1, 8});
            const std::vector<std::string> names{"token_logits"};
            for (int round = 0; round < 200; ++round) {
                const float runs = static_cast<float>(1 + (round + i) % 2); // rows 1 and 2
                state.floats()[0] = runs;
                const size_t expected = runs == 1 ? 5 : 6;
                if (argmax(joint.run(inputs, names)[0].floats()) != expected) {
                    ++mismatches[i];
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(mismatches, std::vector<int>(4, 0));
}

TEST(OnnxSession, FailuresSayWhatAndWhere) {
    const auto message = [](const auto& action) { return testing::messageOf<OnnxError>(action); };
    const testing::TemporaryDirectory folder;
    testing::writeTextFile(folder / "broken.onnx", "not a model");
    EXPECT_NE(message([&] {
                  OnnxSession session(folder / "broken.onnx");
              }).find("Could not load the model " + (folder / "broken.onnx").string() + ": "),
              std::string::npos);
    EXPECT_NE(message([&] { OnnxSession session(folder / "absent.onnx"); }).find("absent.onnx"),
              std::string::npos);

    const OnnxSession encoder(testModel("parakeet-failing", "encoder.onnx"));
    OnnxFeatureBag inputs;
    inputs.add("input_features", OnnxElementType::float32, {1, 16, 128});
    inputs.add("attention_mask", OnnxElementType::int32, {1, 16});
    const std::vector<std::string> wrong{"encoder_hidden", "logits"};
    EXPECT_EQ(message([&] { encoder.run(inputs, wrong); }),
              "The model encoder.onnx has no output \"logits\".");
    // All-zero features make this encoder's lookup run out of range.
    const std::vector<std::string> names{"encoder_hidden"};
    EXPECT_NE(message([&] {
                  encoder.run(inputs, names);
              }).find("Running the model encoder.onnx failed: "),
              std::string::npos);
    inputs["input_features"].floats()[5] = 1;
    EXPECT_EQ(encoder.run(inputs, names)[0].shape(), (std::vector<int64_t>{1, 2, 8}));

    EXPECT_THROW(inputs.add("attention_mask", OnnxElementType::int32, {1}), OnnxError);
    EXPECT_THROW(inputs["missing"], OnnxError);
    EXPECT_THROW(inputs["attention_mask"].floats(), OnnxError);
}

} // namespace
} // namespace orvelle
