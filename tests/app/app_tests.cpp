// The application in the test process on Qt's offscreen platform: the timeline view and
// the inspector's panels driven with Qt Test's mouse and keys, checked in the editor store
// and in the preview's pictures; and the screenshots program, whose pictures are measured.

#include "app/app_test_support.h"
#include "app/application.h"
#include "app/editor_window.h"
#include "app/export_panel.h"
#include "app/preview_view.h"
#include "app/settings_sidebar.h"
#include "app/settings_sidebar_controls.h"
#include "app/start_window.h"
#include "app/timeline_view.h"
#include "app/transcript_panel.h"
#include "platform/image/bitmap.h"
#include "platform/media/media_probe.h"
#include "playback/composition_player.h"
#include "recording/recording_scratch_store.h"
#include "support/run_program.h"
#include "support/spoken_take.h"
#include "support/temporary_directory.h"
#include "support/tiny_take.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QElapsedTimer>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QSlider>
#include <QStyle>
#include <QStyleOptionSlider>
#include <QTest>
#include <QTextBrowser>
#include <QThread>
#include <QTimer>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <set>

namespace orvelle {
namespace {

namespace fs = std::filesystem;

bool isSettled(EditorWindow& window) {
    PlaybackModel& playback = window.playback();
    return playback.hasCompositionSource().value() && !playback.isLoading() &&
           !playback.pendingSeekGeneration() && playback.currentPreviewFrame() != nullptr;
}

// The mean difference of two pictures of one size, per channel, 0 to 255.
double meanDifference(const Bitmap& a, const Bitmap& b) {
    EXPECT_EQ(a.width(), b.width());
    EXPECT_EQ(a.height(), b.height());
    double sum = 0;
    for (int y = 0; y < a.height(); ++y) {
        for (int x = 0; x < a.width(); ++x) {
            const auto p = a.pixel(x, y);
            const auto q = b.pixel(x, y);
            for (int c = 0; c < 3; ++c) {
                sum += std::abs(int(p[c]) - int(q[c]));
            }
        }
    }
    return sum / (3.0 * a.width() * a.height());
}

class EditorWindowTest : public ::testing::Test {
protected:
    // The take the window opens.
    virtual testing::TinyTake writeTake() {
        return testing::writeTinyTake(folder_ / "take",
                                      {.width = 320, .height = 180, .seconds = 4});
    }

    void SetUp() override {
        take_ = writeTake();
        ApplicationOptions app = testing::applicationOptionsIn(folder_.path());
        app.playback.player.frameRate = 30;
        shell_ = std::make_unique<Application>(app);
        shell_->openDocument(take_.manifestURL);
        ASSERT_TRUE(testing::processEventsUntil([&] { return !shell_->editorWindows().empty(); }));
        window_ = shell_->editorWindows().front();
        window_->resize(1400, 900);
        ASSERT_TRUE(testing::processEventsUntil([&] { return isSettled(*window_); }));
    }

    void TearDown() override {
        if (window_ != nullptr) {
            window_->closeWithoutPrompt();
        }
        shell_.reset();
    }

    // Waits for a picture drawn after now, with everything settled.
    std::shared_ptr<const PreviewFrame> nextFrame() {
        const uint64_t before = window_->playback().previewFrameNumber().value();
        testing::processEventsUntil(
            [&] { return window_->playback().previewFrameNumber().value() != before; }, 5000);
        testing::processEventsUntil([&] { return isSettled(*window_); });
        QCoreApplication::processEvents();
        return window_->playback().currentPreviewFrame();
    }

    // The first picture drawn that `accept` takes, within 20 s (a loaded machine draws
    // late); the last one drawn when none does.
    std::shared_ptr<const PreviewFrame>
    frameWhere(const std::function<bool(const PreviewFrame&)>& accept) {
        std::shared_ptr<const PreviewFrame> frame;
        const bool found = testing::processEventsUntil(
            [&] {
                frame = window_->playback().currentPreviewFrame();
                return frame != nullptr && accept(*frame);
            },
            20000);
        if (!found) {
            PlaybackModel& playback = window_->playback();
            ADD_FAILURE() << "no such picture; frame " << playback.previewFrameNumber().value()
                          << ", loading " << playback.isLoading() << ", seek pending "
                          << bool(playback.pendingSeekGeneration()) << ", replacing "
                          << playback.isReplacingScreenItem();
        }
        return frame;
    }

