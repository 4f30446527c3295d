#include "cli/commands.h"
#include "cli/frame_input.h"
#include "cli/interrupt.h"
#include "cli/online_input.h"
#include "cli/output.h"
#include "core/file_url.h"
#include "export/export_snapshot.h"
#include "export/render_export_codec.h"
#include "export/render_exporter.h"
#include "export/render_pipe.h"
#include "publish/export_controller.h"
#include "transcript_edit/editor_transcript_store.h"
#include "transcript_edit/transcript_captions.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <iostream>

namespace orvelle::cli {

namespace {

namespace fs = std::filesystem;

std::string lowercase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

RenderExportFileType fileTypeOf(const fs::path& output) {
    const std::string extension = lowercase(output.extension().string());
    if (extension == ".mp4") {
        return RenderExportFileType::mp4;
    }
    if (extension == ".mov") {
        return RenderExportFileType::mov;
    }
    throw UsageError("The output \"" + output.string() +
                     "\" must end in .mp4 (H.264) or .mov (ProRes).");
}

template <JsonEnumeration E>
E enumOption(const Arguments& arguments, std::string_view option, E fallback) {
    const auto text = arguments.value(option);
    if (!text) {
        return fallback;
    }
    if (const auto value = enumFromName<E>(*text)) {
        return *value;
    }
    std::string choices;
    for (const auto& entry : jsonNames(E{})) {
        choices += (choices.empty() ? "" : ", ") + std::string(entry.name);
    }
    throw UsageError("The option " + std::string(option) + " takes one of " + choices + ", not \"" +
                     *text + "\".");
}

Json settingsJson(const RenderExportSettings& settings, double duration) {
    const bool mov = settings.fileType == RenderExportFileType::mov;
    Json json{{"sourceURL", fileURLString(settings.sourceURL)},
              {"outputURL", fileURLString(settings.outputURL)},
              {"fileType", encodeJson(settings.fileType)},
              {"quality", encodeJson(settings.quality)},
              {"width", settings.width},
              {"height", settings.height},
              {"fps", settings.fps},
              {"videoCodec", std::string(RenderExportCodec::videoCodecName(settings.fileType))},
              {"audioCodec", "AAC"},
              {"audioSampleRate", 48000},
              {"audioChannelCount", 2},
              {"audioBitRate", RenderExportCodec::kAudioBitRate},
              {"aspectRatio", encodeJson(settings.project.screen.aspectRatio)},
              {"clipCount", settings.timelineClips.size()},
              {"duration", duration}};
    json["videoBitRate"] = mov ? Json(nullptr)
                               : Json(RenderExportCodec::videoBitRate(
                                     settings.width, settings.height, settings.quality));
    json["cursorURL"] = settings.cursorURL ? Json(fileURLString(*settings.cursorURL)) : Json();
    return json;
}

// The take as the export panel sees it, with the user's choices from the command line.
RenderExportSettings exportSettings(const Arguments& arguments, const fs::path& output,
                                    double& duration, ExportSnapshot& snapshot, Size& size) {
    const std::string& document = arguments.positional(0, "the document");
    // The aspect ratio then shapes the size asked for.
    size = stageSizeOption(arguments);
    const RenderFrameSource source = openFrameSource(document, size);
    snapshot.project = source.project;
    snapshot.project.screen.aspectRatio =
        enumOption(arguments, "--aspect", snapshot.project.screen.aspectRatio);
    const auto screens = snapshot.project.manifest.segmentsFor(MediaTrackManifest::Kind::screen);
    if (screens.empty()) {
        throw Error("\"" + document +
                    "\" names no screen recording: its take has no screen track.");
    }
    snapshot.sourceURL = screens.front().url;
    snapshot.sourceSize = MediaAssetMetadata::naturalVideoSize(snapshot.sourceURL);
    snapshot.timelineClips = snapshot.project.timeline.clips;
    RenderExportSettings settings = renderExportSettings(
        snapshot, output, static_cast<int>(size.width), static_cast<int>(size.height),
        fileTypeOf(output), enumOption(arguments, "--quality", RenderExportQuality::high));
    if (const auto fps = arguments.integer("--fps")) {
        if (*fps < 1 || *fps > 240) {
            throw UsageError("The option --fps takes a whole number of frames a second, 1 to 240.");
        }
        settings.fps = *fps;
    }
    if (const auto captions = arguments.value("--captions")) {
        if (*captions == "burn") {
            // The edited transcript's captions, drawn over the picture as text clips are.
            const auto transcript = EditorTranscriptStore::load(snapshot.sourceURL);
            if (!transcript) {
                throw Error("\"" + document +
                            "\" has no transcript to caption. Run 'orvelle "
                            "transcript process " +
                            document + "' first.");
            }
            // Into the snapshot as well: the export controller renders from it.
            for (const auto& clip : TranscriptCaptions::burnedInTextClips(
                     TranscriptCaptions::cues(*transcript, settings.project))) {
                settings.project.text.clips.push_back(clip);
                snapshot.project.text.clips.push_back(clip);
            }
        } else if (*captions != "none") {
            throw UsageError("--captions takes burn or none, not \"" + *captions + "\".");
        }
    }
    duration = RenderComposition::renderEditTimeline(
                   RenderComposition::normalizedTimelineClips(
                       settings.timelineClips, settings.project.timeline.sourceDuration),
                   settings.project.timeline.deletedGaps, settings.project.timeline.sourceDuration)
                   .duration();
    return settings;
}

std::string formatSeconds(double seconds) {
    char text[32];
    const int whole = static_cast<int>(seconds);
    if (whole >= 60) {
        std::snprintf(text, sizeof text, "%d:%02d", whole / 60, whole % 60);
    } else {
        std::snprintf(text, sizeof text, "%.1f s", seconds);
    }
    return text;
}

int runExport(const Arguments& arguments) {
    const auto outputArgument = arguments.value("--output");
    if (!outputArgument) {
        throw UsageError("Name the movie to write with -o OUT.mp4 or -o OUT.mov.");
    }
    const fs::path output = fs::absolute(*outputArgument).lexically_normal();
    double duration = 0;
    ExportSnapshot snapshot;
    Size size;
    const RenderExportSettings settings =
        exportSettings(arguments, output, duration, snapshot, size);
    const bool json = arguments.flag("--json");
    if (arguments.flag("--dry-run")) {
        RenderExporterV2::validateOutputURL(settings);
        if (json) {
            printJson(settingsJson(settings, duration));
        } else {
            std::cout << "Would write " << output.string() << ": " << settings.width << "x"
                      << settings.height << " at " << settings.fps << " fps, "
                      << RenderExportCodec::videoCodecName(settings.fileType) << ", "
                      << formatSeconds(duration) << ".\n";
        }
        return 0;
    }

    // The export panel's way: the controller renders the snapshot and, when asked, uploads
    // the movie, with one progress bar for both.
    std::optional<YouTubeUploadRequest> upload;
    RunLoop mainThread;
    std::unique_ptr<GoogleOAuthController> account;
    ExportController::Configuration configuration;
    if (arguments.flag("--upload")) {
        upload = uploadRequestFromArguments(arguments, output);
        account = googleAccount(mainThread);
        const OnlineServiceEndpoints endpoints = OnlineServiceEndpoints::load();
        configuration.googleAccount = account.get();
        configuration.upload = uploadClientOptions(endpoints);
        configuration.youtubeWatchURL = endpoints.youtubeWatchURL;
    }
    ExportController controller(
        mainThread, [&]() -> std::optional<ExportSnapshot> { return snapshot; }, configuration);
    InterruptStop interrupt;
    ProgressReporter progress((upload ? "Exporting and uploading " : "Exporting ") +
                              output.filename().string());
    const auto bar = controller.progress().observe([&](double value) { progress.update(value); });
    const auto started = std::chrono::steady_clock::now();
    controller.start(output, static_cast<int>(size.width), static_cast<int>(size.height),
                     settings.fileType, settings.quality, false, upload, settings.fps);
    while (controller.isExporting().value()) {
        mainThread.runFor(std::chrono::milliseconds(50));
        if (interrupt.interrupted()) {
            controller.cancel();
            std::cerr << "\norvelle export: cancelled; "
                      << (controller.renderedURL().value()
                              ? "the movie was kept, nothing was uploaded.\n"
                              : output.string() + " was left as it was.\n");
            return kInterruptedStatus;
        }
    }
    if (!controller.renderedURL().value() || (upload && !controller.youTubeURL().value())) {
        throw Error(controller.statusText().value().value_or("The export failed."));
    }
    progress.finish();
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    if (json) {
        Json result = settingsJson(settings, duration);
        result["secondsToExport"] = seconds;
        if (upload) {
            result["youTubeURL"] = *controller.youTubeURL().value();
        }
        printJson(result);
    } else {
        std::cout << "Wrote " << output.string() << " (" << settings.width << "x" << settings.height
                  << ", " << settings.fps << " fps, " << formatSeconds(duration) << ") in "
                  << formatSeconds(seconds) << ".\n";
        if (upload) {
            std::cout << "Uploaded to YouTube: " << *controller.youTubeURL().value() << "\n";
        }
    }
    return 0;
}

std::vector<OptionSpec> exportOptions() {
    std::vector<OptionSpec> options{{"--output", true, "-o"},
                                    {"--quality", true},
                                    {"--size", true},
                                    {"--aspect", true},
                                    {"--fps", true},
                                    {"--captions", true},
                                    {"--dry-run"},
                                    {"--json"},
                                    {"--upload"}};
    for (auto& option : uploadOptionSpecs()) {
        options.push_back(std::move(option));
    }
    return options;
}

} // namespace

Command exportCommand() {
    return {
        "export", "render an edit into a finished movie (mp4 or mov)",
        "orvelle export DOCUMENT -o OUT.mp4|OUT.mov [--quality standard|high|best]\n"
        "               [--size WxH] [--aspect auto|wide|square|classic|vertical|tall|portrait]\n"
        "               [--fps N] [--captions burn] [--dry-run] [--json]\n"
        "               [--upload [--title T] [--privacy private|unlisted|public] ...]\n\n"
        "Renders DOCUMENT (a take's movie or .take.json, a project package, a bare movie or\n"
        "a project JSON) into a movie: zooms, the styled pointer, the background, camera,\n"
        "mask, text, the sound of the edit with music and click sounds. A take never\n"
        "edited is exported as the editor first opens it, with zooms planned from the\n"
        "pointer. The extension picks the format: .mp4 is H.264 High with AAC, at a bit\n"
        "rate set by --quality (default high); .mov is ProRes 422 Proxy with AAC. The\n"
        "movie is --size (default 1920x1080) fitted to the aspect ratio, the project's\n"
        "unless --aspect is given (auto follows the recording), at the recording's frame\n"
        "rate held to 24...60 unless --fps is given. --captions burn draws the captions of\n"
        "the edited transcript into the picture, styled as text clips. Shows a progress bar\n"
        "on a terminal and plain progress lines otherwise. The movie is written beside OUT\n"
        "under a hidden name and replaces OUT only when it is finished: Ctrl-C, a failure\n"
        "or a killed export leaves OUT as it was. With --dry-run prints the settings it\n"
        "would use (sizes, fps, codecs, bit rate, duration) and writes nothing; --json\n"
        "prints them as JSON, and after an export prints them with secondsToExport. With\n"
        "--upload the movie then goes to YouTube with the connected Google account (see\n"
        "'orvelle account sign-in'), taking the metadata options of 'orvelle upload'; one\n"
        "progress bar covers both, and --json adds youTubeURL.",
        exportOptions(), runExport};
}

} // namespace orvelle::cli
