#pragma once

// The three local models (speech transcription, precise word timing, and the language
// model of the drafts and the paragraph pass), each in a folder of its own under the
// application's models, and how one is installed, checked and removed.
//
// An install is staged beside its folder, checked (the files the model needs, the SHA-256
// of a downloaded or given file, the checksums of a manifest it brings), given a manifest
// of its own ("orvelle-model.json": every file with its size and SHA-256), and only then
// moved into place; the model it replaces stays until the new one is there. Sources: a
// folder, a file (a .gguf, or a .tar/.tar.gz/.tgz/.tar.xz archive of the folder), or an
// http(s) URL of such a file, downloaded with resume into Models/.downloads.

#include "core/date.h"
#include "core/json.h"
#include "platform/http/http.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace orvelle {

enum class LocalModelKind { speech, alignment, language };

struct LocalModelDescription {
    LocalModelKind kind = LocalModelKind::speech;
    std::string id;   // "speech", "alignment", "language"
    std::string name; // for people
    std::filesystem::path folder;
    std::string contents; // what the folder must hold, said so that a user can get it
};

struct LocalModelFile {
    std::string path; // relative to the model's folder
    std::uint64_t size = 0;
    std::string sha256;
};

struct LocalModelManifest {
    static constexpr std::string_view kFileName = "orvelle-model.json";

    std::string model; // the catalogue id
    std::string source;
    Date installedAt;
    std::vector<LocalModelFile> files;
};

struct LocalModelStatus {
    bool installed = false; // the folder holds what the model needs
    std::string problem;    // why not, when it does not
    std::uint64_t size = 0; // bytes in the folder
    std::optional<LocalModelManifest> manifest;
};

namespace LocalModelCatalog {

std::vector<LocalModelDescription> all();
// Throws orvelle::Error naming the ids there are.
LocalModelDescription find(std::string_view id);
// What is wrong with a folder as this model, or nothing.
std::optional<std::string> layoutProblem(const LocalModelDescription& model,
                                         const std::filesystem::path& folder);
LocalModelStatus status(const LocalModelDescription& model);

} // namespace LocalModelCatalog

namespace LocalModelInstaller {

struct Options {
    std::optional<std::string> sha256; // of the file or download, checked before anything else
    std::function<void(const std::string& stage)> stage;        // "Downloading", "Checking", ...
    std::function<void(const HttpProgress& progress)> progress; // of a download
};

struct Result {
    std::filesystem::path folder;
    LocalModelManifest manifest;
    std::optional<std::string> sourceSHA256; // of a file or download source
    std::uint64_t resumedFrom = 0;           // bytes of a download kept from before
};

// Throws orvelle::Error in the system's words; nothing is left half-installed and an
// earlier install stays as it was. CancellationError once `stop` is requested.
Result install(const LocalModelDescription& model, const std::string& source,
               const Options& options = {}, const std::stop_token& stop = {});

// The layout, the manifest's checksums (a path that leaves the folder is refused) and, for
// the alignment bundle, its own manifest and checksums. Throws orvelle::Error saying what
// is wrong; returns the manifest.
LocalModelManifest verify(const LocalModelDescription& model);

// Removes the model's folder; false when there was none.
bool remove(const LocalModelDescription& model);

} // namespace LocalModelInstaller

template <>
struct JsonCoder<LocalModelManifest> {
    static LocalModelManifest decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const LocalModelManifest& manifest);
};

} // namespace orvelle
