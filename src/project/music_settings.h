#pragma once

// Music clips on the edit axis, each playing a stretch of a music file that the take's
// manifest holds as a `music` segment.

#include "core/json.h"
#include "core/uuid.h"
#include "timeline/timeline_time.h"

#include <string>
#include <vector>

namespace orvelle {

struct MusicClip {
    Uuid id;
    EditTime start;
    EditTime end;
    double mediaOffset = 0; // seconds into the music file, never negative
    std::string segmentID;  // the id of a music segment of the manifest
    std::string title;

    friend bool operator==(const MusicClip&, const MusicClip&) = default;
};

// "music-0001" for the first music segment: ids are formed from the count plus 1.
std::string musicSegmentID(int ordinal);

struct MusicSettings {
    std::vector<MusicClip> clips;

    friend bool operator==(const MusicSettings&, const MusicSettings&) = default;
};

// Older files name the segment by `segmentOrdinal` (from 0); it is read and never written.
template <>
struct JsonCoder<MusicClip> {
    static MusicClip decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const MusicClip& value);
};

template <>
struct JsonCoder<MusicSettings> {
    static MusicSettings decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const MusicSettings& value);
};

} // namespace orvelle
