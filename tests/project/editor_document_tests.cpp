#include "core/files.h"
#include "project/editor_document.h"
#include "project/recording_take_builder.h"
#include "support/temporary_directory.h"
#include "support/test_media.h"

#include <gtest/gtest.h>

namespace orvelle {
namespace {

using Kind = MediaTrackManifest::Kind;
using testing::TemporaryDirectory;
using testing::writeTextFile;

// A take folder with a short movie, optionally its manifest, and a remembered look.
class EditorDocumentLoading : public ::testing::Test {
protected:
    void SetUp() override {
        testing::writeNumberedMovie(movie_,
                                    {.width = 64, .height = 48, .frameRate = 30, .frameCount = 15});
        LastEditorSettings remembered;
        remembered.cursor.style = CursorStyle::obsidian;
        remembered.background.wallpaper = WallpaperPreset(WallpaperCategory::pink, 2);
        remembered.screen.aspectRatio = AspectRatio::square;
        AnimationClip zoom{.id = Uuid::random(), .end = EditTime(3)};
        remembered.animation.zoomClips = {zoom};
        remembered.animation.screenStyle = ScreenAnimationStyle::smooth;
        CameraLayoutClip layout{.id = Uuid::random(), .end = EditTime(2)};
        remembered.camera.dynamicLayoutClips = {layout};
        remembered.camera.isMirrored = true;
        remembered.exportSettings = ProjectExportSettings{};
        remembered.exportSettings->privacy = "unlisted";
        remembered.exportSettings->youtubeTitle = "Last week's talk";
        remembered.exportSettings->youtubeChapters = {{0, "Intro"}};
        store_.save(remembered);
    }

    TakeManifest writeManifest() {
        RecordedMediaSegment screen{.url = movie_, .duration = 0.5, .mediaDuration = 0.5};
        RecordedMediaSegment microphone{
            .kind = Kind::microphone, .url = folder_ / "take.m4a", .duration = 0.5};
        return TakeManifestWriter::write(movie_, {screen}, {}, {microphone}, std::nullopt);
    }

