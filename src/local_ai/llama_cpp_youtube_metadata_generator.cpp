#include "local_ai/llama_cpp_youtube_metadata_generator.h"

#include "core/cancellation.h"
#include "core/files.h"
#include "core/log.h"
#include "core/xdg_paths.h"
#include "local_ai/youtube_metadata_draft.h"
#include "local_ai/youtube_metadata_progress.h"
#include "local_ai/youtube_metadata_prompt.h"

#include <array>
#include <cstdlib>

namespace orvelle {

namespace {

constexpr std::string_view kDebugFolderName = "Orvelle YouTube Metadata Debug";

bool hasWords(const ExportTranscriptContext& context) {
    for (const auto& chunk : context.chunks) {
        if (!chunk.words.empty()) {
            return true;
        }
    }
    return false;
}

} // namespace

std::filesystem::path LlamaCPPYouTubeMetadataGeneratorConfiguration::resolvedExecutableURL() const {
    return resolvedLLMHelperExecutable(executableURL);
}

bool showsGPUBackendFailure(std::string_view errorOutput) {
    std::string lower(errorOutput);
    for (auto& c : lower) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    constexpr std::array<std::string_view, 4> kSigns{"failed to initialize backend",
                                                     "failed to create command queue", "no metal",
                                                     "unable to initialize metal"};
    for (const auto sign : kSigns) {
        if (lower.find(sign) != std::string::npos) {
            return true;
        }
    }
    return false;
}

namespace YouTubeMetadataDebugArtifacts {

std::filesystem::path make(const std::filesystem::path& parent,
                           const ExportTranscriptContext& context, const std::string& systemPrompt,
                           const std::string& userPrompt) {
    const auto folder = parent / kDebugFolderName;
    std::filesystem::create_directories(folder);
    writeJsonAtomically(folder / "transcript-context.json", encodeJson(context));
    writeFileAtomically(folder / "system-prompt.txt", systemPrompt);
    writeFileAtomically(folder / "user-prompt.txt", userPrompt);
    return folder;
}

} // namespace YouTubeMetadataDebugArtifacts

LlamaCPPYouTubeMetadataGenerator::LlamaCPPYouTubeMetadataGenerator(
    Configuration configuration, YouTubeMetadataModelStore modelStore)
    : configuration_(std::move(configuration)), modelStore_(std::move(modelStore)) {}

LlamaCPPYouTubeMetadataGenerator::Invocation
LlamaCPPYouTubeMetadataGenerator::prepare(const YouTubeMetadataGenerationRequest& request,
                                          const std::filesystem::path& promptFile) const {
    Invocation invocation;
    const auto model = modelStore_.installedModel();
    if (!model) {
        throw YouTubeMetadataGenerationError(YouTubeMetadataGenerationErrorCode::modelNotInstalled);
    }
    invocation.model = *model;
    invocation.executable = configuration_.resolvedExecutableURL();
    if (!hasWords(request.context)) {
        throw YouTubeMetadataGenerationError(YouTubeMetadataGenerationErrorCode::emptyTranscript);
    }
    invocation.systemPrompt = YouTubeMetadataPromptBuilder::systemPrompt();
    invocation.userPrompt = YouTubeMetadataPromptBuilder::userPrompt(request);
    invocation.arguments = llmOneShotArguments(invocation.model, settings(false), promptFile);
    return invocation;
}

LLMGenerationSettings LlamaCPPYouTubeMetadataGenerator::settings(bool gpuOff) const {
    LLMGenerationSettings result;
    result.contextSize = configuration_.contextSize;
    result.maxGeneratedTokens = configuration_.maxGeneratedTokens;
    result.temperature = configuration_.temperature;
    result.topP = configuration_.topP;
    result.systemPrompt = YouTubeMetadataPromptBuilder::systemPrompt();
    result.jsonSchema = YouTubeMetadataPromptBuilder::outputSchema();
    result.gpuOff = gpuOff;
    return result;
}

YouTubeMetadataDraft
LlamaCPPYouTubeMetadataGenerator::generate(const YouTubeMetadataGenerationRequest& request,
                                           const YouTubeMetadataProgress& progress,
                                           const std::stop_token& stop) {
    const auto say = [&progress](const std::string& message) {
        if (progress) {
            progress(message);
        }
    };
    if (!modelStore_.installedModel()) {
        throw YouTubeMetadataGenerationError(YouTubeMetadataGenerationErrorCode::modelNotInstalled);
    }
    say("Loading Qwen");
    const TemporaryTextFile promptFile;
    const auto invocation = prepare(request, promptFile.path());
    promptFile.write(invocation.userPrompt);

    std::optional<std::filesystem::path> debugFolder;
    if (configuration_.writesDebugArtifacts) {
        const auto parent = configuration_.debugArtifactsParent.empty()
                                ? cachesDirectory()
                                : configuration_.debugArtifactsParent;
        debugFolder = YouTubeMetadataDebugArtifacts::make(
            parent, request.context, invocation.systemPrompt, invocation.userPrompt);
    }

    const auto runOnce = [&](const std::vector<std::string>& arguments) {
        YouTubeMetadataProgressExtractor extractor;
        return LLMHelperProcessRunner::run(
            invocation.executable, arguments,
            [&](std::string_view piece) {
                for (const auto& message : extractor.consume(piece)) {
                    say(message);
                }
            },
            configuration_.limits, stop);
    };
    auto output = runOnce(invocation.arguments);
    if (output.status != 0 && configuration_.allowsCPUFallback &&
        showsGPUBackendFailure(output.standardError)) {
        throwIfCancelled(stop);
        logWarning("local_ai", "the helper's GPU backend failed; running again on the CPU");
        say("Switching to CPU");
        output = runOnce(llmOneShotArguments(invocation.model, settings(true), promptFile.path()));
    }
    if (debugFolder) {
        writeFileAtomically(*debugFolder / "llama-output.txt", output.standardOutput);
    }
    if (output.status != 0) {
        throw YouTubeMetadataGenerationError::runtimeFailed(
            output.status, helperErrorSummary(output.standardError));
    }

    say("Reading draft");
    const auto parsed = YouTubeMetadataDraftParser::parse(output.standardOutput);
    if (!parsed) {
        throw YouTubeMetadataGenerationError::invalidOutput(output.standardOutput);
    }
    auto draft = YouTubeMetadataDraftValidator::normalized(*parsed, request.context.duration);
    if (draft.chapters.empty()) {
        draft.chapters = YouTubeMetadataChapterFallback::chapters(request.context);
    }
    if (debugFolder) {
        writeJsonAtomically(*debugFolder / "metadata-draft.json", encodeJson(draft));
    }
    return draft;
}

} // namespace orvelle
