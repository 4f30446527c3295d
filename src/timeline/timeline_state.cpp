#include "timeline/timeline_state.h"

#include <algorithm>
#include <cmath>

namespace orvelle {

double sanitisedClipSpeed(double speed) {
    return sanitisedNumber(speed, kMinimumClipSpeed, kMaximumClipSpeed, 1.0);
}

namespace {

std::optional<double> clampedVolume(std::optional<double> volume) {
    if (!volume) {
        return std::nullopt;
    }
    return sanitisedNumber(*volume, 0.0, 1.0, 1.0);
}

double fadeDuration(double value) {
    return sanitisedNumber(value, 0.0, kMaximumClipFadeDuration, 0.0);
}

} // namespace

TimelineClipAudioSettings TimelineClipAudioSettings::clamped() const {
    TimelineClipAudioSettings result = *this;
    result.microphoneVolume = clampedVolume(microphoneVolume);
    result.systemAudioVolume = clampedVolume(systemAudioVolume);
    result.musicVolume = clampedVolume(musicVolume);
    return result;
}

double TimelineClip::editDuration() const {
    return std::max(0.0, end.seconds - start.seconds) / sanitisedSpeed();
}

TimelineState fullLengthTimeline(SourceTime sourceDuration) {
    const double duration =
        std::isfinite(sourceDuration.seconds) ? std::max(0.0, sourceDuration.seconds) : 0.0;
    if (duration <= 0) {
        return TimelineState::defaultState();
    }
    TimelineState state;
    state.sourceDuration = SourceTime(duration);
    TimelineClip clip;
    clip.id = Uuid::random();
    clip.start = SourceTime(0);
    clip.end = SourceTime(duration);
    state.clips.push_back(clip);
    return state;
}

TimelineState seededTimeline(const TimelineState& state, SourceTime sourceDuration) {
    if (!state.clips.empty()) {
        return state;
    }
    return fullLengthTimeline(sourceDuration);
}

TimelineClipAudioSettings
JsonCoder<TimelineClipAudioSettings>::decode(const Json& json, const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    TimelineClipAudioSettings value;
    value.microphoneVolume = reader.optional<double>("microphoneVolume");
    value.systemAudioVolume = reader.optional<double>("systemAudioVolume");
    value.musicVolume = reader.optional<double>("musicVolume");
    value.ducksMusicDuringVoice = reader.value<bool>("ducksMusicDuringVoice", false);
    return value.clamped();
}

Json JsonCoder<TimelineClipAudioSettings>::encode(const TimelineClipAudioSettings& value) {
    Json json = Json::object();
    setOptional(json, "microphoneVolume", value.microphoneVolume);
    setOptional(json, "systemAudioVolume", value.systemAudioVolume);
    setOptional(json, "musicVolume", value.musicVolume);
    json["ducksMusicDuringVoice"] = value.ducksMusicDuringVoice;
    return json;
}

TimelineClip JsonCoder<TimelineClip>::decode(const Json& json, const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    TimelineClip clip;
    clip.id = reader.required<Uuid>("id");
    clip.start = reader.required<SourceTime>("start");
    clip.end = reader.required<SourceTime>("end");
    clip.speed = sanitisedClipSpeed(reader.value<double>("speed", 1.0));
    clip.audio = reader.value<TimelineClipAudioSettings>("audio", {});
    clip.hidesCursor = reader.value<bool>("hidesCursor", false);
    clip.fadeInDuration = fadeDuration(reader.value<double>("fadeInDuration", 0));
    clip.fadeOutDuration = fadeDuration(reader.value<double>("fadeOutDuration", 0));
    return clip;
}

Json JsonCoder<TimelineClip>::encode(const TimelineClip& clip) {
    return {{"id", encodeJson(clip.id)},
            {"start", encodeJson(clip.start)},
            {"end", encodeJson(clip.end)},
            {"speed", clip.speed},
            {"audio", encodeJson(clip.audio)},
            {"hidesCursor", clip.hidesCursor},
            {"fadeInDuration", clip.fadeInDuration},
            {"fadeOutDuration", clip.fadeOutDuration}};
}

DeletedTimelineGap JsonCoder<DeletedTimelineGap>::decode(const Json& json,
                                                         const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    return {reader.required<Uuid>("id"), reader.required<SourceTime>("sourceStart"),
            reader.required<SourceTime>("sourceEnd")};
}

Json JsonCoder<DeletedTimelineGap>::encode(const DeletedTimelineGap& gap) {
    return {{"id", encodeJson(gap.id)},
            {"sourceStart", encodeJson(gap.sourceStart)},
            {"sourceEnd", encodeJson(gap.sourceEnd)}};
}

TimelineState JsonCoder<TimelineState>::decode(const Json& json, const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    TimelineState state;
    state.sourceDuration = reader.required<SourceTime>("sourceDuration");
    state.clips = reader.required<std::vector<TimelineClip>>("clips");
    state.deletedGaps = reader.value<std::vector<DeletedTimelineGap>>("deletedGaps", {});
    return state;
}

Json JsonCoder<TimelineState>::encode(const TimelineState& state) {
    return {{"sourceDuration", encodeJson(state.sourceDuration)},
            {"clips", encodeJson(state.clips)},
            {"deletedGaps", encodeJson(state.deletedGaps)}};
}

} // namespace orvelle
