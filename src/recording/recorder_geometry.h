#pragma once

// The plain rectangle logic behind choosing what to record: even capture sizes, finding a
// display by id or by overlap, the program's own windows, the flip between the streams'
// top-left coordinates and the bottom-left global ones of the pointer data, and the area
// overlay's clamping and resizing.

#include "platform/capture/capture_types.h"

#include <optional>
#include <string>
#include <vector>

namespace orvelle {

// A display as the display overlay offers it.
struct DisplaySelectionTarget {
    uint32_t id = 0;
    CaptureRect frame;
    std::string title;
    std::string subtitle; // "1920 x 1080"

    friend bool operator==(const DisplaySelectionTarget&, const DisplaySelectionTarget&) = default;
};

namespace WindowRecorderGeometry {

// The identifier of the recorder's own window, and the title every window of the program
// may carry: such windows are left out of a recording.
inline constexpr const char* kRecorderWindowIdentifier = "OrvelleRecorderWindow";
inline constexpr const char* kRecorderWindowTitle = "Orvelle";

// Ceiling; below 16 gives 16; odd gets 1 added. Not finite gives 16.
int evenDimension(double value);

// Area of the intersection, 0 when they do not meet.
double overlapArea(const CaptureRect& a, const CaptureRect& b);

// The height that flips top-left and bottom-left coordinates; absent without a screen.
std::optional<double> primaryScreenMaxY(const ShareableContent& content);
// A top-left rectangle in bottom-left global coordinates (and back: the flip is its own
// inverse). Absent without a screen or for an empty rectangle.
std::optional<CaptureRect> flipped(const CaptureRect& rect, const ShareableContent& content);

std::vector<DisplaySelectionTarget> displaySelectionTargets(const ShareableContent& content);

// Windows of the process `processID` that are the recorder window (by role) or carry the
// program's title.
std::vector<uint32_t> recorderWindowIDs(const ShareableContent& content, int32_t processID);

std::optional<CaptureDisplay> display(const ShareableContent& content, uint32_t id);
// By id, then the display whose frame equals the target's to under a point, then the one
// overlapping it most.
std::optional<CaptureDisplay> display(const ShareableContent& content,
                                      const DisplaySelectionTarget& target);
// By id when given, else the one overlapping the fallback rectangle most (none when
// nothing overlaps).
std::optional<CaptureDisplay> display(std::optional<uint32_t> id, const ShareableContent& content,
                                      const std::optional<CaptureRect>& fallbackRect);

} // namespace WindowRecorderGeometry

enum class AreaResizeHandle {
    topLeft,
    top,
    topRight,
    right,
    bottomRight,
    bottom,
    bottomLeft,
    left
};

// The area overlay's rectangles, in the canvas's coordinates: origin top left, y down.
namespace AreaSelectionGeometry {

inline constexpr double kMinimumWidth = 96;
inline constexpr double kMinimumHeight = 72;

struct CanvasSize {
    double width = 0;
    double height = 0;
};
struct Delta {
    double dx = 0;
    double dy = 0;
};

// The rectangle standardised (a backwards drag has negative sizes) with its corners held
// inside the canvas.
CaptureRect clamped(const CaptureRect& rect, CanvasSize size);
// Moves the edges a handle holds by the delta; the opposite edges stay. Edges stop at the
// minimum size and at the canvas; the canvas wins when both cannot hold.
CaptureRect resized(const CaptureRect& rect, AreaResizeHandle handle, Delta delta, CanvasSize size);

} // namespace AreaSelectionGeometry

} // namespace orvelle
