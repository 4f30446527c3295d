// Editing by text from the command line, on a take whose microphone speaks known words at
// known times: cuts that land in silence and come back from their marker, the sound and
// the movie after a cut, captions read back by FFmpeg at the words' edit times after a cut
// and a speed change, cleanup of what was planted in the speech, and the whole pipeline.

#include "cli/cli_test_support.h"
#include "core/files.h"
#include "platform/media/audio_decoder.h"
#include "platform/media/video_decoder.h"
#include "support/spoken_take.h"
#include "support/temporary_directory.h"
#include "support/test_media.h"

#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

namespace orvelle {
namespace {

namespace fs = std::filesystem;
using testing::orvelleJson;

// Word indexes: 0 Welcome 1 to 2 the 3 demo. 4 Today 5 we 6 um 7 look 8 at (2.6 s pause)
// 9 the 10 the 11 editor 12 and 13 you 14 know 15 cut 16 words.
constexpr const char* kPassage =
    "Welcome to the demo. Today we um look at /2.6/ the the editor and you know cut words.";
constexpr int kRate = 48000;
// Room tone stays well under this; speech goes far over it.
constexpr float kSilence = 0.02f;

class TranscriptCommand : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        folder_ = new testing::TemporaryDirectory();
        spoken_ = new testing::SpokenTake(
            testing::writeSpokenTake(folder_->path() / "take", testing::passageWords(kPassage)));
    }
    static void TearDownTestSuite() {
        delete spoken_;
        delete folder_;
    }

    static const SampleTake::SpokenWord& word(int i) {
        return spoken_->passage.words[static_cast<size_t>(i)];
    }
    static std::string take() { return spoken_->take.manifestURL.string(); }

    Json run(std::vector<std::string> arguments) {
        arguments.push_back("--json");
        return orvelleJson(arguments, environment);
    }

    // The loudest sample of a stereo mix in [from, to) seconds.
    static float loudest(const std::vector<float>& stereo, double from, double to) {
        float peak = 0;
        for (auto i = static_cast<size_t>(std::max(0.0, from) * kRate);
             i < static_cast<size_t>(to * kRate) && 2 * i + 1 < stereo.size(); ++i) {
            peak = std::max({peak, std::fabs(stereo[2 * i]), std::fabs(stereo[2 * i + 1])});
        }
        return peak;
    }

    static double rms(const std::vector<float>& samples, int channels, double from, double to) {
        return testing::rootMeanSquare(samples, channels, kRate, from, to);
    }

    inline static testing::TemporaryDirectory* folder_ = nullptr;
    inline static testing::SpokenTake* spoken_ = nullptr;
    testing::TemporaryDirectory folder;
    std::map<std::string, std::string> environment{{"XDG_DATA_HOME", (folder / "data").string()},
                                                   {"XDG_CACHE_HOME", (folder / "cache").string()}};
};

