#include "cli/commands.h"
#include "cli/output.h"
#include "core/file_url.h"
#include "core/files.h"
#include "project/take_manifest.h"
#include "recording/recording_crash_recovery.h"
#include "recording/recording_scratch_store.h"

#include <iostream>

namespace orvelle::cli {

namespace {

namespace fs = std::filesystem;

constexpr const char* kFoundTitle = "Found a recording from a previous session";
constexpr const char* kFoundText =
    "Orvelle closed before this recording could be finished. Everything captured up to the "
    "interruption was kept and can be recovered.";

// A take named on the command line: its folder, its first movie, or the folder's name in
// the store. The result is the first movie's URL, which need not exist.
fs::path takeScreenURL(const std::string& text) {
    fs::path path = fs::absolute(text).lexically_normal();
    if (!fs::exists(path)) {
        const fs::path inStore = RecordingScratchStore::capturesDirectory(false) / text;
        if (fs::exists(inStore)) {
            path = inStore;
        } else {
            throw UsageError("No take at \"" + text +
                             "\": name a take folder or its movie ('orvelle recover --list' "
                             "lists the unfinished ones).");
        }
    }
    if (!path.has_filename()) {
        path = path.parent_path();
    }
    if (fs::is_directory(path)) {
        // The folder "<base>-<UUID>" holds "<base>.mov"; the sentinel names it too.
        std::string name = path.filename().string();
        const size_t uuidLength = 37; // "-" and the 36 characters of the UUID
        if (name.size() > uuidLength) {
            name = name.substr(0, name.size() - uuidLength);
        }
        return path / (name + ".mov");
    }
    return path;
}

Json takeJson(const fs::path& screenURL) {
    return {{"screenURL", fileURLString(screenURL)},
            {"folder", screenURL.parent_path().string()},
            {"name", screenURL.parent_path().filename().string()}};
}

int runRecover(const Arguments& arguments) {
    const bool json = arguments.flag("--json");
    const bool list = arguments.flag("--list");
    const bool all = arguments.flag("--all");
    if ((list ? 1 : 0) + (all ? 1 : 0) + (arguments.positional().empty() ? 0 : 1) != 1) {
        throw UsageError("Give one of --list, --all or a TAKE folder.");
    }
    std::vector<RecordingCrashRecovery::AbandonedTake> takes;
    if (arguments.positional().empty()) {
        takes = RecordingCrashRecovery::scanForAbandonedTakes();
    } else {
        const fs::path screenURL = takeScreenURL(arguments.positional(0, "TAKE"));
        if (!fileExists(screenURL.parent_path() / RecordingScratchStore::kSentinelName)) {
            throw Error("\"" + screenURL.parent_path().string() +
                        "\" is not an unfinished take: it has no sign of a recording in "
                        "progress, so there is nothing to recover.");
        }
        if (!fileExists(screenURL)) {
            throw Error("The take's movie \"" + screenURL.filename().string() +
                        "\" is missing: nothing of it can be recovered. Remove it with "
                        "'orvelle discard'.");
        }
        takes.push_back({screenURL});
    }
    if (list) {
        if (json) {
            Json entries = Json::array();
            for (const auto& take : takes) {
                entries.push_back(takeJson(take.screenURL));
            }
            printJson({{"takes", entries}});
        } else if (takes.empty()) {
            std::cout << "No unfinished recordings.\n";
        } else {
            for (const auto& take : takes) {
                std::cout << kFoundTitle << ": " << take.screenURL.parent_path().string() << "\n";
            }
            std::cout << kFoundText
                      << "\nRecover with 'orvelle recover --all' or 'orvelle recover TAKE'; "
                         "delete one with 'orvelle discard TAKE'.\n";
        }
        return 0;
    }
    Json results = Json::array();
    int failures = 0;
    for (const auto& take : takes) {
        const bool recovered = RecordingCrashRecovery::recover(take);
        Json entry = takeJson(take.screenURL);
        entry["recovered"] = recovered;
        if (recovered) {
            entry["manifestURL"] = fileURLString(TakeManifest::sidecarURL(take.screenURL));
            if (const auto manifest = TakeManifest::load(take.screenURL)) {
                entry["duration"] = manifest->duration();
                Json tracks = Json::array();
                for (const auto& track : manifest->tracks) {
                    tracks.push_back(track.id);
                }
                entry["tracks"] = tracks;
            }
        } else {
            ++failures;
        }
        if (!json) {
            if (recovered) {
                std::cout << "Recovered " << take.screenURL.string() << " ("
                          << entry.value("duration", 0.0) << " s).\n";
            } else {
                std::cerr << "orvelle recover: " << take.screenURL.parent_path().string()
                          << " holds no readable screen recording; it was left as it is "
                             "(delete it with 'orvelle discard').\n";
            }
        }
        results.push_back(entry);
    }
    if (json) {
        printJson({{"takes", results}});
    } else if (takes.empty()) {
        std::cout << "No unfinished recordings.\n";
    }
    return failures == 0 ? 0 : 1;
}

int runDiscard(const Arguments& arguments) {
    const fs::path screenURL = takeScreenURL(arguments.positional(0, "TAKE"));
    const fs::path folder = screenURL.parent_path();
    if (!RecordingScratchStore::isManagedCaptureURL(folder) ||
        fs::equivalent(folder, RecordingScratchStore::capturesDirectory(false))) {
        throw Error("\"" + folder.string() + "\" is not a take in Orvelle's recording store (" +
                    RecordingScratchStore::capturesDirectory(false).string() +
                    "); only takes there are deleted. Remove other files yourself.");
    }
    RecordingScratchStore::removeRecordingSentinel(screenURL);
    RecordingScratchStore::deleteAbandonedTakeDirectory(screenURL);
    const bool removed = !fileExists(folder);
    if (arguments.flag("--json")) {
        printJson({{"folder", folder.string()}, {"deleted", removed}});
    } else if (removed) {
        std::cout << "Deleted " << folder.string() << ".\n";
    }
    if (!removed) {
        throw Error("Could not delete \"" + folder.string() + "\"; check its permissions.");
    }
    return 0;
}

} // namespace

Command recoverCommand() {
    return {"recover",
            "finish recordings that were cut off by a crash",
            "orvelle recover --list | --all | TAKE [--json]\n\n"
            "A recording whose program or machine died keeps a sign of its recording in\n"
            "progress in its folder of the recording store ($XDG_DATA_HOME/Orvelle/Captures).\n"
            "--list names those takes; --all or TAKE (a take folder, its movie or its folder's\n"
            "name) recovers them: the take's files are laid end to end by what each holds (a\n"
            "movie cut short is read to its last whole fragment; files under 0.05 s are left\n"
            "out), its manifest is written and the sign removed. A take without a readable\n"
            "screen movie is left as it is.",
            {{"--list"}, {"--all"}, {"--json"}},
            runRecover};
}

Command discardCommand() {
    return {"discard",
            "delete a take from the recording store",
            "orvelle discard TAKE [--json]\n\n"
            "Deletes the take's folder, with everything in it, from the recording store\n"
            "($XDG_DATA_HOME/Orvelle/Captures). TAKE is a take folder, its movie or its\n"
            "folder's name. Nothing outside the store is ever deleted.",
            {{"--json"}},
            runDiscard};
}

} // namespace orvelle::cli
