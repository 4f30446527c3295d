#include "export/orvelle_video_compositor.h"

#include "composition/frame_renderer.h"
#include "platform/image/bitmap.h"

namespace orvelle {

OrvelleVideoCompositor::OrvelleVideoCompositor(std::shared_ptr<RenderFrameResolver> resolver)
    : resolver_(std::move(resolver)) {}

void OrvelleVideoCompositor::compose(const ExportFrameRequest& request, VideoFrame& output) {
    const FrameComposition composition = resolver_->resolve(request.compositionTime);
    const Size stage = composition.stageSize;
    FrameRendererInput input;
    input.screen =
        request.screen != nullptr
            ? FrameRenderer::imageOfFrame(*request.screen)
            : Image::color(ImageColor::black()).cropped({0, 0, stage.width, stage.height});
    if (request.camera != nullptr) {
        input.camera = FrameRenderer::imageOfFrame(*request.camera);
    }
    input.bakedBackground = context_.bakedBackground(composition.background, stage);
    input.composition = composition;
    // The stage is opaque, so its premultiplied pixels are the frame's own.
    Bitmap target = Bitmap::wrapping(output.planes[0].data(), output.width, output.height,
                                     static_cast<size_t>(output.strides[0]));
    FrameRenderer::render(input, context_)
        .render({0, 0, static_cast<double>(output.width), static_cast<double>(output.height)},
                target);
}

} // namespace orvelle
