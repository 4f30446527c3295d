#include "online/music_download_cache.h"

#include "core/files.h"
#include "core/json.h"
#include "core/log.h"
#include "core/xdg_paths.h"
#include "platform/crypto/sha256.h"

#include <cctype>

namespace orvelle::MusicDownloadCache {

namespace {

namespace fs = std::filesystem;

fs::path indexFile(const fs::path& directory) {
    return directory / "index.json";
}

// Identifiers and extensions come from the server: only their plain characters make a
// file name, so none can leave the folder.
std::string safeName(std::string_view text) {
    std::string name;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        name.push_back(std::isalnum(byte) != 0 || c == '-' || c == '_' ? c : '_');
    }
    return name.empty() ? "_" : name;
}

void writeIndex(const fs::path& directory, const std::map<std::string, Entry>& index) {
    Json entriesJson = Json::object();
    for (const auto& [id, entry] : index) {
        entriesJson[id] = {{"fileName", entry.fileName},
                           {"sha256", entry.sha256},
                           {"byteSize", entry.byteSize},
                           {"title", entry.title}};
    }
    try {
        writeJsonAtomically(indexFile(directory), {{"entries", entriesJson}});
    } catch (const std::exception& error) {
        logWarning("music", "the music cache's index could not be written: ", error.what());
    }
}

} // namespace

fs::path directoryURL() {
    return applicationSupportDirectory() / "MusicCache";
}

std::map<std::string, Entry> entries(const fs::path& directory) {
    std::map<std::string, Entry> index;
    try {
        const Json json = readJsonFile(indexFile(directory));
        const auto list = json.find("entries");
        if (list == json.end() || !list->is_object()) {
            return index;
        }
        for (const auto& [id, value] : list->items()) {
            try {
                const JsonObjectReader reader(value, {});
                Entry entry;
                entry.fileName = reader.required<std::string>("fileName");
                entry.sha256 = reader.required<std::string>("sha256");
                entry.byteSize = reader.value<std::int64_t>("byteSize", 0);
                entry.title = reader.value<std::string>("title", "");
                // An entry must name a file in this folder.
                if (fs::path(entry.fileName).filename() == entry.fileName &&
                    entry.fileName != ".." && entry.fileName != ".") {
                    index.emplace(id, std::move(entry));
                }
            } catch (const JsonDecodeError&) {
            }
        }
    } catch (const Error&) {
    }
    return index;
}

std::optional<fs::path> cachedFileURL(const std::string& trackID, const fs::path& directory) {
    auto index = entries(directory);
    const auto found = index.find(trackID);
    if (found == index.end()) {
        return std::nullopt;
    }
    const fs::path file = directory / found->second.fileName;
    std::string digest;
    try {
        digest = sha256HexOfFile(file);
    } catch (const Error&) {
    }
    if (!digest.empty() && digest == found->second.sha256) {
        return file;
    }
    logInfo("music", "a cached track was ", digest.empty() ? "missing" : "changed",
            "; it is dropped from the cache");
    removeIgnoringErrors(file);
    index.erase(found);
    writeIndex(directory, index);
    return std::nullopt;
}

fs::path store(std::string_view data, const std::string& trackID, const std::string& fileExtension,
               const std::string& title, const fs::path& directory) {
    std::error_code error;
    fs::create_directories(directory, error);
    if (error) {
        throw FileError("Could not create \"" + directory.string() + "\": " + error.message());
    }
    const std::string extension = fileExtension.empty() ? "mp3" : safeName(fileExtension);
    const std::string fileName = safeName(trackID) + "." + extension;
    fs::path file = directory / fileName;
    writeFileAtomically(file, data);
    auto index = entries(directory);
    index[trackID] = {fileName, sha256Hex(data), static_cast<std::int64_t>(data.size()), title};
    writeIndex(directory, index);
    return file;
}

std::uint64_t totalSizeBytes(const fs::path& directory) {
    std::uint64_t total = 0;
    std::error_code error;
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end;
         entry.increment(error)) {
        std::error_code sizeError;
        const auto size = entry->file_size(sizeError);
        if (!sizeError) {
            total += size;
        }
    }
    return total;
}

void clear(const fs::path& directory) {
    std::error_code error;
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end;
         entry.increment(error)) {
        removeIgnoringErrors(entry->path());
    }
}

} // namespace orvelle::MusicDownloadCache
