// The vocabulary and manifest readers take files from downloads: whatever the bytes, they
// either read or fail with the system's own error, never with a crash or a stray exception.

#include "speech/align/alignment_model_manifest.h"
#include "speech/align/ctc_transcript_normalizer.h"
#include "speech/align/ctc_vocabulary.h"

#include <gtest/gtest.h>

#include <random>

namespace orvelle {
namespace {

constexpr std::string_view kVocabularySeeds[] = {
    R"(["<pad>", "a", "b", "|", "<unk>"])",
    R"({"tokens": ["<pad>", "a", "b"]})",
    R"({"vocab": {"<pad>": 0, "|": 1, "A": 2, "B": 3}})",
    R"({"model": {"vocab": {"<pad>": 0, "\u2581": 1, "a": 2, "\u2581a": 3},
        "merges": ["\u2581 a", ["a", "a"]]},
        "pre_tokenizer": {"type": "Metaspace", "replacement": "\u2581"}})",
};

constexpr std::string_view kManifestSeed = R"({
  "schema_version": 1, "upstream_model_id": "m", "runtime_type": "onnx", "sample_rate": 16000,
  "expected_audio_format": {"channels": 1, "sample_format": "float32"},
  "tokenizer": {"type": "bpe", "vocabulary_file": "v.json", "blank_token": "<pad>",
                "blank_token_id": 0, "unknown_token": "<unk>", "metaspace_replacement": "_",
                "normalization": ["nfkc"]},
  "model": {"file": "m.onnx", "audio_input_name": "x", "audio_length_input_name": "n",
            "attention_mask_input_name": "mask", "logits_output_name": "y",
            "output_kind": "log_probabilities", "frame_stride_seconds": 0.02,
            "input_shape": [1, 100, 80], "feature_hop_length": 160,
            "feature_subsampling_factor": 2},
  "license": {"name": "x", "source_url": "y", "redistribution": "z"},
  "checksums": {"m.onnx": "sha256:00"}, "version": "1"})";

// One random change to JSON text: a byte flipped, inserted, removed or the text cut short.
std::string mutateBytes(std::string text, std::mt19937& random) {
    static constexpr std::string_view kInteresting = "{}[]\":,0-1.e\\u\xFF\xE2\x96\x81 nt";
    const int edits = 1 + static_cast<int>(random() % 4);
    for (int i = 0; i < edits && !text.empty(); ++i) {
        const size_t at = random() % text.size();
        const char c = kInteresting[random() % kInteresting.size()];
        switch (random() % 4) {
        case 0:
            text[at] = c;
            break;
        case 1:
            text.insert(at, 1, c);
            break;
        case 2:
            text.erase(at, 1);
            break;
        default:
            text.resize(at);
            break;
        }
    }
    return text;
}

Json randomValue(std::mt19937& random) {
    switch (random() % 9) {
    case 0:
        return nullptr;
    case 1:
        return static_cast<int>(random() % 7) - 2;
    case 2:
        return 1e300;
    case 3:
        return -0.5;
    case 4:
        return "a b";
    case 5:
        return Json::array({"a", 1});
    case 6:
        return Json::object({{"type", "Metaspace"}, {"replacement", 3}});
    case 7:
        return std::numeric_limits<std::uint64_t>::max();
    default:
        return true;
    }
}

// One random change to the structure: a value somewhere replaced by one of another type, or
// a key removed.
void mutateStructure(Json& json, std::mt19937& random) {
    Json* node = &json;
    while ((node->is_object() || node->is_array()) && !node->empty() && random() % 3 != 0) {
        auto it = node->begin();
        std::advance(it, static_cast<long>(random() % node->size()));
        node = &*it;
    }
    if (node->is_object() && !node->empty() && random() % 2 == 0) {
        auto it = node->begin();
        std::advance(it, static_cast<long>(random() % node->size()));
        node->erase(it.key());
    } else {
        *node = randomValue(random);
    }
}

AlignmentTokenizerMetadata fuzzMetadata(std::mt19937& random) {
    AlignmentTokenizerMetadata metadata{.type = random() % 2 == 0 ? "ctc_char" : "bpe",
                                        .blankToken = "<pad>"};
    if (random() % 4 == 0) {
        metadata.blankTokenID = static_cast<int>(random() % 3);
    }
    metadata.unknownToken = "<unk>";
    metadata.wordSeparatorToken = "|";
    return metadata;
}

TEST(ReaderFuzz, VocabularyReaderOnlyFailsWithItsOwnErrors) {
    std::mt19937 random(7);
    int loaded = 0;
    for (int round = 0; round < 3000; ++round) {
        const std::string_view seed = kVocabularySeeds[random() % std::size(kVocabularySeeds)];
        std::string text;
        if (round % 2 == 0) {
            text = mutateBytes(std::string(seed), random);
        } else {
            Json json = parseJson(seed);
            mutateStructure(json, random);
            text = json.dump();
        }
        try {
            const CTCVocabulary vocabulary = CTCVocabulary::decode(text, fuzzMetadata(random));
            loaded += 1;
            // What reads must also tokenise without harm.
            CTCTranscriptNormalizer::normalize(
                {{"0", "Aa ab", std::nullopt, std::nullopt}, {"1", "$3", 0.0, 1.0}}, vocabulary);
        } catch (const Error&) {
            // The system's own words: fine.
        } catch (const std::exception& error) {
            FAIL() << "stray exception " << error.what() << " for " << text;
        }
    }
    EXPECT_GT(loaded, 100); // the mutations leave many files readable
}

TEST(ReaderFuzz, ManifestReaderOnlyFailsWithDecodeErrors) {
    std::mt19937 random(11);
    int loaded = 0;
    for (int round = 0; round < 3000; ++round) {
        std::string text;
        if (round % 2 == 0) {
            text = mutateBytes(std::string(kManifestSeed), random);
        } else {
            Json json = parseJson(kManifestSeed);
            mutateStructure(json, random);
            text = json.dump();
        }
        try {
            const auto manifest = decodeJson<AlignmentModelManifest>(parseJson(text));
            loaded += 1;
            EXPECT_GT(manifest.sampleRate, 0);
            EXPECT_GT(manifest.model.frameStrideSeconds, 0);
        } catch (const Error&) {
        } catch (const std::exception& error) {
            FAIL() << "stray exception " << error.what() << " for " << text;
        }
    }
    EXPECT_GT(loaded, 100);
}

TEST(ReaderFuzz, NormalizerTakesAnyText) {
    std::mt19937 random(3);
    const std::string alphabet =
        "aZ09$%:.,&'\u2019 \t\xC3\xA9\xFF\xE2\x80\xAF\xF0\x9F\x98\x80stndrh";
    for (int round = 0; round < 3000; ++round) {
        std::string text;
        const int length = static_cast<int>(random() % 24);
        for (int i = 0; i < length; ++i) {
            text.push_back(alphabet[random() % alphabet.size()]);
        }
        const std::string normalized = CTCTranscriptNormalizer::normalizedText(text);
        EXPECT_FALSE(normalized.starts_with(' ')) << text;
        EXPECT_FALSE(normalized.ends_with(' ')) << text;
        EXPECT_EQ(normalized.find("  "), std::string::npos) << text;
        // Normalising twice changes nothing more.
        EXPECT_EQ(CTCTranscriptNormalizer::normalizedText(normalized), normalized) << text;
    }
}

} // namespace
} // namespace orvelle
