#include "speech/align/alignment_model_manifest.h"

#include <array>
#include <cmath>

namespace orvelle {

namespace {

using OutputKind = AlignmentModelOutputKind;

constexpr std::array<EnumName<OutputKind>, 2> kOutputKindNames{{
    {OutputKind::logits, "logits"},
    {OutputKind::logProbabilities, "log_probabilities"},
}};

} // namespace

std::span<const EnumName<OutputKind>> jsonNames(OutputKind) {
    return kOutputKindNames;
}

AlignmentTokenizerMetadata
JsonCoder<AlignmentTokenizerMetadata>::decode(const Json& json, const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    AlignmentTokenizerMetadata tokenizer;
    tokenizer.type = reader.required<std::string>("type");
    tokenizer.vocabularyFile = reader.required<std::string>("vocabulary_file");
    tokenizer.blankToken = reader.required<std::string>("blank_token");
    tokenizer.blankTokenID = reader.optional<int>("blank_token_id");
    tokenizer.unknownToken = reader.optional<std::string>("unknown_token");
    tokenizer.wordSeparatorToken = reader.optional<std::string>("word_separator_token");
    tokenizer.metaspaceReplacement = reader.optional<std::string>("metaspace_replacement");
    tokenizer.normalization = reader.required<std::vector<std::string>>("normalization");
    if (tokenizer.blankTokenID && *tokenizer.blankTokenID < 0) {
        context.key("blank_token_id").fail("must not be negative");
    }
    return tokenizer;
}

Json JsonCoder<AlignmentTokenizerMetadata>::encode(const AlignmentTokenizerMetadata& tokenizer) {
    Json json = {{"type", tokenizer.type},
                 {"vocabulary_file", tokenizer.vocabularyFile},
                 {"blank_token", tokenizer.blankToken},
                 {"normalization", encodeJson(tokenizer.normalization)}};
    setOptional(json, "blank_token_id", tokenizer.blankTokenID);
    setOptional(json, "unknown_token", tokenizer.unknownToken);
    setOptional(json, "word_separator_token", tokenizer.wordSeparatorToken);
    setOptional(json, "metaspace_replacement", tokenizer.metaspaceReplacement);
    return json;
}

AlignmentModelMetadata JsonCoder<AlignmentModelMetadata>::decode(const Json& json,
                                                                 const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    AlignmentModelMetadata model;
    model.file = reader.required<std::string>("file");
    model.audioInputName = reader.required<std::string>("audio_input_name");
    model.audioLengthInputName = reader.optional<std::string>("audio_length_input_name");
    model.attentionMaskInputName = reader.optional<std::string>("attention_mask_input_name");
    model.logitsOutputName = reader.required<std::string>("logits_output_name");
    model.outputKind = reader.required<OutputKind>("output_kind");
    model.frameStrideSeconds = reader.required<double>("frame_stride_seconds");
    if (!std::isfinite(model.frameStrideSeconds) || model.frameStrideSeconds <= 0) {
        context.key("frame_stride_seconds").fail("must be a positive number of seconds");
    }
    model.inputShape = reader.optional<std::vector<std::int64_t>>("input_shape");
    model.featureHopLength = reader.optional<int>("feature_hop_length");
    if (model.featureHopLength && *model.featureHopLength < 1) {
        context.key("feature_hop_length").fail("must be at least 1");
    }
    model.featureSubsamplingFactor = reader.optional<int>("feature_subsampling_factor");
    if (model.featureSubsamplingFactor && *model.featureSubsamplingFactor < 1) {
        context.key("feature_subsampling_factor").fail("must be at least 1");
    }
    return model;
}

Json JsonCoder<AlignmentModelMetadata>::encode(const AlignmentModelMetadata& model) {
    Json json = {{"file", model.file},
                 {"audio_input_name", model.audioInputName},
                 {"logits_output_name", model.logitsOutputName},
                 {"output_kind", encodeJson(model.outputKind)},
                 {"frame_stride_seconds", model.frameStrideSeconds}};
    setOptional(json, "audio_length_input_name", model.audioLengthInputName);
    setOptional(json, "attention_mask_input_name", model.attentionMaskInputName);
    setOptional(json, "input_shape", model.inputShape);
    setOptional(json, "feature_hop_length", model.featureHopLength);
    setOptional(json, "feature_subsampling_factor", model.featureSubsamplingFactor);
    return json;
}

AlignmentModelManifest JsonCoder<AlignmentModelManifest>::decode(const Json& json,
                                                                 const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    AlignmentModelManifest manifest;
    manifest.schemaVersion = reader.required<int>("schema_version");
    manifest.upstreamModelID = reader.required<std::string>("upstream_model_id");
    manifest.runtimeType = reader.required<std::string>("runtime_type");
    manifest.sampleRate = reader.required<int>("sample_rate");
    if (manifest.sampleRate < 1) {
        context.key("sample_rate").fail("must be a positive number of hertz");
    }
    const JsonObjectReader format(reader.raw("expected_audio_format"),
                                  context.key("expected_audio_format"));
    manifest.expectedAudioFormat.channels = format.required<int>("channels");
    manifest.expectedAudioFormat.sampleFormat = format.required<std::string>("sample_format");
    manifest.tokenizer = reader.required<AlignmentTokenizerMetadata>("tokenizer");
    manifest.model = reader.required<AlignmentModelMetadata>("model");
    const JsonObjectReader license(reader.raw("license"), context.key("license"));
    manifest.license.name = license.required<std::string>("name");
    manifest.license.sourceURL = license.required<std::string>("source_url");
    manifest.license.redistribution = license.required<std::string>("redistribution");
    // Required, so that a manifest cannot skip the integrity check by leaving it out.
    const Json& checksums = reader.raw("checksums");
    const JsonDecodeContext checksumContext = context.key("checksums");
    if (!checksums.is_object()) {
        checksumContext.fail("expected an object");
    }
    for (const auto& [path, value] : checksums.items()) {
        manifest.checksums[path] = decodeString(value, checksumContext.key(path));
    }
    manifest.version = reader.required<std::string>("version");
    return manifest;
}

Json JsonCoder<AlignmentModelManifest>::encode(const AlignmentModelManifest& manifest) {
    Json checksums = Json::object();
    for (const auto& [path, value] : manifest.checksums) {
        checksums[path] = value;
    }
    return {{"schema_version", manifest.schemaVersion},
            {"upstream_model_id", manifest.upstreamModelID},
            {"runtime_type", manifest.runtimeType},
            {"sample_rate", manifest.sampleRate},
            {"expected_audio_format",
             {{"channels", manifest.expectedAudioFormat.channels},
              {"sample_format", manifest.expectedAudioFormat.sampleFormat}}},
            {"tokenizer", encodeJson(manifest.tokenizer)},
            {"model", encodeJson(manifest.model)},
            {"license",
             {{"name", manifest.license.name},
              {"source_url", manifest.license.sourceURL},
              {"redistribution", manifest.license.redistribution}}},
            {"checksums", checksums},
            {"version", manifest.version}};
}

} // namespace orvelle
