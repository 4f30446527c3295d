#include "editor/clip_lane.h"

namespace orvelle {

std::vector<LaneClipRange> laneClipRanges(const EditorProjectState& project,
                                          AuxiliaryTimelineTrack track) {
    return withClipLane(track,
                        [&](const auto& lane) { return laneClipRanges(lane.clipsOf(project)); });
}

} // namespace orvelle
