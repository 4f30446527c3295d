#include "support/thrown.h"
#include "timeline/timeline_state.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace orvelle {
namespace {

const char* const kClipID = "E621E1F8-C36C-495A-93FC-0C247A3E6E5F";
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

Json clipJson(const Json& extra) {
    Json json = {{"id", kClipID}, {"start", 1.5}, {"end", 4.0}};
    for (const auto& [key, value] : extra.items()) {
        json[key] = value;
    }
    return json;
}

// Times are bare numbers in files and never mix: a source time is not an edit time.
TEST(TimelineTime, IsABareNumberOfItsOwnKind) {
    EXPECT_EQ(encodeJson(EditTime(2.25)), Json(2.25));
    EXPECT_EQ(decodeJson<SourceTime>(Json(3)), SourceTime(3));
    EXPECT_THROW(decodeJson<EditTime>(Json::object({{"seconds", 1.5}})), JsonDecodeError);
    EXPECT_LT(SourceTime(1), SourceTime(2));
    static_assert(!std::is_convertible_v<SourceTime, EditTime>);
    static_assert(!std::is_convertible_v<double, SourceTime>);
}

// A clip reads with its defaults, and numbers out of range are held to it on the way in.
TEST(TimelineClipJson, ReadsIntoRange) {
    const auto plain = decodeJson<TimelineClip>(clipJson(Json::object()));
    EXPECT_EQ(plain.speed, 1.0);
    EXPECT_EQ(plain.audio, TimelineClipAudioSettings{});
    EXPECT_EQ(plain.fadeInDuration + plain.fadeOutDuration, 0);
    const std::vector<std::tuple<const char*, double, double>> table{
        {"speed", 0.1, 0.75},       {"speed", 30, 24},        {"speed", 2.5, 2.5},
        {"fadeInDuration", -1, 0},  {"fadeInDuration", 9, 5}, {"fadeOutDuration", 2, 2},
        {"fadeOutDuration", 7.5, 5}};
    for (const auto& [key, stored, expected] : table) {
        const auto clip = decodeJson<TimelineClip>(clipJson({{key, stored}}));
        EXPECT_DOUBLE_EQ(encodeJson(clip).at(key).get<double>(), expected) << key << stored;
    }
    const auto clip = decodeJson<TimelineClip>(clipJson(
        {{"audio",
          {{"microphoneVolume", 1.8}, {"musicVolume", -0.2}, {"ducksMusicDuringVoice", true}}}}));
    EXPECT_EQ(clip.audio.microphoneVolume, 1.0);
    EXPECT_EQ(clip.audio.musicVolume, 0.0);
    EXPECT_TRUE(clip.audio.ducksMusicDuringVoice);
    EXPECT_FALSE(encodeJson(clip.audio).contains("systemAudioVolume")); // absent stays absent
    // Values made in code are held the same way wherever they are used.
    TimelineClipAudioSettings settings{.microphoneVolume = kNaN, .systemAudioVolume = 0.4};
    EXPECT_EQ(settings.clamped().microphoneVolume, 1.0);
    EXPECT_EQ(settings.clamped().systemAudioVolume, 0.4);
    for (const auto& [speed, held] : std::vector<std::pair<double, double>>{
             {std::numeric_limits<double>::infinity(), 1}, {kNaN, 1}, {-3, 0.75}, {100, 24}}) {
        EXPECT_EQ(sanitisedClipSpeed(speed), held) << speed;
    }
}

TEST(TimelineStateJson, RoundTripsAndNeedsItsClips) {
    TimelineState state;
    state.sourceDuration = SourceTime(30);
    TimelineClip first{
        .id = *Uuid::parse(kClipID), .start = SourceTime(0), .end = SourceTime(10), .speed = 2};
    first.audio.systemAudioVolume = 0.5;
    first.hidesCursor = true;
    first.fadeInDuration = 0.5;
    TimelineClip second = first;
    second.id = Uuid::random();
    second.start = SourceTime(20);
    second.end = SourceTime(30);
    state.clips = {first, second};
    state.deletedGaps = {{Uuid::random(), SourceTime(10), SourceTime(20)}};
    const Json json = encodeJson(state);
    EXPECT_EQ(json.at("clips")[0].at("id"), Json(kClipID));
    EXPECT_EQ(decodeJson<TimelineState>(parseJson(prettyJson(json))), state);
    const auto withoutClips = testing::thrown<JsonDecodeError>([] {
        decodeJson<TimelineState>(Json{{"sourceDuration", 3}}, JsonDecodeContext{}.key("timeline"));
    });
    EXPECT_EQ(withoutClips ? withoutClips->path() : "", "timeline.clips");
    EXPECT_TRUE(decodeJson<TimelineState>(Json{{"sourceDuration", 3}, {"clips", Json::array()}})
                    .deletedGaps.empty());
}

// An empty timeline gets one plain clip over the whole source; a built one stays as it is.
TEST(TimelineSeeding, FillsOnlyAnEmptyTimelineOverALengthySource) {
    const auto seeded = seededTimeline(TimelineState::defaultState(), SourceTime(12.5));
    ASSERT_EQ(seeded.clips.size(), 1u);
    EXPECT_EQ(seeded.sourceDuration, SourceTime(12.5));
    EXPECT_EQ(seeded.clips[0].start, SourceTime(0));
    EXPECT_EQ(seeded.clips[0].end, SourceTime(12.5));
    EXPECT_EQ(seeded.clips[0].speed, 1.0);
    EXPECT_TRUE(seeded.deletedGaps.empty());
    EXPECT_NE(seeded.clips[0].id, Uuid{});
    TimelineState built = seeded;
    built.clips[0].speed = 2;
    EXPECT_EQ(seededTimeline(built, SourceTime(40)), built);
    EXPECT_EQ(seededTimeline({}, SourceTime(0)), TimelineState::defaultState());
    EXPECT_EQ(seededTimeline({}, SourceTime(-2)), TimelineState::defaultState());
    EXPECT_EQ(fullLengthTimeline(SourceTime(kNaN)), TimelineState::defaultState());
}

} // namespace
} // namespace orvelle
