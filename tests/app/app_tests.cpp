// The application in the test process on Qt's offscreen platform: the timeline view and
// the inspector's panels driven with Qt Test's mouse and keys, checked in the editor store
// and in the preview's pictures; and the screenshots program, whose pictures are measured.

#include "app/application.h"
#include "app/editor_window.h"
#include "app/inspector.h"
#include "app/inspector_controls.h"
#include "app/preview_view.h"
#include "app/timeline_view.h"
#include "platform/image/bitmap.h"
#include "playback/composition_player.h"
#include "support/run_program.h"
#include "support/temporary_directory.h"
#include "support/tiny_take.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QElapsedTimer>
#include <QSlider>
#include <QStyle>
#include <QStyleOptionSlider>
#include <QTest>
#include <QThread>
#include <cmath>
#include <cstdlib>
#include <set>

namespace orvelle {
namespace {

namespace fs = std::filesystem;

bool waitUntil(const std::function<bool()>& predicate, int milliseconds = 30000) {
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
    void SetUp() override {
        testing::TinyTakeOptions options;
        options.width = 320;
        options.height = 180;
        options.seconds = 4;
        take_ = testing::writeTinyTake(folder_ / "take", options);
        ApplicationOptions app;
        app.settingsURL = folder_ / "settings.json";
        app.lastEditorSettingsURL = folder_ / "last-editor-settings.json";
        app.presetsURL = folder_ / "presets.json";
        app.playback.player.withSound = false;
        app.playback.player.frameRate = 30;
        shell_ = std::make_unique<Application>(app);
        shell_->openDocument(take_.manifestURL);
        ASSERT_TRUE(waitUntil([&] { return !shell_->editorWindows().empty(); }));
        window_ = shell_->editorWindows().front();
        window_->resize(1400, 900);
        ASSERT_TRUE(waitUntil([&] { return isSettled(*window_); }));
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
        waitUntil([&] { return window_->playback().previewFrameNumber().value() != before; }, 5000);
        waitUntil([&] { return isSettled(*window_); });
        QCoreApplication::processEvents();
        return window_->playback().currentPreviewFrame();
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

TEST_F(EditorWindowTest, KeysOfTheTimelineSplitAtThePlayheadAndDeleteTheSelection) {
    EditorStore& store = window_->store();
    window_->seekTo(1.5);
    ASSERT_TRUE(waitUntil(
        [&] { return std::abs(window_->playback().timelinePlayheadTime().value() - 1.5) < 0.05; }));
    window_->activateWindow();
    QTest::keyClick(window_, Qt::Key_S);
    auto clips = store.project().timeline.clips;
    ASSERT_EQ(clips.size(), 2u);
    EXPECT_NEAR(clips[0].end.seconds, 1.5, 0.05);
    QTest::keyClick(window_, Qt::Key_Backspace);
    clips = store.project().timeline.clips;
    ASSERT_EQ(clips.size(), 1u);
    EXPECT_NEAR(clips[0].end.seconds, 1.5, 0.05);
    QTest::keyClick(window_, Qt::Key_Z, Qt::ControlModifier);
    EXPECT_EQ(store.project().timeline.clips.size(), 2u);
    QTest::keyClick(window_, Qt::Key_Z, Qt::ControlModifier);
    EXPECT_EQ(store.project().timeline.clips.size(), 1u);
    EXPECT_NEAR(store.project().timeline.clips[0].end.seconds, 4, 0.05);
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
    const auto padded = nextFrame();
    ASSERT_NE(padded, nullptr);
    EXPECT_GT(meanDifference(before->picture, padded->picture), 2.0)
        << "more padding shrinks the card on the stage";

    window_->action(QStringLiteral("Undo"))->trigger();
    EXPECT_DOUBLE_EQ(window_->store().project().background.paddingAmount, paddingBefore);
    const auto restored = nextFrame();
    EXPECT_LT(meanDifference(before->picture, restored->picture), 0.5);
}

// The pictures of `make screenshots`, made of a tiny take: one for each window and page,
// each of its window's size, each showing more than a blank window.
TEST(ScreenshotsTest, EveryWindowAndPageIsPictured) {
    testing::TemporaryDirectory folder;
    testing::TinyTakeOptions options;
    options.width = 320;
    options.height = 180;
    options.seconds = 3;
    const testing::TinyTake take = testing::writeTinyTake(folder / "take", options);
    const auto made = testing::runProgram(ORVELLE_APP_SCREENSHOTS,
                                          {(folder / "shots").string(), take.manifestURL.string()},
                                          {{"QT_QPA_PLATFORM", "offscreen"}});
    ASSERT_EQ(made.status, 0) << made.err;
    const std::vector<std::string> editorPages{
        "editor",      "editor-pointer", "editor-clip",  "editor-zoom",  "editor-camera",
        "editor-mask", "editor-text",    "editor-music", "editor-sound", "editor-presets"};
    const Bitmap start = readPNG(folder / "shots" / "start-window.png");
    EXPECT_EQ(start.width(), 860);
    EXPECT_EQ(start.height(), 540);
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
