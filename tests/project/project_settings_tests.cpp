#include "project/editor_project_state.h"
#include "project_test_support.h"
#include "support/thrown.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>

namespace orvelle {
namespace {

using testing::kSomeID;

template <class T>
Json reencoded(const Json& json) {
    return encodeJson(decodeJson<T>(json));
}

// Every settings record by name: read it, write it back.
const std::map<std::string, std::function<Json(const Json&)>>& records() {
    static const std::map<std::string, std::function<Json(const Json&)>> table{
        {"AnimationSettings", reencoded<AnimationSettings>},
        {"AudioSettings", reencoded<AudioSettings>},
        {"BackgroundSettings", reencoded<BackgroundSettings>},
        {"CameraOverlaySettings", reencoded<CameraOverlaySettings>},
        {"CameraLayoutClip", reencoded<CameraLayoutClip>},
        {"CursorSettings", reencoded<CursorSettings>},
        {"MaskClip", reencoded<MaskClip>},
        {"MaskSettings", reencoded<MaskSettings>},
        {"MusicClip", reencoded<MusicClip>},
        {"MusicSettings", reencoded<MusicSettings>},
        {"ProjectExportSettings", reencoded<ProjectExportSettings>},
        {"ScreenSettings", reencoded<ScreenSettings>},
        {"TextClip", reencoded<TextClip>},
        {"TextOverlaySettings", reencoded<TextOverlaySettings>},
    };
    return table;
}

Json rangeClip(Json extra = Json::object()) {
    Json json = {{"id", kSomeID}, {"start", 1}, {"end", 3}};
    json.update(extra);
    return json;
}

// A record missing every key it may miss (a range clip keeps its identity and times) reads,
// and what it writes holds every key and reads back to itself.
TEST(SettingsRecords, MissingKeysTakeTheDefaultsOfTheirRecord) {
    const std::map<std::string, Json> inputs{
        {"CameraLayoutClip", rangeClip({{"mode", "fullscreen"}})},
        {"MaskClip", rangeClip()},
        {"MusicClip", rangeClip({{"segmentID", "music-0002"}, {"title", "Song"}})},
        {"TextClip", rangeClip()}};
    for (const auto& [record, reencode] : records()) {
        const Json input = inputs.contains(record) ? inputs.at(record) : Json::object();
        const Json written = reencode(input);
        EXPECT_GT(written.size(), input.size()) << record;
        EXPECT_EQ(reencode(written), written) << record;
        for (const auto& [key, value] : input.items()) {
            EXPECT_EQ(written.at(key), value) << record << "." << key;
        }
    }
}

struct ClampCase {
    std::string record;
    Json input;
    std::string key;
    Json expected;
};

class SettingsClamping : public ::testing::TestWithParam<ClampCase> {};

TEST_P(SettingsClamping, NumbersAreCorrectedOnTheWayIn) {
    const auto& param = GetParam();
    const Json written = records().at(param.record)(param.input);
    EXPECT_EQ(written.at(param.key), param.expected) << param.record << "." << param.key;
}

INSTANTIATE_TEST_SUITE_P(
    Records, SettingsClamping,
    ::testing::Values(
        ClampCase{"TextClip", rangeClip({{"size", 9}}), "size", 4.0},
        ClampCase{"TextClip", rangeClip({{"size", nullptr}}), "size", 1.5},
        ClampCase{"TextClip", rangeClip({{"size", 0.1}}), "size", 0.5},
        ClampCase{"TextClip", rangeClip({{"lineHeight", 0.5}}), "lineHeight", 1.0},
        ClampCase{"TextClip", rangeClip({{"lineHeight", 6}}), "lineHeight", 4.0},
        ClampCase{"TextClip", rangeClip({{"animationSpeed", 0.1}}), "animationSpeed", 0.25},
        ClampCase{"TextClip", rangeClip({{"animationSpeed", 5}}), "animationSpeed", 3.0},
        ClampCase{"MaskClip", rangeClip({{"opacity", 1.4}}), "opacity", 1.0},
        ClampCase{"MaskClip", rangeClip({{"opacity", -1}}), "opacity", 0.0},
        ClampCase{"MaskClip", rangeClip({{"cornerRadiusAmount", 2}}), "cornerRadiusAmount", 1.0},
        ClampCase{"MaskClip", rangeClip({{"featherAmount", -0.5}}), "featherAmount", 0.0},
        ClampCase{"MaskClip", rangeClip({{"borderSpeed", 0.1}}), "borderSpeed", 0.25},
        ClampCase{"MaskClip", rangeClip({{"borderSpeed", 20}}), "borderSpeed", 8.0},
        ClampCase{"MaskClip", rangeClip({{"referenceTime", -4}}), "referenceTime", 0.0},
        ClampCase{"MaskClip", rangeClip({{"referenceTime", 2.5}}), "referenceTime", 2.5},
        ClampCase{"MaskClip",
                  rangeClip({{"rect", {{"x", 0.5}, {"y", 0}, {"width", 2}, {"height", 0.5}}}}),
                  "rect",
                  {{"x", 0.0}, {"y", 0.0}, {"width", 1.0}, {"height", 0.5}}},
        ClampCase{"MusicClip",
                  rangeClip({{"segmentID", "music-0001"}, {"title", "A"}, {"mediaOffset", -3}}),
                  "mediaOffset", 0.0},
        ClampCase{"BackgroundSettings",
                  {{"solidColor", {{"red", 1.5}, {"green", -1}, {"blue", 0.5}, {"alpha", 1}}}},
                  "solidColor",
                  {{"red", 1.0}, {"green", 0.0}, {"blue", 0.5}, {"alpha", 1.0}}},
        ClampCase{"BackgroundSettings", {{"paddingAmount", 3}}, "paddingAmount", 1.0},
        ClampCase{"CursorSettings", {{"clickSoundVolume", -2}}, "clickSoundVolume", 0.0},
        ClampCase{"AudioSettings", {{"musicVolume", 1.7}}, "musicVolume", 1.0},
        ClampCase{"CameraOverlaySettings", {{"zoomSizeAmount", 4}}, "zoomSizeAmount", 1.0}));

TEST(SettingsRecords, ValuesInRangeReadBackUnchanged) {
    const Json text =
        rangeClip({{"text", "Hello"},
                   {"preset", "pop"},
                   {"color", {{"red", 0.1}, {"green", 0.2}, {"blue", 0.3}, {"alpha", 0.4}}},
                   {"alignment", "trailing"},
                   {"size", 2.0},
                   {"lineHeight", 1.5},
                   {"animationSpeed", 2.0},
                   {"position", {{"x", 0.2}, {"y", 0.3}}}});
    EXPECT_EQ(reencoded<TextClip>(text), text);
    const Json layout = rangeClip({{"mode", "hidden"},
                                   {"isDisabled", true},
                                   {"animatesTransition", false},
                                   {"position", "topLeft"},
                                   {"sizeAmount", 0.4},
                                   {"isMirrored", true}});
    EXPECT_EQ(reencoded<CameraLayoutClip>(layout), layout);
}

TEST(SettingsRecords, RequiredKeysFailTheRecord) {
    const auto noAlpha = testing::thrown<JsonDecodeError>([] {
        decodeJson<CursorSettings>(Json{{"dotColor", {{"red", 1}, {"green", 1}, {"blue", 1}}}},
                                   JsonDecodeContext{}.key("cursor"));
    });
    EXPECT_EQ(noAlpha ? noAlpha->path() : "", "cursor.dotColor.alpha");
    EXPECT_THROW(decodeJson<TextAnchor>(Json{{"x", 0.5}}), JsonDecodeError);
    EXPECT_THROW(decodeJson<MaskRect>(Json{{"x", 0}, {"y", 0}, {"width", 1}}), JsonDecodeError);
    for (const char* key : {"id", "start", "end", "mode"}) {
        Json clip = rangeClip({{"mode", "fullscreen"}});
        clip.erase(key);
        EXPECT_THROW(decodeJson<CameraLayoutClip>(clip), JsonDecodeError) << key;
    }
    EXPECT_THROW(decodeJson<MusicClip>(rangeClip({{"segmentID", "music-0001"}})),
                 JsonDecodeError); // title
}

TEST(CursorStyleJson, ReadsEveryNameAndRetiredOnesAsCrisp) {
    for (const auto& entry : jsonNames(CursorStyle{})) {
        EXPECT_EQ(decodeJson<CursorStyle>(Json(entry.name)), entry.value);
    }
    for (const char* retired : {"system", "blackPointer", "chalk", "inked", "iridescent"}) {
        EXPECT_EQ(decodeJson<CursorStyle>(Json(retired)), CursorStyle::crisp) << retired;
    }
    const auto settings = decodeJson<CursorSettings>(Json{{"style", "chalk"}});
    EXPECT_EQ(encodeJson(settings).at("style"), Json("crisp"));
}

TEST(MusicClipJson, OlderFilesNameTheSegmentByOrdinal) {
    const auto clip = decodeJson<MusicClip>(rangeClip({{"segmentOrdinal", 0}, {"title", "Song"}}));
    EXPECT_EQ(clip.segmentID, "music-0001");
    const Json written = encodeJson(clip);
    EXPECT_FALSE(written.contains("segmentOrdinal"));
    EXPECT_EQ(written.at("segmentID"), Json("music-0001"));
    EXPECT_EQ(decodeJson<MusicClip>(rangeClip({{"segmentOrdinal", 11}, {"title", "x"}})).segmentID,
              "music-0012");
    EXPECT_EQ(decodeJson<MusicClip>(
                  rangeClip({{"segmentID", "music-0003"}, {"segmentOrdinal", 0}, {"title", "x"}}))
                  .segmentID,
              "music-0003");
    const auto noSegment = testing::thrown<JsonDecodeError>([] {
        decodeJson<MusicClip>(rangeClip({{"title", "x"}}));
    });
    EXPECT_EQ(noSegment ? noSegment->path() : "", "segmentOrdinal");
}

TEST(ExportSettingsJson, ChaptersAndConversationRoundTrip) {
    ProjectExportSettings settings{.uploadToYouTube = true,
                                   .youtubeChapters = {{0, "Intro"}, {42.5, "Setup"}}};
    settings.metadataConversation = {{YouTubeMetadataConversationTurn::Role::user, "Shorter title"},
                                     {YouTubeMetadataConversationTurn::Role::assistant, "{}"}};
    const Json json = encodeJson(settings);
    EXPECT_EQ(json.at("metadataConversation")[1].at("role"), Json("assistant"));
    EXPECT_EQ(json.at("youtubeChapters")[1], (Json{{"time", 42.5}, {"title", "Setup"}}));
    EXPECT_EQ(decodeJson<ProjectExportSettings>(json), settings);
}

struct WallpaperCase {
    const char* stored;
    const char* read;
};

class WallpaperParsing : public ::testing::TestWithParam<WallpaperCase> {};

TEST_P(WallpaperParsing, ReadsEveryStoredForm) {
    EXPECT_EQ(decodeJson<WallpaperPreset>(Json(GetParam().stored)).rawValue, GetParam().read)
        << GetParam().stored;
}

INSTANTIATE_TEST_SUITE_P(
    Names, WallpaperParsing,
    ::testing::Values(
        WallpaperCase{"macOS/3", "macOS/3"}, WallpaperCase{"Green/green-3", "Green/green-3"},
        WallpaperCase{"Green/green-99", "macOS/1"}, WallpaperCase{"blue-4", "Blue/blue-4"},
        WallpaperCase{"gradient-9", "Gradient/gradient-9"}, WallpaperCase{"sunset", "macOS/1"},
        WallpaperCase{"spring", "macOS/1"}, WallpaperCase{"radial", "macOS/1"},
        WallpaperCase{"macOS", "macOS/1"}, WallpaperCase{"", "macOS/1"},
        WallpaperCase{"  Dark/dark-2 \n", "Dark/dark-2"}, WallpaperCase{"macOS/17", "macOS/1"},
        WallpaperCase{"macOS/03", "macOS/3"}, WallpaperCase{"macOS/+3", "macOS/3"},
        WallpaperCase{"macOS/-3", "macOS/1"}, WallpaperCase{"macOS/00000000016", "macOS/16"},
        WallpaperCase{"Blue/blue-+2", "Blue/blue-2"}, WallpaperCase{"macOS/99999999999", "macOS/1"},
        WallpaperCase{"Pink/pink-12", "Pink/pink-12"}, WallpaperCase{"Pink/pink-13", "macOS/1"},
        WallpaperCase{"Blue/Blue-4", "macOS/1"},
        WallpaperCase{"bright-x/bright-5", "Bright/bright-5"},
        WallpaperCase{"elsewhere/bright-5", "macOS/1"}, WallpaperCase{"Bright/dark-2", "macOS/1"}));

TEST(WallpaperPreset, NeverFailsADecode) {
    EXPECT_EQ(decodeJson<WallpaperPreset>(Json(7)), WallpaperPreset::defaultPreset());
    const auto background = decodeJson<BackgroundSettings>(Json{{"wallpaper", Json::array()}});
    EXPECT_EQ(background.wallpaper.rawValue, "macOS/1");
}

TEST(WallpaperPreset, CategoriesImagesAndThumbnails) {
    for (const WallpaperCategory category : kWallpaperCategories) {
        const auto presets = WallpaperPreset::presets(category);
        ASSERT_FALSE(presets.empty());
        const int count = static_cast<int>(presets.size());
        EXPECT_EQ(presets.front().category(), category);
        EXPECT_EQ(WallpaperPreset(category, count + 5), presets.back()); // clamped
        EXPECT_EQ(WallpaperPreset(category, 0), presets.front());
    }
    EXPECT_EQ(WallpaperPreset::presets(WallpaperCategory::pink).back().rawValue, "Pink/pink-12");
    EXPECT_EQ(WallpaperPreset(WallpaperCategory::blue, 4).thumbnailResource(),
              "BackgroundThumbnails/Blue/blue-4-thumbnail");
    EXPECT_EQ(WallpaperPreset(WallpaperCategory::macOS, 2).thumbnailResource(),
              "BackgroundThumbnails/macOS/2-thumbnail");
}

} // namespace
} // namespace orvelle
