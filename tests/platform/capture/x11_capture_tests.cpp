#include "core/error.h"
#include "platform/capture/x11/x11_capture_stream.h"
#include "platform/capture/x11/x11_global_shortcuts.h"
#include "platform/capture/x11/x11_pointer_monitor.h"
#include "platform/capture/x11/x11_shareable_content.h"
#include "support/painter_counter.h"
#include "support/temporary_directory.h"
#include "support/x_server.h"
#include "x11_painter/painter_layout.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <cmath>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <thread>

namespace orvelle {
namespace {

using namespace std::chrono_literals;
using testing::ChildProcess;
using testing::TemporaryDirectory;
using testing::XvfbServer;

// What a stream delivered: each frame's time, its counter and whether the place where the
// pointer stood shows only the painter's background.
class CollectingOutput final : public CaptureStreamOutput {
public:
    struct Seen {
        double time = 0;
        std::optional<int> counter;
        bool pointerSpotClean = true;
        std::optional<int> status;
    };

    CollectingOutput(int counterX, int counterY) : counterX_(counterX), counterY_(counterY) {}

    void streamDidOutputVideoFrame(CapturedVideoFrameRef frame) override {
        VideoFrame view;
        view.width = frame->width;
        view.height = frame->height;
        view.strides[0] = frame->stride;
        view.planes[0].assign(frame->pixels,
                              frame->pixels + static_cast<size_t>(frame->stride) * frame->height);
        Seen seen{frame->presentationTime, testing::readPainterCounter(view, counterX_, counterY_),
                  true, frame->status};
        if (pointerSpot_) {
            seen.pointerSpotClean = testing::isPainterBackground(view, pointerSpot_->first - 2,
                                                                 pointerSpot_->second - 2, 20, 24);
        }
        std::lock_guard lock(mutex_);
        seen_.push_back(seen);
        changed_.notify_all();
    }
    void streamDidOutputAudio(const CapturedAudio&) override {}
    void streamDidStop(const std::string& message) override {
        std::lock_guard lock(mutex_);
        stopMessages_.push_back(message);
        changed_.notify_all();
    }

    void watchPointerAt(int x, int y) { pointerSpot_ = std::make_pair(x, y); }
    bool waitForFrames(size_t count, std::chrono::milliseconds timeout) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, timeout, [&] { return seen_.size() >= count; });
    }
    bool waitForStop(std::chrono::milliseconds timeout) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, timeout, [&] { return !stopMessages_.empty(); });
    }
    std::vector<Seen> seen() {
        std::lock_guard lock(mutex_);
        return seen_;
    }
    std::vector<std::string> stopMessages() {
        std::lock_guard lock(mutex_);
        return stopMessages_;
    }
    void clear() {
        std::lock_guard lock(mutex_);
        seen_.clear();
    }

private:
    int counterX_;
    int counterY_;
    std::optional<std::pair<int, int>> pointerSpot_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Seen> seen_;
    std::vector<std::string> stopMessages_;
};

class X11Capture : public ::testing::Test {
protected:
    // A painter window at the geometry, mapped and painted when this returns.
    std::unique_ptr<ChildProcess> paint(const std::string& geometry, const std::string& title) {
        const auto ready = folder_ / (title + ".ready");
        auto painter = std::make_unique<ChildProcess>(
            ORVELLE_X11_PAINTER,
            std::vector<std::string>{"--geometry", geometry, "--title", title, "--role", "counter",
                                     "--ready", ready.string()},
            x_.environment());
        EXPECT_TRUE(testing::waitUntil([&] { return std::filesystem::exists(ready); }, 20s));
        return painter;
    }
    uint32_t windowOf(const std::string& title) {
        std::ifstream in(folder_ / (title + ".ready"));
        uint32_t window = 0;
        in >> window;
        return window;
    }

    XvfbServer x_{1280, 720};
    TemporaryDirectory folder_;
};

TEST_F(X11Capture, ListsTheScreenAndTheWindowsWithTheirProgramAndPlace) {
    auto painter = paint("400x300+100+50", "Counter One");
    const ShareableContent content = x11ShareableContent(x_.display());
    EXPECT_EQ(content.screenHeight, 720);
    ASSERT_FALSE(content.displays.empty());
    EXPECT_EQ(content.displays[0].frame, (CaptureRect{0, 0, 1280, 720}));
    EXPECT_FALSE(content.displays[0].name.empty());
    ASSERT_EQ(content.windows.size(), 1U);
    const CaptureWindow& window = content.windows[0];
    EXPECT_EQ(window.id, windowOf("Counter One"));
    EXPECT_EQ(window.title, "Counter One");
    EXPECT_EQ(window.application, "OrvellePainter");
    EXPECT_EQ(window.role, "counter");
    EXPECT_EQ(window.processID, painter->pid());
    EXPECT_EQ(window.frame, (CaptureRect{100, 50, 400, 300}));

    EXPECT_THROW(x11ShareableContent(":4999"), Error);
}

