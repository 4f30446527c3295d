#include "timeline_media/media_composition.h"

#include <algorithm>
#include <cmath>

namespace orvelle {

int64_t mediaTicks(double seconds) {
    if (!std::isfinite(seconds)) {
        return 0;
    }
    return std::llround(seconds * static_cast<double>(kMediaTimescale));
}

MediaTimeRange MediaTimeRange::fromSeconds(double start, double duration) {
    return {mediaTicks(start), std::max<int64_t>(mediaTicks(duration), 0)};
}

MediaTimeRange MediaTimeRange::between(double startSeconds, double endSeconds) {
    const int64_t first = mediaTicks(startSeconds);
    return {first, std::max<int64_t>(mediaTicks(endSeconds) - first, 0)};
}

double CompositionTrackInsertion::rate() const {
    if (editRange.duration <= 0) {
        return 1;
    }
    return static_cast<double>(sourceRange.duration) / static_cast<double>(editRange.duration);
}

void CompositionTrack::insert(const CompositionTrackInsertion& insertion) {
    const auto position =
        std::upper_bound(insertions.begin(), insertions.end(), insertion.editRange.start,
                         [](int64_t start, const CompositionTrackInsertion& other) {
                             return start < other.editRange.start;
                         });
    insertions.insert(position, insertion);
}

const CompositionTrackInsertion* CompositionTrack::insertion(int64_t editTick) const {
    auto position = std::upper_bound(insertions.begin(), insertions.end(), editTick,
                                     [](int64_t tick, const CompositionTrackInsertion& other) {
                                         return tick < other.editRange.start;
                                     });
    if (position == insertions.begin()) {
        return nullptr;
    }
    --position;
    return editTick < position->editRange.end() ? &*position : nullptr;
}

int64_t CompositionTrack::endTick() const {
    int64_t end = 0;
    for (const auto& insertion : insertions) {
        end = std::max(end, insertion.editRange.end());
    }
    return end;
}

int MediaComposition::mediaID(const std::filesystem::path& url) {
    const auto found = std::find(media.begin(), media.end(), url);
    if (found != media.end()) {
        return static_cast<int>(found - media.begin());
    }
    media.push_back(url);
    return static_cast<int>(media.size() - 1);
}

CompositionTrack& MediaComposition::addTrack(CompositionMediaType type) {
    int32_t next = 1;
    for (const auto& existing : tracks) {
        next = std::max(next, existing.trackID + 1);
    }
    tracks.push_back({next, type, {}});
    return tracks.back();
}

void MediaComposition::removeTrack(int32_t trackID) {
    std::erase_if(tracks, [&](const CompositionTrack& t) { return t.trackID == trackID; });
}

const CompositionTrack* MediaComposition::track(int32_t trackID) const {
    for (const auto& candidate : tracks) {
        if (candidate.trackID == trackID) {
            return &candidate;
        }
    }
    return nullptr;
}

CompositionTrack* MediaComposition::track(int32_t trackID) {
    for (auto& candidate : tracks) {
        if (candidate.trackID == trackID) {
            return &candidate;
        }
    }
    return nullptr;
}

std::vector<const CompositionTrack*>
MediaComposition::tracksOfType(CompositionMediaType type) const {
    std::vector<const CompositionTrack*> found;
    for (const auto& candidate : tracks) {
        if (candidate.type == type) {
            found.push_back(&candidate);
        }
    }
    return found;
}

int64_t MediaComposition::durationTicks() const {
    int64_t end = 0;
    for (const auto& candidate : tracks) {
        end = std::max(end, candidate.endTick());
    }
    return end;
}

void AudioMixInputParameters::setVolume(float volume, int64_t atTick) {
    setVolumeRamp(volume, volume, {atTick, 0});
}

void AudioMixInputParameters::setVolumeRamp(float fromVolume, float toVolume,
                                            MediaTimeRange timeRange) {
    const auto position = std::upper_bound(
        ramps.begin(), ramps.end(), timeRange.start,
        [](int64_t start, const VolumeRamp& r) { return start < r.timeRange.start; });
    ramps.insert(position, VolumeRamp{timeRange, fromVolume, toVolume});
}

void AudioMixInputParameters::fadeThroughSilence(int64_t atTick, int64_t fadeTicks) {
    const int64_t from = std::max<int64_t>(atTick - fadeTicks, 0);
    const int64_t to = atTick + fadeTicks;
    const float before = volume(mediaSeconds(from));
    const float after = volume(mediaSeconds(to));
    // The ramp that plays on past the dip, taken up again where the dip ends.
    std::optional<VolumeRamp> goingOn;
    const auto current =
        std::upper_bound(ramps.begin(), ramps.end(), to, [](int64_t tick, const VolumeRamp& r) {
            return tick < r.timeRange.start;
        });
    if (current != ramps.begin() && (current - 1)->timeRange.end() > to) {
        const VolumeRamp& ramp = *(current - 1);
        goingOn = VolumeRamp{{to, ramp.timeRange.end() - to}, after, ramp.toVolume};
    }
    // Ramps that start inside the dip are replaced by it and by what goes on after it.
    std::erase_if(ramps, [&](const VolumeRamp& r) {
        return r.timeRange.start >= from && r.timeRange.start <= to;
    });
    setVolumeRamp(before, 0, {from, atTick - from});
    setVolumeRamp(0, after, {atTick, to - atTick});
    if (goingOn) {
        setVolumeRamp(goingOn->fromVolume, goingOn->toVolume, goingOn->timeRange);
    }
}

float AudioMixInputParameters::volume(double editSeconds) const {
    float level = 1;
    fillVolumes(std::llround(editSeconds * 48000.0), 1, 48000, &level);
    return level;
}

void AudioMixInputParameters::fillVolumes(int64_t startFrame, size_t count, int sampleRate,
                                          float* volumes) const {
    // A tick is sampleRate / 600 samples; work in samples so that ramps are exact.
    const double framesPerTick = static_cast<double>(sampleRate) / kMediaTimescale;
    auto frameOf = [&](int64_t tick) {
        return static_cast<int64_t>(std::llround(static_cast<double>(tick) * framesPerTick));
    };
    // The last ramp that starts at or before the first sample.
    auto next = std::upper_bound(
        ramps.begin(), ramps.end(), startFrame,
        [&](int64_t frame, const VolumeRamp& r) { return frame < frameOf(r.timeRange.start); });
    const VolumeRamp* current = next == ramps.begin() ? nullptr : &*(next - 1);
    for (size_t i = 0; i < count; ++i) {
        const int64_t frame = startFrame + static_cast<int64_t>(i);
        while (next != ramps.end() && frameOf(next->timeRange.start) <= frame) {
            current = &*next;
            ++next;
        }
        if (current == nullptr) {
            volumes[i] = 1;
            continue;
        }
        const int64_t rampStart = frameOf(current->timeRange.start);
        const int64_t rampLength = frameOf(current->timeRange.end()) - rampStart;
        if (rampLength <= 0 || frame >= rampStart + rampLength) {
            volumes[i] = current->toVolume;
            continue;
        }
        const float position =
            static_cast<float>(frame - rampStart) / static_cast<float>(rampLength);
        volumes[i] = current->fromVolume + (current->toVolume - current->fromVolume) * position;
    }
}

const AudioMixInputParameters* AudioMix::parameters(int32_t trackID) const {
    for (const auto& candidate : inputParameters) {
        if (candidate.trackID == trackID) {
            return &candidate;
        }
    }
    return nullptr;
}

AudioMixInputParameters& AudioMix::mutableParameters(int32_t trackID) {
    for (auto& candidate : inputParameters) {
        if (candidate.trackID == trackID) {
            return candidate;
        }
    }
    inputParameters.push_back({trackID, {}});
    return inputParameters.back();
}

} // namespace orvelle
