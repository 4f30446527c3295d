#pragma once

// A precise word timing model as installed: a folder with "model_manifest.json", the model
// file and its vocabulary. Loading reads the manifest; strict validation checks that the
// files are there and match their checksums.

#include "speech/align/alignment_model_manifest.h"

#include <filesystem>
#include <optional>
#include <string_view>

namespace orvelle {

struct AlignmentModelBundle {
    static constexpr std::string_view kManifestFileName = "model_manifest.json";

    std::filesystem::path rootURL;
    AlignmentModelManifest manifest;

    // Throws AlignmentError modelBundleMissing or manifestMissing, or the manifest's
    // JsonDecodeError (see readAlignmentModelManifest).
    static AlignmentModelBundle load(const std::filesystem::path& from);

    // The model and vocabulary files exist and every checksum holds. Throws AlignmentError:
    // missingModelFile, missingVocabulary or modelBundleValidationFailed.
    void validateInstalledFilesStrict() const;
    // Each entry of the manifest's checksums, in path order (see validateInstalledFilesStrict).
    void verifyChecksums() const;

    std::filesystem::path modelURL() const;
    std::filesystem::path vocabularyURL() const;
};

// Reads a "model_manifest.json". Throws JsonDecodeError naming the file and the key when it
// does not decode, FileError when it cannot be read.
AlignmentModelManifest readAlignmentModelManifest(const std::filesystem::path& file);

// A path of the manifest under the bundle's root; absent when it would lie outside it.
std::optional<std::filesystem::path> resolveBundlePath(const std::filesystem::path& root,
                                                       std::string_view relativePath);

// The longest audio the model takes in one run: a fixed raw input's sample count over the
// sample rate, or a feature input's frames times the hop. Absent without a fixed shape.
std::optional<double> maximumAudioDuration(const AlignmentModelManifest& manifest);

} // namespace orvelle
