#include "cli/commands.h"
#include "cli/output.h"
#include "cli/transcribe_take.h"
#include "platform/onnx/onnx_runtime.h"
#include "speech/runtime/audio_loader.h"
#include "speech/runtime/mel_feature_extractor.h"
#include "speech/runtime/parakeet_transcriber.h"

#include <iostream>
#include <mutex>

namespace orvelle::cli {

namespace {

int runSpeechMel(const Arguments& arguments) {
    const std::vector<float> samples =
        AudioLoader::loadMono16k(arguments.positional(0, "the audio file"));
    const MelFeatureExtractor extractor;
    const auto features = extractor.extract(samples);
    const auto& settings = extractor.settings();
    const double seconds = static_cast<double>(samples.size()) / settings.sampleRate;
    if (!arguments.flag("--json")) {
        std::cout << features.frameCount() << " frames of " << features.numMelFilters
                  << " mel bins, " << seconds << " s at " << settings.sampleRate
                  << " Hz, one frame every " << settings.hopLength << " samples\n";
        return 0;
    }
    Json frames = Json::array();
    for (size_t t = 0; t < features.frameCount(); ++t) {
        const auto frame = features.frame(t);
        frames.push_back(Json(std::vector<float>(frame.begin(), frame.end())));
    }
    printJson({{"frameCount", features.frameCount()},
               {"bins", features.numMelFilters},
               {"sampleRate", settings.sampleRate},
               {"hopLength", settings.hopLength},
               {"audioDurationSeconds", seconds},
               {"features", frames}});
    return 0;
}

Json transcriptionJson(const Transcription& transcription, ParakeetComputeUnits units) {
    Json tokens = Json::array();
    for (const auto& token : transcription.timedTokens) {
        tokens.push_back({{"tokenID", token.tokenID},
                          {"piece", token.piece},
                          {"text", token.text},
                          {"frameIndex", token.frameIndex},
                          {"durationFrames", token.durationFrames},
                          {"startTime", token.startTime},
                          {"endTime", token.endTime}});
    }
    const double inference = transcription.inferenceDurationSeconds;
    return {
        {"text", transcription.text},
        {"timedTokens", tokens},
        {"tokenIds", transcription.tokenIds},
        {"frameIndices", transcription.frameIndices},
        {"durations", transcription.durations},
        {"audioDurationSeconds", transcription.audioDurationSeconds},
        {"inferenceDurationSeconds", inference},
        {"realtimeFactor", inference > 0 ? transcription.audioDurationSeconds / inference : 0.0},
        {"computeUnits", std::string(text(units))},
        {"timing",
         {{"melExtract", transcription.timing.melExtract},
          {"encoder", transcription.timing.encoder},
          {"decoderLoop", transcription.timing.decoderLoop},
          {"detokenize", transcription.timing.detokenize}}}};
}

int runTranscribe(const Arguments& arguments) {
    const std::string& audio = arguments.positional(0, "the audio file");
    if (const auto take = takeWithMicrophone(audio)) {
        return transcribeTake(arguments, *take);
    }
    const auto model = arguments.value("--model");
    if (!model) {
        throw UsageError("Name the speech model folder with --model DIR.");
    }
    const std::string unitsText = arguments.value("--compute-units").value_or("all");
    const auto units = parakeetComputeUnits(unitsText);
    if (!units) {
        throw UsageError("--compute-units is one of cpu, gpu, ane or all, not '" + unitsText +
                         "'.");
    }
    ParakeetTranscriber transcriber(*model, *units);
    ProgressReporter reporter("transcribing");
    std::mutex reporterLock;
    const Transcription transcription =
        transcriber.transcribe(std::filesystem::path(audio), [&](size_t decoded, size_t total) {
            std::lock_guard lock(reporterLock);
            reporter.update(static_cast<double>(decoded) / static_cast<double>(total));
        });
    reporter.finish();
    if (arguments.flag("--json")) {
        printJson(transcriptionJson(transcription, *units));
    } else {
        std::cout << transcription.text << "\n";
    }
    return 0;
}

int runSpeechRuntime(const Arguments& arguments) {
    const OnnxRuntimeInfo& runtime = onnxRuntime();
    if (arguments.flag("--json")) {
        printJson({{"version", runtime.version},
                   {"library", runtime.library.string()},
                   {"providers", runtime.providers}});
        return 0;
    }
    std::cout << "ONNX Runtime " << runtime.version << " from " << runtime.library.string() << "\n";
    for (const auto& provider : runtime.providers) {
        std::cout << "  " << provider << "\n";
    }
    return 0;
}

} // namespace

Command speechMelCommand() {
    return {"speech mel",
            "the log-mel features the speech model hears",
            "orvelle speech mel AUDIO [--json]\n\n"
            "Decodes AUDIO to 16 kHz mono and prints the number of feature frames (one per\n"
            "10 ms) and mel bins; with --json also the whole feature matrix, frame by frame,\n"
            "each bin normalised over the file.",
            {{"--json"}},
            runSpeechMel};
}

Command transcribeCommand() {
    return {"transcribe",
            "speech to text with a local model",
            "orvelle transcribe AUDIO --model DIR [--compute-units cpu|gpu|ane|all] [--json]\n\n"
            "Recognises the speech in AUDIO (any audio or movie file) with the model in DIR:\n"
            "encoder.onnx, decoder.onnx, joint.onnx and tokenizer.json, or encoder-model.onnx,\n"
            "decoder_joint-model.onnx and vocab.txt. Prints the text; with --json the tokens\n"
            "with their times, the time of each stage and the real-time factor.\n"
            "--compute-units picks the device and the number of parallel decoders (cpu: 1,\n"
            "ane: 2, gpu and all: 4); devices this machine lacks fall back to the CPU.\n"
            "Default: all.\n\n"
            "Given a take instead (its movie, its .take.json or a saved project), transcribes\n"
            "the take's microphone at take times (several segments are first rendered to\n"
            "NAME.transcription.m4a with silence between them) and writes NAME.transcript.json\n"
            "and NAME.transcript.txt beside the take's movie. --model is then optional: the\n"
            "installed model is used, on the gpu setting unless --compute-units says else.",
            {{"--json"}, {"--model", true}, {"--compute-units", true}},
            runTranscribe};
}

Command speechRuntimeCommand() {
    return {"speech runtime",
            "which ONNX Runtime the speech models run on",
            "orvelle speech runtime [--json]\n\n"
            "Loads ONNX Runtime and prints its version, the library file and its execution\n"
            "providers, or says what is missing.",
            {{"--json"}},
            runSpeechRuntime};
}

} // namespace orvelle::cli
