#pragma once

// Pulls the pictures of one video track of a composition for any edit time: the insertion
// playing at that time, the file time it maps to, and the frame on screen there. Frame-
// accurate for seeks (the preview's scrubbing) and cheap for a run of increasing times (the
// export pump), which decode forward without seeking. Keeps at most two files open.
// Not thread-safe: one reader per consumer. Decoding failures throw MediaError.

#include "platform/media/video_decoder.h"
#include "timeline_media/media_composition.h"

#include <cstdint>
#include <memory>
#include <optional>

namespace orvelle {

struct CompositionVideoSample {
    size_t insertionIndex = 0; // in the track's insertions
    int mediaID = 0;
    double mediaTime = 0; // seconds on the file's clock that the edit time maps to

    friend bool operator==(const CompositionVideoSample&, const CompositionVideoSample&) = default;
};

class CompositionVideoReader {
public:
    // Throws MediaError when the composition has no such video track.
    CompositionVideoReader(MediaComposition composition, int32_t trackID,
                           VideoDecoderOptions options = {});
    ~CompositionVideoReader();
    CompositionVideoReader(const CompositionVideoReader&) = delete;
    CompositionVideoReader& operator=(const CompositionVideoReader&) = delete;

    // The picture on screen at `editSeconds`, into `frame` (its storage is reused; its
    // presentationTime stays on the file's clock). Absent where no insertion plays (a stretch
    // of the take without media: the caller keeps showing its last picture) or where the
    // file ends before the insertion does.
    std::optional<CompositionVideoSample> frameAt(double editSeconds, VideoFrame& frame);

    // Where an edit time lands without decoding anything.
    std::optional<CompositionVideoSample> sampleAt(double editSeconds) const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace orvelle
