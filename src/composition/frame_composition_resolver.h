#pragma once

// Small pieces of frame geometry shared by the preview and the export: where the recording
// sits on the stage, and how a click presses the pointer.

#include "composition/geometry.h"
#include "project/cursor_recording.h"

#include <span>

namespace orvelle {

namespace FrameCompositionResolver {

// The largest rectangle of the movie's aspect inside the container, in whole points (each
// side truncated). Negative container sides count as 0; an empty container gives zero, a
// movie without a positive size gives the container.
Size embeddedVideoSize(Size movie, Size container);

// Where the recorded picture lies inside the embedded rectangle: its aspect fitted and
// centred, in the embedded rectangle's coordinates. A movie without a positive size fills
// the rectangle.
Rect movieRect(Size movie, Size embedded);

// The pointer's press scale at a source time: the latest click at or before it that is at
// most 0.22 s old presses; otherwise 1. Clicks in time order.
double clickScale(double time, std::span<const CursorClick> clicks);

} // namespace FrameCompositionResolver

namespace CursorClickVisualEffect {

inline constexpr double kPressDuration = 0.07;
inline constexpr double kReleaseDuration = 0.15;
inline constexpr double kDuration = 0.22;

// Presses to 0.84 over 0.07 s and springs back over 0.15 s; 1 outside [0, 0.22].
double scale(double elapsed);

} // namespace CursorClickVisualEffect

} // namespace orvelle
