#include "core/file_url.h"
#include "core/files.h"
#include "project/editor_document.h"
#include "project/orvelle_project_package.h"
#include "project/recording_take_builder.h"
#include "support/temporary_directory.h"
#include "support/thrown.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>

namespace orvelle {
namespace {

namespace fs = std::filesystem;
using Kind = MediaTrackManifest::Kind;
using testing::TemporaryDirectory;
using testing::writeTextFile;

// Every file under a folder with its bytes, by relative path.
std::map<std::string, std::string> contentsOf(const fs::path& folder) {
    std::map<std::string, std::string> result;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        if (entry.is_regular_file()) {
            result[fs::relative(entry.path(), folder).string()] = readFile(entry.path());
        }
    }
    return result;
}

std::set<std::string> namesIn(const fs::path& folder) {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) {
        names.insert(entry.path().filename().string());
    }
    return names;
}

RecordedMediaSegment segment(Kind kind, const fs::path& url, double start, double duration) {
    RecordedMediaSegment result{.kind = kind,
                                .url = url,
                                .programStart = start,
                                .duration = duration,
                                .mediaDuration = duration};
    return result;
}

// A take folder with two screen segments, camera, microphone, pointer data and transcript
// sidecars (the media are stand-in bytes: a package copies files, it does not read them),
// and a project over it with a little edit.
class ProjectPackage : public ::testing::Test {
protected:
    void SetUp() override {
        const fs::path take = folder_ / "takes";
        screen1_ = take / "Take.mov";
        writeTextFile(screen1_, "screen one");
        writeTextFile(take / "Take-2.mov", "screen two");
        writeTextFile(take / "Take.camera.mov", "camera");
        writeTextFile(take / "Take.mic.m4a", "microphone");
        writeTextFile(take / "Take.cursor.json", "{}");
        writeTextFile(take / "Take.transcript.json", "transcript json");
        writeTextFile(take / "Take.transcript.txt", "transcript text");
        writeTextFile(take / "Take.transcript.editor.json", "editor transcript");
        project_.manifest = TakeManifestWriter::write(
            screen1_,
            {segment(Kind::screen, screen1_, 0, 5),
             segment(Kind::screen, take / "Take-2.mov", 5, 4)},
            {segment(Kind::camera, take / "Take.camera.mov", 0, 9)},
            {segment(Kind::microphone, take / "Take.mic.m4a", 0, 9)}, take / "Take.cursor.json");
        project_.timeline = fullLengthTimeline(SourceTime(9));
        project_.audio.musicVolume = 0.25;
        TextClip text{
            .id = Uuid::random(), .start = EditTime(1), .end = EditTime(3), .text = "Hello"};
        project_.text.clips = {text};
    }

    // The project as a package saved at `package` holds it.
    EditorProjectState expectedIn(const fs::path& package) const {
        EditorProjectState expected = project_;
        for (auto& row : expected.manifest.segments) {
            const auto name = standardizedPath(row.url).filename().string();
            static const std::map<std::string, std::string> names = {
                {"Take.mov", "media/screen-001.mov"},
                {"Take-2.mov", "media/screen-002.mov"},
                {"Take.camera.mov", "media/camera-001.mov"},
                {"Take.mic.m4a", "media/microphone-001.m4a"},
                {"Take.cursor.json", "cursor/cursor-001.json"}};
            row.url = package / names.at(name);
        }
        return expected;
    }

    TemporaryDirectory folder_;
    LastEditorSettingsStore store_{folder_ / "support" / "last-editor-settings.json"};
    fs::path screen1_;
    EditorProjectState project_;
};

