#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace orvelle {

// The whole file as bytes. Throws FileError naming the file and the system's reason.
std::string readFile(const std::filesystem::path& path);

// Writes a temporary file in the same folder, flushes it to disk and renames it over the
// target, so readers see either the old file or the whole new one, never a part.
// Throws FileError; on failure the temporary file is removed and the target is untouched.
void writeFileAtomically(const std::filesystem::path& path, std::string_view bytes);

// True if something (file, folder or link) exists at the path; never throws.
bool fileExists(const std::filesystem::path& path);

// Removes a file or folder tree, ignoring failure: used for clean-up only.
void removeIgnoringErrors(const std::filesystem::path& path);

} // namespace orvelle
