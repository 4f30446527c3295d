// Planning an edit's composition: insertions under clips, splice plans at cuts, music
// loops, the tracks of a whole composition. No files: sources are made by hand.

#include "support/timeline_builders.h"
#include "timeline_media/segment_timeline_planner.h"
#include "timeline_media/timeline_composition.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

namespace orvelle {
namespace {

using testing::clip;

SegmentTimelineSource<int> segment(int media, double programStart, double programEnd,
                                   double mediaStart, double mediaDuration) {
    return {media, programStart, programEnd, mediaStart, mediaDuration};
}

TEST(SegmentTimelinePlanner, NormalisesSpeedsAsEverywhere) {
    struct Case {
        double speed;
        double editSeconds; // of a 12 s clip
    };
    const Case cases[] = {{30, 0.5},
                          {0, 16},
                          {std::numeric_limits<double>::quiet_NaN(), 12},
                          {std::numeric_limits<double>::infinity(), 12},
                          {2, 6}};
    for (const auto& c : cases) {
        const auto insertions = SegmentTimelinePlanner::mediaInsertions(
            {clip(0, 12, c.speed)}, std::vector{segment(0, 0, 20, 0, 20)});
        ASSERT_EQ(insertions.size(), 1u) << c.speed;
        EXPECT_EQ(insertions[0].editTimeRange, MediaTimeRange::fromSeconds(0, c.editSeconds))
            << c.speed;
        EXPECT_EQ(insertions[0].sourceRange, MediaTimeRange::fromSeconds(0, 12)) << c.speed;
        EXPECT_DOUBLE_EQ(TimelineComposition::editDuration({clip(0, 12, c.speed)}), c.editSeconds);
    }
}

TEST(SegmentTimelinePlanner, SplitsAClipOverTwoSegmentsContiguously) {
    // Two files: the first covers take time 0-10 from its own second 2, the second 10-20.
    const std::vector segments{segment(7, 0, 10, 2, 10), segment(8, 10, 20, 0, 10)};
    const auto insertions = SegmentTimelinePlanner::mediaInsertions({clip(4, 16, 2)}, segments);
    ASSERT_EQ(insertions.size(), 2u);
    EXPECT_EQ(insertions[0].media, 7);
    EXPECT_EQ(insertions[0].sourceRange, MediaTimeRange::fromSeconds(6, 6));
    EXPECT_EQ(insertions[0].timelineSourceRange, MediaTimeRange::fromSeconds(4, 6));
    EXPECT_EQ(insertions[0].editTimeRange, MediaTimeRange::fromSeconds(0, 3));
    EXPECT_EQ(insertions[0].mediaBounds, MediaTimeRange::fromSeconds(2, 10));
    EXPECT_EQ(insertions[1].media, 8);
    EXPECT_EQ(insertions[1].mediaIndex, 1);
    EXPECT_EQ(insertions[1].sourceRange, MediaTimeRange::fromSeconds(0, 6));
    EXPECT_EQ(insertions[1].editTimeRange.start, insertions[0].editTimeRange.end());
}

TEST(SegmentTimelinePlanner, KeepsGapsForMissingAndShortMedia) {
    // An overlap of exactly 0.001 s gives nothing, but the clip's time is kept.
    auto insertions = SegmentTimelinePlanner::mediaInsertions(
        {clip(9.999, 11), clip(20, 21)},
        std::vector{segment(0, 0, 10, 0, 10), segment(1, 20, 30, 0, 10)});
    ASSERT_EQ(insertions.size(), 1u);
    EXPECT_EQ(insertions[0].editTimeRange, MediaTimeRange::fromSeconds(1.001, 1));

    // A file shorter than the manifest says: what it has, and the edit time after it empty.
    insertions = SegmentTimelinePlanner::mediaInsertions({clip(0, 10), clip(10, 12)},
                                                         std::vector{segment(0, 0, 12, 0, 6)});
    ASSERT_EQ(insertions.size(), 1u);
    EXPECT_EQ(insertions[0].editTimeRange, MediaTimeRange::fromSeconds(0, 6));

    // No clips, and a clip ending before it starts, give nothing.
    EXPECT_TRUE(
        SegmentTimelinePlanner::mediaInsertions({}, std::vector{segment(0, 0, 10, 0, 10)}).empty());
    EXPECT_TRUE(
        SegmentTimelinePlanner::mediaInsertions({clip(5, 3)}, std::vector{segment(0, 0, 10, 0, 10)})
            .empty());
    EXPECT_EQ(TimelineComposition::editDuration({clip(5, 3), clip(0, 1)}), 1.0);
    EXPECT_EQ(TimelineComposition::editDuration({}), 0.0);
}

TEST(SegmentTimelinePlanner, JoinedInsertionsMeetOnTheSameTick) {
    // Clips with boundaries between ticks, at assorted speeds, some split where the
    // material simply goes on; and a clip over two files. Rounding each insertion's start
    // and length apart would make neighbours overlap or part by a tick.
    const std::vector segments{segment(0, 0, 50, 0, 50), segment(1, 50, 90, 0.25, 40)};
    std::mt19937 random(11);
    std::uniform_real_distribution<double> position(0, 88);
    std::uniform_real_distribution<double> length(0.01, 3);
    const double speeds[] = {1, 1, 1, 0.75, 1.5, 2.37};
    for (int round = 0; round < 200; ++round) {
        std::vector<TimelineClip> clips;
        for (int i = 0; i < 12; ++i) {
            const double speed = speeds[random() % std::size(speeds)];
            const double start =
                random() % 3 == 0 && !clips.empty() ? clips.back().end.seconds : position(random);
            clips.push_back(clip(start, std::min(start + length(random), 90.0), speed));
        }
        clips.push_back(clip(49.3337, 50.6661)); // over the join of the two files
        const auto insertions = SegmentTimelinePlanner::mediaInsertions(clips, segments);
        ASSERT_FALSE(insertions.empty());
        EXPECT_EQ(insertions.front().editTimeRange.start, 0);
        EXPECT_EQ(insertions.back().editTimeRange.end(),
                  mediaTicks(TimelineComposition::editDuration(clips)));
        for (size_t i = 0; i < insertions.size(); ++i) {
            const auto& insertion = insertions[i];
            if (insertion.clip.sanitisedSpeed() == 1.0) {
                EXPECT_EQ(insertion.sourceRange.duration, insertion.editTimeRange.duration)
                    << "speed 1 plays at exactly speed 1";
            }
            if (i == 0) {
                continue;
            }
            const auto& before = insertions[i - 1];
            ASSERT_EQ(before.editTimeRange.end(), insertion.editTimeRange.start)
                << "round " << round << ", insertion " << i;
            const bool sameMaterial = before.mediaIndex == insertion.mediaIndex &&
                                      before.clip.end == insertion.clip.start &&
                                      before.clip.speed == insertion.clip.speed;
            if (sameMaterial) {
                EXPECT_EQ(before.sourceRange.end(), insertion.sourceRange.start)
                    << "material that goes on goes on without a jump";
            }
        }
        // No drift: every insertion starts within a tick of where its seconds put it.
        for (const auto& insertion : insertions) {
            double editStart = 0;
            for (const auto& c : clips) {
                if (c.id == insertion.clip.id) {
                    break;
                }
                editStart += c.editDuration();
            }
            const auto& source = segments[static_cast<size_t>(insertion.mediaIndex)];
            const double lo = std::max(insertion.clip.start.seconds, source.programStart);
            editStart += (lo - insertion.clip.start.seconds) / insertion.clip.sanitisedSpeed();
            EXPECT_LE(std::llabs(insertion.editTimeRange.start - mediaTicks(editStart)), 1);
            EXPECT_LE(std::llabs(insertion.sourceRange.start -
                                 mediaTicks(lo - source.programStart + source.mediaStart)),
                      1);
        }
    }
}

TimelineCompositionAudioSegment audioSegment(int media, double editStart, double editLength,
                                             double mediaStart, double speed = 1,
                                             double boundsStart = 0, double boundsLength = 100) {
    TimelineCompositionAudioSegment value;
    value.clipID = Uuid::random();
    value.mediaID = media;
    value.speed = speed;
    value.timeRange = MediaTimeRange::fromSeconds(editStart, editLength);
    value.mediaRange = MediaTimeRange::fromSeconds(mediaStart, editLength * speed);
    value.sourceRange = value.mediaRange;
    value.mediaBounds = MediaTimeRange::fromSeconds(boundsStart, boundsLength);
    return value;
}

using Edge = TimelineAudioEdgeKind;

TEST(TimelineAudioMicroFade, ChoosesAnEdgeForEveryKindOfJoin) {
    const std::vector segments{
        audioSegment(0, 0, 2, 0),  // fades in from silence
        audioSegment(0, 2, 3, 2),  // continues the first: no fade
        audioSegment(0, 5, 1, 20), // a real cut with material on both sides: crossfade
        audioSegment(1, 6, 2, 0),  // a cut onto a file's first sample: micro-fades
        audioSegment(1, 9, 1, 5),  // after a hole in the edit: micro-fades
    };
    const auto plans = TimelineAudioMicroFade::splicePlans(segments, 100);
    ASSERT_EQ(plans.size(), segments.size());
    const Edge expected[][2] = {{Edge::microFade, Edge::none},
                                {Edge::none, Edge::crossfade},
                                {Edge::crossfade, Edge::microFade},
                                {Edge::microFade, Edge::microFade},
                                {Edge::microFade, Edge::microFade}};
    for (size_t i = 0; i < plans.size(); ++i) {
        EXPECT_EQ(plans[i].head.kind, expected[i][0]) << i;
        EXPECT_EQ(plans[i].tail.kind, expected[i][1]) << i;
    }
    EXPECT_NE(plans[1].subtrack, plans[2].subtrack);
    // The crossfade is centred on the cut: each side reaches half of it past the cut.
    const auto out = TimelineAudioMicroFade::trackInsertion(segments[1], plans[1]);
    const auto in = TimelineAudioMicroFade::trackInsertion(segments[2], plans[2]);
    EXPECT_EQ(out.editRange.end() - segments[1].timeRange.end(),
              TimelineAudioMicroFade::kCrossfadeTicks / 2);
    EXPECT_EQ(segments[2].timeRange.start - in.editRange.start,
              TimelineAudioMicroFade::kCrossfadeTicks / 2);
    EXPECT_EQ(in.sourceRange.start,
              segments[2].mediaRange.start - TimelineAudioMicroFade::kCrossfadeTicks / 2);
    EXPECT_EQ(out.editRange.end() - in.editRange.start, TimelineAudioMicroFade::kCrossfadeTicks);
}

TEST(TimelineAudioMicroFade, ExtendsByTheSpeedAndStaysInsideTheFile) {
    // At speed 2 the edit extension of 6 ticks takes 12 ticks of media.
    auto segments = std::vector{audioSegment(0, 0, 2, 0, 2), audioSegment(0, 2, 2, 30, 2)};
    auto plans = TimelineAudioMicroFade::splicePlans(segments, 100);
    EXPECT_EQ(plans[0].tail.kind, Edge::crossfade);
    EXPECT_EQ(plans[0].tail.sourceExtension, 12);
    EXPECT_EQ(plans[1].head.sourceExtension, 12);
    // The outgoing side ends at its file's end: nothing to overlap with.
    segments = {audioSegment(0, 0, 2, 8, 1, 0, 10), audioSegment(0, 2, 2, 30)};
    plans = TimelineAudioMicroFade::splicePlans(segments, 100);
    EXPECT_EQ(plans[0].tail.kind, Edge::microFade);
    EXPECT_EQ(plans[1].head.kind, Edge::microFade);
    // Pieces too short to hold the overlap fade against silence.
    segments = {audioSegment(0, 0, 0.03, 8), audioSegment(0, 0.03, 2, 30)};
    plans = TimelineAudioMicroFade::splicePlans(segments, 100);
    EXPECT_EQ(plans[0].tail.kind, Edge::microFade);
}

// Over random edits: insertions of one subtrack never overlap, every segment is covered, and
// the volumes at any instant of a crossfade add up to the segment volume.
TEST(TimelineAudioMicroFade, RandomEditsKeepSubtracksApartAndLevelsWhole) {
    std::mt19937 random(7);
    for (int round = 0; round < 200; ++round) {
        std::vector<TimelineCompositionAudioSegment> segments;
        double edit = 0;
        const int count = 1 + static_cast<int>(random() % 12);
        for (int i = 0; i < count; ++i) {
            const double length = 0.01 + (random() % 300) / 100.0;
            const double mediaStart = (random() % 5000) / 100.0;
            if (random() % 4 == 0) {
                edit += (random() % 100) / 100.0; // a hole
            }
            segments.push_back(
                audioSegment(static_cast<int>(random() % 2), edit, length, mediaStart, 1, 0, 60));
            edit = segments.back().timeRange.endSeconds();
        }
        const auto plans = TimelineAudioMicroFade::splicePlans(segments, 60);
        int subtracks = 0;
        for (const auto& plan : plans) {
            subtracks = std::max(subtracks, plan.subtrack + 1);
        }
        ASSERT_LE(subtracks, 2);
        std::vector<float> volumes(segments.size(), 1.0f);
        std::vector<AudioMixInputParameters> mixes(static_cast<size_t>(subtracks));
        for (int s = 0; s < subtracks; ++s) {
            const auto insertions = TimelineAudioMicroFade::trackInsertions(segments, plans, s);
            for (size_t i = 1; i < insertions.size(); ++i) {
                ASSERT_LE(insertions[i - 1].editRange.end(), insertions[i].editRange.start);
            }
            for (const auto& insertion : insertions) {
                ASSERT_GE(insertion.sourceRange.start, 0);
                ASSERT_LE(insertion.sourceRange.end(), mediaTicks(60));
            }
            TimelineAudioMicroFade::applyMixVolumes(mixes[static_cast<size_t>(s)], segments, plans,
                                                    volumes, s);
        }
        // Inside each segment, away from fades against silence, the level is whole.
        for (size_t i = 0; i < segments.size(); ++i) {
            const auto& range = segments[i].timeRange;
            if (range.duration < 4 * TimelineAudioMicroFade::kMicroFadeTicks) {
                continue;
            }
            for (int64_t tick = range.start + TimelineAudioMicroFade::kMicroFadeTicks;
                 tick < range.end() - TimelineAudioMicroFade::kMicroFadeTicks; ++tick) {
                float sum = 0;
                for (int s = 0; s < subtracks; ++s) {
                    const auto insertions =
                        TimelineAudioMicroFade::trackInsertions(segments, plans, s);
                    const bool playing =
                        std::any_of(insertions.begin(), insertions.end(), [&](const auto& x) {
                            return x.editRange.start <= tick && tick < x.editRange.end();
                        });
                    if (playing) {
                        sum += mixes[static_cast<size_t>(s)].volume(mediaSeconds(tick));
                    }
                }
                ASSERT_NEAR(sum, 1.0f, 1e-4)
                    << "round " << round << " segment " << i << " tick " << tick;
            }
        }
    }
}

TEST(TimelineComposition, LoopsAShortMusicFileOverALongClip) {
    MediaComposition composition;
    std::map<std::string, TimelineCompositionMusicSource> sources{
        {"music-0001", {"/music/a.m4a", {}, 4.0}}, {"music-0002", {"/music/b.m4a", {}, 0.005}}};
    MusicClip looped{Uuid::random(), EditTime(1), EditTime(11), 3, "music-0001", "A"};
    MusicClip tooShortFile{Uuid::random(), EditTime(0), EditTime(5), 0, "music-0002", "B"};
    MusicClip missing{Uuid::random(), EditTime(0), EditTime(5), 0, "music-0009", "C"};
    MusicClip pastTheEnd{Uuid::random(), EditTime(19.995), EditTime(30), 0, "music-0001", "D"};
    const auto trackID = TimelineComposition::insertMusicClips(
        composition, {looped, tooShortFile, missing, pastTheEnd}, sources, 20);
    ASSERT_TRUE(trackID);
    const auto& insertions = composition.track(*trackID)->insertions;
    ASSERT_EQ(insertions.size(), 4u);
    const MediaTimeRange expectedSource[] = {
        MediaTimeRange::fromSeconds(3, 1), MediaTimeRange::fromSeconds(0, 4),
        MediaTimeRange::fromSeconds(0, 4), MediaTimeRange::fromSeconds(0, 1)};
    double edit = 1;
    for (size_t i = 0; i < insertions.size(); ++i) {
        EXPECT_EQ(insertions[i].sourceRange, expectedSource[i]) << i;
        EXPECT_EQ(insertions[i].editRange.start, mediaTicks(edit)) << i;
        edit += expectedSource[i].durationSeconds();
    }
    EXPECT_EQ(composition.media.size(), 1u);
}

TEST(AudioMixInputParameters, FadesThroughSilenceAndLeavesTheRestAsItWas) {
    // Random ramps and holds; a dip anywhere, inside a ramp, on a hold, over ramp starts.
    std::mt19937 random(7);
    for (int round = 0; round < 300; ++round) {
        AudioMixInputParameters parameters;
        parameters.setVolume(0, 0);
        int64_t tick = 0;
        for (int i = 0; i < 8; ++i) {
            tick += static_cast<int64_t>(random() % 40);
            const auto length = static_cast<int64_t>(random() % 30);
            parameters.setVolumeRamp(static_cast<float>(random() % 100) / 100,
                                     static_cast<float>(random() % 100) / 100, {tick, length});
        }
        const auto dip = static_cast<int64_t>(3 + random() % (tick + 10));
        const int64_t fade = 1 + static_cast<int64_t>(random() % 3);
        AudioMixInputParameters dipped = parameters;
        dipped.fadeThroughSilence(dip, fade);
        auto at = [](const AudioMixInputParameters& p, int64_t t) {
            return p.volume(mediaSeconds(t));
        };
        for (int64_t t = 0; t < tick + 60; ++t) {
            if (t <= dip - fade || t >= dip + fade) {
                ASSERT_NEAR(at(dipped, t), at(parameters, t), 1e-6) << round << " at " << t;
            }
        }
        EXPECT_EQ(at(dipped, dip), 0.0f) << round;
        // Straight lines down and up: halfway, half the level at the dip's edges.
        const float halfway = dipped.volume(mediaSeconds(dip) - mediaSeconds(fade) / 2);
        EXPECT_NEAR(halfway, at(parameters, dip - fade) / 2, 1e-3) << round;
    }
}

TEST(TimelineAudioMicroFade, DipsOnlyWhereAJoinedTrackDoesNotGoOn) {
    CompositionTrack music{1, CompositionMediaType::audio, {}};
    music.insert({0, {1800, 600}, {600, 600}});    // the file's last second
    music.insert({0, {0, 2400}, {1200, 2400}});    // starts over: a wrap
    music.insert({0, {2400, 1200}, {3600, 1200}}); // goes on
    music.insert({1, {0, 600}, {6000, 600}});      // after a gap
    AudioMixInputParameters parameters;
    parameters.setVolume(0.5f, 0);
    TimelineAudioMicroFade::applyJoinFades(parameters, music);
    const int64_t fade = TimelineAudioMicroFade::kMicroFadeTicks;
    EXPECT_EQ(parameters.volume(mediaSeconds(1200)), 0.0f);
    EXPECT_FLOAT_EQ(parameters.volume(mediaSeconds(1200 - fade)), 0.5f);
    EXPECT_FLOAT_EQ(parameters.volume(mediaSeconds(1200 + fade)), 0.5f);
    for (const int64_t tick : {3600, 6000, 6600}) {
        EXPECT_FLOAT_EQ(parameters.volume(mediaSeconds(tick)), 0.5f) << tick;
    }
}

TEST(TimelineComposition, MakesTracksPerRoleWithVolumesAndLeavesOutSilentRoles) {
    TimelineCompositionSource source;
    source.duration = 20;
    source.videoSegments.push_back({"/take/screen.mov", {}, 0, 20, 0, 20});
    source.audioSources.push_back(
        {TimelineCompositionAudioRole::system, "/take/screen.mov", {}, 0, 20, 0, 20});
    source.audioSources.push_back(
        {TimelineCompositionAudioRole::microphone, "/take/mic.m4a", {}, 0, 20, 0, 20});
    auto first = clip(0, 5);
    first.audio.microphoneVolume = 0.25;
    // A clip's own volume does not bring back a role the project has muted.
    first.audio.systemAudioVolume = 0.7;
    const std::vector clips{first, clip(8, 12), clip(12, 14, 2)};
    AudioSettings settings{.microphoneVolume = 0.8, .systemAudioVolume = 0};
    const auto result = TimelineComposition::make(clips, source, settings, {}, {});
    ASSERT_TRUE(result);
    EXPECT_DOUBLE_EQ(result->duration, 10);
    EXPECT_EQ(result->composition.track(result->videoTrackID)->insertions.size(), 3u);
    EXPECT_FALSE(result->audioLayout.trackIDsByRole.contains(TimelineCompositionAudioRole::system));
    const auto& micTracks =
        result->audioLayout.trackIDsByRole.at(TimelineCompositionAudioRole::microphone);
    ASSERT_EQ(micTracks.size(), 2u); // the cut at 5 s crossfades on two subtracks
    const auto& segments =
        result->audioLayout.segmentsByRole.at(TimelineCompositionAudioRole::microphone);
    ASSERT_EQ(segments.size(), 3u);
    EXPECT_DOUBLE_EQ(segments[2].speed, 2);
    // The clip's own volume in the first clip, the project's later.
    auto volumeAt = [&](double t) {
        float sum = 0;
        for (const int32_t id : micTracks) {
            if (result->composition.track(id)->insertion(mediaTicks(t)) != nullptr) {
                sum += result->audioMix.parameters(id)->volume(t);
            }
        }
        return sum;
    };
    EXPECT_FLOAT_EQ(volumeAt(2), 0.25f);
    EXPECT_FLOAT_EQ(volumeAt(7), 0.8f);
    EXPECT_FLOAT_EQ(volumeAt(9.5), 0.8f);
    // Disabled audio leaves only the picture; no clips leave nothing.
    settings.isEnabled = false;
    EXPECT_EQ(TimelineComposition::make(clips, source, settings, {}, {})->composition.tracks.size(),
              1u);
    EXPECT_FALSE(TimelineComposition::make({}, source, settings, {}, {}));
}

} // namespace
} // namespace orvelle
