#pragma once

// How an export's movie is encoded: a mov holds ProRes 422 Proxy, an mp4 H.264 High at a bit
// rate that follows the picture's area and the quality; both with AAC, 48 kHz stereo at
// 192 kbit/s. Pure functions.

#include "platform/media/movie_writer.h"
#include "timeline_media/render_export_settings.h"

#include <cstdint>
#include <string_view>

namespace orvelle::RenderExportCodec {

inline constexpr int64_t kMinimumVideoBitRate = 2'500'000;
inline constexpr int64_t kAudioBitRate = 192'000;

// Bits a second: width * height * 2.8, 5.2 or 8.0 for standard, high and best, truncated,
// and never below 2.5 million.
int64_t videoBitRate(int width, int height, RenderExportQuality quality);

// The writer's settings; the quality has no effect on a mov.
MovieWriterSettings writerSettings(RenderExportFileType fileType, RenderExportQuality quality,
                                   int width, int height, int fps, bool withAudio);

// "H.264 High" or "ProRes 422 Proxy".
std::string_view videoCodecName(RenderExportFileType fileType);

} // namespace orvelle::RenderExportCodec
