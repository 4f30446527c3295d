#include "composition/frame_composition_resolver.h"

#include <algorithm>
#include <cmath>

namespace orvelle {

namespace FrameCompositionResolver {

Size embeddedVideoSize(Size movie, Size container) {
    const double width = std::max(container.width, 0.0);
    const double height = std::max(container.height, 0.0);
    if (!(width > 0) || !(height > 0)) {
        return {};
    }
    if (!(movie.width > 0) || !(movie.height > 0)) {
        return {width, height};
    }
    const double scale = std::min(width / movie.width, height / movie.height);
    return {std::trunc(movie.width * scale), std::trunc(movie.height * scale)};
}

Rect movieRect(Size movie, Size embedded) {
    if (!(movie.width > 0) || !(movie.height > 0)) {
        return {0, 0, embedded.width, embedded.height};
    }
    const double scale = std::min(embedded.width / movie.width, embedded.height / movie.height);
    const double width = movie.width * scale;
    const double height = movie.height * scale;
    return {(embedded.width - width) / 2, (embedded.height - height) / 2, width, height};
}

double clickScale(double time, std::span<const CursorClick> clicks) {
    const auto after =
        std::upper_bound(clicks.begin(), clicks.end(), time,
                         [](double t, const CursorClick& click) { return t < click.time; });
    if (after == clicks.begin()) {
        return 1;
    }
    const double elapsed = time - (after - 1)->time;
    return elapsed <= CursorClickVisualEffect::kDuration ? CursorClickVisualEffect::scale(elapsed)
                                                         : 1.0;
}

} // namespace FrameCompositionResolver

namespace CursorClickVisualEffect {

double scale(double elapsed) {
    constexpr double kDepth = 0.16;
    const auto easeOut = [](double p) {
        const double q = 1 - std::clamp(p, 0.0, 1.0);
        return 1 - q * q * q;
    };
    if (!(elapsed >= 0) || elapsed > kDuration) {
        return 1;
    }
    if (elapsed < kPressDuration) {
        return 1 - kDepth * easeOut(elapsed / kPressDuration);
    }
    return 1 - kDepth + kDepth * easeOut((elapsed - kPressDuration) / kReleaseDuration);
}

} // namespace CursorClickVisualEffect

} // namespace orvelle
