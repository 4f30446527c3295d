#include "platform/crypto/sha256.h"
#include "speech/align/alignment_error.h"
#include "speech/align/alignment_model_bundle.h"
#include "support/temporary_directory.h"
#include "support/thrown.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>

namespace orvelle {
namespace {

using testing::TemporaryDirectory;
using testing::writeTextFile;

constexpr std::string_view kModelBytes = "not really a model";
constexpr std::string_view kVocabulary = R"({"<pad>": 0, "|": 1, "A": 2})";

Json manifestJson() {
    return parseJson(R"({
      "schema_version": 1,
      "upstream_model_id": "test/wav2vec2-tiny",
      "runtime_type": "onnx",
      "sample_rate": 16000,
      "expected_audio_format": {"channels": 1, "sample_format": "float32"},
      "tokenizer": {"type": "ctc_char", "vocabulary_file": "vocab.json", "blank_token": "<pad>",
                    "word_separator_token": "|", "normalization": ["lowercase"]},
      "model": {"file": "model.onnx", "audio_input_name": "input_values",
                "logits_output_name": "logits", "output_kind": "logits",
                "frame_stride_seconds": 0.02, "input_shape": [1, 16000]},
      "license": {"name": "MIT", "source_url": "https://example.invalid", "redistribution": "yes"},
      "checksums": {},
      "version": "1.0"
    })");
}

// A bundle folder with a model, a vocabulary and a manifest whose checksums are right.
struct BundleFolder {
    TemporaryDirectory folder;
    Json manifest = manifestJson();

