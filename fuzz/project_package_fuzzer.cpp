// A package's project.json: opening never crashes and fails only with the package's own
// error; what opens points every file inside the package, and saving it again writes a
// package that opens to the same project.

#include "core/files.h"
#include "fuzz/fuzz_support.h"
#include "project/orvelle_project_package.h"

#include <unistd.h>

#include <filesystem>

namespace {

// One package folder for the whole run, with a screen movie whose name the seeds use. It
// is removed at exit; the path lives on the heap so that it outlives static destruction.
const std::filesystem::path& packageFolder() {
    static const std::filesystem::path* root = [] {
        auto* path =
            new std::filesystem::path(std::filesystem::temp_directory_path() /
                                      ("orvelle-package-fuzz-" + std::to_string(::getpid())));
        const auto package = *path / "Fuzz.orvelle";
        std::filesystem::create_directories(package / "media");
        std::filesystem::create_directories(package / "cursor");
        orvelle::writeFileAtomically(package / "media" / "screen-001.mov", "movie");
        orvelle::writeFileAtomically(package / "cursor" / "cursor-001.json", "{}");
        std::atexit([] { orvelle::removeIgnoringErrors(*root); });
        return path;
    }();
    static const std::filesystem::path package = *root / "Fuzz.orvelle";
    return package;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace orvelle;
    const auto& package = packageFolder();
    writeFileAtomically(package / "project.json",
                        std::string_view(reinterpret_cast<const char*>(data), size));
    EditorDocument document;
    try {
        document = OrvelleProjectPackage::load(package);
    } catch (const OrvelleProjectPackageError& error) {
        fuzzing::check(error.code() == OrvelleProjectPackageErrorCode::invalidPackage,
                       "opening fails with another error than invalidPackage");
        return 0;
    }
    fuzzing::check(document.hasSavedProject && document.packageURL == package,
                   "an opened package is not a saved project");
    for (const auto& segment : document.manifest.segments) {
        fuzzing::check(segment.url.parent_path().parent_path() == package ||
                           segment.kind == MediaTrackManifest::Kind::screen,
                       "a segment points outside the package");
    }
    fuzzing::expectRoundTrip(document.project);
    // Saving what opened gives a package that opens to the same edit.
    const auto copy = package.parent_path() / "Copy.orvelle";
    try {
        const auto saved = OrvelleProjectPackage::write(document.project, copy);
        const auto reopened = OrvelleProjectPackage::load(saved);
        fuzzing::check(reopened.project.timeline == document.project.timeline &&
                           reopened.project.text == document.project.text,
                       "a saved package opens to another edit");
    } catch (const OrvelleProjectPackageError&) {
        // The screen movie may be named in a way the package cannot hold: refused clearly.
    }
    return 0;
}
