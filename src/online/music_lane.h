#pragma once

// What the editor's music lane does with a downloaded track: the file becomes a music
// segment of the take, and a clip of the track's length is placed on the lane at the
// nearest free space from the playhead.

#include "editor/editor_store.h"
#include "online/music_library.h"

#include <filesystem>
#include <optional>

namespace orvelle {

// The clip that was added; absent when the lane has no room (kMusicLaneFullMessage).
// Throws Error with kMusicUnreadableAudioMessage when the file holds no audio.
std::optional<MusicClip> addMusicTrackToLane(EditorStore& store, const MusicTrack& track,
                                             const std::filesystem::path& file, EditTime at);

} // namespace orvelle
