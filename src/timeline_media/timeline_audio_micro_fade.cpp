#include "timeline_media/timeline_audio_micro_fade.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace orvelle::TimelineAudioMicroFade {

namespace {

// Two instants within a tick are the same instant.
bool meets(int64_t a, int64_t b) {
    return std::llabs(a - b) <= 1;
}

// The second segment continues the first: same file, next sample, same speed.
bool continues(const TimelineCompositionAudioSegment& a, const TimelineCompositionAudioSegment& b) {
    return a.mediaID == b.mediaID && meets(a.mediaRange.end(), b.mediaRange.start) &&
           std::fabs(a.speed - b.speed) < 1e-9;
}

int64_t sourceTicksFor(int64_t editTicks, double speed) {
    return std::llround(static_cast<double>(editTicks) * speed);
}

} // namespace

std::vector<TimelineAudioSplicePlan>
splicePlans(const std::vector<TimelineCompositionAudioSegment>& segments, double sourceDuration) {
    const size_t count = segments.size();
    std::vector<TimelineAudioSplicePlan> plans(count);
    const int64_t sourceEnd = mediaTicks(sourceDuration);
    constexpr int64_t half = kCrossfadeTicks / 2;
    for (size_t i = 0; i < count; ++i) {
        const auto& segment = segments[i];
        const bool touchesPrevious =
            i > 0 && meets(segments[i - 1].timeRange.end(), segment.timeRange.start);
        if (!touchesPrevious) {
            plans[i].head = {TimelineAudioEdgeKind::microFade, 0, 0};
        }
        const bool touchesNext =
            i + 1 < count && meets(segment.timeRange.end(), segments[i + 1].timeRange.start);
        if (!touchesNext) {
            plans[i].tail = {TimelineAudioEdgeKind::microFade, 0, 0};
            continue;
        }
        const auto& next = segments[i + 1];
        if (continues(segment, next)) {
            continue; // none on both sides
        }
        // A real cut: crossfade when both sides have material past it and are long enough
        // to hold the overlap, else fade each side against silence.
        const int64_t outSource = sourceTicksFor(half, segment.speed);
        const int64_t inSource = sourceTicksFor(half, next.speed);
        const bool outHasMaterial =
            segment.mediaRange.end() + outSource <= segment.mediaBounds.end() &&
            (sourceEnd <= 0 || segment.sourceRange.end() + outSource <= sourceEnd);
        const bool inHasMaterial = next.mediaRange.start - inSource >= next.mediaBounds.start &&
                                   next.sourceRange.start - inSource >= 0;
        const bool longEnough = segment.timeRange.duration >= 2 * kCrossfadeTicks &&
                                next.timeRange.duration >= 2 * kCrossfadeTicks;
        if (outHasMaterial && inHasMaterial && longEnough) {
            plans[i].tail = {TimelineAudioEdgeKind::crossfade, half, outSource};
            plans[i + 1].head = {TimelineAudioEdgeKind::crossfade, half, inSource};
        } else {
            plans[i].tail = {TimelineAudioEdgeKind::microFade, 0, 0};
            plans[i + 1].head = {TimelineAudioEdgeKind::microFade, 0, 0};
        }
    }
    // Subtracks: the lowest one that is free when the extended segment starts, so that two
    // segments overlapping in a crossfade never share one.
    std::vector<int64_t> freeFrom;
    for (size_t i = 0; i < count; ++i) {
        const TimelineAudioTrackInsertion extended = trackInsertion(segments[i], plans[i]);
        size_t subtrack = 0;
        while (subtrack < freeFrom.size() && freeFrom[subtrack] > extended.editRange.start) {
            ++subtrack;
        }
        if (subtrack == freeFrom.size()) {
            freeFrom.push_back(0);
        }
        freeFrom[subtrack] = extended.editRange.end();
        plans[i].subtrack = static_cast<int>(subtrack);
    }
    return plans;
}

