#pragma once

// What a CompositionPlayer plays: the media of an edit laid out in edit time, and what its
// frames are drawn from. The item changes when the timeline (or the sound of the edit)
// changes; the geometry changes with any change of the project, and only changes the
// frames drawn after it.

#include "composition/render_frame_resolver.h"
#include "timeline_media/media_composition.h"

#include <cstdint>
#include <optional>

namespace orvelle {

struct PlayerItem {
    MediaComposition composition;
    AudioMix audioMix;
    int32_t screenTrackID = 0;
    std::optional<int32_t> cameraTrackID; // absent when the take has no camera picture
    double duration = 0;                  // edit seconds
};

struct PreviewGeometry {
    // The project, pointer data and picture sizes, as the export resolves frames from
    // them; the stage size is replaced by the preview's.
    RenderFrameSource source;
    // Equal for equal projects of the same document: what the frame cache keys on.
    uint64_t snapshotKey = 0;
};

} // namespace orvelle
