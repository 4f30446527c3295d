#include "export/orvelle_video_compositor.h"

#include "platform/image/bitmap.h"

namespace orvelle {

OrvelleVideoCompositor::OrvelleVideoCompositor(std::shared_ptr<RenderFrameResolver> resolver)
    : resolver_(std::move(resolver)) {}

void OrvelleVideoCompositor::compose(const ExportFrameRequest& request, VideoFrame& output) {
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
