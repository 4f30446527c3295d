#include "cli/commands.h"
#include "cli/interrupt.h"
#include "cli/output.h"
#include "cli/project_input.h"
#include "editor/edit_session_coordinator.h"
#include "local_ai/transcript_paragraph_suggester.h"
#include "project/orvelle_project_package.h"
#include "speech/transcript/recording_transcription_service.h"
#include "timeline/resolved_edit_timeline.h"
#include "transcript_edit/editor_transcript_store.h"
#include "transcript_edit/transcript_captions.h"
#include "transcript_edit/transcript_processing.h"
#include "transcript_edit/transcript_text_editing.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <memory>
#include <set>
#include <sstream>

namespace orvelle::cli {

namespace {

namespace fs = std::filesystem;

constexpr int kInterruptedStatus = 130;

EditorDocument existingDocument(const std::string& argument) {
    if (!fs::exists(documentPath(argument))) {
        throw Error("There is no document at " + documentPath(argument).string() + ".");
    }
    return openDocument(argument);
}

EditorTranscript requireTranscript(const EditorDocument& document, const std::string& argument) {
    auto transcript = EditorTranscriptStore::load(document);
    if (!transcript) {
        throw Error("\"" + argument + "\" has no transcript yet. Run 'orvelle transcript process " +
                    argument + "' first.");
    }
    return std::move(*transcript);
}

// A document open for editing as the editor window holds it: the store (with the timeline
// seeded for a take never edited), the gesture sessions, the gestures, and its transcript.
struct TranscriptEditSession {
    TranscriptEditSession(const std::string& argument, bool withLoudness)
        : document(existingDocument(argument)), store(document.project), sessions(store),
          gestures(store, sessions),
          editing(requireTranscript(document, argument),
                  withLoudness ? loadSpliceEnergyProfile(document) : std::nullopt) {
        loadDocument(store, document, document.project.screen.zoomScale);
    }

    const TimelineState& timeline() const { return store.project().timeline; }

    // Saved as the editor window saves: gestures end, and the store goes on with the
    // package's document.
    std::optional<fs::path> saveIfAsked(const Arguments& arguments) {
        const auto out = arguments.value("--save");
        if (!out) {
            return std::nullopt;
        }
        gestures.finishAllEditSessions();
        const fs::path package = OrvelleProjectPackage::write(store.project(), *out);
        store.replaceProject(OrvelleProjectPackage::load(package), true);
        return package;
    }

