#include "cli/commands.h"
#include "cli/output.h"
#include "cli/project_input.h"
#include "project/editor_document.h"
#include "timeline_media/project_composition.h"

#include <iostream>

namespace orvelle::cli {

namespace {

Json rangeJson(const MediaTimeRange& range) {
    return {{"start", range.startSeconds()},
            {"duration", range.durationSeconds()},
            {"end", range.endSeconds()}};
}

Json compositionJson(const TimelineCompositionResult& result) {
    const auto& layout = result.audioLayout;
    Json tracks = Json::array();
    for (const auto& track : result.composition.tracks) {
        std::string role = track.type == CompositionMediaType::video ? "screen" : "";
        for (const auto& [audioRole, ids] : layout.trackIDsByRole) {
            if (std::find(ids.begin(), ids.end(), track.trackID) != ids.end()) {
                role = audioRoleName(audioRole);
            }
        }
        if (layout.musicTrackID && *layout.musicTrackID == track.trackID) {
            role = "music";
        }
        Json insertions = Json::array();
        for (const auto& insertion : track.insertions) {
            insertions.push_back(
                {{"media",
                  result.composition.media[static_cast<size_t>(insertion.mediaID)].string()},
                 {"mediaRange", rangeJson(insertion.sourceRange)},
                 {"editRange", rangeJson(insertion.editRange)},
                 {"rate", insertion.rate()}});
        }
        tracks.push_back({{"trackID", track.trackID},
                          {"type", track.type == CompositionMediaType::video ? "video" : "audio"},
                          {"role", role},
                          {"insertions", insertions}});
    }
    Json segments = Json::object();
    for (const auto& [role, list] : layout.segmentsByRole) {
        Json entries = Json::array();
        for (const auto& segment : list) {
            entries.push_back(
                {{"clipID", segment.clipID.string()},
                 {"sourceRange", rangeJson(segment.sourceRange)},
                 {"editRange", rangeJson(segment.timeRange)},
                 {"mediaRange", rangeJson(segment.mediaRange)},
                 {"speed", segment.speed},
                 {"media",
                  result.composition.media[static_cast<size_t>(segment.mediaID)].string()}});
        }
        segments[audioRoleName(role)] = entries;
    }
    return {{"duration", result.duration},
            {"sourceDuration", layout.sourceDuration},
            {"tracks", tracks},
            {"audioSegments", segments}};
}

int runComposition(const Arguments& arguments) {
    const EditorDocument document = openDocument(arguments.positional(0, "the document"));
    const auto inputs = loadProjectCompositionInputs(document.project, NoiseReductionCache());
    if (!inputs) {
        throw Error("The screen movie of \"" + document.screenURL.string() +
                    "\" cannot be read. Check that the take's files are in place.");
    }
    const auto result = makeProjectComposition(document.project, *inputs);
    if (!result) {
        throw Error("The timeline does not contain any visible clips.");
    }
    if (arguments.flag("--json")) {
        printJson(compositionJson(*result));
        return 0;
    }
    std::cout << "edit duration " << result->duration << " s, source " << inputs->source.duration
              << " s\n";
    for (const auto& track : result->composition.tracks) {
        std::cout << "track " << track.trackID << " ("
                  << (track.type == CompositionMediaType::video ? "video" : "audio")
                  << "): " << track.insertions.size() << " insertions\n";
    }
    return 0;
}

} // namespace

Command compositionCommand() {
    return {"composition",
            "the tracks of an edit's composition",
            "orvelle composition DOCUMENT [--json]\n\n"
            "Lays the take of DOCUMENT (a movie with its take, or a project) under its edit\n"
            "and prints each track's insertions: the file, its media range, the edit range\n"
            "and the rate; and each audio role's segments with their source ranges.",
            {{"--json"}},
            runComposition};
}

} // namespace orvelle::cli
