#pragma once

// The neighbours of one clip of a lane in start order, for the hand-off between touching
// clips. Any clip record with `start` and `isDisabled`.

#include <cstddef>
#include <optional>
#include <span>

namespace orvelle {

// Whether clip a comes before clip b in the enabled clips stably sorted by start.
template <class Clip>
bool sortsBeforeByStart(std::span<const Clip> clips, size_t a, size_t b) {
    if (clips[a].start != clips[b].start) {
        return clips[a].start < clips[b].start;
    }
    return a < b;
}

struct ClipNeighbours {
    std::optional<size_t> previous;
    std::optional<size_t> next;
};

// The closest enabled clips before and after `active` in start order, found without sorting
// (and so without allocating).
template <class Clip>
ClipNeighbours neighboursInStartOrder(std::span<const Clip> clips, size_t active) {
    ClipNeighbours result;
    for (size_t i = 0; i < clips.size(); ++i) {
        if (i == active || clips[i].isDisabled) {
            continue;
        }
        if (sortsBeforeByStart(clips, i, active)) {
            if (!result.previous || sortsBeforeByStart(clips, *result.previous, i)) {
                result.previous = i;
            }
        } else if (!result.next || sortsBeforeByStart(clips, i, *result.next)) {
            result.next = i;
        }
    }
    return result;
}

} // namespace orvelle