TEST_F(TranscriptCommand, DeletedWordsGoInSilenceFromSoundAndMovieAndTheirMarkerBringsThemBack) {
    const auto cutPackage = folder / "cut.orvelle";
    const Json cut =
        run({"transcript", "delete", take(), "--words", "1-3", "--save", cutPackage.string()});
    EXPECT_EQ(cut["text"], "to the demo.");
    EXPECT_TRUE(cut["snappedToSilence"].get<bool>());
    const double start = cut["gap"]["sourceStart"].get<double>();
    const double end = cut["gap"]["sourceEnd"].get<double>();
    // Exactly those words: all of them, none of their neighbours.
    EXPECT_GE(start, word(0).end);
    EXPECT_LE(start, word(1).start);
    EXPECT_GE(end, word(3).end);
    EXPECT_LE(end, word(4).start);
    EXPECT_EQ(cut["undoLabels"], Json::array({"Delete Range"}));
    ASSERT_EQ(cut["markers"].size(), 1u);
    EXPECT_EQ(cut["markers"][0]["words"], Json::array({1, 3}));

    // The edited sound: shorter by the cut, silent where it joins, and what follows the
    // join is "Today", as loud as it was said.
    const auto mixURL = folder / "cut.wav";
    run({"audio", "mix", cutPackage.string(), "-o", mixURL.string()});
    const auto mix = decodeAudioFile(mixURL, {kRate, 2});
    const auto microphone = decodeAudioFile(*spoken_->take.microphoneURL, {kRate, 1});
    const double removed = end - start;
    const double sourceLength = static_cast<double>(microphone.size()) / kRate;
    EXPECT_NEAR(static_cast<double>(mix.size()) / 2 / kRate, sourceLength - removed, 0.002);
    EXPECT_LT(loudest(mix, start - 0.01, start + 0.01), kSilence);
    const double gain =
        rms(mix, 2, word(0).start, word(0).end) / rms(microphone, 1, word(0).start, word(0).end);
    EXPECT_NEAR(rms(mix, 2, word(4).start - removed, word(4).end - removed),
                gain * rms(microphone, 1, word(4).start, word(4).end),
                0.1 * gain * rms(microphone, 1, word(4).start, word(4).end));

    // The movie says the same.
    const auto movie = folder / "cut.mp4";
    run({"export", cutPackage.string(), "-o", movie.string(), "--size", "320x180", "--fps", "15"});
    const auto movieSound = decodeAudioFile(movie, {kRate, 2});
    EXPECT_NEAR(static_cast<double>(movieSound.size()) / 2 / kRate, sourceLength - removed, 0.03);
    EXPECT_LT(loudest(movieSound, start - 0.01, start + 0.01), 1.5f * kSilence);

    // The words show as cut, and their marker brings them back in one clip again.
    const Json shown = run({"transcript", "show", cutPackage.string()});
    ASSERT_EQ(shown["markers"].size(), 1u);
    for (const auto& token : shown["paragraphs"][0]) {
        const int index = token.contains("index") ? token["index"].get<int>() : -1;
        EXPECT_EQ(token["editStart"].is_null(), index >= 1 && index <= 3) << token;
    }
    const Json back = run({"transcript", "restore", cutPackage.string(), "--marker", "0", "--save",
                           (folder / "back.orvelle").string()});
    EXPECT_EQ(back["restored"]["text"], "to the demo.");
    EXPECT_TRUE(back["markers"].empty());
    ASSERT_EQ(back["project"]["timeline"]["clips"].size(), 1u);
    EXPECT_DOUBLE_EQ(back["project"]["timeline"]["clips"][0]["end"].get<double>(),
                     back["project"]["timeline"]["sourceDuration"].get<double>());

    // The same cut as an edit operation undoes as one step.
    const auto ops = folder / "ops.json";
    testing::writeTextFile(ops, R"([{"op": "deleteTranscriptWords", "first": 1, "last": 3},
                                    {"op": "undo"}])");
    const Json edited = run({"edit", take(), "--ops", ops.string()});
    EXPECT_DOUBLE_EQ(edited["results"][0]["sourceStart"].get<double>(), start);
    EXPECT_EQ(edited["results"][1], "Delete Range");
    EXPECT_EQ(edited["project"]["timeline"]["clips"].size(), 1u);
}

TEST_F(TranscriptCommand, WordsThatCannotBeCutAreRefusedInTheCommandsWords) {
    EXPECT_TRUE(testing::orvelleRefuses({"transcript", "delete", take(), "--words", "15-40"}, 2,
                                        "The transcript has 17 words"));
    EXPECT_TRUE(testing::orvelleRefuses({"transcript", "restore", take(), "--marker", "0"}, 2,
                                        "there is no marker 0"));
    testing::TemporaryDirectory bare;
    const auto plain = testing::writeTinyTake(bare.path());
    EXPECT_TRUE(testing::orvelleRefuses(
        {"captions", plain.manifestURL.string(), "-o", (bare / "c.srt").string()}, 1,
        "has no transcript yet. Run 'orvelle transcript process"));
}

// Cues as FFmpeg's subtitle demuxer reads them, written back out by FFmpeg as SRT.
struct ReadCue {
    double start = 0;
    double end = 0;
    std::vector<std::string> lines;
};

double srtTime(const std::string& text) {
    int h = 0, m = 0, s = 0, ms = 0;
    EXPECT_EQ(std::sscanf(text.c_str(), "%d:%d:%d,%d", &h, &m, &s, &ms), 4) << text;
    return h * 3600 + m * 60 + s + ms / 1000.0;
}

