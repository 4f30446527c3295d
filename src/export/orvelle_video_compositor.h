#pragma once

// Draws the export's frames: the frame's geometry from the composition's resolver, the
// picture from the frame renderer over the source pictures, rendered straight into the
// output frame. Holds the rendering context (masks, pointer art, text lines, the fitted
// wallpaper), so everything that does not change from frame to frame is made once.
// Used from the render thread only. A frame it cannot draw fails with an
// OrvelleCompositorError, which ends the export as a failure to read; a stop of the export
// drops the frames still waiting to be drawn (see RenderPipe).

#include "composition/frame_renderer.h"
#include "composition/frame_rendering_context.h"
#include "export/render_pipe.h"

#include <memory>

namespace orvelle {

class OrvelleVideoCompositor final : public ExportFrameCompositor {
public:
    explicit OrvelleVideoCompositor(std::shared_ptr<RenderFrameResolver> resolver);

    // Throws OrvelleCompositorError: missingInstruction for a frame without one,
    // cannotAllocateOutputBuffer when `output` is not a BGRA frame of pixels to draw into.
    void compose(const ExportFrameRequest& request, VideoFrame& output) override;

private:
    std::shared_ptr<RenderFrameResolver> resolver_;
    FrameRenderingContext context_;
};

} // namespace orvelle
