// The `orvelle` command: one binary, one subcommand per job.

#include "cli/commands.h"
#include "core/log.h"
#include "platform/process/helper_process_registry.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

namespace {

using orvelle::cli::Command;

std::vector<Command> allCommands() {
    using namespace orvelle::cli;
    // One command a line, so that adding one never touches the others.
    // clang-format off
    return {
        mediaProbeCommand(),
        documentCommand(),
        projectNormalizeCommand(),
        projectSaveCommand(),
        editCommand(),
        cursorCommand(),
        timelineMapCommand(),
        framesCommand(),
        stillCommand(),
        playCommand(),
        wallpapersCommand(),
        transcribeCommand(),
        speechMelCommand(),
        speechRuntimeCommand(),
        mediaDecodeCommand(),
        audioMixCommand(),
        audioVoiceCommand(),
        musicEnvelopeCommand(),
        compositionCommand(),
        transcriptWordsCommand(),
        transcriptProcessCommand(),
        transcriptShowCommand(),
        transcriptDeleteCommand(),
        transcriptRestoreCommand(),
        transcriptCleanupCommand(),
        captionsCommand(),
        alignCommand(),
        alignNormalizeCommand(),
        sampleTakeCommand(),
        exportCommand(),
        publishDraftCommand(),
        modelsListCommand(),
        modelsInstallCommand(),
        modelsVerifyCommand(),
        modelsRemoveCommand(),
        sourcesCommand(),
        captureCommand(),
        recoverCommand(),
        discardCommand(),
        recordCommand(),
        devicesCommand(),
        accountStatusCommand(),
        accountSignInCommand(),
        accountSignOutCommand(),
        uploadCommand(),
        musicRegisterCommand(),
        musicSearchCommand(),
        musicGetCommand(),
        musicCacheCommand(),
    };
    // clang-format on
}

void printOverview(const std::vector<Command>& commands) {
    std::cout << "orvelle: record the screen, edit the take, export a finished movie.\n\n"
                 "Usage: orvelle COMMAND [ARGUMENTS] [--json]\n\nCommands:\n";
    size_t width = 0;
    for (const auto& command : commands) {
        width = std::max(width, command.name.size());
    }
    for (const auto& command : commands) {
        std::cout << "  " << command.name << std::string(width + 2 - command.name.size(), ' ')
                  << command.summary << "\n";
    }
    std::cout << "\nRun 'orvelle COMMAND --help' for the arguments of a command.\n";
}

// The command whose name matches the most leading words ("project normalize" before
// "project").
const Command* findCommand(const std::vector<Command>& commands,
                           const std::vector<std::string>& words, size_t& consumed) {
    const Command* best = nullptr;
    consumed = 0;
    for (const auto& command : commands) {
        std::vector<std::string> parts;
        std::string part;
        for (const char c : command.name) {
            if (c == ' ') {
                parts.push_back(part);
                part.clear();
            } else {
                part.push_back(c);
            }
        }
        parts.push_back(part);
        if (parts.size() <= words.size() && parts.size() > consumed &&
            std::equal(parts.begin(), parts.end(), words.begin())) {
            best = &command;
            consumed = parts.size();
        }
    }
    return best;
}

} // namespace

int main(int argc, char** argv) {
    // No helper process outlives the program, however it ends.
    orvelle::HelperProcessRegistry::installTerminationHandlers();
    const std::vector<std::string> words(argv + 1, argv + argc);
    const auto commands = allCommands();
    if (words.empty() || words[0] == "--help" || words[0] == "-h" || words[0] == "help") {
        printOverview(commands);
        return words.empty() ? 2 : 0;
    }
    size_t consumed = 0;
    const Command* command = findCommand(commands, words, consumed);
    if (command == nullptr) {
        std::cerr << "orvelle: unknown command '" << words[0]
                  << "'. Run 'orvelle --help' to see the commands.\n";
        return 2;
    }
    const std::vector<std::string> rest(words.begin() + static_cast<long>(consumed), words.end());
    if (std::find(rest.begin(), rest.end(), "--help") != rest.end() ||
        std::find(rest.begin(), rest.end(), "-h") != rest.end()) {
        std::cout << "Usage: " << command->help << "\n";
        return 0;
    }
    try {
        const orvelle::cli::Arguments arguments(rest, command->options);
        return command->run(arguments);
    } catch (const orvelle::cli::UsageError& error) {
        std::cerr << "orvelle " << command->name << ": " << error.what() << " Run 'orvelle "
                  << command->name << " --help' for its usage.\n";
        return 2;
    } catch (const orvelle::Error& error) {
        std::cerr << "orvelle " << command->name << ": " << error.what() << "\n";
        return 1;
    } catch (const std::exception& error) {
        std::cerr << "orvelle " << command->name << ": unexpected failure: " << error.what()
                  << "\n";
        return 1;
    }
}
