#pragma once

// What a recording captures: a display, a window or an area of a display, chosen before
// the recording starts, and the filter the stream is made from. The rules that turn a
// choice into stream geometry (own windows left out, even pixel sizes, the pointer's
// frame) live here, apart from any backend.

#include "platform/capture/capture_types.h"
#include "recording/orvelle_error.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace orvelle {

// What a stream shows: a whole display, or one window, less some windows.
struct CaptureContentFilter {
    enum class Style { display, window };
    Style style = Style::display;
    uint32_t displayID = 0;  // display style
    uint32_t windowID = 0;   // window style
    CaptureRect contentRect; // the content in screen points, top-left origin
    double pointPixelScale = 1;
    std::vector<uint32_t> excludedWindowIDs;

    friend bool operator==(const CaptureContentFilter&, const CaptureContentFilter&) = default;
};

struct RecorderSourceSelection {
    RecorderCaptureMode mode = RecorderCaptureMode::display;
    std::string title;
    CaptureContentFilter filter;
    std::optional<CaptureDisplay> display;
    std::optional<CaptureRect> sourceRect;   // area mode: inside the display, display-local
    std::optional<CaptureRect> captureFrame; // global, bottom-left origin (the pointer's frame)
    std::optional<CaptureRect> previewFrame; // what the still shows, top-left origin
    std::optional<int32_t> owningProcessID;

    friend bool operator==(const RecorderSourceSelection&,
                           const RecorderSourceSelection&) = default;
};

inline constexpr const char* kSelectedAreaTitle = "Selected Area";

// A window's name for people: its title, else its program's name, else "Window".
std::string windowTitle(const CaptureWindow& window);

// Throws OrvelleError: noDisplaysAvailable without displays, displayUnavailable for an
// unknown id.
RecorderSourceSelection displaySelection(const ShareableContent& content, uint32_t displayID);
// Throws OrvelleError::invalidSelection(window) for an unknown window.
RecorderSourceSelection windowSelection(const ShareableContent& content, uint32_t windowID);
// An area in screen points (top-left origin) on the display it overlaps most, clamped to
// that display. Throws invalidSelection(area) when it lies on no display or leaves nothing.
RecorderSourceSelection areaSelection(const ShareableContent& content, const CaptureRect& area);

namespace ScreenCaptureGeometry {

// The mode, the source rectangle and the filter must agree: without a source rectangle a
// display needs a display filter and a window a window filter; with one the mode must be
// area over a display filter. Throws invalidSelection(mode).
void validateSelection(RecorderCaptureMode mode, const std::optional<CaptureRect>& sourceRect,
                       const CaptureContentFilter& filter);

// For displays and areas, the filter rebuilt to leave out the program's own windows (those
// of recorderWindowIDs, and the overlay's) that are on screen; a window filter comes back
// as it is. Throws displayUnavailable when the display is gone.
CaptureContentFilter contentFilterForRecording(const CaptureContentFilter& filter,
                                               RecorderCaptureMode mode,
                                               const std::optional<CaptureDisplay>& display,
                                               std::optional<uint32_t> excludedOverlayWindowID,
                                               const ShareableContent& content, int32_t processID);

// Pixels of the stream: the source rectangle (else the content) times the scale, each
// made even. Throws invalidCaptureSize(mode).
std::pair<int, int> captureDimensions(const CaptureContentFilter& filter, RecorderCaptureMode mode,
                                      const std::optional<CaptureRect>& sourceRect);

// The filter's content in bottom-left global coordinates, absent when empty.
std::optional<CaptureRect> captureFrame(const CaptureContentFilter& filter,
                                        const ShareableContent& content);

} // namespace ScreenCaptureGeometry

} // namespace orvelle