std::vector<ReadCue> cuesReadByFFmpeg(const fs::path& file) {
    const auto result = testing::runProgram("/usr/bin/ffmpeg",
                                            {"-v", "error", "-i", file.string(), "-f", "srt", "-"});
    EXPECT_EQ(result.status, 0) << result.err;
    std::vector<ReadCue> cues;
    std::istringstream lines(result.out);
    std::string line;
    while (std::getline(lines, line)) {
        const size_t arrow = line.find(" --> ");
        if (arrow == std::string::npos) {
            continue;
        }
        ReadCue cue{srtTime(line.substr(0, arrow)), srtTime(line.substr(arrow + 5)), {}};
        while (std::getline(lines, line) && !line.empty()) {
            cue.lines.push_back(line);
        }
        cues.push_back(cue);
    }
    return cues;
}

TEST_F(TranscriptCommand,
       CaptionsReadBackByFFmpegStartWhereTheirWordsPlayAfterACutAndASpeedChange) {
    const auto ops = folder / "ops.json";
    testing::writeTextFile(ops, R"([{"op": "deleteTranscriptWords", "first": 1, "last": 3},
                                    {"op": "updateTimelineClip", "id": "@timeline:-1",
                                     "set": {"speed": 2}}])");
    const auto package = folder / "fast.orvelle";
    const Json edited = run({"edit", take(), "--ops", ops.string(), "--save", package.string()});
    const double gapStart = edited["results"][0]["sourceStart"].get<double>();
    const double gapEnd = edited["results"][0]["sourceEnd"].get<double>();
    // Where each word kept plays: as it was before the cut, twice as fast after it.
    struct Kept {
        std::string text;
        double start;
        double end;
    };
    std::vector<Kept> kept;
    for (const auto& w : spoken_->passage.words) {
        if (w.end <= gapStart) {
            kept.push_back({w.text, w.start, w.end});
        } else if (w.start >= gapEnd) {
            kept.push_back(
                {w.text, gapStart + (w.start - gapEnd) / 2, gapStart + (w.end - gapEnd) / 2});
        }
    }
    ASSERT_EQ(kept.size(), 14u);

    for (const char* name : {"captions.srt", "captions.vtt"}) {
        run({"captions", package.string(), "-o", (folder / name).string()});
        const auto cues = cuesReadByFFmpeg(folder / name);
        // One cue up to the long pause, one after it.
        ASSERT_GE(cues.size(), 2u) << name;
        size_t next = 0;
        for (const auto& cue : cues) {
            ASSERT_LE(cue.lines.size(), 2u);
            std::vector<std::string> words;
            for (const auto& line : cue.lines) {
                EXPECT_LE(line.size(), 42u) << line;
                std::istringstream split(line);
                for (std::string piece; split >> piece;) {
                    words.push_back(piece);
                }
            }
            ASSERT_LE(next + words.size(), kept.size()) << name;
            for (size_t k = 0; k < words.size(); ++k) {
                EXPECT_EQ(words[k], kept[next + k].text) << name;
            }
            const Kept& first = kept[next];
            const Kept& last = kept[next + words.size() - 1];
            next += words.size();
            EXPECT_NEAR(cue.start, first.start, 0.0015) << name << " " << first.text;
            // To the end of its last word, or longer to be read, never into the next cue.
            const double nextStart = next < kept.size() ? kept[next].start : 1e9;
            EXPECT_GE(cue.end, last.end - 0.0015) << name << " " << last.text;
            EXPECT_LE(cue.end, std::max(last.end, std::min(first.start + 1.0, nextStart)) + 0.0015)
                << name << " " << last.text;
            EXPECT_LE(cue.end - cue.start, 7.0);
        }
        EXPECT_EQ(next, kept.size()) << name << ": every kept word in a caption";
    }
}

