#include "cli/commands.h"
#include "cli/output.h"
#include "cli/project_input.h"
#include "timeline/resolved_edit_timeline.h"

namespace orvelle::cli {

namespace {

template <class Time>
Json optionalSeconds(const std::optional<Time>& time) {
    return time ? Json(time->seconds) : Json(nullptr);
}

int runTimelineMap(const Arguments& arguments) {
    // The times first: a typo in one is reported before any file is read.
    const auto editTimes = arguments.numbers("--edit");
    const auto sourceTimes = arguments.numbers("--source");
    const auto afterTimes = arguments.numbers("--after");
    const auto beforeTimes = arguments.numbers("--before");
    const EditorProjectState project = readProject(arguments.positional(0, "the project"));
    const ResolvedEditTimeline timeline(EditTimeline::from(project.timeline));

    Json sourceForEdit = Json::array();
    for (const double t : editTimes) {
        sourceForEdit.push_back({t, optionalSeconds(timeline.sourceTime(EditTime(t)))});
    }
    Json editForSource = Json::array();
    Json atOrAfter = Json::array();
    Json atOrBefore = Json::array();
    for (const double s : sourceTimes) {
        editForSource.push_back({s, timeline.editTime(SourceTime(s)).seconds});
    }
    for (const double s : afterTimes) {
        atOrAfter.push_back({s, optionalSeconds(timeline.playableTimeAtOrAfter(SourceTime(s)))});
    }
    for (const double s : beforeTimes) {
        atOrBefore.push_back({s, optionalSeconds(timeline.playableTimeAtOrBefore(SourceTime(s)))});
    }
    printJson({{"duration", timeline.duration()},
               {"sourceTimeForEditTime", sourceForEdit},
               {"editTimeForSourceTime", editForSource},
               {"playableTimeAtOrAfter", atOrAfter},
               {"playableTimeAtOrBefore", atOrBefore}});
    return 0;
}

} // namespace

Command timelineMapCommand() {
    return {
        "timeline map",
        "map times between the edit and the source axis of a project",
        "orvelle timeline map PROJECT [--edit T]... [--source S]... [--after S]...\n"
        "                             [--before S]... [--json]\n\n"
        "Resolves the timeline of PROJECT (a state JSON, a project.json, or anything\n"
        "'orvelle document' opens; a take whose timeline was never built gets one clip\n"
        "over the whole take, as in the editor) and prints its duration and, for each\n"
        "time asked, a pair [time, answer]:\n"
        "  --edit T     the source time shown at edit time T (sourceTimeForEditTime)\n"
        "  --source S   where source time S lands on the edit axis (editTimeForSourceTime)\n"
        "  --after S    the first playable source time at or after S (playableTimeAtOrAfter)\n"
        "  --before S   the last playable source time at or before S "
        "(playableTimeAtOrBefore)\n"
        "An answer is null where there is no playable material. Times are seconds.",
        {{"--edit", true}, {"--source", true}, {"--after", true}, {"--before", true}, {"--json"}},
        runTimelineMap};
}

} // namespace orvelle::cli
