#include "cli/commands.h"
#include "cli/output.h"
#include "platform/media/media_probe.h"
#include "platform/media/video_decoder.h"

#include <chrono>
#include <iostream>

namespace orvelle::cli {

namespace {

Json probeJson(const MediaProbe& probe) {
    Json video = Json::array();
    for (const auto& stream : probe.videoStreams) {
        Json entry = {
            {"streamIndex", stream.streamIndex},
            {"codec", stream.codecName},
            {"codedSize", {{"width", stream.codedWidth}, {"height", stream.codedHeight}}},
            {"naturalSize", {{"width", stream.naturalWidth}, {"height", stream.naturalHeight}}},
            {"rotationDegrees", stream.rotationDegrees},
            {"duration", stream.duration}};
        entry["nominalFrameRate"] =
            stream.nominalFrameRate ? Json(*stream.nominalFrameRate) : Json(nullptr);
        entry["minFrameDuration"] =
            stream.minFrameDuration ? Json(*stream.minFrameDuration) : Json(nullptr);
        video.push_back(entry);
    }
    Json audio = Json::array();
    for (const auto& stream : probe.audioStreams) {
        audio.push_back({{"streamIndex", stream.streamIndex},
                         {"codec", stream.codecName},
                         {"sampleRate", stream.sampleRate},
                         {"channelCount", stream.channelCount},
                         {"duration", stream.duration}});
    }
    return {{"format", probe.formatName},
            {"duration", probe.duration},
            {"video", video},
            {"audio", audio}};
}

int runMediaProbe(const Arguments& arguments) {
    const MediaProbe probe = probeMediaFile(arguments.positional(0, "the media file"));
    if (arguments.flag("--json")) {
        printJson(probeJson(probe));
        return 0;
    }
    std::cout << "format " << probe.formatName << ", " << probe.duration << " s\n";
    for (const auto& stream : probe.videoStreams) {
        std::cout << "video #" << stream.streamIndex << ": " << stream.codecName << " "
                  << stream.naturalWidth << "x" << stream.naturalHeight;
        if (stream.nominalFrameRate) {
            std::cout << " at " << *stream.nominalFrameRate << " fps";
        }
        std::cout << "\n";
    }
    for (const auto& stream : probe.audioStreams) {
        std::cout << "audio #" << stream.streamIndex << ": " << stream.codecName << " "
                  << stream.sampleRate << " Hz, " << stream.channelCount << " channels\n";
    }
    return 0;
}

int runMediaDecode(const Arguments& arguments) {
    const std::string layoutName = arguments.value("--layout").value_or("bgra");
    if (layoutName != "bgra" && layoutName != "yuv420p") {
        throw UsageError("--layout is bgra or yuv420p.");
    }
    VideoDecoderOptions options;
    options.layout = layoutName == "bgra" ? PixelLayout::bgra : PixelLayout::yuv420p;
    const auto started = std::chrono::steady_clock::now();
    VideoDecoder decoder(arguments.positional(0, "the movie"), options);
    VideoFrame frame;
    int64_t frames = 0;
    double last = 0;
    while (decoder.nextFrame(frame)) {
        ++frames;
        last = frame.presentationTime;
    }
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    const double rate = seconds > 0 ? static_cast<double>(frames) / seconds : 0;
    if (arguments.flag("--json")) {
        printJson({{"frames", frames},
                   {"lastFrameTime", last},
                   {"seconds", seconds},
                   {"framesPerSecond", rate},
                   {"layout", layoutName},
                   {"width", decoder.width()},
                   {"height", decoder.height()}});
        return 0;
    }
    std::cout << frames << " frames of " << decoder.width() << "x" << decoder.height() << " "
              << layoutName << " in " << seconds << " s (" << rate << " fps)\n";
    return 0;
}

} // namespace

Command mediaDecodeCommand() {
    return {"media decode",
            "how fast a movie's pictures decode",
            "orvelle media decode FILE [--layout bgra|yuv420p] [--json]\n\n"
            "Decodes every picture of FILE's first video stream as the preview and the export\n"
            "read them (BGRA by default, or planar YUV for the encoder path) and prints the\n"
            "frame count and the rate.",
            {{"--layout", true}, {"--json"}},
            runMediaDecode};
}

Command mediaProbeCommand() {
    return {"media probe",
            "what a movie or audio file holds",
            "orvelle media probe FILE [--json]\n\n"
            "Prints the container, duration and streams of FILE: video size as displayed\n"
            "(rotation applied), frame rates, audio rate and channels.",
            {{"--json"}},
            runMediaProbe};
}

} // namespace orvelle::cli