    EditorDocument document;
    EditorStore store;
    EditSessionCoordinator sessions;
    TimelineEditGestures gestures;
    TranscriptTimelineEditing editing;
};

std::string wordsText(const TranscriptTimelineEditing& editing,
                      const TranscriptTokenIDRange& range) {
    std::string text;
    for (const auto& token : editing.tokens()) {
        if (range.contains(token.id) && !token.isPause()) {
            text += (text.empty() ? "" : " ") + token.text;
        }
    }
    return text;
}

Json markersJson(const TranscriptTimelineEditing& editing,
                 const std::vector<EditorTranscriptCollapsedRange>& markers,
                 const TimelineState& timeline) {
    const ResolvedEditTimeline resolved(EditTimeline::from(timeline));
    Json list = Json::array();
    for (size_t i = 0; i < markers.size(); ++i) {
        const auto& marker = markers[i];
        Json json = encodeJson(marker);
        json["number"] = i;
        json["words"] = Json::array({(marker.wordRange.lower + 1) / 2, marker.wordRange.upper / 2});
        json["text"] = wordsText(editing, marker.wordRange);
        json["label"] = collapsedRangeLabel(marker);
        json["editTime"] = resolved.editTime(SourceTime(marker.sourceStart)).seconds;
        list.push_back(json);
    }
    return list;
}

Json undoLabels(const EditorStore& store) {
    Json labels = Json::array();
    for (const auto& entry : store.undoHistory().undoStack()) {
        labels.push_back(entry.label);
    }
    return labels;
}

void printMarkers(const Json& markers) {
    for (const auto& marker : markers) {
        std::printf("marker %d: words %d-%d \"%s\", source %.3f-%.3f s, at %.3f s of the edit\n",
                    marker["number"].get<int>(), marker["words"][0].get<int>(),
                    marker["words"][1].get<int>(), marker["text"].get<std::string>().c_str(),
                    marker["sourceStart"].get<double>(), marker["sourceEnd"].get<double>(),
                    marker["editTime"].get<double>());
    }
}

// "3-7" or "3": word indexes from 0, both ends included.
TranscriptTokenIDRange wordRangeOption(const Arguments& arguments, size_t wordCount) {
    const auto text = arguments.value("--words");
    if (!text) {
        throw UsageError("Name the words to cut with --words I-J (indexes from 0, both included).");
    }
    const size_t dash = text->find('-', 1);
    const double first = parseNumber(text->substr(0, dash), "--words");
    const double last =
        dash == std::string::npos ? first : parseNumber(text->substr(dash + 1), "--words");
    if (first < 0 || last < first || first != std::floor(first) || last != std::floor(last)) {
        throw UsageError("--words takes I-J, whole numbers from 0 with I <= J, not \"" + *text +
                         "\".");
    }
    if (last >= static_cast<double>(wordCount)) {
        throw UsageError("The transcript has " + std::to_string(wordCount) + " words (0 to " +
                         std::to_string(wordCount == 0 ? 0 : wordCount - 1) + "); --words " +
                         *text + " goes past them.");
    }
    return TranscriptTokenIDRange::words(static_cast<int>(first), static_cast<int>(last));
}

void putPackage(Json& output, const std::optional<fs::path>& package) {
    output["package"] = package ? Json(package->string()) : Json(nullptr);
}

// ---- transcript process ----------------------------------------------------------------------

int runTranscriptProcess(const Arguments& arguments) {
    const std::string& argument = arguments.positional(0, "the take");
    const EditorDocument document = existingDocument(argument);
    EditorTranscriptProcessingOptions options;
    if (const auto model = arguments.value("--model")) {
        options.speechModel = TranscriptModelSource{fs::absolute(*model)};
    }
    if (const auto bundle = arguments.value("--bundle")) {
        options.alignmentBundle = fs::absolute(*bundle);
    }
    if (arguments.value("--language-model") || arguments.value("--helper")) {
        QwenTranscriptParagraphSuggesterConfiguration configuration;
        if (const auto model = arguments.value("--language-model")) {
            configuration.model = fs::absolute(*model);
        }
        if (const auto helper = arguments.value("--helper")) {
            configuration.executableURL = fs::absolute(*helper);
        }
        options.paragraphSuggester =
            std::make_shared<QwenTranscriptParagraphSuggester>(configuration);
    }
    const bool json = arguments.flag("--json");
    Json stages = Json::array();
    std::unique_ptr<ProgressReporter> progress;
    std::optional<EditorTranscriptProcessingStage> shown;
    const auto status = [&](const EditorTranscriptProcessingProgress& step) {
        if (shown != step.stage) {
            if (progress) {
                progress->finish();
            }
            progress =
                std::make_unique<ProgressReporter>(std::string(stageDescription(step.stage)));
            shown = step.stage;
            stages.push_back(encodeJson(step.stage));
        }
        progress->update(step.fraction.value_or(0));
    };
    InterruptStop interrupt;
    EditorTranscriptProcessingResult result;
    try {
        result = EditorTranscriptProcessingPipeline(options).process(
            document, arguments.flag("--force"), takeSourceDuration(document.manifest).seconds,
            status, interrupt.token());
    } catch (const CancellationError&) {
        std::cerr << "\norvelle transcript process: stopped; the passes that finished are saved.\n";
        return kInterruptedStatus;
    } catch (const RecordingTranscriptionError& error) {
        if (error.code() != RecordingTranscriptionErrorCode::modelNotInstalled) {
            throw;
        }
        throw Error(std::string(error.what()) +
                    " Install it with 'orvelle models install speech --from FOLDER', or name a "
                    "model folder with --model DIR.");
    }
    if (progress) {
        progress->finish();
    }
    const fs::path editorURL = EditorTranscriptStore::defaultTranscriptURL(document.screenURL);
    const auto& transcript = result.transcript;
    if (json) {
        Json output = {
            {"transcript", editorURL.string()},
            {"sidecars",
             {{"editor", editorURL.string()},
              {"json", OrvelleProjectPackage::transcriptJSONURL(document.screenURL).string()},
              {"text", OrvelleProjectPackage::transcriptTextURL(document.screenURL).string()}}},
            {"stages", stages},
            {"passesRun", result.passesRun},
            {"wordCount", transcript.analysis.words.size()},
            {"paragraphBreakAfterWordIndices", transcript.paragraphBreakAfterWordIndices},
            {"paragraphBreaksSuggested", transcript.paragraphBreaksSuggested},
            {"aligned", transcript.alignmentBaselineWords.has_value()},
            {"displayText", result.displayText}};
        output["nonfatalError"] =
            result.nonfatalError ? Json(*result.nonfatalError) : Json(nullptr);
        output["alignmentReport"] =
            result.alignmentReport ? encodeJson(*result.alignmentReport) : Json(nullptr);
        printJson(output);
        return 0;
    }
    if (transcript.analysis.words.empty()) {
        std::cout << stageDescription(EditorTranscriptProcessingStage::noSpeech) << "\n";
    } else {
        std::cout << result.displayText << "\n";
    }
    if (result.nonfatalError) {
        std::cerr << "warning: " << *result.nonfatalError << "\n";
    }
    std::cerr << "wrote " << editorURL.string() << "\n";
    return 0;
}

// ---- transcript show
// -----------------------------------------------------------------------------

int runTranscriptShow(const Arguments& arguments) {
    const std::string& argument = arguments.positional(0, "the document");
    TranscriptEditSession session(argument, false);
    const auto& editing = session.editing;
    const auto markers = editing.collapsedRanges(session.timeline());
    const auto times = editing.editTimes(session.timeline());
    const auto layout = layoutTranscriptText(editing.paragraphs(), markers);
    if (!arguments.flag("--json")) {
        std::cout << layout.text << "\n";
        printMarkers(markersJson(editing, markers, session.timeline()));
        return 0;
    }
    Json paragraphs = Json::array();
    size_t next = 0;
    for (const auto& paragraph : editing.paragraphs()) {
        Json tokens = Json::array();
        for (const auto& token : paragraph) {
            Json json = encodeJson(token);
            const auto& time = times[next++];
            json["editStart"] = time.editStart ? Json(*time.editStart) : Json(nullptr);
            json["editEnd"] = time.editEnd ? Json(*time.editEnd) : Json(nullptr);
            json["collapsed"] = std::any_of(markers.begin(), markers.end(), [&](const auto& m) {
                return m.wordRange.contains(token.id);
            });
            tokens.push_back(json);
        }
        paragraphs.push_back(tokens);
    }
    const auto& transcript = editing.transcript();
    printJson({{"paragraphs", paragraphs},
               {"markers", markersJson(editing, markers, session.timeline())},
               {"text", layout.text},
               {"wordCount", transcript.analysis.words.size()},
               {"aligned", transcript.alignmentBaselineWords.has_value()},
               {"paragraphBreaksSuggested", transcript.paragraphBreaksSuggested}});
    return 0;
}

// ---- transcript delete and restore -------------------------------------------------------------

int runTranscriptDelete(const Arguments& arguments) {
    const std::string& argument = arguments.positional(0, "the document");
    TranscriptEditSession session(argument, true);
    const auto range =
        wordRangeOption(arguments, session.editing.transcript().analysis.words.size());
    const auto cut = session.editing.cutWords(range, session.store, session.gestures);
    if (!cut) {
        throw Error("Words " + *arguments.value("--words") +
                    " cannot be cut: they have no times (transcribe the take again), are cut "
                    "already, or leave no room for the shortest cut of 0.08 s.");
    }
    const auto package = session.saveIfAsked(arguments);
    const auto markers = session.editing.collapsedRanges(session.timeline());
    Json output = {{"words", Json::array({range.lower / 2, range.upper / 2})},
                   {"text", wordsText(session.editing, range)},
                   {"sourceStart", cut->requested.start},
                   {"sourceEnd", cut->requested.end},
                   {"gap", encodeJson(cut->gap)},
                   {"snappedToSilence", session.editing.spliceEnergyProfile().has_value()},
                   {"markers", markersJson(session.editing, markers, session.timeline())},
                   {"undoLabels", undoLabels(session.store)},
                   {"project", encodeJson(session.store.project())}};
    putPackage(output, package);
    if (arguments.flag("--json")) {
        printJson(output);
        return 0;
    }
    std::printf("cut \"%s\": source %.3f-%.3f s\n", output["text"].get<std::string>().c_str(),
                cut->requested.start, cut->requested.end);
    if (package) {
        std::cout << "saved " << package->string() << "\n";
    } else {
        std::cout << "nothing saved; add --save OUT.orvelle to keep the cut\n";
    }
    return 0;
}

int runTranscriptRestore(const Arguments& arguments) {
    const std::string& argument = arguments.positional(0, "the document");
    TranscriptEditSession session(argument, false);
    const auto number = arguments.integer("--marker");
    if (!number) {
        throw UsageError("Name the marker to restore with --marker N ('orvelle transcript show' "
                         "lists them, from 0).");
    }
    const auto markers = session.editing.collapsedRanges(session.timeline());
    if (*number < 0 || static_cast<size_t>(*number) >= markers.size()) {
        throw UsageError("The transcript has " + std::to_string(markers.size()) +
                         " markers; there is no marker " + std::to_string(*number) + ".");
    }
    const Json restored =
        markersJson(session.editing, markers, session.timeline())[static_cast<size_t>(*number)];
    const auto clip = TranscriptTimelineEditing::restore(markers[static_cast<size_t>(*number)],
                                                         session.store, session.gestures);
    if (!clip) {
        throw Error("Marker " + std::to_string(*number) + " could not be restored.");
    }
    const auto package = session.saveIfAsked(arguments);
    Json output = {{"restored", restored},
                   {"clip", encodeJson(*clip)},
                   {"markers", markersJson(session.editing,
                                           session.editing.collapsedRanges(session.timeline()),
                                           session.timeline())},
                   {"undoLabels", undoLabels(session.store)},
                   {"project", encodeJson(session.store.project())}};
    putPackage(output, package);
    if (arguments.flag("--json")) {
        printJson(output);
        return 0;
    }
    std::printf("restored \"%s\"\n", restored["text"].get<std::string>().c_str());
    if (package) {
        std::cout << "saved " << package->string() << "\n";
    }
    return 0;
}

// ---- transcript cleanup
// --------------------------------------------------------------------------

std::set<TranscriptCleanupSuggestion::Kind> kindsOption(const Arguments& arguments) {
    std::set<TranscriptCleanupSuggestion::Kind> kinds;
    const auto text = arguments.value("--apply");
    if (!text) {
        return kinds;
    }
    std::stringstream list(*text);
    std::string name;
    while (std::getline(list, name, ',')) {
        if (name == "pauses") {
            kinds.insert(TranscriptCleanupSuggestion::Kind::longPause);
        } else if (name == "fillers") {
            kinds.insert(TranscriptCleanupSuggestion::Kind::filler);
        } else if (name == "repeats") {
            kinds.insert(TranscriptCleanupSuggestion::Kind::repeatedPhrase);
        } else {
            throw UsageError("--apply takes pauses, fillers and repeats, separated by commas, "
                             "not \"" +
                             name + "\".");
        }
    }
    return kinds;
}

int runTranscriptCleanup(const Arguments& arguments) {
    const std::string& argument = arguments.positional(0, "the document");
    const auto kinds = kindsOption(arguments);
    TranscriptEditSession session(argument, !kinds.empty());
    const auto suggestions = session.editing.cleanupSuggestions(
        session.timeline(), loadSystemAudioActivity(session.document));
    Json applied = Json::array();
    if (!kinds.empty()) {
        // All of them one step, as a panel's "apply all" would be.
        session.store.beginUndoTransaction("Apply Cleanup");
        for (const auto& suggestion : suggestions) {
            if (kinds.contains(suggestion.kind) &&
                session.editing.applySuggestion(suggestion, session.store, session.gestures)) {
                applied.push_back(suggestion.id);
            }
        }
        session.store.endUndoTransaction();
    }
    const auto package = session.saveIfAsked(arguments);
    if (arguments.flag("--json")) {
        Json output = {{"suggestions", encodeJson(suggestions)},
                       {"applied", applied},
                       {"undoLabels", undoLabels(session.store)},
                       {"project", encodeJson(session.store.project())}};
        putPackage(output, package);
        printJson(output);
        return 0;
    }
    for (const auto& suggestion : suggestions) {
        std::printf("%-22s %8.3f-%8.3f s  %s\n", suggestion.title.c_str(), suggestion.sourceStart,
                    suggestion.sourceEnd, suggestion.snippet.c_str());
    }
    if (!kinds.empty()) {
        std::cout << applied.size() << " applied\n";
    }
    if (package) {
        std::cout << "saved " << package->string() << "\n";
    }
    return 0;
}

// ---- captions
// ------------------------------------------------------------------------------------

int runCaptions(const Arguments& arguments) {
    const std::string& argument = arguments.positional(0, "the document");
    const auto output = arguments.value("--output");
    if (!output) {
        throw UsageError("Name the captions file with -o OUT.srt or -o OUT.vtt.");
    }
    const fs::path url = fs::absolute(*output);
    const CaptionFormat format = TranscriptCaptions::formatFor(url);
    const EditorDocument document = existingDocument(argument);
    const EditorTranscript transcript = requireTranscript(document, argument);
    EditorProjectState project = document.project;
    project.timeline = seededTimeline(project.timeline, takeSourceDuration(project.manifest));
    const auto cues = TranscriptCaptions::cues(transcript, project);
    TranscriptCaptions::write(cues, url);
    if (arguments.flag("--json")) {
        printJson({{"output", url.string()},
                   {"format", format == CaptionFormat::srt ? "srt" : "webvtt"},
                   {"cues", encodeJson(cues)}});
        return 0;
    }
    std::cout << "wrote " << cues.size() << " captions to " << url.string() << "\n";
    return 0;
}

} // namespace

Command transcriptProcessCommand() {
    return {"transcript process",
            "transcribe a take, time its words and lay out its paragraphs",
            "orvelle transcript process TAKE [--model DIR] [--bundle DIR]\n"
            "                           [--language-model FILE.gguf] [--helper PATH] [--force]\n"
            "                           [--json]\n\n"
            "Brings TAKE's transcript up to date in three passes, each saved as it ends:\n"
            "speech recognition of its microphone (the installed model, or --model), precise\n"
            "word timing (the installed bundle, or --bundle), and paragraphs from the local\n"
            "language model (the installed one, or --language-model, run by the helper). Only\n"
            "the first pass may fail; without timing or paragraphs the transcript keeps its\n"
            "rough times or plain text and a warning says so. Passes already done are not\n"
            "run again unless --force. Writes <name>.transcript.editor.json beside the\n"
            "screen movie, with .transcript.json and .transcript.txt. Ctrl-C stops between\n"
            "passes. With --json prints the stages, the passes run, the text and any warning.",
            {{"--model", true},
             {"--bundle", true},
             {"--language-model", true},
             {"--helper", true},
             {"--force"},
             {"--json"}},
            runTranscriptProcess};
}

Command transcriptShowCommand() {
    return {"transcript show",
            "the words of a document's transcript, with their times and cut markers",
            "orvelle transcript show DOCUMENT [--json]\n\n"
            "Prints the transcript as the editor shows it: paragraphs, long pauses, and a\n"
            "marker where the edit cuts words out, then the markers. With --json, every word\n"
            "and pause with its index, source times and edit times (null when cut), and the\n"
            "markers with their numbers, word indexes and source range.",
            {{"--json"}},
            runTranscriptShow};
}

Command transcriptDeleteCommand() {
    return {"transcript delete",
            "cut words out of the edit by their indexes",
            "orvelle transcript delete DOCUMENT --words I-J [--save OUT.orvelle] [--json]\n\n"
            "Cuts words I to J (indexes from 0, both included; 'transcript show' lists them)\n"
            "out of the timeline as the editor's transcript panel does: the cut takes as much\n"
            "of the silence around them as the punctuation allows and lands in silence of\n"
            "the microphone, as one undo step. With --save writes the edit as a project\n"
            "package. Prints the source range cut and the markers; with --json also the\n"
            "project.",
            {{"--words", true}, {"--save", true}, {"--json"}},
            runTranscriptDelete};
}

Command transcriptRestoreCommand() {
    return {"transcript restore",
            "bring back the words of a cut marker",
            "orvelle transcript restore DOCUMENT --marker N [--save OUT.orvelle] [--json]\n\n"
            "Puts back the source of marker N (from 0, as 'transcript show' lists them),\n"
            "whether the words were cut by text or on the timeline. With --save writes the\n"
            "edit as a project package.",
            {{"--marker", true}, {"--save", true}, {"--json"}},
            runTranscriptRestore};
}

Command transcriptCleanupCommand() {
    return {"transcript cleanup",
            "suggest (and apply) cuts of long pauses, filler words and repeats",
            "orvelle transcript cleanup DOCUMENT [--apply pauses,fillers,repeats]\n"
            "                           [--save OUT.orvelle] [--json]\n\n"
            "Lists the cleanup suggestions for the words the edit still plays: pauses of 2 s\n"
            "or more (unless the system's sound is busy through them), filler words and\n"
            "phrases, and words or phrases said twice in a row. --apply takes the kinds named\n"
            "as cuts, all in one undo step; --save writes the edit as a project package.",
            {{"--apply", true}, {"--save", true}, {"--json"}},
            runTranscriptCleanup};
}

Command captionsCommand() {
    return {"captions",
            "write captions of the edited transcript (SRT or WebVTT)",
            "orvelle captions DOCUMENT -o OUT.srt|OUT.vtt [--json]\n\n"
            "Writes captions of the words the edit plays, at the times they play (cut words\n"
            "left out, speed changes followed): cues of at most two lines of 42 characters,\n"
            "1 to 7 s each, broken at sentence ends and pauses. The extension picks SRT or\n"
            "WebVTT. To burn them into a movie, use 'orvelle export --captions burn'.",
            {{"--output", true, "-o"}, {"--json"}},
            runCaptions};
}

} // namespace orvelle::cli
