#include "timeline/timeline_engine.h"

#include <algorithm>
#include <cmath>

namespace orvelle {

std::span<const EnumName<TimelineTrimEdge>> jsonNames(TimelineTrimEdge) {
    static constexpr std::array<EnumName<TimelineTrimEdge>, 2> names{{
        {TimelineTrimEdge::start, "start"},
        {TimelineTrimEdge::end, "end"},
    }};
    return names;
}

namespace TimelineEngine {

namespace {

constexpr double kEpsilon = kTimelineBoundaryEpsilon;
// Two speeds this close play the same.
constexpr double kSpeedTolerance = 0.0001;

struct Stretch {
    double start;
    double end;
};

std::vector<TimelineClip> sortedClips(const TimelineState& state) {
    std::vector<TimelineClip> clips = state.clips;
    std::stable_sort(clips.begin(), clips.end(),
                     [](const auto& a, const auto& b) { return a.start < b.start; });
    return clips;
}

// A clip over a stretch that plays like the template: sanitised speed, clamped audio, the
// pointer setting; no fades.
TimelineClip clipLike(const TimelineClip& model, const Uuid& id, double start, double end) {
    TimelineClip clip;
    clip.id = id;
    clip.start = SourceTime(start);
    clip.end = SourceTime(end);
    clip.speed = model.sanitisedSpeed();
    clip.audio = model.audio.clamped();
    clip.hidesCursor = model.hidesCursor;
    return clip;
}

// The range held the way every source-range operation holds it. Absent when not finite.
std::optional<Stretch> heldRange(const TimelineState& state, SourceTime start, SourceTime end) {
    const double duration = state.sourceDuration.seconds;
    if (!std::isfinite(start.seconds) || !std::isfinite(end.seconds) || !std::isfinite(duration)) {
        return std::nullopt;
    }
    return Stretch{std::clamp(start.seconds, 0.0, std::max(0.0, duration)),
                   std::min(end.seconds, duration)};
}

// What is left of each stretch after taking out [start, end]; pieces shorter than the
// minimum vanish, and a touch of at most 1/600 s takes nothing.
std::vector<Stretch> subtract(const std::vector<Stretch>& stretches, double start, double end,
                              double minimumDuration) {
    std::vector<Stretch> result;
    for (const auto& stretch : stretches) {
        const double overlapStart = std::max(stretch.start, start);
        const double overlapEnd = std::min(stretch.end, end);
        if (overlapEnd - overlapStart <= kEpsilon) {
            result.push_back(stretch);
            continue;
        }
        if (overlapStart - stretch.start >= minimumDuration) {
            result.push_back({stretch.start, overlapStart});
        }
        if (stretch.end - overlapEnd >= minimumDuration) {
            result.push_back({overlapEnd, stretch.end});
        }
    }
    return result;
}

std::optional<size_t> indexOf(const std::vector<TimelineClip>& clips, const Uuid& id) {
    for (size_t i = 0; i < clips.size(); ++i) {
        if (clips[i].id == id) {
            return i;
        }
    }
    return std::nullopt;
}

bool playAlike(const TimelineClip& a, const TimelineClip& b) {
    return std::abs(a.sanitisedSpeed() - b.sanitisedSpeed()) <= kSpeedTolerance &&
           a.audio.microphoneVolume == b.audio.microphoneVolume &&
           a.audio.systemAudioVolume == b.audio.systemAudioVolume &&
           a.audio.musicVolume == b.audio.musicVolume &&
           a.audio.ducksMusicDuringVoice == b.audio.ducksMusicDuringVoice &&
           a.hidesCursor == b.hidesCursor;
}

bool contiguous(const TimelineClip& before, const TimelineClip& after) {
    return std::abs(before.end.seconds - after.start.seconds) <= kEpsilon &&
           playAlike(before, after);
}

} // namespace

void normalize(TimelineState& state) {
    std::stable_sort(state.clips.begin(), state.clips.end(),
                     [](const auto& a, const auto& b) { return a.start < b.start; });
    std::stable_sort(state.deletedGaps.begin(), state.deletedGaps.end(),
                     [](const auto& a, const auto& b) { return a.sourceStart < b.sourceStart; });
}

std::optional<size_t> clipIndex(SourceTime time, const std::vector<TimelineClip>& clips) {
    for (size_t i = 0; i < clips.size(); ++i) {
        const auto& clip = clips[i];
        if (clip.start <= time && time < clip.end) {
            return i;
        }
        if (i + 1 == clips.size() && std::abs(time.seconds - clip.end.seconds) <= kEpsilon) {
            return i;
        }
    }
    return std::nullopt;
}

std::optional<Uuid> splitClip(TimelineState& state, SourceTime time, double minimumDuration) {
    const auto index = clipIndex(time, state.clips);
    if (!index) {
        return std::nullopt;
    }
    const TimelineClip original = state.clips[*index];
    if (time.seconds - original.start.seconds < minimumDuration ||
        original.end.seconds - time.seconds < minimumDuration) {
        return std::nullopt;
    }
    const TimelineClip first =
        clipLike(original, Uuid::random(), original.start.seconds, time.seconds);
    const TimelineClip second =
        clipLike(original, Uuid::random(), time.seconds, original.end.seconds);
    state.clips[*index] = first;
    state.clips.insert(state.clips.begin() + static_cast<std::ptrdiff_t>(*index) + 1, second);
    normalize(state);
    return second.id;
}

std::optional<TimelineClip> deleteClip(TimelineState& state, const Uuid& id) {
    const auto index = indexOf(state.clips, id);
    if (!index) {
        return std::nullopt;
    }
    TimelineClip removed = state.clips[*index];
    state.clips.erase(state.clips.begin() + static_cast<std::ptrdiff_t>(*index));
    normalize(state);
    return removed;
}

std::optional<DeletedTimelineGap> deleteSourceRange(TimelineState& state, SourceTime start,
                                                    SourceTime end, double minimumDuration) {
    const auto range = heldRange(state, start, end);
    if (!range || range->end - range->start < minimumDuration) {
        return std::nullopt;
    }
    std::vector<TimelineClip> result;
    std::optional<Stretch> removed;
    for (const auto& clip : sortedClips(state)) {
        const double overlapStart = std::max(clip.start.seconds, range->start);
        const double overlapEnd = std::min(clip.end.seconds, range->end);
        if (overlapEnd - overlapStart <= kEpsilon) {
            result.push_back(clip);
            continue;
        }
        const bool keepsLeft = overlapStart - clip.start.seconds >= minimumDuration;
        const bool keepsRight = clip.end.seconds - overlapEnd >= minimumDuration;
        const Stretch taken{keepsLeft ? overlapStart : clip.start.seconds,
                            keepsRight ? overlapEnd : clip.end.seconds};
        removed = removed ? Stretch{std::min(removed->start, taken.start),
                                    std::max(removed->end, taken.end)}
                          : taken;
        if (keepsLeft) {
            result.push_back(clipLike(clip, clip.id, clip.start.seconds, overlapStart));
        }
        if (keepsRight) {
            result.push_back(clipLike(clip, Uuid::random(), overlapEnd, clip.end.seconds));
        }
    }
    if (!removed || removed->end - removed->start < minimumDuration) {
        return std::nullopt;
    }
    state.clips = std::move(result);
    normalize(state);
    return DeletedTimelineGap{Uuid::random(), SourceTime(removed->start), SourceTime(removed->end)};
}

TimelineClip restoredClip(SourceTime start, SourceTime end, const TimelineState& state) {
    const auto clips = sortedClips(state);
    const TimelineClip* neighbour = nullptr;
    for (size_t i = clips.size(); i-- > 0;) {
        if (clips[i].end.seconds <= start.seconds + kEpsilon) {
            neighbour = &clips[i];
            break;
        }
    }
    if (neighbour == nullptr) {
        for (const auto& clip : clips) {
            if (clip.start.seconds >= end.seconds - kEpsilon) {
                neighbour = &clip;
                break;
            }
        }
    }
    if (neighbour != nullptr) {
        return clipLike(*neighbour, Uuid::random(), start.seconds, end.seconds);
    }
    TimelineClip clip;
    clip.id = Uuid::random();
    clip.start = start;
    clip.end = end;
    return clip;
}

std::optional<TimelineClip> restoreSourceRange(TimelineState& state, SourceTime start,
                                               SourceTime end, double minimumDuration) {
    const auto range = heldRange(state, start, end);
    if (!range || range->end - range->start < minimumDuration) {
        return std::nullopt;
    }
    std::vector<Stretch> missing{*range};
    for (const auto& clip : sortedClips(state)) {
        missing = subtract(missing, clip.start.seconds, clip.end.seconds, minimumDuration);
    }
    if (missing.empty()) {
        return std::nullopt;
    }
    std::vector<Uuid> restoredIDs;
    for (const auto& stretch : missing) {
        TimelineClip clip = restoredClip(SourceTime(stretch.start), SourceTime(stretch.end), state);
        restoredIDs.push_back(clip.id);
        state.clips.push_back(clip);
    }
    std::vector<DeletedTimelineGap> gaps;
    for (const auto& gap : state.deletedGaps) {
        std::vector<Stretch> remaining{{gap.sourceStart.seconds, gap.sourceEnd.seconds}};
        for (const auto& stretch : missing) {
            remaining = subtract(remaining, stretch.start, stretch.end, minimumDuration);
        }
        for (const auto& piece : remaining) {
            gaps.push_back({Uuid::random(), SourceTime(piece.start), SourceTime(piece.end)});
        }
    }
    state.deletedGaps = std::move(gaps);
    normalize(state);
    std::optional<TimelineClip> result;
    for (const auto& id : restoredIDs) {
        if (auto merged = mergeContiguousClips(state, id)) {
            result = merged;
        }
    }
    return result;
}

std::optional<TimelineClip> restoreCut(TimelineState& state, const Uuid& beforeClipID,
                                       double minimumDuration) {
    normalize(state);
    const auto index = indexOf(state.clips, beforeClipID);
    if (!index || *index == 0) {
        return std::nullopt;
    }
    const TimelineClip previous = state.clips[*index - 1];
    const TimelineClip next = state.clips[*index];
    const double start = std::min(previous.start.seconds, next.start.seconds);
    const double end = std::max(previous.end.seconds, next.end.seconds);
    if (end - start < minimumDuration) {
        return std::nullopt;
    }
    const TimelineClip merged = clipLike(previous, next.id, start, end);
    state.clips[*index - 1] = merged;
    state.clips.erase(state.clips.begin() + static_cast<std::ptrdiff_t>(*index));
    std::erase_if(state.deletedGaps, [&](const DeletedTimelineGap& gap) {
        return gap.sourceStart.seconds >= previous.end.seconds - kEpsilon &&
               gap.sourceEnd.seconds <= next.start.seconds + kEpsilon;
    });
    normalize(state);
    return merged;
}

std::optional<TimelineClip> mergeContiguousClips(TimelineState& state, const Uuid& id) {
    auto index = indexOf(state.clips, id);
    if (!index) {
        return std::nullopt;
    }
    auto& clips = state.clips;
    const auto join = [&](size_t before) {
        const TimelineClip& earlier = clips[before];
        const TimelineClip& later = clips[before + 1];
        clips[before] = clipLike(earlier, earlier.id, earlier.start.seconds, later.end.seconds);
        clips.erase(clips.begin() + static_cast<std::ptrdiff_t>(before) + 1);
    };
    size_t i = *index;
    while (i > 0 && contiguous(clips[i - 1], clips[i])) {
        join(i - 1);
        --i;
    }
    while (i + 1 < clips.size() && contiguous(clips[i], clips[i + 1])) {
        join(i);
    }
    return clips[i];
}

TimelineSourceBounds sourceBounds(const TimelineState& state, const TimelineClip& clip) {
    double lower = 0;
    double upper = state.sourceDuration.seconds;
    const auto consider = [&](double start, double end) {
        if (end <= clip.start.seconds) {
            lower = std::max(lower, end);
        }
        if (start >= clip.end.seconds) {
            upper = std::min(upper, start);
        }
    };
    for (const auto& other : state.clips) {
        if (other.id != clip.id) {
            consider(other.start.seconds, other.end.seconds);
        }
    }
    for (const auto& gap : state.deletedGaps) {
        consider(gap.sourceStart.seconds, gap.sourceEnd.seconds);
    }
    return {SourceTime(lower), SourceTime(upper)};
}

TimelineTrimSession trimSession(const TimelineState& state, const TimelineClip& clip,
                                TimelineTrimEdge edge) {
    const auto bounds = sourceBounds(state, clip);
    return {clip.id, edge, clip.start, clip.end, bounds.lowerBound, bounds.upperBound};
}

TimelineClipMoveSession moveSession(const TimelineState& state, const TimelineClip& clip) {
    const auto bounds = sourceBounds(state, clip);
    return {clip.id, clip.start, clip.end, bounds.lowerBound, bounds.upperBound};
}

TimelineClip trimmedClip(const TimelineTrimSession& session, const TimelineClip& clip,
                         EditTime delta) {
    const double sourceDelta = delta.seconds * clip.sanitisedSpeed();
    if (!std::isfinite(sourceDelta)) {
        return clip;
    }
    TimelineClip result = clip;
    if (session.edge == TimelineTrimEdge::end) {
        const double end =
            std::min(session.sourceEnd.seconds + sourceDelta, session.upperBound.seconds);
        result.start = session.sourceStart;
        result.end =
            SourceTime(std::max(end, session.sourceStart.seconds + kMinimumTimelineClipDuration));
    } else {
        const double start =
            std::max(session.sourceStart.seconds + sourceDelta, session.lowerBound.seconds);
        result.start =
            SourceTime(std::min(start, session.sourceEnd.seconds - kMinimumTimelineClipDuration));
        result.end = session.sourceEnd;
    }
    return result;
}

TimelineClip movedClip(const TimelineClipMoveSession& session, const TimelineClip& clip,
                       EditTime delta) {
    const double sourceDelta = delta.seconds * clip.sanitisedSpeed();
    if (!std::isfinite(sourceDelta)) {
        return clip;
    }
    const double length = std::max(kMinimumTimelineClipDuration,
                                   session.sourceEnd.seconds - session.sourceStart.seconds);
    const double lower = session.lowerBound.seconds;
    const double upper = session.upperBound.seconds;
    const double start = std::clamp(session.sourceStart.seconds + sourceDelta, lower,
                                    std::max(lower, upper - length));
    TimelineClip result = clip;
    result.start = SourceTime(start);
    result.end = SourceTime(std::min(upper, start + length));
    return result;
}

std::optional<TimelineClip> restoreEdgeTrim(TimelineState& state, const Uuid& clipID,
                                            TimelineTrimEdge edge) {
    const auto index = indexOf(state.clips, clipID);
    if (!index) {
        return std::nullopt;
    }
    TimelineClip clip = state.clips[*index];
    double from = 0;
    double to = 0;
    if (edge == TimelineTrimEdge::end) {
        double target = state.sourceDuration.seconds;
        for (const auto& other : state.clips) {
            if (other.id != clip.id && other.start >= clip.end) {
                target = std::min(target, other.start.seconds);
            }
        }
        if (target - clip.end.seconds <= kEpsilon) {
            return std::nullopt;
        }
        from = clip.end.seconds;
        to = target;
        clip.end = SourceTime(target);
    } else {
        double target = 0;
        for (const auto& other : state.clips) {
            if (other.id != clip.id && other.end <= clip.start) {
                target = std::max(target, other.end.seconds);
            }
        }
        if (clip.start.seconds - target <= kEpsilon) {
            return std::nullopt;
        }
        from = target;
        to = clip.start.seconds;
        clip.start = SourceTime(target);
    }
    state.clips[*index] = clip;
    std::erase_if(state.deletedGaps, [&](const DeletedTimelineGap& gap) {
        return gap.sourceStart.seconds >= from - kEpsilon && gap.sourceEnd.seconds <= to + kEpsilon;
    });
    normalize(state);
    return clip;
}

} // namespace TimelineEngine

} // namespace orvelle
