#pragma once

// Internal helpers shared by the FFmpeg adapters; never included outside platform/media.

extern "C" {
#include <libavutil/error.h>
}

#include "platform/media/media_error.h"

#include <string>

namespace orvelle::detail {

inline std::string ffmpegErrorText(int code) {
    char buffer[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, buffer, sizeof buffer);
    return buffer;
}

// "Could not open \"x.mov\" (No such file or directory)"
[[noreturn]] inline void throwMediaError(const std::string& what, int code) {
    throw MediaError(what + " (" + ffmpegErrorText(code) + ")");
}

} // namespace orvelle::detail
