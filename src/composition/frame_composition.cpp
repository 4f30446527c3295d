#include "composition/frame_composition.h"

namespace orvelle {

namespace {

// Absent layers are written as null, so that every key is always there.
template <class T>
Json encodeOrNull(const std::optional<T>& value) {
    return value ? encodeJson(*value) : Json(nullptr);
}

} // namespace

ScreenLayerComposition JsonCoder<ScreenLayerComposition>::decode(const Json& json,
                                                                 const JsonDecodeContext& context) {
    const JsonObjectReader r(json, context);
    return {r.required<double>("zoomScale"),
            r.required<Size>("offset"),
            r.required<double>("motionBlurRadius"),
            r.required<double>("cornerRadius"),
            r.required<double>("shadowRadius"),
            r.required<double>("shadowOpacity"),
            r.required<Size>("shadowOffset"),
            r.required<double>("strokeWidth"),
            r.required<double>("strokeOpacity"),
            r.required<double>("paddingScale"),
            r.required<ScreenPerspective>("perspective")};
}

Json JsonCoder<ScreenLayerComposition>::encode(const ScreenLayerComposition& value) {
    return {{"zoomScale", value.zoomScale},
            {"offset", encodeJson(value.offset)},
            {"motionBlurRadius", value.motionBlurRadius},
            {"cornerRadius", value.cornerRadius},
            {"shadowRadius", value.shadowRadius},
            {"shadowOpacity", value.shadowOpacity},
            {"shadowOffset", encodeJson(value.shadowOffset)},
            {"strokeWidth", value.strokeWidth},
            {"strokeOpacity", value.strokeOpacity},
            {"paddingScale", value.paddingScale},
            {"perspective", encodeJson(value.perspective)}};
}

CursorLayerComposition JsonCoder<CursorLayerComposition>::decode(const Json& json,
                                                                 const JsonDecodeContext& context) {
    const JsonObjectReader r(json, context);
    return {r.required<Point>("position"), r.required<double>("sizeScale"),
            r.required<Size>("motionBlur"), r.required<double>("tiltAngle")};
}

Json JsonCoder<CursorLayerComposition>::encode(const CursorLayerComposition& value) {
    return {{"position", encodeJson(value.position)},
            {"sizeScale", value.sizeScale},
            {"motionBlur", encodeJson(value.motionBlur)},
            {"tiltAngle", value.tiltAngle}};
}

CameraLayerComposition JsonCoder<CameraLayerComposition>::decode(const Json& json,
                                                                 const JsonDecodeContext& context) {
    const JsonObjectReader r(json, context);
    return {r.required<bool>("isFullscreen"),      r.required<bool>("isMirrored"),
            r.required<double>("horizontalScale"), r.required<Size>("frameSize"),
            r.required<Point>("center"),           r.required<double>("cornerRadius"),
            r.required<double>("opacity")};
}

Json JsonCoder<CameraLayerComposition>::encode(const CameraLayerComposition& value) {
    return {{"isFullscreen", value.isFullscreen},
            {"isMirrored", value.isMirrored},
            {"horizontalScale", value.horizontalScale},
            {"frameSize", encodeJson(value.frameSize)},
            {"center", encodeJson(value.center)},
            {"cornerRadius", value.cornerRadius},
            {"opacity", value.opacity}};
}

MaskLayerComposition JsonCoder<MaskLayerComposition>::decode(const Json& json,
                                                             const JsonDecodeContext& context) {
    const JsonObjectReader r(json, context);
    return {r.required<MaskRect>("sourceRect"),
            r.required<Rect>("stageRect"),
            r.required<double>("opacity"),
            r.required<double>("cornerRadius"),
            r.required<double>("featherRadius"),
            r.required<bool>("isInverted"),
            r.required<MaskBorder::Style>("borderStyle"),
            r.required<double>("borderOpacity"),
            r.required<double>("borderPhase"),
            r.required<BackgroundColorRGBA>("borderColor"),
            r.required<EditTime>("referenceTime")};
}

Json JsonCoder<MaskLayerComposition>::encode(const MaskLayerComposition& value) {
    return {{"sourceRect", encodeJson(value.sourceRect)},
            {"stageRect", encodeJson(value.stageRect)},
            {"opacity", value.opacity},
            {"cornerRadius", value.cornerRadius},
            {"featherRadius", value.featherRadius},
            {"isInverted", value.isInverted},
            {"borderStyle", encodeJson(value.borderStyle)},
            {"borderOpacity", value.borderOpacity},
            {"borderPhase", value.borderPhase},
            {"borderColor", encodeJson(value.borderColor)},
            {"referenceTime", encodeJson(value.referenceTime)}};
}

PreviewComposition JsonCoder<PreviewComposition>::decode(const Json& json,
                                                         const JsonDecodeContext& context) {
    const JsonObjectReader r(json, context);
    return {r.required<ScreenLayerComposition>("screen"),
            r.optional<CursorLayerComposition>("cursor"),
            r.optional<CameraLayerComposition>("camera"), r.optional<MaskLayerComposition>("mask"),
            r.required<double>("stageFadeOpacity")};
}

Json JsonCoder<PreviewComposition>::encode(const PreviewComposition& value) {
    return {{"screen", encodeJson(value.screen)},
            {"cursor", encodeOrNull(value.cursor)},
            {"camera", encodeOrNull(value.camera)},
            {"mask", encodeOrNull(value.mask)},
            {"stageFadeOpacity", value.stageFadeOpacity}};
}

FrameComposition JsonCoder<FrameComposition>::decode(const Json& json,
                                                     const JsonDecodeContext& context) {
    const JsonObjectReader r(json, context);
    FrameComposition frame;
    frame.editTime = r.required<EditTime>("editTime");
    frame.sourceTime = r.required<SourceTime>("sourceTime");
    frame.stageSize = r.required<Size>("stageSize");
    frame.sourceNaturalSize = r.required<Size>("sourceNaturalSize");
    frame.cameraNaturalSize = r.optional<Size>("cameraNaturalSize");
    frame.embeddedVideoSize = r.required<Size>("embeddedVideoSize");
    frame.movieRect = r.required<Rect>("movieRect");
    frame.background = r.required<BackgroundSettings>("background");
    frame.cursorStyle = r.required<CursorStyle>("cursorStyle");
    frame.cursorDotColor = r.required<BackgroundColorRGBA>("cursorDotColor");
    frame.cursorIsHidden = r.required<bool>("cursorIsHidden");
    frame.cursorClickPressScale = r.required<double>("cursorClickPressScale");
    frame.hasCameraOverlay = r.required<bool>("hasCameraOverlay");
    frame.preview = r.required<PreviewComposition>("preview");
    frame.cursorFrameMotion = r.required<MotionBlurVector>("cursorFrameMotion");
    frame.cameraFrameMotion = r.required<MotionBlurVector>("cameraFrameMotion");
    frame.zoomFrameMotion = r.required<double>("zoomFrameMotion");
    frame.textClips = r.required<std::vector<TextClip>>("textClips");
    return frame;
}

Json JsonCoder<FrameComposition>::encode(const FrameComposition& value) {
    return {{"editTime", encodeJson(value.editTime)},
            {"sourceTime", encodeJson(value.sourceTime)},
            {"stageSize", encodeJson(value.stageSize)},
            {"sourceNaturalSize", encodeJson(value.sourceNaturalSize)},
            {"cameraNaturalSize", encodeOrNull(value.cameraNaturalSize)},
            {"embeddedVideoSize", encodeJson(value.embeddedVideoSize)},
            {"movieRect", encodeJson(value.movieRect)},
            {"background", encodeJson(value.background)},
            {"cursorStyle", encodeJson(value.cursorStyle)},
            {"cursorDotColor", encodeJson(value.cursorDotColor)},
            {"cursorIsHidden", value.cursorIsHidden},
            {"cursorClickPressScale", value.cursorClickPressScale},
            {"hasCameraOverlay", value.hasCameraOverlay},
            {"preview", encodeJson(value.preview)},
            {"cursorFrameMotion", encodeJson(value.cursorFrameMotion)},
            {"cameraFrameMotion", encodeJson(value.cameraFrameMotion)},
            {"zoomFrameMotion", value.zoomFrameMotion},
            {"textClips", encodeJson(value.textClips)}};
}

} // namespace orvelle
