#pragma once

// TEST ONLY. The program never writes a rotated movie, but phones and other cameras do: a
// movie whose container says "turn this by 90 degrees on display". This copies a movie's
// packets unchanged into a new file that carries such a display rotation, so that tests can
// check that a rotated movie reports its displayed shape.

#include <filesystem>

namespace orvelle::testing {

// Counter-clockwise degrees, as the display matrix has them. Throws std::runtime_error.
void copyMovieWithRotation(const std::filesystem::path& source, const std::filesystem::path& target,
                           double rotationDegrees);

} // namespace orvelle::testing
