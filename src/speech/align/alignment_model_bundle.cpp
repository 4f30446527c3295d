#include "speech/align/alignment_model_bundle.h"

#include "core/files.h"
#include "platform/crypto/sha256.h"
#include "speech/align/alignment_error.h"

namespace orvelle {

namespace {

[[noreturn]] void failValidation(const std::string& reason) {
    throw AlignmentError(AlignmentErrorCode::modelBundleValidationFailed, reason);
}

bool isDirectory(const std::filesystem::path& path) {
    std::error_code error;
    return std::filesystem::is_directory(path, error);
}

// A file path of the manifest (model or vocabulary), refused when it leaves the bundle.
std::filesystem::path bundleFile(const std::filesystem::path& root, const std::string& path) {
    auto resolved = resolveBundlePath(root, path);
    if (!resolved) {
        failValidation("manifest path escapes the model bundle: '" + path + "'");
    }
    return *resolved;
}

} // namespace

std::optional<std::filesystem::path> resolveBundlePath(const std::filesystem::path& root,
                                                       std::string_view relativePath) {
    const std::filesystem::path relative(relativePath);
    if (relative.empty() || relative.is_absolute() || relative.has_root_name()) {
        return std::nullopt;
    }
    const std::filesystem::path base = root.lexically_normal();
    const std::filesystem::path resolved = (base / relative).lexically_normal();
    const std::filesystem::path inside = resolved.lexically_relative(base);
    if (inside.empty() || *inside.begin() == ".." || inside == ".") {
        return std::nullopt;
    }
    return resolved;
}

AlignmentModelBundle AlignmentModelBundle::load(const std::filesystem::path& from) {
    if (!isDirectory(from)) {
        throw AlignmentError(AlignmentErrorCode::modelBundleMissing, from.string());
    }
    const std::filesystem::path manifestURL = from / kManifestFileName;
    if (!fileExists(manifestURL)) {
        throw AlignmentError(AlignmentErrorCode::manifestMissing, manifestURL.string());
    }
    AlignmentModelBundle bundle;
    bundle.rootURL = from;
    bundle.manifest = readAlignmentModelManifest(manifestURL);
    return bundle;
}

AlignmentModelManifest readAlignmentModelManifest(const std::filesystem::path& file) {
    try {
        return decodeJson<AlignmentModelManifest>(readJsonFile(file));
    } catch (const JsonDecodeError& error) {
        // The decoder's own words, led by the file they are about.
        const std::string where =
            error.path().empty() ? file.string() : file.string() + ": " + error.path();
        throw JsonDecodeError(where, error.problem());
    }
}

std::filesystem::path AlignmentModelBundle::modelURL() const {
    return bundleFile(rootURL, manifest.model.file);
}

std::filesystem::path AlignmentModelBundle::vocabularyURL() const {
    return bundleFile(rootURL, manifest.tokenizer.vocabularyFile);
}

void AlignmentModelBundle::validateInstalledFilesStrict() const {
    const std::filesystem::path model = modelURL();
    if (!fileExists(model)) {
        throw AlignmentError(AlignmentErrorCode::missingModelFile, model.string());
    }
    const std::filesystem::path vocabulary = vocabularyURL();
    if (!fileExists(vocabulary)) {
        throw AlignmentError(AlignmentErrorCode::missingVocabulary, vocabulary.string());
    }
    verifyChecksums();
}

void AlignmentModelBundle::verifyChecksums() const {
    static constexpr std::string_view kHexDigits = "0123456789abcdef";
    for (const auto& [path, checksum] : manifest.checksums) {
        if (path.empty()) {
            failValidation("manifest checksum path is empty");
        }
        const auto file = resolveBundlePath(rootURL, path);
        if (!file) {
            failValidation("manifest checksum path escapes the model bundle: '" + path + "'");
        }
        if (!fileExists(*file)) {
            failValidation("checksum entry '" + path + "' is missing");
        }
        std::string hex = checksum;
        if (const size_t colon = hex.find(':'); colon != std::string::npos) {
            const std::string algorithm = hex.substr(0, colon);
            if (algorithm != "sha256") {
                std::string reason = "unsupported checksum algorithm '" + algorithm;
                reason += "' for '" + path + "'";
                failValidation(reason);
            }
            hex.erase(0, colon + 1);
        }
        if (hex.size() != 64 || hex.find_first_not_of(kHexDigits) != std::string::npos) {
            failValidation("invalid SHA-256 checksum for '" + path + "'");
        }
        std::string actual;
        try {
            actual = sha256HexOfFile(*file);
        } catch (const FileError& error) {
            failValidation(error.what());
        }
        if (actual != hex) {
            failValidation("checksum mismatch for '" + path + "'");
        }
    }
}

std::optional<double> maximumAudioDuration(const AlignmentModelManifest& manifest) {
    const auto& shape = manifest.model.inputShape;
    if (!shape || shape->empty() || manifest.sampleRate < 1) {
        return std::nullopt;
    }
    const double sampleRate = manifest.sampleRate;
    if (shape->size() == 3) {
        const std::int64_t frames = (*shape)[1];
        if (frames < 1) {
            return std::nullopt;
        }
        const int hop = manifest.model.featureHopLength.value_or(160);
        return static_cast<double>(frames) * hop / sampleRate;
    }
    const std::int64_t samples = shape->back();
    if (shape->size() > 2 || samples < 1) {
        return std::nullopt;
    }
    return static_cast<double>(samples) / sampleRate;
}

} // namespace orvelle
