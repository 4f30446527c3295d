#pragma once

// Where an editor transcript lives: "<name>.transcript.editor.json" beside the take's
// screen movie, with the analysis sidecars "<name>.transcript.json" and
// "<name>.transcript.txt" kept in step at every save. Older takes still open: one with
// only the analysis sidecar gets a transcript without paragraphs, one with only the plain
// text gets words without times (which cannot be cut until it is transcribed again).

#include "project/editor_document.h"
#include "speech/transcript/editor_transcript.h"

#include <filesystem>
#include <optional>

namespace orvelle::EditorTranscriptStore {

std::filesystem::path defaultTranscriptURL(const std::filesystem::path& screenURL);

// The first of: the editor file, the analysis sidecar, the plain text. Absent when there is
// none (or the plain text is empty or unreadable). A corrupt editor file or analysis
// sidecar throws its decode error, naming the file.
std::optional<EditorTranscript> load(const EditorDocument& document);
std::optional<EditorTranscript> load(const std::filesystem::path& screenURL);

// The plain-text sidecar as a transcript of untimed words; absent when it is missing,
// unreadable or empty.
std::optional<EditorTranscript> loadLegacyPlainText(const std::filesystem::path& screenURL);

// Writes the editor file, then the plain text, then the analysis, each by atomic replace.
// A failure throws FileError; the files before it stay written.
void save(const EditorTranscript& transcript, const std::filesystem::path& screenURL);

} // namespace orvelle::EditorTranscriptStore