    TemporaryDirectory folder_;
    std::filesystem::path movie_ = folder_ / "My Take.mp4";
    LastEditorSettingsStore store_{folder_ / "support" / "last-editor-settings.json"};
};

TEST_F(EditorDocumentLoading, ATakeWithItsManifestStartsFromTheRememberedLook) {
    const auto manifest = writeManifest();
    const auto document = EditorDocument::load(movie_, store_);
    EXPECT_EQ(document.documentURL, movie_);
    EXPECT_EQ(document.screenURL, movie_);
    EXPECT_EQ(document.manifest, manifest);
    EXPECT_EQ(document.project.manifest, manifest);
    EXPECT_FALSE(document.hasSavedProject);
    EXPECT_FALSE(document.packageURL.has_value());

    const auto& project = document.project;
    EXPECT_EQ(project.timeline, TimelineState::defaultState());
    EXPECT_EQ(project.mask, MaskSettings{});
    EXPECT_EQ(project.music, MusicSettings{});
    EXPECT_EQ(project.text, TextOverlaySettings{});
    EXPECT_EQ(project.cursor.style, CursorStyle::obsidian);
    EXPECT_EQ(project.background.wallpaper.rawValue, "Pink/pink-2");
    EXPECT_EQ(project.screen.aspectRatio, AspectRatio::square);
    EXPECT_EQ(project.animation.screenStyle, ScreenAnimationStyle::smooth);
    EXPECT_TRUE(project.camera.isMirrored);
    // What belonged to the last take stays with it.
    EXPECT_TRUE(project.animation.zoomClips.empty());
    EXPECT_TRUE(project.camera.dynamicLayoutClips.empty());
    ASSERT_TRUE(project.exportSettings.has_value());
    EXPECT_EQ(project.exportSettings->privacy, "unlisted");
    EXPECT_EQ(project.exportSettings->youtubeTitle, "Orvelle Recording");
    EXPECT_TRUE(project.exportSettings->youtubeChapters.empty());

    EXPECT_EQ(document.displayTitle(), "My Take");
    EXPECT_EQ(document.suggestedSaveName(), "My Take.orvelle");
    EXPECT_EQ(takeSourceDuration(document.manifest), SourceTime(0.5));
}

TEST_F(EditorDocumentLoading, ABareMovieOpensAsASingleScreenTake) {
    const auto document = EditorDocument::load(movie_, store_);
    ASSERT_EQ(document.manifest.segments.size(), 1u);
    EXPECT_EQ(document.manifest.segments[0].id, "screen-segment1");
    EXPECT_EQ(document.manifest.segments[0].url, movie_);
    EXPECT_EQ(document.manifest.duration(), 0);
    EXPECT_EQ(document.project.cursor.style, CursorStyle::obsidian);
    // Nothing was probed on opening; the length comes from the movie itself.
    EXPECT_NEAR(takeSourceDuration(document.manifest).seconds, 0.5, 0.05);
}

TEST_F(EditorDocumentLoading, ABrokenManifestOpensTheMovieAlone) {
    writeManifest();
    writeTextFile(TakeManifest::sidecarURL(movie_), R"({"version": 2, "tracks": "nonsense"})");
    const auto document = EditorDocument::load(movie_, store_);
    ASSERT_EQ(document.manifest.segments.size(), 1u);
    EXPECT_EQ(document.manifest.segments[0].kind, Kind::screen);
    EXPECT_TRUE(document.manifest.segmentsFor(Kind::microphone).empty());
}

TEST_F(EditorDocumentLoading, WithoutRememberedSettingsTheDefaultsApply) {
    removeIgnoringErrors(store_.url());
    const auto document = EditorDocument::load(movie_, store_);
    EXPECT_EQ(document.project.cursor, CursorSettings{});
    EXPECT_EQ(document.project.background, BackgroundSettings{});
    EXPECT_FALSE(document.project.exportSettings.has_value());
    writeTextFile(store_.url(), "{ broken");
    EXPECT_EQ(EditorDocument::load(movie_, store_).project.cursor, CursorSettings{});
}

TEST_F(EditorDocumentLoading, APackageThatCannotBeReadIsTakenForAPlainFile) {
    const auto package = folder_ / "Demo.orvelle";
    writeTextFile(package / "project.json", "{}");
    const auto document = EditorDocument::load(package, store_);
    EXPECT_EQ(document.documentURL, package);
    EXPECT_EQ(document.screenURL, package);
    EXPECT_FALSE(document.hasSavedProject);
    EXPECT_EQ(document.manifest.segments.at(0).url, package);
    EXPECT_EQ(document.displayTitle(), "Demo");
    EXPECT_EQ(takeSourceDuration(document.manifest), SourceTime(0));
}

TEST_F(EditorDocumentLoading, WhatIsPickedStandsForTheDocumentItBelongsTo) {
    const TakeManifest manifest = writeManifest();
    const auto manifestURL = TakeManifest::sidecarURL(movie_);
    const auto package = folder_ / "Saved Edit.orvelle";
    writeTextFile(package / "media" / "screen.mov", "");
    writeTextFile(folder_ / "Other.take.json", "not a manifest");
    const struct {
        std::filesystem::path picked;
        std::filesystem::path opened;
    } cases[] = {
        {movie_, movie_},                                           // a take's movie
        {manifestURL, movie_},                                      // its manifest
        {folder_ / "." / "My Take.mp4", movie_},                    // made standard
        {package / "project.json", package},                        // a file inside a package
        {package / "media" / "screen.mov", package},                // deeper inside
        {package, package},                                         // the package itself
        {folder_ / "Other.take.json", folder_ / "Other.take.json"}, // unreadable: as picked
    };
    for (const auto& c : cases) {
        EXPECT_EQ(editorDocumentURL(c.picked), c.opened) << c.picked;
    }
    EXPECT_EQ(manifest.segmentsFor(Kind::screen).front().url, movie_);
}

TEST(EditorDocumentTitle, UnsavedSavedAndBlank) {
    EditorDocument document;
    document.screenURL = "/takes/ Weekly demo \n.mov";
    EXPECT_EQ(document.displayTitle(), "Weekly demo");
    document.screenURL = "/takes/  .mov";
    EXPECT_EQ(document.displayTitle(), "Orvelle Recording");
    EXPECT_EQ(document.suggestedSaveName(), "Orvelle Recording.orvelle");
    document.hasSavedProject = true;
    document.packageURL = "/projects/Launch.v2.orvelle";
    EXPECT_EQ(document.displayTitle(), "Launch.v2");
    EXPECT_EQ(document.suggestedSaveName(), "Launch.v2.orvelle");
    document.packageURL.reset();
    document.screenURL = "/projects/x/media/screen-001.mov";
    EXPECT_EQ(document.displayTitle(), "screen-001");
}

TEST(LastEditorSettingsStore, KeepsTheLookOfAProjectInTheApplicationDataFolder) {
    EXPECT_EQ(LastEditorSettingsStore::defaultURL().parent_path().filename(), "Orvelle");
    TemporaryDirectory folder;
    const LastEditorSettingsStore store(folder / "nested" / "last.json");
    EXPECT_EQ(store.load(), LastEditorSettings{});
    EditorProjectState project;
    project.cursor.style = CursorStyle::dot;
    project.audio.removesNoise = true;
    project.exportSettings = ProjectExportSettings{};
    const auto settings = LastEditorSettings::from(project);
    EXPECT_EQ(settings.cursor.style, CursorStyle::dot);
    store.save(settings);
    EXPECT_EQ(store.load(), settings);
}

} // namespace
} // namespace orvelle
