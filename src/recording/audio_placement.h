#pragma once

// Continuous audio in a file whose clock starts at a given moment: where a captured
// buffer belongs. Sources hand audio with capture times; a file's audio runs without
// gaps from its start. A buffer that comes after a hole gets silence before it; one that
// overlaps what was written loses its front. Jitter below the tolerance is ignored.

#include <cstddef>
#include <cstdint>

namespace orvelle {

struct AudioPlacement {
    size_t silenceFrames = 0; // to write before the buffer
    size_t skipFrames = 0;    // to drop from the buffer's front (at most all of it)

    friend bool operator==(const AudioPlacement&, const AudioPlacement&) = default;
};

inline constexpr double kAudioPlacementTolerance = 0.02; // seconds

AudioPlacement placeAudio(double fileStart, int64_t framesWritten, int sampleRate,
                          double bufferTime, size_t bufferFrames);

} // namespace orvelle
