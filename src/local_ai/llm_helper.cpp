#include "local_ai/llm_helper.h"

#include "core/files.h"
#include "core/resources.h"
#include "local_ai/youtube_metadata.h"
#include "platform/process/process.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace orvelle {

namespace {

std::optional<std::string> environmentValue(const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr || *value == '\0') {
        return std::nullopt;
    }
    return std::string(value);
}

std::string number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

// The length of the UTF-8 sequence a lead byte starts; 0 for a byte that starts none.
std::size_t sequenceLength(unsigned char lead) {
    if (lead < 0x80) {
        return 1;
    }
    if (lead >= 0xC2 && lead <= 0xDF) {
        return 2;
    }
    if (lead >= 0xE0 && lead <= 0xEF) {
        return 3;
    }
    if (lead >= 0xF0 && lead <= 0xF4) {
        return 4;
    }
    return 0;
}

bool isContinuation(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

} // namespace

LLMHelperSearchPlaces LLMHelperSearchPlaces::current() {
    std::error_code error;
    LLMHelperSearchPlaces places;
    places.programDirectory = runningProgramDirectory();
    places.currentDirectory = std::filesystem::current_path(error);
    places.resourcesDirectory = orvelle::resourcesDirectory();
    places.homeDirectory = environmentValue("HOME").value_or("");
    places.helperVariable = environmentValue("ORVELLE_LLM_HELPER");
    places.llamaCLIVariable = environmentValue("ORVELLE_LLAMA_CLI");
    return places;
}

std::vector<std::filesystem::path>
llmHelperCandidates(const std::optional<std::filesystem::path>& configured,
                    const LLMHelperSearchPlaces& places) {
    std::vector<std::filesystem::path> candidates;
    const auto add = [&candidates](const std::filesystem::path& path) {
        if (!path.empty()) {
            candidates.push_back(path);
        }
    };
    if (configured) {
        add(*configured);
    }
    if (!places.programDirectory.empty()) {
        add(places.programDirectory / kLLMHelperExecutableName);
    }
    if (places.helperVariable) {
        add(*places.helperVariable);
    }
    if (places.llamaCLIVariable) {
        add(*places.llamaCLIVariable);
    }
    if (!places.currentDirectory.empty()) {
        add(places.currentDirectory / "build" / "default" / "bin" / kLLMHelperExecutableName);
    }
    if (!places.resourcesDirectory.empty()) {
        add(places.resourcesDirectory / "llm-helper" / kLLMHelperExecutableName);
    }
    if (!places.homeDirectory.empty()) {
        add(places.homeDirectory / "Projects/llama.cpp/build/bin/llama-cli");
        add(places.homeDirectory / "Projects/llama.cpp/build/bin/main");
    }
    add("/tmp/llama.cpp/build/bin/llama-cli");
    return candidates;
}

std::filesystem::path
resolvedLLMHelperExecutable(const std::optional<std::filesystem::path>& configured,
                            const LLMHelperSearchPlaces& places) {
    for (const auto& candidate : llmHelperCandidates(configured, places)) {
        if (isExecutableFile(candidate)) {
            return candidate;
        }
    }
    throw YouTubeMetadataGenerationError(YouTubeMetadataGenerationErrorCode::runtimeNotFound);
}

std::vector<std::string> llmOneShotArguments(const std::filesystem::path& model,
                                             const LLMGenerationSettings& settings,
                                             const std::optional<std::filesystem::path>& promptFile,
                                             std::string_view promptText) {
    std::vector<std::string> arguments{"-m",
                                       model.string(),
                                       "-c",
                                       std::to_string(settings.contextSize),
                                       "-n",
                                       std::to_string(settings.maxGeneratedTokens),
                                       "--temp",
                                       number(settings.temperature),
                                       "--top-p",
                                       number(settings.topP),
                                       "--no-display-prompt",
                                       "--single-turn",
                                       "--simple-io",
                                       "--reasoning",
                                       "off",
                                       "--no-jinja",
                                       "--no-warmup",
                                       "-sys",
                                       settings.systemPrompt};
    if (settings.jsonSchema) {
        arguments.insert(arguments.end(), {"--json-schema", *settings.jsonSchema});
    }
    if (settings.gpuOff) {
        arguments.insert(arguments.end(), {"-ngl", "0"});
    }
    if (promptFile) {
        arguments.insert(arguments.end(), {"-f", promptFile->string()});
    } else {
        arguments.insert(arguments.end(), {"-p", std::string(promptText)});
    }
    return arguments;
}

