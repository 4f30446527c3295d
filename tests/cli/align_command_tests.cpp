#include "cli/cli_test_support.h"
#include "core/file_url.h"
#include "core/files.h"
#include "platform/media/audio_decoder.h"
#include "project/recording_take_builder.h"
#include "speech/transcript/editor_transcript.h"
#include "support/temporary_directory.h"
#include "support/test_media.h"

#include <cmath>

namespace orvelle {
namespace {

using testing::orvelleJson;
using testing::runProgram;
using testing::TemporaryDirectory;

std::filesystem::path bundle(const std::string& name) {
    return testing::binaryDirectory() / "test-models" / name;
}

TEST(TranscriptWordsCommand, BuildsWordsFromATokenList) {
    TemporaryDirectory folder;
    testing::writeTextFile(folder / "tokens.json", R"([
        {"text": "\u2581Hel", "tokenID": 5, "startTime": 0.0, "endTime": 0.2},
        {"text": "lo", "tokenID": 6, "startTime": 0.2, "endTime": 0.4, "confidence": 0.5},
        {"text": "<pad>", "tokenID": 1, "startTime": 0.4, "endTime": 0.5},
        {"text": " world", "tokenID": 7, "startTime": 0.5, "endTime": 0.9}])");
    const Json json =
        orvelleJson({"transcript", "words", (folder / "tokens.json").string(), "--json"});
    ASSERT_EQ(json["words"].size(), 2u);
    EXPECT_EQ(json["words"][0]["text"], "Hello");
    EXPECT_EQ(json["words"][0]["endTime"], 0.4);
    EXPECT_EQ(json["words"][0]["confidence"], 0.75);
    EXPECT_EQ(json["words"][1]["startTokenIndex"], 3);

