#include "online/music_lane.h"

#include "platform/media/media_probe.h"

namespace orvelle {

std::optional<MusicClip> addMusicTrackToLane(EditorStore& store, const MusicTrack& track,
                                             const std::filesystem::path& file, EditTime at) {
    double duration = 0;
    try {
        const MediaProbe probe = probeMediaFile(file);
        if (const AudioStreamInfo* audio = probe.firstAudio()) {
            duration = probe.lengthOf(*audio);
        }
    } catch (const Error&) {
    }
    if (!(duration > 0)) {
        throw Error(kMusicUnreadableAudioMessage);
    }
    MusicClip clip;
    clip.id = Uuid::random();
    clip.start = at;
    clip.end = EditTime(at.seconds + duration);
    clip.title = track.title;
    // Placed first, so that a full lane leaves the manifest as it was; the clip learns its
    // segment inside the same undo step.
    store.beginUndoTransaction("Add Music");
    std::optional<MusicClip> placed = store.addMusicClip(clip);
    if (placed) {
        const std::string segment = store.registerMusicSegment(file, duration);
        placed =
            store.updateMusicClip(placed->id, [&](MusicClip& added) { added.segmentID = segment; });
    }
    store.endUndoTransaction();
    return placed;
}

} // namespace orvelle
