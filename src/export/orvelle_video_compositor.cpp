#include "export/orvelle_video_compositor.h"

#include "platform/image/bitmap.h"

namespace orvelle {

OrvelleVideoCompositor::OrvelleVideoCompositor(std::shared_ptr<RenderFrameResolver> resolver)
    : resolver_(std::move(resolver)) {}

FrameRendererInput OrvelleVideoCompositor::rendererInput(const FrameComposition& composition,
                                                         const VideoFrame* screen,
                                                         const VideoFrame* camera,
                                                         FrameRenderingContext& context) {
    const Size stage = composition.stageSize;
    FrameRendererInput input;
    input.screen =
        screen != nullptr
            ? FrameRenderer::imageOfFrame(*screen)
            : Image::color(ImageColor::black()).cropped({0, 0, stage.width, stage.height});
    if (camera != nullptr) {
        input.camera = FrameRenderer::imageOfFrame(*camera);
    }
    input.bakedBackground = context.bakedBackground(composition.background, stage);
    input.composition = composition;
    return input;
}

void OrvelleVideoCompositor::compose(const ExportFrameRequest& request, VideoFrame& output) {
    const FrameRendererInput input = rendererInput(resolver_->resolve(request.compositionTime),
                                                   request.screen, request.camera, context_);
    // The stage is opaque, so its premultiplied pixels are the frame's own.
    Bitmap target = Bitmap::wrapping(output.planes[0].data(), output.width, output.height,
                                     static_cast<size_t>(output.strides[0]));
    FrameRenderer::render(input, context_)
        .render({0, 0, static_cast<double>(output.width), static_cast<double>(output.height)},
                target);
}

} // namespace orvelle
