#include "speech/transcript/transcript_output_writer.h"

#include "core/files.h"
#include "project/orvelle_project_package.h"
#include "speech/transcript/unicode_text.h"

#include <system_error>

namespace orvelle::TranscriptOutputWriter {

namespace {

void createParentFolder(const std::filesystem::path& file) {
    if (!file.has_parent_path()) {
        return;
    }
    std::error_code error;
    std::filesystem::create_directories(file.parent_path(), error);
    if (error) {
        throw FileError("Could not create the folder \"" + file.parent_path().string() +
                        "\": " + error.message());
    }
}

} // namespace

std::filesystem::path defaultTextOutputURL(const std::filesystem::path& url) {
    return OrvelleProjectPackage::transcriptTextURL(url);
}

std::filesystem::path defaultJSONOutputURL(const std::filesystem::path& url) {
    return OrvelleProjectPackage::transcriptJSONURL(url);
}

void writePlainText(std::string_view text, const std::filesystem::path& to) {
    createParentFolder(to);
    writeFileAtomically(to, trimmingWhitespace(text) + "\n");
}

void writeJSON(const TranscriptAnalysis& analysis, const std::filesystem::path& to) {
    createParentFolder(to);
    writeJsonAtomically(to, encodeJson(analysis));
}

} // namespace orvelle::TranscriptOutputWriter
