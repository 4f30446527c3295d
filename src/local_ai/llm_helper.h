#pragma once

// The language model runs in a helper process: our `orvelle-llm-helper`, or llama.cpp's
// own llama-cli, which take the same command line. This finds the executable, builds the
// one-shot command line and runs it, streaming standard output as UTF-8 text.

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace orvelle {

inline constexpr std::string_view kLLMHelperExecutableName = "orvelle-llm-helper";

// Where the search looks; `current()` reads them from this process.
struct LLMHelperSearchPlaces {
    std::filesystem::path programDirectory; // the folder of the running program
    std::filesystem::path currentDirectory;
    std::filesystem::path resourcesDirectory;
    std::filesystem::path homeDirectory;
    std::optional<std::string> helperVariable;   // ORVELLE_LLM_HELPER
    std::optional<std::string> llamaCLIVariable; // ORVELLE_LLAMA_CLI

    static LLMHelperSearchPlaces current();
};

// The candidates in the order they are tried: the configured executable, the helper beside
// the program, ORVELLE_LLM_HELPER, ORVELLE_LLAMA_CLI, the helper under the current folder's
// build tree and under the resources, llama.cpp built in ~/Projects/llama.cpp, and
// /tmp/llama.cpp.
std::vector<std::filesystem::path>
llmHelperCandidates(const std::optional<std::filesystem::path>& configured,
                    const LLMHelperSearchPlaces& places);

// The first candidate that is an executable file. Throws YouTubeMetadataGenerationError
// runtimeNotFound when there is none.
std::filesystem::path
resolvedLLMHelperExecutable(const std::optional<std::filesystem::path>& configured,
                            const LLMHelperSearchPlaces& places = LLMHelperSearchPlaces::current());

// The settings of one generation.
struct LLMGenerationSettings {
    int contextSize = 40960;
    int maxGeneratedTokens = 2048;
    double temperature = 0.3;
    double topP = 0.9;
    std::string systemPrompt;
    std::optional<std::string> jsonSchema;
    bool gpuOff = false; // the CPU-only retry after a GPU backend failure
};

// The one-shot command line: -m, -c, -n, --temp, --top-p, --no-display-prompt,
// --single-turn, --simple-io, --reasoning off, --no-jinja, --no-warmup, -sys, --json-schema
// when there is one, then -f with the prompt file (or -p with the prompt text when no file
// is given). The CPU-only retry adds -ngl 0 before the prompt.
std::vector<std::string> llmOneShotArguments(const std::filesystem::path& model,
                                             const LLMGenerationSettings& settings,
                                             const std::optional<std::filesystem::path>& promptFile,
                                             std::string_view promptText = {});

// Holds back the bytes of a character split across reads until the rest arrives; bytes
// that can never form a character come out as U+FFFD.
class UTF8ChunkDecoder {
public:
    std::string decode(std::string_view bytes); // the complete characters so far
    std::string finish();                       // what is left, at the end of the stream

private:
    std::string pending_;
};

// A prompt file in the system's temporary folder, removed with its owner.
class TemporaryTextFile {
public:
    TemporaryTextFile(); // empty
    ~TemporaryTextFile();
    TemporaryTextFile(const TemporaryTextFile&) = delete;
    TemporaryTextFile& operator=(const TemporaryTextFile&) = delete;
    const std::filesystem::path& path() const { return path_; }
    void write(std::string_view text) const;

private:
    std::filesystem::path path_;
};

// The tail of a helper's error output (its last lines say what went wrong), at most 2000
// bytes, without trailing blank lines.
std::string helperErrorSummary(std::string_view errorOutput);

namespace LLMHelperProcessRunner {

struct Output {
    std::string standardOutput;
    std::string standardError;
    int status = 0; // the exit code, or 128 + the signal
};

struct Limits {
    std::chrono::milliseconds timeout = std::chrono::minutes(15);
    std::size_t outputLimit = std::size_t{16} << 20;
};

// Runs the helper to its end; each decoded piece of standard output goes to onChunk as it
// arrives, and standard error is read meanwhile. A non-zero status is returned, not
// thrown. Throws YouTubeMetadataGenerationError (runtimeLaunchFailed, runtimeTimedOut,
// runtimeOutputTooLarge) or CancellationError; the helper is gone in every case.
Output run(const std::filesystem::path& executable, const std::vector<std::string>& arguments,
           const std::function<void(std::string_view)>& onChunk = {}, const Limits& limits = {},
           const std::stop_token& stop = {});

} // namespace LLMHelperProcessRunner

} // namespace orvelle