TEST_F(ProjectPackage, SavesEveryFileUnderAMadeUpNameOnceAndOpensAgain) {
    const fs::path saved = OrvelleProjectPackage::write(project_, folder_ / "projects" / "Demo");
    EXPECT_EQ(saved, standardizedPath(folder_ / "projects" / "Demo.orvelle"));
    const auto files = contentsOf(saved);
    const std::map<std::string, std::string> media = {
        {"media/screen-001.mov", "screen one"},
        {"media/screen-002.mov", "screen two"},
        {"media/camera-001.mov", "camera"},
        {"media/microphone-001.m4a", "microphone"},
        {"cursor/cursor-001.json", "{}"},
        {"media/screen-001.transcript.json", "transcript json"},
        {"media/screen-001.transcript.txt", "transcript text"},
        {"media/screen-001.transcript.editor.json", "editor transcript"},
    };
    for (const auto& [name, bytes] : media) {
        ASSERT_TRUE(files.contains(name)) << name;
        EXPECT_EQ(files.at(name), bytes) << name;
    }
    // The system-audio twins share the screen movies; nothing else is in the package.
    EXPECT_EQ(files.size(), media.size() + 2);
    EXPECT_TRUE(files.contains("project.json"));
    EXPECT_TRUE(files.contains("take.json"));
    EXPECT_EQ(namesIn(folder_ / "projects"), std::set<std::string>{"Demo.orvelle"});

    const auto document = OrvelleProjectPackage::load(saved);
    EXPECT_TRUE(document.hasSavedProject);
    EXPECT_EQ(document.packageURL, saved);
    EXPECT_EQ(document.documentURL, saved);
    EXPECT_EQ(document.screenURL, saved / "media/screen-001.mov");
    EXPECT_EQ(document.project, expectedIn(saved));
    EXPECT_EQ(document.manifest, document.project.manifest);
    EXPECT_EQ(decodeJson<TakeManifest>(readJsonFile(saved / "take.json")), document.manifest);
    EXPECT_EQ(document.displayTitle(), "Demo");
}

// Earlier builds stored the manifest's date as seconds since 2001. Such a package, or a
// project state on its own, opens with its edit; saving it again writes the date as text.
TEST_F(ProjectPackage, AnOlderPackageWithANumericDateOpensWithItsEdit) {
    const fs::path saved = OrvelleProjectPackage::write(project_, folder_ / "Old.orvelle");
    Json file = readJsonFile(saved / "project.json");
    const Date created = Date::fromSecondsSinceReferenceDate(790000000.5);
    file["project"]["manifest"]["createdAt"] = 790000000.5;
    writeTextFile(saved / "project.json", prettyJson(file));

    const EditorDocument document = EditorDocument::load(saved, store_);
    EXPECT_TRUE(document.hasSavedProject);
    EXPECT_EQ(document.project.manifest.createdAt, created);
    EXPECT_EQ(document.project.text.clips, project_.text.clips);
    EXPECT_EQ(document.project.timeline, project_.timeline);
    const auto state = decodeJsonWithEitherDateForm<EditorProjectState>(file["project"]);
    EXPECT_EQ(state.manifest.createdAt, created);
    EXPECT_THROW(decodeJsonWithEitherDateForm<EditorProjectState>(Json{{"manifest", 1}}),
                 JsonDecodeError);

    OrvelleProjectPackage::write(document.project, saved);
    EXPECT_EQ(readJsonFile(saved / "project.json")["project"]["manifest"]["createdAt"],
              created.iso8601());
}

TEST_F(ProjectPackage, OpensAfterBeingMovedSinceMediaAreFoundByName) {
    const fs::path saved = OrvelleProjectPackage::write(project_, folder_ / "Demo.orvelle");
    const fs::path moved = folder_ / "elsewhere" / "Renamed.orvelle";
    fs::create_directories(moved.parent_path());
    fs::rename(saved, moved);
    fs::remove_all(folder_ / "takes");
    const auto document = EditorDocument::load(moved, store_);
    EXPECT_TRUE(document.hasSavedProject);
    EXPECT_EQ(document.project, expectedIn(standardizedPath(moved)));
}

TEST_F(ProjectPackage, DropsAMissingCameraAtSaveAndAtLoadWithoutError) {
    fs::remove(folder_ / "takes" / "Take.camera.mov");
    const fs::path saved = OrvelleProjectPackage::write(project_, folder_ / "A");
    auto document = OrvelleProjectPackage::load(saved);
    EXPECT_TRUE(document.manifest.segmentsFor(Kind::camera).empty());
    EXPECT_EQ(std::count_if(document.manifest.tracks.begin(), document.manifest.tracks.end(),
                            [](const auto& t) { return t.kind == Kind::camera; }),
              0);

    fs::remove(saved / "media" / "microphone-001.m4a");
    document = OrvelleProjectPackage::load(saved);
    EXPECT_TRUE(document.manifest.segmentsFor(Kind::microphone).empty());
    EXPECT_FALSE(document.manifest.segmentsFor(Kind::cursor).empty());
    for (const auto& track : document.manifest.tracks) {
        EXPECT_NE(track.id, "microphone");
    }
}

