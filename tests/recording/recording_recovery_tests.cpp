#include "core/files.h"
#include "platform/media/media_probe.h"
#include "platform/media/movie_writer.h"
#include "project/cursor_recording.h"
#include "recording/recording_crash_recovery.h"
#include "recording/recording_scratch_store.h"
#include "recording/screen_stream_output.h"
#include "support/temporary_directory.h"
#include "support/test_media.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <regex>

namespace orvelle {
namespace {

namespace fs = std::filesystem;
using testing::TemporaryDirectory;
using testing::writeTextFile;
using Kind = MediaTrackManifest::Kind;

// A store of its own: $XDG_DATA_HOME points into a temporary folder for the test.
class ScratchStoreTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (const char* previous = std::getenv("XDG_DATA_HOME")) {
            previous_ = previous;
        }
        setenv("XDG_DATA_HOME", (home_ / "data").c_str(), 1);
    }
    void TearDown() override {
        if (previous_) {
            setenv("XDG_DATA_HOME", previous_->c_str(), 1);
        } else {
            unsetenv("XDG_DATA_HOME");
        }
    }
    fs::path root() const { return RecordingScratchStore::capturesDirectory(false); }

    // A take folder with the given sentinel text (none when absent) and files.
    fs::path makeTake(const std::string& name, const std::optional<std::string>& sentinel,
                      const std::vector<std::string>& files) {
        const fs::path folder = root() / name;
        fs::create_directories(folder);
        if (sentinel) {
            writeTextFile(folder / RecordingScratchStore::kSentinelName, *sentinel);
        }
        for (const auto& file : files) {
            writeTextFile(folder / file, "media");
        }
        return folder;
    }

    TemporaryDirectory home_;
    std::optional<std::string> previous_;
};

// The screen track as the recorder writes it (H.264 in fragments every 2 s) but encoded
// offline, with numbered frames; `seconds` long at 30 frames a second.
void writeScreenMovie(const fs::path& url, double seconds, int width = 160, int height = 96) {
    MovieWriterSettings settings = screenMovieSettings(width, height, false, 30);
    settings.pacing = WriterPacing::offline;
    MovieWriter writer(url, settings);
    VideoFrame frame;
    const int count = static_cast<int>(std::lround(seconds * 30));
    for (int index = 0; index < count; ++index) {
        testing::paintNumberedFrame(frame, index, width, height);
        writer.appendVideoFrame(frame, index / 30.0);
    }
    writer.finish();
}

// The microphone track as its segments write it: AAC in an m4a cut in 2 s fragments.
void writeMicrophoneFile(const fs::path& url, double seconds) {
    MovieAudioSettings audio;
    audio.input = {48000, 1};
    audio.output = {48000, 1};
    audio.bitRate = 128000;
    AudioFileWriter writer(url, MovieContainer::m4a, audio, true, WriterPacing::offline, 2.0);
    const auto tone = testing::sineTone(440, seconds, 48000, 1);
    writer.append(tone.data(), tone.size());
    writer.finish();
}

void truncateFile(const fs::path& url, uintmax_t size) {
    fs::resize_file(url, size);
}

// The sentinel a killed recorder left: written, and held by no process.
void leaveSentinel(const fs::path& url) {
    writeTextFile(url.parent_path() / RecordingScratchStore::kSentinelName,
                  url.filename().string());
}

TEST_F(ScratchStoreTest, TakeFoldersAreNamedByDateWithTheirFirstMovieInside) {
    const fs::path url = RecordingScratchStore::makeScreenRecordingURL(Date::now());
    EXPECT_TRUE(fs::is_directory(url.parent_path()));
    EXPECT_EQ(url.parent_path().parent_path(), root());
    const std::string base = url.stem().string();
    EXPECT_TRUE(
        std::regex_match(base, std::regex(R"(Orvelle Recording \d{4}-\d\d-\d\d \d\d\.\d\d\.\d\d)")))
        << base;
    EXPECT_TRUE(std::regex_match(
        url.parent_path().filename().string(),
        std::regex(base + "-[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}")));
    EXPECT_EQ(url.extension(), ".mov");
    // Two takes in the same second still get folders of their own.
    const fs::path second = RecordingScratchStore::makeScreenRecordingURL(Date::now());
    EXPECT_NE(second.parent_path(), url.parent_path());
}

