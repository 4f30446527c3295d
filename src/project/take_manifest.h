#pragma once

// The map of a take: which file belongs to which track, and where each lies on the
// recording's common clock (the "program"). It is stored as "<screen file>.take.json"
// beside the first screen file, and everything the editor shows is addressed through it.

#include "core/date.h"
#include "core/json.h"

#include <array>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace orvelle {

struct MediaTrackManifest {
    enum class Kind { screen, systemAudio, camera, microphone, cursor, music };

    // The kind's JSON value, which is also the id of its track unless a writer says else.
    static std::string_view defaultTrackID(Kind kind);
    static std::string_view defaultDisplayName(Kind kind);
    // The kind's word in file names: "screen", "system-audio", "camera", "microphone",
    // "cursor", "music". Recording and recovery find a take's files by it.
    static std::string_view fileSlug(Kind kind);
};

std::span<const EnumName<MediaTrackManifest::Kind>> jsonNames(MediaTrackManifest::Kind);

struct TakeTrackManifest {
    std::string id;
    MediaTrackManifest::Kind kind = MediaTrackManifest::Kind::screen;
    std::optional<std::string> displayName;
    std::optional<std::string> deviceID;
    std::optional<std::string> deviceName;
    std::optional<int> width;
    std::optional<int> height;

    friend bool operator==(const TakeTrackManifest&, const TakeTrackManifest&) = default;
};

struct TakeSegmentManifest {
    std::string id; // "<trackID>-segment<N>"
    std::string trackID;
    MediaTrackManifest::Kind kind = MediaTrackManifest::Kind::screen;
    std::filesystem::path url;
    double programStart = 0;  // where the segment starts on the program clock
    double duration = 0;      // how much of the program it covers
    double mediaStart = 0;    // where in the file the used stretch starts
    double mediaDuration = 0; // length of the used stretch in the file
    std::optional<int> width;
    std::optional<int> height;

    friend bool operator==(const TakeSegmentManifest&, const TakeSegmentManifest&) = default;
};

struct TakeManifest {
    static constexpr int kCurrentVersion = 2;

    int version = kCurrentVersion;
    Date createdAt;
    std::vector<TakeTrackManifest> tracks;     // sorted by id when built
    std::vector<TakeSegmentManifest> segments; // sorted by programStart, then id, when built

    // "recording.mov" has its manifest in "recording.take.json" beside it.
    static std::filesystem::path sidecarURL(const std::filesystem::path& screenURL);

    // The manifest beside a screen file. Absent when it cannot be read or decoded (ISO 8601
    // dates first, then the numeric dates of older files); never throws.
    static std::optional<TakeManifest> load(const std::filesystem::path& screenURL);
    // The same two-pass decoding over bytes already read; absent when neither form decodes.
    static std::optional<TakeManifest> decode(std::string_view bytes);
    // Writes the manifest beside a screen file, atomically. Throws FileError.
    void save(const std::filesystem::path& screenURL) const;

    // The rows of one kind, by programStart, ties by id as plain text.
    std::vector<TakeSegmentManifest> segmentsFor(MediaTrackManifest::Kind kind) const;
    // The end of the last screen segment on the program clock; other kinds never extend it.
    double duration() const;
    // Each file once, by standardised path, in stored order: a screen movie and its
    // system-audio twin share a file.
    std::vector<std::filesystem::path> mediaURLs() const;

    friend bool operator==(const TakeManifest&, const TakeManifest&) = default;
};

template <>
struct JsonCoder<TakeTrackManifest> {
    static TakeTrackManifest decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const TakeTrackManifest& value);
};

template <>
struct JsonCoder<TakeSegmentManifest> {
    static TakeSegmentManifest decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const TakeSegmentManifest& value);
};

template <>
struct JsonCoder<TakeManifest> {
    static TakeManifest decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const TakeManifest& value);
};

} // namespace orvelle
