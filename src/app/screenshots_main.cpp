// orvelle-app-screenshots OUTPUT DOCUMENT: pictures of every window of the application,
// as PNG files, without a display (the offscreen platform unless one is asked for): the
// start window, the recorder (launcher, area overlay, the controls during a take), the
// settings, the editor with each page of its inspector, and the dialogs. The application
// runs as it does for a user, on its own settings in OUTPUT/.state; with DISPLAY set, the
// recorder lists and records that X server's screen.

#include "app/application.h"
#include "app/editor_window.h"
#include "app/export_panel.h"
#include "app/recorder_window.h"
#include "app/settings_sidebar.h"
#include "app/settings_window.h"
#include "app/start_window.h"
#include "app/theme.h"
#include "app/transcript_panel.h"
#include "editor/clip_lane.h"
#include "editor/editor_preset_store.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QThread>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>

namespace fs = std::filesystem;
using namespace orvelle;

namespace {

bool waitUntil(const std::function<bool()>& predicate, int milliseconds = 60000) {
    QElapsedTimer timer;
    timer.start();
    while (!predicate()) {
        if (timer.elapsed() > milliseconds) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(5);
    }
    return true;
}

void settle(int milliseconds = 150) {
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < milliseconds) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(5);
    }
}

int written = 0;

void shoot(QWidget& widget, const fs::path& folder, const char* name) {
    settle();
    const fs::path file = folder / (std::string(name) + ".png");
    if (!widget.grab().save(QString::fromStdString(file.string()))) {
        std::fprintf(stderr, "orvelle-app-screenshots: %s could not be written\n", file.c_str());
        std::exit(1);
    }
    std::printf("%s\n", file.c_str());
    ++written;
}

// The editor with everything loaded and a picture on screen.
bool isSettled(EditorWindow& window) {
    PlaybackModel& playback = window.playback();
    return playback.hasCompositionSource().value() && !playback.isLoading() &&
           !playback.pendingSeekGeneration() && !playback.isReplacingScreenItem() &&
           playback.currentPreviewFrame() != nullptr && window.thumbnails().isComplete();
}

