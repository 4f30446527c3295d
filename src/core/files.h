#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace orvelle {

// The whole file as bytes. Throws FileError naming the file and the system's reason.
std::string readFile(const std::filesystem::path& path);

// Writes a temporary file in the same folder, flushes it to disk and renames it over the
// target, so readers see either the old file or the whole new one, never a part.
// Throws FileError; on failure the temporary file is removed and the target is untouched.
// The new file gets `mode`, or else the mode of the file it replaces (0644 for a new one);
// it is never readable by others while it is written.
void writeFileAtomically(const std::filesystem::path& path, std::string_view bytes,
                         std::optional<std::filesystem::perms> mode = std::nullopt);

// True if something (file, folder or link) exists at the path; never throws.
bool fileExists(const std::filesystem::path& path);

// Removes a file or folder tree, ignoring failure: used for clean-up only.
void removeIgnoringErrors(const std::filesystem::path& path);

// A file made under a hidden name beside its destination (".partial-<pid>-<n>-<name>"), moved
// over the destination only once it is whole, so that a failure, a stop or a killed process
// never costs the file that was there. The name carries the writing process's id: partial
// files of processes that are gone are removed when the next one is made in their folder.
class PartialFile {
public:
    explicit PartialFile(std::filesystem::path destination);
    // Removes the partial file unless it was committed.
    ~PartialFile();
    PartialFile(const PartialFile&) = delete;
    PartialFile& operator=(const PartialFile&) = delete;

    // Where to write.
    const std::filesystem::path& path() const { return partial_; }
    const std::filesystem::path& destination() const { return destination_; }
    // Moves the finished file over the destination. Throws FileError.
    void commit();

private:
    std::filesystem::path destination_;
    std::filesystem::path partial_;
    bool committed_ = false;
};

// Removes the partial files in `folder` whose processes no longer run. Never throws.
void removeStalePartialFiles(const std::filesystem::path& folder);

} // namespace orvelle