TEST_F(X11Capture, AnAreaStreamIsPacedByTheClockAndShowsNoPointer) {
    auto painter = paint("640x360+200+100", "Paced");
    // The area starts at the window's corner: the counter is at the painter's margin.
    CollectingOutput output(painter::kMargin, painter::kMargin);
    output.watchPointerAt(300, 200);
    x_.xdotool({"mousemove", "500", "300"}); // (300, 200) inside the area
    CaptureStreamConfiguration configuration{640, 360, 60, 8, false};
    auto stream = makeX11CaptureStream(
        x_.display(), {X11CaptureTarget::Kind::screenArea, {200, 100, 640, 360}, 0}, configuration,
        output);
    stream->start();
    ASSERT_TRUE(output.waitForFrames(60, 20s));
    EXPECT_EQ(stream->stop(), std::nullopt);
    const auto seen = output.seen();

    // Times are ticks of a 60 Hz clock; the counters follow the same clock (the painter
    // may be a tick or two behind under load), and never go back.
    int readable = 0;
    for (size_t index = 1; index < seen.size(); ++index) {
        const double step = (seen[index].time - seen[index - 1].time) * 60;
        EXPECT_NEAR(step, std::round(step), 1e-3);
        EXPECT_GE(std::round(step), 1);
        ASSERT_TRUE(seen[index].pointerSpotClean) << "the pointer is in frame " << index;
        if (seen[index].counter && seen[index - 1].counter) {
            ++readable;
            EXPECT_GE(*seen[index].counter, *seen[index - 1].counter);
        }
    }
    EXPECT_GE(readable, static_cast<int>(seen.size()) * 3 / 4);
    const auto& first = seen.front();
    const auto& last = seen.back();
    if (first.counter && last.counter) {
        // A painter starved by a loaded machine paints late; a quarter of a second is
        // allowed, a wrong clock would be off by far more.
        EXPECT_NEAR(*last.counter - *first.counter, (last.time - first.time) * 60, 15);
    }
}

TEST_F(X11Capture, AWindowStreamFollowsItsWindowAndEndsWhenItCloses) {
    auto painter = paint("320x200+50+50", "Moving");
    const uint32_t window = windowOf("Moving");
    CollectingOutput output(painter::kMargin, painter::kMargin);
    CaptureStreamConfiguration configuration{320, 200, 60, 8, false};
    auto stream = makeX11CaptureStream(x_.display(), {X11CaptureTarget::Kind::window, {}, window},
                                       configuration, output);
    stream->start();
    ASSERT_TRUE(output.waitForFrames(10, 20s));
    // Moved across the screen, then half off its right edge: still its own picture, the
    // part off screen black.
    for (const auto& place : {std::pair{700, 400}, std::pair{1100, 300}}) {
        x_.xdotool({"windowmove", std::to_string(window), std::to_string(place.first),
                    std::to_string(place.second)});
        output.clear();
        ASSERT_TRUE(output.waitForFrames(20, 20s));
        const auto seen = output.seen();
        EXPECT_TRUE(seen.back().counter.has_value()) << place.first;
    }
    painter->terminate();
    ASSERT_TRUE(output.waitForStop(10s));
    EXPECT_EQ(output.stopMessages(),
              (std::vector<std::string>{"The window being recorded was closed."}));
    stream->stop();

    // A window that is already gone fails at once.
    EXPECT_THROW(makeX11CaptureStream(x_.display(), {X11CaptureTarget::Kind::window, {}, window},
                                      configuration, output),
                 Error);
}

TEST_F(X11Capture, ThePointerAndItsPressesAnywhereOnTheScreen) {
    auto painter = paint("300x200+0+0", "Clicks");
    X11PointerMonitor monitor(x_.display());
    x_.xdotool({"mousemove", "640", "360"});
    const auto position = monitor.position();
    EXPECT_EQ(position.x, 640);
    EXPECT_EQ(position.y, 360);
    EXPECT_EQ(monitor.screenHeight(), 720);

    std::mutex mutex;
    std::vector<int> presses;
    monitor.startButtonMonitoring([&](int button) {
        std::lock_guard lock(mutex);
        presses.push_back(button);
    });
    // Over the painter's window and over the bare screen alike; wheel steps are no presses.
    x_.xdotool({"mousemove", "100", "100", "click", "1"});
    x_.xdotool({"mousemove", "900", "600", "click", "3", "click", "4", "click", "2"});
    const auto count = [&] {
        std::lock_guard lock(mutex);
        return presses.size();
    };
    EXPECT_TRUE(testing::waitUntil([&] { return count() >= 3; }, 10s));
    monitor.stopButtonMonitoring();
    x_.xdotool({"click", "1"});
    std::this_thread::sleep_for(200ms);
    std::lock_guard lock(mutex);
    EXPECT_EQ(presses, (std::vector<int>{0, 1, 2}));

    const struct {
        int x;
        std::optional<int> button;
    } numbers[] = {{1, 0}, {3, 1}, {2, 2}, {4, std::nullopt}, {7, std::nullopt}, {8, 3}, {9, 4}};
    for (const auto& n : numbers) {
        EXPECT_EQ(pointerButtonNumber(n.x), n.button) << n.x;
    }
}