std::string UTF8ChunkDecoder::decode(std::string_view bytes) {
    pending_ += bytes;
    std::string complete;
    std::size_t i = 0;
    while (i < pending_.size()) {
        const auto lead = static_cast<unsigned char>(pending_[i]);
        const std::size_t length = sequenceLength(lead);
        if (length == 0) {
            complete += kReplacement;
            ++i;
            continue;
        }
        std::size_t have = 1;
        while (have < length && i + have < pending_.size() &&
               isContinuation(static_cast<unsigned char>(pending_[i + have]))) {
            ++have;
        }
        if (have == length) {
            complete.append(pending_, i, length);
            i += length;
        } else if (i + have == pending_.size()) {
            break; // the rest of this character has not come yet
        } else {
            complete += kReplacement; // cut short by a byte that belongs to no character
            i += have;
        }
    }
    pending_.erase(0, i);
    return complete;
}

std::string UTF8ChunkDecoder::finish() {
    std::string rest;
    if (!pending_.empty()) {
        rest = kReplacement;
        pending_.clear();
    }
    return rest;
}

TemporaryTextFile::TemporaryTextFile() {
    std::string pattern =
        (std::filesystem::temp_directory_path() / "orvelle-prompt-XXXXXX").string();
    const int fd = ::mkstemp(pattern.data());
    if (fd < 0) {
        throw FileError("Could not make a temporary file in " +
                        std::filesystem::temp_directory_path().string() + ".");
    }
    ::close(fd);
    path_ = pattern;
}

void TemporaryTextFile::write(std::string_view text) const {
    writeFileAtomically(path_, text);
}

TemporaryTextFile::~TemporaryTextFile() {
    removeIgnoringErrors(path_);
}

std::string helperErrorSummary(std::string_view errorOutput) {
    constexpr std::size_t kLimit = 2000;
    std::string text = errorOutput.size() > kLimit
                           ? "..." + std::string(errorOutput.substr(errorOutput.size() - kLimit))
                           : std::string(errorOutput);
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) {
        text.pop_back();
    }
    return text;
}

namespace LLMHelperProcessRunner {

Output run(const std::filesystem::path& executable, const std::vector<std::string>& arguments,
           const std::function<void(std::string_view)>& onChunk, const Limits& limits,
           const std::stop_token& stop) {
    UTF8ChunkDecoder decoder;
    std::string text;
    const auto deliver = [&](const std::string& piece) {
        if (piece.empty()) {
            return;
        }
        text += piece;
        if (onChunk) {
            onChunk(piece);
        }
    };
    ProcessOptions options;
    options.arguments = arguments;
    options.timeout = limits.timeout;
    options.outputLimit = limits.outputLimit;
    options.onOutput = [&](std::string_view bytes) { deliver(decoder.decode(bytes)); };
    ProcessResult result;
    try {
        result = runProcess(executable, options, stop);
    } catch (const ProcessError& error) {
        switch (error.code()) {
        case ProcessErrorCode::launchFailed:
            throw YouTubeMetadataGenerationError::runtimeLaunchFailed(error.reason());
        case ProcessErrorCode::timedOut:
            throw YouTubeMetadataGenerationError(
                YouTubeMetadataGenerationErrorCode::runtimeTimedOut,
                "llama.cpp did not finish within " + std::to_string(limits.timeout.count() / 1000) +
                    " s and was stopped.");
        case ProcessErrorCode::outputLimitExceeded:
            throw YouTubeMetadataGenerationError(
                YouTubeMetadataGenerationErrorCode::runtimeOutputTooLarge,
                "llama.cpp wrote more than " + std::to_string(limits.outputLimit >> 20) +
                    " MB of output and was stopped.");
        }
        throw;
    }
    deliver(decoder.finish());
    return {std::move(text), std::move(result.error), result.status};
}

} // namespace LLMHelperProcessRunner

} // namespace orvelle
