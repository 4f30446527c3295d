// Speech found by level, and the music's envelope over an edit.

#include "support/timeline_builders.h"
#include "timeline_media/timeline_composition.h"
#include "timeline_media/voice_activity_detector.h"

#include <gtest/gtest.h>

namespace orvelle {
namespace {

using testing::clip;

using namespace TimelineComposition;

TimelineClip duckingClip(double start, double end, std::optional<double> musicVolume) {
    TimelineClip value = clip(start, end);
    value.audio.ducksMusicDuringVoice = true;
    value.audio.musicVolume = musicVolume;
    return value;
}

MusicClip musicClip(double start, double end) {
    return {Uuid::random(), EditTime(start), EditTime(end), 0, "music-0001", "Song"};
}

TEST(VoiceActivityDetector, ConstantLevelsAreNotSpeech) {
    // 0.03 everywhere: 0.054 threshold; 0.5 everywhere: 0.9 threshold. Nothing is active.
    EXPECT_TRUE(VoiceActivityDetector::speechIntervals(std::vector<float>(100, 0.03f), 10).empty());
    EXPECT_TRUE(VoiceActivityDetector::speechIntervals(std::vector<float>(100, 0.5f), 10).empty());
    EXPECT_TRUE(VoiceActivityDetector::speechIntervals({}, 10).empty());
    EXPECT_TRUE(VoiceActivityDetector::speechIntervals({0.9f}, 0).empty());
    EXPECT_FLOAT_EQ(VoiceActivityDetector::noiseFloor({0.5f, 0.1f, 0.3f, 0.2f, 0.4f}, 0.4f), 0.3f);
    EXPECT_FLOAT_EQ(VoiceActivityDetector::noiseFloor({0.5f, 0.1f}, 7), 0.5f);
}

TEST(VoiceActivityDetector, FindsRunsAboveTheFloorAndHoldsThem) {
    // 100 buckets over 10 s: speech in buckets 20-29 and 80-99 (the last run reaches the end).
    std::vector<float> peaks(100, 0.01f);
    for (int i = 20; i < 30; ++i) {
        peaks[static_cast<size_t>(i)] = 0.5f;
    }
    for (int i = 80; i < 100; ++i) {
        peaks[static_cast<size_t>(i)] = 0.5f;
    }
    const auto intervals = VoiceActivityDetector::speechIntervals(peaks, 10);
    ASSERT_EQ(intervals.size(), 2u);
    EXPECT_DOUBLE_EQ(intervals[0].lower, 2.0);
    EXPECT_DOUBLE_EQ(intervals[0].upper, 3.4); // 3.0 held by 0.4 s
    EXPECT_DOUBLE_EQ(intervals[1].lower, 8.0);
    EXPECT_DOUBLE_EQ(intervals[1].upper, 10.0); // the hangover stops at the file's end
}

TEST(VoiceActivityDetector, MergesAcrossShortPauses) {
    using V = VoiceInterval;
    EXPECT_EQ(VoiceActivityDetector::mergeAndApplyHangover({{3, 4}, {0, 2}}, 1.0, 0, 0),
              (std::vector<V>{{0, 4}}));
    EXPECT_EQ(VoiceActivityDetector::mergeAndApplyHangover({{0, 2}, {3.01, 4}}, 1.0, 0, 0),
              (std::vector<V>{{0, 2}, {3.01, 4}}));
    // Ends 0.1 s before the limit: the hangover stops at the limit.
    EXPECT_EQ(VoiceActivityDetector::mergeAndApplyHangover({{1, 9.9}}, 1.0, 0.4, 10),
              (std::vector<V>{{1, 10}}));
    EXPECT_EQ(VoiceActivityDetector::mergeAndApplyHangover({{5, 6}}, 1.0, 0.4, 0),
              (std::vector<V>{{5, 6.4}}));
    EXPECT_TRUE(VoiceActivityDetector::mergeAndApplyHangover({}, 1, 1, 1).empty());
}

TEST(MusicEnvelope, RegionsFollowClipLevelsAndDucking) {
    const std::vector<VoiceInterval> voice{{3, 4}};
    // Ducking without a music volume: C equals L, no dips, level L.
    auto regions = musicVolumeRegions({duckingClip(0, 10, std::nullopt)}, false, voice, 0.5);
    ASSERT_EQ(regions.size(), 1u);
    EXPECT_FLOAT_EQ(regions[0].baseVolume, 0.5f);
    EXPECT_TRUE(regions[0].dips.empty());
    // Not ducking with music volume 0: silent at once over that clip.
    auto silent = clip(0, 10);
    silent.audio.musicVolume = 0;
    regions = musicVolumeRegions({clip(10, 20), silent}, false, voice, 0.5);
    ASSERT_EQ(regions.size(), 2u);
    EXPECT_FLOAT_EQ(regions[0].baseVolume, 0.0f); // sorted by start
    EXPECT_FLOAT_EQ(regions[1].baseVolume, 0.5f);
    // Ducking to 0.2 of the level, at speed 2: the dip lands in edit time.
    auto fast = duckingClip(2, 6, 0.2);
    fast.speed = 2;
    regions = musicVolumeRegions({fast}, false, voice, 1.0);
    ASSERT_EQ(regions[0].dips.size(), 1u);
    EXPECT_DOUBLE_EQ(regions[0].dips[0].start, 0.5);
    EXPECT_DOUBLE_EQ(regions[0].dips[0].end, 1.0);
    EXPECT_FLOAT_EQ(regions[0].dips[0].floor, 0.2f);
    EXPECT_FLOAT_EQ(regions[0].baseVolume, 1.0f);
    // Disabled audio: everything at 0.
    regions = musicVolumeRegions({fast}, true, voice, 1.0);
    EXPECT_FLOAT_EQ(regions[0].baseVolume, 0.0f);
    EXPECT_TRUE(regions[0].dips.empty());
}

TEST(MusicEnvelope, DipRampsDownBeforeSpeechAndRecoversAfterIt) {
    // A dip that starts 0.2 s into its region, and one near the region's end whose recovery
    // runs into the next region with another base.
    std::vector<MusicVolumeRegion> regions{{0, 5, 1.0f, {{0.2, 1.0, 0.2f}, {4.5, 4.8, 0.2f}}},
                                           {5, 10, 0.6f, {}}};
    const auto anchors = duckAnchors(regions);
    EXPECT_DOUBLE_EQ(anchors.front().time, 0.0);
    // At the region's start the ramp towards the first dip is already part way down:
    // 1 + (0.2 - 1) * (0 - (0.2 - 0.5)) * 2 = 0.52.
    EXPECT_NEAR(anchors.front().level, 0.52f, 1e-6);
    EXPECT_NEAR(*dipLevel(regions, 0.6), 0.2f, 1e-6);
    // Recovery 0.5 s after the second dip, in the second region: 0.2 + (0.6 - 0.2) * 0.5.
    EXPECT_NEAR(*dipLevel(regions, 5.3), 0.4f, 1e-6);
    EXPECT_FALSE(dipLevel(regions, 7.0));
    const bool hasRecoveryAnchor =
        std::any_of(anchors.begin(), anchors.end(),
                    [](const DuckAnchor& a) { return std::abs(a.time - 5.8) < 1e-9; });
    EXPECT_TRUE(hasRecoveryAnchor);
    EXPECT_NEAR(interpolatedLevel(5.8, anchors, 1), 0.6f, 1e-6);
    EXPECT_FLOAT_EQ(interpolatedLevel(3, {}, 0.7f), 0.7f);
    EXPECT_FLOAT_EQ(interpolatedLevel(-1, {{0, 0.3f}, {1, 0.9f}}, 0), 0.3f);
    EXPECT_FLOAT_EQ(interpolatedLevel(0.5, {{0, 0.3f}, {1, 0.9f}}, 0), 0.6f);
    EXPECT_FLOAT_EQ(interpolatedLevel(2, {{0, 0.3f}, {1, 0.9f}}, 0), 0.9f);
}

TEST(MusicEnvelope, FadesEachMusicClipInAndOut) {
    const std::vector clips{clip(0, 30)};
    struct Case {
        double start, end, fade;
    };
    for (const Case c : {Case{0, 1, 0.25}, Case{2, 4, 0.35}, Case{5, 25, 0.35}}) {
        const auto segments =
            musicEnvelopeSegments({musicClip(c.start, c.end)}, clips, false, {}, 0.5, 30);
        ASSERT_GE(segments.size(), 3u);
        EXPECT_DOUBLE_EQ(segments.front().start, c.start);
        EXPECT_DOUBLE_EQ(segments.front().end, c.start + c.fade);
        EXPECT_FLOAT_EQ(segments.front().fromVolume, 0.0f);
        EXPECT_FLOAT_EQ(segments.front().toVolume, 0.5f);
        EXPECT_DOUBLE_EQ(segments.back().end, c.end);
        EXPECT_FLOAT_EQ(segments.back().toVolume, 0.0f);
    }
    // 0.01 s or less: nothing. Past the timeline's end: cut there.
    EXPECT_TRUE(musicEnvelopeSegments({musicClip(3, 3.01)}, clips, false, {}, 0.5, 30).empty());
    EXPECT_DOUBLE_EQ(
        musicEnvelopeSegments({musicClip(20, 40)}, clips, false, {}, 0.5, 30).back().end, 30);
    // Disabled audio: still emitted, all at 0.
    for (const auto& segment :
         musicEnvelopeSegments({musicClip(0, 10)}, clips, true, {}, 0.5, 30)) {
        EXPECT_FLOAT_EQ(segment.fromVolume, 0.0f);
        EXPECT_FLOAT_EQ(segment.toVolume, 0.0f);
    }
}

TEST(MusicEnvelope, DucksUnderSpeechAsOneContinuousCurve) {
    const std::vector clips{duckingClip(0, 20, 0.1)};
    const std::vector<VoiceInterval> voice{{5, 8}};
    const auto segments = musicEnvelopeSegments({musicClip(0, 20)}, clips, false, voice, 0.8, 20);
    // Segments join end to start with equal levels, and the curve reaches the floor 0.08
    // during speech and 0.8 away from it.
    for (size_t i = 1; i < segments.size(); ++i) {
        EXPECT_DOUBLE_EQ(segments[i].start, segments[i - 1].end);
        EXPECT_FLOAT_EQ(segments[i].fromVolume, segments[i - 1].toVolume);
    }
    auto levelAt = [&](double t) {
        for (const auto& s : segments) {
            if (s.start <= t && t <= s.end) {
                return s.fromVolume + (s.toVolume - s.fromVolume) *
                                          static_cast<float>((t - s.start) / (s.end - s.start));
            }
        }
        return -1.0f;
    };
    EXPECT_NEAR(levelAt(2), 0.8f, 1e-5);
    EXPECT_NEAR(levelAt(6.5), 0.08f, 1e-5);
    EXPECT_NEAR(levelAt(4.75), 0.44f, 1e-5); // half way down the 0.5 s ramp
    EXPECT_NEAR(levelAt(8.5), 0.44f, 1e-5);  // half way up the 1 s recovery
    EXPECT_NEAR(levelAt(15), 0.8f, 1e-5);
    // As the music track's volume: silent before the first ramp.
    AudioMixInputParameters parameters;
    applyMusicEnvelope(parameters, segments);
    EXPECT_FLOAT_EQ(parameters.volume(0), 0.0f);
    EXPECT_NEAR(parameters.volume(6.5), 0.08f, 1e-3);
}

} // namespace
} // namespace orvelle
