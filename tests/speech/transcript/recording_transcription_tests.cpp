#include "core/files.h"
#include "platform/media/audio_decoder.h"
#include "project/recording_take_builder.h"
#include "speech/runtime/parakeet_error.h"
#include "speech/transcript/parakeet_transcript_analyzer.h"
#include "speech/transcript/recording_transcription_service.h"
#include "support/temporary_directory.h"
#include "support/test_media.h"
#include "support/thrown.h"

#include <gtest/gtest.h>

#include <cmath>
#include <thread>

namespace orvelle {
namespace {

using Kind = MediaTrackManifest::Kind;
using testing::TemporaryDirectory;

std::filesystem::path parakeetModel() {
    return testing::binaryDirectory() / "test-models" / "parakeet-split";
}

// Loud noise the length of a take's microphone file.
void writeMicrophone(const std::filesystem::path& path, double seconds) {
    std::vector<float> samples = testing::sineTone(300, seconds, 48000, 1, 0.4f);
    testing::writeAudioFile(path, samples, AudioFormat{48000, 1});
}

TEST(ParakeetTranscriberRuntime, SharesOneLoadAndForgetsFailures) {
    ParakeetTranscriberRuntime runtime;
    const TranscriptModelSource model{parakeetModel()};
    std::shared_ptr<ParakeetTranscriberRuntime::Loaded> first;
    std::shared_ptr<ParakeetTranscriberRuntime::Loaded> second;
    std::thread other([&] { second = runtime.transcriber(model, TranscriptComputeUnits::cpu); });
    first = runtime.transcriber(model, TranscriptComputeUnits::cpu);
    other.join();
    EXPECT_EQ(first, second);
    EXPECT_EQ(runtime.loadCount(), 1u);
    // Another device is another recogniser; the same path spelt otherwise is the same one.
    EXPECT_NE(runtime.transcriber(model, TranscriptComputeUnits::gpu), first);
    EXPECT_EQ(runtime.transcriber({parakeetModel() / "." / ""}, TranscriptComputeUnits::cpu),
              first);
    EXPECT_EQ(runtime.loadCount(), 2u);

    TemporaryDirectory folder;
    const TranscriptModelSource later{folder / "model"};
    EXPECT_THROW(runtime.transcriber(later, TranscriptComputeUnits::cpu), ParakeetError);
    std::filesystem::copy(parakeetModel(), folder / "model");
    EXPECT_NE(runtime.transcriber(later, TranscriptComputeUnits::cpu), nullptr);
    EXPECT_EQ(runtime.loadCount(), 4u);

    runtime.clear();
    EXPECT_NE(runtime.transcriber(model, TranscriptComputeUnits::cpu), first);
    EXPECT_EQ(runtime.loadCount(), 5u);
}

TEST(ParakeetTranscriptAnalyzer, TurnsSpeechIntoWordsWithTheirSource) {
    TemporaryDirectory folder;
    writeMicrophone(folder / "speech.wav", 3.0);
    const ParakeetTranscriptAnalyzer analyzer({parakeetModel()}, TranscriptComputeUnits::cpu);
    const TranscriptAnalysis analysis = analyzer.analyze(folder / "speech.wav");
    // The test model walks a fixed path: "▁hel" "lo" "▁world" "!" then "▁la" ten times, "▁end".
    ASSERT_EQ(analysis.words.size(), 13u);
    EXPECT_EQ(analysis.words[0].text, "hello");
    EXPECT_EQ(analysis.words[0].startTokenIndex, 0);
    EXPECT_EQ(analysis.words[0].endTokenIndex, 1);
    EXPECT_EQ(analysis.words[1].text, "world!");
    EXPECT_EQ(analysis.words.back().text, "end");
    EXPECT_EQ(analysis.tokens[0].text, " hel");
    EXPECT_EQ(analysis.tokens[0].confidence, 1.0);
    EXPECT_DOUBLE_EQ(*analysis.words[0].startTime, analysis.tokens[0].startTime);
    EXPECT_EQ(analysis.source.analyzer, "ParakeetTDT");
    EXPECT_EQ(analysis.source.computeUnits, "cpu");
    EXPECT_EQ(analysis.source.modelDescription, parakeetModel().lexically_normal().string());
    EXPECT_EQ(analysis.source.audioURL, folder / "speech.wav");
    EXPECT_NEAR(analysis.source.audioDurationSeconds, 3.0, 0.01);
    EXPECT_GT(analysis.source.realtimeFactor, 0);
}

class RecordingTranscriptionTest : public ::testing::Test {
protected:
    void SetUp() override {
        testing::writeNumberedMovie(movie_, {.width = 64, .height = 48, .frameCount = 90});
    }

    EditorDocument take(const std::vector<RecordedMediaSegment>& microphone) {
        RecordedMediaSegment screen{.url = movie_, .duration = 3, .mediaDuration = 3};
        TakeManifestWriter::write(movie_, {screen}, {}, microphone, std::nullopt);
        return EditorDocument::load(movie_);
    }

