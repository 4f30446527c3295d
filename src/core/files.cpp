#include "core/files.h"

#include "core/error.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

namespace orvelle {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void throwFileError(const std::string& what, const fs::path& path, int error) {
    throw FileError(what + " \"" + path.string() + "\": " + std::strerror(error));
}

} // namespace

std::string readFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throwFileError("Could not open", path, errno);
    }
    std::ostringstream buffer;
    buffer << in.rdbuf();
    if (in.bad()) {
        throwFileError("Could not read", path, errno);
    }
    return std::move(buffer).str();
}

void writeFileAtomically(const fs::path& path, std::string_view bytes,
                         std::optional<fs::perms> mode) {
    const fs::path folder = path.has_parent_path() ? path.parent_path() : fs::path(".");
    std::string pattern = (folder / ("." + path.filename().string() + ".XXXXXX")).string();
    const int fd = ::mkstemp(pattern.data());
    if (fd < 0) {
        throwFileError("Could not create a temporary file for", path, errno);
    }
    const fs::path temporary = pattern;
    auto fail = [&](const char* what) {
        const int error = errno;
        ::close(fd);
        ::unlink(temporary.c_str());
        throwFileError(what, path, error);
    };
    size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + written, bytes.size() - written);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            fail("Could not write");
        }
        written += static_cast<size_t>(n);
    }
    // mkstemp makes the file private; keep the mode of the file we replace, or use the mode
    // of any file the user saves, unless the caller names one.
    struct stat existing {};
    if (mode) {
        ::fchmod(fd, static_cast<mode_t>(*mode));
    } else {
        ::fchmod(fd, ::stat(path.c_str(), &existing) == 0 ? (existing.st_mode & 07777) : 0644);
    }
    if (::fsync(fd) != 0) {
        fail("Could not flush");
    }
    if (::close(fd) != 0) {
        const int error = errno;
        ::unlink(temporary.c_str());
        throwFileError("Could not close", path, error);
    }
    if (::rename(temporary.c_str(), path.c_str()) != 0) {
        const int error = errno;
        ::unlink(temporary.c_str());
        throwFileError("Could not replace", path, error);
    }
    // The rename itself is durable only once the folder is flushed.
    const int dirFd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY);
    if (dirFd >= 0) {
        ::fsync(dirFd);
        ::close(dirFd);
    }
}

bool fileExists(const fs::path& path) {
    std::error_code error;
    return fs::exists(fs::symlink_status(path, error)) && !error;
}

void removeIgnoringErrors(const fs::path& path) {
    std::error_code error;
    fs::remove_all(path, error);
}

namespace {

constexpr std::string_view kPartialPrefix = ".partial-";
// Numbers the partial files of this process, so that two threads never share one.
std::atomic<unsigned> partialFileCount = 0;

// The process id in a partial file's name, or 0 when the name is not one.
pid_t partialFileOwner(const std::string& name) {
    if (name.rfind(kPartialPrefix, 0) != 0) {
        return 0;
    }
    const size_t digits = kPartialPrefix.size();
    const size_t dash = name.find('-', digits);
    if (dash == std::string::npos || dash == digits) {
        return 0;
    }
    pid_t owner = 0;
    for (size_t i = digits; i < dash; ++i) {
        if (name[i] < '0' || name[i] > '9' || owner > 100000000) {
            return 0;
        }
        owner = owner * 10 + (name[i] - '0');
    }
    return owner;
}

bool processRuns(pid_t id) {
    return ::kill(id, 0) == 0 || errno == EPERM;
}

fs::path folderOf(const fs::path& path) {
    return path.has_parent_path() ? path.parent_path() : fs::path(".");
}

} // namespace

PartialFile::PartialFile(fs::path destination)
    : destination_(std::move(destination)),
      partial_(folderOf(destination_) / (std::string(kPartialPrefix) + std::to_string(::getpid()) +
                                         "-" + std::to_string(partialFileCount.fetch_add(1)) + "-" +
                                         destination_.filename().string())) {
    removeStalePartialFiles(folderOf(destination_));
    removeIgnoringErrors(partial_);
}

PartialFile::~PartialFile() {
    if (!committed_) {
        removeIgnoringErrors(partial_);
    }
}

void PartialFile::commit() {
    if (::rename(partial_.c_str(), destination_.c_str()) != 0) {
        throwFileError("Could not move the finished file into place at", destination_, errno);
    }
    committed_ = true;
}

void removeStalePartialFiles(const fs::path& folder) {
    std::error_code error;
    for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
        const pid_t owner = partialFileOwner(it->path().filename().string());
        if (owner > 0 && owner != ::getpid() && !processRuns(owner)) {
            removeIgnoringErrors(it->path());
        }
    }
}

} // namespace orvelle
