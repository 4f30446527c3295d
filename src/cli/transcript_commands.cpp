#include "cli/commands.h"
#include "cli/output.h"
#include "cli/project_input.h"
#include "cli/transcribe_take.h"
#include "speech/transcript/parakeet_transcript_analyzer.h"
#include "speech/transcript/recording_transcription_service.h"
#include "speech/transcript/transcript_model_locator.h"
#include "speech/transcript/transcript_output_writer.h"
#include "speech/transcript/transcript_word_builder.h"

#include <cstdio>
#include <iostream>

namespace orvelle::cli {

namespace {

// A token list, or anything with one under "tokens" (a transcript sidecar).
std::vector<TranscriptToken> readTokens(const std::filesystem::path& path) {
    const Json json = readJsonFile(path);
    if (json.is_object() && json.contains("tokens")) {
        return decodeJson<std::vector<TranscriptToken>>(json["tokens"],
                                                        JsonDecodeContext{"tokens"});
    }
    return decodeJson<std::vector<TranscriptToken>>(json);
}

int runTranscriptWords(const Arguments& arguments) {
    const std::vector<TranscriptToken> tokens =
        readTokens(arguments.positional(0, "the token list (JSON)"));
    const std::vector<TranscriptWord> words = TranscriptWordBuilder::words(tokens);
    if (arguments.flag("--json")) {
        printJson({{"words", encodeJson(words)}});
        return 0;
    }
    for (const auto& word : words) {
        std::printf("%9.3f %9.3f  %s\n", word.startTime.value_or(0), word.endTime.value_or(0),
                    word.text.c_str());
    }
    return 0;
}

} // namespace

std::optional<EditorDocument> takeWithMicrophone(const std::string& argument) {
    if (!std::filesystem::exists(documentPath(argument))) {
        return std::nullopt;
    }
    EditorDocument document = openDocument(argument);
    if (document.manifest.segmentsFor(MediaTrackManifest::Kind::microphone).empty()) {
        return std::nullopt;
    }
    return document;
}

int transcribeTake(const Arguments& arguments, const EditorDocument& document) {
    std::optional<RecordingTranscriptionRequest> request;
    if (const auto model = arguments.value("--model")) {
        request =
            RecordingTranscriptionService::makeRequest(document, TranscriptModelSource{*model});
    } else {
        request = RecordingTranscriptionService::makeRequest(document);
        if (!request && !TranscriptModelLocator::defaultModelSource(".")) {
            throw RecordingTranscriptionError(RecordingTranscriptionErrorCode::modelNotInstalled);
        }
    }
    if (!request) {
        throw Error("The take has no readable microphone recording to transcribe.");
    }
    TranscriptAnalysis analysis;
    if (const auto units = arguments.value("--compute-units")) {
        const auto chosen = enumFromName<TranscriptComputeUnits>(*units);
        if (!chosen) {
            throw UsageError("--compute-units is one of cpu, gpu, ane or all, not '" + *units +
                             "'.");
        }
        analysis =
            ParakeetTranscriptAnalyzer(*request->modelSource, *chosen).analyze(request->audioURL);
    } else {
        analysis = RecordingTranscriptionService::transcribe(*request).analysis;
    }
    const auto jsonURL = TranscriptOutputWriter::defaultJSONOutputURL(document.screenURL);
    const auto textURL = TranscriptOutputWriter::defaultTextOutputURL(document.screenURL);
    TranscriptOutputWriter::writeJSON(analysis, jsonURL);
    TranscriptOutputWriter::writePlainText(analysis.text, textURL);
    if (arguments.flag("--json")) {
        printJson({{"analysis", encodeJson(analysis)},
                   {"audioURL", encodeJson(request->audioURL)},
                   {"sidecars", {{"json", jsonURL.string()}, {"text", textURL.string()}}}});
        return 0;
    }
    std::cout << analysis.text << "\n";
    std::cerr << "wrote " << jsonURL.string() << " and " << textURL.filename().string() << "\n";
    return 0;
}

Command transcriptWordsCommand() {
    return {"transcript words",
            "build words from recognised tokens",
            "orvelle transcript words TOKENS.json [--json]\n\n"
            "Reads a list of tokens (text, tokenID, startTime, endTime, confidence), or a\n"
            ".transcript.json holding one, and builds words as the transcriber does: a piece\n"
            "that starts with a blank or \"\u2581\" opens a word, any other joins the word before\n"
            "it, \"<pad>\" and \"<blank>\" are skipped. Prints start, end and text of each word;\n"
            "with --json the words with their times, confidence and token indexes.",
            {{"--json"}},
            runTranscriptWords};
}

} // namespace orvelle::cli