    testing::TemporaryDirectory folder_;
    testing::TinyTake take_;
    std::unique_ptr<Application> shell_;
    EditorWindow* window_ = nullptr;
};

TEST_F(EditorWindowTest, DraggingAVideoClipsEdgeTrimsItInOneUndoStep) {
    EditorStore& store = window_->store();
    TimelineView& timeline = window_->timeline();
    const TimelineClip before = store.project().timeline.clips.front();
    ASSERT_EQ(store.project().timeline.clips.size(), 1u);
    const QRectF box = timeline.clipRect(TimelineRow::video, before.id);
    ASSERT_FALSE(box.isEmpty());

    // The end edge, dragged a quarter of the clip's width to the left in small steps.
    const QPoint grip(int(box.right()) - 2, int(box.center().y()));
    ASSERT_EQ(timeline.hitTest(grip).part, TimelineHit::Part::endEdge);
    const int distance = int(box.width() / 4);
    QTest::mousePress(&timeline, Qt::LeftButton, Qt::NoModifier, grip);
    for (int step = 1; step <= 10; ++step) {
        QMouseEvent move(QEvent::MouseMove, QPointF(grip.x() - distance * step / 10, grip.y()),
                         timeline.mapToGlobal(QPointF(grip.x() - distance * step / 10, grip.y())),
                         Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(&timeline, &move);
    }
    QTest::mouseRelease(&timeline, Qt::LeftButton, Qt::NoModifier,
                        QPoint(grip.x() - distance, grip.y()));

    const auto& clips = store.project().timeline.clips;
    ASSERT_EQ(clips.size(), 1u);
    const double expected = before.end.seconds - distance / timeline.pixelsPerSecond();
    EXPECT_NEAR(clips.front().end.seconds, expected, 0.1) << "the end follows the pointer";
    EXPECT_NEAR(clips.front().start.seconds, before.start.seconds, 1e-9);
    ASSERT_EQ(store.undoHistory().undoStack().size(), 1u) << "the whole drag is one step";
    EXPECT_TRUE(window_->action(QStringLiteral("Undo"))->text().contains(QStringLiteral("Trim")))
        << window_->action(QStringLiteral("Undo"))->text().toStdString();

    // The Edit menu's Undo puts the clip back as it was; Redo trims it again.
    window_->action(QStringLiteral("Undo"))->trigger();
    EXPECT_EQ(store.project().timeline.clips.front(), before);
    window_->action(QStringLiteral("Redo"))->trigger();
    EXPECT_NEAR(store.project().timeline.clips.front().end.seconds, expected, 0.1);
}

TEST_F(EditorWindowTest, APanelsSliderChangesTheNextPreviewPictureAndUndoBringsItBack) {
    window_->inspector().showPage(InspectorPage::look);
    InspectorPanel* look = window_->inspector().panel(InspectorPage::look);
    ASSERT_NE(look, nullptr);
    QSlider* padding = nullptr;
    for (QSlider* slider : look->findChildren<QSlider*>()) {
        if (slider->accessibleName() == QStringLiteral("Padding")) {
            padding = slider;
        }
    }
    ASSERT_NE(padding, nullptr) << "the look panel has a Padding slider";
    const double paddingBefore = window_->store().project().background.paddingAmount;
    const auto before = nextFrame();
    ASSERT_NE(before, nullptr);

    // The handle dragged to the slider's far end: the most padding, in one undo step.
    QStyleOptionSlider option;
    option.initFrom(padding);
    option.orientation = padding->orientation();
    option.minimum = padding->minimum();
    option.maximum = padding->maximum();
    option.sliderPosition = padding->sliderPosition();
    option.sliderValue = padding->value();
    const QPoint handle =
        padding->style()
            ->subControlRect(QStyle::CC_Slider, &option, QStyle::SC_SliderHandle, padding)
            .center();
    const size_t stepsBefore = window_->store().undoHistory().undoStack().size();
    QTest::mousePress(padding, Qt::LeftButton, Qt::NoModifier, handle);
    for (int x = handle.x(); x <= padding->width() + 20; x += 10) {
        QMouseEvent move(QEvent::MouseMove, QPointF(x, handle.y()),
                         padding->mapToGlobal(QPointF(x, handle.y())), Qt::NoButton, Qt::LeftButton,
                         Qt::NoModifier);
        QApplication::sendEvent(padding, &move);
    }
    QTest::mouseRelease(padding, Qt::LeftButton, Qt::NoModifier,
                        QPoint(padding->width() + 20, handle.y()));
    EXPECT_NEAR(window_->store().project().background.paddingAmount, 0.5, 1e-6);
    EXPECT_EQ(window_->store().undoHistory().undoStack().size(), stepsBefore + 1);
    const auto padded = frameWhere([&](const PreviewFrame& frame) {
        return meanDifference(before->picture, frame.picture) > 2.0;
    });
    ASSERT_NE(padded, nullptr);
    EXPECT_GT(meanDifference(before->picture, padded->picture), 2.0)
        << "more padding shrinks the card on the stage";

    window_->action(QStringLiteral("Undo"))->trigger();
    EXPECT_DOUBLE_EQ(window_->store().project().background.paddingAmount, paddingBefore);
    const auto restored = frameWhere([&](const PreviewFrame& frame) {
        return meanDifference(before->picture, frame.picture) < 0.5;
    });
    EXPECT_LT(meanDifference(before->picture, restored->picture), 0.5);
}

// The export page writes the movie of the edit as it stood when Export was pressed: the
// panel's choices set the format and the size, and an edit made meanwhile is named.
TEST_F(EditorWindowTest, TheExportPanelWritesTheMovieOfTheEditAsItStoodWhenStarted) {
    EditorStore& store = window_->store();
    // Home is the test's own: the Desktop location is under it.
    qputenv("HOME", QByteArray::fromStdString((folder_ / "home").string()));
    window_->showExportPanel();
    ExportPanel& panel = window_->exportPanel();
    // Cut the take to its first three seconds, then export at the first size on offer.
    store.splitTimelineClip(SourceTime(3));
    store.deleteTimelineClip(store.project().timeline.clips.back().id);
    const fs::path planned = panel.plannedOutputURL();
    EXPECT_EQ(planned.filename(), "Tiny Take.mp4");
    EXPECT_EQ(planned.parent_path(), folder_ / "home" / "Desktop");
    QComboBox* size = nullptr;
    for (auto* choice : panel.findChildren<QComboBox*>()) {
        if (choice->accessibleName() == QStringLiteral("Size")) {
            size = choice;
        }
    }
    ASSERT_NE(size, nullptr);
    size->setCurrentIndex(0); // 1280 x 720

    QTest::keyClick(&panel.exportButton(), Qt::Key_Return);
    ASSERT_TRUE(window_->exporter().isExporting().value());
    EXPECT_FALSE(panel.exportButton().isEnabled()) << "one export at a time";
    EXPECT_FALSE(panel.cancelButton().isHidden());
    // An edit while it renders: the movie is of the snapshot, and says so.
    store.splitTimelineClip(SourceTime(1));
    ASSERT_TRUE(testing::processEventsUntil(
        [&] { return !window_->exporter().isExporting().value(); }, 120000));
    EXPECT_EQ(panel.resultText(), QStringLiteral("Rendered previous edit"));
    EXPECT_EQ(panel.progressBar().value(), 1000);

    const MediaProbe movie = probeMediaFile(planned);
    ASSERT_NE(movie.firstVideo(), nullptr);
    EXPECT_EQ(movie.firstVideo()->codedWidth, 1280);
    EXPECT_EQ(movie.firstVideo()->codedHeight, 720);
    EXPECT_NEAR(movie.duration, 3.0, 0.1) << "the cut take, not the whole one";
    // The next export goes beside it, and the format's choice gives the extension.
    EXPECT_EQ(panel.plannedOutputURL().filename(), "Tiny Take 2.mp4");
    store.edit("Export Format", [](EditorProjectState& p, EditorSelectionState&) {
        p.exportSettings = ProjectExportSettings{};
        p.exportSettings->format = "mov";
    });
    EXPECT_EQ(panel.plannedOutputURL().filename(), "Tiny Take.mov");
}

// The transcript page over a take whose microphone speaks known words at known times:
// Delete on selected words cuts their stretch out of the timeline as one undo step; the
// marker left in their place, or Undo, brings them back; a click on a word moves the
// playhead to it; a cleanup suggestion taken cuts its words.
class TranscriptPanelTest : public EditorWindowTest {
protected:
    // Word indexes: 0 Welcome 1 to 2 the 3 demo. 4 Today 5 we 6 um 7 look 8 at 9 the
    // 10 the 11 editor.
    testing::TinyTake writeTake() override {
        spoken_ = testing::writeSpokenTake(
            folder_ / "take",
            testing::passageWords("Welcome to the demo. Today we um look at the the editor."));
        return spoken_.take;
    }

    TranscriptPanel& panel() { return window_->transcriptPanel(); }
    EditorTranscriptController& transcript() { return window_->transcript(); }

    TranscriptCharacterRange characters(int tokenID) {
        for (const auto& word : transcript().visibleTranscript().value().wordRanges) {
            if (word.wordID == tokenID) {
                return word.range;
            }
        }
        ADD_FAILURE() << "word " << tokenID << " is not shown";
        return {};
    }

    // The middle of a character of the text view, in its viewport.
    QPoint pointOf(int character) {
        QTextCursor cursor(panel().textView().document());
        cursor.setPosition(character);
        return panel().textView().cursorRect(cursor).center() + QPoint(3, 0);
    }

    // Whether some clip of the timeline plays the source instant.
    bool plays(double source) {
        for (const auto& clip : window_->store().project().timeline.clips) {
            if (clip.start.seconds <= source && source < clip.end.seconds) {
                return true;
            }
        }
        return false;
    }

    QString shownText() { return panel().textView().toPlainText(); }

    testing::SpokenTake spoken_;
};

TEST_F(TranscriptPanelTest, DeleteCutsTheSelectedWordsAndTheMarkerOrUndoBringsThemBack) {
    window_->inspector().showPage(InspectorPage::transcript);
    ASSERT_TRUE(testing::processEventsUntil([&] {
        return shownText().startsWith(QStringLiteral("Welcome to"));
    })) << shownText().toStdString();
    EXPECT_TRUE(panel().progressBar().isHidden());
    EXPECT_EQ(panel().transcribeButton().text(), QStringLiteral("Transcribe Again"));
    EXPECT_FALSE(panel().cutButton().isEnabled()) << "nothing selected yet";
    const auto& um = spoken_.passage.words[6];
    const double umMiddle = (um.start + um.end) / 2;
    ASSERT_TRUE(plays(umMiddle));

    // "um" selected as the mouse would, then Delete in the text: its stretch leaves the
    // timeline in one step, and the timeline's own Delete (nothing selected there) does not
    // also act.
    const TranscriptCharacterRange umCharacters = characters(12);
    panel().selectCharacters(umCharacters.location, umCharacters.location + umCharacters.length);
    EXPECT_EQ(transcript().selectedWordRange().value(), (TranscriptTokenIDRange{12, 12}));
    EXPECT_TRUE(panel().cutButton().isEnabled());
    const size_t steps = window_->store().undoHistory().undoStack().size();
    panel().textView().setFocus();
    QTest::keyClick(&panel().textView(), Qt::Key_Delete);
    EXPECT_FALSE(plays(umMiddle)) << "the word's stretch is cut";
    EXPECT_TRUE(plays(spoken_.passage.words[5].start + 0.01)) << "its neighbours stay";
    EXPECT_TRUE(plays(spoken_.passage.words[7].end - 0.01));
    EXPECT_EQ(window_->store().undoHistory().undoStack().size(), steps + 1);
    EXPECT_EQ(window_->store().project().timeline.clips.size(), 2u);
    ASSERT_TRUE(shownText().contains(QStringLiteral("[1 word cut]"))) << shownText().toStdString();
    EXPECT_FALSE(shownText().contains(QStringLiteral(" um ")));

    // A click on the marker brings the word back.
    const auto markers = transcript().visibleTranscript().value().markerRanges;
    ASSERT_EQ(markers.size(), 1u);
    QTest::mouseClick(panel().textView().viewport(), Qt::LeftButton, Qt::NoModifier,
                      pointOf(markers.front().range.location + 2));
    ASSERT_TRUE(testing::processEventsUntil([&] { return plays(umMiddle); }, 3000))
        << "the marker restores it";
    EXPECT_TRUE(shownText().contains(QStringLiteral(" um ")));

    // Cut again with Backspace; the Edit menu's Undo restores the text as well.
    panel().selectCharacters(umCharacters.location, umCharacters.location + umCharacters.length);
    QTest::keyClick(&panel().textView(), Qt::Key_Backspace);
    ASSERT_FALSE(plays(umMiddle));
    window_->action(QStringLiteral("Undo"))->trigger();
    EXPECT_TRUE(plays(umMiddle));
    ASSERT_TRUE(testing::processEventsUntil(
        [&] { return shownText().contains(QStringLiteral(" um ")); }, 3000));

    // A click on "editor" (no selection) puts the playhead on its place in the movie.
    const auto& editor = spoken_.passage.words[11];
    const TranscriptCharacterRange editorCharacters = characters(22);
    QTest::mouseClick(panel().textView().viewport(), Qt::LeftButton, Qt::NoModifier,
                      pointOf(editorCharacters.location + 1));
    EXPECT_TRUE(testing::processEventsUntil(
        [&] {
            return std::abs(window_->playback().timelinePlayheadTime().value() - editor.start) <
                   0.15;
        },
        3000))
        << window_->playback().timelinePlayheadTime().value() << " vs " << editor.start;

    // The cleanup suggestions are on offer with Accept and Dismiss; taking the repeated
    // "the" cuts the second one.
    auto buttons = panel().suggestionButtons();
    ASSERT_GE(buttons.size(), 2u);
    const auto& secondThe = spoken_.passage.words[10];
    const auto& suggestions = transcript().cleanupSuggestions().value();
    const auto repeated = std::find_if(suggestions.begin(), suggestions.end(), [](const auto& s) {
        return s.kind == TranscriptCleanupSuggestion::Kind::repeatedPhrase;
    });
    ASSERT_NE(repeated, suggestions.end());
    const size_t index = size_t(repeated - suggestions.begin());
    ASSERT_EQ(buttons[2 * index]->text(), QStringLiteral("Accept"));
    const size_t offered = suggestions.size();
    buttons[2 * index]->click();
    EXPECT_FALSE(plays((secondThe.start + secondThe.end) / 2));
    EXPECT_TRUE(plays((spoken_.passage.words[9].start + spoken_.passage.words[9].end) / 2));
    ASSERT_TRUE(testing::processEventsUntil(
        [&] { return panel().suggestionButtons().size() == 2 * (offered - 1); }, 3000));
}

// At launch, takes a crash left unfinished (their sentinel still there, held by no process)
// are offered one at a time: "Delete Recording" removes the folder, "Open in Editor"
// finishes the take from its files and opens it; the start window waits until both are
// answered.
TEST(CrashRecoveryTest, EachAbandonedTakeIsOfferedAtLaunchAndOpensOrGoes) {
    testing::TemporaryDirectory folder;
    const fs::path captures = RecordingScratchStore::capturesDirectory(true);
    const auto abandon = [&](const std::string& name) {
        const fs::path take = captures / name;
        const testing::TinyTake written =
            testing::writeTinyTake(take, {.width = 160, .height = 90, .seconds = 2});
        fs::remove(written.manifestURL);               // the process died before the manifest
        const fs::path movie = take / "Tiny Take.mov"; // named as a recording names it
        fs::rename(written.screenURL, movie);
        std::ofstream(take / RecordingScratchStore::kSentinelName) << "Tiny Take.mov\n";
        return movie;
    };
    const auto first = abandon("Orvelle Recording 2026-01-02 10.00.00-A");
    const auto second = abandon("Orvelle Recording 2026-01-02 11.00.00-B");

    Application shell(testing::applicationOptionsIn(folder.path()));
    std::vector<QString> asked;
    std::vector<QString> answers{QStringLiteral("Delete Recording"),
                                 QStringLiteral("Open in Editor")};
    QTimer answering;
    QObject::connect(&answering, &QTimer::timeout, [&] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (box == nullptr || asked.size() >= answers.size()) {
            return;
        }
        asked.push_back(box->text());
        EXPECT_FALSE(shell.startWindow().isVisible()) << "the start window waits";
        for (QAbstractButton* button : box->buttons()) {
            if (button->text() == answers[asked.size() - 1]) {
                button->click();
                return;
            }
        }
        ADD_FAILURE() << "no button " << answers[asked.size() - 1].toStdString();
    });
    answering.start(50);
    ASSERT_EQ(RecordingScratchStore::abandonedRecordingScreenURLs().size(), 2u);
    shell.start(std::nullopt);
    ASSERT_TRUE(testing::processEventsUntil([&] { return !shell.editorWindows().empty(); }, 30000))
        << asked.size() << " questions asked";
    ASSERT_EQ(asked.size(), 2u);
    EXPECT_EQ(asked[0], QStringLiteral("Orvelle closed before this recording could be finished. "
                                       "Everything captured up to the interruption was kept and "
                                       "can be recovered."));
    // The first take (in listing order) went; the second was finished and is open.
    const auto remaining = RecordingScratchStore::abandonedRecordingScreenURLs();
    EXPECT_TRUE(remaining.empty());
    EXPECT_FALSE(fs::exists(first.parent_path())) << "the first deleted";
    ASSERT_TRUE(fs::exists(second)) << "the second kept";
    const fs::path kept = second;
    EXPECT_TRUE(fs::exists(kept.parent_path() / "Tiny Take.take.json")) << "its manifest written";
    EXPECT_FALSE(fs::exists(kept.parent_path() / RecordingScratchStore::kSentinelName));
    EditorWindow* window = shell.editorWindows().front();
    ASSERT_TRUE(testing::processEventsUntil([&] { return isSettled(*window); }));
    EXPECT_NEAR(window->playback().editTimeline().duration(), 2, 0.1);
    window->closeWithoutPrompt();
    fs::remove_all(captures);
}

// The pictures of `make screenshots`, made of a tiny take: one for each window and page,
// each of its window's size, each showing more than a blank window.
TEST(ScreenshotsTest, EveryWindowAndPageIsPictured) {
    testing::TemporaryDirectory folder;
    const testing::TinyTake take =
        testing::writeTinyTake(folder / "take", {.width = 320, .height = 180, .seconds = 3});
    const auto made = testing::runProgram(ORVELLE_APP_SCREENSHOTS,
                                          {(folder / "shots").string(), take.manifestURL.string()},
                                          {{"QT_QPA_PLATFORM", "offscreen"}});
    ASSERT_EQ(made.status, 0) << made.err;
    const std::vector<std::string> editorPages{
        "editor",        "editor-pointer", "editor-clip",       "editor-zoom",
        "editor-camera", "editor-mask",    "editor-text",       "editor-music",
        "editor-sound",  "editor-presets", "editor-transcript", "editor-export",
        "editor-publish"};
    const Bitmap start = readPNG(folder / "shots" / "start-window.png");
    EXPECT_EQ(start.width(), 860);
    EXPECT_EQ(start.height(), 540);
    // The recorder's launcher and area overlay, and the settings (a take's controls only
    // where there is a screen to record).
    const Bitmap launcher = readPNG(folder / "shots" / "recorder-launcher.png");
    EXPECT_EQ(launcher.width(), 520);
    EXPECT_EQ(launcher.height(), 760);
    const Bitmap overlay = readPNG(folder / "shots" / "recorder-area-overlay.png");
    EXPECT_GT(overlay.width(), 520);
    EXPECT_GT(readPNG(folder / "shots" / "settings.png").width(), 0);
    std::optional<Bitmap> previous;
    for (const std::string& name : editorPages) {
        SCOPED_TRACE(name);
        const Bitmap shot = readPNG(folder / "shots" / (name + ".png"));
        EXPECT_EQ(shot.width(), 1600);
        EXPECT_EQ(shot.height(), 1000);
        // The preview's middle shows the take, not the window's background: many colours.
        std::set<uint32_t> colours;
        for (int y = 150; y < 450; y += 3) {
            for (int x = 300; x < 900; x += 3) {
                const auto p = shot.pixel(x, y);
                colours.insert(uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16);
            }
        }
        EXPECT_GT(colours.size(), 20u) << "no picture in the preview";
        if (previous) {
            // Each page differs from the one before where the inspector stands.
            double sum = 0;
            int count = 0;
            for (int y = 80; y < 900; y += 2) {
                for (int x = 1220; x < 1520; x += 2) {
                    const auto p = shot.pixel(x, y);
                    const auto q = previous->pixel(x, y);
                    sum += std::abs(int(p[1]) - int(q[1]));
                    ++count;
                }
            }
            EXPECT_GT(sum / count, 0.5) << "the inspector shows the same page as before";
        }
        previous = shot;
    }
}

} // namespace
} // namespace orvelle

int main(int argc, char** argv) {
    // The tests' own settings and the offscreen platform, whatever the session has.
    setenv("QT_QPA_PLATFORM", "offscreen", 1);
    const orvelle::testing::TemporaryDirectory home;
    for (const char* name : {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME"}) {
        setenv(name, (home / name).c_str(), 1);
    }
    ::testing::InitGoogleTest(&argc, argv);
    QApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
