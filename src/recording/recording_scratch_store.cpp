#include "recording/recording_scratch_store.h"

#include "core/files.h"
#include "core/uuid.h"
#include "core/xdg_paths.h"
#include "project/cursor_recording.h"
#include "project/orvelle_project_package.h"
#include "project/take_manifest.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <map>
#include <mutex>
#include <system_error>

namespace orvelle {

namespace fs = std::filesystem;

RecordingScratchStoreError RecordingScratchStoreError::missingApplicationSupportDirectory() {
    return RecordingScratchStoreError("Could not prepare Orvelle recording storage.");
}

namespace RecordingScratchStore {

namespace {

// The sentinels this process holds locked, by path.
std::mutex& heldSentinelsMutex() {
    static std::mutex mutex;
    return mutex;
}
std::map<fs::path, int>& heldSentinels() {
    static std::map<fs::path, int> held;
    return held;
}

std::string trimmed(std::string text) {
    const auto isSpace = [](char c) {
        return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
    };
    while (!text.empty() && isSpace(text.back())) {
        text.pop_back();
    }
    size_t start = 0;
    while (start < text.size() && isSpace(text[start])) {
        ++start;
    }
    return text.substr(start);
}

fs::path standardised(const fs::path& path) {
    std::error_code error;
    fs::path absolute = fs::absolute(path, error);
    if (error) {
        return {};
    }
    fs::path normal = absolute.lexically_normal();
    if (!normal.has_filename() && normal != normal.root_path()) {
        normal = normal.parent_path();
    }
    return normal;
}

void deleteParentDirectoryIfEmpty(const fs::path& screenURL) {
    const fs::path folder = screenURL.parent_path();
    if (!isManagedCaptureURL(folder) ||
        standardised(folder) == standardised(capturesDirectory(false))) {
        return;
    }
    std::error_code error;
    if (fs::is_empty(folder, error) && !error) {
        fs::remove(folder, error);
    }
}

} // namespace

fs::path capturesDirectory(bool create) {
    const fs::path support = applicationSupportDirectory();
    if (support.empty()) {
        throw RecordingScratchStoreError::missingApplicationSupportDirectory();
    }
    fs::path root = support / "Captures";
    if (create) {
        std::error_code error;
        fs::create_directories(root, error);
        if (error || !fs::is_directory(root)) {
            throw RecordingScratchStoreError::missingApplicationSupportDirectory();
        }
    }
    return root;
}

std::string baseName(Date date) {
    const auto seconds = static_cast<std::time_t>(date.millisecondsSince1970 / 1000);
    std::tm local{};
    localtime_r(&seconds, &local);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H.%M.%S", &local);
    return std::string("Orvelle Recording ") + text;
}

fs::path makeScreenRecordingURL(Date date) {
    const fs::path root = capturesDirectory(true);
    const std::string base = baseName(date);
    const fs::path folder = root / (base + "-" + Uuid::random().string());
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) {
        throw FileError("Could not make the take's folder \"" + folder.string() +
                        "\": " + error.message() +
                        ". Free some space or check the folder's "
                        "permissions, then record again.");
    }
    return folder / (base + ".mov");
}

void writeRecordingSentinel(const fs::path& screenURL) {
    const fs::path sentinel = screenURL.parent_path() / kSentinelName;
    try {
        writeFileAtomically(sentinel, screenURL.filename().string());
    } catch (const Error&) {
        return; // without a sentinel the take is only not offered for recovery
    }
    const int fd = ::open(sentinel.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return;
    }
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        ::close(fd);
        return;
    }
    std::lock_guard lock(heldSentinelsMutex());
    auto& held = heldSentinels();
    if (const auto old = held.find(sentinel); old != held.end()) {
        ::close(old->second);
    }
    held[sentinel] = fd;
}

void removeRecordingSentinel(const fs::path& screenURL) {
    const fs::path sentinel = screenURL.parent_path() / kSentinelName;
    removeIgnoringErrors(sentinel);
    std::lock_guard lock(heldSentinelsMutex());
    auto& held = heldSentinels();
    if (const auto entry = held.find(sentinel); entry != held.end()) {
        ::close(entry->second);
        held.erase(entry);
    }
}

bool isRecordingInProgress(const fs::path& screenURL) {
    const fs::path sentinel = screenURL.parent_path() / kSentinelName;
    {
        std::lock_guard lock(heldSentinelsMutex());
        if (heldSentinels().contains(sentinel)) {
            return true; // this very process records it
        }
    }
    const int fd = ::open(sentinel.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    const bool held = ::flock(fd, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    ::close(fd);
    return held;
}

std::vector<fs::path> abandonedRecordingScreenURLs() {
    std::vector<fs::path> result;
    fs::path root;
    try {
        root = capturesDirectory(false);
    } catch (const Error&) {
        return result;
    }
    std::error_code error;
    fs::directory_iterator entries(root, error);
    if (error) {
        return result;
    }
    std::vector<fs::path> folders;
    for (const auto& entry : entries) {
        folders.push_back(entry.path());
    }
    std::sort(folders.begin(), folders.end());
    for (const fs::path& folder : folders) {
        std::string name;
        try {
            name = trimmed(readFile(folder / kSentinelName));
        } catch (const Error&) {
            continue; // no sentinel: a finished take or something else, left alone
        }
        const fs::path screenURL = folder / name;
        if (isRecordingInProgress(screenURL)) {
            continue; // recorded right now by a process that is alive
        }
        if (!name.empty() && name.find('/') == std::string::npos &&
            fs::is_regular_file(screenURL, error)) {
            result.push_back(screenURL);
        } else {
            // The sentinel names nothing that is there: nothing of the take can be recovered.
            removeIgnoringErrors(folder);
        }
    }
    return result;
}

bool isManagedCaptureURL(const fs::path& url) {
    try {
        const fs::path root = standardised(capturesDirectory(false));
        const fs::path path = standardised(url);
        if (root.empty() || path.empty()) {
            return false;
        }
        const std::string rootText = root.string();
        const std::string pathText = path.string();
        return pathText == rootText || pathText.starts_with(rootText + "/");
    } catch (const std::exception&) {
        return false;
    }
}

void deleteAbandonedTakeDirectory(const fs::path& screenURL) {
    const fs::path folder = standardised(screenURL).parent_path();
    if (!isManagedCaptureURL(folder) ||
        standardised(folder) == standardised(capturesDirectory(false))) {
        return;
    }
    removeIgnoringErrors(folder);
}

void deleteRecordingFiles(const fs::path& screenURL) {
    std::vector<fs::path> urls;
    if (const auto manifest = TakeManifest::load(screenURL)) {
        urls = manifest->mediaURLs();
    }
    urls.push_back(screenURL);
    urls.push_back(TakeManifest::sidecarURL(screenURL));
    urls.push_back(CursorRecording::fileURL(screenURL));
    for (const auto& sidecar : OrvelleProjectPackage::transcriptSidecarURLs(screenURL)) {
        urls.push_back(sidecar);
    }
    for (const auto& url : urls) {
        std::error_code error;
        fs::remove(url, error);
    }
    deleteParentDirectoryIfEmpty(screenURL);
}

} // namespace RecordingScratchStore

} // namespace orvelle
