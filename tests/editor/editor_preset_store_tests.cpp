#include "core/files.h"
#include "editor/editor_preset_store.h"
#include "support/temporary_directory.h"

#include <gtest/gtest.h>

namespace orvelle {
namespace {

EditorProjectState styledProject() {
    EditorProjectState project;
    project.timeline = fullLengthTimeline(SourceTime(30));
    project.animation.screenStyle = ScreenAnimationStyle::smooth;
    project.background.kind = BackgroundKind::color;
    project.background.solidColor = {0.1, 0.2, 0.3, 1};
    project.background.paddingAmount = 0.3;
    project.cursor.style = CursorStyle::obsidian;
    project.camera.position = CameraOverlayPosition::topLeft;
    CameraLayoutClip layout{.id = Uuid::random(), .end = EditTime(4)};
    project.camera.dynamicLayoutClips = {layout};
    project.audio.musicVolume = 0.2;
    project.screen.aspectRatio = AspectRatio::vertical;
    return project;
}

TEST(EditorPresets, ALookSavedAndAppliedElsewhereBringsTheLookAndNoClips) {
    testing::TemporaryDirectory folder;
    const EditorPresetStore presets(folder / "support" / "presets.json");
    EXPECT_TRUE(presets.load().empty());

    const EditorProjectState styled = styledProject();
    presets.put({"Talk", presetPayload(styled)});
    presets.put({"Plain", presetPayload(EditorProjectState{})});
    // Saving under a name that exists replaces that preset in its place.
    EditorProjectState restyled = styled;
    restyled.cursor.style = CursorStyle::dot;
    const auto saved = presets.put({"Talk", presetPayload(restyled)});
    ASSERT_EQ(saved.size(), 2u);
    EXPECT_EQ(saved[0].name, "Talk");

    const auto loaded = EditorPresetStore(folder / "support" / "presets.json").load();
    ASSERT_EQ(loaded, saved);

    // Another edit, with clips of its own on the camera lane, takes the look only.
    EditorProjectState other;
    other.timeline = fullLengthTimeline(SourceTime(10));
    CameraLayoutClip own{.id = Uuid::random(), .end = EditTime(2)};
    other.camera.dynamicLayoutClips = {own};
    EditorStore store(other);
    store.applyPreset(loaded[0].payload);
    const EditorProjectState& applied = store.project();
    EXPECT_EQ(applied.cursor.style, CursorStyle::dot);
    EXPECT_EQ(applied.background, styled.background);
    EXPECT_EQ(applied.animation.screenStyle, ScreenAnimationStyle::smooth);
    EXPECT_EQ(applied.screen.aspectRatio, AspectRatio::vertical);
    EXPECT_EQ(applied.audio.musicVolume, 0.2);
    EXPECT_EQ(applied.camera.position, CameraOverlayPosition::topLeft);
    EXPECT_EQ(applied.camera.dynamicLayoutClips, other.camera.dynamicLayoutClips);
    EXPECT_EQ(applied.timeline, other.timeline);

    EXPECT_EQ(presets.remove("Talk").size(), 1u);
    EXPECT_EQ(presets.load().at(0).name, "Plain");
}

TEST(EditorPresets, UnreadableEntriesAreSkippedAndABrokenFileReadsEmpty) {
    testing::TemporaryDirectory folder;
    const auto url = folder / "presets.json";
    writeFileAtomically(url,
                        R"({"presets": [{"name": "Good", "payload": {"cursor": {"style": "crisp"}}},
                                          {"payload": {}},
                                          {"name": "Bad", "payload": {"screen": {"aspectRatio": "round"}}}]})");
    const auto presets = EditorPresetStore(url).load();
    ASSERT_EQ(presets.size(), 1u);
    EXPECT_EQ(presets[0].name, "Good");
    EXPECT_EQ(presets[0].payload.cursor->style, CursorStyle::crisp);
    EXPECT_FALSE(presets[0].payload.background);

    writeFileAtomically(url, "{\"presets\": 3");
    EXPECT_TRUE(EditorPresetStore(url).load().empty());
}

} // namespace
} // namespace orvelle