TEST_F(ScratchStoreTest, SentinelsDecideWhichTakesAreAbandoned) {
    const std::string movie = "Orvelle Recording 2026-01-02 03.04.05.mov";
    const fs::path plain = makeTake("a-plain", movie, {movie});
    const fs::path lineEnd = makeTake("b-line-end", movie + "\r\n", {movie});
    const fs::path spaced = makeTake("c-spaced", "  " + movie + " \n", {movie});
    const fs::path missing = makeTake("d-missing", movie, {"other.mov"});
    const fs::path finished = makeTake("e-finished", std::nullopt, {movie});
    const fs::path escaping = makeTake("f-escaping", "../a-plain/" + movie, {});
    writeTextFile(root() / "loose-file.txt", "not a take");

    const auto urls = RecordingScratchStore::abandonedRecordingScreenURLs();
    ASSERT_EQ(urls.size(), 3u);
    EXPECT_EQ(urls[0], plain / movie);
    EXPECT_EQ(urls[1], lineEnd / movie);
    EXPECT_EQ(urls[2], spaced / movie);
    // A sentinel naming nothing that is there takes its folder with it; a folder without a
    // sentinel and a loose file are left alone, and nothing leaves the store.
    EXPECT_FALSE(fs::exists(missing));
    EXPECT_FALSE(fs::exists(escaping));
    EXPECT_TRUE(fs::exists(finished / movie));
    EXPECT_TRUE(fs::exists(root() / "loose-file.txt"));
    EXPECT_TRUE(fs::exists(plain / movie));

    const auto takes = RecordingCrashRecovery::scanForAbandonedTakes();
    ASSERT_EQ(takes.size(), 3u);
    EXPECT_EQ(takes[1].screenURL, lineEnd / movie);

    // Writing and removing the sentinel.
    const fs::path url = RecordingScratchStore::makeScreenRecordingURL(Date::now());
    RecordingScratchStore::writeRecordingSentinel(url);
    EXPECT_EQ(readFile(url.parent_path() / RecordingScratchStore::kSentinelName),
              url.filename().string());
    // This process records it: it is no abandoned take, and recovery leaves it alone.
    EXPECT_TRUE(RecordingScratchStore::isRecordingInProgress(url));
    EXPECT_EQ(RecordingScratchStore::abandonedRecordingScreenURLs().size(), 3u);
    EXPECT_FALSE(RecordingCrashRecovery::recover({url}));
    RecordingScratchStore::removeRecordingSentinel(url);
    EXPECT_FALSE(fs::exists(url.parent_path() / RecordingScratchStore::kSentinelName));
    EXPECT_FALSE(RecordingScratchStore::isRecordingInProgress(url));
    RecordingScratchStore::removeRecordingSentinel(url); // twice is no failure

    // No store at all: no takes, and nothing made.
    fs::remove_all(root());
    EXPECT_TRUE(RecordingScratchStore::abandonedRecordingScreenURLs().empty());
    EXPECT_FALSE(fs::exists(root()));
}