// Waits for the preview to show the project as it now stands.
void awaitFrame(EditorWindow& window) {
    const uint64_t before = window.playback().previewFrameNumber().value();
    waitUntil([&] { return window.playback().previewFrameNumber().value() != before; }, 3000);
    waitUntil([&] { return isSettled(window); }, 20000);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "Usage: orvelle-app-screenshots OUTPUT DOCUMENT\n");
        return 2;
    }
    const fs::path output = fs::absolute(argv[1]);
    const fs::path document = fs::absolute(argv[2]);
    fs::create_directories(output);
    const fs::path state = output / ".state";
    fs::remove_all(state);
    fs::create_directories(state);
    // The application's own settings, not the user's.
    setenv("XDG_CONFIG_HOME", (state / "config").c_str(), 1);
    setenv("XDG_DATA_HOME", (state / "data").c_str(), 1);
    setenv("XDG_CACHE_HOME", (state / "cache").c_str(), 1);
    if (std::getenv("QT_QPA_PLATFORM") == nullptr) {
        setenv("QT_QPA_PLATFORM", "offscreen", 1);
    }

    QApplication application(argc, argv);
    Theme::apply(application);
    ApplicationOptions options;
    options.playback.player.withSound = false;
    options.playback.player.frameRate = 30;
    // Two saved looks for the presets page to list.
    {
        const EditorPresetStore presets(options.presetsURL);
        EditorProjectState look;
        presets.put({"Tutorial", presetPayload(look)});
        look.background.paddingAmount = 0.04;
        presets.put({"Product demo", presetPayload(look)});
    }
    Application shell(options);

    shell.recentDocuments().add(document);
    shell.startWindow().resize(860, 540);
    shell.start(std::nullopt);
    waitUntil([&] { return shell.startWindow().isVisible(); });
    shoot(shell.startWindow(), output, "start-window");

    // The recorder: its launcher with the sources' stills, the area overlay, and its
    // controls during a short take (thrown away afterwards).
    shell.showRecorder();
    RecorderWindow& recorder = shell.recorderWindow();
    recorder.setCaptureMode(RecorderCaptureMode::display);
    waitUntil([&] { return recorder.pendingPreviews() == 0; }, 20000);
    shoot(recorder, output, "recorder-launcher");
    recorder.hide();
    recorder.areaOverlay().present(QRect(120, 90, 560, 340));
    shoot(recorder.areaOverlay(), output, "recorder-area-overlay");
    recorder.areaOverlay().cancel();
    recorder.setCaptureMode(RecorderCaptureMode::display);
    if (recorder.selectedSource()) {
        recorder.startRecording();
        if (shell.recorderSession().isActive()) {
            settle(3200);
            recorder.show();
            shoot(recorder, output, "recorder-recording");
            recorder.togglePause();
            shoot(recorder, output, "recorder-paused");
            recorder.discardRecording(false);
        } else {
            std::fprintf(stderr, "orvelle-app-screenshots: no take: %s\n",
                         shell.recorderSession().recorder().detailText.value().c_str());
        }
    }
    recorder.hide();
    shell.showSettings();
    shoot(shell.settingsWindow(), output, "settings");
    shell.settingsWindow().hide();

    shell.openDocument(document);
    if (!waitUntil([&] { return !shell.editorWindows().empty(); })) {
        std::fprintf(stderr, "orvelle-app-screenshots: %s did not open\n", document.c_str());
        return 1;
    }
    EditorWindow& window = *shell.editorWindows().front();
    window.resize(1600, 1000);
    if (!waitUntil([&] { return isSettled(window); })) {
        std::fprintf(stderr, "orvelle-app-screenshots: %s did not load\n", document.c_str());
        return 1;
    }
    // The editor as it opens, on the look page.
    window.seekTo(window.playback().editTimeline().duration() * 0.42);
    awaitFrame(window);
    shoot(window, output, "editor");

    EditorStore& store = window.store();
    const EditTime at(window.playback().timelinePlayheadTime().value());
    const EditTime minimum = window.playback().gestures().laneMinimumClipDuration();
    const auto page = [&](InspectorPage shown, const char* name,
                          const std::function<void()>& prepare) {
        if (prepare) {
            prepare();
        }
        window.inspector().showPage(shown);
        awaitFrame(window);
        shoot(window, output, name);
    };
    page(InspectorPage::pointer, "editor-pointer", nullptr);
    page(InspectorPage::clip, "editor-clip",
         [&] { store.selectTimelineClip(store.project().timeline.clips.front().id); });
    page(InspectorPage::zoom, "editor-zoom", [&] {
        if (store.project().animation.zoomClips.empty()) {
            store.addAnimationClip(at, store.project().screen.zoomScale, minimum);
        } else {
            store.select(store.project().animation.zoomClips.front().id, animationLane);
        }
    });
    page(InspectorPage::camera, "editor-camera", [&] { store.addCameraLayoutClip(at, minimum); });
    page(InspectorPage::mask, "editor-mask", [&] {
        store.addMaskClip(EditTime(at.seconds + 4), minimum);
        store.updateSelectedMaskClip(
            [](MaskClip& clip) { clip.borderStyle = MaskBorder::Style::comet; });
    });
    page(InspectorPage::text, "editor-text", [&] {
        store.addTextClip(at, minimum);
        store.updateSelectedTextClip(
            [](TextClip& clip) { clip.text = "Adding a function, step by step"; });
    });
    page(InspectorPage::music, "editor-music", [&] {
        store.edit("Select", [](EditorProjectState&, EditorSelectionState& s) {
            s = EditorSelectionState::empty();
        });
    });
    page(InspectorPage::audio, "editor-sound", nullptr);
    page(InspectorPage::presets, "editor-presets", nullptr);
    // The transcript with two words cut (their marker) and a few selected, when it has one.
    page(InspectorPage::transcript, "editor-transcript", [&] {
        EditorTranscriptController& transcript = window.transcript();
        if (!transcript.hasTranscript().value() ||
            transcript.visibleTranscript().value().wordRanges.size() < 16) {
            return;
        }
        transcript.cutWordRange(TranscriptTokenIDRange::words(4, 5));
        const auto& words = transcript.visibleTranscript().value().wordRanges;
        const auto& first = words[10].range;
        const auto& last = words[13].range;
        window.transcriptPanel().selectCharacters(first.location, last.location + last.length);
    });
    if (window.inspector().page(InspectorPage::exportMovie) != nullptr) {
        // With a drafted title, description and chapters, which the timeline shows.
        page(InspectorPage::exportMovie, "editor-export", [&] {
            const double length = window.playback().editTimeline().duration();
            store.edit("Draft YouTube Metadata", [length](EditorProjectState& p,
                                                          EditorSelectionState&) {
                ProjectExportSettings settings = p.exportSettings.value_or(ProjectExportSettings{});
                settings.youtubeTitle = "Adding a function, step by step";
                settings.youtubeDescription =
                    "From an empty file to a tested function in a few minutes.";
                settings.youtubeChapters = {{0, "Introduction"},
                                            {length * 0.35, "Writing the function"},
                                            {length * 0.7, "Running the tests"}};
                settings.uploadToYouTube = true;
                p.exportSettings = settings;
            });
        });
        window.exportPanel().showPublishing();
        awaitFrame(window);
        shoot(window, output, "editor-publish");
    }

    window.closeWithoutPrompt();
    std::printf("%d pictures in %s\n", written, output.c_str());
    fs::remove_all(state);
    return 0;
}
