#pragma once

// Every subcommand, one factory each; main.cpp lists them in the order of `orvelle --help`.

#include "cli/command.h"

namespace orvelle::cli {

Command mediaProbeCommand();
Command documentCommand();
Command projectNormalizeCommand();
Command projectSaveCommand();
Command editCommand();
Command cursorCommand();
Command timelineMapCommand();
Command speechMelCommand();
Command speechRuntimeCommand();
Command transcribeCommand();
Command mediaDecodeCommand();
Command audioMixCommand();
Command audioVoiceCommand();
Command musicEnvelopeCommand();
Command compositionCommand();
Command transcriptWordsCommand();
Command transcriptProcessCommand();
Command transcriptShowCommand();
Command transcriptDeleteCommand();
Command transcriptRestoreCommand();
Command transcriptCleanupCommand();
Command captionsCommand();
Command alignNormalizeCommand();
Command alignCommand();
Command framesCommand();
Command sampleTakeCommand();
Command stillCommand();
Command wallpapersCommand();
Command exportCommand();
Command playCommand();
Command publishDraftCommand();
Command modelsListCommand();
Command modelsInstallCommand();
Command modelsVerifyCommand();
Command modelsRemoveCommand();
Command sourcesCommand();
Command captureCommand();
Command recoverCommand();
Command discardCommand();
Command recordCommand();
Command devicesCommand();
Command accountStatusCommand();
Command accountSignInCommand();
Command accountSignOutCommand();
Command uploadCommand();
Command musicRegisterCommand();
Command musicSearchCommand();
Command musicGetCommand();
Command musicCacheCommand();

} // namespace orvelle::cli
