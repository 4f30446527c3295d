#pragma once

// Small stages for the renderer's pixel tests: a composition built the way the frame
// composition builds an idle card, flat-coloured pictures, and reading pixels by stage
// points measured from the top left (as the composition measures).

#include "composition/frame_composition.h"
#include "composition/frame_renderer.h"
#include "composition/frame_rendering_context.h"
#include "platform/image/image.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace orvelle::testing {

// An idle card on a solid background: padding and shadow as the frame composition derives
// them from the background settings, no zoom, nothing else.
inline FrameComposition idleComposition(double width, double height, double padding,
                                        double shadowAmount = 0) {
    FrameComposition f{.stageSize = {width, height},
                       .sourceNaturalSize = {width, height},
                       .embeddedVideoSize = {width, height},
                       .movieRect = {0, 0, width, height}};
    f.background.kind = BackgroundKind::color;
    f.background.solidColor = {0, 0, 1, 1};
    f.background.paddingAmount = padding;
    f.background.shadowAmount = shadowAmount;
    const double frame = std::clamp(padding / 0.08, 0.0, 1.0);
    ScreenLayerComposition& s = f.preview.screen;
    s.paddingScale = padding <= 0 ? 1 : std::max(1 - padding, 0.25);
    s.cornerRadius = std::min(width, height) * frame * 0.04 * 0.5;
    s.shadowRadius = shadowAmount * 50 * frame;
    s.shadowOpacity = shadowAmount * frame * 0.7;
    s.shadowOffset = {0, shadowAmount * 50 * 0.6 * frame};
    s.strokeWidth = frame;
    s.strokeOpacity = frame * 0.08;
    return f;
}

inline Image solidPicture(double width, double height, const ImageColor& color) {
    return Image::color(color).cropped({0, 0, width, height}).rendered();
}

// A picture whose left half is one colour and right half another.
inline Image splitPicture(double width, double height, const ImageColor& left,
                          const ImageColor& right) {
    return Image::color(left)
        .cropped({0, 0, width / 2, height})
        .composited(Image::color(right).cropped({width / 2, 0, width / 2, height}))
        .rendered();
}

inline Bitmap renderFrame(const FrameRendererInput& input, FrameRenderingContext& context) {
    const Size stage = input.composition.stageSize;
    return FrameRenderer::render(input, context).render({0, 0, stage.width, stage.height});
}

// B, G, R, A of the pixel that holds the stage point (x, y), measured from the top left.
inline std::array<int, 4> at(const Bitmap& frame, double x, double y) {
    const auto p = frame.pixel(static_cast<int>(std::floor(x)), static_cast<int>(std::floor(y)));
    return {p[0], p[1], p[2], p[3]};
}

} // namespace orvelle::testing
