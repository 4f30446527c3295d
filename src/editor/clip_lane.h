#pragma once

// Static descriptions of the five auxiliary lanes: where a lane's clips live in the
// project, which selection case is the lane's, and its undo labels. The store's lane
// operations are written once against these.

#include "editor/editor_selection.h"
#include "editor/timeline_lane_policy.h"
#include "project/editor_project_state.h"

#include <string_view>
#include <utility>

namespace orvelle {

// The shortest an auxiliary lane's clip may be: dragged, resized or placed in free space.
inline constexpr double kLaneMinimumClipDuration = 0.5;

template <RangeEditableClip Clip>
struct ClipLane {
    using ClipType = Clip;

    AuxiliaryTimelineTrack track;
    std::vector<Clip>& (*clips)(EditorProjectState& project);
    EditorSelectionState::Kind selectionKind;
    std::string_view family; // "Zoom": for the gesture labels "Move Zoom" and the like
    std::string_view addLabel;
    std::string_view deleteLabel;
    std::string_view duplicateLabel;
    std::string_view changeLabel;

    const std::vector<Clip>& clipsOf(const EditorProjectState& project) const {
        return clips(const_cast<EditorProjectState&>(project));
    }
    std::optional<Uuid> selectedID(const EditorSelectionState& selection) const {
        return selection.selectedID(selectionKind);
    }
    EditorSelectionState selection(const Uuid& id) const {
        return EditorSelectionState::of(selectionKind, id);
    }
};

inline constexpr ClipLane<AnimationClip> animationLane{
    AuxiliaryTimelineTrack::zoom,
    [](EditorProjectState& p) -> std::vector<AnimationClip>& { return p.animation.zoomClips; },
    EditorSelectionState::Kind::animationClip,
    "Zoom",
    "Add Zoom",
    "Delete Zoom",
    "Duplicate Zoom",
    "Change Zoom"};

inline constexpr ClipLane<CameraLayoutClip> cameraLayoutLane{
    AuxiliaryTimelineTrack::cameraLayout,
    [](EditorProjectState& p) -> std::vector<CameraLayoutClip>& {
        return p.camera.dynamicLayoutClips;
    },
    EditorSelectionState::Kind::cameraLayoutClip,
    "Camera Layout",
    "Add Camera Layout",
    "Delete Camera Layout",
    "Duplicate Layout",
    "Change Camera Layout"};

inline constexpr ClipLane<MaskClip> maskLane{
    AuxiliaryTimelineTrack::mask,
    [](EditorProjectState& p) -> std::vector<MaskClip>& { return p.mask.clips; },
    EditorSelectionState::Kind::maskClip,
    "Mask",
    "Add Mask",
    "Delete Mask",
    "Duplicate Mask",
    "Change Mask"};

inline constexpr ClipLane<MusicClip> musicLane{
    AuxiliaryTimelineTrack::music,
    [](EditorProjectState& p) -> std::vector<MusicClip>& { return p.music.clips; },
    EditorSelectionState::Kind::musicClip,
    "Music",
    "Add Music",
    "Delete Music",
    "Duplicate Music",
    "Change Music"};

inline constexpr ClipLane<TextClip> textLane{
    AuxiliaryTimelineTrack::text,
    [](EditorProjectState& p) -> std::vector<TextClip>& { return p.text.clips; },
    EditorSelectionState::Kind::textClip,
    "Text",
    "Add Text",
    "Delete Text",
    "Duplicate Text",
    "Change Text"};

// Calls body with the lane of a track.
template <class Body>
decltype(auto) withClipLane(AuxiliaryTimelineTrack track, Body&& body) {
    switch (track) {
    case AuxiliaryTimelineTrack::zoom:
        return std::forward<Body>(body)(animationLane);
    case AuxiliaryTimelineTrack::cameraLayout:
        return std::forward<Body>(body)(cameraLayoutLane);
    case AuxiliaryTimelineTrack::mask:
        return std::forward<Body>(body)(maskLane);
    case AuxiliaryTimelineTrack::music:
        return std::forward<Body>(body)(musicLane);
    case AuxiliaryTimelineTrack::text:
        break;
    }
    return std::forward<Body>(body)(textLane);
}

// Calls body with every lane, in the order zoom, camera layout, mask, music, text.
template <class Body>
void forEachClipLane(Body&& body) {
    body(animationLane);
    body(cameraLayoutLane);
    body(maskLane);
    body(musicLane);
    body(textLane);
}

// The ranges of a lane's clips, whatever the lane.
std::vector<LaneClipRange> laneClipRanges(const EditorProjectState& project,
                                          AuxiliaryTimelineTrack track);

} // namespace orvelle
