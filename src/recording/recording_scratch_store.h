#pragma once

// Where a take's files live until the user keeps them: one folder per take under
// "$XDG_DATA_HOME/Orvelle/Captures". A take in progress carries a sentinel file naming its
// first movie, so that a take whose process died is found at the next start. Every removal
// here stays inside the store and ignores failure.

#include "core/date.h"
#include "core/error.h"

#include <filesystem>
#include <vector>

namespace orvelle {

class RecordingScratchStoreError : public Error {
public:
    using Error::Error;
    // "Could not prepare Orvelle recording storage."
    static RecordingScratchStoreError missingApplicationSupportDirectory();
};

namespace RecordingScratchStore {

inline constexpr const char* kSentinelName = ".orvelle-recording-in-progress";

// The store's root; made with its parents when `create`. Throws RecordingScratchStoreError.
std::filesystem::path capturesDirectory(bool create);
// "Orvelle Recording yyyy-MM-dd HH.mm.ss" in local time.
std::string baseName(Date date);
// A new take folder "<base>-<UUID>/" and the URL of its first movie "<base>.mov" inside it.
// Throws RecordingScratchStoreError or FileError.
std::filesystem::path makeScreenRecordingURL(Date date);

// The sentinel beside the movie holds the movie's file name. Failures are ignored. The
// process that writes it holds a lock on it until it removes it (or dies), so that another
// process can tell a live take from an abandoned one.
void writeRecordingSentinel(const std::filesystem::path& screenURL);
void removeRecordingSentinel(const std::filesystem::path& screenURL);
// True while a process holds the take's sentinel: it is being recorded.
bool isRecordingInProgress(const std::filesystem::path& screenURL);

// The first movies of the takes whose sentinel is still there and held by no process, in
// listing order. A folder whose sentinel names a missing file is removed. Never throws.
std::vector<std::filesystem::path> abandonedRecordingScreenURLs();
// Removes the folder holding the movie, whole; nothing outside the store.
void deleteAbandonedTakeDirectory(const std::filesystem::path& screenURL);
// True when the path is the store's root or inside it.
bool isManagedCaptureURL(const std::filesystem::path& url);
// Removes the take's media (from its manifest when it loads), the movie, manifest, pointer
// file and transcript sidecars, then the folder if that leaves it empty and it is in the
// store.
void deleteRecordingFiles(const std::filesystem::path& screenURL);

} // namespace RecordingScratchStore

} // namespace orvelle
