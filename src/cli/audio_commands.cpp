#include "cli/commands.h"
#include "cli/interrupt.h"
#include "cli/output.h"
#include "cli/project_input.h"
#include "core/files.h"
#include "platform/media/movie_writer.h"
#include "project/editor_document.h"
#include "timeline_media/composition_audio_mixer.h"
#include "timeline_media/project_composition.h"

#include <cmath>
#include <filesystem>
#include <iostream>

namespace orvelle::cli {

namespace {

Json intervalsJson(const std::vector<VoiceInterval>& intervals) {
    Json list = Json::array();
    for (const auto& interval : intervals) {
        list.push_back({{"lower", interval.lower}, {"upper", interval.upper}});
    }
    return list;
}

int runAudioMix(const Arguments& arguments) {
    const EditorDocument document = openDocument(arguments.positional(0, "the document"));
    const auto output = arguments.value("--output");
    if (!output) {
        throw UsageError("Say where the mix goes with -o OUT.wav.");
    }
    const std::filesystem::path outputPath(*output);
    if (containerForPath(outputPath) != MovieContainer::wav &&
        containerForPath(outputPath) != MovieContainer::m4a) {
        throw UsageError("The mix is written as .wav or .m4a.");
    }
    const auto inputs = loadProjectCompositionInputs(document.project, NoiseReductionCache());
    if (!inputs) {
        throw Error("The screen movie of \"" + document.screenURL.string() +
                    "\" cannot be read. Check that the take's files are in place.");
    }
    const auto result = makeProjectComposition(document.project, *inputs);
    if (!result) {
        throw Error("The timeline does not contain any visible clips.");
    }
    const double from = std::max(arguments.number("--from").value_or(0.0), 0.0);
    const double to =
        std::min(arguments.number("--to").value_or(result->duration), result->duration);
    if (!(to > from)) {
        throw UsageError("--from must lie before --to and inside the edit (" +
                         std::to_string(result->duration) + " s).");
    }
    CompositionAudioMixer mixer(result->composition, result->audioMix);
    const int64_t first = mixerFrame(from);
    const int64_t last = mixerFrame(to);
    // Written beside the target and moved into place at the end, so a failed or stopped mix
    // leaves the file that was there.
    PartialFile partial(outputPath);
    constexpr size_t block = 48000;
    std::vector<float> samples(block * CompositionAudioMixer::kChannelCount);
    InterruptStop interrupt;
    ProgressReporter progress("Mixing");
    {
        AudioFileWriter writer(partial.path(), *containerForPath(outputPath));
        for (int64_t frame = first; frame < last; frame += static_cast<int64_t>(block)) {
            if (interrupt.interrupted()) {
                std::cerr << "\norvelle audio mix: cancelled; " << outputPath.string()
                          << " was left as it was.\n";
                return kInterruptedStatus;
            }
            const auto count = static_cast<size_t>(std::min<int64_t>(block, last - frame));
            mixer.render(frame, count, samples.data());
            writer.append(samples.data(), count);
            progress.update(static_cast<double>(frame - first + static_cast<int64_t>(count)) /
                            static_cast<double>(last - first));
        }
        writer.finish();
    }
    partial.commit();
    progress.finish();
    if (arguments.flag("--json")) {
        printJson({{"output", outputPath.string()},
                   {"from", from},
                   {"to", to},
                   {"sampleRate", CompositionAudioMixer::kSampleRate},
                   {"channelCount", CompositionAudioMixer::kChannelCount},
                   {"frames", last - first}});
    } else {
        std::cout << "wrote " << outputPath.string() << ": " << (to - from) << " s of the edit\n";
    }
    return 0;
}

int runAudioVoice(const Arguments& arguments) {
    const EditorDocument document = openDocument(arguments.positional(0, "the document"));
    const auto intervals = VoiceActivityDetector::sourceIntervals(
        document.manifest.segmentsFor(MediaTrackManifest::Kind::microphone));
    if (arguments.flag("--json")) {
        printJson({{"intervals", intervalsJson(intervals)}});
        return 0;
    }
    for (const auto& interval : intervals) {
        std::cout << interval.lower << " - " << interval.upper << "\n";
    }
    return 0;
}

} // namespace

Command audioMixCommand() {
    return {"audio mix",
            "the edited sound of a document as a file",
            "orvelle audio mix DOCUMENT -o OUT.wav [--from T] [--to T] [--json]\n\n"
            "Mixes the system audio, microphone and music of DOCUMENT's edit, with its\n"
            "volumes, fades at cuts, speeds and music ducking, as 48 kHz stereo; --from and\n"
            "--to pick a stretch in edit seconds. OUT may end in .wav or .m4a. The file is\n"
            "written beside OUT under a hidden name and replaces OUT when it is finished:\n"
            "Ctrl-C or a failure leaves OUT as it was.",
            {{"--output", true, "-o"}, {"--from", true}, {"--to", true}, {"--json"}},
            runAudioMix};
}

Command audioVoiceCommand() {
    return {"audio voice",
            "where someone speaks in a take's microphone track",
            "orvelle audio voice DOCUMENT [--json]\n\n"
            "Prints the intervals of speech found in the microphone files of DOCUMENT's\n"
            "take, in seconds of the take's own clock (source time).",
            {{"--json"}},
            runAudioVoice};
}

} // namespace orvelle::cli
