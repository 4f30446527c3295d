#include "sample_take/sample_script.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>
#include <stdexcept>

namespace orvelle::SampleTake {

namespace {

// Seconds a hand needs to bring the pointer over a distance onto a target of a given
// size (Fitts's law with the constants of an ordinary mouse).
double movementTime(Point from, Point to, double targetSize) {
    const double distance = std::hypot(to.x - from.x, to.y - from.y);
    return 0.28 + 0.11 * std::log2(distance / targetSize + 1);
}

class ScriptWriter {
public:
    explicit ScriptWriter(SampleScript& script, std::uint32_t seed)
        : script_(script), random_(seed), position_(script.pointerStart) {}

    double uniform(double low, double high) {
        return std::uniform_real_distribution<double>(low, high)(random_);
    }

    // Moves the pointer from where it is now, leaving at `start`; returns when it settles.
    double move(double start, Point to, double targetSize = 24) {
        PointerMove move;
        move.start = start;
        move.end = start + movementTime(position_, to, targetSize) * uniform(0.92, 1.1);
        move.to = to;
        const double distance = std::hypot(to.x - position_.x, to.y - position_.y);
        move.bow = uniform(0.03, 0.09) * (uniform(0, 1) < 0.5 ? -1 : 1);
        move.overshoot = distance > 300 ? uniform(0.015, 0.035) : 0.0;
        script_.moves.push_back(move);
        position_ = to;
        return move.end;
    }

    // A click where the pointer is, a moment after it settled; returns the click's time.
    double click(double settled, WindowID window) {
        const double time = settled + uniform(0.08, 0.16);
        script_.clicks.push_back({time, position_, window});
        return time;
    }

    // Types the text as a person does: a rhythm around 13 keys a second, slower around
    // punctuation, a pause to think before Enter and after it. Returns the time of the
    // last key.
    double type(double start, WindowID window, const std::string& text) {
        double time = start;
        char previous = ' ';
        for (const char c : text) {
            double interval = std::clamp(0.068 + 0.022 * normal(), 0.04, 0.16);
            if (previous == ' ' || c == ' ') {
                interval += 0.025;
            }
            if (std::string_view("(),;{}.").find(c) != std::string_view::npos) {
                interval += uniform(0.03, 0.08);
            }
            if (c == '\n') {
                interval += uniform(0.18, 0.3);
            }
            if (previous == '\n') {
                interval += uniform(0.12, 0.25);
            }
            time += interval;
            script_.keys.push_back({time, window, std::string(1, c)});
            previous = c;
        }
        return time;
    }

    // Scrolls the page in flicks of a few notches each; returns the last notch's time.
    double scroll(double start, const std::vector<int>& flicks) {
        double time = start;
        for (const int notches : flicks) {
            for (int i = 0; i < notches; ++i) {
                script_.notches.push_back({time, 100});
                time += uniform(0.055, 0.09);
            }
            time += uniform(0.45, 0.65); // reading before the next flick
        }
        return script_.notches.back().time;
    }

private:
    double normal() { return std::normal_distribution<double>(0, 1)(random_); }

