#pragma once

// "model_manifest.json" at the root of a precise word timing model bundle: what the model
// is, how to feed it, how to read its output, and the checksums of the installed files.

#include "core/json.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace orvelle {

struct AlignmentExpectedAudioFormat {
    int channels = 1;
    std::string sampleFormat = "float32";

    friend bool operator==(const AlignmentExpectedAudioFormat&,
                           const AlignmentExpectedAudioFormat&) = default;
};

struct AlignmentTokenizerMetadata {
    std::string type;           // "ctc_char", "bpe", ...
    std::string vocabularyFile; // relative to the bundle
    std::string blankToken;
    std::optional<int> blankTokenID;
    std::optional<std::string> unknownToken;
    std::optional<std::string> wordSeparatorToken;
    std::optional<std::string> metaspaceReplacement;
    std::vector<std::string> normalization;

    friend bool operator==(const AlignmentTokenizerMetadata&,
                           const AlignmentTokenizerMetadata&) = default;
};

enum class AlignmentModelOutputKind { logits, logProbabilities };

std::span<const EnumName<AlignmentModelOutputKind>> jsonNames(AlignmentModelOutputKind);

struct AlignmentModelMetadata {
    std::string file; // relative to the bundle
    std::string audioInputName;
    std::optional<std::string> audioLengthInputName;
    std::optional<std::string> attentionMaskInputName;
    std::string logitsOutputName;
    AlignmentModelOutputKind outputKind = AlignmentModelOutputKind::logits;
    double frameStrideSeconds = 0.02;
    // [samples] or [batch, samples] for fixed raw audio; [1, frames, bins] for features.
    std::optional<std::vector<std::int64_t>> inputShape;
    std::optional<int> featureHopLength;
    std::optional<int> featureSubsamplingFactor;

    friend bool operator==(const AlignmentModelMetadata&, const AlignmentModelMetadata&) = default;
};

struct AlignmentModelLicense {
    std::string name;
    std::string sourceURL;
    std::string redistribution;

    friend bool operator==(const AlignmentModelLicense&, const AlignmentModelLicense&) = default;
};

struct AlignmentModelManifest {
    int schemaVersion = 1;
    std::string upstreamModelID;
    std::string runtimeType; // "onnx" is what this build runs
    int sampleRate = 16000;
    AlignmentExpectedAudioFormat expectedAudioFormat;
    AlignmentTokenizerMetadata tokenizer;
    AlignmentModelMetadata model;
    AlignmentModelLicense license;
    std::map<std::string, std::string> checksums; // relative path to "sha256:<hex>"
    std::string version;

    friend bool operator==(const AlignmentModelManifest&, const AlignmentModelManifest&) = default;
};

template <>
struct JsonCoder<AlignmentTokenizerMetadata> {
    static AlignmentTokenizerMetadata decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const AlignmentTokenizerMetadata& tokenizer);
};

template <>
struct JsonCoder<AlignmentModelMetadata> {
    static AlignmentModelMetadata decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const AlignmentModelMetadata& model);
};

template <>
struct JsonCoder<AlignmentModelManifest> {
    static AlignmentModelManifest decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const AlignmentModelManifest& manifest);
};

} // namespace orvelle
