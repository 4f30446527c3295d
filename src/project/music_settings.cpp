#include "project/music_settings.h"

#include <cmath>
#include <cstdio>

namespace orvelle {

std::string musicSegmentID(int ordinal) {
    char text[32];
    std::snprintf(text, sizeof text, "music-%04d", ordinal + 1);
    return text;
}

MusicClip JsonCoder<MusicClip>::decode(const Json& json, const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    MusicClip clip;
    clip.id = reader.required<Uuid>("id");
    clip.start = reader.required<EditTime>("start");
    clip.end = reader.required<EditTime>("end");
    const double offset = reader.value<double>("mediaOffset", 0);
    clip.mediaOffset = std::isfinite(offset) && offset > 0 ? offset : 0.0;
    if (auto segmentID = reader.optional<std::string>("segmentID")) {
        clip.segmentID = *segmentID;
    } else {
        clip.segmentID = musicSegmentID(reader.required<int>("segmentOrdinal"));
    }
    clip.title = reader.required<std::string>("title");
    return clip;
}

Json JsonCoder<MusicClip>::encode(const MusicClip& clip) {
    return {{"id", encodeJson(clip.id)},   {"start", encodeJson(clip.start)},
            {"end", encodeJson(clip.end)}, {"mediaOffset", clip.mediaOffset},
            {"segmentID", clip.segmentID}, {"title", clip.title}};
}

MusicSettings JsonCoder<MusicSettings>::decode(const Json& json, const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    return {reader.value<std::vector<MusicClip>>("clips", {})};
}

Json JsonCoder<MusicSettings>::encode(const MusicSettings& settings) {
    return {{"clips", encodeJson(settings.clips)}};
}

} // namespace orvelle
