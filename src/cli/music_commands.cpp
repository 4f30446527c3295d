#include "cli/commands.h"
#include "cli/output.h"
#include "cli/project_input.h"
#include "project/editor_document.h"
#include "timeline_media/project_composition.h"

#include <iostream>

namespace orvelle::cli {

namespace {

int runMusicEnvelope(const Arguments& arguments) {
    const EditorDocument document = openDocument(arguments.positional(0, "the document"));
    const EditorProjectState& project = document.project;
    const auto clips = seededTimeline(project.timeline, takeSourceDuration(project.manifest)).clips;
    const auto voice = VoiceActivityDetector::sourceIntervals(
        project.manifest.segmentsFor(MediaTrackManifest::Kind::microphone));
    const auto envelope = TimelineComposition::musicEnvelopeSegments(
        project.music.clips, clips, !project.audio.isEnabled, voice, project.audio.musicVolume,
        TimelineComposition::editDuration(clips));
    if (arguments.flag("--json")) {
        Json segments = Json::array();
        for (const auto& segment : envelope) {
            segments.push_back({{"start", segment.start},
                                {"end", segment.end},
                                {"fromVolume", segment.fromVolume},
                                {"toVolume", segment.toVolume}});
        }
        printJson({{"segments", segments}});
        return 0;
    }
    for (const auto& segment : envelope) {
        std::cout << segment.start << " - " << segment.end << ": " << segment.fromVolume << " -> "
                  << segment.toVolume << "\n";
    }
    return 0;
}

} // namespace

Command musicEnvelopeCommand() {
    return {"music envelope",
            "the music's volume over an edit",
            "orvelle music envelope DOCUMENT [--json]\n\n"
            "Prints the ramps of the music's volume over DOCUMENT's edit, in edit seconds:\n"
            "fades at each music clip's ends, the project's and clips' music levels, and the\n"
            "dips under speech where a clip ducks the music.",
            {{"--json"}},
            runMusicEnvelope};
}

} // namespace orvelle::cli
