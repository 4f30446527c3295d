#pragma once

// The story of the sample take, as times and places: a desktop with a code editor, a
// browser and a terminal; the user adds a function in the editor, reads the documentation
// and runs the tests, talking over it. Everything the picture, the pointer file and the
// narration show comes from this one script, so the three agree. Places are pixels of a
// 1920x1080 screen, origin top left; times are seconds from the first frame.

#include <cstdint>
#include <string>
#include <vector>

namespace orvelle::SampleTake {

inline constexpr double kDesignWidth = 1920;
inline constexpr double kDesignHeight = 1080;

struct Point {
    double x = 0;
    double y = 0;

    friend bool operator==(const Point&, const Point&) = default;
};

struct Rect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    bool contains(Point point) const {
        return point.x >= x && point.x < x + width && point.y >= y && point.y < y + height;
    }
    friend bool operator==(const Rect&, const Rect&) = default;
};

enum class WindowID { editor, browser, terminal };

// The parts of the windows that the script points at and the painter draws, in pixels.
namespace Layout {
inline constexpr double kPanelHeight = 34;    // the desktop's top bar
inline constexpr double kTitleBarHeight = 40; // every window's
inline constexpr double kCornerRadius = 10;
inline constexpr double kEditorTabBarHeight = 34;
inline constexpr double kEditorSidebarWidth = 230;
inline constexpr double kEditorGutterWidth = 58;
inline constexpr double kCodeFontSize = 15;
inline constexpr double kCodeLineHeight = 23;
inline constexpr double kCodeTopPadding = 12;
inline constexpr double kCodeLeftPadding = 14;
inline constexpr double kBrowserToolbarHeight = 44; // the address bar under the title bar
inline constexpr double kTerminalFontSize = 14;
inline constexpr double kTerminalLineHeight = 21;
inline constexpr double kTerminalPadding = 12;
} // namespace Layout

struct WindowLayout {
    WindowID id = WindowID::editor;
    Rect frame;        // the window with its title bar, without its shadow
    std::string title; // in the title bar
};

// The pointer travels to `to`, leaving at `start`; `end` is when it settles there. A hand
// bows the path a little to one side and, on a long way, passes the target before it
// comes back to it.
struct PointerMove {
    double start = 0;
    double end = 0;
    Point to;
    double bow = 0;       // sideways, as a fraction of the distance (signed)
    double overshoot = 0; // past the target, as a fraction of the distance
};

// A left click; the window under the pointer comes to the front.
struct Click {
    double time = 0;
    Point at;
    WindowID window = WindowID::editor;
};

// One key: a character (UTF-8), or "\n" for Enter. Editors indent a new line as the one
// before it, one step deeper after "{", and "}" on an empty line steps back.
struct Keystroke {
    double time = 0;
    WindowID window = WindowID::editor;
    std::string text;
};

// One notch of the mouse wheel over the browser's page; the page glides by `pixels`.
struct WheelNotch {
    double time = 0;
    double pixels = 0;
};

// A line the program prints in the terminal.
struct TerminalLine {
    double time = 0;
    std::string text;
};

// A sentence of the narration, spoken no earlier than `earliest` and after the one before.
struct NarrationSentence {
    double earliest = 0;
    std::string text;
};

struct SampleScript {
    double duration = 20;
    std::vector<WindowLayout> windows; // back to front at the start
    std::vector<std::string> editorLines;
    int editorCaretLine = 0; // the empty line the user clicks into
    std::string terminalPrompt;
    Point pointerStart;
    std::vector<PointerMove> moves; // in time order, never overlapping
    std::vector<Click> clicks;
    std::vector<Keystroke> keys;
    std::vector<WheelNotch> notches;
    std::vector<TerminalLine> terminalOutput;
    double chimeTime = 0; // the system's "done" sound, when the tests pass
    std::vector<NarrationSentence> narration;
    std::uint32_t seed = 0; // of the hand's tremor

    const WindowLayout& window(WindowID id) const;
    // The windows back to front at a time: a click brings its window to the front.
    std::vector<WindowID> stackingOrder(double time) const;
    // The front-most window under a point at a time, if any.
    const WindowLayout* windowAt(Point point, double time) const;
};

// The top of line `line` of the editor's code, on the screen.
double editorLineTop(const WindowLayout& editor, int line);

// The same story for every seed; the seed varies only the human timing and wobble.
SampleScript makeSampleScript(std::uint32_t seed = 7);

// Where the pointer is at a time: human movement between the script's places, with the
// small tremor of a hand that rests on the mouse.
Point pointerPosition(const SampleScript& script, double time);

} // namespace orvelle::SampleTake