    SampleScript& script_;
    std::mt19937 random_;
    Point position_;
};

std::vector<std::string> headerLines() {
    return {"#pragma once",
            "",
            "#include <algorithm>",
            "",
            "namespace demo {",
            "",
            "// Keeps a value inside [low, high].",
            "template <class T>",
            "constexpr T clamp(T value, T low, T high) {",
            "    return std::min(std::max(value, low), high);",
            "}",
            "",
            "",
            "",
            "} // namespace demo"};
}

} // namespace

const WindowLayout& SampleScript::window(WindowID id) const {
    for (const auto& layout : windows) {
        if (layout.id == id) {
            return layout;
        }
    }
    throw std::logic_error("the sample script has no such window");
}

std::vector<WindowID> SampleScript::stackingOrder(double time) const {
    std::vector<WindowID> order;
    for (const auto& layout : windows) {
        order.push_back(layout.id);
    }
    for (const auto& click : clicks) {
        if (click.time > time) {
            break;
        }
        std::erase(order, click.window);
        order.push_back(click.window);
    }
    return order;
}

const WindowLayout* SampleScript::windowAt(Point point, double time) const {
    const WindowLayout* front = nullptr;
    for (const WindowID id : stackingOrder(time)) { // back to front: the last one wins
        if (window(id).frame.contains(point)) {
            front = &window(id);
        }
    }
    return front;
}

double editorLineTop(const WindowLayout& editor, int line) {
    return editor.frame.y + Layout::kTitleBarHeight + Layout::kEditorTabBarHeight +
           Layout::kCodeTopPadding + line * Layout::kCodeLineHeight;
}

SampleScript makeSampleScript(std::uint32_t seed) {
    SampleScript script;
    script.duration = 20;
    script.seed = seed;
    script.windows = {
        {WindowID::terminal, {1000, 652, 880, 388}, "Terminal — ~/projects/demo"},
        {WindowID::browser, {760, 128, 1000, 832}, "clamp — Reference — Web Browser"},
        {WindowID::editor, {100, 72, 1080, 800}, "clamp.hpp — demo — Code"},
    };
    script.editorLines = headerLines();
    script.editorCaretLine = 12;
    script.terminalPrompt = "me@desk:~/projects/demo$ ";
    script.pointerStart = {1290, 600};

    ScriptWriter writer(script, seed);
    const auto& editor = script.window(WindowID::editor);
    const auto& browser = script.window(WindowID::browser);
    const auto& terminal = script.window(WindowID::terminal);

    // Into the empty line of the header, and type a helper.
    const double lineMiddle =
        editorLineTop(editor, script.editorCaretLine) + Layout::kCodeLineHeight / 2;
    double t = writer.move(writer.uniform(0.9, 1.1), {560, lineMiddle}, 20);
    t = writer.click(t, WindowID::editor);
    const double typingStart = t + 0.4;
    const double typed =
        writer.type(typingStart, WindowID::editor,
                    "inline double unit(double x) {\nreturn clamp(x, 0.0, 1.0);\n}");
    // Out of the way of the text while typing.
    writer.move(typingStart + 1.1, {700, lineMiddle + 150}, 60);

    // The browser's tab, then down its page.
    t = writer.move(typed + 0.35, {1440, browser.frame.y + Layout::kTitleBarHeight / 2}, 30);
    t = writer.click(t, WindowID::browser);
    t = writer.move(t + 0.25, {1290, 600}, 80);
    t = writer.scroll(t + 0.3, {4, 3, 4, 3});

    // The terminal's title bar, where it shows beside the browser; run the tests.
    t = writer.move(t + 0.7, {1818, terminal.frame.y + Layout::kTitleBarHeight / 2}, 30);
    t = writer.click(t, WindowID::terminal);
    writer.move(t + 0.3, {1560, 760}, 80);
    const double enter = writer.type(t + 0.6, WindowID::terminal, "make test\n");
    script.terminalOutput = {
        {enter + 0.25,
         "[1/3] Building CXX object tests/CMakeFiles/clamp_tests.dir/clamp_tests.cpp.o"},
        {enter + 0.9, "[2/3] Linking CXX executable bin/clamp_tests"},
        {enter + 1.15, "[3/3] Running the tests"},
        {enter + 1.35, "100% tests passed, 0 tests failed out of 12"},
        {enter + 1.4, script.terminalPrompt},
    };
    script.chimeTime = enter + 1.4;
    writer.move(std::min(script.duration - 1.2, enter + 2.0), {1620, 830}, 80);

    script.narration = {
        {0.35, "Let me show you a small change to this project."},
        {typingStart + 0.1, "I'll add a helper that keeps a number between zero and one."},
        {typed + 0.5, "Then I check the documentation for clamp."},
        {script.notches[4].time, "The examples further down show the edge cases."},
        {enter - 1.3, "Finally, I run the tests in the terminal."},
        {script.chimeTime + 0.1, "Everything passes."},
    };
    return script;
}

Point pointerPosition(const SampleScript& script, double time) {
    const auto smooth = [](double u) { // minimum jerk: the speed profile of a reach
        u = std::clamp(u, 0.0, 1.0);
        return u * u * u * (10 + u * (-15 + 6 * u));
    };
    Point from = script.pointerStart;
    Point position = from;
    for (const auto& move : script.moves) {
        if (time < move.start) {
            break;
        }
        if (time >= move.end) {
            from = move.to;
            position = from;
            continue;
        }
        const double dx = move.to.x - from.x;
        const double dy = move.to.y - from.y;
        const double distance = std::hypot(dx, dy);
        const double u = (time - move.start) / (move.end - move.start);
        // The reach aims a little past the target, then a short correction comes back.
        const double reach = move.overshoot > 0 ? 0.84 : 1.0;
        const Point aim{move.to.x + dx * move.overshoot, move.to.y + dy * move.overshoot};
        if (u < reach) {
            const double s = smooth(u / reach);
            const double side = move.bow * distance * std::sin(std::numbers::pi * s);
            const double nx = distance > 0 ? -dy / distance : 0;
            const double ny = distance > 0 ? dx / distance : 0;
            position = {from.x + (aim.x - from.x) * s + nx * side,
                        from.y + (aim.y - from.y) * s + ny * side};
        } else {
            const double s = smooth((u - reach) / (1 - reach));
            position = {aim.x + (move.to.x - aim.x) * s, aim.y + (move.to.y - aim.y) * s};
        }
        break;
    }
    // A resting hand is never quite still: a fine tremor and a slow drift of a pixel.
    const double phase = script.seed * 0.618;
    const double tremorX = 0.3 * std::sin(2 * std::numbers::pi * 7.3 * time + phase) +
                           0.6 * std::sin(2 * std::numbers::pi * 0.37 * time + 2 * phase);
    const double tremorY = 0.3 * std::sin(2 * std::numbers::pi * 8.9 * time + 3 * phase) +
                           0.6 * std::sin(2 * std::numbers::pi * 0.29 * time + 5 * phase);
    return {std::clamp(position.x + tremorX, 0.0, kDesignWidth - 1),
            std::clamp(position.y + tremorY, 0.0, kDesignHeight - 1)};
}

} // namespace orvelle::SampleTake
