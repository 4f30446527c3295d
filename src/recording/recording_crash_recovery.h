#pragma once

// Finishing a take whose process died: its files are found by name in its folder, laid end
// to end on the take's clock by their readable lengths, and given a manifest.

#include "project/recording_take_builder.h"

#include <filesystem>
#include <string_view>
#include <vector>

namespace orvelle {

namespace RecordingCrashRecovery {

struct AbandonedTake {
    std::filesystem::path screenURL;

    friend bool operator==(const AbandonedTake&, const AbandonedTake&) = default;
};

// Files shorter than this are left out of a recovered take.
inline constexpr double kMinimumSegmentDuration = 0.05;

// The takes that still carry their sentinel, in the store's listing order.
std::vector<AbandonedTake> scanForAbandonedTakes();

// File names in the order a person would sort them: runs of digits by value, the rest
// without regard to case.
bool naturalLess(std::string_view a, std::string_view b);

// The take's files of one track, in name order: the first movie and "-screen-" movies for
// the screen, "-<slug>-" files with the kind's extension for the others.
std::vector<std::filesystem::path> segmentFiles(const std::filesystem::path& screenURL,
                                                MediaTrackManifest::Kind kind);
// The files laid end to end from 0 by their readable lengths; files that do not open or
// are shorter than kMinimumSegmentDuration are skipped.
std::vector<RecordedMediaSegment> probedSegments(MediaTrackManifest::Kind kind,
                                                 const std::vector<std::filesystem::path>& urls);

// Writes the take's manifest from what its files hold and removes the sentinel. False when
// the folder cannot be read, holds no readable screen movie or the manifest cannot be
// written; the folder and the sentinel are then left as they were.
bool recover(const AbandonedTake& take);

} // namespace RecordingCrashRecovery

} // namespace orvelle
