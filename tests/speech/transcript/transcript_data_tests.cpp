#include "core/files.h"
#include "speech/transcript/editor_transcript.h"
#include "speech/transcript/orvelle_model_storage.h"
#include "speech/transcript/transcript_model_locator.h"
#include "speech/transcript/transcript_output_writer.h"
#include "support/scoped_environment.h"
#include "support/temporary_directory.h"
#include "support/thrown.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace orvelle {
namespace {

using testing::TemporaryDirectory;
using testing::writeTextFile;

TranscriptAnalysis sampleAnalysis() {
    TranscriptAnalysis analysis{
        .text = " Hello world ",
        .tokens = {{"\u2581Hello", 11, 0.0, 0.4, 1.0}, {" world", 12, 0.5, 0.9, 1.0}}};
    analysis.words = {TranscriptWord{"Hello", 0.0, 0.4, 1.0, 0, 0},
                      TranscriptWord{"world", std::nullopt, std::nullopt, std::nullopt,
                                     std::nullopt, std::nullopt}};
    analysis.source = {
        "ParakeetTDT",          "/takes/My Take.m4a", "/models/parakeet", "gpu", 12.5, 0.5, 25,
        Date{1'700'000'000'123}};
    return analysis;
}

TEST(TranscriptAnalysisJson, RoundTripsWithTheDesignKeys) {
    const TranscriptAnalysis analysis = sampleAnalysis();
    const Json json = encodeJson(analysis);
    EXPECT_EQ(json["source"]["audioURL"], "file:///takes/My%20Take.m4a");
    EXPECT_EQ(json["source"]["createdAt"], "2023-11-14T22:13:20.123Z");
    EXPECT_EQ(json["tokens"][0]["tokenID"], 11);
    EXPECT_FALSE(json["words"][1].contains("startTime")); // absent stays absent
    EXPECT_EQ(decodeJson<TranscriptAnalysis>(parseJson(prettyJson(json))), analysis);
}

TEST(TranscriptAnalysisJson, MissingKeysReadAsDefaultsButTimesAreRequired) {
    const Json minimal = parseJson(R"({"source": {"createdAt": "2024-01-02T03:04:05.000Z"}})");
    const auto analysis = decodeJson<TranscriptAnalysis>(minimal);
    EXPECT_EQ(analysis.text, "");
    EXPECT_TRUE(analysis.words.empty());
    EXPECT_EQ(analysis.source.realtimeFactor, 0);

    const Json tokenWithoutEnd = parseJson(R"({"source": {"createdAt": "2024-01-02T03:04:05.000Z"},
                      "tokens": [{"text": "a", "startTime": 1}]})");
    if (const auto error = testing::thrown<JsonDecodeError>(
            [&] { decodeJson<TranscriptAnalysis>(tokenWithoutEnd); })) {
        EXPECT_STREQ(error->what(), "tokens[0].endTime: required key is missing");
    }
}

// The sidecars are named after the input without its extension; the text is trimmed, the
// JSON sorted, their folders made; a folder that cannot be made is a file error that
// leaves what stands there.
TEST(TranscriptOutputWriter, WritesTrimmedTextAndSortedJsonBesideTheInput) {
    EXPECT_EQ(TranscriptOutputWriter::defaultTextOutputURL("/a/take.one.mov"),
              "/a/take.one.transcript.txt");
    EXPECT_EQ(TranscriptOutputWriter::defaultJSONOutputURL("/a/take"), "/a/take.transcript.json");

    TemporaryDirectory folder;
    const auto text = folder / "new" / "deeper" / "take.transcript.txt";
    TranscriptOutputWriter::writePlainText("\n  Hello world \u00A0\n\n", text);
    EXPECT_EQ(readFile(text), "Hello world\n");
    const auto json = folder / "other" / "take.transcript.json";
    TranscriptOutputWriter::writeJSON(sampleAnalysis(), json);
    const std::string written = readFile(json);
    EXPECT_LT(written.find("\"source\""), written.find("\"text\""));
    EXPECT_LT(written.find("\"text\""), written.find("\"tokens\""));
    EXPECT_EQ(decodeJson<TranscriptAnalysis>(parseJson(written)), sampleAnalysis());

    writeTextFile(folder / "occupied", "a file where the folder should go");
    EXPECT_THROW(TranscriptOutputWriter::writePlainText("text", folder / "occupied" / "t.txt"),
                 FileError);
    EXPECT_THROW(
        TranscriptOutputWriter::writeJSON(sampleAnalysis(), folder / "occupied" / "t.json"),
        FileError);
    EXPECT_EQ(readFile(folder / "occupied"), "a file where the folder should go");
    EXPECT_EQ(realtimeFactor(10, 0), 0) << "no inference time, no factor";
}

