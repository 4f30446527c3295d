#include "recording/recorder_source_selection.h"

#include "recording/recorder_geometry.h"

#include <algorithm>
#include <set>

namespace orvelle {

namespace Geometry = WindowRecorderGeometry;

std::string windowTitle(const CaptureWindow& window) {
    if (!window.title.empty()) {
        return window.title;
    }
    if (!window.application.empty()) {
        return window.application;
    }
    return "Window";
}

namespace {

CaptureContentFilter displayFilter(const CaptureDisplay& display) {
    CaptureContentFilter filter;
    filter.style = CaptureContentFilter::Style::display;
    filter.displayID = display.id;
    filter.contentRect = display.frame;
    filter.pointPixelScale = display.scale;
    return filter;
}

} // namespace

RecorderSourceSelection displaySelection(const ShareableContent& content, uint32_t displayID) {
    if (content.displays.empty()) {
        throw OrvelleError::noDisplaysAvailable();
    }
    const auto display = Geometry::display(content, displayID);
    if (!display) {
        throw OrvelleError::displayUnavailable("Display " + std::to_string(displayID));
    }
    RecorderSourceSelection selection;
    selection.mode = RecorderCaptureMode::display;
    selection.title = display->name.empty() ? "Display" : display->name;
    selection.filter = displayFilter(*display);
    selection.display = display;
    selection.captureFrame = Geometry::flipped(display->frame, content);
    selection.previewFrame = display->frame;
    return selection;
}

RecorderSourceSelection windowSelection(const ShareableContent& content, uint32_t windowID) {
    const auto window =
        std::find_if(content.windows.begin(), content.windows.end(),
                     [windowID](const CaptureWindow& w) { return w.id == windowID; });
    if (window == content.windows.end() || window->frame.isEmpty()) {
        throw OrvelleError::invalidSelection(RecorderCaptureMode::window);
    }
    RecorderSourceSelection selection;
    selection.mode = RecorderCaptureMode::window;
    selection.title = windowTitle(*window);
    selection.filter.style = CaptureContentFilter::Style::window;
    selection.filter.windowID = window->id;
    selection.filter.contentRect = window->frame;
    const auto display = Geometry::display(std::nullopt, content, window->frame);
    selection.filter.pointPixelScale = display ? display->scale : 1;
    selection.captureFrame = Geometry::flipped(window->frame, content);
    selection.previewFrame = window->frame;
    if (window->processID > 0) {
        selection.owningProcessID = window->processID;
    }
    return selection;
}

RecorderSourceSelection areaSelection(const ShareableContent& content, const CaptureRect& area) {
    const CaptureRect standard{std::min(area.x, area.x + area.width),
                               std::min(area.y, area.y + area.height), std::abs(area.width),
                               std::abs(area.height)};
    const auto display = Geometry::display(std::nullopt, content, standard);
    if (!display) {
        throw OrvelleError::invalidSelection(RecorderCaptureMode::area);
    }
    const CaptureRect local = AreaSelectionGeometry::clamped(
        {standard.x - display->frame.x, standard.y - display->frame.y, standard.width,
         standard.height},
        {display->frame.width, display->frame.height});
    if (local.isEmpty()) {
        throw OrvelleError::invalidSelection(RecorderCaptureMode::area);
    }
    const CaptureRect global{local.x + display->frame.x, local.y + display->frame.y, local.width,
                             local.height};
    RecorderSourceSelection selection;
    selection.mode = RecorderCaptureMode::area;
    selection.title = kSelectedAreaTitle;
    selection.filter = displayFilter(*display);
    selection.display = display;
    selection.sourceRect = local;
    selection.captureFrame = Geometry::flipped(global, content);
    selection.previewFrame = global;
    return selection;
}

namespace ScreenCaptureGeometry {

void validateSelection(RecorderCaptureMode mode, const std::optional<CaptureRect>& sourceRect,
                       const CaptureContentFilter& filter) {
    using Style = CaptureContentFilter::Style;
    const bool agrees =
        sourceRect ? mode == RecorderCaptureMode::area && filter.style == Style::display
                   : (mode == RecorderCaptureMode::display && filter.style == Style::display) ||
                         (mode == RecorderCaptureMode::window && filter.style == Style::window);
    if (!agrees) {
        throw OrvelleError::invalidSelection(mode);
    }
}

CaptureContentFilter contentFilterForRecording(const CaptureContentFilter& filter,
                                               RecorderCaptureMode mode,
                                               const std::optional<CaptureDisplay>& display,
                                               std::optional<uint32_t> excludedOverlayWindowID,
                                               const ShareableContent& content, int32_t processID) {
    if (mode != RecorderCaptureMode::display && mode != RecorderCaptureMode::area) {
        return filter;
    }
    const auto resolved = Geometry::display(display ? std::optional(display->id) : std::nullopt,
                                            content, filter.contentRect);
    if (!resolved) {
        throw OrvelleError::displayUnavailable(display && !display->name.empty() ? display->name
                                                                                 : "The display");
    }
    auto ownIDs = Geometry::recorderWindowIDs(content, processID);
    std::set<uint32_t> excluded(ownIDs.begin(), ownIDs.end());
    if (excludedOverlayWindowID) {
        excluded.insert(*excludedOverlayWindowID);
    }
    std::vector<uint32_t> onScreen;
    for (const auto& window : content.windows) {
        if (excluded.count(window.id) != 0) {
            onScreen.push_back(window.id);
        }
    }
    if (onScreen.empty()) {
        return filter;
    }
    CaptureContentFilter rebuilt = displayFilter(*resolved);
    rebuilt.excludedWindowIDs = std::move(onScreen);
    return rebuilt;
}

std::pair<int, int> captureDimensions(const CaptureContentFilter& filter, RecorderCaptureMode mode,
                                      const std::optional<CaptureRect>& sourceRect) {
    const CaptureRect rect = sourceRect.value_or(filter.contentRect);
    const double scale = filter.pointPixelScale;
    if (!(rect.width > 0) || !(rect.height > 0) || !(scale > 0)) {
        throw OrvelleError::invalidCaptureSize(mode);
    }
    return {Geometry::evenDimension(rect.width * scale),
            Geometry::evenDimension(rect.height * scale)};
}

std::optional<CaptureRect> captureFrame(const CaptureContentFilter& filter,
                                        const ShareableContent& content) {
    return Geometry::flipped(filter.contentRect, content);
}

} // namespace ScreenCaptureGeometry

} // namespace orvelle