TimelineAudioTrackInsertion trackInsertion(const TimelineCompositionAudioSegment& segment,
                                           const TimelineAudioSplicePlan& plan) {
    TimelineAudioTrackInsertion insertion{segment.mediaRange, segment.timeRange};
    insertion.sourceRange.start -= plan.head.sourceExtension;
    insertion.sourceRange.duration += plan.head.sourceExtension + plan.tail.sourceExtension;
    insertion.editRange.start -= plan.head.editExtension;
    insertion.editRange.duration += plan.head.editExtension + plan.tail.editExtension;
    return insertion;
}

std::vector<TimelineAudioTrackInsertion>
trackInsertions(const std::vector<TimelineCompositionAudioSegment>& segments,
                const std::vector<TimelineAudioSplicePlan>& plans, int subtrack) {
    std::vector<TimelineAudioTrackInsertion> insertions;
    for (size_t i = 0; i < segments.size() && i < plans.size(); ++i) {
        if (plans[i].subtrack == subtrack) {
            insertions.push_back(trackInsertion(segments[i], plans[i]));
        }
    }
    return insertions;
}

void applyMixVolumes(AudioMixInputParameters& parameters,
                     const std::vector<TimelineCompositionAudioSegment>& segments,
                     const std::vector<TimelineAudioSplicePlan>& plans,
                     const std::vector<float>& volumes, int subtrack) {
    // Silent wherever this subtrack has nothing to play.
    parameters.setVolume(0, 0);
    for (size_t i = 0; i < segments.size() && i < plans.size(); ++i) {
        if (plans[i].subtrack != subtrack) {
            continue;
        }
        const float volume = i < volumes.size() ? volumes[i] : 1.0f;
        const auto& plan = plans[i];
        const MediaTimeRange range = trackInsertion(segments[i], plan).editRange;
        const int64_t halfLength = std::max<int64_t>(range.duration / 2, 0);
        int64_t headEnd = range.start;
        switch (plan.head.kind) {
        case TimelineAudioEdgeKind::none: {
            // Material goes on from the previous segment: only a change of volume is ramped.
            const float previous = i > 0 && i - 1 < volumes.size() ? volumes[i - 1] : volume;
            const int64_t length = std::min(kMicroFadeTicks, halfLength);
            if (previous != volume && length > 0) {
                parameters.setVolumeRamp(previous, volume, {range.start, length});
                headEnd = range.start + length;
            } else {
                parameters.setVolume(volume, range.start);
            }
            break;
        }
        case TimelineAudioEdgeKind::microFade: {
            const int64_t length = std::min(kMicroFadeTicks, halfLength);
            parameters.setVolumeRamp(0, volume, {range.start, length});
            headEnd = range.start + length;
            break;
        }
        case TimelineAudioEdgeKind::crossfade: {
            const int64_t length = std::min(2 * plan.head.editExtension, halfLength);
            parameters.setVolumeRamp(0, volume, {range.start, length});
            headEnd = range.start + length;
            break;
        }
        }
        int64_t tailLength = 0;
        if (plan.tail.kind == TimelineAudioEdgeKind::microFade) {
            tailLength = std::min(kMicroFadeTicks, halfLength);
        } else if (plan.tail.kind == TimelineAudioEdgeKind::crossfade) {
            tailLength = std::min(2 * plan.tail.editExtension, halfLength);
        }
        if (tailLength > 0) {
            const int64_t tailStart = std::max(range.end() - tailLength, headEnd);
            parameters.setVolumeRamp(volume, 0, {tailStart, range.end() - tailStart});
        }
    }
}

void applyJoinFades(AudioMixInputParameters& parameters, const CompositionTrack& track) {
    const auto& insertions = track.insertions;
    for (size_t i = 1; i < insertions.size(); ++i) {
        const auto& before = insertions[i - 1];
        const auto& after = insertions[i];
        const bool joined = before.editRange.end() == after.editRange.start;
        const bool goesOn = before.mediaID == after.mediaID &&
                            before.sourceRange.end() == after.sourceRange.start &&
                            before.rate() == after.rate();
        if (!joined || goesOn) {
            continue;
        }
        const int64_t length = std::min(
            {kMicroFadeTicks, before.editRange.duration / 2, after.editRange.duration / 2});
        if (length > 0) {
            parameters.fadeThroughSilence(after.editRange.start, length);
        }
    }
}

} // namespace orvelle::TimelineAudioMicroFade
