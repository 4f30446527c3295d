#include "cli/commands.h"
#include "cli/output.h"
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
