#include "project/recording_take_builder.h"

#include "platform/media/media_probe.h"

#include <algorithm>
#include <cmath>

namespace orvelle {

namespace {

using Kind = MediaTrackManifest::Kind;

// A written manifest never holds a negative time (nor one JSON cannot carry).
double nonNegative(double value) {
    return std::isfinite(value) && value > 0 ? value : 0.0;
}

template <class T>
void fillIfAbsent(std::optional<T>& field, const std::optional<T>& value) {
    if (!field) {
        field = value;
    }
}

// The sound inside a screen movie: a track of its own over the same file, without a file
// of its own.
RecordedMediaSegment systemAudioTwin(const RecordedMediaSegment& screen) {
    RecordedMediaSegment twin = screen;
    twin.kind = Kind::systemAudio;
    twin.trackID.reset();
    twin.width.reset();
    twin.height.reset();
    return twin;
}

bool hasSound(const std::filesystem::path& url) {
    try {
        return probeMediaFile(url).firstAudio() != nullptr;
    } catch (const MediaError&) {
        return false;
    }
}

} // namespace

std::string RecordingTakeBuilder::addSegment(const RecordedMediaSegment& recorded) {
    const std::string trackID =
        recorded.trackID.value_or(std::string(MediaTrackManifest::defaultTrackID(recorded.kind)));
    const std::string displayName = recorded.deviceName.value_or(
        std::string(MediaTrackManifest::defaultDisplayName(recorded.kind)));

    auto [entry, created] = tracksByID.try_emplace(trackID);
    TakeTrackManifest& track = entry->second;
    if (created) {
        track.id = trackID;
        track.kind = recorded.kind;
    }
    fillIfAbsent(track.displayName, std::optional(displayName));
    fillIfAbsent(track.deviceID, recorded.deviceID);
    fillIfAbsent(track.deviceName, recorded.deviceName);
    fillIfAbsent(track.width, recorded.width);
    fillIfAbsent(track.height, recorded.height);

    const int count = ++segmentCountsByTrackID[trackID];
    TakeSegmentManifest segment;
    segment.id = trackID + "-segment" + std::to_string(count);
    segment.trackID = trackID;
    segment.kind = recorded.kind;
    segment.url = recorded.url;
    segment.programStart = nonNegative(recorded.programStart);
    segment.duration = nonNegative(recorded.duration);
    segment.mediaStart = nonNegative(recorded.mediaStart);
    segment.mediaDuration = nonNegative(recorded.mediaDuration);
    segment.width = recorded.width;
    segment.height = recorded.height;
    segments.push_back(segment);
    return segment.id;
}

TakeManifest RecordingTakeBuilder::build() const {
    TakeManifest manifest;
    manifest.version = TakeManifest::kCurrentVersion;
    manifest.createdAt = createdAt;
    for (const auto& [id, track] : tracksByID) { // a map walks its keys in order
        manifest.tracks.push_back(track);
    }
    manifest.segments = segments;
    std::stable_sort(manifest.segments.begin(), manifest.segments.end(),
                     [](const TakeSegmentManifest& a, const TakeSegmentManifest& b) {
                         if (a.programStart != b.programStart) {
                             return a.programStart < b.programStart;
                         }
                         return a.id < b.id;
                     });
    return manifest;
}

TakeManifest singleScreenManifest(const std::filesystem::path& url) {
    RecordingTakeBuilder builder;
    RecordedMediaSegment screen;
    screen.kind = Kind::screen;
    screen.url = url;
    builder.addSegment(screen);
    if (hasSound(url)) {
        builder.addSegment(systemAudioTwin(screen));
    }
    return builder.build();
}

namespace TakeManifestWriter {

TakeManifest write(const std::filesystem::path& screenURL,
                   const std::vector<RecordedMediaSegment>& screenSegments,
                   const std::vector<RecordedMediaSegment>& cameraSegments,
                   const std::vector<RecordedMediaSegment>& microphoneSegments,
                   const std::optional<std::filesystem::path>& cursorURL) {
    RecordingTakeBuilder builder;
    double takeEnd = 0;
    for (const auto& screen : screenSegments) {
        builder.addSegment(screen);
        builder.addSegment(systemAudioTwin(screen));
        takeEnd = std::max(takeEnd, nonNegative(screen.programStart + screen.duration));
    }
    for (const auto& camera : cameraSegments) {
        builder.addSegment(camera);
    }
    for (const auto& microphone : microphoneSegments) {
        builder.addSegment(microphone);
    }
    if (cursorURL) {
        RecordedMediaSegment cursor;
        cursor.kind = Kind::cursor;
        cursor.url = *cursorURL;
        cursor.duration = takeEnd;
        cursor.mediaDuration = takeEnd;
        builder.addSegment(cursor);
    }
    TakeManifest manifest = builder.build();
    manifest.save(screenURL);
    return manifest;
}

} // namespace TakeManifestWriter

} // namespace orvelle
