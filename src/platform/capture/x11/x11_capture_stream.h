#pragma once

// A paced screen stream from an X display: at each tick of the capture clock the area or
// the window is read through MIT-SHM (plain GetImage where shared memory is missing) into
// a frame of the stream's pool. The X server never puts the pointer in these pictures.
//
// A window is followed wherever it moves; the parts of it off the screen come out black.
// A window that closes or is hidden ends the stream through streamDidStop.

#include "platform/capture/capture_types.h"

#include <memory>
#include <string>

namespace orvelle {

struct X11CaptureTarget {
    enum class Kind { screenArea, window };
    Kind kind = Kind::screenArea;
    CaptureRect area;    // screenArea: in screen pixels, top-left origin
    uint32_t window = 0; // window: its X id
};

// `displayName` empty means $DISPLAY. The pictures have the configuration's size: an
// area is read from its top left corner at that size, a window from its own. Throws Error
// when the display cannot be reached or cannot be read in 24-bit colour.
std::unique_ptr<CaptureStream> makeX11CaptureStream(const std::string& displayName,
                                                    const X11CaptureTarget& target,
                                                    const CaptureStreamConfiguration& configuration,
                                                    CaptureStreamOutput& output);

} // namespace orvelle
