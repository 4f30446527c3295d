// orvelle-llm-helper: the language model helper. It takes llama.cpp's one-shot command
// line (-m, -c, -n, --temp, --top-p, ..., -sys, --json-schema, -f or -p), runs llama.cpp's
// llama-cli with it, and prints only the generated text on standard output; llama-cli's
// diagnostics go to standard error, and its exit status is ours. llama-cli stays in our
// process group, so stopping the group stops both; SIGINT, SIGTERM and SIGHUP sent to the
// helper alone end llama-cli too.

#include "core/error.h"
#include "core/files.h"
#include "core/resources.h"
#include "local_ai/llama_cli_output_filter.h"
#include "platform/process/helper_process_registry.h"
#include "platform/process/process.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace {

using orvelle::isExecutableFile;

// The llama-cli beside this program, the one scripts/fetch-llama put in the source tree this
// program was built from, or one on the PATH.
std::optional<std::filesystem::path> findLlamaCLI() {
    const auto beside = orvelle::runningProgramDirectory() / "llama-cli";
    if (isExecutableFile(beside)) {
        return beside;
    }
    const std::filesystem::path built = ORVELLE_BUILT_LLAMA_CLI;
    if (isExecutableFile(built)) {
        return built;
    }
    return orvelle::findExecutableInPath("llama-cli");
}

// The prompt as llama-cli will echo it: the text of -p, or the file of -f less one final
// line end. Empty when neither is given.
std::string promptOf(const std::vector<std::string>& arguments) {
    std::string prompt;
    for (size_t i = 0; i + 1 < arguments.size(); ++i) {
        const auto& option = arguments[i];
        if (option == "-p" || option == "--prompt") {
            prompt = arguments[i + 1];
        } else if (option == "-f" || option == "--file") {
            prompt = orvelle::readFile(arguments[i + 1]);
            if (!prompt.empty() && prompt.back() == '\n') {
                prompt.pop_back();
            }
        }
    }
    return prompt;
}

void write(std::FILE* stream, std::string_view text) {
    if (!text.empty()) {
        std::fwrite(text.data(), 1, text.size(), stream);
        std::fflush(stream);
    }
}

} // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    const auto llamaCLI = findLlamaCLI();
    if (!llamaCLI) {
        std::fprintf(stderr, "orvelle-llm-helper: llama.cpp's llama-cli was not found beside the "
                             "helper or on the PATH. Run make llm-helper, which builds it.\n");
        return 127;
    }
    orvelle::HelperProcessRegistry::installTerminationHandlers();
    try {
        orvelle::LlamaCLIOutputFilter filter(promptOf(arguments));
        orvelle::ProcessOptions options;
        options.arguments = arguments;
        options.ownProcessGroup = false;
        options.outputLimit = std::size_t{1} << 30;
        options.onOutput = [&](std::string_view bytes) { write(stdout, filter.consume(bytes)); };
        options.onError = [](std::string_view bytes) { write(stderr, bytes); };
        const auto result = orvelle::runProcess(*llamaCLI, options);
        const std::string rest = filter.finish();
        if (!filter.foundAnswer()) {
            // No echo of the prompt: the output of a llama-cli that prints only generated
            // text, or of one that failed before it began.
            write(result.status == 0 ? stdout : stderr, rest);
            return result.status;
        }
        write(stdout, rest);
        if (result.status != 0) {
            write(stderr, filter.preamble());
        }
        return result.status;
    } catch (const orvelle::Error& error) {
        std::fprintf(stderr, "orvelle-llm-helper: %s\n", error.what());
        return 1;
    }
}
