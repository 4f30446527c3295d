#include "timeline/resolved_edit_timeline.h"

#include <algorithm>
#include <cmath>

namespace orvelle {

namespace {

// Holds a value to [low, high]; a value that is not a number takes the low end.
double heldTo(double value, double low, double high) {
    if (std::isnan(value)) {
        return low;
    }
    return std::max(low, std::min(value, high));
}

} // namespace

SourceTime sourceStart(const TimelineElement& element) {
    if (const auto* clip = std::get_if<TimelineClip>(&element)) {
        return clip->start;
    }
    return std::get<DeletedTimelineGap>(element).sourceStart;
}

SourceTime sourceEnd(const TimelineElement& element) {
    if (const auto* clip = std::get_if<TimelineClip>(&element)) {
        return clip->end;
    }
    return std::get<DeletedTimelineGap>(element).sourceEnd;
}

EditTimeline EditTimeline::from(const TimelineState& state) {
    return {state.clips, state.deletedGaps, state.sourceDuration, kTimelineBoundaryEpsilon};
}

ResolvedEditTimeline::ResolvedEditTimeline(const EditTimeline& timeline)
    : ResolvedEditTimeline(timeline.clips, timeline.deletedGaps, timeline.sourceDuration,
                           timeline.boundaryEpsilon) {}

ResolvedEditTimeline::ResolvedEditTimeline(std::vector<TimelineClip> clips,
                                           std::vector<DeletedTimelineGap> deletedGaps,
                                           SourceTime sourceDuration, double boundaryEpsilon)
    : clips_(std::move(clips)), deletedGaps_(std::move(deletedGaps)),
      sourceDuration_(sourceDuration), boundaryEpsilon_(boundaryEpsilon) {
    elements_.reserve(clips_.size() + deletedGaps_.size());
    for (const auto& clip : clips_) {
        elements_.emplace_back(clip);
    }
    for (const auto& gap : deletedGaps_) {
        elements_.emplace_back(gap);
    }
    std::stable_sort(elements_.begin(), elements_.end(),
                     [](const TimelineElement& a, const TimelineElement& b) {
                         const double aStart = sourceStart(a).seconds;
                         const double bStart = sourceStart(b).seconds;
                         if (aStart != bStart) {
                             return aStart < bStart;
                         }
                         return sourceEnd(a).seconds < sourceEnd(b).seconds;
                     });
    double position = 0;
    for (const auto& element : elements_) {
        if (const auto* clip = std::get_if<TimelineClip>(&element)) {
            const double end = position + clip->editDuration();
            clipLayouts_.push_back(
                {clip->id, clip->start, clip->end, EditTime(position), EditTime(end), clip->speed});
            position = end;
        } else {
            const auto& gap = std::get<DeletedTimelineGap>(element);
            gaps_.push_back(
                {gap.id, gap.sourceStart, gap.sourceEnd, EditTime(position), EditTime(position)});
        }
    }
    duration_ = position;
}

double ResolvedEditTimeline::heldToSource(SourceTime time) const {
    return heldTo(time.seconds, 0.0, std::max(0.0, sourceDuration_.seconds));
}

std::optional<SourceTime> ResolvedEditTimeline::sourceTime(EditTime time) const {
    if (clips_.empty()) {
        return std::nullopt;
    }
    const double t = heldTo(time.seconds, 0.0, duration_);
    double position = 0;
    const TimelineClip* lastPassed = nullptr;
    for (size_t i = 0; i < elements_.size(); ++i) {
        if (const auto* clip = std::get_if<TimelineClip>(&elements_[i])) {
            const double length = clip->editDuration();
            if (t <= position + length) {
                // The last instant of a clip that a cut follows belongs to the cut: the
                // picture there is the first frame after it.
                const bool onFollowingCut =
                    t >= position + length && i + 1 < elements_.size() &&
                    std::holds_alternative<DeletedTimelineGap>(elements_[i + 1]);
                if (!onFollowingCut) {
                    const double source =
                        clip->start.seconds + (t - position) * clip->sanitisedSpeed();
                    return SourceTime(std::clamp(source, clip->start.seconds,
                                                 std::max(clip->start.seconds, clip->end.seconds)));
                }
            }
            position += length;
            lastPassed = clip;
        } else {
            const auto& gap = std::get<DeletedTimelineGap>(elements_[i]);
            if (std::fabs(t - position) <= boundaryEpsilon_) {
                return resolveCut(gap, lastPassed);
            }
        }
    }
    return lastPassed != nullptr ? lastPassed->end : clips_.back().end;
}

std::optional<SourceTime> ResolvedEditTimeline::resolveCut(const DeletedTimelineGap& gap,
                                                           const TimelineClip* lastPassed) const {
    if (auto after = playableTimeAtOrAfter(gap.sourceEnd)) {
        return after;
    }
    if (lastPassed == nullptr) {
        return playableTimeAtOrBefore(gap.sourceStart);
    }
    return lastPassed->end;
}

EditTime ResolvedEditTimeline::editTime(SourceTime time) const {
    const double s = time.seconds;
    double position = 0;
    for (const auto& element : elements_) {
        const double start = sourceStart(element).seconds;
        const double end = sourceEnd(element).seconds;
        const auto* clip = std::get_if<TimelineClip>(&element);
        if (start <= s && s <= end) {
            return EditTime(clip != nullptr ? position + (s - start) / clip->sanitisedSpeed()
                                            : position);
        }
        if (s < start) {
            return EditTime(position);
        }
        if (clip != nullptr) {
            position += clip->editDuration();
        }
    }
    return EditTime(position);
}

std::optional<SourceTime> ResolvedEditTimeline::playableTimeAtOrAfter(SourceTime time) const {
    const double s = heldToSource(time);
    for (const auto& clip : clips_) {
        if (clip.start.seconds <= s && s < clip.end.seconds) {
            return SourceTime(s);
        }
        if (s <= clip.start.seconds) {
            return clip.start;
        }
    }
    return std::nullopt;
}

std::optional<SourceTime> ResolvedEditTimeline::playableTimeAtOrBefore(SourceTime time) const {
    const double s = heldToSource(time);
    // From the last clip back: the first that holds or ends before the time answers.
    for (size_t i = clips_.size(); i-- > 0;) {
        const TimelineClip& clip = clips_[i];
        if (clip.start.seconds <= s && s <= clip.end.seconds) {
            return SourceTime(s);
        }
        if (clip.end.seconds < s) {
            return clip.end;
        }
    }
    return std::nullopt;
}

} // namespace orvelle
