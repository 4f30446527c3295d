#include "editor/timeline_range_clip_editor.h"

#include <algorithm>
#include <cmath>

namespace orvelle {

namespace {

std::optional<LaneClipRange> find(const std::vector<LaneClipRange>& clips, const Uuid& id) {
    for (const auto& clip : clips) {
        if (clip.id == id) {
            return clip;
        }
    }
    return std::nullopt;
}

} // namespace

std::string rangeClipEditLabel(std::string_view family, const AnimationClipEditKind& kind) {
    const std::string name(family);
    if (std::holds_alternative<AnimationClipMove>(kind)) {
        return "Move " + name;
    }
    return std::get<AnimationClipResize>(kind).edge == TimelineTrimEdge::start
               ? "Trim " + name + " Start"
               : "Trim " + name + " End";
}

RangeClipEditSession TimelineRangeClipEditor::makeSession(const LaneClipRange& clip,
                                                          const AnimationClipEditKind& kind) const {
    const EditTimeRange range = bounds(clip);
    return {clip.id, kind, clip.start, clip.end, range.lower, range.upper};
}

std::optional<RangeClipEditSession>
TimelineRangeClipEditor::adoptSession(const Uuid& id, const AnimationClipEditKind& kind) const {
    const auto clip = find(clips(), id);
    if (!clip) {
        return std::nullopt;
    }
    if (auto current = session(); current && current->clipID == id && current->kind == kind) {
        return current;
    }
    finishEditing();
    beginUndoTransaction(undoLabel(kind));
    select(id);
    const RangeClipEditSession fresh = makeSession(*clip, kind);
    setSession(fresh);
    return fresh;
}

void TimelineRangeClipEditor::move(const Uuid& id, EditTime delta) const {
    if (!std::isfinite(delta.seconds)) {
        return;
    }
    auto current = adoptSession(id, AnimationClipMove{});
    if (!current) {
        return;
    }
    const double minimum = minimumClipDuration.seconds;
    const double length = std::max(minimum, current->end.seconds - current->start.seconds);
    const double desired = current->start.seconds + delta.seconds;
    const EditTimeRange moved = bounds({id, EditTime(desired), EditTime(desired + length)});
    if ((moved.lower != current->lowerBound || moved.upper != current->upperBound) &&
        moved.upper.seconds - moved.lower.seconds >= minimum) {
        current->lowerBound = moved.lower;
        current->upperBound = moved.upper;
        setSession(current);
    }
    const double lower = current->lowerBound.seconds;
    const double upper = current->upperBound.seconds;
    const double placedLength = std::min(length, std::max(minimum, upper - lower));
    const double start = std::max(lower, std::min(desired, upper - placedLength));
    const double end = std::min(upper, start + placedLength);
    store(*find(clips(), id), EditTime(start), EditTime(end));
}

void TimelineRangeClipEditor::resize(const Uuid& id, TimelineTrimEdge edge, EditTime delta) const {
    if (!std::isfinite(delta.seconds)) {
        return;
    }
    const auto current = adoptSession(id, AnimationClipResize{edge});
    if (!current) {
        return;
    }
    const double minimum = minimumClipDuration.seconds;
    double start = current->start.seconds;
    double end = current->end.seconds;
    if (edge == TimelineTrimEdge::end) {
        end = std::max(std::min(end + delta.seconds, current->upperBound.seconds), start + minimum);
    } else {
        start =
            std::min(std::max(start + delta.seconds, current->lowerBound.seconds), end - minimum);
    }
    store(*find(clips(), id), EditTime(start), EditTime(end));
}

void TimelineRangeClipEditor::store(const LaneClipRange& before, EditTime start,
                                    EditTime end) const {
    if (before.start == start && before.end == end) {
        return;
    }
    updateClip(before.id, start, end);
    if (clipDidChange) {
        clipDidChange();
    }
}

} // namespace orvelle
