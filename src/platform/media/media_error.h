#pragma once

#include "core/error.h"

namespace orvelle {

// A media file could not be opened, read or written. The text carries FFmpeg's own
// reason after our description of what was being done.
class MediaError : public Error {
public:
    using Error::Error;
};

} // namespace orvelle
