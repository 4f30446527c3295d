#pragma once

// Denoised copies of microphone files, made once and kept in a cache folder. A copy is keyed
// by the source's absolute path, size and modification time, so an edited or replaced file
// gets a fresh copy and an unchanged one is never processed twice. The copy is an m4a at the
// source's rate and channel count, made with a spectral noise gate (FFmpeg's afftdn) set to the
// noise floor measured in the file's quietest stretches, after a gentle high-pass, and lines
// up with its source to the sample. A copy is written under a temporary name and renamed, so
// a half-made file is never taken for a copy, and one left by a process that was killed is
// removed when the next copy is made here. Makes files: keep it off the main thread. Safe to
// use from several threads or processes on the same folder (the last rename wins; both copies
// are equal).

#include <filesystem>
#include <optional>

namespace orvelle {

class NoiseReductionCache {
public:
    // The default folder is "Denoised" in the user's cache folder of the application.
    NoiseReductionCache();
    explicit NoiseReductionCache(std::filesystem::path directory);

    const std::filesystem::path& directory() const { return directory_; }

    // Where the copy of `source` is or will be; absent when the source cannot be read.
    std::optional<std::filesystem::path> cachedURL(const std::filesystem::path& source) const;

    // The denoised copy of `source`, made now if needed. Absent (and logged) when the source
    // is missing or holds no readable audio, or the copy cannot be written.
    std::optional<std::filesystem::path> denoisedURL(const std::filesystem::path& source) const;

private:
    std::filesystem::path directory_;
};

// Writes a denoised copy of an audio file. Throws MediaError or FileError.
void writeDenoisedAudio(const std::filesystem::path& source,
                        const std::filesystem::path& destination);

} // namespace orvelle
