#include "project/take_manifest.h"

#include "core/file_url.h"
#include "core/files.h"

#include <algorithm>
#include <set>

namespace orvelle {

namespace {

using Kind = MediaTrackManifest::Kind;

constexpr std::array<EnumName<Kind>, 6> kKindNames{{
    {Kind::screen, "screen"},
    {Kind::systemAudio, "systemAudio"},
    {Kind::camera, "camera"},
    {Kind::microphone, "microphone"},
    {Kind::cursor, "cursor"},
    {Kind::music, "music"},
}};

bool segmentPrecedes(const TakeSegmentManifest& a, const TakeSegmentManifest& b) {
    if (a.programStart != b.programStart) {
        return a.programStart < b.programStart;
    }
    return a.id < b.id;
}

} // namespace

std::span<const EnumName<Kind>> jsonNames(Kind) {
    return kKindNames;
}

std::string_view MediaTrackManifest::defaultTrackID(Kind kind) {
    return enumName(kind);
}

std::string_view MediaTrackManifest::defaultDisplayName(Kind kind) {
    switch (kind) {
    case Kind::screen:
        return "Screen";
    case Kind::systemAudio:
        return "System Audio";
    case Kind::camera:
        return "Camera";
    case Kind::microphone:
        return "Microphone";
    case Kind::cursor:
        return "Cursor";
    case Kind::music:
        return "Music";
    }
    return "";
}

std::string_view MediaTrackManifest::fileSlug(Kind kind) {
    switch (kind) {
    case Kind::screen:
        return "screen";
    case Kind::systemAudio:
        return "system-audio";
    case Kind::camera:
        return "camera";
    case Kind::microphone:
        return "microphone";
    case Kind::cursor:
        return "cursor";
    case Kind::music:
        return "music";
    }
    return "media";
}

std::filesystem::path TakeManifest::sidecarURL(const std::filesystem::path& screenURL) {
    return replacingExtension(screenURL, "take.json");
}

std::optional<TakeManifest> TakeManifest::decode(std::string_view bytes) {
    Json json;
    try {
        json = parseJson(bytes);
    } catch (const JsonDecodeError&) {
        return std::nullopt;
    }
    try {
        return decodeJsonWithEitherDateForm<TakeManifest>(json);
    } catch (const JsonDecodeError&) {
        return std::nullopt; // an undecodable manifest counts as no manifest
    }
}

std::optional<TakeManifest> TakeManifest::load(const std::filesystem::path& screenURL) {
    std::string bytes;
    try {
        bytes = readFile(sidecarURL(screenURL));
    } catch (const Error&) {
        return std::nullopt;
    }
    return decode(bytes);
}

void TakeManifest::save(const std::filesystem::path& screenURL) const {
    writeJsonAtomically(sidecarURL(screenURL), encodeJson(*this));
}

std::vector<TakeSegmentManifest> TakeManifest::segmentsFor(Kind kind) const {
    std::vector<TakeSegmentManifest> result;
    std::copy_if(segments.begin(), segments.end(), std::back_inserter(result),
                 [kind](const TakeSegmentManifest& segment) { return segment.kind == kind; });
    std::stable_sort(result.begin(), result.end(), segmentPrecedes);
    return result;
}

double TakeManifest::duration() const {
    double end = 0;
    for (const auto& segment : segments) {
        if (segment.kind == Kind::screen) {
            end = std::max(end, segment.programStart + segment.duration);
        }
    }
    return end;
}

std::vector<std::filesystem::path> TakeManifest::mediaURLs() const {
    std::vector<std::filesystem::path> result;
    std::set<std::filesystem::path> seen;
    for (const auto& segment : segments) {
        if (seen.insert(standardizedPath(segment.url)).second) {
            result.push_back(segment.url);
        }
    }
    return result;
}

TakeTrackManifest JsonCoder<TakeTrackManifest>::decode(const Json& json,
                                                       const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    TakeTrackManifest track;
    track.id = reader.required<std::string>("id");
    track.kind = reader.required<Kind>("kind");
    track.displayName = reader.optional<std::string>("displayName");
    track.deviceID = reader.optional<std::string>("deviceID");
    track.deviceName = reader.optional<std::string>("deviceName");
    track.width = reader.optional<int>("width");
    track.height = reader.optional<int>("height");
    return track;
}

Json JsonCoder<TakeTrackManifest>::encode(const TakeTrackManifest& track) {
    Json json = {{"id", track.id}, {"kind", encodeJson(track.kind)}};
    setOptional(json, "displayName", track.displayName);
    setOptional(json, "deviceID", track.deviceID);
    setOptional(json, "deviceName", track.deviceName);
    setOptional(json, "width", track.width);
    setOptional(json, "height", track.height);
    return json;
}

TakeSegmentManifest JsonCoder<TakeSegmentManifest>::decode(const Json& json,
                                                           const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    TakeSegmentManifest segment;
    segment.id = reader.required<std::string>("id");
    segment.trackID = reader.required<std::string>("trackID");
    segment.kind = reader.required<Kind>("kind");
    segment.url = reader.required<std::filesystem::path>("url");
    segment.programStart = reader.required<double>("programStart");
    segment.duration = reader.required<double>("duration");
    segment.mediaStart = reader.required<double>("mediaStart");
    segment.mediaDuration = reader.required<double>("mediaDuration");
    segment.width = reader.optional<int>("width");
    segment.height = reader.optional<int>("height");
    return segment;
}

Json JsonCoder<TakeSegmentManifest>::encode(const TakeSegmentManifest& segment) {
    Json json = {{"id", segment.id},
                 {"trackID", segment.trackID},
                 {"kind", encodeJson(segment.kind)},
                 {"url", encodeJson(segment.url)},
                 {"programStart", segment.programStart},
                 {"duration", segment.duration},
                 {"mediaStart", segment.mediaStart},
                 {"mediaDuration", segment.mediaDuration}};
    setOptional(json, "width", segment.width);
    setOptional(json, "height", segment.height);
    return json;
}

TakeManifest JsonCoder<TakeManifest>::decode(const Json& json, const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    TakeManifest manifest;
    manifest.version = reader.required<int>("version");
    manifest.createdAt = reader.required<Date>("createdAt");
    manifest.tracks = reader.required<std::vector<TakeTrackManifest>>("tracks");
    manifest.segments = reader.required<std::vector<TakeSegmentManifest>>("segments");
    return manifest;
}

Json JsonCoder<TakeManifest>::encode(const TakeManifest& manifest) {
    return {{"version", manifest.version},
            {"createdAt", encodeJson(manifest.createdAt)},
            {"tracks", encodeJson(manifest.tracks)},
            {"segments", encodeJson(manifest.segments)}};
}

} // namespace orvelle
