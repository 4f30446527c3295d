#include "project/cursor_recording.h"

#include "core/file_url.h"
#include "core/files.h"
#include "core/log.h"
#include "project/take_manifest.h"

namespace orvelle {

std::filesystem::path CursorRecording::fileURL(const std::filesystem::path& screenURL) {
    return replacingExtension(screenURL, "cursor.json");
}

CursorRecording CursorRecording::load(const std::filesystem::path& url) {
    return decodeJson<CursorRecording>(readJsonFile(url));
}

void CursorRecording::save(const std::filesystem::path& url) const {
    // About 216,000 samples an hour: no indentation, which would nearly double the file.
    writeFileAtomically(url, encodeJson(*this).dump() + "\n");
}

std::optional<CursorRecording> takeCursorRecording(const TakeManifest& manifest) {
    const auto segments = manifest.segmentsFor(MediaTrackManifest::Kind::cursor);
    if (segments.empty()) {
        return std::nullopt;
    }
    try {
        return CursorRecording::load(segments.front().url);
    } catch (const Error& error) {
        logWarning("cursor", "no pointer data: ", error.what());
        return std::nullopt;
    }
}

CodableRect JsonCoder<CodableRect>::decode(const Json& json, const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    return {reader.required<double>("x"), reader.required<double>("y"),
            reader.required<double>("width"), reader.required<double>("height")};
}

Json JsonCoder<CodableRect>::encode(const CodableRect& rect) {
    return {{"x", rect.x}, {"y", rect.y}, {"width", rect.width}, {"height", rect.height}};
}

CursorSample JsonCoder<CursorSample>::decode(const Json& json, const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    return {reader.required<double>("time"), reader.required<double>("x"),
            reader.required<double>("y"), reader.required<bool>("visible")};
}

Json JsonCoder<CursorSample>::encode(const CursorSample& sample) {
    return {{"time", sample.time}, {"x", sample.x}, {"y", sample.y}, {"visible", sample.visible}};
}

CursorClick JsonCoder<CursorClick>::decode(const Json& json, const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    return {reader.required<double>("time"), reader.required<int>("button")};
}

Json JsonCoder<CursorClick>::encode(const CursorClick& click) {
    return {{"time", click.time}, {"button", click.button}};
}

CursorRecording JsonCoder<CursorRecording>::decode(const Json& json,
                                                   const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    CursorRecording recording;
    recording.version = reader.required<int>("version");
    recording.captureFrame = reader.required<CodableRect>("captureFrame");
    recording.samples = reader.required<std::vector<CursorSample>>("samples");
    recording.clicks = reader.required<std::vector<CursorClick>>("clicks");
    return recording;
}

Json JsonCoder<CursorRecording>::encode(const CursorRecording& recording) {
    return {{"version", recording.version},
            {"captureFrame", encodeJson(recording.captureFrame)},
            {"samples", encodeJson(recording.samples)},
            {"clicks", encodeJson(recording.clicks)}};
}

} // namespace orvelle
