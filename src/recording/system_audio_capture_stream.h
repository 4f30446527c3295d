#pragma once

// System audio beside a screen stream: what the desktop's speakers play (the default
// sink's monitor on the sound server), delivered to the same output as the stream's
// pictures, timed on the same monotonic clock. Either backend's stream can carry it; the
// screen writer places the sound in its movie by those times.
//
// Sound of this program is not left out: it plays nothing while it records.

#include "platform/capture/capture_types.h"

#include <memory>

namespace orvelle {

// `stream` with system audio to `output` (the stream's own output). The sound starts after
// the pictures and stops before them; a sound server that goes away mid-run leaves the
// rest of the movie silent, with a warning in the log. Throws Error when system audio
// cannot be recorded at all (no sound server), saying what to do.
std::unique_ptr<CaptureStream> withSystemAudio(std::unique_ptr<CaptureStream> stream,
                                               CaptureStreamOutput& output);

} // namespace orvelle
