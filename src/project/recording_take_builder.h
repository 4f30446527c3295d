#pragma once

// Assembling a take's manifest from what the track writers hand over at the end of a
// recording, and the manifest of a movie that came from elsewhere.

#include "project/take_manifest.h"

#include <map>

namespace orvelle {

// One file that a track writer produced.
struct RecordedMediaSegment {
    MediaTrackManifest::Kind kind = MediaTrackManifest::Kind::screen;
    std::filesystem::path url;
    double programStart = 0;
    double duration = 0;
    double mediaStart = 0;
    double mediaDuration = 0;
    std::optional<int> width;
    std::optional<int> height;
    std::optional<std::string> deviceID;
    std::optional<std::string> deviceName;
    std::optional<std::string> trackID; // the kind's JSON value when absent

    friend bool operator==(const RecordedMediaSegment&, const RecordedMediaSegment&) = default;
};

struct RecordingTakeBuilder {
    Date createdAt;
    std::map<std::string, TakeTrackManifest> tracksByID;
    std::vector<TakeSegmentManifest> segments;
    std::map<std::string, int> segmentCountsByTrackID;

    explicit RecordingTakeBuilder(Date created = Date::now()) : createdAt(created) {}

    // Adds a row, making or completing its track; returns the new segment's id
    // ("<track>-segment<N>", N counting per track from 1). Negative times become 0.
    std::string addSegment(const RecordedMediaSegment& segment);
    // Version 2, tracks by id, segments by programStart then id.
    TakeManifest build() const;
};

// The manifest of a movie without one: one screen track with one segment over the whole
// file, all times 0 until the movie's real length is known, and, when the movie has sound,
// its system-audio twin as a take's screen movie has, so that the sound plays.
TakeManifest singleScreenManifest(const std::filesystem::path& url);

namespace TakeManifestWriter {

// Assembles the manifest at the end of a recording and saves it beside the screen file.
// Each screen segment gets a system-audio twin over the same file; a cursor file, when
// given, becomes the track "cursor" over the whole take. Throws FileError when the save
// fails; the media files stay where they are.
TakeManifest write(const std::filesystem::path& screenURL,
                   const std::vector<RecordedMediaSegment>& screenSegments,
                   const std::vector<RecordedMediaSegment>& cameraSegments,
                   const std::vector<RecordedMediaSegment>& microphoneSegments,
                   const std::optional<std::filesystem::path>& cursorURL);

} // namespace TakeManifestWriter

} // namespace orvelle
