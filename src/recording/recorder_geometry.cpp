#include "recording/recorder_geometry.h"

#include <algorithm>
#include <cmath>

namespace orvelle {

namespace WindowRecorderGeometry {

int evenDimension(double value) {
    if (!std::isfinite(value) || value < 16) {
        return 16;
    }
    const auto rounded = static_cast<long long>(std::ceil(value));
    return static_cast<int>(rounded % 2 == 0 ? rounded : rounded + 1);
}

double overlapArea(const CaptureRect& a, const CaptureRect& b) {
    const double width = std::min(a.maxX(), b.maxX()) - std::max(a.minX(), b.minX());
    const double height = std::min(a.maxY(), b.maxY()) - std::max(a.minY(), b.minY());
    return std::max(0.0, width) * std::max(0.0, height);
}

std::optional<double> primaryScreenMaxY(const ShareableContent& content) {
    if (content.screenHeight > 0) {
        return content.screenHeight;
    }
    if (!content.displays.empty()) {
        return content.displays.front().frame.maxY();
    }
    return std::nullopt;
}

std::optional<CaptureRect> flipped(const CaptureRect& rect, const ShareableContent& content) {
    const auto maxY = primaryScreenMaxY(content);
    if (!maxY || rect.isEmpty()) {
        return std::nullopt;
    }
    return CaptureRect{rect.x, *maxY - (rect.y + rect.height), rect.width, rect.height};
}

std::vector<DisplaySelectionTarget> displaySelectionTargets(const ShareableContent& content) {
    std::vector<DisplaySelectionTarget> targets;
    for (const auto& display : content.displays) {
        if (display.frame.isEmpty()) {
            continue;
        }
        targets.push_back({display.id, display.frame, display.name,
                           std::to_string(std::lround(display.frame.width)) + " x " +
                               std::to_string(std::lround(display.frame.height))});
    }
    return targets;
}

std::vector<uint32_t> recorderWindowIDs(const ShareableContent& content, int32_t processID) {
    std::vector<uint32_t> ids;
    for (const auto& window : content.windows) {
        if (window.id > 0 && window.processID == processID &&
            (window.role == kRecorderWindowIdentifier || window.title == kRecorderWindowTitle)) {
            ids.push_back(window.id);
        }
    }
    return ids;
}

std::optional<CaptureDisplay> display(const ShareableContent& content, uint32_t id) {
    const auto found = std::find_if(content.displays.begin(), content.displays.end(),
                                    [id](const CaptureDisplay& d) { return d.id == id; });
    if (found == content.displays.end()) {
        return std::nullopt;
    }
    return *found;
}

namespace {

std::optional<CaptureDisplay> largestOverlap(const ShareableContent& content,
                                             const CaptureRect& rect) {
    const CaptureDisplay* best = nullptr;
    double bestArea = 0;
    for (const auto& candidate : content.displays) {
        const double area = overlapArea(candidate.frame, rect);
        if (area > bestArea) {
            best = &candidate;
            bestArea = area;
        }
    }
    if (best == nullptr) {
        return std::nullopt;
    }
    return *best;
}

} // namespace

std::optional<CaptureDisplay> display(const ShareableContent& content,
                                      const DisplaySelectionTarget& target) {
    if (auto byID = display(content, target.id)) {
        return byID;
    }
    for (const auto& candidate : content.displays) {
        const auto& frame = candidate.frame;
        if (std::abs(frame.x - target.frame.x) < 1 && std::abs(frame.y - target.frame.y) < 1 &&
            std::abs(frame.width - target.frame.width) < 1 &&
            std::abs(frame.height - target.frame.height) < 1) {
            return candidate;
        }
    }
    return largestOverlap(content, target.frame);
}

std::optional<CaptureDisplay> display(std::optional<uint32_t> id, const ShareableContent& content,
                                      const std::optional<CaptureRect>& fallbackRect) {
    if (id) {
        return display(content, *id);
    }
    if (!fallbackRect) {
        return std::nullopt;
    }
    return largestOverlap(content, *fallbackRect);
}

} // namespace WindowRecorderGeometry

namespace AreaSelectionGeometry {

CaptureRect clamped(const CaptureRect& rect, CanvasSize size) {
    const double left = std::min(rect.x, rect.x + rect.width);
    const double right = std::max(rect.x, rect.x + rect.width);
    const double top = std::min(rect.y, rect.y + rect.height);
    const double bottom = std::max(rect.y, rect.y + rect.height);
    const auto clampX = [&](double value) {
        return std::clamp(value, 0.0, std::max(0.0, size.width));
    };
    const auto clampY = [&](double value) {
        return std::clamp(value, 0.0, std::max(0.0, size.height));
    };
    const double x1 = clampX(left);
    const double x2 = clampX(right);
    const double y1 = clampY(top);
    const double y2 = clampY(bottom);
    return {std::min(x1, x2), std::min(y1, y2), std::abs(x2 - x1), std::abs(y2 - y1)};
}

CaptureRect resized(const CaptureRect& rect, AreaResizeHandle handle, Delta delta,
                    CanvasSize size) {
    const CaptureRect start = clamped(rect, size);
    double left = start.minX();
    double right = start.maxX();
    double top = start.minY();
    double bottom = start.maxY();
    const bool movesLeft = handle == AreaResizeHandle::topLeft ||
                           handle == AreaResizeHandle::left ||
                           handle == AreaResizeHandle::bottomLeft;
    const bool movesRight = handle == AreaResizeHandle::topRight ||
                            handle == AreaResizeHandle::right ||
                            handle == AreaResizeHandle::bottomRight;
    const bool movesTop = handle == AreaResizeHandle::topLeft || handle == AreaResizeHandle::top ||
                          handle == AreaResizeHandle::topRight;
    const bool movesBottom = handle == AreaResizeHandle::bottomLeft ||
                             handle == AreaResizeHandle::bottom ||
                             handle == AreaResizeHandle::bottomRight;
    // Each moving edge stops at the minimum size first and at the canvas last.
    if (movesLeft) {
        left = std::max(0.0, std::min(left + delta.dx, right - kMinimumWidth));
    }
    if (movesRight) {
        right = std::min(size.width, std::max(right + delta.dx, left + kMinimumWidth));
    }
    if (movesTop) {
        top = std::max(0.0, std::min(top + delta.dy, bottom - kMinimumHeight));
    }
    if (movesBottom) {
        bottom = std::min(size.height, std::max(bottom + delta.dy, top + kMinimumHeight));
    }
    return {left, top, std::max(0.0, right - left), std::max(0.0, bottom - top)};
}

} // namespace AreaSelectionGeometry

} // namespace orvelle
