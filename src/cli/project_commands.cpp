#include "cli/commands.h"
#include "cli/output.h"
#include "cli/project_input.h"

#include <iostream>

namespace orvelle::cli {

namespace {

int runProjectNormalize(const Arguments& arguments) {
    const EditorProjectState project =
        readProjectJson(arguments.positional(0, "the project JSON to read"));
    const Json json = encodeJson(project);
    if (const auto output = arguments.value("--output")) {
        writeJsonAtomically(*output, json);
        return 0;
    }
    printJson(json);
    return 0;
}

} // namespace

Command projectNormalizeCommand() {
    return {"project normalize",
            "read a project state and write it as this program saves it",
            "orvelle project normalize IN [-o OUT]\n\n"
            "Reads IN, an editor project state or a project.json with `version` and\n"
            "`project`, and writes the state as this program saves it: every missing key\n"
            "with its default, numbers clamped into range, retired names replaced, keys\n"
            "sorted. Writes to OUT (replaced atomically) or to stdout. A file that does not\n"
            "decode exits with status 1 and a message naming the offending key.",
            {{"--output", true, "-o"}, {"--json"}},
            runProjectNormalize};
}

} // namespace orvelle::cli