// The shortcuts pressed within the time: returns once any arrived.
std::vector<int> pressesOf(X11GlobalShortcuts& shortcuts, std::chrono::milliseconds wait) {
    std::vector<int> ids;
    const auto deadline = std::chrono::steady_clock::now() + wait;
    while (ids.empty() && std::chrono::steady_clock::now() < deadline) {
        pollfd readable{shortcuts.fileDescriptor(), POLLIN, 0};
        ::poll(&readable, 1, 50);
        EXPECT_TRUE(shortcuts.dispatch([&](int id) { ids.push_back(id); }));
    }
    return ids;
}

TEST_F(X11Capture, ShortcutsReachTheirOwnerWhicheverWindowHasTheFocusAndWhateverTheLocks) {
    auto painter = paint("400x300+100+50", "Focused");
    X11GlobalShortcuts shortcuts(x_.display());
    ASSERT_EQ(shortcuts.grab(1, "Ctrl+Alt+R"), GlobalShortcutGrab::taken);
    ASSERT_EQ(shortcuts.grab(2, "Ctrl+Shift+F5"), GlobalShortcutGrab::taken);
    shortcuts.dispatch([](int) {});
    x_.xdotool({"windowfocus", "--sync", std::to_string(windowOf("Focused"))});

    // Caps Lock and Num Lock do not change the chord; other chords on the same key go to the
    // focused window. The shortcut is pressed last, so anything wrongly taken shows first.
    const struct {
        std::vector<std::string> locks;
        std::string keys;
        int id;
    } cases[] = {
        {{}, "ctrl+alt+r", 1},
        {{"Caps_Lock"}, "ctrl+alt+r", 1},
        {{"Num_Lock"}, "ctrl+shift+F5", 2},
        {{"Caps_Lock", "Num_Lock"}, "ctrl+alt+r", 1},
    };
    for (const auto& c : cases) {
        for (const auto& lock : c.locks) {
            x_.xdotool({"key", lock});
        }
        x_.xdotool({"key", "ctrl+r", "ctrl+alt+shift+r", "F5", c.keys});
        EXPECT_EQ(pressesOf(shortcuts, 5s), std::vector<int>{c.id}) << c.keys;
        for (const auto& lock : c.locks) {
            x_.xdotool({"key", lock});
        }
    }

    // Held down, the keyboard repeats the key: still one press.
    x_.xdotool({"keydown", "ctrl+alt+r"});
    std::this_thread::sleep_for(1500ms);
    x_.xdotool({"keyup", "ctrl+alt+r"});
    x_.xdotool({"key", "ctrl+shift+F5"});
    std::vector<int> held;
    while (held.size() < 2) {
        const auto more = pressesOf(shortcuts, 5s);
        if (more.empty()) {
            break;
        }
        held.insert(held.end(), more.begin(), more.end());
    }
    EXPECT_EQ(held, (std::vector<int>{1, 2}));

    // Another program cannot take what this one holds, until it lets go.
    X11GlobalShortcuts other(x_.display());
    EXPECT_EQ(other.grab(7, "Ctrl+Alt+R"), GlobalShortcutGrab::heldElsewhere);
    EXPECT_EQ(other.grab(7, "Ctrl+Alt+Q"), GlobalShortcutGrab::taken);
    shortcuts.release(1);
    EXPECT_EQ(other.grab(8, "Ctrl+Alt+R"), GlobalShortcutGrab::taken);
    other.dispatch([](int) {});
    x_.xdotool({"key", "ctrl+alt+r"});
    EXPECT_EQ(pressesOf(other, 5s), std::vector<int>{8});

    // Keys that would take typing away, and names of no key, are refused.
    const struct {
        std::string keys;
        GlobalShortcutGrab result;
    } refusals[] = {
        {"R", GlobalShortcutGrab::needsModifier},
        {"Shift+R", GlobalShortcutGrab::needsModifier},
        {"Ctrl+Alt+NoSuchKey", GlobalShortcutGrab::unknownKey},
        {"", GlobalShortcutGrab::unknownKey},
        {"F9", GlobalShortcutGrab::taken},
        {"Meta+Space", GlobalShortcutGrab::taken},
        {"Ctrl+Shift+!", GlobalShortcutGrab::taken},
    };
    for (const auto& refusal : refusals) {
        EXPECT_EQ(shortcuts.grab(9, refusal.keys), refusal.result) << refusal.keys;
    }
}

} // namespace
} // namespace orvelle