    testing::writeTextFile(folder / "bad.json", R"([{"text": "a"}])");
    EXPECT_TRUE(testing::orvelleRefuses({"transcript", "words", (folder / "bad.json").string()}, 1,
                                        "[0].startTime: required key is missing"));
}

TEST(AlignNormalizeCommand, NormalisesAndTokenisesWithAVocabulary) {
    const Json plain = orvelleJson({"align", "normalize", "It\u2019s $3.50, R&D!", "--json",
                                    "--bundle", bundle("ctc-char").string()});
    EXPECT_EQ(plain["normalizedText"], "its three dollars and fifty cents r and d");
    ASSERT_EQ(plain["words"].size(), 3u);
    EXPECT_EQ(plain["words"][2]["tokens"], Json({"R", "|", "A", "N", "D", "|", "D"}));
    EXPECT_EQ(plain["targetTokens"][0], "I");
    EXPECT_EQ(plain["targetTokenWordIDs"][3], nullptr); // the separator after "its"

    const Json bpe = orvelleJson({"align", "normalize", "the tan", "--json", "--manifest",
                                  (bundle("ctc-bpe-padded") / "model_manifest.json").string()});
    EXPECT_EQ(bpe["targetTokens"], Json({"\u2581the", "\u2581t", "an"}));

    EXPECT_TRUE(
        testing::orvelleRefuses({"align", "normalize", "x", "--bundle", "/nowhere"}, 1,
                                "Precise word timing model bundle was not found at /nowhere"));
}

// Stretches of 20 ms frames louder than a whisper, from the audio itself.
std::vector<std::pair<double, double>> speechIslands(const std::filesystem::path& audio) {
    const std::vector<float> samples = decodeAudioFile(audio, AudioFormat{16000, 1});
    std::vector<std::pair<double, double>> islands;
    double start = -1; // while inside an island, where it began
    for (size_t frame = 0; frame * 320 < samples.size(); ++frame) {
        double power = 0;
        const size_t end = std::min(samples.size(), (frame + 1) * 320);
        for (size_t i = frame * 320; i < end; ++i) {
            power += samples[i] * samples[i];
        }
        const bool loud = power / 320 > 1e-4;
        const double time = frame * 0.02;
        if (loud && start < 0) {
            start = time;
        } else if (!loud && start >= 0) {
            islands.emplace_back(start, time);
            start = -1;
        }
    }
    if (start >= 0) {
        islands.emplace_back(start, samples.size() / 16000.0);
    }
    return islands;
}

double speechWithin(const std::vector<std::pair<double, double>>& islands, double start,
                    double end) {
    double covered = 0;
    for (const auto& [a, b] : islands) {
        covered += std::max(0.0, std::min(b, end) - std::max(a, start));
    }
    return covered;
}

TEST(AlignCommand, CorrectsTheWordTimesOfASpokenNarration) {
    TemporaryDirectory folder;
    const auto audio = folder / "narration.wav";
    const std::string narration = "Welcome to the demo. This take shows the editor.";
    const auto spoken =
        runProgram("/usr/bin/espeak-ng", {"-g", "15", "-w", audio.string(), narration});
    ASSERT_EQ(spoken.status, 0) << spoken.err;
    const auto islands = speechIslands(audio);
    const double duration = islands.back().second + 0.1;

    // A transcript whose rough times spread the words evenly over the file: all wrong.
    EditorTranscript transcript;
    transcript.analysis.text = narration;
    const std::vector<std::string> texts{"Welcome", "to",    "the", "demo.",  "This",
                                         "take",    "shows", "the", "editor."};
    for (size_t i = 0; i < texts.size(); ++i) {
        transcript.analysis.words.push_back(TranscriptWord{texts[i], duration * i / texts.size(),
                                                           duration * (i + 1) / texts.size(), 1.0,
                                                           std::nullopt, std::nullopt});
    }
    transcript.analysis.source.modelDescription = "/models/parakeet";
    writeJsonAtomically(folder / "narration.transcript.editor.json", encodeJson(transcript));

    const auto corrected = folder / "corrected.transcript.editor.json";
    const Json json =
        orvelleJson({"align", audio.string(), "--transcript",
                     (folder / "narration.transcript.editor.json").string(), "--bundle",
                     bundle("ctc-char").string(), "--output", corrected.string(), "--json"});
    ASSERT_EQ(json["words"].size(), texts.size());
    double previousEnd = 0;
    for (const auto& word : json["words"]) {
        const double start = word["startTime"];
        const double end = word["endTime"];
        SCOPED_TRACE(word["text"].get<std::string>());
        EXPECT_GE(start, previousEnd);
        // Each word now lies on speech: at least four fifths of it is spoken.
        EXPECT_GT(speechWithin(islands, start, end), 0.8 * (end - start));
        EXPECT_TRUE(word.contains("roughStartTime"));
        previousEnd = end;
    }
    EXPECT_NEAR(json["words"][0]["startTime"].get<double>(), islands.front().first, 0.045);
    EXPECT_NEAR(json["words"].back()["endTime"].get<double>(), islands.back().second, 0.045);
    EXPECT_EQ(json["report"]["changedWords"], 9);
    EXPECT_EQ(json["modelDescription"], "/models/parakeet + native precise word timing");
    // The summary's counts add up to the transcript: these test models hear loudness, not
    // letters, so their words are placed well but with low confidence.
    const std::string summary = json["summary"];
    const size_t fallback = summary.find(" words used fallback or low-confidence timing.");
    ASSERT_NE(fallback, std::string::npos) << summary;
    EXPECT_EQ(std::stoi(summary) + std::stoi(summary.substr(summary.rfind('\n', fallback) + 1)), 9)
        << summary;

    // The corrected transcript keeps its form and records the rough times once.
    const auto saved = decodeJson<EditorTranscript>(readJsonFile(corrected));
    ASSERT_TRUE(saved.alignmentBaselineWords);
    EXPECT_EQ((*saved.alignmentBaselineWords)[3].startTime, transcript.analysis.words[3].startTime);
    EXPECT_EQ(saved.analysis.words[3].startTime, json["words"][3]["startTime"].get<double>());
}

TEST(AlignCommand, SaysWhatIsMissing) {
    TemporaryDirectory folder;
    EXPECT_TRUE(testing::orvelleRefuses({"align", (folder / "a.wav").string()}, 2, "--transcript"));

    testing::writeTextFile(
        folder / "t.transcript.json",
        R"({"text": "hi there", "source": {"createdAt": "2026-01-01T00:00:00Z"}})");
    EXPECT_TRUE(testing::orvelleRefuses({"align", (folder / "a.wav").string(), "--transcript",
                                         (folder / "t.transcript.json").string(), "--bundle",
                                         bundle("ctc-char").string()},
                                        1, "The audio for precise word timing was not found at"));
}

TEST(TranscribeCommand, WritesTheSidecarsOfATake) {
    TemporaryDirectory folder;
    const auto movie = folder / "Demo Take.mp4";
    testing::writeNumberedMovie(movie, {.width = 64, .height = 48, .frameCount = 90});
    const auto microphone = folder / "Demo Take-microphone-001.m4a";
    testing::writeAudioFile(microphone, testing::sineTone(300, 3.0, 48000, 1, 0.4f),
                            AudioFormat{48000, 1});
    RecordedMediaSegment screen{.url = movie, .duration = 3, .mediaDuration = 3};
    RecordedMediaSegment voice = screen;
    voice.kind = MediaTrackManifest::Kind::microphone;
    voice.url = microphone;
    TakeManifestWriter::write(movie, {screen}, {}, {voice}, std::nullopt);

    const Json json = orvelleJson({"transcribe", (folder / "Demo Take.take.json").string(),
                                   "--model", bundle("parakeet-split").string(), "--json"});
    EXPECT_EQ(json["audioURL"], fileURLString(microphone));
    EXPECT_EQ(json["analysis"]["words"].back()["text"], "end");
    const auto sidecar =
        decodeJson<TranscriptAnalysis>(readJsonFile(folder / "Demo Take.transcript.json"));
    EXPECT_EQ(sidecar.words.size(), json["analysis"]["words"].size());
    EXPECT_EQ(readFile(folder / "Demo Take.transcript.txt"),
              json["analysis"]["text"].get<std::string>() + "\n");

    // Without an installed model the take cannot be transcribed, and the user is told.
    EXPECT_TRUE(testing::orvelleRefuses({"transcribe", movie.string()}, 1,
                                        "The transcription model is not installed.",
                                        {{"XDG_DATA_HOME", (folder / "data").string()}}));
}

} // namespace
} // namespace orvelle
