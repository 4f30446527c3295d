#include "composition/frame_renderer.h"

#include "composition/cursor_motion_blur.h"
#include "composition/cursor_vector_art.h"
#include "composition/frame_rendering_context.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

namespace orvelle {

namespace TextAnimationEngine {

double linePace(double speed) {
    return 0.35 / std::max(speed, 0.0001);
}

double resolvedStagger(int lineCount, double duration, double speed) {
    const double pace = linePace(speed);
    if (lineCount > 1 && lineCount * pace > duration * 0.6) {
        return std::max((duration * 0.6 - pace) / (lineCount - 1), 0.0);
    }
    return pace;
}

} // namespace TextAnimationEngine

namespace FrameRenderer {

namespace {

// The frame composition measures from the top left; images from the bottom left. Every
// placement goes through here: y' = H - maxY.
ImageRect fromTopLeft(const Rect& rect, double height) {
    return {rect.x, height - rect.maxY(), rect.width, rect.height};
}

double clamp01(double v) {
    return std::clamp(std::isfinite(v) ? v : 0.0, 0.0, 1.0);
}

double smoothstep(double u) {
    u = clamp01(u);
    return u * u * (3 - 2 * u);
}

// The image's content at `alpha` of its opacity.
Image withOpacity(const Image& image, double alpha) {
    if (alpha >= 1) {
        return image;
    }
    ColorMatrix m;
    m.alpha = {0, 0, 0, std::max(alpha, 0.0)};
    return image.colorMatrixed(m);
}

// Black with the coverage of the image times `alpha`: a shadow.
Image shadowOf(const Image& image, double alpha) {
    ColorMatrix m;
    m.red = m.green = m.blue = {0, 0, 0, 0};
    m.alpha = {0, 0, 0, alpha};
    return image.colorMatrixed(m);
}

ImageRect grown(const ImageRect& r, double by) {
    return r.insetBy(-by, -by);
}

// The image scaled to cover the rectangle with the source's aspect, centred on it, mirrored
// by `horizontalScale` about the rectangle's middle, and cropped to it.
Image aspectFillImage(const Image& image, Size sourceSize, const ImageRect& rect,
                      double horizontalScale) {
    if (rect.isEmpty()) {
        return image;
    }
    const ImageRect extent = image.extent();
    if (extent.isEmpty() || extent.isInfinite()) {
        return image;
    }
    if (!(sourceSize.width > 0) || !(sourceSize.height > 0)) {
        sourceSize = {extent.width, extent.height};
    }
    const double aspect = sourceSize.width / sourceSize.height;
    double width = rect.height * aspect;
    double height = rect.height;
    if (aspect < rect.width / rect.height) {
        width = rect.width;
        height = width / aspect;
    }
    AffineTransform t =
        AffineTransform::translation(-extent.x, -extent.y)
            .then(AffineTransform::scale(width / extent.width, height / extent.height))
            .then(AffineTransform::translation(rect.midX() - width / 2, rect.midY() - height / 2));
    if (horizontalScale != 1) {
        t = t.then(AffineTransform::translation(-rect.midX(), -rect.midY()))
                .then(AffineTransform::scale(horizontalScale, 1))
                .then(AffineTransform::translation(rect.midX(), rect.midY()));
    }
    // The edge pixels continue past the picture's border, so that sampling at the border
    // does not fade it: the rectangle's edge is the picture's edge.
    return image.clampedToExtent().transformed(t).cropped(rect);
}

Image applyMask(const Image& image, const Image& mask, const ImageRect& extent) {
    return image.blendedWithMask(Image(), mask).cropped(extent);
}

// A ring inside the card's edge, `width` wide, white at `opacity`.
std::optional<Image> strokeImage(const ImageRect& extent, double cornerRadius, double width,
                                 double opacity) {
    if (!(width > 0) || !(opacity > 0)) {
        return std::nullopt;
    }
    const Image outer = Image::roundedRectangle(extent, cornerRadius, ImageColor::white(opacity));
    const Image inner = Image::roundedRectangle(
        extent.insetBy(width, width), std::max(cornerRadius - width, 0.0), ImageColor::white());
    return outer.sourceOut(inner);
}

ImageRect stageRectOf(const FrameComposition& composition) {
    return {0, 0, composition.stageSize.width, composition.stageSize.height};
}

Image backgroundLayer(const FrameRendererInput& input) {
    const ImageRect stage = stageRectOf(input.composition);
    const BackgroundSettings& background = input.composition.background;
    if (background.kind == BackgroundKind::wallpaper) {
        if (input.bakedBackground) {
            return input.bakedBackground->cropped(stage);
        }
        return Image::color({21 / 255.0, 23 / 255.0, 26 / 255.0, 1}).cropped(stage);
    }
    const BackgroundColorRGBA& c = background.solidColor;
    return Image::color({clamp01(c.red), clamp01(c.green), clamp01(c.blue), clamp01(c.alpha)})
        .cropped(stage);
}

// ---- The pointer ---------------------------------------------------------------------------

std::optional<Image> pointerLayer(const FrameRendererInput& input, FrameRenderingContext& context,
                                  double embeddedHeight) {
    const FrameComposition& composition = input.composition;
    const auto& layer = composition.preview.cursor;
    if (!layer || composition.cursorIsHidden) {
        return std::nullopt;
    }
    const auto art = context.cursorImage(composition.cursorStyle, composition.cursorDotColor);
    if (!art) {
        return std::nullopt;
    }
    const ScreenLayerComposition& screen = composition.preview.screen;
    const double s =
        composition.cursorClickPressScale * layer->sizeScale / std::max(screen.zoomScale, 0.001);
    const Point hot = CursorVectorArt::hotSpot(composition.cursorStyle);
    // The layer's position is the box's centre; the pointer itself is at the hot spot.
    const double px = layer->position.x - (CursorVectorArt::kBoxSize / 2 - hot.x);
    const double py = layer->position.y - (CursorVectorArt::kBoxSize / 2 - hot.y);
    const double side = CursorVectorArt::kBoxSize * s;
    const ImageRect rect =
        fromTopLeft({px - hot.x * s, py - hot.y * s, side, side}, embeddedHeight);
    const ImageRect artExtent = art->extent();
    Image pointer =
        art->transformed(AffineTransform::scale(side / artExtent.width, side / artExtent.height)
                             .then(AffineTransform::translation(rect.x, rect.y)));
    if (std::abs(layer->tiltAngle) > 0.0005) {
        const ImagePoint point{px, embeddedHeight - py};
        pointer = pointer.transformed(AffineTransform::translation(-point.x, -point.y)
                                          .then(AffineTransform::rotation(-layer->tiltAngle))
                                          .then(AffineTransform::translation(point.x, point.y)));
    }
    const double r =
        std::max(std::hypot(layer->motionBlur.width, layer->motionBlur.height) * 0.5, 0.0);
    if (r >= 0.3) {
        pointer = CursorMotionBlur::blurred(
            pointer, r, std::atan2(-layer->motionBlur.height, layer->motionBlur.width));
    }
    return pointer;
}

// ---- The card ----------------------------------------------------------------------------

struct CardLayers {
    Image card;
    std::optional<Image> shadow;
};

AffineTransform cardTransform(const FrameComposition& composition) {
    const ScreenLayerComposition& screen = composition.preview.screen;
    const double w = composition.stageSize.width;
    const double h = composition.stageSize.height;
    const double z = std::max(screen.zoomScale * screen.paddingScale, 0.001);
    return AffineTransform::translation(-composition.embeddedVideoSize.width / 2,
                                        -composition.embeddedVideoSize.height / 2)
        .then(AffineTransform::scale(z, z))
        .then(AffineTransform::translation(w / 2 + screen.offset.width,
                                           h - (h / 2 + screen.offset.height)));
}

CardLayers screenCardLayers(const FrameRendererInput& input, FrameRenderingContext& context) {
    const FrameComposition& composition = input.composition;
    const ScreenLayerComposition& screen = composition.preview.screen;
    const double ew = composition.embeddedVideoSize.width;
    const double eh = composition.embeddedVideoSize.height;
    const ImageRect extent{0, 0, ew, eh};

    const Image mask = context.roundedRectMask(extent, screen.cornerRadius);
    Image picture = aspectFillImage(input.screen, composition.sourceNaturalSize,
                                    fromTopLeft(composition.movieRect, eh), 1)
                        .composited(Image::color(ImageColor::black()).cropped(extent));
    if (const auto pointer = pointerLayer(input, context, eh)) {
        picture = pointer->composited(picture);
    }
    Image card = applyMask(picture, mask, extent);
    if (const auto stroke =
            strokeImage(extent, screen.cornerRadius, screen.strokeWidth, screen.strokeOpacity)) {
        card = stroke->composited(card);
    }
    const AffineTransform t = cardTransform(composition);
    card = card.transformed(t);
    if (screen.motionBlurRadius > 0.01) {
        card = card.gaussianBlurred(screen.motionBlurRadius);
    }
    std::optional<Image> shadow;
    if (screen.shadowOpacity > 0 && screen.shadowRadius > 0) {
        shadow = shadowOf(context.shadowMask(extent, screen.cornerRadius,
                                             std::max(screen.shadowRadius * 0.5, 0.1),
                                             2 * screen.shadowRadius),
                          screen.shadowOpacity)
                     .transformed(AffineTransform::translation(screen.shadowOffset.width,
                                                               -screen.shadowOffset.height)
                                      .then(t));
    }
    return {card, shadow};
}

// ---- The focus mask ------------------------------------------------------------------------

Image focusMaskImage(const ImageRect& hole, const ImageRect& stage, double cornerRadius,
                     double featherRadius) {
    const double radius =
        std::min(std::max(cornerRadius, 0.0), std::min(hole.width, hole.height) / 2);
    const Image black = Image::color(ImageColor::black()).cropped(stage);
    Image mask = Image::roundedRectangle(hole, radius, ImageColor::white()).composited(black);
    const double f = std::min(std::max(featherRadius, 0.0), std::max(stage.width, stage.height));
    if (f > 0) {
        mask = mask.gaussianBlurred(f).cropped(stage).composited(black).cropped(stage);
    }
    return mask;
}

// A small grey wheel around the glow's centre, bright where the lit band of the border
// is at this phase, enlarged onto the glow's extent.
Image energyGradientImage(const ImageRect& extent, MaskBorder::Style style, double phase) {
    const double k = 128 / std::max(extent.width, extent.height);
    const int width = std::max(static_cast<int>(std::lround(extent.width * k)), 8);
    const int height = std::max(static_cast<int>(std::lround(extent.height * k)), 8);
    Bitmap wheel(width, height);
    const double cx = width / 2.0;
    const double cy = height / 2.0;
    for (int j = 0; j < height; ++j) {
        for (int i = 0; i < width; ++i) {
            // Turns clockwise from the top of the picture (rows run downwards).
            const double x = i + 0.5 - cx;
            const double y = j + 0.5 - cy;
            double u = std::atan2(x, -y) / (2 * M_PI);
            if (u < 0) {
                u += 1;
            }
            const double value = clamp01(MaskBorder::angularBrightness(u, phase, style));
            const auto v = static_cast<uint8_t>(std::lround(value * 255));
            wheel.setPixel(i, j, {v, v, v, v});
        }
    }
    return Image::bitmap(wheel).transformed(
        AffineTransform::scale(extent.width / width, extent.height / height)
            .then(AffineTransform::translation(extent.x, extent.y)));
}

Image compositeMaskBorder(const Image& image, const MaskLayerComposition& mask,
                          const ImageRect& hole, const ImageRect& stage) {
    const double a = clamp01(mask.borderOpacity);
    if (mask.borderStyle == MaskBorder::Style::none || a == 0) {
        return image;
    }
    const double radius =
        std::min(std::max(mask.cornerRadius, 0.0), std::min(hole.width, hole.height) / 2);
    const ImageColor color{mask.borderColor.red, mask.borderColor.green, mask.borderColor.blue, 1};
    const Image stroke =
        Image::roundedRectangleStroke(hole, radius, 4, color).cropped(grown(hole, 40));
    const Image nearGlow = stroke.gaussianBlurred(6);
    const Image farGlow = stroke.gaussianBlurred(12);
    const Image faint = nearGlow.colorMatrixed(ColorMatrix::multiplying(0.3));
    Image glow = nearGlow.composited(faint).composited(farGlow);
    if (mask.borderStyle != MaskBorder::Style::pulse) {
        const ImageRect extent = glow.extent();
        glow = glow.multiplied(energyGradientImage(extent, mask.borderStyle, mask.borderPhase));
    }
    return glow.colorMatrixed(ColorMatrix::multiplying(a)).cropped(stage).composited(image);
}

Image applyFocusMask(const Image& card, const MaskLayerComposition& mask, const ImageRect& stage) {
    if (mask.opacity <= 0) {
        return card;
    }
    const double d = 1 - std::min(mask.opacity, 1.0);
    ColorMatrix dim;
    dim.red = {d, 0, 0, 0};
    dim.green = {0, d, 0, 0};
    dim.blue = {0, 0, d, 0};
    const Image dimmed = card.colorMatrixed(dim);
    const ImageRect hole = fromTopLeft(mask.stageRect, stage.height).intersection(stage);
    if (hole.isEmpty()) {
        return mask.isInverted ? card : dimmed;
    }
    const Image m = focusMaskImage(hole, stage, mask.cornerRadius, mask.featherRadius);
    Image result =
        mask.isInverted ? dimmed.blendedWithMask(card, m) : card.blendedWithMask(dimmed, m);
    result = result.cropped(result.extent());
    return compositeMaskBorder(result, mask, hole, stage);
}

// ---- Perspective ---------------------------------------------------------------------------

Image perspectiveWarp(const Image& card, const FrameComposition& composition) {
    const ScreenLayerComposition& screen = composition.preview.screen;
    const double w = composition.stageSize.width;
    const double h = composition.stageSize.height;
    const double cx = w / 2 + screen.offset.width;
    const double cy = h - (h / 2 + screen.offset.height);
    const double eye = std::max(std::max(w, h), 1.0) * 1.5;
    const Transform3D m = screen.perspective.relativeTransform(eye, false);
    const ImageRect e = card.extent();
    if (e.isEmpty() || e.isInfinite()) {
        return card;
    }
    // The bottom corners' divisor is kept from reaching zero; the top corners' is not.
    const auto project = [&](double px, double py, bool bottom) {
        const double x = px - cx;
        const double y = py - cy;
        double divisor = x * m.m14 + y * m.m24 + 1;
        if (bottom) {
            divisor = std::max(divisor, 0.05);
        }
        return ImagePoint{cx + (x * m.m11 + y * m.m21) / divisor,
                          cy + (x * m.m12 + y * m.m22) / divisor};
    };
    const ImagePoint topLeft = project(e.minX(), e.maxY(), false);
    const ImagePoint topRight = project(e.maxX(), e.maxY(), false);
    const ImagePoint bottomRight = project(e.maxX(), e.minY(), true);
    const ImagePoint bottomLeft = project(e.minX(), e.minY(), true);
    return card.perspectiveTransformed(topLeft, topRight, bottomRight, bottomLeft)
        .cropped(stageRectOf(composition));
}

Image compositeScreenStage(const FrameRendererInput& input, const Image& background,
                           FrameRenderingContext& context) {
    const FrameComposition& composition = input.composition;
    const ImageRect stage = stageRectOf(composition);
    CardLayers layers = screenCardLayers(input, context);
    Image under = background;
    const auto& mask = composition.preview.mask;
    if (mask && !mask->isInverted && mask->opacity > 0) {
        under = Image::color(ImageColor::black(std::min(mask->opacity, 1.0)))
                    .cropped(stage)
                    .composited(under);
    }
    if (layers.shadow) {
        under = layers.shadow->composited(under);
    }
    Image card = layers.card;
    if (mask) {
        card = applyFocusMask(card, *mask, stage);
    }
    if (std::abs(composition.preview.screen.perspective.angleDegrees) > 0.01) {
        card = perspectiveWarp(card, composition);
    }
    return card.composited(under).cropped(stage);
}

// ---- Camera --------------------------------------------------------------------------------

ImageRect cameraFrame(const CameraLayerComposition& layer, double stageHeight) {
    return fromTopLeft({layer.center.x - layer.frameSize.width / 2,
                        layer.center.y - layer.frameSize.height / 2, layer.frameSize.width,
                        layer.frameSize.height},
                       stageHeight);
}

Size cameraSourceSize(const FrameComposition& composition, const Image& camera) {
    if (composition.cameraNaturalSize) {
        return *composition.cameraNaturalSize;
    }
    return {camera.extent().width, camera.extent().height};
}

Image compositeCameraOverlay(const Image& image, const CameraLayerComposition& layer,
                             const Image& camera, const FrameComposition& composition,
                             FrameRenderingContext& context) {
    const ImageRect frame = cameraFrame(layer, composition.stageSize.height);
    const ImageRect local{0, 0, frame.width, frame.height};
    if (local.isEmpty()) {
        return image;
    }
    const AffineTransform place = AffineTransform::translation(frame.x, frame.y);
    const Image mask = context.roundedRectMask(local, layer.cornerRadius);
    const Image picture = applyMask(aspectFillImage(camera, cameraSourceSize(composition, camera),
                                                    local, layer.horizontalScale),
                                    mask, local)
                              .transformed(place);
    const Image shadow = shadowOf(context.shadowMask(local, layer.cornerRadius, 12, 48), 0.28)
                             .transformed(AffineTransform::translation(0, -10).then(place));
    // A layout fading the camera away fades its picture and shadow together.
    const double opacity = clamp01(layer.opacity);
    return withOpacity(picture, opacity).composited(withOpacity(shadow, opacity).composited(image));
}

Image fullscreenCamera(const Image& background, const CameraLayerComposition& layer,
                       const Image& camera, const FrameComposition& composition) {
    const ImageRect frame = cameraFrame(layer, composition.stageSize.height);
    return aspectFillImage(camera, cameraSourceSize(composition, camera), frame,
                           layer.horizontalScale)
        .composited(background);
}

// ---- Text ----------------------------------------------------------------------------------

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    size_t start = 0;
    while (true) {
        const size_t end = text.find('\n', start);
        lines.push_back(
            text.substr(start, end == std::string::npos ? std::string::npos : end - start));
        if (end == std::string::npos) {
            break;
        }
        start = end + 1;
    }
    return lines;
}

Image compositeTextClip(const Image& image, const TextClip& clip,
                        const FrameComposition& composition, FrameRenderingContext& context) {
    const double w = composition.stageSize.width;
    const double h = composition.stageSize.height;
    const std::vector<std::string> lines = linesOf(clip.text);
    const int n = static_cast<int>(lines.size());
    const double duration = std::max(clip.end.seconds - clip.start.seconds, 0.0);
    const double speed = std::max(clip.animationSpeed, 0.0001);
    const double pace = TextAnimationEngine::linePace(speed);
    const double stagger = TextAnimationEngine::resolvedStagger(n, duration, speed);
    const double elapsed = composition.editTime.seconds - clip.start.seconds;
    double exit = 0;
    if (duration > 0) {
        const double exitLength = std::min(0.3 / speed, duration);
        exit = smoothstep((elapsed - (duration - exitLength)) / exitLength);
    }

    const double unit = h / 1080;
    const double fontPointSize = unit * 28 * clip.size;
    const double lineStep = fontPointSize * clip.lineHeight;
    const bool bold = n == 1;
    std::vector<std::optional<TextLineImage>> images;
    double blockWidth = 0;
    for (const auto& line : lines) {
        images.push_back(context.textLineImage(line, clip.color, fontPointSize, bold));
        if (images.back()) {
            blockWidth = std::max(blockWidth, images.back()->glyphWidth);
        }
    }
    const double x0 = w * clip.position.x;
    const double blockLeft = clip.alignment == TextBlockAlignment::leading  ? x0
                             : clip.alignment == TextBlockAlignment::center ? x0 - blockWidth / 2
                                                                            : x0 - blockWidth;
    Image result = image;
    for (int i = 0; i < n; ++i) {
        const auto& line = images[static_cast<size_t>(i)];
        if (!line) {
            continue;
        }
        const double p = duration > 0 ? smoothstep((elapsed - stagger * i) / pace) : 1;
        const double x = duration > 0 ? exit : 0;
        const double alpha = (1 - x) * p;
        if (alpha <= 0.001) {
            continue;
        }
        double scale = 1;
        double shiftX = 0;
        double shiftY = 0;
        switch (clip.preset) {
        case TextAnimationPreset::rise:
            shiftY = x * 8 + (1 - p) * 14;
            break;
        case TextAnimationPreset::slide:
            shiftX = (1 - p) * 24 - x * 16;
            break;
        case TextAnimationPreset::pop:
            scale = p < 1 ? (1 - 0.05 * x) * (0.92 + 0.08 * p + 0.03 * std::sin(M_PI * p))
                          : 1 - 0.05 * x;
            break;
        }
        const double offset = clip.alignment == TextBlockAlignment::leading ? 0
                              : clip.alignment == TextBlockAlignment::center
                                  ? (blockWidth - line->glyphWidth) / 2
                                  : blockWidth - line->glyphWidth;
        // The glyphs' origin and the middle of their ascent and descent, in the line image.
        const ImagePoint origin{line->padding, line->padding + line->descent};
        const double middle = origin.y + (line->ascent - line->descent) / 2;
        Image placed = line->image;
        if (std::abs(scale - 1) > 0.0001) {
            const ImagePoint centre{origin.x + line->glyphWidth / 2, middle};
            placed =
                placed.transformed(AffineTransform::translation(-centre.x, -centre.y)
                                       .then(AffineTransform::scale(scale, scale))
                                       .then(AffineTransform::translation(centre.x, centre.y)));
        }
        const double targetX = blockLeft + offset + unit * shiftX;
        const double targetTop =
            h * clip.position.y - lineStep * n / 2 + lineStep * (i + 0.5) + unit * shiftY;
        placed = placed.transformed(
            AffineTransform::translation(targetX - origin.x, (h - targetTop) - middle));
        result = withOpacity(placed, alpha).composited(result);
    }
    return result;
}

Image compositeTextOverlays(const Image& image, const FrameComposition& composition,
                            FrameRenderingContext& context) {
    Image result = image;
    for (const TextClip& clip : composition.textClips) {
        if (clip.start <= composition.editTime && composition.editTime < clip.end) {
            result = compositeTextClip(result, clip, composition, context);
        }
    }
    return result;
}

Image compositeStageFade(const Image& image, const FrameComposition& composition) {
    const double v = clamp01(composition.preview.stageFadeOpacity);
    if (v <= 0.001) {
        return image;
    }
    return Image::color(ImageColor::black(v)).cropped(stageRectOf(composition)).composited(image);
}

} // namespace

Image render(const FrameRendererInput& input, FrameRenderingContext& context) {
    const FrameComposition& composition = input.composition;
    const ImageRect stage = stageRectOf(composition);
    Image result = backgroundLayer(input);
    const auto& camera = composition.preview.camera;
    if (camera && camera->isFullscreen && input.camera) {
        result = fullscreenCamera(result, *camera, *input.camera, composition);
    } else {
        result = compositeScreenStage(input, result, context);
        if (camera && input.camera) {
            result = compositeCameraOverlay(result, *camera, *input.camera, composition, context);
        }
    }
    result = compositeTextOverlays(result, composition, context);
    result = compositeStageFade(result, composition);
    return result.cropped(stage);
}

Image aspectFillCachedBackground(const Image& image, Size sourceSize, Size stageSize) {
    return aspectFillImage(image, sourceSize, {0, 0, stageSize.width, stageSize.height}, 1);
}

Image imageOfFrame(const VideoFrame& frame) {
    if (frame.layout != PixelLayout::bgra || frame.width <= 0 || frame.height <= 0) {
        return {};
    }
    auto* pixels = const_cast<uint8_t*>(frame.row(0, 0));
    return Image::bitmap(
        Bitmap::wrapping(pixels, frame.width, frame.height, static_cast<size_t>(frame.strides[0])),
        {}, {.opaque = true});
}

FrameRendererInput rendererInput(const FrameComposition& composition, const VideoFrame* screen,
                                 const VideoFrame* camera, FrameRenderingContext& context) {
    const Size stage = composition.stageSize;
    FrameRendererInput input;
    input.screen =
        screen != nullptr
            ? imageOfFrame(*screen)
            : Image::color(ImageColor::black()).cropped({0, 0, stage.width, stage.height});
    if (camera != nullptr) {
        input.camera = imageOfFrame(*camera);
    }
    input.bakedBackground = context.bakedBackground(composition.background, stage);
    input.composition = composition;
    return input;
}

} // namespace FrameRenderer

} // namespace orvelle
