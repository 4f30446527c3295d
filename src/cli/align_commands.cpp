#include "cli/commands.h"
#include "cli/output.h"
#include "core/files.h"
#include "platform/media/media_probe.h"
#include "speech/align/alignment_model_bundle.h"
#include "speech/align/ctc_transcript_normalizer.h"
#include "speech/align/precise_word_timing_alignment_service.h"
#include "speech/transcript/transcript_word_builder.h"
#include "speech/transcript/unicode_text.h"

#include <cstdio>
#include <iostream>

namespace orvelle::cli {

namespace {

std::vector<AlignmentInputWord> wordsOfText(const std::string& text) {
    std::vector<AlignmentInputWord> words;
    for (std::string& piece : splitAtWhitespace(text)) {
        words.push_back(
            {std::to_string(words.size()), std::move(piece), std::nullopt, std::nullopt});
    }
    return words;
}

// The vocabulary the options name: a manifest (its vocabulary beside it unless
// --vocabulary says otherwise), a vocabulary with the usual character-model tokens, a
// bundle folder, or else the installed bundle when there is one.
std::optional<CTCVocabulary> chosenVocabulary(const Arguments& arguments) {
    const auto manifestFile = arguments.value("--manifest");
    const auto vocabularyFile = arguments.value("--vocabulary");
    if (manifestFile) {
        const AlignmentTokenizerMetadata metadata =
            readAlignmentModelManifest(*manifestFile).tokenizer;
        const std::filesystem::path vocabulary =
            vocabularyFile
                ? std::filesystem::path(*vocabularyFile)
                : std::filesystem::path(*manifestFile).parent_path() / metadata.vocabularyFile;
        return CTCVocabulary::load(vocabulary, metadata);
    }
    if (vocabularyFile) {
        AlignmentTokenizerMetadata metadata;
        metadata.type = "ctc_char";
        metadata.blankToken = "<pad>";
        metadata.unknownToken = "<unk>";
        metadata.wordSeparatorToken = "|";
        return CTCVocabulary::load(*vocabularyFile, metadata);
    }
    const PreciseWordTimingAlignmentService service(arguments.value("--bundle"));
    const std::filesystem::path bundleFolder = service.bundleURL();
    if (!arguments.value("--bundle") && !fileExists(bundleFolder)) {
        return std::nullopt;
    }
    const AlignmentModelBundle bundle = AlignmentModelBundle::load(bundleFolder);
    return CTCVocabulary::load(bundle.vocabularyURL(), bundle.manifest.tokenizer);
}

Json tokenText(const CTCVocabulary& vocabulary, int id) {
    const auto text = vocabulary.token(id);
    return text ? Json(*text) : Json(nullptr);
}

int runAlignNormalize(const Arguments& arguments) {
    const std::string& text = arguments.positional(0, "the text to normalise");
    const std::vector<AlignmentInputWord> words = wordsOfText(text);
    const std::optional<CTCVocabulary> vocabulary = chosenVocabulary(arguments);

    Json json = {{"normalizedText", CTCTranscriptNormalizer::normalizedText(text)}};
    if (!vocabulary) {
        Json list = Json::array();
        for (const auto& word : words) {
            list.push_back(
                {{"wordID", word.id},
                 {"rawText", word.text},
                 {"normalizedText", CTCTranscriptNormalizer::normalizedText(word.text)}});
        }
        json["words"] = list;
    } else {
        const CTCNormalizedTranscript normalized =
            CTCTranscriptNormalizer::normalize(words, *vocabulary);
        Json list = Json::array();
        for (const auto& word : normalized.words) {
            Json tokens = Json::array();
            for (int i = word.targetTokenRange.begin; i < word.targetTokenRange.end; ++i) {
                tokens.push_back(
                    tokenText(*vocabulary, normalized.targetTokenIDs[static_cast<size_t>(i)]));
            }
            list.push_back(
                {{"wordID", word.wordID},
                 {"rawText", word.rawText},
                 {"normalizedText", word.normalizedText},
                 {"targetTokenRange", {word.targetTokenRange.begin, word.targetTokenRange.end}},
                 {"tokens", tokens}});
        }
        Json tokens = Json::array();
        Json owners = Json::array();
        for (size_t i = 0; i < normalized.targetTokenIDs.size(); ++i) {
            tokens.push_back(tokenText(*vocabulary, normalized.targetTokenIDs[i]));
            const auto& owner = normalized.targetTokenWordIDs[i];
            owners.push_back(owner ? Json(*owner) : Json(nullptr));
        }
        json["words"] = list;
        json["targetTokenIDs"] = normalized.targetTokenIDs;
        json["targetTokens"] = tokens;
        json["targetTokenWordIDs"] = owners;
        json["warnings"] = encodeJson(normalized.warnings);
        json["blankTokenID"] = vocabulary->blankTokenID;
    }
    if (arguments.flag("--json")) {
        printJson(json);
        return 0;
    }
    std::cout << json["normalizedText"].get<std::string>() << "\n";
    if (json.contains("targetTokens")) {
        for (const auto& token : json["targetTokens"]) {
            std::cout << (token.is_string() ? token.get<std::string>() : "?") << " ";
        }
        std::cout << "\n";
        for (const auto& warning : json["warnings"]) {
            std::cerr << "warning: " << warning["message"].get<std::string>() << "\n";
        }
    }
    return 0;
}

struct TranscriptFile {
    EditorTranscript transcript;
    bool editorForm = false; // a .transcript.editor.json rather than an analysis
};

TranscriptFile readTranscript(const std::filesystem::path& path) {
    const Json json = readJsonFile(path);
    TranscriptFile file;
    if (json.is_object() && json.contains("analysis")) {
        file.transcript = decodeJson<EditorTranscript>(json);
        file.editorForm = true;
    } else {
        file.transcript = EditorTranscript(decodeJson<TranscriptAnalysis>(json));
    }
    // Words that were never built (text only) are split at whitespace, without times.
    TranscriptAnalysis& analysis = file.transcript.analysis;
    if (analysis.words.empty() && !analysis.tokens.empty()) {
        analysis.words = TranscriptWordBuilder::words(analysis.tokens);
    }
    if (analysis.words.empty()) {
        analysis.words = TranscriptWordBuilder::untimedWords(analysis.text);
    }
    return file;
}

int runAlign(const Arguments& arguments) {
    const std::filesystem::path audio = arguments.positional(0, "the audio or movie file");
    const auto transcriptPath = arguments.value("--transcript");
    if (!transcriptPath) {
        throw UsageError("Name the transcript to align with --transcript FILE "
                         "(.transcript.json or .transcript.editor.json).");
    }
    TranscriptFile file = readTranscript(*transcriptPath);
    double sourceDuration = 0;
    try {
        sourceDuration = probeMediaFile(audio).duration;
    } catch (const Error&) {
        // The service says what is wrong with the audio.
    }

    PreciseWordTimingAlignmentService service(arguments.value("--bundle"));
    ProgressReporter progress("aligning");
    const PreciseWordTimingAlignmentResult result =
        service.alignTranscript(file.transcript, audio, sourceDuration,
                                [&](double fraction) { progress.update(fraction); });
    progress.finish();

    if (const auto output = arguments.value("--output")) {
        writeJsonAtomically(*output, file.editorForm ? encodeJson(result.transcript)
                                                     : encodeJson(result.transcript.analysis));
    }

    const auto& baseline = *result.transcript.alignmentBaselineWords;
    if (arguments.flag("--json")) {
        Json words = Json::array();
        const auto& now = result.transcript.analysis.words;
        for (size_t i = 0; i < now.size(); ++i) {
            Json word = encodeJson(now[i]);
            word["index"] = i;
            if (i < baseline.size()) {
                setOptional(word, "roughStartTime", baseline[i].startTime);
                setOptional(word, "roughEndTime", baseline[i].endTime);
            }
            words.push_back(word);
        }
        printJson({{"words", words},
                   {"warnings", encodeJson(result.report.warnings)},
                   {"report", encodeJson(result.report.alignmentReport)},
                   {"baselineChanges", encodeJson(result.report.baselineChanges)},
                   {"modelDescription", result.transcript.analysis.source.modelDescription},
                   {"summary", result.report.summaryText()}});
        return 0;
    }
    std::cout << result.report.summaryText() << "\n";
    for (const auto& word : result.transcript.analysis.words) {
        std::printf("%9.3f %9.3f  %s\n", word.startTime.value_or(0), word.endTime.value_or(0),
                    word.text.c_str());
    }
    for (const auto& warning : result.report.warnings) {
        std::cerr << "warning: " << warning.message << "\n";
    }
    return 0;
}

} // namespace

Command alignNormalizeCommand() {
    return {"align normalize",
            "normalise text for precise word timing and show its tokens",
            "orvelle align normalize TEXT [--manifest FILE] [--vocabulary FILE]\n"
            "                            [--bundle DIR] [--json]\n\n"
            "Normalises TEXT as precise word timing does (quotes, \"&\", case, accents and\n"
            "width folded, numbers spelt out, only letters, digits and single blanks) and,\n"
            "given a timing model's vocabulary, the token targets each word becomes. The\n"
            "vocabulary comes from --manifest (the bundle's model_manifest.json; its\n"
            "vocabulary file beside it unless --vocabulary names another), from --vocabulary\n"
            "alone (a character vocabulary with \"<pad>\", \"<unk>\" and \"|\"), from --bundle,\n"
            "or from the installed model. --json prints normalizedText, words with their\n"
            "tokens, targetTokenIDs, targetTokens, targetTokenWordIDs and warnings.",
            {{"--json"}, {"--manifest", true}, {"--vocabulary", true}, {"--bundle", true}},
            runAlignNormalize};
}

Command alignCommand() {
    return {"align",
            "correct a transcript's word times by forced alignment",
            "orvelle align AUDIO --transcript FILE [--bundle DIR] [--output FILE] [--json]\n\n"
            "Aligns the words of FILE (.transcript.json or .transcript.editor.json) with the\n"
            "speech in AUDIO using the precise word timing model: --bundle DIR, else the\n"
            "folder in ORVELLE_PRECISE_WORD_TIMING_MODEL_BUNDLE, else the installed one. Long\n"
            "audio is aligned in overlapping chunks; words that cannot be aligned keep their\n"
            "rough times. Prints a summary and the new word times; --json prints the words\n"
            "(with their rough times), warnings, the report, the changes and the summary.\n"
            "--output FILE writes the corrected transcript in the form it was read.",
            {{"--json"}, {"--transcript", true}, {"--bundle", true}, {"--output", true, "-o"}},
            runAlign};
}

} // namespace orvelle::cli
