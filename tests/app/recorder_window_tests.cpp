// The recorder's own windows in the test process on Qt's offscreen platform: the area
// overlay driven with the mouse and keys as a user drags it, the settings window's model
// install run through to the model's state, and its keys for the whole desktop taken on a
// private X server.

#include "app/app_test_support.h"
#include "app/recorder_session.h"
#include "app/recording_overlays.h"
#include "app/recording_shortcuts.h"
#include "app/settings_window.h"
#include "core/files.h"
#include "core/user_defaults.h"
#include "platform/capture/x11/x11_global_shortcuts.h"
#include "support/scoped_environment.h"
#include "support/temporary_directory.h"
#include "support/x_server.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QKeyEvent>
#include <QKeySequenceEdit>
#include <QMouseEvent>
#include <QScreen>
#include <QTest>
#include <QThread>
#include <map>
#include <optional>

namespace orvelle {
namespace {

namespace fs = std::filesystem;

using testing::ScopedEnvironment;

// A drag as the window sees it: press, moves with the button held, release.
void drag(QWidget& widget, QPoint from, QPoint to) {
    const auto send = [&](QEvent::Type type, QPoint at, Qt::MouseButtons buttons) {
        QMouseEvent event(type, QPointF(at), widget.mapToGlobal(QPointF(at)), Qt::LeftButton,
                          buttons, Qt::NoModifier);
        QCoreApplication::sendEvent(&widget, &event);
    };
    send(QEvent::MouseButtonPress, from, Qt::LeftButton);
    for (int step = 1; step <= 4; ++step) {
        send(QEvent::MouseMove, from + (to - from) * step / 4, Qt::LeftButton);
    }
    send(QEvent::MouseButtonRelease, to, Qt::NoButton);
}

TEST(AreaSelectionOverlayTest, DragsMovesResizesWithinTheScreenAndReportsTheChoice) {
    std::optional<QRect> chosen;
    int cancelled = 0;
    AreaSelectionOverlay overlay(
        {.chosen = [&](const QRect& area) { chosen = area; }, .cancelled = [&] { ++cancelled; }});
    overlay.present();
    const QSize screen = overlay.size();
    ASSERT_GT(screen.width(), 400);
    ASSERT_GT(screen.height(), 300);
    EXPECT_FALSE(overlay.selection()) << "a selection before any drag";

    // A click is no area; Return then takes nothing.
    drag(overlay, {50, 50}, {51, 51});
    EXPECT_FALSE(overlay.selection());
    QTest::keyClick(&overlay, Qt::Key_Return);
    EXPECT_FALSE(chosen);

    // Dragged backwards, the area comes out the right way round.
    drag(overlay, {300, 250}, {100, 50});
    ASSERT_TRUE(overlay.selection());
    EXPECT_EQ(*overlay.selection(), QRect(100, 50, 200, 200));

    // Dragged from inside, it moves, and stops at the screen's edge whole.
    drag(overlay, {200, 150}, {230, 170});
    EXPECT_EQ(*overlay.selection(), QRect(130, 70, 200, 200));
    drag(overlay, {200, 150}, {-500, -500});
    EXPECT_EQ(*overlay.selection(), QRect(0, 0, 200, 200));

    // The bottom right handle resizes; past the smallest size it stops there.
    drag(overlay, {200, 200}, {260, 230});
    EXPECT_EQ(*overlay.selection(), QRect(0, 0, 260, 230));
    drag(overlay, {260, 230}, {5, 5});
    EXPECT_EQ(*overlay.selection(), QRect(0, 0, 96, 72));
    // A new tiny drag outside it still makes an area a handle could have made.
    drag(overlay, {400, 300}, {410, 310});
    EXPECT_EQ(*overlay.selection(), QRect(400, 300, 96, 72));

    // Escape gives up; Return takes the area, in screen coordinates.
    QTest::keyClick(&overlay, Qt::Key_Escape);
    EXPECT_EQ(cancelled, 1);
    EXPECT_FALSE(overlay.isVisible());
    overlay.present(QRect(40, 30, 320, 180));
    EXPECT_EQ(*overlay.selection(), QRect(40, 30, 320, 180));
    QTest::keyClick(&overlay, Qt::Key_Return);
    ASSERT_TRUE(chosen);
    EXPECT_EQ(*chosen, QRect(40, 30, 320, 180).translated(overlay.geometry().topLeft()));
    EXPECT_FALSE(overlay.isVisible());

    // A remembered area larger than the screen is held inside it.
    overlay.present(QRect(screen.width() - 100, 10, 400, 100));
    EXPECT_EQ(overlay.selection()->right(), screen.width() - 1);
    overlay.cancel();
}

TEST(SettingsWindowTest, InstallsAModelAndSaysWhyASourceIsRefused) {
    const testing::TemporaryDirectory folder;
    UserDefaults defaults(folder / "settings.json");
    RecorderSession session(defaults, nullptr);
    SettingsWindow window(session);
    window.show();
    EXPECT_FALSE(window.modelStatusText("language").startsWith(QStringLiteral("Installed")));

    // Not a language model: refused in the installer's words; nothing is installed.
    writeFileAtomically(folder / "notes.gguf", "plain text, not a model");
    window.installModel("language", (folder / "notes.gguf").string());
    ASSERT_TRUE(testing::processEventsUntil([&] { return !window.isInstalling(); }));
    const QString refused = window.modelStatusText("language");
    EXPECT_FALSE(refused.startsWith(QStringLiteral("Installed")));
    EXPECT_FALSE(refused.isEmpty());

    // A file with the format's header installs, and the row says so with its size.
    std::string model = "GGUF";
    model.resize(4096, '\0');
    writeFileAtomically(folder / "tiny.gguf", model);
    window.installModel("language", (folder / "tiny.gguf").string());
    ASSERT_TRUE(testing::processEventsUntil([&] { return !window.isInstalling(); }));
    EXPECT_TRUE(window.modelStatusText("language").startsWith(QStringLiteral("Installed")))
        << window.modelStatusText("language").toStdString();
}

TEST(SettingsWindowTest, TakesTheChosenKeysForTheWholeDesktopAndSaysWhyOthersAreNot) {
    using enum RecordingShortcut;
    const testing::TemporaryDirectory folder;
    const testing::XvfbServer display;
    const ScopedEnvironment x11({{"DISPLAY", display.display()},
                                 {"XDG_SESSION_TYPE", "x11"},
                                 {"WAYLAND_DISPLAY", std::nullopt}});
    // Another program already holds the default pause keys.
    X11GlobalShortcuts otherProgram(display.display());
    ASSERT_EQ(otherProgram.grab(1, "Ctrl+Alt+P"), GlobalShortcutGrab::taken);

    UserDefaults defaults(folder / "settings.json");
    std::vector<RecordingShortcut> pressed;
    RecordingShortcuts shortcuts(defaults, [&](RecordingShortcut key) { pressed.push_back(key); });
    RecorderSession session(defaults, nullptr);
    SettingsWindow window(session, &shortcuts);
    window.show();
    EXPECT_EQ(window.shortcutField(startStop).keySequence().toString(),
              QStringLiteral("Ctrl+Alt+R"));
    EXPECT_EQ(window.shortcutNote(),
              QStringLiteral("Ctrl+Alt+P is used by another program: choose another in Settings."));

    // Other keys typed into the field are taken and remembered.
    QKeySequenceEdit& pauseField = window.shortcutField(pauseResume);
    pauseField.setFocus();
    QTest::keyClick(&pauseField, Qt::Key_O, Qt::ControlModifier | Qt::AltModifier);
    ASSERT_TRUE(testing::processEventsUntil(
        [&] { return shortcuts.keys(pauseResume) == QStringLiteral("Ctrl+Alt+O"); }, 10000));
    EXPECT_EQ(window.shortcutNote(),
              QStringLiteral("These keys work whichever program has the focus."));
    EXPECT_EQ(UserDefaults(folder / "settings.json")
                  .get<std::string>(RecordingShortcuts::kPauseResumeKey),
              "Ctrl+Alt+O");

    // One chord for both actions, and a letter alone, are refused in words that say why.
    shortcuts.setKeys(startStop, QStringLiteral("Ctrl+Alt+O"));
    EXPECT_EQ(shortcuts.problem(startStop),
              QStringLiteral("Ctrl+Alt+O already pauses and resumes recording."));
    shortcuts.setKeys(startStop, QStringLiteral("R"));
    EXPECT_EQ(shortcuts.problem(startStop),
              QStringLiteral("R alone would be taken from all typing: add Ctrl, Alt or Super."));
    shortcuts.setKeys(startStop, QStringLiteral("Ctrl+Alt+R"));
    EXPECT_TRUE(shortcuts.problem(startStop).isEmpty());

    // Pressed on the display, whatever has the focus there: the other program's keys stay
    // its own.
    display.xdotool({"key", "ctrl+alt+o", "ctrl+alt+p", "ctrl+alt+r"});
    ASSERT_TRUE(testing::processEventsUntil([&] { return pressed.size() >= 2; }, 10000));
    EXPECT_EQ(pressed, (std::vector<RecordingShortcut>{pauseResume, startStop}));

    // Where no keys can be taken for the whole desktop, the settings say why.
    const struct {
        std::map<std::string, std::optional<std::string>> environment;
        QString reason;
    } sessions[] = {
        {{{"DISPLAY", std::nullopt}, {"XDG_SESSION_TYPE", std::nullopt}},
         QStringLiteral("There is no X display: keys for the whole desktop need an X11 session.")},
        {{{"WAYLAND_DISPLAY", "wayland-0"}},
         QStringLiteral("Wayland does not let programs take keys for the whole desktop: start "
                        "and stop recordings from the tray or the recorder window.")},
    };
    for (const auto& other : sessions) {
        const ScopedEnvironment environment(other.environment);
        RecordingShortcuts none(defaults, [](RecordingShortcut) {});
        SettingsWindow settings(session, &none);
        EXPECT_FALSE(settings.shortcutField(startStop).isEnabled());
        EXPECT_EQ(settings.shortcutNote(), other.reason);
        EXPECT_TRUE(none.shownKeys(startStop).isEmpty());
    }
}

} // namespace
} // namespace orvelle
