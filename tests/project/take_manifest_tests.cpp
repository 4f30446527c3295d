#include "core/file_url.h"
#include "core/files.h"
#include "project/recording_take_builder.h"
#include "project/take_manifest.h"
#include "support/temporary_directory.h"

#include <gtest/gtest.h>

namespace orvelle {
namespace {

using Kind = MediaTrackManifest::Kind;
using testing::TemporaryDirectory;
using testing::writeTextFile;

RecordedMediaSegment recorded(Kind kind, const std::filesystem::path& url, double programStart,
                              double duration) {
    RecordedMediaSegment segment{.kind = kind,
                                 .url = url,
                                 .programStart = programStart,
                                 .duration = duration,
                                 .mediaDuration = duration};
    return segment;
}

TakeSegmentManifest row(const std::string& id, Kind kind, double programStart, double duration,
                        const std::filesystem::path& url = "/takes/a.mov") {
    TakeSegmentManifest segment{.id = id,
                                .trackID = std::string(MediaTrackManifest::defaultTrackID(kind)),
                                .kind = kind,
                                .url = url,
                                .programStart = programStart,
                                .duration = duration,
                                .mediaDuration = duration};
    return segment;
}

TEST(TakeManifestJson, LeavesAbsentValuesOutAndWritesURLs) {
    TakeManifest manifest{
        .createdAt = Date::fromSecondsSince1970(1700000000.25),
        .tracks = {{"screen", Kind::screen, "Screen", std::nullopt, std::nullopt, 1920, 1080}},
        .segments = {row("screen-segment1", Kind::screen, 0, 4, "/takes/My Take.mov")}};
    const Json json = encodeJson(manifest);
    EXPECT_EQ(json.at("version"), Json(2));
    EXPECT_EQ(json.at("createdAt"), Json("2023-11-14T22:13:20.250Z"));
    EXPECT_FALSE(json.at("tracks")[0].contains("deviceID"));
    EXPECT_FALSE(json.at("segments")[0].contains("width"));
    EXPECT_EQ(json.at("segments")[0].at("url"), Json("file:///takes/My%20Take.mov"));
    EXPECT_EQ(decodeJson<TakeManifest>(json), manifest);
}

TEST(TakeManifestLoading, ReadsNumericDatesAndSavesThemAsISO) {
    TemporaryDirectory folder;
    const auto screen = folder / "take.mov";
    writeTextFile(TakeManifest::sidecarURL(screen), R"({
      "version": 2, "createdAt": 700000000.5,
      "tracks": [{"id": "screen", "kind": "screen"}],
      "segments": [{"id": "screen-segment1", "trackID": "screen", "kind": "screen",
                    "url": "file:///takes/take.mov", "programStart": 0, "duration": 3,
                    "mediaStart": 0, "mediaDuration": 3}]})");
    EXPECT_EQ(TakeManifest::sidecarURL("/takes/a.b.mov"), "/takes/a.b.take.json");
    const auto manifest = TakeManifest::load(screen);
    ASSERT_TRUE(manifest.has_value());
    EXPECT_EQ(manifest->createdAt, Date::fromSecondsSinceReferenceDate(700000000.5));
    manifest->save(screen);
    const Json saved = readJsonFile(TakeManifest::sidecarURL(screen));
    EXPECT_TRUE(saved.at("createdAt").is_string());
    EXPECT_EQ(TakeManifest::load(screen), manifest);
}

TEST(TakeManifestLoading, AnythingUndecodableCountsAsNoManifest) {
    TemporaryDirectory folder;
    const auto screen = folder / "take.mov";
    EXPECT_FALSE(TakeManifest::load(screen).has_value()); // no file at all
    const std::vector<std::string> broken{
        "not json",
        R"({"version": 2, "createdAt": "2024-01-01T00:00:00Z", "tracks": []})",
        R"({"version": 2, "createdAt": true, "tracks": [], "segments": []})",
        R"({"version": 2, "createdAt": "2024-01-01T00:00:00Z", "tracks": [{"id": "x", "kind": "hologram"}], "segments": []})",
    };
    for (const auto& text : broken) {
        writeTextFile(TakeManifest::sidecarURL(screen), text);
        EXPECT_FALSE(TakeManifest::load(screen).has_value()) << text;
    }
    writeTextFile(
        TakeManifest::sidecarURL(screen),
        R"({"version": 2, "createdAt": "2024-01-01T00:00:00Z", "tracks": [], "segments": []})");
    EXPECT_TRUE(TakeManifest::load(screen).has_value());
}

// Segments sort by program start, then by id as text; only the screen's count for the length.
TEST(TakeManifestSegments, SortByProgramStartThenIdAndOnlyTheScreenHasLength) {
    TakeManifest manifest;
    manifest.segments = {
        row("screen-segment2", Kind::screen, 5, 1), row("camera-segment1", Kind::camera, 0, 12),
        row("screen-segment10", Kind::screen, 5, 1), row("screen-segment1", Kind::screen, 0, 5),
        row("microphone-segment1", Kind::microphone, 0, 20)};
    std::vector<std::string> ids;
    for (const auto& segment : manifest.segmentsFor(Kind::screen)) {
        ids.push_back(segment.id);
    }
    EXPECT_EQ(ids,
              (std::vector<std::string>{"screen-segment1", "screen-segment10", "screen-segment2"}));
    EXPECT_EQ(manifest.segmentsFor(Kind::music).size(), 0u);
    EXPECT_EQ(manifest.duration(), 6);
}

TEST(TakeManifestMediaURLs, EachFileOnceInStoredOrder) {
    TemporaryDirectory folder;
    const auto first = folder / "one.mov";
    const auto second = folder / "two.mov";
    const auto written = TakeManifestWriter::write(
        first, {recorded(Kind::screen, first, 0, 2), recorded(Kind::screen, second, 2, 2)}, {}, {},
        std::nullopt);
    EXPECT_EQ(written.segments.size(), 4u);
    EXPECT_EQ(written.mediaURLs(), (std::vector<std::filesystem::path>{first, second}));

    TakeManifest spelled;
    spelled.segments = {row("a", Kind::screen, 0, 1, "/takes/x/../one.mov"),
                        row("b", Kind::systemAudio, 0, 1, "/takes/./one.mov"),
                        row("c", Kind::camera, 0, 1, "/takes/cam.mov")};
    const auto urls = spelled.mediaURLs();
    ASSERT_EQ(urls.size(), 2u);
    EXPECT_EQ(urls[0], "/takes/x/../one.mov");
    EXPECT_EQ(urls[1], "/takes/cam.mov");
}

TEST(RecordingTakeBuilder, CountsPerTrackAndCompletesTracks) {
    RecordingTakeBuilder builder(Date::fromSecondsSince1970(0));
    auto first = recorded(Kind::camera, "/takes/cam-1.mov", 0, 2);
    first.deviceID = "usb-1";
    auto second = recorded(Kind::camera, "/takes/cam-2.mov", 2, 2);
    second.deviceName = "Desk Camera";
    second.deviceID = "usb-2";
    second.width = 1280;
    second.height = 720;
    EXPECT_EQ(builder.addSegment(first), "camera-segment1");
    EXPECT_EQ(builder.addSegment(second), "camera-segment2");
    auto named = recorded(Kind::microphone, "/takes/mic.m4a", 0, 4);
    named.trackID = "voice";
    named.deviceName = "Headset";
    EXPECT_EQ(builder.addSegment(named), "voice-segment1");
    RecordedMediaSegment negative = recorded(Kind::camera, "/takes/cam-3.mov", -1, -2);
    negative.mediaStart = -0.5;
    negative.mediaDuration = -3;
    builder.addSegment(negative);

    const auto manifest = builder.build();
    ASSERT_EQ(manifest.tracks.size(), 2u);
    const auto& camera = manifest.tracks[0];
    EXPECT_EQ(camera.id, "camera");
    EXPECT_EQ(camera.displayName, "Camera"); // set by the first segment, kept
    EXPECT_EQ(camera.deviceID, "usb-1");
    EXPECT_EQ(camera.deviceName, "Desk Camera"); // absent until the second filled it
    EXPECT_EQ(camera.width, 1280);
    EXPECT_EQ(manifest.tracks[1].id, "voice");
    EXPECT_EQ(manifest.tracks[1].kind, Kind::microphone);
    EXPECT_EQ(manifest.tracks[1].displayName, "Headset");
    EXPECT_EQ(manifest.segments[0].id, "camera-segment1");
    EXPECT_EQ(manifest.segments[1].id, "camera-segment3"); // programStart 0, id order
    EXPECT_EQ(manifest.segments[2].id, "voice-segment1");
    EXPECT_EQ(manifest.segments[3].id, "camera-segment2");
    // Negative times are stored as zero.
    const auto& stored = manifest.segments[1];
    EXPECT_EQ(
        std::tuple(stored.programStart, stored.duration, stored.mediaStart, stored.mediaDuration),
        std::tuple(0.0, 0.0, 0.0, 0.0));
}

TEST(TakeManifestWriter, WritesScreenTwinsCameraMicrophoneAndCursor) {
    TemporaryDirectory folder;
    const auto screen = folder / "recording.mov";
    auto screenSegment = recorded(Kind::screen, screen, 0, 3);
    screenSegment.width = 640;
    screenSegment.height = 360;
    auto later = recorded(Kind::screen, folder / "recording-2.mov", 3, 2.5);
    const auto manifest = TakeManifestWriter::write(
        screen, {screenSegment, later}, {recorded(Kind::camera, folder / "camera.mov", 0, 5.5)},
        {recorded(Kind::microphone, folder / "mic.m4a", 0, 6)}, folder / "recording.cursor.json");

    std::vector<std::string> trackIDs;
    for (const auto& track : manifest.tracks) {
        trackIDs.push_back(track.id);
    }
    EXPECT_EQ(trackIDs, (std::vector<std::string>{"camera", "cursor", "microphone", "screen",
                                                  "systemAudio"}));
    const auto twins = manifest.segmentsFor(Kind::systemAudio);
    ASSERT_EQ(twins.size(), 2u);
    EXPECT_EQ(twins[0].id, "systemAudio-segment1");
    EXPECT_EQ(twins[0].url, screen);
    EXPECT_FALSE(twins[0].width.has_value());
    EXPECT_EQ(twins[1].programStart, 3);
    const auto cursor = manifest.segmentsFor(Kind::cursor);
    ASSERT_EQ(cursor.size(), 1u);
    EXPECT_EQ(cursor[0].id, "cursor-segment1");
    EXPECT_EQ(cursor[0].duration, 5.5);
    EXPECT_EQ(cursor[0].mediaDuration, 5.5);
    EXPECT_EQ(cursor[0].programStart, 0);
    EXPECT_EQ(manifest.tracks[1].displayName, "Cursor");
    EXPECT_EQ(manifest.duration(), 5.5);
    EXPECT_TRUE(fileExists(folder / "recording.take.json"));
    EXPECT_EQ(TakeManifest::load(screen), manifest);
}

TEST(TakeManifestWriter, ASaveThatFailsRaises) {
    EXPECT_THROW(
        TakeManifestWriter::write("/nonexistent-folder/deeper/take.mov", {}, {}, {}, std::nullopt),
        FileError);
}

TEST(SingleScreenManifest, OneScreenSegmentWithZeroTimes) {
    const auto manifest = singleScreenManifest("/movies/clip.mp4");
    ASSERT_EQ(manifest.tracks.size(), 1u);
    EXPECT_EQ(manifest.tracks[0].displayName, "Screen");
    ASSERT_EQ(manifest.segments.size(), 1u);
    EXPECT_EQ(manifest.segments[0].id, "screen-segment1");
    EXPECT_EQ(manifest.segments[0].url, "/movies/clip.mp4");
    EXPECT_EQ(manifest.duration(), 0);
}

} // namespace
} // namespace orvelle
