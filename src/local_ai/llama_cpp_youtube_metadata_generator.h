#pragma once

// Drafts a YouTube title, description, chapters and tags from the edited transcript with a
// local language model run by the helper process. The answer is parsed, repaired and
// normalised; chapters the model did not manage come from the transcript.

#include "local_ai/llm_helper.h"
#include "local_ai/youtube_metadata.h"
#include "local_ai/youtube_metadata_model_store.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace orvelle {

using YouTubeMetadataProgress = std::function<void(const std::string& message)>;

class YouTubeMetadataGenerator {
public:
    virtual ~YouTubeMetadataGenerator() = default;
    virtual YouTubeMetadataDraft generate(const YouTubeMetadataGenerationRequest& request,
                                          const YouTubeMetadataProgress& progress,
                                          const std::stop_token& stop) = 0;
};

struct LlamaCPPYouTubeMetadataGeneratorConfiguration {
    std::optional<std::filesystem::path> executableURL; // first in the helper search
    // A prompt of both transcript sections at their limits is about 40,000 tokens.
    int contextSize = 40960;
    int maxGeneratedTokens = 2048;
    double temperature = 0.3;
    double topP = 0.9;
    bool writesDebugArtifacts = false;
    bool allowsCPUFallback = true;
    // Where the debug folder goes; empty: the application's cache folder.
    std::filesystem::path debugArtifactsParent;
    LLMHelperProcessRunner::Limits limits;

    std::filesystem::path resolvedExecutableURL() const;
};

class LlamaCPPYouTubeMetadataGenerator final : public YouTubeMetadataGenerator {
public:
    using Configuration = LlamaCPPYouTubeMetadataGeneratorConfiguration;

    explicit LlamaCPPYouTubeMetadataGenerator(
        Configuration configuration = {},
        YouTubeMetadataModelStore modelStore = YouTubeMetadataModelStore::standard());

    // What a run would do: the executable, the model and the command line with the prompt
    // in `promptFile`. Throws modelNotInstalled, runtimeNotFound or emptyTranscript.
    struct Invocation {
        std::filesystem::path executable;
        std::filesystem::path model;
        std::string systemPrompt;
        std::string userPrompt;
        std::vector<std::string> arguments;
    };
    Invocation prepare(const YouTubeMetadataGenerationRequest& request,
                       const std::filesystem::path& promptFile) const;

    // Progress texts: "Loading Qwen", "Switching to CPU" on a retry without the GPU, the
    // model's thinking or "Thinking", "Writing description", "Finding chapters" as the
    // answer comes, then "Reading draft".
    YouTubeMetadataDraft generate(const YouTubeMetadataGenerationRequest& request,
                                  const YouTubeMetadataProgress& progress,
                                  const std::stop_token& stop) override;

    const Configuration& configuration() const { return configuration_; }

private:
    LLMGenerationSettings settings(bool gpuOff) const;

    Configuration configuration_;
    YouTubeMetadataModelStore modelStore_;
};

// Whether a helper's error output shows that its GPU backend could not start.
bool showsGPUBackendFailure(std::string_view errorOutput);

// The folder "Orvelle YouTube Metadata Debug" under `parent`, created, with the inputs and
// later the output and the draft of one generation.
namespace YouTubeMetadataDebugArtifacts {
std::filesystem::path make(const std::filesystem::path& parent,
                           const ExportTranscriptContext& context, const std::string& systemPrompt,
                           const std::string& userPrompt);
} // namespace YouTubeMetadataDebugArtifacts

} // namespace orvelle
