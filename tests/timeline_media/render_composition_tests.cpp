// The export's composition: which clicks sound and on which lane, the camera's stretches
// and the instructions cut from them.

#include "core/cancellation.h"
#include "support/temporary_directory.h"
#include "support/test_media.h"
#include "support/thrown.h"
#include "support/timeline_builders.h"
#include "support/tiny_take.h"
#include "timeline_media/render_composition.h"

#include <gtest/gtest.h>

#include <random>

namespace orvelle {
namespace {

using testing::clip;

using RenderComposition::addClickAudioTracks;
using RenderComposition::mergedCameraRanges;
using RenderComposition::playableClickEditTimes;
using RenderComposition::videoInstructions;

ResolvedEditTimeline timeline(std::vector<TimelineClip> clips, double sourceDuration) {
    return ResolvedEditTimeline(std::move(clips), {}, SourceTime(sourceDuration));
}

std::vector<CursorClick> clicksAt(std::initializer_list<double> times) {
    std::vector<CursorClick> clicks;
    for (const double time : times) {
        CursorClick click;
        click.time = time;
        clicks.push_back(click);
    }
    return clicks;
}

TEST(PlayableClickEditTimes, KeepsClicksInsideClipsMappedToEditTime) {
    // Two clips with a cut from 2 to 5; the second plays at double speed.
    const auto edit = timeline({clip(0, 2), clip(5, 9, 2)}, 10);
    const auto times = playableClickEditTimes(clicksAt({0, 1.5, 2, 3, 5, 7, 9, 9.5}), edit);
    // 2 is a clip's end and 9 the last clip's end: neither is inside.
    ASSERT_EQ(times.size(), 4u);
    EXPECT_DOUBLE_EQ(times[0], 0);
    EXPECT_DOUBLE_EQ(times[1], 1.5);
    EXPECT_NEAR(times[2], 2, 1e-9);
    EXPECT_NEAR(times[3], 3, 1e-9); // 2 s into the clip at speed 2
    // None on a timeline without length.
    EXPECT_TRUE(playableClickEditTimes(clicksAt({0, 1}), timeline({}, 10)).empty());
    EXPECT_TRUE(playableClickEditTimes(clicksAt({0, 1}), timeline({clip(3, 3)}, 10)).empty());
}

class ClickLanes : public ::testing::Test {
protected:
    MediaComposition composition;
    AudioMix mix;
    const std::filesystem::path clickURL = "/resources/Sounds/click.wav";

