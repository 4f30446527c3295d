#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace orvelle {

// Files are held as paths in memory and written as "file://" URLs on disk.

// "file:///home/me/My%20Take.mov" for "/home/me/My Take.mov". A relative path is made
// absolute against the current directory first.
std::string fileURLString(const std::filesystem::path& path);

// The path of a "file://" URL (host empty or "localhost"), percent-decoded. An absolute
// plain path is accepted as it stands. Throws orvelle::Error on anything else.
std::filesystem::path pathFromFileURL(std::string_view url);

// Absolute, with "." and ".." resolved and no trailing separator; symbolic links are
// left alone. Two spellings of the same place compare equal after this.
std::filesystem::path standardizedPath(const std::filesystem::path& path);

std::string percentEncodePath(std::string_view path);
std::string percentDecode(std::string_view text);

// The path with its last extension replaced: ("a.b.mov", "take.json") gives "a.b.take.json";
// a name without an extension gets the new one appended.
std::filesystem::path replacingExtension(const std::filesystem::path& path,
                                         std::string_view extension);

// The last path component without its last extension.
std::string baseName(const std::filesystem::path& path);

} // namespace orvelle