    static RecordedMediaSegment microphone(const std::filesystem::path& url, double start,
                                           double duration) {
        RecordedMediaSegment segment{.kind = Kind::microphone,
                                     .url = url,
                                     .programStart = start,
                                     .duration = duration,
                                     .mediaDuration = duration};
        return segment;
    }

    TemporaryDirectory folder_;
    std::filesystem::path movie_ = folder_ / "Take.mp4";
    TranscriptModelSource model_{parakeetModel()};
};

TEST_F(RecordingTranscriptionTest, OneSegmentAtTheStartIsTranscribedAsItIs) {
    writeMicrophone(folder_ / "Take-microphone-001.m4a", 3.0);
    const auto request = RecordingTranscriptionService::makeRequest(
        take({microphone(folder_ / "Take-microphone-001.m4a", 0, 3)}), model_);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->audioURL, folder_ / "Take-microphone-001.m4a");
    EXPECT_EQ(request->screenURL, movie_);
    EXPECT_FALSE(fileExists(folder_ / "Take.transcription.m4a"));
    const auto result = RecordingTranscriptionService::transcribe(*request);
    EXPECT_EQ(result.analysis.source.computeUnits, "gpu");
    EXPECT_EQ(result.analysis.words.back().text, "end");

    // A file whose first second was trimmed away plays from its media start: it is rendered,
    // so the words' times are the take's.
    std::vector<float> late(48000, 0.0f);
    const auto tone = testing::sineTone(300, 2, 48000, 1, 0.4f);
    late.insert(late.end(), tone.begin(), tone.end());
    testing::writeAudioFile(folder_ / "Take-microphone-002.m4a", late, AudioFormat{48000, 1});
    RecordedMediaSegment trimmed = microphone(folder_ / "Take-microphone-002.m4a", 0, 2);
    trimmed.mediaStart = 1;
    const auto rendered = RecordingTranscriptionService::makeRequest(take({trimmed}), model_);
    ASSERT_TRUE(rendered);
    EXPECT_EQ(rendered->audioURL, folder_ / "Take.transcription.m4a");
    const std::vector<float> audio = decodeAudioFile(rendered->audioURL, AudioFormat{16000, 1});
    EXPECT_NEAR(audio.size() / 16000.0, 2.0, 0.05);
    EXPECT_GT(testing::rootMeanSquare(audio, 1, 16000, 0.1, 0.5), 0.2)
        << "the tone from the file's second 1 at once";
}

TEST_F(RecordingTranscriptionTest, SeveralSegmentsAreRenderedAtTheirTakeTimes) {
    writeMicrophone(folder_ / "Take-microphone-001.m4a", 1.0);
    writeMicrophone(folder_ / "Take-microphone-002.m4a", 1.0);
    testing::writeTextFile(folder_ / "Take-microphone-003.m4a", "not audio");
    testing::writeTextFile(folder_ / "Take.transcription.m4a", "an old render");
    const auto request = RecordingTranscriptionService::makeRequest(
        take({microphone(folder_ / "Take-microphone-001.m4a", 0, 1),
              microphone(folder_ / "Take-microphone-002.m4a", 2, 1),
              microphone(folder_ / "Take-microphone-003.m4a", 2.5, 0.5)}),
        model_);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->audioURL, folder_ / "Take.transcription.m4a");
    const std::vector<float> rendered = decodeAudioFile(request->audioURL, AudioFormat{16000, 1});
    EXPECT_NEAR(rendered.size() / 16000.0, 3.0, 0.05);
    const auto loudness = [&](double from, double to) {
        return testing::rootMeanSquare(rendered, 1, 16000, from, to);
    };
    EXPECT_GT(loudness(0.2, 0.8), 0.2);  // the first segment
    EXPECT_LT(loudness(1.2, 1.8), 0.01); // the gap stays silent
    EXPECT_GT(loudness(2.2, 2.8), 0.2);  // the second at its take time
}

TEST_F(RecordingTranscriptionTest, NoMicrophoneOrNoModelMeansNoRequest) {
    EXPECT_FALSE(RecordingTranscriptionService::makeRequest(take({}), model_));
    testing::writeTextFile(folder_ / "broken.m4a", "not audio");
    EXPECT_FALSE(RecordingTranscriptionService::makeRequest(
        take({microphone(folder_ / "broken.m4a", 0, 1)}), model_));

    writeMicrophone(folder_ / "Take-microphone-001.m4a", 1.0);
    ::setenv("XDG_DATA_HOME", (folder_ / "data").c_str(), 1);
    const EditorDocument document = take({microphone(folder_ / "Take-microphone-001.m4a", 0, 1)});
    EXPECT_FALSE(RecordingTranscriptionService::makeRequest(document));
    ::unsetenv("XDG_DATA_HOME");

    RecordingTranscriptionRequest withoutModel{movie_, folder_ / "Take-microphone-001.m4a",
                                               std::nullopt};
    if (const auto error = testing::thrown<RecordingTranscriptionError>(
            [&] { RecordingTranscriptionService::transcribe(withoutModel); })) {
        EXPECT_EQ(error->code(), RecordingTranscriptionErrorCode::modelNotInstalled);
        EXPECT_STREQ(error->what(), "The transcription model is not installed.");
    }
}

} // namespace
} // namespace orvelle
