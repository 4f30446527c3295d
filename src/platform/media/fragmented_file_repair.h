#pragma once

// A fragmented movie or m4a whose writer was killed ends in a torn box: a fragment's index
// cut short makes the whole file unreadable, and a fragment whose samples are cut short
// claims more than it holds. Cutting the file back to its last whole fragment gives what
// was really kept.

#include <cstdint>
#include <filesystem>
#include <optional>

namespace orvelle {

// The length of the file up to the end of its last whole fragment (or of its header when no
// fragment is whole); absent when the file does not start like a movie. Never throws.
std::optional<std::uintmax_t> wholeFragmentsLength(const std::filesystem::path& path);

// Cuts the file back to wholeFragmentsLength. True when the file was already whole or was
// cut; false when it is no movie or could not be cut. For files no writer has open.
bool truncateToWholeFragments(const std::filesystem::path& path);

} // namespace orvelle