    BundleFolder() {
        writeTextFile(folder / "model.onnx", kModelBytes);
        writeTextFile(folder / "vocab.json", kVocabulary);
        manifest["checksums"]["model.onnx"] = "sha256:" + sha256Hex(kModelBytes);
        manifest["checksums"]["vocab.json"] = sha256Hex(kVocabulary);
        write();
    }
    void write() { writeTextFile(folder / "model_manifest.json", prettyJson(manifest)); }
    AlignmentModelBundle load() { return AlignmentModelBundle::load(folder.path()); }
};

std::string upperCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

AlignmentError errorOf(const std::function<void()>& run) {
    return testing::thrown<AlignmentError>(run).value_or(
        AlignmentError(AlignmentErrorCode::noAlignableWords));
}

TEST(Sha256, KnownDigests) {
    EXPECT_EQ(sha256Hex(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(sha256Hex("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    TemporaryDirectory folder;
    std::string big(3 << 20, 'x'); // spans several read blocks
    big[12345] = 'y';
    writeTextFile(folder / "big", big);
    EXPECT_EQ(sha256HexOfFile(folder / "big"), sha256Hex(big));
    EXPECT_THROW(sha256HexOfFile(folder / "absent"), FileError);
}

TEST(AlignmentModelBundle, LoadsAndValidatesAGoodBundle) {
    BundleFolder bundle;
    const auto loaded = bundle.load();
    EXPECT_EQ(loaded.manifest.runtimeType, "onnx");
    EXPECT_EQ(loaded.manifest.tokenizer.wordSeparatorToken, "|");
    EXPECT_EQ(loaded.manifest.model.inputShape, (std::vector<std::int64_t>{1, 16000}));
    EXPECT_EQ(loaded.modelURL(), bundle.folder / "model.onnx");
    EXPECT_NO_THROW(loaded.validateInstalledFilesStrict());
    EXPECT_EQ(decodeJson<AlignmentModelManifest>(encodeJson(loaded.manifest)), loaded.manifest);
}

TEST(AlignmentModelBundle, LoadFailures) {
    TemporaryDirectory folder;
    const auto missing = errorOf([&] { AlignmentModelBundle::load(folder / "nowhere"); });
    EXPECT_EQ(missing.code(), AlignmentErrorCode::modelBundleMissing);
    EXPECT_EQ(std::string(missing.what()),
              "Precise word timing model bundle was not found at " + (folder / "nowhere").string());

    const auto noManifest = errorOf([&] { AlignmentModelBundle::load(folder.path()); });
    EXPECT_EQ(noManifest.code(), AlignmentErrorCode::manifestMissing);
    EXPECT_EQ(noManifest.detail(), (folder / "model_manifest.json").string());

    // A manifest that does not decode fails with the decoder's error, naming file and key.
    BundleFolder bundle;
    bundle.manifest["model"].erase("logits_output_name");
    bundle.write();
    if (const auto error = testing::thrown<JsonDecodeError>([&] { bundle.load(); })) {
        EXPECT_EQ(std::string(error->what()),
                  (bundle.folder / "model_manifest.json").string() +
                      ": model.logits_output_name: required key is missing");
    }
    writeTextFile(bundle.folder / "model_manifest.json", "{not json");
    if (const auto error = testing::thrown<JsonDecodeError>([&] { bundle.load(); })) {
        EXPECT_TRUE(
            std::string(error->what())
                .starts_with((bundle.folder / "model_manifest.json").string() + ": not valid JSON"))
            << error->what();
    }
}

TEST(AlignmentModelBundle, OnlyTheKeysMarkedOptionalMayBeLeftOut) {
    // Dotted paths into the manifest. Leaving out "checksums" must not skip the integrity
    // check, so it is required like every key not marked optional.
    const std::vector<std::string> required{
        "schema_version",         "expected_audio_format.sample_format",
        "tokenizer.blank_token",  "model.logits_output_name",
        "license.redistribution", "checksums"};
    const std::vector<std::string> optional{"tokenizer.blank_token_id",
                                            "tokenizer.unknown_token",
                                            "tokenizer.word_separator_token",
                                            "tokenizer.metaspace_replacement",
                                            "model.audio_length_input_name",
                                            "model.attention_mask_input_name",
                                            "model.input_shape",
                                            "model.feature_hop_length",
                                            "model.feature_subsampling_factor"};
    Json full = manifestJson();
    full["tokenizer"]["blank_token_id"] = 0;
    full["tokenizer"]["unknown_token"] = "<unk>";
    full["tokenizer"]["metaspace_replacement"] = "_";
    full["model"]["audio_length_input_name"] = "lengths";
    full["model"]["attention_mask_input_name"] = "mask";
    full["model"]["feature_hop_length"] = 160;
    full["model"]["feature_subsampling_factor"] = 2;
    const auto without = [&](const std::string& key) {
        Json json = full;
        const size_t dot = key.find('.');
        if (dot == std::string::npos) {
            json.erase(key);
        } else {
            json[key.substr(0, dot)].erase(key.substr(dot + 1));
        }
        return json;
    };
    for (const auto& key : required) {
        if (const auto error = testing::thrown<JsonDecodeError>(
                [&] { decodeJson<AlignmentModelManifest>(without(key)); })) {
            EXPECT_EQ(std::string(error->what()), key + ": required key is missing");
        }
    }
    for (const auto& key : optional) {
        EXPECT_NO_THROW(decodeJson<AlignmentModelManifest>(without(key))) << key;
    }
}

TEST(AlignmentModelBundle, StrictValidationNeedsTheFiles) {
    BundleFolder bundle;
    std::filesystem::remove(bundle.folder / "vocab.json");
    const auto noVocabulary = errorOf([&] { bundle.load().validateInstalledFilesStrict(); });
    EXPECT_EQ(noVocabulary.code(), AlignmentErrorCode::missingVocabulary);

    std::filesystem::remove(bundle.folder / "model.onnx");
    const auto noModel = errorOf([&] { bundle.load().validateInstalledFilesStrict(); });
    EXPECT_EQ(noModel.code(), AlignmentErrorCode::missingModelFile);
    EXPECT_EQ(std::string(noModel.what()), "Precise word timing model file was not found at " +
                                               (bundle.folder / "model.onnx").string());

    bundle.manifest["model"]["file"] = "../model.onnx";
    bundle.write();
    EXPECT_EQ(errorOf([&] { bundle.load().validateInstalledFilesStrict(); }).detail(),
              "manifest path escapes the model bundle: '../model.onnx'");
}

TEST(AlignmentModelBundle, ChecksumFailures) {
    const std::string good = sha256Hex(kModelBytes);
    const std::vector<std::tuple<std::string, std::string, std::string>> table{
        {"../x", "sha256:" + good, "manifest checksum path escapes the model bundle: '../x'"},
        {"sub/../../x", good, "manifest checksum path escapes the model bundle: 'sub/../../x'"},
        {"/etc/passwd", good, "manifest checksum path escapes the model bundle: '/etc/passwd'"},
        {".", good, "manifest checksum path escapes the model bundle: '.'"},
        {"", good, "manifest checksum path is empty"},
        {"absent.bin", good, "checksum entry 'absent.bin' is missing"},
        {"model.onnx", "md5:abcd", "unsupported checksum algorithm 'md5' for 'model.onnx'"},
        {"model.onnx", "sha256:abcd", "invalid SHA-256 checksum for 'model.onnx'"},
        {"model.onnx", "sha256:" + std::string(64, 'g'),
         "invalid SHA-256 checksum for 'model.onnx'"},
        // Only the lower-case digits, and nothing around them.
        {"model.onnx", "sha256:" + upperCase(good), "invalid SHA-256 checksum for 'model.onnx'"},
        {"model.onnx", upperCase(good), "invalid SHA-256 checksum for 'model.onnx'"},
        {"model.onnx", "sha256:" + good + "\n", "invalid SHA-256 checksum for 'model.onnx'"},
        {"model.onnx", "sha256: " + good, "invalid SHA-256 checksum for 'model.onnx'"},
        {"model.onnx", " sha256:" + good,
         "unsupported checksum algorithm ' sha256' for 'model.onnx'"},
        {"model.onnx", "SHA256:" + good,
         "unsupported checksum algorithm 'SHA256' for 'model.onnx'"},
        {"model.onnx", std::string(64, '0'), "checksum mismatch for 'model.onnx'"},
        {"vocab.json", "sha256:" + good, "checksum mismatch for 'vocab.json'"},
    };
    for (const auto& [path, checksum, reason] : table) {
        SCOPED_TRACE(path + " " + checksum);
        BundleFolder bundle;
        bundle.manifest["checksums"][path] = checksum;
        bundle.write();
        const auto error = errorOf([&] { bundle.load().validateInstalledFilesStrict(); });
        EXPECT_EQ(error.code(), AlignmentErrorCode::modelBundleValidationFailed);
        EXPECT_EQ(error.detail(), reason);
        EXPECT_EQ(std::string(error.what()),
                  "Precise word timing model bundle is invalid: " + reason);
    }
}

TEST(AlignmentModelBundle, ChecksumsMayCoverFilesInsideFolders) {
    BundleFolder bundle;
    writeTextFile(bundle.folder / "extra" / "notes.txt", "hello");
    bundle.manifest["checksums"]["extra/./notes.txt"] = "sha256:" + sha256Hex("hello");
    bundle.write();
    EXPECT_NO_THROW(bundle.load().validateInstalledFilesStrict());
}

TEST(AlignmentModelBundle, MaximumAudioDurationFollowsTheInputShape) {
    AlignmentModelManifest manifest = decodeJson<AlignmentModelManifest>(manifestJson());
    EXPECT_EQ(maximumAudioDuration(manifest), 1.0);
    manifest.model.inputShape = {48000};
    EXPECT_EQ(maximumAudioDuration(manifest), 3.0);
    manifest.model.inputShape = {1, 3000, 80};
    EXPECT_EQ(maximumAudioDuration(manifest), 30.0);
    manifest.model.featureHopLength = 320;
    EXPECT_EQ(maximumAudioDuration(manifest), 60.0);
    manifest.model.inputShape = {1, -1};
    EXPECT_EQ(maximumAudioDuration(manifest), std::nullopt);
    manifest.model.inputShape.reset();
    EXPECT_EQ(maximumAudioDuration(manifest), std::nullopt);
}

} // namespace
} // namespace orvelle
