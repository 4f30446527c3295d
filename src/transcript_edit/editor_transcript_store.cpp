#include "transcript_edit/editor_transcript_store.h"

#include "core/files.h"
#include "project/orvelle_project_package.h"
#include "speech/transcript/transcript_output_writer.h"
#include "speech/transcript/transcript_word_builder.h"
#include "speech/transcript/unicode_text.h"

namespace orvelle::EditorTranscriptStore {

namespace {

// A decode error of a sidecar names the sidecar as well as the key.
template <class T>
T decodeFile(const std::filesystem::path& url) {
    try {
        return decodeJson<T>(readJsonFile(url));
    } catch (const JsonDecodeError& error) {
        throw JsonDecodeError(error.path(), error.problem() + " (in " + url.string() + ")");
    }
}

} // namespace

std::filesystem::path defaultTranscriptURL(const std::filesystem::path& screenURL) {
    return OrvelleProjectPackage::editorTranscriptURL(screenURL);
}

std::optional<EditorTranscript> load(const EditorDocument& document) {
    return load(document.screenURL);
}

std::optional<EditorTranscript> load(const std::filesystem::path& screenURL) {
    const auto editorURL = defaultTranscriptURL(screenURL);
    if (fileExists(editorURL)) {
        return decodeFile<EditorTranscript>(editorURL);
    }
    const auto analysisURL = TranscriptOutputWriter::defaultJSONOutputURL(screenURL);
    if (fileExists(analysisURL)) {
        return EditorTranscript(decodeFile<TranscriptAnalysis>(analysisURL));
    }
    return loadLegacyPlainText(screenURL);
}

std::optional<EditorTranscript> loadLegacyPlainText(const std::filesystem::path& screenURL) {
    std::string text;
    try {
        text =
            trimmingWhitespace(readFile(TranscriptOutputWriter::defaultTextOutputURL(screenURL)));
    } catch (const Error&) {
        return std::nullopt;
    }
    if (text.empty()) {
        return std::nullopt;
    }
    TranscriptAnalysis analysis;
    analysis.text = text;
    analysis.words = TranscriptWordBuilder::untimedWords(text);
    analysis.source.analyzer = "legacy-text-sidecar";
    analysis.source.audioURL = screenURL;
    analysis.source.modelDescription = "Unknown";
    analysis.source.createdAt = Date::now();
    return EditorTranscript(std::move(analysis));
}

void save(const EditorTranscript& transcript, const std::filesystem::path& screenURL) {
    writeJsonAtomically(defaultTranscriptURL(screenURL), encodeJson(transcript));
    TranscriptOutputWriter::writePlainText(transcript.analysis.text,
                                           TranscriptOutputWriter::defaultTextOutputURL(screenURL));
    TranscriptOutputWriter::writeJSON(transcript.analysis,
                                      TranscriptOutputWriter::defaultJSONOutputURL(screenURL));
}

} // namespace orvelle::EditorTranscriptStore