TEST_F(ProjectPackage, WithoutItsScreenMovieOrProjectFileDoesNotOpen) {
    fs::create_directories(folder_ / "Empty.orvelle");
    EXPECT_THROW(OrvelleProjectPackage::load(folder_ / "Empty.orvelle"),
                 OrvelleProjectPackageError);
    writeTextFile(folder_ / "Bad.orvelle" / "project.json", R"({"version": 1})");
    EXPECT_THROW(OrvelleProjectPackage::load(folder_ / "Bad"), OrvelleProjectPackageError);

    const fs::path saved = OrvelleProjectPackage::write(project_, folder_ / "A");
    fs::remove(saved / "media" / "screen-001.mov");
    if (const auto error = testing::thrown<OrvelleProjectPackageError>(
            [&] { OrvelleProjectPackage::load(saved); })) {
        EXPECT_EQ(error->code(), OrvelleProjectPackageErrorCode::invalidPackage);
        EXPECT_STREQ(error->what(), "The selected Orvelle project could not be opened.");
    }
    // The editor then takes the package for a plain file.
    const auto document = EditorDocument::load(saved, store_);
    EXPECT_FALSE(document.hasSavedProject);
    EXPECT_EQ(document.screenURL, saved);
}

TEST_F(ProjectPackage, RefusesToSaveWithoutAScreenMovieAndLeavesNothing) {
    fs::remove(screen1_);
    if (const auto error = testing::thrown<OrvelleProjectPackageError>(
            [&] { OrvelleProjectPackage::write(project_, folder_ / "out" / "A"); })) {
        EXPECT_EQ(error->code(), OrvelleProjectPackageErrorCode::missingScreenMovie);
        EXPECT_STREQ(error->what(), "The project does not have a screen recording to save.");
    }
    EXPECT_TRUE(namesIn(folder_ / "out").empty());

    // A later screen segment that is gone fails the save as well, once copying has begun.
    writeTextFile(screen1_, "screen one");
    fs::remove(folder_ / "takes" / "Take-2.mov");
    EXPECT_THROW(OrvelleProjectPackage::write(project_, folder_ / "out" / "A"),
                 OrvelleProjectPackageError);
    EXPECT_TRUE(namesIn(folder_ / "out").empty());
}

TEST_F(ProjectPackage, StoresAFileWithoutExtensionUnderTheKindsDefault) {
    const fs::path bare = folder_ / "takes" / "recording";
    writeTextFile(bare, "bare");
    EditorProjectState project;
    project.manifest = singleScreenManifest(bare);
    const fs::path saved = OrvelleProjectPackage::write(project, folder_ / "B");
    EXPECT_EQ(readFile(saved / "media" / "screen-001.mov"), "bare");
}

TEST_F(ProjectPackage, SavesOverItselfFromItsOwnMedia) {
    const fs::path saved = OrvelleProjectPackage::write(project_, folder_ / "Demo");
    auto document = OrvelleProjectPackage::load(saved);
    document.project.audio.musicVolume = 0.75;
    fs::remove_all(folder_ / "takes");
    EXPECT_EQ(OrvelleProjectPackage::write(document.project, saved), saved);
    const auto reopened = OrvelleProjectPackage::load(saved);
    EXPECT_EQ(reopened.project, document.project);
    EXPECT_EQ(readFile(saved / "media" / "screen-002.mov"), "screen two");
    EXPECT_EQ(namesIn(folder_.path()), (std::set<std::string>{"Demo.orvelle"}));
}

TEST_F(ProjectPackage, ListsWhatMovingToTheTrashTakesAlong) {
    const fs::path saved = OrvelleProjectPackage::write(project_, folder_ / "Demo");
    EXPECT_EQ(OrvelleProjectPackage::deletableURLs(OrvelleProjectPackage::load(saved)),
              std::vector<fs::path>{saved});

    fs::remove(folder_ / "takes" / "Take.transcript.txt");
    const auto take = EditorDocument::load(screen1_, store_);
    const fs::path t = standardizedPath(folder_ / "takes");
    EXPECT_EQ(OrvelleProjectPackage::deletableURLs(take),
              (std::vector<fs::path>{t / "Take.take.json", t / "Take.transcript.json",
                                     t / "Take.transcript.editor.json", t / "Take.camera.mov",
                                     t / "Take.cursor.json", t / "Take.mic.m4a", t / "Take.mov",
                                     t / "Take-2.mov"}));
}

// A file system that fails its nth changing operation, as a full disk or a yanked drive
// would; a failed copy leaves half a file behind.
class FailingFileOperations : public PackageFileOperations {
public:
    explicit FailingFileOperations(int failAt) : failAt_(failAt) {}