TEST_F(TranscriptCommand, CleanupFindsWhatWasPlantedInTheSpeechAndAppliesItAsOneStep) {
    const Json found = run({"transcript", "cleanup", take()});
    std::vector<std::pair<std::string, Json>> kinds;
    for (const auto& suggestion : found["suggestions"]) {
        kinds.emplace_back(suggestion["kind"].get<std::string>(), suggestion["wordRange"]);
    }
    EXPECT_EQ(kinds,
              (std::vector<std::pair<std::string, Json>>{{"filler", Json::array({12, 12})},
                                                         {"longPause", Json::array({17, 17})},
                                                         {"repeatedPhrase", Json::array({20, 20})},
                                                         {"filler", Json::array({26, 28})}}));
    EXPECT_EQ(found["suggestions"][1]["title"], "Shorten 2.6s pause");

    const Json applied = run({"transcript", "cleanup", take(), "--apply", "pauses,fillers,repeats",
                              "--save", (folder / "clean.orvelle").string()});
    EXPECT_EQ(applied["applied"].size(), 4u);
    EXPECT_EQ(applied["undoLabels"], Json::array({"Apply Cleanup"}));
    EXPECT_EQ(applied["project"]["timeline"]["deletedGaps"].size(), 4u);
    // What was cut is no longer suggested.
    const Json after = run({"transcript", "cleanup", (folder / "clean.orvelle").string()});
    EXPECT_TRUE(after["suggestions"].empty()) << after["suggestions"];
}

TEST_F(TranscriptCommand, ProcessRunsAllThreePassesWithTheTinyModels) {
    const auto fresh = testing::writeSpokenTake(
        folder / "fresh", testing::passageWords("Hello world, this is new."), false);
    const auto models = testing::binaryDirectory() / "test-models";
    const Json processed =
        run({"transcript", "process", fresh.take.manifestURL.string(), "--model",
             (models / "parakeet-split").string(), "--bundle", (models / "ctc-char").string(),
             "--language-model", (models / "tiny-qwen2.gguf").string()});
    EXPECT_EQ(processed["passesRun"], Json::array({"transcription", "alignment", "paragraphs"}));
    EXPECT_TRUE(processed["nonfatalError"].is_null()) << processed["nonfatalError"];
    EXPECT_EQ(processed["stages"], Json::array({"preparingAudio", "transcribing",
                                                "preparingAlignment", "aligning", "formatting"}));
    for (const char* key : {"editor", "json", "text"}) {
        EXPECT_TRUE(fs::exists(processed["sidecars"][key].get<std::string>())) << key;
    }
    const Json again = run({"transcript", "process", fresh.take.manifestURL.string()});
    EXPECT_TRUE(again["passesRun"].empty());
    EXPECT_EQ(again["displayText"], processed["displayText"]);
}

TEST_F(TranscriptCommand, BurnedCaptionsAreDrawnWhileTheirWordsPlayAndNotBetween) {
    const auto shortTake = testing::writeSpokenTake(
        folder / "short", testing::passageWords("Hello there. /2.5/ Goodbye now."));
    const auto plain = folder / "plain.mp4";
    const auto captioned = folder / "captioned.mp4";
    const std::string manifest = shortTake.take.manifestURL.string();
    run({"export", manifest, "-o", plain.string(), "--size", "320x180", "--fps", "10"});
    run({"export", manifest, "-o", captioned.string(), "--size", "320x180", "--fps", "10",
         "--captions", "burn"});
    // How many samples differ clearly between the two movies, in the lowest quarter of the
    // picture (where captions go) and above it.
    const auto difference = [&](double time) {
        VideoDecoder a(plain);
        VideoDecoder b(captioned);
        VideoFrame fa;
        VideoFrame fb;
        EXPECT_TRUE(a.frameAt(time, fa) && b.frameAt(time, fb));
        std::pair<int, int> counts{0, 0};
        for (int y = 0; y < fa.height; ++y) {
            const bool low = y > fa.height * 3 / 4;
            for (int x = 0; x < fa.width * 4; ++x) {
                if (std::abs(fa.row(0, y)[x] - fb.row(0, y)[x]) > 64) {
                    ++(low ? counts.first : counts.second);
                }
            }
        }
        return counts;
    };
    const auto& words = shortTake.passage.words;
    const auto during = difference((words[0].start + words[1].end) / 2);
    const auto between = difference((words[1].end + words[2].start) / 2 + 0.3);
    EXPECT_GT(during.first, 15) << "no caption drawn";
    EXPECT_LT(during.second, 4) << "the caption is not low in the picture";
    EXPECT_LT(between.first, 4) << "a caption drawn in the pause";
}

} // namespace
} // namespace orvelle
