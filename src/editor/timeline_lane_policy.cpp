#include "editor/timeline_lane_policy.h"

#include <algorithm>
#include <cmath>

namespace orvelle {

std::span<const EnumName<AuxiliaryTimelineTrack>> jsonNames(AuxiliaryTimelineTrack) {
    static constexpr std::array<EnumName<AuxiliaryTimelineTrack>, 5> names{{
        {AuxiliaryTimelineTrack::zoom, "zoom"},
        {AuxiliaryTimelineTrack::cameraLayout, "cameraLayout"},
        {AuxiliaryTimelineTrack::mask, "mask"},
        {AuxiliaryTimelineTrack::music, "music"},
        {AuxiliaryTimelineTrack::text, "text"},
    }};
    return names;
}

namespace TimelineLanePolicy {

namespace {

// Two gaps closer than this to the candidate count as equally near.
constexpr double kDistanceTolerance = 0.0001;

double centre(const LaneClipRange& clip) {
    return (clip.start.seconds + clip.end.seconds) / 2;
}

} // namespace

std::vector<EditTimeRange> gaps(const std::vector<LaneClipRange>& clips, double timelineDuration,
                                double minimum) {
    std::vector<LaneClipRange> sorted = clips;
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const auto& a, const auto& b) { return a.start < b.start; });
    std::vector<EditTimeRange> result;
    double cursor = 0;
    for (const auto& clip : sorted) {
        const double start = std::clamp(clip.start.seconds, 0.0, timelineDuration);
        const double end = std::clamp(clip.end.seconds, start, timelineDuration);
        if (start - cursor >= minimum) {
            result.push_back({EditTime(cursor), EditTime(start)});
        }
        cursor = std::max(cursor, end);
    }
    if (timelineDuration - cursor >= minimum) {
        result.push_back({EditTime(cursor), EditTime(timelineDuration)});
    }
    return result;
}

std::optional<EditTimeRange> place(const LaneClipRange& candidate,
                                   const std::vector<LaneClipRange>& among,
                                   EditTime timelineDuration, EditTime minimumDuration) {
    const double duration = std::max(0.0, timelineDuration.seconds);
    if (!(duration > 0) || !std::isfinite(candidate.start.seconds) ||
        !std::isfinite(candidate.end.seconds)) {
        return std::nullopt;
    }
    const double minimum = std::clamp(minimumDuration.seconds, 0.0, duration);
    const auto free = gaps(among, duration, minimum);
    if (free.empty()) {
        return std::nullopt;
    }
    double start = candidate.start.seconds;
    const double length = candidate.end.seconds - candidate.start.seconds;
    for (const auto& clip : among) {
        if (clip.start.seconds <= start && start < clip.end.seconds) {
            start = clip.end.seconds;
            break;
        }
    }
    const double middle = start + length / 2;
    // The gaps come in order, so keeping the first of two equally near keeps the earlier.
    const EditTimeRange* nearest = nullptr;
    double nearestDistance = 0;
    for (const auto& gap : free) {
        const double distance = middle >= gap.lower.seconds && middle <= gap.upper.seconds
                                    ? 0.0
                                    : std::min(std::abs(middle - gap.lower.seconds),
                                               std::abs(middle - gap.upper.seconds));
        if (nearest == nullptr || distance < nearestDistance - kDistanceTolerance) {
            nearest = &gap;
            nearestDistance = distance;
        }
    }
    const double wanted = length > 0 ? length : minimum;
    const double gapLength = nearest->upper.seconds - nearest->lower.seconds;
    const double placedLength = std::min(std::max(wanted, minimum), gapLength);
    if (placedLength <= 0) {
        return std::nullopt;
    }
    const double placedStart =
        std::clamp(start, nearest->lower.seconds, nearest->upper.seconds - placedLength);
    return EditTimeRange{EditTime(placedStart), EditTime(placedStart + placedLength)};
}

EditTimeRange nonOverlappingBounds(const LaneClipRange& clip,
                                   const std::vector<LaneClipRange>& among,
                                   double timelineDuration) {
    const double middle = centre(clip);
    double lower = 0;
    double upper = timelineDuration;
    for (const auto& other : among) {
        if (other.id == clip.id) {
            continue;
        }
        if (centre(other) <= middle) {
            lower = std::max(lower, other.end.seconds);
        } else {
            upper = std::min(upper, other.start.seconds);
        }
    }
    return {EditTime(lower), EditTime(upper)};
}

} // namespace TimelineLanePolicy

} // namespace orvelle
