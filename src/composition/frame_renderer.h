#pragma once

// From a frame's composition and its source pictures to the picture of the stage. The
// result is an Image: a description that costs nothing until it is rendered, which then
// computes only the stage's pixels. All geometry was settled by the frame composition;
// this draws it. It never fails: a step that cannot be made leaves its input as it was.

#include "composition/frame_composition.h"
#include "platform/image/image.h"
#include "platform/media/video_frame.h"

#include <optional>

namespace orvelle {

class FrameRenderingContext;

struct FrameRendererInput {
    Image screen;                         // the screen recording's frame
    std::optional<Image> camera;          // the camera's frame, when there is one
    std::optional<Image> bakedBackground; // the wallpaper fitted to the stage
    FrameComposition composition;
};

// How the lines of a text clip come in one after another.
namespace TextAnimationEngine {

// Seconds a line takes to come in at this speed.
double linePace(double speed);
// Seconds between the start of one line and the next.
double resolvedStagger(int lineCount, double duration, double speed);

} // namespace TextAnimationEngine

namespace FrameRenderer {

// The stage, (0, 0, width, height) of the composition's stage size, origin bottom left.
Image render(const FrameRendererInput& input, FrameRenderingContext& context);

// An image scaled to cover the stage, centred, and cropped to it.
Image aspectFillCachedBackground(const Image& image, Size sourceSize, Size stageSize);

// A decoded BGRA frame as an opaque image with extent (0, 0, width, height). The frame's
// pixels are not copied: the frame must stay as it is until the image has been rendered.
Image imageOfFrame(const VideoFrame& frame);

// What render() draws a resolved frame from: a stretch without a screen picture is black
// on the card, a camera picture that is missing leaves the overlay out. The pictures must
// stay as they are until the stage has been rendered. The export and the preview both
// draw through this.
FrameRendererInput rendererInput(const FrameComposition& composition, const VideoFrame* screen,
                                 const VideoFrame* camera, FrameRenderingContext& context);

} // namespace FrameRenderer

} // namespace orvelle
