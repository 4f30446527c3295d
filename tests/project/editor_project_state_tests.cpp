#include "project/editor_project_state.h"
#include "project_test_support.h"
#include "support/thrown.h"

#include <gtest/gtest.h>

namespace orvelle {
namespace {

using testing::kSomeID;
using testing::minimalManifestJson;
using testing::projectWith;

TEST(EditorProjectStateJson, OnlyAManifestOpensWithEveryDefault) {
    const auto state = decodeJson<EditorProjectState>(Json{{"manifest", minimalManifestJson()}});
    EditorProjectState expected;
    expected.manifest = decodeJson<TakeManifest>(minimalManifestJson());
    EXPECT_EQ(state, expected);
    EXPECT_EQ(state.timeline, TimelineState::defaultState());
    EXPECT_FALSE(encodeJson(state).contains("export"));
}

Json clipWith(const char* key, const char* value) {
    Json clip = {{"id", kSomeID}, {"start", 0}, {"end", 1}, {"mode", "hidden"}};
    clip[key] = value;
    return clip;
}

// A missing required key or an unknown name anywhere fails the whole project, naming where.
TEST(EditorProjectStateJson, AMissingKeyOrUnknownNameFailsTheProjectNamingIt) {
    Json hologram = minimalManifestJson();
    hologram["tracks"][0]["kind"] = "hologram";
    const std::vector<std::tuple<Json, std::string, std::string>> table{
        {Json{{"timeline", {{"sourceDuration", 1}, {"clips", Json::array()}}}}, "manifest",
         "required key is missing"},
        {projectWith("timeline", {{"sourceDuration", 4}}), "timeline.clips",
         "timeline.clips: required key is missing"},
        {Json{{"manifest", hologram}}, "manifest.tracks[0].kind", "hologram"},
        {projectWith("background", {{"kind", "gradient"}}), "background.kind", "gradient"},
        {projectWith("camera", {{"dynamicLayoutClips", {clipWith("mode", "pip")}}}),
         "camera.dynamicLayoutClips[0].mode", "pip"},
        {projectWith("text", {{"clips", {clipWith("alignment", "justify")}}}),
         "text.clips[0].alignment", "justify"},
        {projectWith("cursor", {{"style", "neon"}}), "cursor.style", "Unknown cursor style: neon"},
        {projectWith("export", {{"metadataConversation", {{{"role", "system"}, {"text", "x"}}}}}),
         "export.metadataConversation[0].role", "system"}};
    for (const auto& [json, path, bad] : table) {
        if (const auto error =
                testing::thrown<JsonDecodeError>([&] { decodeJson<EditorProjectState>(json); })) {
            EXPECT_EQ(error->path(), path);
            EXPECT_NE(std::string(error->what()).find(bad), std::string::npos) << error->what();
        }
    }
}

EditorProjectState populatedState() {
    EditorProjectState state{.manifest = decodeJson<TakeManifest>(minimalManifestJson()),
                             .timeline = seededTimeline({}, SourceTime(12))};
    state.timeline.clips[0].speed = 1.5;
    AnimationClip zoom{.id = Uuid::random(),
                       .start = EditTime(1),
                       .end = EditTime(2.5),
                       .manualOffset = ZoomManualOffset(0.25, -0.5)};
    state.animation = {ScreenAnimationStyle::smooth, {zoom}};
    state.background.kind = BackgroundKind::color;
    state.background.wallpaper = WallpaperPreset(WallpaperCategory::green, 3);
    state.cursor.style = CursorStyle::dot;
    state.cursor.tiltEnabled = false;
    CameraLayoutClip layout{.id = Uuid::random(),
                            .start = EditTime(0),
                            .end = EditTime(3),
                            .mode = CameraLayoutMode::fullscreen,
                            .position = CameraOverlayPosition::topLeft};
    state.camera.dynamicLayoutClips = {layout};
    state.camera.shape = CameraOverlayShape::vertical;
    MaskClip mask{.id = Uuid::random(),
                  .start = EditTime(2),
                  .end = EditTime(4),
                  .referenceTime = EditTime(3),
                  .rect = {0.1, 0.2, 0.3, 0.4},
                  .borderStyle = MaskBorder::Style::twinComet};
    state.mask.clips = {mask};
    state.music.clips = {{Uuid::random(), EditTime(0), EditTime(9), 4.5, "music-0001", "Theme"}};
    TextClip text{.id = Uuid::random(),
                  .start = EditTime(5),
                  .end = EditTime(7),
                  .text = "Hello\nthere",
                  .alignment = TextBlockAlignment::center};
    state.text.clips = {text};
    state.audio.removesNoise = true;
    state.audio.musicVolume = 0.3;
    state.screen = {2.0, AspectRatio::automatic};
    state.exportSettings = ProjectExportSettings{};
    state.exportSettings->format = "mov";
    return state;
}

TEST(EditorProjectStateJson, SerialisingAndReadingYieldsTheSameValue) {
    const auto state = populatedState();
    const Json json = encodeJson(state);
    EXPECT_EQ(json.at("screen").at("aspectRatio"), Json("auto"));
    EXPECT_EQ(json.at("export").at("format"), Json("mov"));
    EXPECT_EQ(decodeJson<EditorProjectState>(parseJson(prettyJson(json))), state);
}

TEST(CameraOverlaySettings, ActiveLayoutClipSkipsDisabledOnes) {
    CameraOverlaySettings settings;
    CameraLayoutClip off{
        .id = Uuid::random(), .start = EditTime(0), .end = EditTime(10), .isDisabled = true};
    CameraLayoutClip on = off;
    on.id = Uuid::random();
    on.isDisabled = false;
    on.start = EditTime(4);
    on.end = EditTime(6);
    settings.dynamicLayoutClips = {off, on};
    EXPECT_FALSE(settings.activeLayoutClip(EditTime(2)).has_value());
    EXPECT_EQ(settings.activeLayoutClip(EditTime(4))->id, on.id);
    EXPECT_FALSE(settings.activeLayoutClip(EditTime(6)).has_value());
}

TEST(TextOverlaySettings, ActiveClipsAreAllThatCoverTheTimeInOrder) {
    TextOverlaySettings settings;
    for (const auto& [start, end] :
         std::vector<std::pair<double, double>>{{0, 4}, {2, 6}, {5, 8}}) {
        TextClip clip{.id = Uuid::random(), .start = EditTime(start), .end = EditTime(end)};
        settings.clips.push_back(clip);
    }
    EXPECT_EQ(settings.activeClips(EditTime(3)).size(), 2u);
    EXPECT_EQ(settings.activeClips(EditTime(3))[0].id, settings.clips[0].id);
    EXPECT_EQ(settings.activeClips(EditTime(5.5)).size(), 2u);
    EXPECT_EQ(settings.activeClips(EditTime(5.5))[0].id, settings.clips[1].id);
    EXPECT_TRUE(settings.activeClips(EditTime(8)).empty());
}

} // namespace
} // namespace orvelle