TEST(EditorTranscript, BreaksAreKeptInNormalForm) {
    EXPECT_EQ(EditorTranscript::normalizedBreaks({7, 3, 3, -1}), (std::vector<int>{3, 7}));
    const EditorTranscript made(sampleAnalysis(), {5, -2, 1, 5});
    EXPECT_EQ(made.paragraphBreakAfterWordIndices, (std::vector<int>{1, 5}));

    Json json = encodeJson(made);
    json["paragraphBreakAfterWordIndices"] = {9, 2, 2, -4};
    const auto decoded = decodeJson<EditorTranscript>(json);
    EXPECT_EQ(decoded.paragraphBreakAfterWordIndices, (std::vector<int>{2, 9}));
}

TEST(EditorTranscript, BaselineRoundTripsAndIsAbsentUntilSet) {
    EditorTranscript transcript(sampleAnalysis());
    EXPECT_FALSE(encodeJson(transcript).contains("alignmentBaselineWords"));
    transcript.alignmentBaselineWords = std::vector<EditorTranscriptAlignmentBaselineWord>{
        {0, "Hello", 0.0, 0.4}, {1, "world", std::nullopt, std::nullopt}};
    transcript.paragraphBreaksSuggested = true;
    EXPECT_EQ(decodeJson<EditorTranscript>(encodeJson(transcript)), transcript);
}

TEST(OrvelleModelStorage, ModelFoldersLiveUnderTheDataFolder) {
    TemporaryDirectory folder;
    const testing::ScopedEnvironment data({{"XDG_DATA_HOME", folder.path().string()}});
    const auto models = folder / "Orvelle" / "Models";
    EXPECT_EQ(OrvelleModelStorage::modelsDirectory(), models);
    EXPECT_EQ(OrvelleModelStorage::parakeetModelDirectory(),
              models / "parakeet-tdt-0.6b-v3-coreml");
    EXPECT_EQ(OrvelleModelStorage::youtubeMetadataModelDirectory(),
              models / "qwen-youtube-metadata");
    EXPECT_EQ(OrvelleModelStorage::preciseWordTimingModelDirectory(),
              models / "precise-word-timing-wav2vec2-base-960h");
}

TEST(TranscriptModelLocator, FindsACompleteModelInEitherLayout) {
    TemporaryDirectory folder;
    const testing::ScopedEnvironment data({{"XDG_DATA_HOME", folder.path().string()}});
    const auto model = OrvelleModelStorage::parakeetModelDirectory();
    EXPECT_FALSE(TranscriptModelLocator::defaultModelSource("/anywhere"));

    for (const char* name : {"tokenizer.json", "encoder.onnx", "decoder.onnx"}) {
        writeTextFile(model / name, "x");
    }
    EXPECT_FALSE(TranscriptModelLocator::isParakeetTDTModelRoot(model)) << "joint is missing";
    writeTextFile(model / "joint.onnx", "x");
    EXPECT_EQ(TranscriptModelLocator::defaultModelSource("/anywhere"),
              TranscriptModelSource{model});

    const auto exported = folder / "exported";
    writeTextFile(exported / "encoder-model.onnx", "x");
    writeTextFile(exported / "decoder_joint-model.onnx", "x");
    EXPECT_FALSE(TranscriptModelLocator::isParakeetTDTModelRoot(exported));
    writeTextFile(exported / "vocab.txt", "x");
    EXPECT_TRUE(TranscriptModelLocator::isParakeetTDTModelRoot(exported));
}

} // namespace
} // namespace orvelle
