#include "export/orvelle_video_compositor.h"

#include "platform/image/bitmap.h"

#include <algorithm>

namespace orvelle {

OrvelleVideoCompositor::OrvelleVideoCompositor(std::shared_ptr<RenderFrameResolver> resolver)
    : resolver_(std::move(resolver)) {}

void OrvelleVideoCompositor::compose(const ExportFrameRequest& request, VideoFrame& output) {
    if (request.instruction == nullptr) {
        throw OrvelleCompositorError(OrvelleCompositorErrorCode::missingInstruction);
    }
    const auto rowBytes = static_cast<size_t>(std::max(output.width, 0)) * 4;
    if (output.layout != PixelLayout::bgra || output.width <= 0 || output.height <= 0 ||
        static_cast<size_t>(output.strides[0]) < rowBytes ||
        output.planes[0].size() <
            static_cast<size_t>(output.strides[0]) * static_cast<size_t>(output.height)) {
        throw OrvelleCompositorError(OrvelleCompositorErrorCode::cannotAllocateOutputBuffer);
    }
    const FrameRendererInput input = FrameRenderer::rendererInput(
        resolver_->resolve(request.compositionTime), request.screen, request.camera, context_);
    // The stage is opaque, so its premultiplied pixels are the frame's own.
    Bitmap target = Bitmap::wrapping(output.planes[0].data(), output.width, output.height,
                                     static_cast<size_t>(output.strides[0]));
    FrameRenderer::render(input, context_)
        .render({0, 0, static_cast<double>(output.width), static_cast<double>(output.height)},
                target);
}

} // namespace orvelle
