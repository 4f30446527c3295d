#include "recording/recording_crash_recovery.h"

#include "core/log.h"
#include "platform/media/fragmented_file_repair.h"
#include "platform/media/media_probe.h"
#include "project/cursor_recording.h"
#include "recording/recording_scratch_store.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <system_error>

namespace orvelle::RecordingCrashRecovery {

namespace fs = std::filesystem;

namespace {

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

std::string_view extensionOf(MediaTrackManifest::Kind kind) {
    return kind == MediaTrackManifest::Kind::microphone ? "m4a" : "mov";
}

} // namespace

std::vector<AbandonedTake> scanForAbandonedTakes() {
    std::vector<AbandonedTake> takes;
    for (auto& url : RecordingScratchStore::abandonedRecordingScreenURLs()) {
        takes.push_back({std::move(url)});
    }
    return takes;
}

bool naturalLess(std::string_view a, std::string_view b) {
    size_t i = 0;
    size_t j = 0;
    while (i < a.size() && j < b.size()) {
        if (isDigit(a[i]) && isDigit(b[j])) {
            size_t endA = i;
            size_t endB = j;
            while (endA < a.size() && isDigit(a[endA])) {
                ++endA;
            }
            while (endB < b.size() && isDigit(b[endB])) {
                ++endB;
            }
            std::string_view digitsA = a.substr(i, endA - i);
            std::string_view digitsB = b.substr(j, endB - j);
            while (digitsA.size() > 1 && digitsA.front() == '0') {
                digitsA.remove_prefix(1);
            }
            while (digitsB.size() > 1 && digitsB.front() == '0') {
                digitsB.remove_prefix(1);
            }
            if (digitsA.size() != digitsB.size()) {
                return digitsA.size() < digitsB.size();
            }
            if (digitsA != digitsB) {
                return digitsA < digitsB;
            }
            i = endA;
            j = endB;
            continue;
        }
        const int ca = std::tolower(static_cast<unsigned char>(a[i]));
        const int cb = std::tolower(static_cast<unsigned char>(b[j]));
        if (ca != cb) {
            return ca < cb;
        }
        ++i;
        ++j;
    }
    return a.size() - i < b.size() - j;
}

std::vector<fs::path> segmentFiles(const fs::path& screenURL, MediaTrackManifest::Kind kind) {
    const fs::path folder = screenURL.parent_path();
    const std::string firstName = screenURL.filename().string();
    const std::string base = screenURL.stem().string();
    const std::string extension = "." + std::string(extensionOf(kind));
    const std::string marker = "-" + std::string(MediaTrackManifest::fileSlug(kind)) + "-";
    std::vector<fs::path> urls;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error)) {
        const fs::path& path = entry.path();
        const std::string name = path.filename().string();
        if (path.extension() != extension) {
            continue;
        }
        const bool matches = kind == MediaTrackManifest::Kind::screen
                                 ? (name == firstName || name.starts_with(base + marker))
                                 : name.find(marker) != std::string::npos;
        if (matches) {
            urls.push_back(path);
        }
    }
    std::sort(urls.begin(), urls.end(), [](const fs::path& a, const fs::path& b) {
        return naturalLess(a.filename().string(), b.filename().string());
    });
    if (kind == MediaTrackManifest::Kind::screen) {
        const auto first = std::find(urls.begin(), urls.end(), screenURL);
        if (first != urls.end()) {
            std::rotate(urls.begin(), first, first + 1);
        }
    }
    return urls;
}

std::vector<RecordedMediaSegment> probedSegments(MediaTrackManifest::Kind kind,
                                                 const std::vector<fs::path>& urls) {
    std::vector<RecordedMediaSegment> segments;
    double programStart = 0;
    for (const auto& url : urls) {
        double duration = 0;
        std::optional<int> width;
        std::optional<int> height;
        // A writer killed inside a fragment leaves a torn box at the end, which would hide
        // the whole file or claim samples it does not hold.
        truncateToWholeFragments(url);
        try {
            const MediaProbe probe = probeMediaFile(url);
            duration = probe.duration;
            if (const auto* video = probe.firstVideo()) {
                width = video->codedWidth;
                height = video->codedHeight;
            }
        } catch (const Error& error) {
            logInfo("Recovery", "skipping ", url.filename().string(), ": ", error.what());
        }
        if (!std::isfinite(duration) || duration <= kMinimumSegmentDuration) {
            continue;
        }
        RecordedMediaSegment segment;
        segment.kind = kind;
        segment.url = url;
        segment.programStart = programStart;
        segment.duration = duration;
        segment.mediaStart = 0;
        segment.mediaDuration = duration;
        if (kind != MediaTrackManifest::Kind::microphone) {
            segment.width = width;
            segment.height = height;
        }
        segment.trackID = std::string(MediaTrackManifest::defaultTrackID(kind));
        segments.push_back(std::move(segment));
        programStart += duration;
    }
    return segments;
}

bool recover(const AbandonedTake& take) {
    const fs::path folder = take.screenURL.parent_path();
    if (RecordingScratchStore::isRecordingInProgress(take.screenURL)) {
        return false; // a live recording in another process: its files are still growing
    }
    std::error_code error;
    fs::directory_iterator listing(folder, error);
    if (error) {
        return false;
    }
    using Kind = MediaTrackManifest::Kind;
    const auto screenFiles = segmentFiles(take.screenURL, Kind::screen);
    if (screenFiles.empty()) {
        return false;
    }
    const auto screen = probedSegments(Kind::screen, screenFiles);
    if (screen.empty()) {
        return false;
    }
    const auto camera = probedSegments(Kind::camera, segmentFiles(take.screenURL, Kind::camera));
    const auto microphone =
        probedSegments(Kind::microphone, segmentFiles(take.screenURL, Kind::microphone));
    std::optional<fs::path> cursorURL;
    if (fs::exists(CursorRecording::fileURL(take.screenURL), error)) {
        cursorURL = CursorRecording::fileURL(take.screenURL);
    }
    try {
        TakeManifestWriter::write(take.screenURL, screen, camera, microphone, cursorURL);
    } catch (const Error& failure) {
        logError("Recovery", "the manifest of ", take.screenURL.string(),
                 " could not be written: ", failure.what());
        return false;
    }
    RecordingScratchStore::removeRecordingSentinel(take.screenURL);
    return true;
}

} // namespace orvelle::RecordingCrashRecovery