TEST_F(ScratchStoreTest, DeletionStaysInsideTheStore) {
    fs::create_directories(root());
    const fs::path outside = home_ / "Movies" / "Keep Me";
    fs::create_directories(outside);
    writeTextFile(outside / "keep.mov", "precious");
    const fs::path sibling = root().string() + "-other";
    fs::create_directories(sibling);
    writeTextFile(sibling / "keep.mov", "precious");

    struct Case {
        fs::path url;
        bool managed;
    };
    const std::vector<Case> cases = {
        {root(), true},
        {root() / "take" / "a.mov", true},
        {root() / "take" / ".." / ".." / "Captures" / "x", true},
        {root() / ".." / "elsewhere", false},
        {sibling / "keep.mov", false},
        {outside / "keep.mov", false},
        {"relative/take/a.mov", false},
    };
    for (const auto& entry : cases) {
        EXPECT_EQ(RecordingScratchStore::isManagedCaptureURL(entry.url), entry.managed)
            << entry.url;
    }

    RecordingScratchStore::deleteAbandonedTakeDirectory(outside / "keep.mov");
    RecordingScratchStore::deleteAbandonedTakeDirectory(sibling / "keep.mov");
    RecordingScratchStore::deleteAbandonedTakeDirectory(root() / "top-level.mov");
    EXPECT_TRUE(fs::exists(outside / "keep.mov"));
    EXPECT_TRUE(fs::exists(sibling / "keep.mov"));
    EXPECT_TRUE(fs::exists(root()));

    const std::string movie = "T.mov";
    const fs::path take = makeTake("take", movie, {movie, "T-camera-001.mov", "notes.txt"});
    RecordingScratchStore::deleteAbandonedTakeDirectory(take / movie);
    EXPECT_FALSE(fs::exists(take));

    // Deleting a finished take's files: the manifest's media, the movie and its sidecars
    // go; the folder stays while something else is in it, and goes once it is empty.
    const fs::path finished = makeTake("finished", std::nullopt, {movie, "T-camera-001.mov"});
    writeTextFile(finished / "T.cursor.json", "{}");
    writeTextFile(finished / "T.transcript.txt", "words");
    TakeManifestWriter::write(
        finished / movie, {{Kind::screen, finished / movie, 0, 2, 0, 2, 160, 96}},
        {{Kind::camera, finished / "T-camera-001.mov", 0, 2, 0, 2, 64, 48}}, {}, std::nullopt);
    writeTextFile(finished / "notes.txt", "mine");
    RecordingScratchStore::deleteRecordingFiles(finished / movie);
    EXPECT_EQ(std::distance(fs::directory_iterator(finished), fs::directory_iterator()), 1);
    EXPECT_TRUE(fs::exists(finished / "notes.txt"));
    fs::remove(finished / "notes.txt");
    writeTextFile(finished / movie, "again");
    RecordingScratchStore::deleteRecordingFiles(finished / movie);
    EXPECT_FALSE(fs::exists(finished));
}

TEST(NaturalOrder, NumbersCompareByValueAndCaseIsIgnored) {
    const std::vector<std::string> sorted = {"a-screen-2.mov", "A-screen-10.mov",
                                             "a-screen-010x.mov", "b.mov"};
    for (size_t i = 0; i < sorted.size(); ++i) {
        for (size_t j = 0; j < sorted.size(); ++j) {
            EXPECT_EQ(RecordingCrashRecovery::naturalLess(sorted[i], sorted[j]), i < j)
                << sorted[i] << " vs " << sorted[j];
        }
    }
}

TEST_F(ScratchStoreTest, RecoveryLaysTheFilesEndToEndAndSkipsUnreadableOnes) {
    const fs::path url = RecordingScratchStore::makeScreenRecordingURL(Date::now());
    const fs::path folder = url.parent_path();
    const std::string base = url.stem().string();
    leaveSentinel(url);
    writeScreenMovie(url, 3.0);
    writeScreenMovie(folder / (base + "-screen-002.mov"), 0.0334); // one frame: too short
    writeScreenMovie(folder / (base + "-screen-010.mov"), 1.0);
    writeScreenMovie(folder / (base + "-screen-003.mov"), 2.0);
    writeScreenMovie(folder / (base + "-camera-001.mov"), 2.0, 64, 48);
    writeScreenMovie(folder / (base + "-camera-002.mov"), 1.0, 64, 48);
    writeMicrophoneFile(folder / (base + "-microphone-001.m4a"), 4.0);
    writeTextFile(folder / (base + "-microphone-002.m4a"), "never got a header");
    writeTextFile(folder / "unrelated.mov", "not ours");

    ASSERT_TRUE(RecordingCrashRecovery::recover({url}));
    EXPECT_FALSE(fs::exists(folder / RecordingScratchStore::kSentinelName));
    const auto manifest = TakeManifest::load(url);
    ASSERT_TRUE(manifest);

    struct Expected {
        std::string file;
        double programStart;
        double duration;
    };
    const auto check = [&](Kind kind, const std::vector<Expected>& expected) {
        const auto segments = manifest->segmentsFor(kind);
        ASSERT_EQ(segments.size(), expected.size()) << MediaTrackManifest::defaultTrackID(kind);
        for (size_t i = 0; i < expected.size(); ++i) {
            EXPECT_EQ(segments[i].url.filename().string(), expected[i].file);
            EXPECT_NEAR(segments[i].programStart, expected[i].programStart, 0.05)
                << expected[i].file;
            EXPECT_NEAR(segments[i].duration, expected[i].duration, 0.05) << expected[i].file;
            EXPECT_DOUBLE_EQ(segments[i].mediaDuration, segments[i].duration);
        }
    };
    check(Kind::screen, {{url.filename().string(), 0, 3},
                         {base + "-screen-003.mov", 3, 2},
                         {base + "-screen-010.mov", 5, 1}});
    check(Kind::systemAudio, {{url.filename().string(), 0, 3},
                              {base + "-screen-003.mov", 3, 2},
                              {base + "-screen-010.mov", 5, 1}});
    check(Kind::camera, {{base + "-camera-001.mov", 0, 2}, {base + "-camera-002.mov", 2, 1}});
    check(Kind::microphone, {{base + "-microphone-001.m4a", 0, 4}});
    EXPECT_NEAR(manifest->duration(), 6, 0.1);
    EXPECT_TRUE(manifest->segmentsFor(Kind::cursor).empty()); // no pointer file after a crash

    // A take whose only movie is unreadable is not recovered and keeps its sentinel.
    const fs::path broken = RecordingScratchStore::makeScreenRecordingURL(Date::now());
    leaveSentinel(broken);
    writeTextFile(broken, "no movie here");
    EXPECT_FALSE(RecordingCrashRecovery::recover({broken}));
    EXPECT_TRUE(fs::exists(broken.parent_path() / RecordingScratchStore::kSentinelName));
    EXPECT_FALSE(fs::exists(TakeManifest::sidecarURL(broken)));
}

