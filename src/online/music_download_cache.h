#pragma once

// Downloaded music on disk: <application support>/MusicCache with one file per track and
// index.json, which maps each track identifier to its file, the file's SHA-256, size and
// title. A file that no longer matches its checksum is removed at the next look-up, so a
// hit is always the bytes that were downloaded. Nothing is evicted on its own: the cache
// keeps what it got (short tracks) until it is cleared.

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace orvelle::MusicDownloadCache {

struct Entry {
    std::string fileName;
    std::string sha256; // lower-case hexadecimal
    std::int64_t byteSize = 0;
    std::string title;

    friend bool operator==(const Entry&, const Entry&) = default;
};

std::filesystem::path directoryURL();

// The index; empty when it is missing or unreadable.
std::map<std::string, Entry> entries(const std::filesystem::path& directory = directoryURL());

// The file of the track when it is there and matches its checksum. A missing or changed
// file loses its entry (and the file), and gives absent.
std::optional<std::filesystem::path>
cachedFileURL(const std::string& trackID, const std::filesystem::path& directory = directoryURL());

// Writes the track's file ("<id>.<extension>", "mp3" when none is given) and its index
// entry; returns the file. Throws FileError when the file cannot be written; a failure to
// write the index is only logged.
std::filesystem::path store(std::string_view data, const std::string& trackID,
                            const std::string& fileExtension, const std::string& title,
                            const std::filesystem::path& directory = directoryURL());

// Every file in the folder, the index included.
std::uint64_t totalSizeBytes(const std::filesystem::path& directory = directoryURL());

// Removes everything in the folder.
void clear(const std::filesystem::path& directory = directoryURL());

} // namespace orvelle::MusicDownloadCache
