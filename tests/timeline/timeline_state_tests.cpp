#include "timeline/timeline_state.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace orvelle {
namespace {

const char* const kClipID = "E621E1F8-C36C-495A-93FC-0C247A3E6E5F";

Json clipJson(const Json& extra) {
    Json json = {{"id", kClipID}, {"start", 1.5}, {"end", 4.0}};
    for (const auto& [key, value] : extra.items()) {
        json[key] = value;
    }
    return json;
}

TEST(TimelineTime, IsABareNumberInJson) {
    EXPECT_EQ(encodeJson(SourceTime(1.5)), Json(1.5));
    EXPECT_EQ(encodeJson(EditTime(2.25)), Json(2.25));
    EXPECT_EQ(decodeJson<SourceTime>(Json(3)), SourceTime(3));
    EXPECT_THROW(decodeJson<EditTime>(Json::object({{"seconds", 1.5}})), JsonDecodeError);
}

TEST(TimelineTime, OrdersAndHashesBySeconds) {
    EXPECT_LT(SourceTime(1), SourceTime(2));
    EXPECT_GT(EditTime(3), EditTime(2.5));
    EXPECT_EQ(std::hash<SourceTime>{}(SourceTime(4)), std::hash<double>{}(4.0));
    static_assert(!std::is_convertible_v<SourceTime, EditTime>);
    static_assert(!std::is_convertible_v<double, SourceTime>);
    static_assert(TimelineTimeValue<SourceTime> && TimelineTimeValue<EditTime>);
}

TEST(TimelineClipJson, HoldsStartAsANumber) {
    TimelineClip clip;
    clip.id = *Uuid::parse(kClipID);
    clip.start = SourceTime(1.5);
    clip.end = SourceTime(4);
    const Json json = encodeJson(clip);
    EXPECT_EQ(json.at("start"), Json(1.5));
    EXPECT_EQ(json.at("id"), Json(kClipID));
    EXPECT_EQ(decodeJson<TimelineClip>(json), clip);
}

TEST(TimelineClipJson, MissingKeysTakeTheirDefaults) {
    const auto clip = decodeJson<TimelineClip>(clipJson(Json::object()));
    EXPECT_EQ(clip.speed, 1.0);
    EXPECT_EQ(clip.audio, TimelineClipAudioSettings{});
    EXPECT_FALSE(clip.hidesCursor);
    EXPECT_EQ(clip.fadeInDuration, 0);
    EXPECT_EQ(clip.fadeOutDuration, 0);
}

struct ClampCase {
    const char* key;
    double stored;
    double expected;
};

class TimelineClipClamping : public ::testing::TestWithParam<ClampCase> {};

TEST_P(TimelineClipClamping, ReadsIntoRange) {
    const auto& param = GetParam();
    const auto clip = decodeJson<TimelineClip>(clipJson({{param.key, param.stored}}));
    const Json reread = encodeJson(clip);
    EXPECT_DOUBLE_EQ(reread.at(param.key).get<double>(), param.expected) << param.key;
}

INSTANTIATE_TEST_SUITE_P(Fields, TimelineClipClamping,
                         ::testing::Values(ClampCase{"speed", 0.1, 0.75},
                                           ClampCase{"speed", 30, 24}, ClampCase{"speed", 2.5, 2.5},
                                           ClampCase{"fadeInDuration", -1, 0},
                                           ClampCase{"fadeInDuration", 9, 5},
                                           ClampCase{"fadeOutDuration", 2, 2},
                                           ClampCase{"fadeOutDuration", 7.5, 5}));

TEST(TimelineClipJson, AudioVolumesAreClampedAndAbsentStaysAbsent) {
    const auto clip = decodeJson<TimelineClip>(clipJson(
        {{"audio",
          {{"microphoneVolume", 1.8}, {"musicVolume", -0.2}, {"ducksMusicDuringVoice", true}}}}));
    EXPECT_EQ(clip.audio.microphoneVolume, 1.0);
    EXPECT_EQ(clip.audio.musicVolume, 0.0);
    EXPECT_FALSE(clip.audio.systemAudioVolume.has_value());
    EXPECT_TRUE(clip.audio.ducksMusicDuringVoice);
    const Json audio = encodeJson(clip.audio);
    EXPECT_FALSE(audio.contains("systemAudioVolume"));
}

TEST(TimelineClipAudioSettings, ClampedMakesNonFiniteVolumesFull) {
    TimelineClipAudioSettings settings;
    settings.microphoneVolume = std::numeric_limits<double>::quiet_NaN();
    settings.systemAudioVolume = 0.4;
    const auto clamped = settings.clamped();
    EXPECT_EQ(clamped.microphoneVolume, 1.0);
    EXPECT_EQ(clamped.systemAudioVolume, 0.4);
    EXPECT_FALSE(clamped.musicVolume.has_value());
}

TEST(SanitisedClipSpeed, HoldsTheRateEverywhereItDivides) {
    EXPECT_EQ(sanitisedClipSpeed(std::numeric_limits<double>::infinity()), 1.0);
    EXPECT_EQ(sanitisedClipSpeed(std::numeric_limits<double>::quiet_NaN()), 1.0);
    EXPECT_EQ(sanitisedClipSpeed(0.1), 0.75);
    EXPECT_EQ(sanitisedClipSpeed(-3), 0.75);
    EXPECT_EQ(sanitisedClipSpeed(100), 24.0);
    EXPECT_EQ(sanitisedClipSpeed(1.25), 1.25);
}

TEST(TimelineStateJson, ClipsAreRequiredGapsAreNot) {
    EXPECT_THROW(decodeJson<TimelineState>(Json{{"sourceDuration", 3}}), JsonDecodeError);
    try {
        decodeJson<TimelineState>(Json{{"sourceDuration", 3}}, JsonDecodeContext{}.key("timeline"));
    } catch (const JsonDecodeError& error) {
        EXPECT_EQ(error.path(), "timeline.clips");
    }
    const auto state =
        decodeJson<TimelineState>(Json{{"sourceDuration", 3}, {"clips", Json::array()}});
    EXPECT_EQ(state.sourceDuration, SourceTime(3));
    EXPECT_TRUE(state.deletedGaps.empty());
}

TEST(TimelineStateJson, RoundTrips) {
    TimelineState state;
    state.sourceDuration = SourceTime(30);
    TimelineClip first;
    first.id = Uuid::random();
    first.start = SourceTime(0);
    first.end = SourceTime(10);
    first.speed = 2;
    first.audio.systemAudioVolume = 0.5;
    first.hidesCursor = true;
    first.fadeInDuration = 0.5;
    TimelineClip second = first;
    second.id = Uuid::random();
    second.start = SourceTime(20);
    second.end = SourceTime(30);
    state.clips = {first, second};
    state.deletedGaps = {{Uuid::random(), SourceTime(10), SourceTime(20)}};
    const auto reread = decodeJson<TimelineState>(parseJson(prettyJson(encodeJson(state))));
    EXPECT_EQ(reread, state);
}

TEST(TimelineSeeding, FillsAnEmptyTimelineWithOneFullLengthClip) {
    const auto seeded = seededTimeline(TimelineState::defaultState(), SourceTime(12.5));
    ASSERT_EQ(seeded.clips.size(), 1u);
    EXPECT_EQ(seeded.sourceDuration, SourceTime(12.5));
    EXPECT_EQ(seeded.clips[0].start, SourceTime(0));
    EXPECT_EQ(seeded.clips[0].end, SourceTime(12.5));
    EXPECT_EQ(seeded.clips[0].speed, 1.0);
    EXPECT_EQ(seeded.clips[0].fadeInDuration, 0);
    EXPECT_EQ(seeded.clips[0].fadeOutDuration, 0);
    EXPECT_TRUE(seeded.deletedGaps.empty());
    EXPECT_NE(seeded.clips[0].id, Uuid{});
}

TEST(TimelineSeeding, KeepsABuiltTimelineAndIgnoresEmptySources) {
    TimelineState built = seededTimeline({}, SourceTime(5));
    built.clips[0].speed = 2;
    EXPECT_EQ(seededTimeline(built, SourceTime(40)), built);
    EXPECT_EQ(seededTimeline({}, SourceTime(0)), TimelineState::defaultState());
    EXPECT_EQ(seededTimeline({}, SourceTime(-2)), TimelineState::defaultState());
    EXPECT_EQ(fullLengthTimeline(SourceTime(std::nan(""))), TimelineState::defaultState());
}

} // namespace
} // namespace orvelle
