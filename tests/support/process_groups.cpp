#include "support/process_groups.h"

#include "support/temporary_directory.h"

#include <fstream>
#include <sstream>
#include <string>

namespace orvelle::testing {

namespace fs = std::filesystem;

namespace {

// State and process group from /proc/<pid>/stat; the name in parentheses may hold blanks.
bool readStat(const fs::path& statFile, char& state, pid_t& group) {
    std::ifstream file(statFile);
    std::string text;
    if (!std::getline(file, text)) {
        return false;
    }
    const auto close = text.rfind(')');
    if (close == std::string::npos) {
        return false;
    }
    std::istringstream rest(text.substr(close + 1));
    pid_t parent = 0;
    rest >> state >> parent >> group;
    return static_cast<bool>(rest);
}

} // namespace

std::vector<pid_t> livingProcessesInGroup(pid_t group) {
    std::vector<pid_t> result;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator("/proc", error)) {
        const std::string name = entry.path().filename().string();
        if (name.find_first_not_of("0123456789") != std::string::npos) {
            continue;
        }
        char state = 0;
        pid_t processGroup = 0;
        if (readStat(entry.path() / "stat", state, processGroup) && processGroup == group &&
            state != 'Z' && state != 'X') {
            result.push_back(static_cast<pid_t>(std::stol(name)));
        }
    }
    return result;
}

void writeExecutableScript(const fs::path& path, std::string_view text) {
    writeTextFile(path, text);
    fs::permissions(path, fs::perms::owner_all | fs::perms::group_read | fs::perms::others_read);
}

} // namespace orvelle::testing