    std::vector<const CompositionTrack*>
    laneTracks(const std::vector<RenderComposition::ClickAudioLane>& lanes) const {
        std::vector<const CompositionTrack*> tracks;
        for (const auto& lane : lanes) {
            tracks.push_back(composition.track(lane.trackID));
        }
        return tracks;
    }
};

TEST_F(ClickLanes, ClicksCloserThanTheSoundTakeTurnsOnFourLanes) {
    const std::vector<double> times{1.0, 1.05, 1.10, 1.15, 1.20, 1.25, 1.30, 1.35};
    const auto lanes = addClickAudioTracks(composition, mix, times, clickURL, 0.2, 1.0, 10);
    ASSERT_EQ(lanes.size(), 4u);
    const auto tracks = laneTracks(lanes);
    for (size_t i = 0; i < times.size(); ++i) {
        const auto& insertions = tracks[i % 4]->insertions;
        ASSERT_EQ(insertions.size(), 2u) << "lane " << i % 4;
        const auto& insertion = insertions[i / 4];
        EXPECT_EQ(insertion.editRange.start, mediaTicks(times[i])) << "click " << i;
        EXPECT_EQ(insertion.editRange.duration, mediaTicks(0.2));
        EXPECT_EQ(insertion.sourceRange, (MediaTimeRange{0, mediaTicks(0.2)}));
        EXPECT_EQ(composition.media[static_cast<size_t>(insertion.mediaID)], clickURL);
    }
    EXPECT_DOUBLE_EQ(lanes[3].availableAt, 1.35 + 0.2);
}

// A lane free within a millisecond is reused without overlap; clicks are cut at the end and
// dropped when nearly nothing remains; no clicks or no length make nothing.
TEST_F(ClickLanes, ReusedWithinAMillisecondAndCutAtTheEnd) {
    // The second click starts half a millisecond before the first one ends.
    auto lanes = addClickAudioTracks(composition, mix, {1.0, 1.1995}, clickURL, 0.2, 1.0, 10);
    ASSERT_EQ(lanes.size(), 1u);
    const auto& reused = composition.track(lanes[0].trackID)->insertions;
    ASSERT_EQ(reused.size(), 2u);
    EXPECT_LE(reused[0].editRange.end(), reused[1].editRange.start);

    MediaComposition end;
    lanes = addClickAudioTracks(end, mix, {9.9, 9.9995}, clickURL, 0.2, 1.0, 10);
    ASSERT_EQ(lanes.size(), 1u);
    const auto& cut = end.track(lanes[0].trackID)->insertions;
    ASSERT_EQ(cut.size(), 1u);
    EXPECT_EQ(cut[0].editRange.end(), mediaTicks(10));
    EXPECT_EQ(cut[0].sourceRange.duration, cut[0].editRange.duration);

    MediaComposition none;
    EXPECT_TRUE(addClickAudioTracks(none, mix, {}, clickURL, 0.2, 1, 10).empty());
    EXPECT_TRUE(addClickAudioTracks(none, mix, {1}, clickURL, 0, 1, 10).empty());
    EXPECT_TRUE(none.tracks.empty());
}

TEST_F(ClickLanes, AVolumeOtherThanOneIsSetOnEveryLane) {
    const auto quiet = addClickAudioTracks(composition, mix, {1, 1.01}, clickURL, 0.2, 0.15, 10);
    ASSERT_EQ(quiet.size(), 2u);
    for (const auto& lane : quiet) {
        const auto* parameters = mix.parameters(lane.trackID);
        ASSERT_NE(parameters, nullptr);
        EXPECT_FLOAT_EQ(parameters->volume(0), 0.15f);
        EXPECT_FLOAT_EQ(parameters->volume(5), 0.15f);
    }
    AudioMix fullMix;
    const auto full = addClickAudioTracks(composition, fullMix, {1}, clickURL, 0.2, 0.9995, 10);
    ASSERT_EQ(full.size(), 1u);
    EXPECT_EQ(fullMix.parameters(full[0].trackID), nullptr);
}

// Random clicks: a lane's insertions never overlap, every click that has room is placed
// exactly once, and no more lanes are opened than clicks sound at once.
TEST_F(ClickLanes, RandomClicksNeverOverlapOnALane) {
    std::mt19937 random(7);
    std::uniform_real_distribution<double> gap(0.0, 0.3);
    for (int round = 0; round < 50; ++round) {
        MediaComposition fresh;
        AudioMix freshMix;
        std::vector<double> times;
        double t = 0;
        while (t < 5) {
            times.push_back(t);
            t += gap(random);
        }
        const double length = 0.05 + gap(random);
        const auto lanes = addClickAudioTracks(fresh, freshMix, times, clickURL, length, 1, 5);
        size_t placed = 0;
        for (const auto& lane : lanes) {
            const auto& insertions = fresh.track(lane.trackID)->insertions;
            placed += insertions.size();
            for (size_t i = 1; i < insertions.size(); ++i) {
                EXPECT_LE(insertions[i - 1].editRange.end(), insertions[i].editRange.start);
            }
        }
        EXPECT_EQ(placed, times.size());
        size_t mostAtOnce = 0;
        for (const double start : times) {
            mostAtOnce = std::max<size_t>(
                mostAtOnce,
                static_cast<size_t>(std::count_if(times.begin(), times.end(), [&](double s) {
                    return s <= start && start < s + length - 0.001;
                })));
        }
        EXPECT_LE(lanes.size(), mostAtOnce);
    }
}

TEST(MergedCameraRanges, ClampsSortsAndJoinsTouchingRanges) {
    const auto merged = mergedCameraRanges(
        {{600, 300}, {-100, 200}, {900, 100}, {1500, 100}, {2000, 600}, {1550, 10}}, 2400);
    const std::vector<MediaTimeRange> expected{{0, 100}, {600, 400}, {1500, 100}, {2000, 400}};
    EXPECT_EQ(merged, expected);
    EXPECT_TRUE(mergedCameraRanges({{3000, 100}, {-200, 100}}, 2400).empty());
}

TEST(VideoInstructions, AlternateWhereTheCameraCoversPartOfTheTimeline) {
    CompositionTrack camera;
    camera.trackID = 2;
    camera.insertions = {
        {0, {0, 600}, {600, 600}}, {0, {600, 300}, {1200, 300}}, {0, {0, 300}, {2100, 600}}};
    const auto instructions = videoInstructions(mediaTicks(5), 1, &camera);
    // The two touching insertions make one stretch with the camera.
    const std::vector<std::pair<MediaTimeRange, bool>> expected{{{0, 600}, false},
                                                                {{600, 900}, true},
                                                                {{1500, 600}, false},
                                                                {{2100, 600}, true},
                                                                {{2700, 300}, false}};
    ASSERT_EQ(instructions.size(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(instructions[i].timeRange, expected[i].first) << i;
        EXPECT_EQ(instructions[i].cameraTrackID.has_value(), expected[i].second) << i;
        EXPECT_EQ(instructions[i].requiredSourceTrackIDs().size(), expected[i].second ? 2u : 1u);
    }
    // The last piece ends at the timeline's end, not at a frame boundary.
    camera.insertions = {{0, {0, 300}, {0, 300}}};
    const auto tiled = videoInstructions(mediaTicks(1.001), 1, &camera);
    ASSERT_EQ(tiled.size(), 2u);
    EXPECT_EQ(tiled[0].timeRange.end(), tiled[1].timeRange.start);
    EXPECT_EQ(tiled.back().timeRange.end(), mediaTicks(1.001));
}

// Building from a snapshot of a tiny real take.
class RenderCompositionBuild : public ::testing::Test {
protected:
    testing::TemporaryDirectory directory;
    std::filesystem::path clickURL = directory / "Sounds" / "click.wav";

    void SetUp() override {
        std::filesystem::create_directories(clickURL.parent_path());
        testing::writeAudioFile(clickURL, testing::sineTone(2000, 0.2, 48000, 2), {48000, 2});
    }

    RenderExportSettings settingsFor(const testing::TinyTake& take,
                                     std::vector<TimelineClip> clips) {
        RenderExportSettings settings{.sourceURL = take.screenURL,
                                      .outputURL = directory / "out.mp4",
                                      .width = 320,
                                      .height = 180,
                                      .fps = 30};
        settings.project.manifest = take.manifest;
        settings.project.timeline.sourceDuration = SourceTime(take.manifest.duration());
        settings.project.timeline.clips = clips;
        settings.cursorURL = take.cursorURL;
        settings.timelineClips = std::move(clips);
        return settings;
    }

    RenderComposition::Resources resources() const {
        return {clickURL, NoiseReductionCache(directory / "denoised")};
    }

    static std::vector<const CompositionTrack*> tracksOf(const RenderComposition::Output& output,
                                                         const std::filesystem::path& url) {
        std::vector<const CompositionTrack*> tracks;
        for (const auto& track : output.composition.tracks) {
            if (!track.insertions.empty() &&
                output.composition.media[static_cast<size_t>(track.insertions[0].mediaID)] == url) {
                tracks.push_back(&track);
            }
        }
        return tracks;
    }
};

TEST_F(RenderCompositionBuild, LaysOutScreenSoundAndClicksInEditTime) {
    const auto take = testing::writeTinyTake(directory / "take", {.clicks = {0.2, 0.25, 1.2}});
    // A cut from 0.6 to 1.0 s: the click at 1.2 s plays at 0.8 s of the movie.
    const auto output =
        RenderComposition::build(settingsFor(take, {clip(1.0, 2.0), clip(0, 0.6)}), resources());
    EXPECT_NEAR(output.timelineDuration, 1.6, 1e-9);
    EXPECT_EQ(output.width, 320);
    EXPECT_EQ(output.height, 180);
    EXPECT_EQ(output.fps, 30);
    const auto* screen = output.composition.track(output.screenTrackID);
    ASSERT_NE(screen, nullptr);
    ASSERT_EQ(screen->insertions.size(), 2u); // clips sorted by start
    EXPECT_EQ(screen->insertions[0].sourceRange, MediaTimeRange::between(0, 0.6));
    EXPECT_EQ(screen->insertions[1].editRange, MediaTimeRange::between(0.6, 1.6));
    EXPECT_FALSE(output.cameraTrackID);

    EXPECT_FALSE(tracksOf(output, *take.microphoneURL).empty());
    const auto clicks = tracksOf(output, clickURL);
    ASSERT_EQ(clicks.size(), 2u); // 0.2 and 0.25 overlap; 0.8 reuses the first lane
    ASSERT_EQ(clicks[0]->insertions.size(), 2u);
    EXPECT_EQ(clicks[0]->insertions[0].editRange.start, mediaTicks(0.2));
    EXPECT_EQ(clicks[0]->insertions[1].editRange.start, mediaTicks(0.8));
    EXPECT_EQ(clicks[1]->insertions[0].editRange.start, mediaTicks(0.25));
    ASSERT_TRUE(output.audioMix);
    EXPECT_FLOAT_EQ(output.audioMix->parameters(clicks[0]->trackID)->volume(0.3), 0.15f);

    ASSERT_EQ(output.instructions.size(), 1u);
    EXPECT_EQ(output.instructions[0].timeRange, MediaTimeRange::between(0, 1.6));
    EXPECT_EQ(output.instructions[0].requiredSourceTrackIDs(),
              std::vector<int32_t>{output.screenTrackID});

    // The resolver works on the same timeline: 0.7 s of the movie is 1.1 s of the take.
    ASSERT_TRUE(output.resolver);
    const FrameComposition frame = output.resolver->resolve(0.7);
    EXPECT_NEAR(frame.sourceTime.seconds, 1.1, 1e-6);
    EXPECT_EQ(frame.stageSize, (Size{320, 180}));
    EXPECT_EQ(frame.sourceNaturalSize, (Size{160, 96}));
}

TEST_F(RenderCompositionBuild, LessContentWithoutPointerClickSoundAudioOrVolume) {
    const auto take = testing::writeTinyTake(directory / "take");
    const auto clips = std::vector<TimelineClip>{clip(0, 2)};
    const auto count = [&](const RenderComposition::Output& output) {
        return tracksOf(output, clickURL).size();
    };
    EXPECT_EQ(count(RenderComposition::build(settingsFor(take, clips), resources())), 2u);

    auto silentClicks = settingsFor(take, clips);
    silentClicks.project.cursor.clickSoundVolume = 0;
    EXPECT_EQ(count(RenderComposition::build(silentClicks, resources())), 0u);

    auto noResource = resources();
    noResource.clickSoundURL = directory / "missing.wav";
    EXPECT_EQ(count(RenderComposition::build(settingsFor(take, clips), noResource)), 0u);

    auto muted = settingsFor(take, clips);
    muted.project.audio.isEnabled = false;
    const auto mutedOutput = RenderComposition::build(muted, resources());
    EXPECT_FALSE(mutedOutput.audioMix);
    EXPECT_TRUE(mutedOutput.composition.tracksOfType(CompositionMediaType::audio).empty());

    const auto bare =
        testing::writeTinyTake(directory / "bare", {.withMicrophone = false, .withPointer = false});
    const auto bareOutput = RenderComposition::build(settingsFor(bare, clips), resources());
    EXPECT_FALSE(bareOutput.audioMix);
    EXPECT_FALSE(bareOutput.resolver->resolve(0.5).preview.cursor);
}

TEST_F(RenderCompositionBuild, ACameraOverPartOfTheTakeAlternatesInstructions) {
    const auto take = testing::writeTinyTake(directory / "take", {.camera = std::pair{0.5, 1.5}});
    const auto output = RenderComposition::build(settingsFor(take, {clip(0, 2)}), resources());
    ASSERT_TRUE(output.cameraTrackID);
    ASSERT_EQ(output.instructions.size(), 3u);
    EXPECT_FALSE(output.instructions[0].cameraTrackID);
    EXPECT_EQ(output.instructions[1].cameraTrackID, output.cameraTrackID);
    EXPECT_EQ(output.instructions[1].timeRange, MediaTimeRange::between(0.5, 1.5));
    EXPECT_FALSE(output.instructions[2].cameraTrackID);
    EXPECT_EQ(output.resolver->resolve(1.0).cameraNaturalSize, (Size{64, 48}));
}

TEST_F(RenderCompositionBuild, RefusesAnEmptyTimelineAndATakeWithoutItsScreenAndStops) {
    const auto take = testing::writeTinyTake(directory / "take");
    const auto code = [&](const RenderExportSettings& settings) {
        const auto error = testing::thrown<RenderExportError>(
            [&] { RenderComposition::build(settings, resources()); });
        return error ? std::optional(error->code()) : std::nullopt;
    };
    EXPECT_EQ(code(settingsFor(take, {})), RenderExportErrorCode::emptyTimeline);
    EXPECT_EQ(code(settingsFor(take, {clip(1, 1)})), RenderExportErrorCode::emptyTimeline);
    // Clips past the take's end are held to it and then have no length.
    EXPECT_EQ(code(settingsFor(take, {clip(5, 6)})), RenderExportErrorCode::emptyTimeline);
    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW(
        RenderComposition::build(settingsFor(take, {clip(0, 2)}), resources(), stop.get_token()),
        CancellationError);
    std::filesystem::remove(take.screenURL);
    EXPECT_EQ(code(settingsFor(take, {clip(0, 2)})), RenderExportErrorCode::missingVideoTrack);
}

} // namespace
} // namespace orvelle