// A file cut at any byte reads up to its last whole fragment: never more than it holds,
// never less than one fragment short, and more bytes never give less.
TEST_F(ScratchStoreTest, FilesCutAtAnyByteRecoverToTheirLastWholeFragment) {
    TemporaryDirectory sources;
    const fs::path fullMovie = sources / "full.mov";
    const fs::path fullAudio = sources / "full.m4a";
    writeScreenMovie(fullMovie, 7.0);
    writeMicrophoneFile(fullAudio, 7.0);
    const auto movieSize = fs::file_size(fullMovie);
    const auto audioSize = fs::file_size(fullAudio);

    double previousScreen = 0;
    double previousMicrophone = 0;
    const int cuts = 24;
    for (int cut = 1; cut <= cuts; ++cut) {
        const double fraction = static_cast<double>(cut) / cuts;
        const fs::path url = RecordingScratchStore::makeScreenRecordingURL(Date::now());
        const fs::path microphone =
            url.parent_path() / (url.stem().string() + "-microphone-001.m4a");
        fs::copy_file(fullMovie, url);
        fs::copy_file(fullAudio, microphone);
        // A cut somewhere inside the stretch, not on a round number.
        truncateFile(url, static_cast<uintmax_t>(movieSize * fraction) - (cut < cuts ? 7 : 0));
        truncateFile(microphone,
                     static_cast<uintmax_t>(audioSize * fraction) - (cut < cuts ? 5 : 0));
        leaveSentinel(url);

        const bool recovered = RecordingCrashRecovery::recover({url});
        const auto manifest = TakeManifest::load(url);
        SCOPED_TRACE("cut at " + std::to_string(fraction));
        double screen = 0;
        double microphoneLength = 0;
        if (recovered) {
            ASSERT_TRUE(manifest);
            screen = manifest->duration();
            for (const auto& segment : manifest->segmentsFor(Kind::microphone)) {
                microphoneLength += segment.duration;
            }
        } else {
            EXPECT_FALSE(manifest);
            EXPECT_TRUE(fs::exists(url.parent_path() / RecordingScratchStore::kSentinelName));
        }
        // Never more than the bytes hold (a torn fragment claims samples it lost)...
        EXPECT_LE(screen, 7.0 * fraction + 0.6);
        EXPECT_LE(microphoneLength, 7.0 * fraction + 0.6);
        // At most one fragment (2 s) and the share of the file that was cut away is lost.
        EXPECT_GE(screen, 7.0 * fraction - 2.0 - 0.5);
        EXPECT_GE(microphoneLength, 7.0 * fraction - 2.0 - 0.5);
        EXPECT_GE(screen, previousScreen - 1e-6);
        EXPECT_GE(microphoneLength, previousMicrophone - 1e-6);
        previousScreen = screen;
        previousMicrophone = microphoneLength;
    }
    EXPECT_NEAR(previousScreen, 7.0, 0.05);
    EXPECT_NEAR(previousMicrophone, 7.0, 0.05);
}

} // namespace
} // namespace orvelle
