#pragma once

// Where orvelle-x11-painter draws its tick counter, for the tests that read it back: a
// row of square blocks at the window's top left, bit 0 first, white for 1 and black for
// 0, on a solid background.

namespace orvelle::painter {

inline constexpr int kCounterBits = 12;
inline constexpr int kBlock = 24; // pixels a side
inline constexpr int kMargin = 8; // from the window's left and top edges
// The background, as red, green and blue.
inline constexpr int kBackgroundRed = 40;
inline constexpr int kBackgroundGreen = 120;
inline constexpr int kBackgroundBlue = 200;

} // namespace orvelle::painter
