#include "cli/commands.h"
#include "cli/interrupt.h"
#include "cli/output.h"
#include "cli/project_input.h"
#include "local_ai/export_transcript_context.h"
#include "local_ai/llama_cpp_youtube_metadata_generator.h"
#include "local_ai/youtube_metadata_draft.h"
#include "transcript_edit/editor_transcript_store.h"

#include <filesystem>
#include <iostream>

namespace orvelle::cli {

namespace {

constexpr int kInterruptedStatus = 130;

Json draftJson(const YouTubeMetadataDraft& draft) {
    Json json = encodeJson(draft);
    json["chapterLines"] = YouTubeMetadataDraftValidator::chapterLines(draft.chapters);
    json["composedDescription"] = YouTubeMetadataDraftValidator::composedDescription(draft);
    return json;
}

int runPublishDraft(const Arguments& arguments) {
    const std::string& documentArgument =
        arguments.positional(0, "the document (a take or a project)");
    if (!std::filesystem::exists(documentPath(documentArgument))) {
        throw Error("There is no document at " + documentPath(documentArgument).string() + ".");
    }
    const EditorDocument document = openDocument(documentArgument);
    // The editor's transcript (precise times), else the older forms beside the take.
    const auto transcript = EditorTranscriptStore::load(document);
    if (!transcript) {
        throw Error(std::string(YouTubeMetadataGenerationError(
                                    YouTubeMetadataGenerationErrorCode::missingTranscript)
                                    .what()) +
                    " Run 'orvelle transcript process " + documentArgument + "' first.");
    }
    const TranscriptAnalysis& analysis = transcript->analysis;

    YouTubeMetadataGenerationRequest request;
    request.context = ExportTranscriptContextBuilder::make(analysis, document.project);
    request.instruction = arguments.value("--instruction").value_or("");
    if (const auto draft = arguments.value("--draft")) {
        request.currentDraft = decodeJson<YouTubeMetadataDraft>(readJsonFile(*draft));
    }

    LlamaCPPYouTubeMetadataGenerator::Configuration configuration;
    if (const auto helper = arguments.value("--helper")) {
        configuration.executableURL = std::filesystem::absolute(*helper);
    }
    if (const auto folder = arguments.value("--debug-artifacts")) {
        configuration.writesDebugArtifacts = true;
        configuration.debugArtifactsParent = *folder;
    }
    if (const auto size = arguments.integer("--context-size")) {
        configuration.contextSize = *size;
    }
    if (const auto tokens = arguments.integer("--max-tokens")) {
        configuration.maxGeneratedTokens = *tokens;
    }
    auto store = YouTubeMetadataModelStore::standard();
    if (const auto model = arguments.value("--model")) {
        store.modelFile = std::filesystem::absolute(*model);
    }
    LlamaCPPYouTubeMetadataGenerator generator(configuration, store);
    const bool json = arguments.flag("--json");

    if (arguments.flag("--dry-run")) {
        const auto invocation = generator.prepare(request, "PROMPT_FILE");
        if (json) {
            printJson({{"executable", invocation.executable.string()},
                       {"model", invocation.model.string()},
                       {"arguments", invocation.arguments},
                       {"systemPrompt", invocation.systemPrompt},
                       {"userPrompt", invocation.userPrompt},
                       {"context", encodeJson(request.context)}});
        } else {
            std::cout << invocation.userPrompt << "\n\n" << invocation.executable.string();
            for (const auto& argument : invocation.arguments) {
                std::cout << " '" << argument << "'";
            }
            std::cout << "\n(PROMPT_FILE holds the prompt above.)\n";
        }
        return 0;
    }

    InterruptStop interrupt;
    YouTubeMetadataDraft draft;
    try {
        draft = generator.generate(
            request, [](const std::string& message) { std::cerr << message << "\n"; },
            interrupt.token());
    } catch (const CancellationError&) {
        std::cerr << "orvelle publish draft: cancelled; the helper was stopped.\n";
        return kInterruptedStatus;
    }
    if (json) {
        Json result = draftJson(draft);
        result["duration"] = request.context.duration;
        printJson(result);
        return 0;
    }
    std::cout << "Title: " << draft.title << "\n\n" << draft.description << "\n\nChapters:\n";
    for (const auto& line : YouTubeMetadataDraftValidator::chapterLines(draft.chapters)) {
        std::cout << "  " << line << "\n";
    }
    std::cout << "\nTags:";
    for (const auto& tag : draft.tags) {
        std::cout << " " << tag << (&tag == &draft.tags.back() ? "" : ",");
    }
    std::cout << "\n";
    return 0;
}

} // namespace

Command publishDraftCommand() {
    return {"publish draft",
            "draft a YouTube title, description, chapters and tags with the local model",
            "orvelle publish draft DOC [--model FILE.gguf] [--helper PATH] [--instruction TEXT]\n"
            "       [--draft DRAFT.json] [--context-size N] [--max-tokens N]\n"
            "       [--debug-artifacts FOLDER] [--dry-run] [--json]\n\n"
            "Reads the take's transcript (run 'orvelle transcribe DOC' first), keeps the words\n"
            "the edit keeps, with their times in the edited video, and asks the local language\n"
            "model for a draft through the helper process. The answer is checked: the title is\n"
            "cut to 100 characters, the description to 5000 bytes, tags lose repeats, and\n"
            "chapters start at 0:00, stand 10 s apart and number at least three, or come from the\n"
            "transcript itself. --model uses a GGUF file instead of the installed model (see\n"
            "'orvelle models list'); --helper names the helper program (llama.cpp's llama-cli\n"
            "also serves), tried before ORVELLE_LLM_HELPER and ORVELLE_LLAMA_CLI;\n"
            "--instruction and --draft ask for a revision of an earlier draft; --debug-artifacts\n"
            "keeps the context, prompts, raw answer and draft in FOLDER/Orvelle YouTube Metadata\n"
            "Debug; --dry-run prints the prompt and the helper's command line without running it.\n"
            "Ctrl-C stops the helper.",
            {{"--model", true},
             {"--helper", true},
             {"--instruction", true},
             {"--draft", true},
             {"--context-size", true},
             {"--max-tokens", true},
             {"--debug-artifacts", true},
             {"--dry-run"},
             {"--json"}},
            runPublishDraft};
}

} // namespace orvelle::cli
