// The edited sound of a sample take as `orvelle audio mix` writes it, with the edit made by
// `orvelle edit`: no click where the edit cuts or the music starts over, and the music
// ducked under the narration.

#include "cli/cli_test_support.h"
#include "core/file_url.h"
#include "core/files.h"
#include "platform/media/audio_decoder.h"
#include "support/temporary_directory.h"
#include "support/test_media.h"
#include "support/tiny_take.h"

#include <algorithm>
#include <cmath>

namespace orvelle {
namespace {

using testing::orvelleJson;
using testing::TemporaryDirectory;

constexpr int rate = 48000;
constexpr double musicSeconds = 2.37;

// Three tones of a chord, a little different on each side, stopping part way through
// their cycles so that the loop's wrap is a jump in the waveform.
std::vector<float> chord() {
    std::vector<float> samples;
    const auto frames = static_cast<size_t>(musicSeconds * rate);
    for (size_t i = 0; i < frames; ++i) {
        const double t = static_cast<double>(i) / rate;
        const double common = 0.3 * std::sin(2 * M_PI * 196 * t);
        samples.push_back(static_cast<float>(common + 0.2 * std::sin(2 * M_PI * 246.9 * t)));
        samples.push_back(static_cast<float>(common + 0.2 * std::sin(2 * M_PI * 293.7 * t + 1)));
    }
    return samples;
}

float largestStep(const std::vector<float>& stereo, int64_t from, int64_t to) {
    float step = 0;
    for (int64_t i = std::max<int64_t>(from, 1); i < to; ++i) {
        step = std::max(step, std::fabs(stereo[static_cast<size_t>(2 * i)] -
                                        stereo[static_cast<size_t>(2 * i - 2)]));
    }
    return step;
}

double rms(const std::vector<float>& stereo, double from, double to) {
    return testing::rootMeanSquare(stereo, 2, rate, from, to);
}

int64_t frame(double seconds) {
    return std::llround(seconds * rate);
}

TEST(AudioMixCommand, AnEditedSampleTakeHasNoClicksAndDucksTheMusicUnderTheNarration) {
    TemporaryDirectory folder;
    const Json take = orvelleJson({"sample-take", (folder / "take").string(), "--width", "128",
                                   "--duration", "14", "--json"});
    const auto manifest = pathFromFileURL(take["manifestURL"].get<std::string>());
    const auto music = folder / "chords.wav";
    testing::writeAudioFile(music, chord(), {rate, 2});

    // Cuts inside words and in a pause; the first four clips duck the music to a quarter
    // while someone speaks, the last one (after the narration) does not duck.
    Json operations = Json::array();
    for (const auto& [start, end] :
         {std::pair{2.137, 2.9}, {5.02, 5.6}, {6.9, 8.65}, {11.0, 11.5}, {0.0, 0.2}}) {
        operations.push_back({{"op", "deleteSourceRange"}, {"start", start}, {"end", end}});
    }
    for (int clip = 0; clip < 4; ++clip) {
        operations.push_back(
            {{"op", "updateTimelineClip"},
             {"id", "@timeline:" + std::to_string(clip)},
             {"set", {{"audio", {{"ducksMusicDuringVoice", true}, {"musicVolume", 0.25}}}}}});
    }
    const Json narrationOnly = operations;
    operations.push_back(
        {{"op", "registerMusicSegment"}, {"file", music.string()}, {"duration", musicSeconds}});
    operations.push_back({{"op", "addMusicClip"},
                          {"clip",
                           {{"id", "6A1B2C3D-0000-4000-8000-000000000001"},
                            {"start", 0},
                            {"end", 60},
                            {"mediaOffset", 0},
                            {"segmentID", "music-0001"},
                            {"title", "Chords"}}}});
    auto mixOf = [&](const Json& ops, const std::string& name) {
        const auto opsFile = folder / (name + ".json");
        writeFileAtomically(opsFile, ops.dump());
        const auto package = folder / (name + ".orvelle");
        orvelleJson({"edit", manifest.string(), "--ops", opsFile.string(), "--save",
                     package.string(), "--json"});
        const auto wav = folder / (name + ".wav");
        orvelleJson({"audio", "mix", package.string(), "-o", wav.string(), "--json"});
        return std::pair{package, decodeAudioFile(wav, {rate, 2})};
    };
    const auto [package, mixed] = mixOf(operations, "edit");
    const auto voice = mixOf(narrationOnly, "narration").second;
    ASSERT_EQ(mixed.size(), voice.size());
    const auto frames = static_cast<int64_t>(mixed.size() / 2);
    EXPECT_EQ(frames, frame(10.207));

    // At each cut the waveform steps no further than the speech around it does.
    const Json composition = orvelleJson({"composition", package.string(), "--json"});
    const auto& segments = composition["audioSegments"]["microphone"];
    ASSERT_EQ(segments.size(), 5u);
    for (size_t i = 0; i + 1 < segments.size(); ++i) {
        const int64_t cut = frame(segments[i]["editRange"]["end"].get<double>());
        const float atCut = largestStep(mixed, cut - frame(0.005), cut + frame(0.005));
        const float around = std::max(largestStep(mixed, cut - frame(0.25), cut - frame(0.01)),
                                      largestStep(mixed, cut + frame(0.01), cut + frame(0.25)));
        EXPECT_LE(atCut, around) << "a click at the cut at " << cut / double(rate) << " s";
    }

    // The music alone: the mix less the same edit without music.
    std::vector<float> musicPart(mixed.size());
    for (size_t i = 0; i < mixed.size(); ++i) {
        musicPart[i] = mixed[i] - voice[i];
    }
    const auto file = decodeAudioFile(music, {rate, 2});
    const double fileLevel = testing::rootMeanSquare(file);
    // Under the narration at a quarter of the project's level (0.5), after it at the level.
    for (double t = 0.5; t < 7.0; t += 0.5) {
        EXPECT_NEAR(rms(musicPart, t, t + 0.5) / fileLevel, 0.125, 0.01) << t;
    }
    EXPECT_NEAR(rms(musicPart, 8.7, 9.7) / fileLevel, 0.5, 0.03);
    // Where the file starts over, the music fades through silence instead of jumping.
    for (double wrap = musicSeconds; wrap < 10; wrap += musicSeconds) {
        const int64_t at = frame(wrap);
        EXPECT_LT(std::fabs(musicPart[static_cast<size_t>(2 * at)]), 1e-3) << wrap;
        EXPECT_LT(largestStep(musicPart, at - frame(0.01), at + frame(0.01)), 0.01) << wrap;
    }
}

// The mix is written beside its destination and moved into place when it is finished:
// Ctrl-C leaves the file that was there and nothing else; the partial file of a killed mix
// is removed by the next mix into that folder.
TEST(AudioMixCommand, AStoppedOrKilledMixLeavesTheOldFile) {
    TemporaryDirectory folder;
    const auto take =
        testing::writeTinyTake(folder / "take", {.seconds = 90, .withPointer = false});
    const auto output = folder / "mix.wav";
    testing::writeTextFile(output, "the mix of yesterday");
    const std::vector<std::string> arguments{"audio", "mix", take.manifestURL.string(), "-o",
                                             output.string()};
    const auto interrupted =
        testing::orvelleSignalledWhileWriting(arguments, {}, folder.path(), SIGINT);
    EXPECT_EQ(interrupted.status, 130) << interrupted.err;
    EXPECT_EQ(readFile(output), "the mix of yesterday");
    EXPECT_TRUE(testing::partialFilesIn(folder.path()).empty());

    const auto killed =
        testing::orvelleSignalledWhileWriting(arguments, {}, folder.path(), SIGKILL);
    EXPECT_EQ(killed.status, -1);
    EXPECT_EQ(readFile(output), "the mix of yesterday");
    EXPECT_EQ(testing::partialFilesIn(folder.path()).size(), 1u);

    const Json mix = orvelleJson(
        {"audio", "mix", take.manifestURL.string(), "-o", output.string(), "--to", "1", "--json"});
    EXPECT_EQ(mix["frames"], rate);
    EXPECT_TRUE(testing::partialFilesIn(folder.path()).empty());
}

// A take's manifest stands for its movie in every command that opens a document: the sound
// commands must not read the manifest as a movie of its own.
TEST(AudioCommands, ATakesManifestOpensLikeItsMovie) {
    TemporaryDirectory folder;
    const Json take = orvelleJson(
        {"sample-take", (folder / "take").string(), "--width", "128", "--duration", "6", "--json"});
    const auto manifest = pathFromFileURL(take["manifestURL"].get<std::string>()).string();
    const auto movie = pathFromFileURL(take["screenURL"].get<std::string>()).string();
    for (const std::vector<std::string>& command :
         {std::vector<std::string>{"audio", "voice"}, {"composition"}, {"music", "envelope"}}) {
        auto withDocument = [&](const std::string& document) {
            auto arguments = command;
            arguments.push_back(document);
            arguments.push_back("--json");
            return orvelleJson(arguments);
        };
        Json fromManifest = withDocument(manifest);
        Json fromMovie = withDocument(movie);
        // The timeline a never-edited take is seeded with has a fresh clip id each time.
        fromManifest.erase("audioSegments");
        fromMovie.erase("audioSegments");
        EXPECT_EQ(fromManifest, fromMovie) << command.front();
    }
    const Json voice = orvelleJson({"audio", "voice", manifest, "--json"});
    EXPECT_FALSE(voice["intervals"].empty());
    const auto wav = (folder / "mix.wav").string();
    const Json mix = orvelleJson({"audio", "mix", manifest, "-o", wav, "--json"});
    EXPECT_EQ(mix["frames"], 6 * rate);
}

} // namespace
} // namespace orvelle
