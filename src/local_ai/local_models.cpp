#include "local_ai/local_models.h"

#include "core/cancellation.h"
#include "core/files.h"
#include "platform/crypto/sha256.h"
#include "platform/process/process.h"
#include "speech/align/alignment_error.h"
#include "speech/align/alignment_model_bundle.h"
#include "speech/transcript/orvelle_model_storage.h"
#include "speech/transcript/transcript_model_locator.h"

#include <algorithm>
#include <fstream>
#include <random>

namespace orvelle {

namespace fs = std::filesystem;

namespace {

bool isURL(std::string_view source) {
    return source.starts_with("http://") || source.starts_with("https://");
}

bool isArchive(const fs::path& file) {
    const std::string name = file.filename().string();
    for (const auto* suffix : {".tar", ".tar.gz", ".tgz", ".tar.xz", ".tar.zst", ".tar.bz2"}) {
        if (name.ends_with(suffix)) {
            return true;
        }
    }
    return false;
}

bool startsWithGGUFMagic(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    char magic[4] = {};
    stream.read(magic, 4);
    return stream.gcount() == 4 && std::string_view(magic, 4) == "GGUF";
}

std::string randomSuffix() {
    std::random_device device;
    return std::to_string(device() % 1000000);
}

// Every regular file under the folder, relative, in name order (the manifest excepted).
std::vector<std::string> filesUnder(const fs::path& folder) {
    std::vector<std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        if (entry.is_regular_file()) {
            const auto relative = entry.path().lexically_relative(folder).generic_string();
            if (relative != LocalModelManifest::kFileName) {
                files.push_back(relative);
            }
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::uint64_t folderSize(const fs::path& folder) {
    std::uint64_t size = 0;
    std::error_code error;
    for (auto entry = fs::recursive_directory_iterator(folder, error);
         !error && entry != fs::recursive_directory_iterator(); entry.increment(error)) {
        if (entry->is_regular_file(error)) {
            size += entry->file_size(error);
        }
    }
    return size;
}

// Checks each file of a manifest under `root`; throws naming the first that fails.
void checkManifestFiles(const fs::path& root, const LocalModelManifest& manifest,
                        const std::function<void()>& onEach = {}) {
    for (const auto& file : manifest.files) {
        const auto resolved = resolveBundlePath(root, file.path);
        if (!resolved) {
            throw Error("The model's manifest names a file outside its folder: '" + file.path +
                        "'. Nothing was installed from it.");
        }
        if (!fs::is_regular_file(*resolved)) {
            throw Error("The model file " + file.path + " is missing from " + root.string() + ".");
        }
        if (onEach) {
            onEach();
        }
        const std::string actual = sha256HexOfFile(*resolved);
        if (actual != file.sha256) {
            throw Error("The model file " + file.path + " does not match its checksum (SHA-256 " +
                        actual + ", expected " + file.sha256 + ").");
        }
    }
}

// A staging folder beside the model's folder that goes unless it is kept.
class StagingFolder {
public:
    explicit StagingFolder(const fs::path& target)
        : path_(target.parent_path() /
                ("." + target.filename().string() + ".install-" + randomSuffix())) {
        fs::create_directories(path_);
    }
    ~StagingFolder() {
        if (!kept_) {
            removeIgnoringErrors(path_);
        }
    }
    StagingFolder(const StagingFolder&) = delete;
    StagingFolder& operator=(const StagingFolder&) = delete;
    const fs::path& path() const { return path_; }
    void keep() { kept_ = true; }

private:
    fs::path path_;
    bool kept_ = false;
};

// Unpacks an archive with tar; an archive of one folder gives that folder's contents.
void unpack(const fs::path& archive, const fs::path& into, const std::stop_token& stop) {
    ProcessOptions options;
    options.arguments = {"-xf", archive.string(), "-C", into.string(), "--no-same-owner"};
    const auto tar = findExecutableInPath("tar");
    if (!tar) {
        throw Error("tar is needed to unpack " + archive.filename().string() + " but is missing.");
    }
    const auto result = runProcess(*tar, options, stop);
    if (result.status != 0) {
        throw Error("Could not unpack " + archive.string() + ": " + result.error);
    }
    std::vector<fs::path> entries;
    for (const auto& entry : fs::directory_iterator(into)) {
        entries.push_back(entry.path());
    }
    if (entries.size() == 1 && fs::is_directory(entries.front())) {
        const auto inner = entries.front();
        const auto moved = into / ("." + randomSuffix());
        fs::rename(inner, moved);
        for (const auto& entry : fs::directory_iterator(moved)) {
            fs::rename(entry.path(), into / entry.path().filename());
        }
        fs::remove(moved);
    }
}

std::string describe(LocalModelKind kind) {
    switch (kind) {
    case LocalModelKind::speech:
        return "speech transcription model";
    case LocalModelKind::alignment:
        return "precise word timing model";
    case LocalModelKind::language:
        return "text assistant model";
    }
    return "model";
}

} // namespace

namespace LocalModelCatalog {

std::vector<LocalModelDescription> all() {
    return {
        {LocalModelKind::speech, "speech", "Speech transcription (Parakeet TDT 0.6B v3)",
         OrvelleModelStorage::parakeetModelDirectory(),
         "the Parakeet TDT 0.6B v3 model for ONNX Runtime: encoder.onnx, decoder.onnx, "
         "joint.onnx and tokenizer.json, or encoder-model.onnx, decoder_joint-model.onnx and "
         "vocab.txt"},
        {LocalModelKind::alignment, "alignment", "Precise word timing (wav2vec2 base 960h)",
         OrvelleModelStorage::preciseWordTimingModelDirectory(),
         "a wav2vec2 CTC model bundle: model_manifest.json with the ONNX model and its "
         "vocabulary it names"},
        {LocalModelKind::language, "language", "Text assistant (Qwen, GGUF)",
         OrvelleModelStorage::youtubeMetadataModelDirectory(),
         "one Qwen instruct model in GGUF form (a .gguf file), run by llama.cpp"},
    };
}

LocalModelDescription find(std::string_view id) {
    std::string known;
    for (auto& model : all()) {
        if (model.id == id) {
            return model;
        }
        known += (known.empty() ? "" : ", ") + model.id;
    }
    throw Error("There is no model called '" + std::string(id) + "'. The models are " + known +
                ".");
}

std::optional<std::string> layoutProblem(const LocalModelDescription& model,
                                         const fs::path& folder) {
    if (!fs::is_directory(folder)) {
        return "The " + describe(model.kind) + " is not installed.";
    }
    switch (model.kind) {
    case LocalModelKind::speech:
        if (!TranscriptModelLocator::isParakeetTDTModelRoot(folder)) {
            return "The folder does not hold " + model.contents + ".";
        }
        return std::nullopt;
    case LocalModelKind::alignment:
        try {
            AlignmentModelBundle::load(folder).validateInstalledFilesStrict();
        } catch (const Error& error) {
            return error.what();
        }
        return std::nullopt;
    case LocalModelKind::language:
        for (const auto& entry : fs::directory_iterator(folder)) {
            if (entry.path().extension() == ".gguf" && startsWithGGUFMagic(entry.path())) {
                return std::nullopt;
            }
        }
        return "The folder holds no GGUF model file.";
    }
    return std::nullopt;
}

LocalModelStatus status(const LocalModelDescription& model) {
    LocalModelStatus result;
    const auto problem = layoutProblem(model, model.folder);
    result.installed = !problem;
    result.problem = problem.value_or("");
    if (fs::is_directory(model.folder)) {
        result.size = folderSize(model.folder);
        const auto manifest = model.folder / LocalModelManifest::kFileName;
        if (fs::exists(manifest)) {
            try {
                result.manifest = decodeJson<LocalModelManifest>(readJsonFile(manifest));
            } catch (const Error&) {
            }
        }
    }
    return result;
}

} // namespace LocalModelCatalog

namespace LocalModelInstaller {

Result install(const LocalModelDescription& model, const std::string& source,
               const Options& options, const std::stop_token& stop) {
    const auto say = [&options](const std::string& stage) {
        if (options.stage) {
            options.stage(stage);
        }
    };
    Result result;
    fs::create_directories(model.folder.parent_path());
    fs::path input = source;
    std::optional<fs::path> download;
    if (isURL(source)) {
        const std::string name = fs::path(source.substr(0, source.find('?'))).filename().string();
        download = model.folder.parent_path() / ".downloads" / (model.id + "-" + name + ".part");
        say("Downloading " + source);
        HttpRequest request;
        request.url = source;
        request.stallTimeout = std::chrono::seconds(60);
        const auto fetched = downloadHttpFile(
            request, *download, true,
            [&options](const HttpProgress& step) {
                if (options.progress) {
                    options.progress(step);
                }
            },
            stop);
        result.resumedFrom = fetched.resumedFrom;
        // The file keeps the name the server gave it, so its type is known.
        input = *download;
    } else if (!fs::exists(input)) {
        throw Error("There is nothing at " + source + " to install.");
    }

    if (fs::is_regular_file(input)) {
        say("Checking " + input.filename().string());
        result.sourceSHA256 = sha256HexOfFile(input);
        if (options.sha256 && *result.sourceSHA256 != *options.sha256) {
            if (download) {
                removeIgnoringErrors(*download); // a fresh download next time
            }
            throw Error("The " + std::string(download ? "download" : "file") + " has SHA-256 " +
                        *result.sourceSHA256 + ", not the expected " + *options.sha256 +
                        ". Nothing was installed.");
        }
    } else if (options.sha256) {
        throw Error("--sha256 checks a file or a download; " + source + " is a folder.");
    }
    throwIfCancelled(stop);

    StagingFolder staging(model.folder);
    const std::string sourceName =
        download ? fs::path(source.substr(0, source.find('?'))).filename().string()
                 : input.filename().string();
    if (fs::is_directory(input)) {
        say("Copying " + input.string());
        fs::copy(input, staging.path(), fs::copy_options::recursive);
    } else if (isArchive(sourceName)) {
        say("Unpacking " + sourceName);
        unpack(input, staging.path(), stop);
    } else if (model.kind == LocalModelKind::language &&
               fs::path(sourceName).extension() == ".gguf") {
        fs::copy_file(input, staging.path() / sourceName);
    } else {
        throw Error("The " + describe(model.kind) + " is a folder (" + model.contents + "); " +
                    sourceName + " is neither a folder nor a .tar archive of one.");
    }
    throwIfCancelled(stop);

    // A manifest that came with the model is checked against what came.
    const auto manifestPath = staging.path() / LocalModelManifest::kFileName;
    if (fs::exists(manifestPath)) {
        say("Checking the files against the model's manifest");
        checkManifestFiles(staging.path(),
                           decodeJson<LocalModelManifest>(readJsonFile(manifestPath)),
                           [&stop] { throwIfCancelled(stop); });
    }
    if (const auto problem = LocalModelCatalog::layoutProblem(model, staging.path())) {
        throw Error("What " + source + " holds is not the " + describe(model.kind) + ": " +
                    *problem + " Nothing was installed.");
    }

    say("Recording checksums");
    LocalModelManifest manifest;
    manifest.model = model.id;
    manifest.source = source;
    manifest.installedAt = Date::now();
    for (const auto& file : filesUnder(staging.path())) {
        throwIfCancelled(stop);
        const auto path = staging.path() / file;
        manifest.files.push_back({file, fs::file_size(path), sha256HexOfFile(path)});
    }
    writeJsonAtomically(manifestPath, encodeJson(manifest));

    // Into place: the old folder aside, the new one in, the old one gone.
    const fs::path aside = model.folder.parent_path() /
                           ("." + model.folder.filename().string() + ".old-" + randomSuffix());
    const bool hadOld = fs::exists(model.folder);
    if (hadOld) {
        fs::rename(model.folder, aside);
    }
    try {
        fs::rename(staging.path(), model.folder);
    } catch (...) {
        if (hadOld) {
            fs::rename(aside, model.folder);
        }
        throw;
    }
    staging.keep();
    if (hadOld) {
        removeIgnoringErrors(aside);
    }
    if (download) {
        removeIgnoringErrors(*download);
    }
    result.folder = model.folder;
    result.manifest = std::move(manifest);
    return result;
}

LocalModelManifest verify(const LocalModelDescription& model) {
    if (const auto problem = LocalModelCatalog::layoutProblem(model, model.folder)) {
        throw Error(*problem);
    }
    const auto manifestPath = model.folder / LocalModelManifest::kFileName;
    if (!fs::exists(manifestPath)) {
        throw Error("The " + describe(model.kind) + " in " + model.folder.string() + " has no " +
                    std::string(LocalModelManifest::kFileName) +
                    "; install it with 'orvelle models install " + model.id +
                    "' to record its checksums.");
    }
    const auto manifest = decodeJson<LocalModelManifest>(readJsonFile(manifestPath));
    checkManifestFiles(model.folder, manifest);
    return manifest;
}

bool remove(const LocalModelDescription& model) {
    if (!fs::exists(model.folder)) {
        return false;
    }
    // Renamed first, so a half-removed folder never passes for a model.
    const fs::path doomed = model.folder.parent_path() /
                            ("." + model.folder.filename().string() + ".removed-" + randomSuffix());
    fs::rename(model.folder, doomed);
    removeIgnoringErrors(doomed);
    return true;
}

} // namespace LocalModelInstaller

LocalModelManifest JsonCoder<LocalModelManifest>::decode(const Json& json,
                                                         const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    LocalModelManifest manifest;
    manifest.model = reader.value<std::string>("model", "");
    manifest.source = reader.value<std::string>("source", "");
    manifest.installedAt = reader.value<Date>("installedAt", Date{});
    const Json& files = reader.raw("files");
    if (!files.is_array()) {
        context.key("files").fail("expected a list");
    }
    for (size_t i = 0; i < files.size(); ++i) {
        const JsonObjectReader file(files[i], context.key("files").index(i));
        manifest.files.push_back({file.required<std::string>("path"),
                                  static_cast<std::uint64_t>(file.value<std::int64_t>("size", 0)),
                                  file.required<std::string>("sha256")});
    }
    return manifest;
}

Json JsonCoder<LocalModelManifest>::encode(const LocalModelManifest& manifest) {
    Json files = Json::array();
    for (const auto& file : manifest.files) {
        files.push_back({{"path", file.path},
                         {"size", static_cast<std::int64_t>(file.size)},
                         {"sha256", file.sha256}});
    }
    return {{"model", manifest.model},
            {"source", manifest.source},
            {"installedAt", encodeJson(manifest.installedAt)},
            {"files", files}};
}

} // namespace orvelle