    void createDirectories(const fs::path& path) override {
        step("create");
        PackageFileOperations::createDirectories(path);
    }
    void copyFile(const fs::path& from, const fs::path& to) override {
        if (failing()) {
            writeTextFile(to, readFile(from).substr(0, 3));
            throw FileError("No space left on device");
        }
        PackageFileOperations::copyFile(from, to);
    }
    void moveItem(const fs::path& from, const fs::path& to) override {
        step("move");
        PackageFileOperations::moveItem(from, to);
    }
    void removeItem(const fs::path& path) override {
        step("remove");
        PackageFileOperations::removeItem(path);
    }
    void writeFileAtomically(const fs::path& path, std::string_view bytes) override {
        step("write");
        PackageFileOperations::writeFileAtomically(path, bytes);
    }

    bool failed() const { return failed_; }
    std::string failedStep() const { return failedStep_; }

private:
    bool failing() {
        if (++count_ == failAt_) {
            failed_ = true;
            return true;
        }
        return false;
    }
    void step(const char* name) {
        if (failing()) {
            failedStep_ = name;
            throw FileError(std::string("Injected failure at ") + name);
        }
    }

    int failAt_;
    int count_ = 0;
    bool failed_ = false;
    std::string failedStep_ = "copy";
};

TEST_F(ProjectPackage, AFailureAtAnyStepOfASaveLeavesTheOldPackageWhole) {
    const fs::path package = OrvelleProjectPackage::write(project_, folder_ / "out" / "Demo");
    const auto oldFiles = contentsOf(package);
    const auto oldDocument = OrvelleProjectPackage::load(package);

    EditorProjectState changed = project_;
    changed.audio.musicVolume = 0.9;
    writeTextFile(folder_ / "takes" / "Take.camera.mov", "a new camera");

    // Puts the old package back after a step whose failure let the save go through.
    const auto restoreOldPackage = [&] {
        for (const auto& name : namesIn(folder_ / "out")) {
            fs::remove_all(folder_ / "out" / name);
        }
        writeTextFile(folder_ / "takes" / "Take.camera.mov", "camera");
        OrvelleProjectPackage::write(project_, package);
        ASSERT_TRUE(contentsOf(package) == oldFiles);
        writeTextFile(folder_ / "takes" / "Take.camera.mov", "a new camera");
    };

    int failures = 0;
    for (int failAt = 1;; ++failAt) {
        FailingFileOperations files(failAt);
        bool raised = false;
        try {
            OrvelleProjectPackage::write(changed, package, files);
        } catch (const Error&) {
            raised = true;
            ASSERT_TRUE(files.failed()) << "a save failed without an injected failure";
        }
        if (!files.failed()) {
            break; // every step has been failed once
        }
        ++failures;
        SCOPED_TRACE("failure at step " + std::to_string(failAt) + " (" + files.failedStep() + ")");
        const auto left = namesIn(folder_ / "out");
        const auto backups = std::count_if(left.begin(), left.end(), [](const std::string& name) {
            return name.find("-backup-") != std::string::npos;
        });
        if (!raised) {
            // A transcript sidecar that fails to copy is left out; the save goes on.
            EXPECT_EQ(files.failedStep(), "copy");
            EXPECT_EQ(left, std::set<std::string>{"Demo.orvelle"});
            EXPECT_EQ(OrvelleProjectPackage::load(package).project.audio.musicVolume, 0.9);
            EXPECT_LT(contentsOf(package).size(), oldFiles.size());
            restoreOldPackage();
        } else if (backups == 0) {
            // Nothing of the attempt is left, and the old package is exactly as it was.
            EXPECT_EQ(left, std::set<std::string>{"Demo.orvelle"});
            EXPECT_TRUE(contentsOf(package) == oldFiles);
            EXPECT_TRUE(OrvelleProjectPackage::load(package) == oldDocument);
        } else {
            // Only removing the old package after the swap failed: the new one stands.
            EXPECT_EQ(files.failedStep(), "remove");
            EXPECT_EQ(left.size(), 2u);
            EXPECT_EQ(OrvelleProjectPackage::load(package).project.audio.musicVolume, 0.9);
            restoreOldPackage();
        }
    }
    EXPECT_GE(failures, 12);
    EXPECT_EQ(OrvelleProjectPackage::load(package).project.audio.musicVolume, 0.9);
    EXPECT_EQ(readFile(package / "media" / "camera-001.mov"), "a new camera");
    EXPECT_EQ(namesIn(folder_ / "out"), std::set<std::string>{"Demo.orvelle"});
}

TEST(PackageURL, AppendsTheExtensionUnlessItIsThere) {
    EXPECT_EQ(OrvelleProjectPackage::packageURL("/p/Demo.v2"), fs::path("/p/Demo.v2.orvelle"));
    EXPECT_EQ(OrvelleProjectPackage::packageURL("/p/Demo.orvelle/"), fs::path("/p/Demo.orvelle"));
}

} // namespace
} // namespace orvelle
