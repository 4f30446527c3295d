#pragma once

// `orvelle transcribe` given a take rather than an audio file: the take's microphone is
// transcribed and the transcript sidecars are written beside its screen movie.

#include "cli/arguments.h"
#include "project/editor_document.h"

#include <optional>
#include <string>

namespace orvelle::cli {

// The document of a take that has microphone segments; absent for a plain audio or movie
// file.
std::optional<EditorDocument> takeWithMicrophone(const std::string& argument);

int transcribeTake(const Arguments& arguments, const EditorDocument& document);

} // namespace orvelle::cli
